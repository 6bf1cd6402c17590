// File buffers: one shared read-only mapping per file, position and size in
// the process, opened with retries against other processes that hold the
// file; and the file route of VYR_IBuffer::Create.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include <ordonotes/ordonotes.h>
#include <qen/qen_sync.h>

#include <cstdio>
#include <limits>
#include <memory>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"
#include "platform/vyr_platform.h"

QEN_DEFINE_OBJECT(VYR_TFileBuffer, VYR_TBuffPriv, VYR_IBuffer)

unsigned int VYR_TFileBuffer::sAllocationGranularity = 65536;
unsigned int VYR_TFileBuffer::sAllocationBlock = 67108864;
unsigned int VYR_TFileBuffer::sRetryDelay = 100;
unsigned int VYR_TFileBuffer::sNrOfRetries = 5;

namespace vyr {

QEN_TRWLock& TableLock() {
  static QEN_TRWLock* const lock = new QEN_TRWLock();
  return *lock;
}

}  // namespace vyr

namespace {

using vyr::platform::Handle;
using vyr::platform::kInvalidHandle;

// The table of mappings, newest first; guarded by the table lock.
VYR_TMappedFile* gMappedFiles = nullptr;

constexpr unsigned long long kLargestSize = std::numeric_limits<unsigned int>::max();

using vyr::Join;

[[noreturn]] void ThrowTooLarge(QEN_TString const& name, unsigned long long bytes) {
  VYR_THROW(VYR_EBufferRegionTooLarge, "%s: %llu bytes are more than a buffer can count", name,
            bytes);
}

// The record of a mapping of this very file, in the state it has now, with
// the same view.
VYR_TMappedFile* FindShared(vyr::platform::FileIdentity const& identity, unsigned int size,
                            unsigned long long position) {
  for (VYR_TMappedFile* record = gMappedFiles; record != nullptr; record = record->next) {
    if (record->useCount != 0 && record->size == size &&
        Join(record->positionLow, record->positionHigh) == position && record->identity == identity)
      return record;
  }
  return nullptr;
}

void Unmap(Handle file, Handle mapping, void* view, unsigned long long length) {
  vyr::platform::UnmapFile(view, static_cast<std::size_t>(length), mapping);
  vyr::platform::CloseFile(file);
}

}  // namespace

// A file opened for reading, with retries while another process holds it,
// and what it is. Closed at the end unless a new mapping record took it.
struct VYR_TFileBuffer::Opened {
  explicit Opened(QEN_TString const& path);
  ~Opened() { vyr::platform::CloseFile(file); }
  Opened(Opened const&) = delete;
  Opened& operator=(Opened const&) = delete;

  QEN_TString name;
  Handle file = kInvalidHandle;
  vyr::platform::FileIdentity identity;
};

VYR_TFileBuffer::Opened::Opened(QEN_TString const& path) : name(path) {
  // A name with a NUL in it would open the shorter name before it.
  if (name.Chars().find(u'\0') != std::u16string::npos)
    VYR_THROW(VYR_EBufferCannotOpenFile, QEN_TString(), vyr::SystemError(EINVAL, name));
  const char* const text = name.c_str();
  int error = 0;
  unsigned int attempts = VYR_TFileBuffer::sNrOfRetries;
  vyr::platform::OpenResult result = vyr::platform::OpenShared(text, file, error);
  while (result == vyr::platform::OpenResult::kHeld && attempts != 0) {
    char line[8192];
    std::snprintf(line, sizeof line,
                  "VYR_TFileBuffer - file open attempt failed due to sharing violation (%s), "
                  "remaining attempts: %d\n",
                  text, static_cast<int>(attempts));
    QENMESG_Log(line);
    --attempts;
    vyr::platform::SleepMilliseconds(VYR_TFileBuffer::sRetryDelay);
    result = vyr::platform::OpenShared(text, file, error);
  }
  if (result != vyr::platform::OpenResult::kOpened)
    VYR_THROW(VYR_EBufferCannotOpenFile, QEN_TString(), vyr::SystemError(error, name));
  // A constructor that throws runs no destructor: the file is closed here.
  const bool identified = vyr::platform::Identify(file, identity, error);
  if (!identified || identity.size == 0) {
    vyr::platform::CloseFile(file);
    file = kInvalidHandle;
  }
  if (!identified)
    VYR_THROW(VYR_EBufferCannotDetermineFileSize, QEN_TString(), vyr::SystemError(error, name));
  if (identity.size == 0) VYR_THROW(VYR_EBufferEmptyFile, "VYR_EBufferEmptyFile", name);
}

