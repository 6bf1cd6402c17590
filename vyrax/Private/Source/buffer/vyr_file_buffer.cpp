// File buffers: one shared read-only mapping per name, position and size in
// the process, opened with retries against other processes that hold the
// file; and the file route of VYR_IBuffer::Create.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include <cstdio>
#include <limits>
#include <memory>

#include <ordonotes/ordonotes.h>
#include <qen/qen_sync.h>

#include "vyr_buffer-priv.h"
#include "vyr_platform.h"
#include "vyr_throw.h"

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

unsigned long long Join(unsigned int low, unsigned int high) {
  return (static_cast<unsigned long long>(high) << 32) | low;
}

// Opens the file, trying again while another process holds it.
Handle OpenWithRetries(QEN_TString const& name) {
  const char* const path = name.c_str();
  Handle file = kInvalidHandle;
  int error = 0;
  unsigned int attempts = VYR_TFileBuffer::sNrOfRetries;
  vyr::platform::OpenResult result = vyr::platform::OpenShared(path, file, error);
  while (result == vyr::platform::OpenResult::kHeld && attempts != 0) {
    char line[8192];
    std::snprintf(line, sizeof line,
                  "VYR_TFileBuffer - file open attempt failed due to sharing violation (%s), "
                  "remaining attempts: %d\n",
                  path, static_cast<int>(attempts));
    QENMESG_Log(line);
    --attempts;
    vyr::platform::SleepMilliseconds(VYR_TFileBuffer::sRetryDelay);
    result = vyr::platform::OpenShared(path, file, error);
  }
  if (result != vyr::platform::OpenResult::kOpened)
    VYR_THROW(VYR_EBufferCannotOpenFile, QEN_TString(), vyr::SystemError(error, name));
  return file;
}

// The record of a mapping that another open of the same key made, if it
// still shows the file at the size it has now.
VYR_TMappedFile* FindShared(QEN_TString const& name, unsigned int size, unsigned int positionLow,
                            unsigned int positionHigh, unsigned long long fileSize) {
  for (VYR_TMappedFile* record = gMappedFiles; record != nullptr; record = record->next) {
    if (record->size != size || record->positionLow != positionLow ||
        record->positionHigh != positionHigh || record->name.CompareWith(name, false) != 0)
      continue;
    // A record nobody uses ends the search as if nothing matched.
    if (record->useCount == 0) return nullptr;
    // A file that changed its size since is mapped anew: the old view does
    // not cover what the new size promises.
    if (record->fileSize != fileSize) continue;
    return record;
  }
  return nullptr;
}

void Unmap(Handle file, Handle mapping, void* view) {
  if (view != nullptr) vyr::platform::UnmapView(mapping, view);
  vyr::platform::CloseMapping(mapping);
  vyr::platform::CloseFile(file);
}

}  // namespace

VYR_TFileBuffer::VYR_TFileBuffer(QEN_TString const& name, unsigned int size,
                                 unsigned int positionLow, unsigned int positionHigh)
    : VYR_TBuffPriv(),
      mFile(kInvalidHandle),
      mMapping(kInvalidHandle),
      mView(nullptr),
      mSizeHigh(0),
      mStart(Join(positionLow, positionHigh)),
      mViewSize(0) {
  const Handle file = OpenWithRetries(name);

  unsigned long long fileSize = 0;
  int error = 0;
  if (!vyr::platform::FileSize(file, fileSize, error)) {
    vyr::platform::CloseFile(file);
    VYR_THROW(VYR_EBufferCannotDetermineFileSize, QEN_TString(), vyr::SystemError(error, name));
  }
  mSize = static_cast<unsigned int>(fileSize);
  mSizeHigh = static_cast<unsigned int>(fileSize >> 32);
  // Only the low half counts here, as everywhere Size() is concerned: a file
  // of a multiple of 4 GiB has no bytes that Size() could show.
  if (mSize == 0) {
    vyr::platform::CloseFile(file);
    VYR_THROW(VYR_EBufferEmptyFile, "VYR_EBufferEmptyFile", name);
  }
  // A view that would run past the end is cut at the end, on the whole
  // 64-bit position. A view that starts at or past the end stays as asked,
  // and mapping it fails.
  if (size != 0 && mStart < fileSize && mStart + size > fileSize)
    size = static_cast<unsigned int>(fileSize - mStart);

  {
    QEN_TWriteGuard guard(vyr::TableLock());
    VYR_TMappedFile* record = FindShared(name, size, positionLow, positionHigh, fileSize);
    if (record != nullptr) {
      vyr::platform::CloseFile(file);
      ++record->useCount;
    } else {
      Handle mapping = kInvalidHandle;
      if (!vyr::platform::CreateMapping(file, mapping, error)) {
        vyr::platform::CloseFile(file);
        VYR_THROW(VYR_EBufferCannotCreateMapping, QEN_TString(), vyr::SystemError(error, name));
      }
      void* const view = vyr::platform::MapView(mapping, mStart, size, error);
      if (view == nullptr) {
        Unmap(file, mapping, nullptr);
        VYR_THROW(VYR_EBufferCannotMapFile, QEN_TString(), vyr::SystemError(error));
      }
      record = new (std::nothrow)
          VYR_TMappedFile{size, positionLow, positionHigh, 1, name, file, mapping, view,
                          fileSize, gMappedFiles};
      if (record == nullptr) {
        Unmap(file, mapping, view);
        VYR_THROW(VYR_EBufferNotEnoughMemory, "VYR_EBufferNotEnoughMemory",
                  vyr::SystemError(ENOMEM));
      }
      gMappedFiles = record;
    }
    mFile = record->file;
    mMapping = record->mapping;
    mView = record->view;
  }
  mData = static_cast<unsigned char*>(mView);
  // What can be reached by address. A whole-file view reaches Size() bytes;
  // a view from a later position to the end reaches the rest of the file,
  // not Size() bytes.
  if (size != 0)
    mViewSize = size;
  else
    mViewSize = mStart == 0 ? mSize : fileSize - mStart;
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
    Unmap(mFile, mMapping, mView);
    if (record != nullptr && record->useCount == 1) {
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
  return mViewSize < mSize ? static_cast<unsigned int>(mViewSize) : mSize;
}

bool VYR_TFileBuffer::IsValid() const {
  return mViewSize == mSize && mData != nullptr && mSize != 0;
}

VYR_IBuffer const* VYR_TFileBuffer::Duplicate(bool copy) const {
  if (copy) return new VYR_TMemoryBuffer(vyr::AllBytes(*this), Size(), 0);
  return new VYR_TFileBuffer(*this);
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
    return VYR_TSliceBuffer::Exact(*this, offset, reach - offset, reach);
  }
  if (static_cast<unsigned long long>(offset) + size > reach) VYR_THROW(VYR_EBufferSliceTooLarge);
  if (copy) return new VYR_TMemoryBuffer(mData, size, offset);
  return VYR_TSliceBuffer::Exact(*this, offset, size, reach);
}

