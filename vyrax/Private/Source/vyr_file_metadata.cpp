// Metadata kept in hidden side-car files.
#define VYR_SOURCE_NAME "Private/Source/vyr_file_metadata"

#include "vyr_file_metadata.h"

#include <ordonotes/ordonotes.h>
#include <qen/qen_stream.h>
#include <qen/qen_sync.h>

#include <cerrno>
#include <ostream>
#include <sstream>
#include <string>

#include "vyr_platform.h"
#include "vyr_trace.h"
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()

namespace {

constexpr unsigned kAttempts = 5;
constexpr unsigned kRetryDelayMilliseconds = 20;
// A store is a few megabytes at most; a larger file is not read into memory.
constexpr unsigned long long kMaxStoreSize = 1ull << 30;

using vyr::platform::OpenResult;

// Guards the file calls of all side-car objects of the process, with their
// retries; lives for the process.
QEN_TRWLock& SideCarLock() {
  static QEN_TRWLock lock;
  return lock;
}

void Log(std::ostringstream const& text) { QENMESG_Log(text.str().c_str()); }

void LogFailure(const char* what, QEN_TString const& path, int code) {
  std::ostringstream text;
  text << "VYR_TFileMetadata::" << what << " (" << path.c_str() << ")" << std::endl
       << "Error code = " << code << std::endl;
  Log(text);
}

bool IsMissing(int code) { return code == ENOENT || code == ENOTDIR; }

// The bytes of the side-car file, read under the side-car lock; false when
// there is no file, an empty one, or one that cannot be read (logged).
bool ReadStore(QEN_TString const& path, QEN_TMemoryStream& memory) {
  QEN_TWriteGuard guard(SideCarLock());
  vyr::platform::Handle file = vyr::platform::kInvalidHandle;
  int error = 0;
  OpenResult opened = OpenResult::kFailed;
  for (unsigned attempt = 0; attempt < kAttempts; ++attempt) {
    opened = vyr::platform::OpenShared(path.c_str(), file, error);
    if (opened != OpenResult::kHeld) break;
    vyr::platform::SleepMilliseconds(kRetryDelayMilliseconds);
  }
  if (opened != OpenResult::kOpened) {
    if (!IsMissing(error)) LogFailure("ReadMetadata file open failed", path, error);
    return false;
  }
  struct Closer {
    vyr::platform::Handle file;
    ~Closer() { vyr::platform::CloseFile(file); }
  } closer{file};
  unsigned long long size = 0;
  if (!vyr::platform::FileSize(file, size, error)) {
    LogFailure("ReadMetadata file size failed", path, error);
    return false;
  }
  if (size > kMaxStoreSize) {
    LogFailure("ReadMetadata file too large", path, EFBIG);
    return false;
  }
  if (size == 0) return false;
  try {
    memory.SetSize(static_cast<unsigned>(size));
  } catch (...) {
    LogFailure("ReadMetadata file read failed", path, ENOMEM);
    return false;
  }
  std::size_t got = 0;
  if (!vyr::platform::ReadAt(file, memory.Data(), static_cast<std::size_t>(size), 0, got, error) ||
      got != size) {
    LogFailure("ReadMetadata file read failed", path, got != size ? EIO : error);
    return false;
  }
  return true;
}

// The dictionary packed in `memory`: exactly one QEN_TDict whose keys are
// strings and whose values are data blocks. Anything else throws.
QEN_TDict UnpackStore(QEN_TMemoryStream& memory) {
  QEN_TDataStream stream(memory);
  QEN_TDict dictionary;
  stream >> dictionary;
  if (memory.Available() != 0)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("side-car store: %llu bytes behind the dictionary",
                                  static_cast<unsigned long long>(memory.Available())));
  for (QEN_TConstIterator entry(dictionary); !entry.IsDone(); ++entry) {
    if (entry.Value().DynamicCast<QEN_TDataBlock>() == nullptr)
      QEN_THROW(QEN_EStreamException, "side-car store: a value is no data block");
  }
  return dictionary;
}

// Makes the .metadata folder of a side-car file that could not be created.
void MakeFolderOf(QEN_TString const& metadataPath) {
  const int slash = metadataPath.Find('/', -1, true);
  const QEN_TString folder = slash > 0 ? metadataPath.Substring(0, slash) : metadataPath;
  int error = 0;
  if (!vyr::platform::MakeFolder(folder.c_str(), error) && error != EEXIST) {
    std::ostringstream text;
    text << "VYR_TFileMetadata::WriteMetadata (metadata folder creation) failed (" << folder.c_str()
         << ")" << std::endl
         << "Error code = " << error << std::endl;
    Log(text);
  }
}

}  // namespace

QEN_DEFINE_OBJECT(VYR_TFileMetadata, QEN_TObject, VYR_IMetadata)

bool VYR_TFileMetadata::QEN_Initialize() {
  VYR_TRACE(vyr::kTraceLifeCycle, "QEN_Initialize of VYR_TFileMetadata\n");
  SideCarLock();
  return true;
}

VYR_TFileMetadata::VYR_TFileMetadata(QEN_TURL const& file)
    : mDataFile(file), mMetadataFile(file), mRead(false), mWriteResult(false) {
  // There are no short names to expand here: the name is taken as given.
  const QEN_TString name = file.FileName();
  const QEN_TString folder = file.PathName();
  mMetadataFile.SetFileName("." + name + ".info");
  mMetadataFile.SetPathName(folder + "/.metadata");
  mMetadataPath = mMetadataFile.LocalPath();
}

VYR_TFileMetadata::~VYR_TFileMetadata() = default;

