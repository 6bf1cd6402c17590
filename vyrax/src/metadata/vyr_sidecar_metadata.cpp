// Metadata kept in hidden side-car files.
#define VYR_SOURCE_NAME "Private/Source/vyr_file_metadata"

#include "metadata/vyr_sidecar_metadata.h"

#include <ordonotes/ordonotes.h>
#include <qen/qen_stream.h>

#include <cerrno>
#include <new>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "core/vyr_trace.h"
#include "core/vyr_version_stamp.h"
#include "platform/vyr_platform.h"

VYR_VERSION_STAMP()

namespace {

// A reader retries a store that another process holds exclusively.
constexpr unsigned kReadAttempts = 5;
constexpr unsigned kRetryDelayMilliseconds = 20;
// How long a commit waits for the writer lock: another writer holds it for
// one read and one write of the store; far longer means it is stuck.
constexpr unsigned kLockWaitMilliseconds = 2000;
// The one size limit of a store, for the reader and the writer alike: a
// store is a few megabytes at most, and the writer never makes one that its
// reader would refuse.
constexpr unsigned long long kMaxStoreSize = 1ull << 30;

using vyr::platform::FolderResult;
using vyr::platform::Handle;
using vyr::platform::OpenResult;
using vyr::platform::StoreRead;

void Log(std::ostringstream const& text) { QENMESG_Log(text.str().c_str()); }

void LogFailure(const char* what, QEN_TString const& path, int code) {
  std::ostringstream text;
  text << "VYR_TFileMetadata::" << what << " (" << path.c_str() << ")" << std::endl
       << "Error code = " << code << std::endl;
  Log(text);
}

// A descriptor closed at the end of the scope.
struct Closer {
  Handle handle = vyr::platform::kInvalidHandle;
  ~Closer() { vyr::platform::CloseFile(handle); }
};

// The dictionary packed in `bytes`: exactly one QEN_TDict whose keys are
// strings and whose values are data blocks. Anything else throws.
QEN_TDict UnpackStore(std::vector<unsigned char>& bytes) {
  QEN_TMemoryStream memory(bytes.data(), static_cast<unsigned>(bytes.size()),
                           static_cast<unsigned>(bytes.size()));
  QEN_TDataStream stream(memory);
  // The dictionary and its keys are read by name; the only object built
  // from the bytes is the data block of a value, so a crafted store costs
  // no more memory than its own size.
  static const char* const kValueClasses[] = {"QEN_TDataBlock", nullptr};
  stream.AdmitOnly(kValueClasses);
  QEN_TDict dictionary;
  stream >> dictionary;
  if (memory.Available() != 0)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("side-car store: %llu bytes behind the dictionary",
                                  static_cast<unsigned long long>(memory.Available())));
  for (QEN_TConstIterator entry(dictionary); !entry.IsDone(); ++entry) {
    if (entry.Key().DynamicCast<QEN_TString>() == nullptr ||
        entry.Value().DynamicCast<QEN_TDataBlock>() == nullptr)
      QEN_THROW(QEN_EStreamException, "side-car store: an entry is no string and data block");
  }
  return dictionary;
}

}  // namespace

QEN_DEFINE_OBJECT(VYR_TFileMetadata, QEN_TObject, VYR_IMetadata)

bool VYR_TFileMetadata::QEN_Initialize() {
  VYR_TRACE(vyr::kTraceLifeCycle, "QEN_Initialize of VYR_TFileMetadata\n");
  return true;
}

VYR_TFileMetadata::VYR_TFileMetadata(QEN_TURL const& file)
    : mDataFile(file), mMetadataFile(file), mRead(false), mWriteResult(false) {
  // There are no short names to expand here: the name is taken as given.
  const QEN_TString name = file.FileName();
  const QEN_TString folder = file.PathName();
  mStoreName = "." + name + ".info";
  mMetadataFile.SetFileName(mStoreName);
  mMetadataFile.SetPathName(folder + "/.metadata");
  mMetadataPath = mMetadataFile.LocalPath();
  const int slash = mMetadataPath.Find('/', -1, true);
  mFolderPath = slash > 0 ? mMetadataPath.Substring(0, slash) : QEN_TString(".");
}

VYR_TFileMetadata::~VYR_TFileMetadata() = default;

QEN_TURL const& VYR_TFileMetadata::File() const { return mDataFile; }

