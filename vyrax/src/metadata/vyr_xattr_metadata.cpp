// Metadata kept in extended attributes of the file.
#define VYR_SOURCE_NAME "Private/Source/vyr_ntfs_metadata"

#include "metadata/vyr_xattr_metadata.h"

#include <qen/qen_file.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/vyr_ea_records.h"
#include "platform/vyr_platform.h"
#include "core/vyr_throw.h"
#include "core/vyr_trace.h"
#include "core/vyr_version_stamp.h"

VYR_VERSION_STAMP()

using vyr::platform::kInvalidHandle;

QEN_DEFINE_OBJECT(VYR_TEA, QEN_TObject, VYR_IMetadata)

VYR_TEA::VYR_TEA(QEN_TURL const& file)
    : mFile(file),
      mHandle(kInvalidHandle),
      mBlock(nullptr),
      mCursor(nullptr),
      mBlockSize(0),
      mReadOnly(true),
      mWhole(false) {
  const QEN_TString path = mFile.LocalPath();
  int error = 0;
  if (!vyr::platform::OpenForAttributes(path.c_str(), mHandle, error)) {
    // Not thrown here: the object stays closed and the first Rescan throws.
    VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TEA::VYR_TEA() Cannot open file (%s): %s", path.c_str(),
              vyr::SystemErrorText(error).c_str());
  }
}

VYR_TEA::~VYR_TEA() {
  FreeBlock();
  Close();
}

void VYR_TEA::ThrowNoAccess() const {
  VYR_THROW(VYR_EMetadataFileDoesNotExist, "Cannot access metadata for %s", mFile.AsString());
}

void VYR_TEA::FreeBlock() {
  std::free(mBlock);
  mBlock = nullptr;
  mCursor = nullptr;
  mBlockSize = 0;
  mWhole = false;
}

void VYR_TEA::Close() {
  vyr::platform::CloseFile(mHandle);
  mHandle = kInvalidHandle;
}

void VYR_TEA::Rescan() {
  if (mHandle == kInvalidHandle) ThrowNoAccess();
  FreeBlock();
}

void VYR_TEA::ReadAll() {
  FreeBlock();
  unsigned char* block = nullptr;
  unsigned size = 0;
  int error = 0;
  const bool read = vyr::platform::ReadAttributes(mHandle, block, size, error);
  const unsigned status = read ? 0u : static_cast<unsigned>(error);
  VYR_TRACE(vyr::kTraceLifeCycle, "VYR_eaLength: NtQueryEaFileInfo(%u) returned $%x\n", size,
            status);
  VYR_TRACE(vyr::kTraceLifeCycle, "VYR_ReadEARaw: NtQueryEaFile(%u) returned $%x\n", size, status);
  // A list that cannot be read looks like no attributes at all; HasAnyKey
  // still asks the file.
  if (read && block != nullptr) {
    mBlock = block;
    mBlockSize = size;
    mCursor = mBlock;
  } else {
    std::free(block);
  }
  mWhole = true;
}

void VYR_TEA::ReadOne(QEN_TString const& key) {
  FreeBlock();
  unsigned char* block = nullptr;
  unsigned size = 0;
  int error = 0;
  const bool read = vyr::platform::ReadAttribute(mHandle, key.c_str(), block, size, error);
  VYR_TRACE(vyr::kTraceLifeCycle, "VYR_ReadEARaw: NtQueryEaFile(%u) returned $%x\n", size,
            read ? 0u : static_cast<unsigned>(error));
  if (read && block != nullptr) {
    mBlock = block;
    mBlockSize = size;
    mCursor = mBlock;
  } else {
    std::free(block);
  }
}

const unsigned char* VYR_TEA::FindRecord(QEN_TString const& key) {
  const char* name = key.c_str();
  for (mCursor = vyr::ea::FirstRecord(mBlock, mBlockSize); mCursor != nullptr;
       mCursor = vyr::ea::NextRecord(mBlock, mBlockSize, mCursor)) {
    if (std::strcmp(vyr::ea::Name(mCursor), name) == 0) return mCursor;
  }
  return nullptr;
}

VYR_IBuffer const* VYR_TEA::GetKeyValue(QEN_TString const& key) {
  Rescan();
  ReadOne(key);
  const unsigned char* record = FindRecord(key);
  if (record == nullptr) ThrowNoAccess();
  return VYR_IBuffer::CreateRef(vyr::ea::ValueLength(record),
                                const_cast<unsigned char*>(vyr::ea::Value(record)));
}