VYR_TFileBuffer::VYR_TFileBuffer(QEN_TString const& name, unsigned int size,
                                 unsigned int positionLow, unsigned int positionHigh)
    : VYR_TFileBuffer(*std::make_unique<Opened>(name), size, Join(positionLow, positionHigh)) {}

VYR_TFileBuffer::VYR_TFileBuffer(Opened& opened, unsigned long long size,
                                 unsigned long long position)
    : VYR_TBuffPriv(),
      mFile(kInvalidHandle),
      mMapping(kInvalidHandle),
      mView(nullptr),
      mSizeHigh(0),
      mStart(position),
      mViewSize(0) {
  const unsigned long long fileSize = opened.identity.size;
  mSize = static_cast<unsigned int>(fileSize);
  mSizeHigh = static_cast<unsigned int>(fileSize >> 32);
  // A whole-file buffer shows Size() bytes: a file that 32 bits can't count
  // is refused rather than shown as its low half.
  if (position == 0 && size == 0 && fileSize > kLargestSize) ThrowTooLarge(opened.name, fileSize);
  // A view that would run past the end is cut at the end. A view that starts
  // at or past the end stays as asked, and mapping it fails.
  if (size != 0 && position < fileSize && size > fileSize - position) size = fileSize - position;
  if (size > kLargestSize) ThrowTooLarge(opened.name, size);

  int error = 0;
  {
    QEN_TWriteGuard guard(vyr::TableLock());
    VYR_TMappedFile* record =
        FindShared(opened.identity, static_cast<unsigned int>(size), position);
    if (record != nullptr) {
      ++record->useCount;
    } else {
      Handle mapping = kInvalidHandle;
      void* const view =
          vyr::platform::MapFile(opened.file, fileSize, position, size, mapping, error);
      if (view == nullptr)
        VYR_THROW(VYR_EBufferCannotMapFile, QEN_TString(), vyr::SystemError(error));
      record = new (std::nothrow) VYR_TMappedFile{static_cast<unsigned int>(size),
                                                  static_cast<unsigned int>(position),
                                                  static_cast<unsigned int>(position >> 32),
                                                  1,
                                                  opened.name,
                                                  opened.file,
                                                  mapping,
                                                  view,
                                                  opened.identity,
                                                  gMappedFiles};
      if (record == nullptr) {
        vyr::platform::UnmapFile(
            view, static_cast<std::size_t>(size != 0 ? size : fileSize - position), mapping);
        VYR_THROW(VYR_EBufferNotEnoughMemory, "VYR_EBufferNotEnoughMemory",
                  vyr::SystemError(ENOMEM));
      }
      // The record keeps the file open now.
      opened.file = kInvalidHandle;
      gMappedFiles = record;
    }
    mFile = record->file;
    mMapping = record->mapping;
    mView = record->view;
  }
  mData = static_cast<unsigned char*>(mView);
  mViewSize = size != 0 ? size : fileSize - position;
}

VYR_TFileBuffer::VYR_TFileBuffer(VYR_TFileBuffer const& other)
    : VYR_IBuffer(),
      VYR_TBuffPriv(other),
      mFile(other.mFile),
      mMapping(other.mMapping),
      mView(other.mView),
      mSizeHigh(other.mSizeHigh),
      mStart(other.mStart),
      mViewSize(other.mViewSize) {}

