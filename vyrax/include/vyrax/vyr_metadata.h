// Metadata: named byte values kept per file, outside the file's own content.
//
// A client names the data file by URL and holds a VYR_TMetadata; the store
// behind it is chosen once per process from the environment variable
// VYR_EMULATE_METADATA:
//   unset, empty or anything else    hidden side-car files beside the data file,
//                                    "<folder>/.metadata/.<name>.info"
//   "N", "NO" or "OFF" (any case)    "user." extended attributes of the data
//                                    file itself
//
// Keys are normalised by the front: at most 256 characters, each one an
// upper-case letter A to Z or '_' ("Print size 1" is stored as
// "PRINT_SIZE__"). A value is raw bytes, or a packed object (the bytes of a
// QEN_TDataStream holding it); the store does not tell the two apart.
//
// Ownership: GetKeyObject and CreateAccessObject give new objects that the
// caller deletes. A buffer from GetKeyValue is deleted by the caller too, but
// it does not own its bytes: they belong to the backend's cache and are valid
// only until the next operation on the same object that reads or changes the
// store.
//
// Threads: a metadata object belongs to one thread at a time. Objects on the
// same file in several threads or processes meet only at the store.
#ifndef VYR_METADATA_H
#define VYR_METADATA_H

#include <qen/qen_containers.h>
#include <qen/qen_object.h>
#include <qen/qen_string.h>
#include <qen/qen_url.h>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_buffer.h"
#include "vyrax/vyr_enums.h"

// An object that holds references to files and can follow a move.
class VYR_API VYR_IRelocatable : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(VYR_IRelocatable)

 public:
  // Rewrites what the object holds from the old location to the new one;
  // false on failure.
  virtual bool Relocate(QEN_TURL const& from, QEN_TURL const& to) = 0;
  // Whether the object can do so.
  virtual bool CanRelocate() const = 0;

  VYR_INTERFACE_SPECIALS(VYR_IRelocatable)
};

// The store of one data file. Write failures are false results; exceptions
// are kept for a store that cannot be reached at all.
class VYR_API VYR_IMetadata : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(VYR_IMetadata)

 public:
  // The data file that the metadata belongs to.
  virtual QEN_TURL const& File() const = 0;
  // Drops what is cached and reads the stored metadata again.
  virtual void Rescan() = 0;
  // Stores `size` bytes under `key`; `commit` writes through at once.
  virtual bool SetKeyValue(QEN_TString const& key, unsigned int size, void const* data,
                           bool commit) = 0;
  // The stored bytes of `key`; see the ownership note above.
  virtual VYR_IBuffer const* GetKeyValue(QEN_TString const& key) = 0;
  // The stored keys, each a QEN_TString.
  virtual QEN_TList GetAllKeys() = 0;
  virtual bool HasAnyKey() = 0;
  // Removes `key` and stores the change.
  virtual bool RemoveKey(QEN_TString const& key) = 0;
  virtual bool Copy(QEN_TURL const& target) = 0;
  virtual bool Rename(QEN_TURL const& target) = 0;

  // The backend for `file`, chosen by the environment and already read;
  // null when the store cannot be read. The caller owns it.
  static VYR_IMetadata* CreateAccessObject(QEN_TURL const& file);

  VYR_INTERFACE_SPECIALS(VYR_IMetadata)
};

// Every member of VYR_IMetadata, overridden: the front and each store
// declare it with this line.
#define VYR_IMETADATA_OVERRIDES                                                              \
  QEN_TURL const& File() const override;                                                     \
  void Rescan() override;                                                                    \
  bool SetKeyValue(QEN_TString const& key, unsigned int size, void const* data, bool commit) \
      override;                                                                              \
  VYR_IBuffer const* GetKeyValue(QEN_TString const& key) override;                           \
  QEN_TList GetAllKeys() override;                                                           \
  bool HasAnyKey() override;                                                                 \
  bool RemoveKey(QEN_TString const& key) override;                                           \
  bool Copy(QEN_TURL const& target) override;                                                \
  bool Rename(QEN_TURL const& target) override;

