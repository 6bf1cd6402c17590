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
// one, and a writer that dies leaves the old store readable. Two writers of
// one file replace each other's dictionary: the later write wins whole.
//
// One lock for all objects of the process (the side-car lock) guards the
// file calls of a read, write or deletion, with the retries: up to five
// attempts, 20 ms apart, while another process holds the file. Packing and
// unpacking happen outside it. Failures never reach the caller: they are
// logged and end in an empty dictionary or a false result.
#ifndef VYR_FILE_METADATA_H
#define VYR_FILE_METADATA_H

#include <qen/qen_containers.h>
#include <qen/qen_string.h>
#include <qen/qen_url.h>

#include "vyr_throw.h"
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
  // whether the dictionary holds what was read.
  virtual bool ReadMetadata();
  // Stores the dictionary: replaces the file, or deletes it when the
  // dictionary is empty. Whether that worked.
  virtual bool WriteMetadata();
  // Logs the move and changes nothing. Nothing in the library calls it.
  virtual void PostSetArchiveData(QEN_TDict const& data, QEN_TURL const& from, QEN_TURL const& to);
  // The raw form with the buffer's size and bytes.
  virtual bool SetKeyValue(QEN_TString const& key, VYR_IBuffer const& value, bool commit);

  QEN_TURL const& File() const override { return mDataFile; }
  // Forgets what was read, and reads again.
  void Rescan() override;
  // Without `commit` the value lives only in memory and the result is false.
  bool SetKeyValue(QEN_TString const& key, unsigned int size, void const* data,
                   bool commit) override;
  // Null when the key is absent or no store could be read.
  VYR_IBuffer const* GetKeyValue(QEN_TString const& key) override;
  // The dictionary's keys and whether it has any; neither reads the file.
  QEN_TList GetAllKeys() override;
  bool HasAnyKey() override;
  // False for an absent key; otherwise the result of the write.
  bool RemoveKey(QEN_TString const& key) override;
  // The side-car file stays where it is: both give false.
  bool Copy(QEN_TURL const& target) override;
  bool Rename(QEN_TURL const& target) override;

  // Traces and builds the side-car lock.
  static bool QEN_Initialize();

 private:
  bool DeleteMetadata();

  QEN_TURL mDataFile;
  QEN_TURL mMetadataFile;
  QEN_TString mMetadataPath;
  QEN_TDict mDictionary;
  bool mRead;
  bool mWriteResult;
};

#endif