bool VYR_TFileMetadata::OpenFolder(bool create, vyr::platform::Handle& folder, int& error) {
  switch (vyr::platform::OpenStoreFolder(mFolderPath.c_str(), create, folder, error)) {
    case FolderResult::kOpened:
      return true;
    case FolderResult::kMissing:
      if (create) LogFailure("WriteMetadata (metadata folder creation) failed", mFolderPath, error);
      return false;
    case FolderResult::kRefused: {
      // Somebody else put it there: nothing is read or written through it.
      error = ELOOP;
      std::ostringstream text;
      text << "VYR_TFileMetadata: refused the metadata folder, a link or not a folder ("
           << mFolderPath.c_str() << ")" << std::endl;
      Log(text);
      return false;
    }
    case FolderResult::kFailed:
      break;
  }
  LogFailure(
      create ? "WriteMetadata (metadata folder creation) failed" : "ReadMetadata file open failed",
      mFolderPath, error);
  return false;
}

void VYR_TFileMetadata::Remember(std::vector<unsigned char>&& bytes) {
  // Beyond this the copy costs more memory than the merge it saves costs time.
  constexpr std::size_t kRememberedBytes = 64u << 20;
  mStoreKnown = bytes.size() <= kRememberedBytes;
  if (mStoreKnown)
    mStoreBytes = std::move(bytes);
  else
    mStoreBytes.clear();
}

VYR_TFileMetadata::Found VYR_TFileMetadata::ReadStore(vyr::platform::Handle folder,
                                                      QEN_TDict& dictionary, bool mayBeUnchanged) {
  std::vector<unsigned char> bytes;
  int error = 0;
  StoreRead read = StoreRead::kFailed;
  for (unsigned attempt = 0; attempt < kReadAttempts; ++attempt) {
    read = vyr::platform::ReadStore(folder, mStoreName.c_str(), kMaxStoreSize, bytes, error);
    if (read != StoreRead::kHeld) break;
    vyr::platform::SleepMilliseconds(kRetryDelayMilliseconds);
  }
  switch (read) {
    case StoreRead::kAbsent:
      dictionary = QEN_TDict();
      return Found::kNone;
    case StoreRead::kForeign:
      LogFailure(error == EFBIG ? "ReadMetadata file too large" : "ReadMetadata not a regular file",
                 mMetadataPath, error);
      return Found::kUndecodable;
    case StoreRead::kHeld:
    case StoreRead::kFailed:
      LogFailure("ReadMetadata file open failed", mMetadataPath, error);
      return Found::kUnreadable;
    case StoreRead::kRead:
      break;
  }
  if (mayBeUnchanged && mStoreKnown && bytes == mStoreBytes) return Found::kUnchanged;
  try {
    dictionary = UnpackStore(bytes);
    // A commit's look does not replace what the dictionary stands on: should
    // the commit fail, the dictionary is still the last read with changes.
    if (!mayBeUnchanged) Remember(std::move(bytes));
    return Found::kStore;
  } catch (std::bad_alloc const&) {
    // Not the store's fault: it may read another time.
    LogFailure("ReadMetadata file read failed", mMetadataPath, ENOMEM);
    return Found::kUnreadable;
  } catch (QEN_EStreamException const&) {
    // The one failure of a decoder of outside bytes; anything else would be
    // a fault of this library, and is not hidden as a damaged store.
    std::ostringstream text;
    text << "VYR_TFileMetadata::ReadMetadata failed during unpacking (" << mMetadataPath.c_str()
         << ")" << std::endl;
    Log(text);
    return Found::kUndecodable;
  }
}

bool VYR_TFileMetadata::ReadMetadata() {
  if (mRead) return true;
  // What was read before, and the changes on it, go: a store that cannot be
  // read now is empty to look at, though a commit will not take it as empty.
  mDictionary = QEN_TDict();
  mChanges = QEN_TDict();
  mStoreKnown = false;
  Closer folder;
  int error = 0;
  if (OpenFolder(false, folder.handle, error)) {
    QEN_TDict dictionary;
    if (ReadStore(folder.handle, dictionary) == Found::kStore) {
      mDictionary = std::move(dictionary);
      mRead = true;
    }
  }
  return mRead;
}

bool VYR_TFileMetadata::WriteMetadata() {
  mWriteResult = false;
  try {
    mWriteResult = Commit();
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
  }
  return mWriteResult;
}

