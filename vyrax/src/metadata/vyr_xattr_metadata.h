// The extended-attribute backend of metadata: each key and value is one
// "user." extended attribute of the data file itself, so the metadata travels
// with the file and needs no side-car.
//
// The object asks the file by name and value: the list of keys is read
// once and kept, GetKeyValue reads the one it is asked for afresh each time,
// and a buffer it gives points into the value kept for it. Rescan, and every
// write or removal, forget both; they are read again when next needed.
// Writes go one attribute at a time, straight to the file. A key is at most 255 bytes and a value
// at most 65,024 bytes; a value the file system refuses (ext4 keeps about 4 KiB per file) is a
// false result, like every other write failure.
//
// Only attributes whose names are metadata keys ("user." and then "A" to "Z"
// and "_" only) are this backend's: those of other programs, such as
// "user.xdg.origin.url" of a download, are never listed, read or changed.
// Names are matched exactly.
//
// States: reading (the file is open to read its attributes), writing (after
// the first write found the file writable on a file system that keeps user
// attributes), closed (the file could not be opened, or a write found it on
// a file system without user attributes, or not writable). Every read of a
// closed object throws VYR_EMetadataFileDoesNotExist.
#ifndef VYR_NTFS_METADATA_H
#define VYR_NTFS_METADATA_H

#include <qen/qen_containers.h>
#include <qen/qen_string.h>
#include <qen/qen_url.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/vyr_throw.h"
#include "vyrax/vyr_metadata.h"

// The source name of what this header throws itself.
#define VYR_NTFS_METADATA_SOURCE "Private/Include/vyr_ntfs_metadata"

class VYR_LOCAL VYR_TEA : public QEN_TObject, public virtual VYR_IMetadata {
  QEN_OBJECT_FRAME(VYR_TEA)

 public:
  // Opens the file to read its attributes; a file that cannot be opened
  // leaves the object closed, and the first Rescan throws.
  explicit VYR_TEA(QEN_TURL const& file);
  // Only the class frame's factory calls this: it always throws
  // VYR_EMetadataInternal.
  VYR_TEA() { vyr::ThrowException<VYR_EMetadataInternal>(__LINE__, VYR_NTFS_METADATA_SOURCE); }
  VYR_TEA(VYR_TEA const&) = delete;
  VYR_TEA& operator=(VYR_TEA const&) = delete;
  ~VYR_TEA() override;

  // The raw form with the buffer's size and bytes; false without `commit`.
  virtual bool SetKeyValue(QEN_TString const& key, VYR_IBuffer const& value, bool commit);

  QEN_TURL const& File() const override { return mFile; }
  // Forgets the cached attributes; throws when the file is not open.
  void Rescan() override;
  // Drops what was read; without `commit` nothing is stored and the result
  // is true.
  bool SetKeyValue(QEN_TString const& key, unsigned int size, void const* data,
                   bool commit) override;
  // Reads the attributes afresh; an absent key throws.
  VYR_IBuffer const* GetKeyValue(QEN_TString const& key) override;
  QEN_TList GetAllKeys() override;
  // Asks the file, not the list kept.
  bool HasAnyKey() override;
  // Writes the key with an empty value, which removes it.
  bool RemoveKey(QEN_TString const& key) override;
  // Attributes travel with their file: nothing to do, and both give false.
  bool Copy(QEN_TURL const& target) override;
  bool Rename(QEN_TURL const& target) override;

 private:
  [[noreturn]] void ThrowNoAccess() const;
  void Forget();
  // The names of all attributes of metadata keys, without "user.".
  bool ListKeys(std::vector<std::string>& keys);
  // Opens the file to read and change its attributes.
  bool Open(QEN_TString const& path);
  void Close();
  // Makes sure the attributes can be written; whether they can.
  bool AskWriteAccess();
  // Whether the file lies on a file system that keeps user attributes.
  bool VolumeKeepsAttributes() const;
  // Sets the attribute of `key`, or removes it for an empty value.
  bool WriteAttribute(QEN_TString const& key, void const* value, unsigned int length);

  QEN_TURL mFile;
  std::intptr_t mHandle;
  std::vector<std::string> mKeys;
  std::vector<unsigned char> mValue;  // the last value given out
  bool mReadOnly;
  // mKeys holds the list read from the file.
  bool mListed;
};

#endif
