// The extended-attribute backend of metadata: each key and value is one
// "user." extended attribute of the data file itself, so the metadata travels
// with the file and needs no side-car.
//
// The object reads attributes into a block of records (vyr_ea_records.h) and
// walks it: the list of keys reads all of them at once, GetKeyValue reads the
// one it is asked for afresh each time, and a buffer it gives points into the
// block. Rescan, and every write or removal, forget the block; it is read
// again when it is next needed. Writes go one attribute at a time, straight
// to the file. A key is at most 255 bytes and a value at most 65,024 bytes; a
// value the file system refuses (ext4 keeps about 4 KiB per file) is a false
// result, like every other write failure.
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
  // Drops the block; without `commit` nothing is stored and the result is
  // true.
  bool SetKeyValue(QEN_TString const& key, unsigned int size, void const* data,
                   bool commit) override;
  // Reads the attributes afresh; an absent key throws.
  VYR_IBuffer const* GetKeyValue(QEN_TString const& key) override;
  QEN_TList GetAllKeys() override;
  // Asks the file, not the block.
  bool HasAnyKey() override;
  // Writes the key with an empty value, which removes it.
  bool RemoveKey(QEN_TString const& key) override;
  // Attributes travel with their file: nothing to do, and both give false.
  bool Copy(QEN_TURL const& target) override;
  bool Rename(QEN_TURL const& target) override;

 private:
  [[noreturn]] void ThrowNoAccess() const;
  void FreeBlock();
  // Reads all attributes into the block.
  void ReadAll();
  // Reads the attribute of `key` alone into the block.
  void ReadOne(QEN_TString const& key);
  void Close();
  // Makes sure the attributes can be written; whether they can.
  bool AskWriteAccess();
  // Whether the file lies on a file system that keeps user attributes.
  bool VolumeKeepsAttributes() const;
  bool WriteRecord(QEN_TString const& key, void const* value, unsigned int length);
  // The record of `key` in the block.
  const unsigned char* FindRecord(QEN_TString const& key);

  QEN_TURL mFile;
  std::intptr_t mHandle;
  unsigned char* mBlock;
  const unsigned char* mCursor;
  unsigned mBlockSize;
  bool mReadOnly;
  // The block holds all attributes, not just one.
  bool mWhole;
};

#endif
