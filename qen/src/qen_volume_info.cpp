#include <errno.h>

#include <ostream>
#include <utility>

#include "qen/qen_file.h"
#include "qen/qen_stream.h"
#include "qen_text_fields.h"
#include "vyr_system.h"

QEN_DEFINE_VALUE(QEN_TVolumeInfo, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

namespace {

struct KnownFileSystem {
  unsigned long magic;
  const char* name;
  QEN_TVolumeInfo::TType type;
};

// The magic numbers that statfs reports, as the kernel defines them.
const KnownFileSystem kFileSystems[] = {
    {0xEF53, "ext4", QEN_TVolumeInfo::kFixed},
    {0x58465342, "xfs", QEN_TVolumeInfo::kFixed},
    {0x9123683E, "btrfs", QEN_TVolumeInfo::kFixed},
    {0xF2F52010, "f2fs", QEN_TVolumeInfo::kFixed},
    {0x2FC12FC1, "zfs", QEN_TVolumeInfo::kFixed},
    {0x794C7630, "overlay", QEN_TVolumeInfo::kFixed},
    {0x73717368, "squashfs", QEN_TVolumeInfo::kFixed},
    {0x5346544E, "ntfs", QEN_TVolumeInfo::kFixed},
    {0x7366746E, "ntfs", QEN_TVolumeInfo::kFixed},
    {0x4D44, "vfat", QEN_TVolumeInfo::kFixed},
    {0x2011BAB0, "exfat", QEN_TVolumeInfo::kFixed},
    {0x65735546, "fuse", QEN_TVolumeInfo::kFixed},
    {0x01021994, "tmpfs", QEN_TVolumeInfo::kRAMDisk},
    {0x858458F6, "ramfs", QEN_TVolumeInfo::kRAMDisk},
    {0x9660, "iso9660", QEN_TVolumeInfo::kCDROM},
    {0x15013346, "udf", QEN_TVolumeInfo::kCDROM},
    {0x6969, "nfs", QEN_TVolumeInfo::kRemote},
    {0x517B, "smb", QEN_TVolumeInfo::kRemote},
    {0xFF534D42, "cifs", QEN_TVolumeInfo::kRemote},
    {0xFE534D42, "smb2", QEN_TVolumeInfo::kRemote},
    {0x01021997, "9p", QEN_TVolumeInfo::kRemote},
    {0x00C36400, "ceph", QEN_TVolumeInfo::kRemote},
    {0x9FA0, "proc", QEN_TVolumeInfo::kFixed},
    {0x62656572, "sysfs", QEN_TVolumeInfo::kFixed},
    {0x1373, "devfs", QEN_TVolumeInfo::kFixed},
};

// Asking for an attribute that isn't there tells whether the file system
// takes user attributes at all, without writing anything.
bool ProbeUserAttributes(const char* path) {
  if (vyr::sys::GetAttributeAt(path, "user.qen.probe", nullptr, 0) >= 0) return true;
  return errno == ENODATA || errno == ERANGE;
}

}  // namespace

QEN_TVolumeInfo::QEN_TVolumeInfo() = default;

QEN_TVolumeInfo::QEN_TVolumeInfo(const QEN_TString& path) : mPath(path) {
  vyr::sys::VolumeStatus st;
  if (!vyr::sys::VolumeOf(mPath.c_str(), st)) return;

  const unsigned long magic = st.magic;
  mType = kFixed;
  mFileSystem = QEN_TString::Format("unknown-%lx", magic);
  for (const KnownFileSystem& known : kFileSystems) {
    if (known.magic == magic) {
      mFileSystem = known.name;
      mType = known.type;
      break;
    }
  }
  mUserAttributes = ProbeUserAttributes(mPath.c_str());
  mFree = st.freeBytes;
  mTotal = st.totalBytes;
}

QEN_TVolumeInfo::QEN_TVolumeInfo(const QEN_TVolumeInfo& other) = default;
QEN_TVolumeInfo& QEN_TVolumeInfo::operator=(const QEN_TVolumeInfo& other) = default;
QEN_TVolumeInfo::~QEN_TVolumeInfo() = default;

bool QEN_TVolumeInfo::operator==(const QEN_TVolumeInfo& other) const {
  return mPath == other.mPath && mFileSystem == other.mFileSystem && mType == other.mType &&
         mUserAttributes == other.mUserAttributes && mFree == other.mFree && mTotal == other.mTotal;
}

void QEN_TVolumeInfo::QEN_Pack(QEN_IPacking& out) const {
  out << mPath << mFileSystem << static_cast<unsigned>(mType) << mUserAttributes << mFree << mTotal;
}

void QEN_TVolumeInfo::QEN_Unpack(QEN_IUnpacking& in) {
  QEN_TVolumeInfo read;
  unsigned type = 0;
  in >> read.mPath >> read.mFileSystem >> &type >> &read.mUserAttributes >> &read.mFree >>
      &read.mTotal;
  // A type from a later build reads as unknown rather than as a stray number.
  read.mType = type <= kRAMDisk ? static_cast<TType>(type) : kUnknown;
  *this = std::move(read);
}

bool QEN_TVolumeInfo::WriteTo(QEN_THumanReadableStream& out) const {
  out << mPath << ", " << mFileSystem << ", " << static_cast<unsigned>(mType) << ", "
      << (mUserAttributes ? "true" : "false") << ", " << mFree << ", " << mTotal;
  return false;
}

bool QEN_TVolumeInfo::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TVolumeInfo read;
  unsigned type = 0;
  in >> read.mPath;
  qen_text::Expect(in, ',', "expected ',' after the path of a volume info");
  in >> read.mFileSystem;
  qen_text::Expect(in, ',', "expected ',' after the file system of a volume info");
  in >> &type;
  if (type > kRAMDisk) in.SyntaxError("volume type out of range 0 to 6");
  read.mType = static_cast<TType>(type);
  qen_text::Expect(in, ',', "expected ',' after the type of a volume info");
  read.mUserAttributes = qen_text::ReadBool(in);
  qen_text::Expect(in, ',', "expected ',' after the attribute flag of a volume info");
  in >> &read.mFree;
  qen_text::Expect(in, ',', "expected ',' after the free bytes of a volume info");
  in >> &read.mTotal;
  *this = std::move(read);
  return false;
}

void QEN_TVolumeInfo::PrintOn(std::ostream& out) const {
  out << "QEN_TVolumeInfo " << mPath.c_str() << ": " << mFileSystem.c_str() << ", type "
      << static_cast<unsigned>(mType) << (mUserAttributes ? ", user attributes" : "") << ", "
      << mFree << " of " << mTotal << " bytes free";
}
