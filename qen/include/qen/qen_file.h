// Bytes, files, volumes and the machine: a block of bytes, what the file
// system says of a file and of its volume, and the host name.
//
// The file stream itself, QEN_TFile, lives with the other streams in
// qen_stream.h.
#ifndef QEN_FILE_H
#define QEN_FILE_H

#include <vector>

#include "qen/qen_object.h"
#include "qen/qen_string.h"
#include "qen/qen_time.h"
#include "qen/qen_value.h"

class QEN_TURL;

// A block of bytes, copied in and owned.
//
// Packed: the size as an unsigned 32-bit number, then the bytes. Reading
// takes a size in the stream as a claim, not a promise: bytes are only
// allocated as they actually arrive, and a size beyond what the stream still
// holds is a QEN_EStreamException.
// Text: the bytes as lower-case hex digits between angle brackets, "<00ff>";
// an empty block is "<>".
class QEN_API QEN_TDataBlock : public QEN_TObject,
                               public virtual QEN_IPackable,
                               public virtual QEN_IHumanReadable,
                               public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(QEN_TDataBlock)

 public:
  QEN_TDataBlock() = default;
  // Copies `size` bytes from `data`; null data gives `size` zero bytes.
  QEN_TDataBlock(const void* data, unsigned size);
  QEN_TDataBlock(const QEN_TDataBlock& other) = default;
  QEN_TDataBlock(QEN_TDataBlock&& other) noexcept = default;
  QEN_TDataBlock& operator=(const QEN_TDataBlock& other) = default;
  QEN_TDataBlock& operator=(QEN_TDataBlock&& other) noexcept = default;
  ~QEN_TDataBlock() override;

  // Null for an empty block.
  const void* Data() const { return mBytes.empty() ? nullptr : mBytes.data(); }
  unsigned Size() const { return static_cast<unsigned>(mBytes.size()); }

  bool operator==(const QEN_TDataBlock& other) const { return mBytes == other.mBytes; }
  bool operator!=(const QEN_TDataBlock& other) const { return mBytes != other.mBytes; }

  QEN_VALUE_FORMS

 private:
  std::vector<unsigned char> mBytes;
};

// What the file system says of one file at the time of construction:
// size, modification time and identity. Links are followed.
//
// SmartID is a 32-bit digest of the device and inode numbers: two names of
// one file give the same number, two files on the machine almost always
// different ones. It is 0 only for an object that describes no file.
//
// Packed: the local path (a string object), whether the file exists (bool),
// the size (double), the modification time (a QEN_TTime object), SmartID
// (unsigned 32).
// Text: the same five fields, separated by commas:
//   "/data/a.tif", true, 52311, 2026-11-22T19:34:51.123456Z, 2864434397
class QEN_API QEN_TFileInfo : public QEN_TObject,
                              public virtual QEN_IPackable,
                              public virtual QEN_IHumanReadable,
                              public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(QEN_TFileInfo)

 public:
  // Describes no file: size 0, no time, SmartID 0.
  QEN_TFileInfo();
  // Looks up the file at the local path of `url`. When the file can't be
  // looked at (missing, no access), `mustExist` true throws
  // QEN_EFileException with the path and the system's text of the error;
  // false gives an object that describes no file, with Exists() false.
  QEN_TFileInfo(const QEN_TURL& url, bool mustExist);
  QEN_VALUE_COPY_MOVE(QEN_TFileInfo)

  const QEN_TString& Path() const { return mPath; }
  bool Exists() const { return mExists; }
  // Bytes. A range inside a file may set its own size.
  double Size() const { return mSize; }
  void SetSize(double size) { mSize = size; }
  // To the microsecond, as far as the file system keeps it.
  const QEN_TTime& ModificationTime() const { return mModified; }
  unsigned SmartID() const { return mSmartID; }

  // The digest behind SmartID, for a device and inode number.
  static unsigned SmartIDOf(unsigned long long device, unsigned long long inode);

  QEN_VALUE_EQUALITY(QEN_TFileInfo)

  QEN_VALUE_FORMS

 private:
  QEN_TString mPath;
  bool mExists = false;
  double mSize = 0;
  QEN_TTime mModified;
  unsigned mSmartID = 0;
};

// What the file system says of the volume that holds a path.
//
// Packed: the path and the file-system name (string objects), the type
// (unsigned 32), whether user attributes are kept (bool), free and total
// bytes (unsigned 64 each).
// Text: the same six fields, separated by commas:
//   "/tmp", "ext4", 3, true, 85761236992, 270553174016
class QEN_API QEN_TVolumeInfo : public QEN_TObject,
                                public virtual QEN_IPackable,
                                public virtual QEN_IHumanReadable,
                                public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(QEN_TVolumeInfo)

 public:
  // The kind of volume. The numbers are stored; don't renumber.
  enum TType : unsigned {
    kUnknown = 0,
    kNoRoot = 1,  // the path can't be looked at: nothing else is known
    kRemovable = 2,
    kFixed = 3,
    kRemote = 4,  // a network file system
    kCDROM = 5,
    kRAMDisk = 6,  // memory-backed, such as tmpfs
  };

  // Looks at the volume of `path`. Never throws: a path that can't be looked
  // at gives the type kNoRoot, an empty name and no space.
  QEN_TVolumeInfo(const QEN_TString& path);
  QEN_TVolumeInfo(const QEN_TVolumeInfo& other);
  QEN_TVolumeInfo& operator=(const QEN_TVolumeInfo& other);
  ~QEN_TVolumeInfo() override;

  const QEN_TString& Path() const { return mPath; }
  // The file system's type in lower case, "ext4", "xfs", "tmpfs", "nfs", ...
  // ("ext4" also stands for ext2 and ext3), "unknown-<hex magic>" for a type
  // not in the table, empty when the path can't be looked at.
  const QEN_TString& FileSystemName() const { return mFileSystem; }
  TType Type() const { return mType; }
  // Whether the volume keeps "user." extended attributes, found by asking
  // for one at the path: the answer comes from the file system itself, not
  // from a table.
  bool KeepsUserAttributes() const { return mUserAttributes; }
  // Bytes available to an unprivileged user, and the size of the volume.
  unsigned long long FreeBytes() const { return mFree; }
  unsigned long long TotalBytes() const { return mTotal; }

  QEN_VALUE_EQUALITY(QEN_TVolumeInfo)

  QEN_VALUE_FORMS

 private:
  // Only the class frame builds one by name, to unpack into.
  QEN_TVolumeInfo();

  QEN_TString mPath;
  QEN_TString mFileSystem;
  TType mType = kNoRoot;
  bool mUserAttributes = false;
  unsigned long long mFree = 0;
  unsigned long long mTotal = 0;
};

// The machine on the network.
class QEN_API QEN_TSocket {
 public:
  QEN_TSocket() = delete;

  // This machine's name. Not fully qualified: the system's name up to its
  // first dot. Fully qualified: the system's name when it has a domain, else
  // the canonical name the resolver gives for it when that has one, else the
  // plain name. Never empty: "localhost" when the system has no name.
  static QEN_TString HostName(bool fullyQualified);
};

#endif
