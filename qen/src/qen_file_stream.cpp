// A file as a byte stream, over POSIX descriptors.
//
// The binary stream reads and writes a few bytes at a time, so small
// transfers go through a block of our own; one system call per number would
// make packing to a file slow. Large transfers bypass the block.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"

const unsigned char QEN_TFile::ReadOnly = 0;
const unsigned char QEN_TFile::WriteOnly = 1;
const unsigned char QEN_TFile::ReadWrite = 2;

namespace {

constexpr unsigned kBlockSize = 64 * 1024;

}  // namespace

QEN_TFile::QEN_TFile(const QEN_TString& path, unsigned char mode) : mPath(path) {
  int flags = O_RDONLY;
  if (mode == ReadOnly)
    flags = O_RDONLY;
  else if (mode == WriteOnly)
    flags = O_WRONLY | O_CREAT | O_TRUNC;
  else if (mode == ReadWrite)
    flags = O_RDWR | O_CREAT;
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
  do {
    mFd = ::open(mPath.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
  } while (mFd < 0 && errno == EINTR);
  if (mFd < 0) Fail("cannot open");

  struct stat info;
  if (::fstat(mFd, &info) != 0) {
    int error = errno;
    ::close(mFd);
    mFd = -1;
    errno = error;
    Fail("cannot get the size of");
  }
  if (S_ISDIR(info.st_mode) || S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode)) {
    ::close(mFd);
    mFd = -1;
    errno = S_ISDIR(info.st_mode) ? EISDIR : ESPIPE;
    Fail("cannot open");
  }
  ::fcntl(mFd, F_SETFL, ::fcntl(mFd, F_GETFL) & ~O_NONBLOCK);
  mSize = static_cast<unsigned long long>(info.st_size);
  mBuffer = new (std::nothrow) unsigned char[kBlockSize];
  if (mBuffer == nullptr) {
    ::close(mFd);
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
    ::close(mFd);
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
    ssize_t got = ::read(mFd, target, want);
    if (got < 0) {
      if (errno == EINTR) continue;
      Fail("cannot read");
    }
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
      unsigned done = 0;
      while (done < size) {
        ssize_t put = ::write(mFd, in + done, size - done);
        if (put < 0) {
          if (errno == EINTR) continue;
          Fail("cannot write");
        }
        done += static_cast<unsigned>(put);
      }
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
  int result;
  do {
    result = ::fsync(mFd);
  } while (result != 0 && errno == EINTR);
  if (result != 0 && errno != EINVAL && errno != EBADF) Fail("cannot flush");
  return true;
}

void QEN_TFile::WritePending() {
  if (!mWriting) return;
  unsigned done = 0;
  while (done < mBufferEnd) {
    ssize_t put = ::write(mFd, mBuffer + done, mBufferEnd - done);
    if (put < 0) {
      if (errno == EINTR) continue;
      // Keep what wasn't written, so a later Flush can try again.
      std::memmove(mBuffer, mBuffer + done, mBufferEnd - done);
      mBufferEnd -= done;
      Fail("cannot write");
    }
    done += static_cast<unsigned>(put);
  }
  mBufferStart = mBufferEnd = 0;
  mWriting = false;
}

void QEN_TFile::DropReadAhead() {
  // The descriptor stands behind the read-ahead; move it back to where the
  // caller is before writing there.
  if (mBufferStart < mBufferEnd) {
    off_t back = static_cast<off_t>(mBufferEnd - mBufferStart);
    if (::lseek(mFd, -back, SEEK_CUR) < 0) Fail("cannot seek in");
  }
  mBufferStart = mBufferEnd = 0;
}