VYR_TFileBuffer::VYR_TFileBuffer()
    : VYR_TBuffPriv(),
      mFile(kInvalidHandle),
      mMapping(kInvalidHandle),
      mView(nullptr),
      mSizeHigh(0),
      mStart(0),
      mViewSize(0) {
  vyr::ThrowException<VYR_EBufferInternal>(__LINE__, VYR_BUFFER_PRIV_SOURCE);
}

VYR_TFileBuffer::~VYR_TFileBuffer() {
  // Only the last member of the ring gives the ring's use of the record back.
  if (mData == nullptr || !Unlink()) return;
  QEN_TWriteGuard guard(vyr::TableLock());
  VYR_TMappedFile** link = &gMappedFiles;
  while (*link != nullptr && ((*link)->file != mFile || (*link)->mapping != mMapping))
    link = &(*link)->next;
  VYR_TMappedFile* const record = *link;
  if (record != nullptr && record->useCount > 1) {
    --record->useCount;
  } else {
    Unmap(mFile, mMapping, mView, mViewSize);
    if (record != nullptr) {
      *link = record->next;
      delete record;
    }
  }
  mFile = kInvalidHandle;
  mMapping = kInvalidHandle;
  mView = nullptr;
  mData = nullptr;
}

bool VYR_TFileBuffer::QEN_Initialize() {
  vyr::RingLock();
  vyr::TableLock();
  sAllocationGranularity = vyr::platform::AllocationGranularity();
  return true;
}

unsigned int VYR_TFileBuffer::Reach() const {
  return static_cast<unsigned int>(mViewSize < kLargestSize ? mViewSize : kLargestSize);
}

void VYR_TFileBuffer::CheckIntact() const {
  if (!vyr::platform::ViewDamaged(mMapping)) return;
  QEN_TString name;
  {
    QEN_TWriteGuard guard(vyr::TableLock());
    for (VYR_TMappedFile* record = gMappedFiles; record != nullptr; record = record->next)
      if (record->mapping == mMapping) name = record->name;
  }
  VYR_THROW(VYR_EBufferCannotReadFile,
            "The file %s shrank while it was mapped: its lost bytes read as zeros", name);
}

bool VYR_TFileBuffer::IsValid() const {
  return mViewSize == mSize && mData != nullptr && mSize != 0 &&
         !vyr::platform::ViewDamaged(mMapping);
}

VYR_IBuffer const* VYR_TFileBuffer::Duplicate(bool copy) const {
  if (!copy) return new VYR_TFileBuffer(*this);
  std::unique_ptr<VYR_IBuffer const> bytes(new VYR_TMemoryBuffer(vyr::AllBytes(*this), Size(), 0));
  // A copy made while the file shrank holds zeros where its bytes were.
  CheckIntact();
  return bytes.release();
}

void const* VYR_TFileBuffer::Buffer(unsigned int offset) const {
  if (mData == nullptr || offset > Reach())
    VYR_THROW(VYR_EBufferRegionTooLarge, QEN_TString(),
              QEN_TString::Format("offset = %u, size = %u", offset, mSize));
  return mData + offset;
}

VYR_IBuffer const* VYR_TFileBuffer::Slice(unsigned int offset, unsigned int size, bool copy) const {
  const unsigned int reach = Reach();
  if (size == 0 && !copy) {
    // Up to the end of what the view reaches.
    if (offset > reach) VYR_THROW(VYR_EBufferSliceTooLarge);
    return VYR_TSliceBuffer::Exact(*this, offset, reach - offset, reach, mMapping);
  }
  if (static_cast<unsigned long long>(offset) + size > reach) VYR_THROW(VYR_EBufferSliceTooLarge);
  if (!copy) return VYR_TSliceBuffer::Exact(*this, offset, size, reach, mMapping);
  std::unique_ptr<VYR_IBuffer const> bytes(new VYR_TMemoryBuffer(mData, size, offset));
  CheckIntact();
  return bytes.release();
}

