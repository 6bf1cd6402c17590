// A file as a byte stream, over POSIX descriptors.
//
// The binary stream reads and writes a few bytes at a time, so small
// transfers go through a block of our own; one system call per number would
// make packing to a file slow. Large transfers bypass the block.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "vyr_system.h"

const unsigned char QEN_TFile::ReadOnly = 0;
const unsigned char QEN_TFile::WriteOnly = 1;
const unsigned char QEN_TFile::ReadWrite = 2;

namespace {

constexpr unsigned kBlockSize = 64 * 1024;

}  // namespace

QEN_TFile::QEN_TFile(const QEN_TString& path, unsigned char mode) : mPath(path) {
  unsigned flags = vyr::sys::kRead;
  if (mode == ReadOnly)
    flags = vyr::sys::kRead;
  else if (mode == WriteOnly)
    flags = vyr::sys::kWrite | vyr::sys::kCreate | vyr::sys::kTruncate;
  else if (mode == ReadWrite)
    flags = vyr::sys::kReadWrite | vyr::sys::kCreate;
  else
    QEN_THROW(QEN_EFileException,
              QEN_TString::Format("cannot open \"%s\": unknown mode %u", mPath.c_str(), mode));

  // A NUL in the name would open the shorter name before it.
  if (mPath.Chars().find(u'\0') != std::u16string::npos) {
    errno = EINVAL;
    Fail("cannot open");
  }
  // Without waiting: opening a FIFO would block until somebody opens its
  // other end. What is opened must be a file or a device; the flag goes
  // again once that is known.
  mFd = vyr::sys::Open(mPath.c_str(), flags | vyr::sys::kNonBlocking);
  if (mFd < 0) Fail("cannot open");

  vyr::sys::FileStatus info;
  if (!vyr::sys::StatusOf(mFd, info)) {
    int error = errno;
    vyr::sys::Close(mFd);
    mFd = -1;
    errno = error;
    Fail("cannot get the size of");
  }
  using vyr::sys::Kind;
  if (info.kind == Kind::kFolder || info.kind == Kind::kFifo || info.kind == Kind::kSocket) {
    vyr::sys::Close(mFd);
    mFd = -1;
    errno = info.kind == Kind::kFolder ? EISDIR : ESPIPE;
    Fail("cannot open");
  }
  vyr::sys::SetBlocking(mFd);
  mSize = info.size;
  mBuffer = new (std::nothrow) unsigned char[kBlockSize];
  if (mBuffer == nullptr) {
    vyr::sys::Close(mFd);
    mFd = -1;
    errno = ENOMEM;
    Fail("cannot open");
  }
}

QEN_TFile::~QEN_TFile() {
  if (mFd >= 0) {
    // A destructor can't report; callers that care call Flush first.
    try {
      WritePending();
    } catch (...) {
    }
    vyr::sys::Close(mFd);
  }
  delete[] mBuffer;
}

void QEN_TFile::Fail(const char* what) const {
  QEN_THROW(QEN_EFileException,
            QEN_TString::Format("%s \"%s\": %s", what, mPath.c_str(), std::strerror(errno)));
  std::abort();  // QEN_Throw doesn't come back
}

unsigned QEN_TFile::Read(void* data, unsigned size) {
  if (mWriting) WritePending();
  unsigned char* out = static_cast<unsigned char*>(data);
  unsigned done = 0;
  while (done < size) {
    if (mBufferStart < mBufferEnd) {
      unsigned n = mBufferEnd - mBufferStart;
      if (n > size - done) n = size - done;
      std::memcpy(out + done, mBuffer + mBufferStart, n);
      mBufferStart += n;
      done += n;
      continue;
    }
    // Read straight into the caller's memory when the rest fills a block.
    bool direct = size - done >= kBlockSize;
    unsigned char* target = direct ? out + done : mBuffer;
    unsigned want = direct ? size - done : kBlockSize;
    const long long got = vyr::sys::Read(mFd, target, want);
    if (got < 0) Fail("cannot read");
    if (got == 0) break;
    if (direct) {
      done += static_cast<unsigned>(got);
    } else {
      mBufferStart = 0;
      mBufferEnd = static_cast<unsigned>(got);
    }
  }
  mPosition += done;
  if (mPosition > mSize) mSize = mPosition;  // the file grew behind our back
  return done;
}

void QEN_TFile::Write(const void* data, unsigned size) {
  if (size == 0) return;
  if (!mWriting) {
    DropReadAhead();
    mWriting = true;
  }
  const unsigned char* in = static_cast<const unsigned char*>(data);
  if (mBufferEnd + size <= kBlockSize) {
    std::memcpy(mBuffer + mBufferEnd, in, size);
    mBufferEnd += size;
  } else {
    WritePending();
    mWriting = true;
    if (size < kBlockSize) {
      std::memcpy(mBuffer, in, size);
      mBufferEnd = size;
    } else {
      std::size_t done = 0;
      if (!vyr::sys::Write(mFd, in, size, done)) Fail("cannot write");
    }
  }
  mPosition += size;
  if (mPosition > mSize) mSize = mPosition;
}

unsigned long long QEN_TFile::Available() const {
  return mSize > mPosition ? mSize - mPosition : 0;
}

bool QEN_TFile::Flush() {
  WritePending();
  // Durable before a caller renames it into place.
  if (!vyr::sys::Sync(mFd) && errno != EINVAL && errno != EBADF) Fail("cannot flush");
  return true;
}

void QEN_TFile::WritePending() {
  if (!mWriting) return;
  std::size_t done = 0;
  if (!vyr::sys::Write(mFd, mBuffer, mBufferEnd, done)) {
    // Keep what wasn't written, so a later Flush can try again.
    std::memmove(mBuffer, mBuffer + done, mBufferEnd - done);
    mBufferEnd -= static_cast<unsigned>(done);
    Fail("cannot write");
  }
  mBufferStart = mBufferEnd = 0;
  mWriting = false;
}

void QEN_TFile::DropReadAhead() {
  // The descriptor stands behind the read-ahead; move it back to where the
  // caller is before writing there.
  if (mBufferStart < mBufferEnd) {
    const long long back = static_cast<long long>(mBufferEnd - mBufferStart);
    if (!vyr::sys::SeekBy(mFd, -back)) Fail("cannot seek in");
  }
  mBufferStart = mBufferEnd = 0;
}