// Replaces the store by `merged`, or removes it when that is empty.
bool VYR_TFileMetadata::WriteMerged(Handle folder, Handle lock, const QEN_TDict& merged,
                                    bool& removeLock) {
  int error = 0;
  if (merged.IsEmpty()) {
    if (!vyr::platform::RemoveStore(folder, mStoreName.c_str(), error)) {
      LogFailure("WriteMetadata (file delete) failed", mMetadataPath, error);
      return false;
    }
    removeLock = true;
    mStoreKnown = false;
  } else {
    QEN_TMemoryStream memory;
    QEN_TDataStream stream(memory);
    stream << merged;
    stream.Flush();
    if (memory.Length() > kMaxStoreSize) {
      LogFailure("WriteMetadata (file write) failed", mMetadataPath, EFBIG);
      return false;
    }
    if (!vyr::platform::WriteStore(folder, mStoreName.c_str(), lock, memory.Data(), memory.Length(),
                                   error)) {
      LogFailure("WriteMetadata (file write) failed", mMetadataPath, error);
      return false;
    }
    const unsigned char* const packed = static_cast<const unsigned char*>(memory.Data());
    Remember(std::vector<unsigned char>(packed, packed + memory.Length()));
  }
  return true;
}

bool VYR_TFileMetadata::Commit() {
  if (mChanges.IsEmpty()) return true;
  Closer folder;
  int error = 0;
  if (!OpenFolder(true, folder.handle, error)) {
    LogFailure("WriteMetadata (file write) failed", mMetadataPath, error);
    return false;
  }
  Handle lock = vyr::platform::kInvalidHandle;
  const OpenResult locked = vyr::platform::LockStore(folder.handle, mStoreName.c_str(),
                                                     kLockWaitMilliseconds, lock, error);
  if (locked != OpenResult::kOpened) {
    LogFailure("WriteMetadata (file write) failed", mMetadataPath, error);
    return false;
  }
  bool removeLock = false;
  struct Unlocker {
    Handle folder, lock;
    const char* name;
    bool& removeLock;
    ~Unlocker() { vyr::platform::UnlockStore(folder, name, lock, removeLock); }
  } unlocker{folder.handle, lock, mStoreName.c_str(), removeLock};

  // The store as it is now, under the lock: the changes of other writers
  // since this object read it stay.
  QEN_TDict store;
  const Found found = ReadStore(folder.handle, store, true);
  switch (found) {
    case Found::kStore:
    case Found::kNone:
      break;
    case Found::kUnchanged:
      break;
    case Found::kUnreadable: {
      // It is there and may hold anything: it is not replaced blindly.
      std::ostringstream text;
      text << "VYR_TFileMetadata::WriteMetadata left the store as it is, as it could not be read ("
           << mMetadataPath.c_str() << ")" << std::endl;
      Log(text);
      return false;
    }
    case Found::kUndecodable: {
      // Kept aside, for a person to look at, before it is replaced.
      std::string aside;
      if (!vyr::platform::SetStoreAside(folder.handle, mStoreName.c_str(), aside, error)) {
        LogFailure("WriteMetadata (setting the unreadable store aside) failed", mMetadataPath,
                   error);
        return false;
      }
      std::ostringstream text;
      text << "VYR_TFileMetadata::WriteMetadata kept the unreadable store aside as "
           << mFolderPath.c_str() << "/" << aside << std::endl;
      Log(text);
      store = QEN_TDict();
      break;
    }
  }
  // Nobody wrote since this object read or wrote the store: its own
  // dictionary is the merge already.
  QEN_TDict& merged = found == Found::kUnchanged ? mDictionary : store;
  for (QEN_TConstIterator change(mChanges); &merged == &store && !change.IsDone(); ++change) {
    const QEN_TString* key = change.Key().DynamicCast<QEN_TString>();
    if (key == nullptr) continue;
    const QEN_TAny* value = mDictionary.Lookup(*key);
    if (change.Value().AsBool() && value != nullptr)
      store.Add(*key, *value);
    else
      store.Remove(*key);
  }
  vyr::platform::RemoveLeftovers(folder.handle, mStoreName.c_str(), lock);

  if (!WriteMerged(folder.handle, lock, merged, removeLock)) return false;
  // What is stored now is this object's state: another object's keys that
  // came in with it are seen without a Rescan.
  if (&merged == &store) mDictionary = std::move(store);
  mChanges = QEN_TDict();
  mRead = !mDictionary.IsEmpty();
  return true;
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
  mChanges.Add(key, QEN_TAny(true));
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
  mChanges.Add(key, QEN_TAny(false));
  return WriteMetadata();
}

bool VYR_TFileMetadata::Copy(QEN_TURL const&) { return false; }

bool VYR_TFileMetadata::Rename(QEN_TURL const&) { return false; }