void const* VYR_TFileBuffer::operator()(unsigned long long offset, unsigned long long size) const {
  CheckIntact();
  bool inside = false;
  if (size != 0 || offset <= mSize) {
    if (size == 0) size = mSize - offset;
    inside = offset <= mViewSize && size <= mViewSize - offset && offset + size <= Reach();
  }
  if (inside) {
    // An address inside the view: nothing is mapped or read. Should making
    // the slice fail, the bytes are read instead.
    try {
      VYR_TBuffPriv* const slice =
          VYR_TSliceBuffer::Exact(*this, static_cast<unsigned int>(offset),
                                  static_cast<unsigned int>(size), Reach(), mMapping);
      Reserve(slice);
      return slice->Buffer();
    } catch (...) {
    }
  }
  return ReadOutside(offset, size);
}

void const* VYR_TFileBuffer::ReadOutside(unsigned long long offset, unsigned long long size) const {
  // One block holds at most what a buffer can count.
  if (size > kLargestSize)
    VYR_THROW(VYR_EBufferRegionTooLarge, QEN_TString(),
              QEN_TString::Format("offset = %llu, size = %llu", offset, size));
  // Zeros from the start: behind the end of the file the block shows zero
  // bytes, and the pages nobody reads into cost no memory.
  VYR_TMemoryBuffer* const block = VYR_TMemoryBuffer::Zeroed(static_cast<unsigned int>(size));
  Reserve(block);
  unsigned char* const bytes = static_cast<unsigned char*>(const_cast<void*>(block->Buffer()));
  // A position past what 64 bits can count lies past the end of any file.
  const unsigned long long position = mStart + offset;
  std::size_t got = 0;
  int error = 0;
  if (position >= offset && size > 0 &&
      !vyr::platform::ReadAt(mFile, bytes, static_cast<std::size_t>(size), position, got, error))
    VYR_THROW(VYR_EBufferCannotReadFile, QEN_TString(), vyr::SystemError(error));
  return bytes;
}

// --- The file route of Create -------------------------------------------------------

VYR_IBuffer const* VYR_TFileBuffer::OpenByPath(QEN_TString const& name, unsigned int positionLow,
                                               unsigned int positionHigh, unsigned int size) {
  // One open serves the whole file and, should that fail, the fallback view.
  Opened file(name);
  const unsigned long long fileSize = file.identity.size;
  const unsigned long long position = Join(positionLow, positionHigh);
  const bool wholeFile = position == 0 && size == 0;
  std::unique_ptr<VYR_TFileBuffer> buffer;
  if (fileSize <= kLargestSize) {
    // The whole file, so that every range of it shares one view and one
    // record; the range shows up only in the slice.
    try {
      buffer.reset(new VYR_TFileBuffer(file, 0, 0));
    } catch (VYR_EBuffer const&) {
    }
  } else if (wholeFile) {
    ThrowTooLarge(name, fileSize);
  }
  if (buffer == nullptr) {
    // A view around the part that was asked for, at an aligned position.
    if (position >= fileSize) VYR_THROW(VYR_EBufferSliceStartsAfterEnd);
    const unsigned long long granularity =
        VYR_TFileBuffer::sAllocationGranularity != 0 ? VYR_TFileBuffer::sAllocationGranularity : 1;
    const unsigned long long base = position - position % granularity;
    unsigned long long length = VYR_TFileBuffer::sAllocationBlock;
    if (!wholeFile) {
      const unsigned long long rest = fileSize - position;
      const unsigned long long span = size != 0 && size < rest ? size : rest;
      if (position - base + span > kLargestSize) ThrowTooLarge(name, span);
      length = ((position - base + span) / granularity + 1) * granularity;
      if (length > kLargestSize) length = position - base + span;
    }
    buffer.reset(new VYR_TFileBuffer(file, length, base));
  }
  if (wholeFile) return buffer.release();
  // What lies behind the position, up to the end of the file.
  const unsigned long long at = position - buffer->mStart;
  const unsigned long long total = fileSize - buffer->mStart;
  if (at >= total) VYR_THROW(VYR_EBufferSliceStartsAfterEnd);
  const unsigned long long count = at + size < total ? size : total - at;
  // The slice holds its own duplicate: the mapping lives on.
  return buffer->Slice(static_cast<unsigned int>(at), static_cast<unsigned int>(count), false);
}