void const* VYR_TFileBuffer::operator()(unsigned long long offset, unsigned long long size) const {
  bool inside = false;
  if (size != 0 || offset <= mSize) {
    if (size == 0) size = mSize - offset;
    inside = offset <= mViewSize && size <= mViewSize - offset &&
             offset + size <= Reach();
  }
  if (inside) {
    // An address inside the view: nothing is mapped or read. Should making
    // the slice fail, the bytes are read instead.
    try {
      VYR_TBuffPriv* const slice =
          VYR_TSliceBuffer::Exact(*this, static_cast<unsigned int>(offset),
                                  static_cast<unsigned int>(size), Reach());
      Reserve(slice);
      return slice->Buffer();
    } catch (...) {
    }
  }
  return ReadOutside(offset, size);
}

void const* VYR_TFileBuffer::ReadOutside(unsigned long long offset, unsigned long long size) const {
  // One block holds at most what a buffer can count.
  if (size > std::numeric_limits<unsigned int>::max())
    VYR_THROW(VYR_EBufferRegionTooLarge, QEN_TString(),
              QEN_TString::Format("offset = %llu, size = %llu", offset, size));
  VYR_TMemoryBuffer* const block = new VYR_TMemoryBuffer(static_cast<unsigned int>(size), nullptr);
  Reserve(block);
  unsigned char* const bytes = static_cast<unsigned char*>(const_cast<void*>(block->Buffer()));
  // A position past what 64 bits can count lies past the end of any file.
  const unsigned long long position = mStart + offset;
  std::size_t got = 0;
  int error = 0;
  if (position >= offset && size > 0 &&
      !vyr::platform::ReadAt(mFile, bytes, static_cast<std::size_t>(size), position, got, error))
    VYR_THROW(VYR_EBufferCannotReadFile, QEN_TString(), vyr::SystemError(error));
  // Behind the end of the file there is nothing to read; the block shows
  // zero bytes there rather than whatever the heap held.
  for (std::size_t i = got; i < size; ++i) bytes[i] = 0;
  return bytes;
}

// --- The file route of Create -------------------------------------------------------

namespace vyr {

VYR_IBuffer const* OpenByPath(QEN_TString const& name, unsigned int positionLow,
                              unsigned int positionHigh, unsigned int size) {
  unsigned long long position = Join(positionLow, positionHigh);
  std::unique_ptr<VYR_TFileBuffer> file;
  try {
    // The whole file, so that every range of it shares one view and one
    // record; the range shows up only in the slice.
    file.reset(new VYR_TFileBuffer(name, 0, 0, 0));
  } catch (VYR_EBuffer const&) {
    // A view of the part that was asked for, at an aligned position.
    const unsigned int granularity =
        VYR_TFileBuffer::sAllocationGranularity != 0 ? VYR_TFileBuffer::sAllocationGranularity : 1;
    const unsigned int base = positionLow - positionLow % granularity;
    unsigned long long length = VYR_TFileBuffer::sAllocationBlock;
    if (size != 0 && positionLow != 0) {
      length = ((static_cast<unsigned long long>(positionLow - base) + size) / granularity + 1) *
               granularity;
      if (length > std::numeric_limits<unsigned int>::max())
        length = std::numeric_limits<unsigned int>::max() / granularity * granularity;
    }
    file.reset(new VYR_TFileBuffer(name, static_cast<unsigned int>(length), base, positionHigh));
    position = positionLow - base;
  }
  if (position == 0 && size == 0) return file.release();
  const unsigned long long total = file->Size();
  VYR_IBuffer const* slice;
  if (position + size < total)
    slice = file->Slice(static_cast<unsigned int>(position), size, false);
  else if (position < total)
    slice = file->Slice(static_cast<unsigned int>(position),
                        static_cast<unsigned int>(total - position), false);
  else
    VYR_THROW(VYR_EBufferSliceStartsAfterEnd);
  // The slice holds its own duplicate: the mapping lives on.
  return slice;
}

}  // namespace vyr
