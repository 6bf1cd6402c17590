// The side-car backend of metadata: all keys and values of a data file in one
// hidden file beside it, "<folder>/.metadata/.<name>.info".
//
// The file holds one packed QEN_TDict, key (a normalised QEN_TString) to
// value (a QEN_TDataBlock), written as an object by a QEN_TDataStream and
// nothing else. A missing file and an empty one both mean an empty
// dictionary; an empty dictionary is stored by deleting the file. The
// .metadata folder is made at the first write and never removed.
//
// The whole dictionary lives in memory. A change rewrites the whole file:
// a temporary file beside it is written, flushed and renamed over it, so a
// reader in another process sees the old store or the new one, never a torn
// one, and a writer that dies leaves the old store readable.
//
// Many processes on several machines write into the same folders, so a
// commit merges: it takes the store's writer lock, reads the store as it is
// now, applies this object's own changes since its last read (keys set,
// pending ones included, and keys removed), writes the result and takes it
// as its new state. The last writer wins per key, never per store. A store
// that is there but cannot be read now (held, no access, no descriptors) is
// never replaced: the commit gives false. One that is no store of this
// library (undecodable, too large, a link, not a file) is kept aside under
// ".<name>.info.unreadable-..." and the log says where, before the write.
//
// Nothing outside the .metadata folder is touched: the folder is refused
// when it is a link or no folder, and every file in it is opened relative
// to it, without following links. Failures never reach the caller: they are
// logged and end in an empty dictionary or a false result.
#ifndef VYR_FILE_METADATA_H
#define VYR_FILE_METADATA_H

#include <qen/qen_containers.h>
#include <qen/qen_string.h>
#include <qen/qen_url.h>

#include <cstdint>

#include "core/vyr_throw.h"
#include "vyrax/vyr_metadata.h"

// The source name of what this header throws itself.
#define VYR_FILE_METADATA_SOURCE "Private/Include/vyr_file_metadata"

class VYR_LOCAL VYR_TFileMetadata : public QEN_TObject, public virtual VYR_IMetadata {
  QEN_OBJECT_FRAME(VYR_TFileMetadata)

 public:
  // Touches no file: the store is read by the first Rescan.
  explicit VYR_TFileMetadata(QEN_TURL const& file);
  // There is no store without a data file: only the class frame's factory
  // calls this, and it always throws VYR_EMetadataInternal.
  VYR_TFileMetadata() {
    vyr::ThrowException<VYR_EMetadataInternal>(__LINE__, VYR_FILE_METADATA_SOURCE);
  }
  VYR_TFileMetadata(VYR_TFileMetadata const&) = delete;
  VYR_TFileMetadata& operator=(VYR_TFileMetadata const&) = delete;
  ~VYR_TFileMetadata() override;

  // Reads the side-car file into the dictionary unless that has been done;
  // whether the dictionary holds what was read. A read drops the changes
  // not committed.
  virtual bool ReadMetadata();
  // Commits this object's changes into the store as it is now: replaces the
  // file, or deletes it when nothing is left. Whether that worked.
  virtual bool WriteMetadata();
  // Logs the move and changes nothing. Nothing in the library calls it.
  virtual void PostSetArchiveData(QEN_TDict const& data, QEN_TURL const& from, QEN_TURL const& to);
  // The raw form with the buffer's size and bytes.
  virtual bool SetKeyValue(QEN_TString const& key, VYR_IBuffer const& value, bool commit);

  // Rescan forgets what was read, and reads again. Without `commit`,
  // SetKeyValue keeps the value only in memory and gives false. GetKeyValue
  // gives null when the key is absent or no store could be read. Neither
  // GetAllKeys nor HasAnyKey reads the file. RemoveKey gives false for an
  // absent key, otherwise the result of the write. The side-car file stays
  // where it is: Copy and Rename give false.
  VYR_IMETADATA_OVERRIDES

  // Traces.
  static bool QEN_Initialize();

 private:
  // What a look at the store found.
  enum class Found {
    kStore,        // a store, now in the dictionary given
    kNone,         // no store, or an empty file
    kUnreadable,   // a store that cannot be read now: held, no access, no descriptors
    kUndecodable,  // something at the store's name that is no store of this library
    kUnchanged     // the very bytes this object read or wrote last; dictionary untouched
  };
  // Opens the .metadata folder, made first when `create` is set; logs why not.
  bool OpenFolder(bool create, std::intptr_t& folder, int& error);
  // Reads the store of `folder` into `dictionary`; logs what went wrong.
  // With `mayBeUnchanged` (a commit's look), a store of exactly the bytes
  // this object read or wrote last is kUnchanged and is not unpacked again,
  // and what is read is not remembered.
  Found ReadStore(std::intptr_t folder, QEN_TDict& dictionary, bool mayBeUnchanged = false);
  // Notes the bytes the dictionary was read from or written as.
  void Remember(std::vector<unsigned char>&& bytes);
  // The write of Commit, under the lock: the merged dictionary, or the
  // store's removal when nothing is left. Whether that worked.
  bool WriteMerged(std::intptr_t folder, std::intptr_t lock, const QEN_TDict& merged,
                   bool& removeLock);
  // WriteMetadata without its catch.
  bool Commit();

  QEN_TURL mDataFile;
  QEN_TURL mMetadataFile;
  QEN_TString mMetadataPath;
  // The .metadata folder, and the store's name in it.
  QEN_TString mFolderPath;
  QEN_TString mStoreName;
  QEN_TDict mDictionary;
  // This object's changes since its last read: key to true (set) or false
  // (removed). The value of a set key is the dictionary's.
  QEN_TDict mChanges;
  bool mRead;
  bool mWriteResult;
  // The store's bytes as this object read or wrote them last, while
  // mDictionary is those bytes with mChanges applied (mStoreKnown). A commit
  // that finds them unchanged under the lock need not merge.
  std::vector<unsigned char> mStoreBytes;
  bool mStoreKnown = false;
};

#endif