bool VYR_TFileMetadata::ReadMetadata() {
  if (mRead) return true;
  QEN_TMemoryStream memory;
  if (ReadStore(mMetadataPath, memory)) {
    try {
      memory.Rewind();
      mDictionary = UnpackStore(memory);
      mRead = true;
    } catch (...) {
      std::ostringstream text;
      text << "VYR_TFileMetadata::ReadMetadata failed during unpacking (" << mMetadataPath.c_str()
           << ")" << std::endl;
      Log(text);
    }
  }
  if (!mRead) mDictionary = QEN_TDict();
  return mRead;
}

bool VYR_TFileMetadata::WriteMetadata() {
  if (mDictionary.IsEmpty()) return DeleteMetadata();
  try {
    QEN_TMemoryStream memory;
    QEN_TDataStream stream(memory);
    stream << mDictionary;
    stream.Flush();

    QEN_TWriteGuard guard(SideCarLock());
    int error = 0;
    for (unsigned attempt = 1;; ++attempt) {
      const OpenResult written =
          vyr::platform::ReplaceFile(mMetadataPath.c_str(), memory.Data(), memory.Length(), error);
      if (written == OpenResult::kOpened) {
        mWriteResult = true;
        break;
      }
      if (written == OpenResult::kHeld)
        vyr::platform::SleepMilliseconds(kRetryDelayMilliseconds);
      else if (IsMissing(error))
        MakeFolderOf(mMetadataPath);
      if (attempt >= kAttempts || (written == OpenResult::kFailed && !IsMissing(error))) {
        LogFailure("WriteMetadata (file write) failed", mMetadataPath, error);
        mWriteResult = false;
        break;
      }
    }
  } catch (...) {
    std::ostringstream text;
    text << "VYR_TFileMetadata::WriteMetadata failed (" << mMetadataPath.c_str() << ")"
         << std::endl;
    try {
      throw;
    } catch (QEN_EException const& exception) {
      text << exception << std::endl;
    } catch (...) {
    }
    Log(text);
    mWriteResult = false;
  }
  return mWriteResult;
}

bool VYR_TFileMetadata::DeleteMetadata() {
  QEN_TWriteGuard guard(SideCarLock());
  int error = 0;
  for (unsigned attempt = 1;; ++attempt) {
    const OpenResult removed = vyr::platform::RemoveFile(mMetadataPath.c_str(), error);
    if (removed == OpenResult::kOpened || (removed == OpenResult::kFailed && IsMissing(error))) {
      mWriteResult = true;
      break;
    }
    if (removed == OpenResult::kHeld && attempt < kAttempts) {
      vyr::platform::SleepMilliseconds(kRetryDelayMilliseconds);
      continue;
    }
    LogFailure("WriteMetadata (file delete) failed", mMetadataPath, error);
    mWriteResult = false;
    break;
  }
  return mWriteResult;
}

void VYR_TFileMetadata::PostSetArchiveData(QEN_TDict const&, QEN_TURL const& from,
                                           QEN_TURL const& to) {
  if (vyr::TraceOn(vyr::kTraceLifeCycle)) {
    std::ostringstream text;
    text << "VYR_TFileMetadata::PostSetArchiveData(from=" << from << ", to=" << to << std::endl;
    VYR_TRACE(vyr::kTraceLifeCycle, "%s", text.str().c_str());
  }
  std::ostringstream text;
  text << "VYR_TFileMetadata::PostSetArchiveData - from=" << from << std::endl
       << "VYR_TFileMetadata::PostSetArchiveData - to=" << to << std::endl
       << "VYR_TFileMetadata::PostSetArchiveData - metafile=" << mMetadataFile << std::endl;
  Log(text);
}

void VYR_TFileMetadata::Rescan() {
  mRead = false;
  ReadMetadata();
}

bool VYR_TFileMetadata::SetKeyValue(QEN_TString const& key, unsigned int size, void const* data,
                                    bool commit) {
  mDictionary.Add(key, QEN_TAny(QEN_TDataBlock(data, size)));
  return commit ? WriteMetadata() : false;
}

bool VYR_TFileMetadata::SetKeyValue(QEN_TString const& key, VYR_IBuffer const& value, bool commit) {
  return SetKeyValue(key, value.Size(), value.Buffer(), commit);
}

VYR_IBuffer const* VYR_TFileMetadata::GetKeyValue(QEN_TString const& key) {
  if (!ReadMetadata()) return nullptr;
  const QEN_TAny* value = mDictionary.Lookup(key);
  const QEN_TDataBlock* block = value != nullptr ? value->DynamicCast<QEN_TDataBlock>() : nullptr;
  if (block == nullptr) return nullptr;
  // An empty block has no address, and a reference needs one.
  static unsigned char sNoBytes = 0;
  void* bytes = block->Size() > 0 ? const_cast<void*>(block->Data()) : &sNoBytes;
  return VYR_IBuffer::CreateRef(block->Size(), bytes);
}

QEN_TList VYR_TFileMetadata::GetAllKeys() {
  QEN_TList keys;
  for (QEN_TConstIterator entry(mDictionary); !entry.IsDone(); ++entry)
    keys.Add(QEN_TAny(entry.Key()));
  return keys;
}

bool VYR_TFileMetadata::HasAnyKey() { return !mDictionary.IsEmpty(); }

bool VYR_TFileMetadata::RemoveKey(QEN_TString const& key) {
  if (!mDictionary.Remove(key)) return false;
  return WriteMetadata();
}

bool VYR_TFileMetadata::Copy(QEN_TURL const&) { return false; }

bool VYR_TFileMetadata::Rename(QEN_TURL const&) { return false; }