// The front that clients use: normalises keys, packs objects into values,
// keeps time stamps, and owns exactly one backend object.
class VYR_API VYR_TMetadata : public QEN_TObject, public virtual VYR_IMetadata {
  QEN_OBJECT_FRAME(VYR_TMetadata)

 public:
  // Only for the class frame: such an object holds no store, and every
  // operation on it but destruction and assignment throws
  // VYR_EMetadataInternal.
  VYR_TMetadata();
  // Throws VYR_EMetadataFileDoesNotExist when the store cannot be read.
  VYR_TMetadata(QEN_TURL const& file);
  // A second, independent view of the same store, read afresh.
  VYR_TMetadata(VYR_TMetadata const& other);
  VYR_TMetadata& operator=(VYR_TMetadata const& other);
  ~VYR_TMetadata() override;

  // Stores the bytes of `value`.
  virtual bool SetKeyValue(QEN_TString const& key, VYR_IBuffer const& value, bool commit);
  // Every stored key with its value: the unpacked object, or a VYR_TBuffer
  // with the raw bytes for a value that is no packed object.
  virtual QEN_TDict GetAll();
  // Removes every key; the results of the single removals are not looked at.
  virtual bool RemoveAll();

 protected:
  // Called at the end of SetArchiveData; does nothing here.
  virtual void PostSetArchiveData(QEN_TDict const& data, QEN_TURL const& from, QEN_TURL const& to);

 public:
  VYR_IMETADATA_OVERRIDES

  // The object stored under `key`, rebuilt by its class name; null when
  // nothing is stored. Bytes that are no packed object throw the stream's
  // exception. The caller owns the result.
  QEN_IPackable* GetKeyObject(QEN_TString const& key);
  bool SetKeyObject(QEN_TString const& key, QEN_IPackable const& object, bool commit);

  // --- Time stamps ---------------------------------------------------------
  // The stamps say, per key, whether a value was stored for the data file as
  // it is now. They are kept as one value under "TIMESTAMP": a dictionary of
  // "_FILE_" (the modification time of the data file, a QEN_TTime) and one
  // boolean per stamped key. Stamp keys are taken as given, not normalised:
  // pass NormalizeKey(key) to stamp the value stored under `key`.

  // The stamps brought up to date in memory: after a change of the data file
  // every entry is false. The caller deletes the result.
  QEN_TDict* ListTimestamps();
  // Marks `key` as matching the data file as it is now, and stores the stamps.
  bool SetTimestamp(QEN_TString const& key);
  // KeyEqual, KeyDifferent, or KeyUnknown for a key without a stamp.
  VYR_TVerifyStatus VerifyTimestamp(QEN_TString const& key);

  // --- Archive data --------------------------------------------------------
  // All metadata worth keeping, as GetAll gives it, less the relocatable
  // objects that cannot follow the file or are stamped as stale.
  QEN_TDict GetArchiveData();
  // Replaces all stored metadata by `data`, with relocatable objects moved
  // from `from` to `to` and stamped anew. The "_FILE_" entry of a "TIMESTAMP"
  // value in `data` is set to the data file's time. Stops at the first
  // failure; what was stored before is gone then.
  bool SetArchiveData(QEN_TDict& data, QEN_TURL const& from, QEN_TURL const& to);
  // GetArchiveData followed by SetArchiveData.
  bool Move(QEN_TURL const& from, QEN_TURL const& to);

  // The stored form of a key: see the note at the top of this header.
  static QEN_TString NormalizeKey(QEN_TString const& key);

  // Traces and builds the lock of the backend choice.
  static bool QEN_Initialize();

 private:
  bool SaveTimestamps(QEN_TDict* stamps);
  VYR_IMetadata& Access() const;

  VYR_IMetadata* mAccess;
};

#endif