QEN_TList VYR_TEA::GetAllKeys() {
  QEN_TList keys;
  if (mHandle == kInvalidHandle) ThrowNoAccess();
  if (!HasAnyKey()) return keys;
  if (!mWhole) ReadAll();
  for (mCursor = vyr::ea::FirstRecord(mBlock, mBlockSize); mCursor != nullptr;
       mCursor = vyr::ea::NextRecord(mBlock, mBlockSize, mCursor))
    keys.Add(QEN_TAny(QEN_TString(vyr::ea::Name(mCursor))));
  return keys;
}

bool VYR_TEA::HasAnyKey() {
  if (mHandle == kInvalidHandle) return false;
  bool any = false;
  int error = 0;
  return vyr::platform::HasAttributes(mHandle, any, error) && any;
}

bool VYR_TEA::VolumeKeepsAttributes() const {
  return QEN_TVolumeInfo(mFile.LocalPath()).KeepsUserAttributes();
}

bool VYR_TEA::AskWriteAccess() {
  if (!mReadOnly) return true;
  const QEN_TString path = mFile.LocalPath();
  if (VolumeKeepsAttributes()) {
    VYR_TRACE(vyr::kTraceLifeCycle, "Trying RW access for %s\n", mFile.AsString().c_str());
    Close();
    int error = 0;
    // The attributes are the file's to change when the file may be written;
    // the descriptor itself is opened to read, which also serves folders.
    if (vyr::platform::CanWriteAttributes(path.c_str(), error) &&
        vyr::platform::OpenForAttributes(path.c_str(), mHandle, error)) {
      mReadOnly = false;
    } else {
      Close();
      VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TEA::VYR_TEA() Cannot open file for write (%s): %s",
                path.c_str(), vyr::SystemErrorText(error).c_str());
    }
  } else {
    VYR_TRACE(vyr::kTraceLifeCycle, "Trying to write to RO file %s\n", mFile.AsString().c_str());
    Close();
  }
  return !mReadOnly;
}

bool VYR_TEA::WriteRecord(QEN_TString const& key, void const* value, unsigned int length) {
  if (mHandle == kInvalidHandle) return true;
  const char* name = key.c_str();
  const std::size_t nameLength = std::strlen(name);
  if (length == 0 && nameLength == 0) return true;
  if (length > vyr::ea::kMaxValueLength) return false;
  // A name's length has one byte: a longer key is refused like a longer
  // value.
  if (nameLength > vyr::ea::kMaxNameLength) return false;
  const std::size_t size = vyr::ea::RecordSize(nameLength, length);
  unsigned char* record = static_cast<unsigned char*>(std::calloc(size, 1));
  if (record == nullptr) return false;
  vyr::ea::WriteRecord(record, 0, name, static_cast<unsigned>(nameLength), value, length);
  int error = 0;
  const bool written =
      vyr::platform::WriteAttribute(mHandle, record, static_cast<unsigned>(size), error);
  VYR_TRACE(vyr::kTraceLifeCycle, "VYR_WriteEARaw: NtSetEaFile(\"%s\",%u) returned $%x\n", name,
            static_cast<unsigned>(size), written ? 0u : static_cast<unsigned>(error));
  std::free(record);
  if (!written) {
    VYR_TRACE(vyr::kTraceLifeCycle, "Cannot write metadata: %s%s", "",
              vyr::SystemErrorText(error).c_str());
  }
  return written;
}

bool VYR_TEA::SetKeyValue(QEN_TString const& key, unsigned int size, void const* data,
                          bool commit) {
  FreeBlock();
  if (!commit) return true;
  if (!AskWriteAccess() || mHandle == kInvalidHandle || mReadOnly) return false;
  return WriteRecord(key, data, size);
}

bool VYR_TEA::SetKeyValue(QEN_TString const& key, VYR_IBuffer const& value, bool commit) {
  const bool written = SetKeyValue(key, value.Size(), value.Buffer(), commit);
  return commit && written;
}

bool VYR_TEA::RemoveKey(QEN_TString const& key) {
  // The listing read before would still name the key.
  FreeBlock();
  if (!AskWriteAccess() || mHandle == kInvalidHandle || mReadOnly) return false;
  return WriteRecord(key, nullptr, 0);
}

bool VYR_TEA::Copy(QEN_TURL const&) { return false; }

bool VYR_TEA::Rename(QEN_TURL const&) { return false; }
