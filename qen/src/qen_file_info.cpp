#include <errno.h>
#include <string.h>

#include <ctime>
#include <limits>
#include <ostream>
#include <utility>

#include "qen/qen_exception.h"
#include "qen/qen_file.h"
#include "qen/qen_stream.h"
#include "qen/qen_url.h"
#include "qen_text_fields.h"
#include "vyr_system.h"

QEN_DEFINE_VALUE(QEN_TFileInfo, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

namespace {

QEN_TTime TimeOf(const struct timespec& t) {
  long long micros;
  if (__builtin_mul_overflow(static_cast<long long>(t.tv_sec), 1000000LL, &micros) ||
      __builtin_add_overflow(micros, static_cast<long long>(t.tv_nsec / 1000), &micros))
    micros = t.tv_sec < 0 ? std::numeric_limits<long long>::min()
                          : std::numeric_limits<long long>::max();
  return QEN_TTime(micros);
}

}  // namespace

QEN_TFileInfo::QEN_TFileInfo() = default;

QEN_TFileInfo::QEN_TFileInfo(const QEN_TURL& url, bool mustExist) : mPath(url.LocalPath()) {
  vyr::sys::FileStatus st;
  if (!vyr::sys::StatusAt(mPath.c_str(), st)) {
    const int error = errno;
    if (mustExist)
      QEN_THROW(QEN_EFileException,
                QEN_TString::Format("Cannot get file information for \"%s\": %s", mPath.c_str(),
                                    ::strerror(error)));
    return;
  }
  mExists = true;
  mSize = static_cast<double>(st.size);
  std::timespec modified{};
  modified.tv_sec = static_cast<std::time_t>(st.modifiedSeconds);
  modified.tv_nsec = st.modifiedNanoseconds;
  mModified = TimeOf(modified);
  mSmartID = SmartIDOf(st.device, st.inode);
}

QEN_TFileInfo::QEN_TFileInfo(const QEN_TFileInfo& other) = default;
QEN_TFileInfo::QEN_TFileInfo(QEN_TFileInfo&& other) noexcept = default;
QEN_TFileInfo& QEN_TFileInfo::operator=(const QEN_TFileInfo& other) = default;
QEN_TFileInfo& QEN_TFileInfo::operator=(QEN_TFileInfo&& other) noexcept = default;
QEN_TFileInfo::~QEN_TFileInfo() = default;

unsigned QEN_TFileInfo::SmartIDOf(unsigned long long device, unsigned long long inode) {
  // Inode numbers are small and dense, device numbers few: the device is
  // spread over all 64 bits by an odd multiplier before it meets the inode,
  // then an avalanche mix makes every input bit reach the low 32 bits that
  // are kept.
  unsigned long long x = inode ^ (device * 0x9E3779B97F4A7C15ull);
  x ^= x >> 33;
  x *= 0xFF51AFD7ED558CCDull;
  x ^= x >> 33;
  x *= 0xC4CEB9FE1A85EC53ull;
  x ^= x >> 33;
  const unsigned id = static_cast<unsigned>(x ^ (x >> 32));
  return id != 0 ? id : 1;  // 0 is kept for "no file"
}

bool QEN_TFileInfo::operator==(const QEN_TFileInfo& other) const {
  return mPath == other.mPath && mExists == other.mExists && mSize == other.mSize &&
         mModified == other.mModified && mSmartID == other.mSmartID;
}

void QEN_TFileInfo::QEN_Pack(QEN_IPacking& out) const {
  out << mPath << mExists << mSize << mModified << mSmartID;
}

void QEN_TFileInfo::QEN_Unpack(QEN_IUnpacking& in) {
  QEN_TFileInfo read;
  in >> read.mPath >> &read.mExists >> &read.mSize >> read.mModified >> &read.mSmartID;
  *this = std::move(read);
}

bool QEN_TFileInfo::WriteTo(QEN_THumanReadableStream& out) const {
  out << mPath << ", " << (mExists ? "true" : "false") << ", " << mSize << ", " << mModified << ", "
      << mSmartID;
  return false;
}

bool QEN_TFileInfo::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TFileInfo read;
  in >> read.mPath;
  qen_text::Expect(in, ',', "expected ',' after the path of a file info");
  read.mExists = qen_text::ReadBool(in);
  qen_text::Expect(in, ',', "expected ',' after the existence of a file info");
  in >> &read.mSize;
  qen_text::Expect(in, ',', "expected ',' after the size of a file info");
  in >> read.mModified;
  qen_text::Expect(in, ',', "expected ',' after the time of a file info");
  in >> &read.mSmartID;
  *this = std::move(read);
  return false;
}

void QEN_TFileInfo::PrintOn(std::ostream& out) const {
  out << "QEN_TFileInfo " << mPath.c_str();
  if (!mExists) {
    out << " (no file)";
    return;
  }
  out << " size " << mSize << " modified " << mModified.AsString().c_str() << " id " << mSmartID;
}
