// A ticket held against its file: version and time stamp, readiness of the
// file and of what it depends on, ripping, the format code, and the binding
// to a file on the filling side.
#define VYR_SOURCE_NAME "Private/Source/vyr_image_ticket"

#include <qen/qen_file.h>

#include <cmath>
#include <sstream>
#include <string>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"
#include "core/vyr_trace.h"
#include "platform/vyr_platform_readiness.h"
#include "tickets/ticket_levels.h"
#include "vyrax/vyr_buffer.h"
#include "vyrax/vyr_image_ticket.h"

using namespace vyr_ticket;

namespace {

// Stores the flag under `key` as its text; outside 1 to 3 as "invalid".
VYR_TCanFlag StoreFlag(QEN_TDict& internal, const char* key, VYR_TCanFlag flag) {
  const VYR_TCanFlag stored = flag >= VYR_CanNone && flag <= VYR_CanFull ? flag : VYR_CanInvalid;
  internal[key] = QEN_TAny(VYR_Enum2String(stored));
  return flag;
}

// The process-wide table of format codes, built once on first use; the
// language makes the first use from two threads build it once.
const QEN_TDict& FormatCodes() {
  static const QEN_TDict table = [] {
    const struct {
      const char* format;
      unsigned short code;
    } rows[] = {{"MUS", 12614}, {"QEN_LC", 12615}, {"QEN_LP", 12616}, {"QEN_CT", 12617},
                {"KOD", 12618}, {"ZRL", 12619},    {"TIFF", 1},       {"TIFF_IT", 1},
                {"EPS", 2},     {"PSD", 3},        {"IID", 4},        {"JPEG", 5},
                {"JFIF", 5},    {"DCS", 7},        {"PICT", 8}};
    QEN_TDict codes;
    for (const auto& row : rows) codes[row.format] = row.code;
    return codes;
  }();
  return table;
}

// A size in bytes as the file system gives it (a double) in 64 bits; what
// lies outside 0 to 2^64 (a position past the end of the container, say)
// would not convert, and is clamped.
unsigned long long SizeOf(double size) {
  if (!(size > 0)) return 0;
  if (size >= 18446744073709551616.0) return ~0ull;
  return static_cast<unsigned long long>(size);
}

unsigned EmbedNumber(const QEN_TURL& url, const char* key) {
  QEN_TString value;
  return url.GetParam(key, value) ? vyr::ParseEmbedNumber(value) : 0;
}

// Can the file of `url` be opened with nobody else holding it? An embedded
// image is tested on its container.
bool IsReady(const QEN_TURL& url) {
  if (url.Protocol().Empty()) return false;
  const QEN_TString path = VYR_Embedded2Original(url).LocalPath();
  int error = 0;
  if (vyr::platform::TestExclusive(path.c_str(), error) == vyr::platform::Exclusive::kAlone)
    return true;
  VYR_TRACE(vyr::kTraceLifeCycle,
            "VYR_TImageTicket::IsImageReady() failed because the file is not fully copied\n");
  return false;
}

}  // namespace

VYR_TCanFlag VYR_TImageTicket::SetCanAcquire(VYR_TCanFlag flag) {
  return StoreFlag(mInternal, "Acquire", flag);
}

VYR_TCanFlag VYR_TImageTicket::SetCanODL(VYR_TCanFlag flag) {
  return StoreFlag(mInternal, "ODL", flag);
}

bool VYR_TImageTicket::IsTicketValid() const {
  VYR_TRACE(vyr::kTraceLifeCycle,
            "VYR_TImageTicket::IsTicketValid() checking for empty ticket (%p)\n",
            static_cast<const void*>(this));
  const QEN_TAny* version = mInternal.Lookup("version");
  if (version == nullptr) {
    VYR_TRACE(vyr::kTraceLifeCycle,
              "VYR_TImageTicket::IsTicketValid() failed due to the incompatible versions\n");
    return false;
  }
  // Equality, also against newer tickets. A version that is no number is
  // no version of this library.
  const double number = version->IsNumber() ? version->AsDouble() : -1.0;
  if (number != kTicketVersion) {
    const int shown = std::fabs(number) < 2147483647.0 ? static_cast<int>(number) : -1;
    VYR_TRACE(vyr::kTraceLifeCycle,
              "VYR_TImageTicket::IsTicketValid() failed due to the incompatible versions "
              "(ticket: %d, library: %d)\n",
              shown, static_cast<int>(kTicketVersion));
    return false;
  }
  if (mFile.PathString().Empty()) return true;
  const QEN_TFileInfo info = VYR_GetFileInfo(mFile);
  if (QEN_TInterval(info.ModificationTime(), mFileTimeStamp) != QEN_TInterval()) {
    VYR_TRACE(vyr::kTraceLifeCycle,
              "VYR_TImageTicket::IsTicketValid() failed because the file has different time "
              "stamp\n");
    return false;
  }
  return true;
}

bool VYR_TImageTicket::IsImageReady() const {
  try {
    if (!IsReady(mFile)) return false;
    QEN_TList needed;
    if (!Dependencies(needed, false, false)) return false;
    for (const QEN_TListKey* key = needed.KeyAtHead(); key != nullptr; key = key->Next()) {
      const QEN_TURL* url = static_cast<const QEN_TURL*>(key->Value().DynamicCast("QEN_TURL"));
      if (url == nullptr || !IsReady(*url)) return false;
    }
    return true;
  } catch (const VYR_EImageTicketCannotGetDependencies&) {
    return false;
  } catch (const QEN_EException& e) {
    if (vyr::TraceOn(vyr::kTraceLifeCycle)) {
      std::ostringstream text;
      text << "VYR_TImageTicket::Dependencies() failed because \n";
      e.PrintOn(text);
      text << "\n";
      VYR_TRACE(vyr::kTraceLifeCycle, "%s", text.str().c_str());
    }
    return false;
  } catch (...) {
    VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TImageTicket::Dependencies() failed\n");
    return false;
  }
}

bool VYR_TImageTicket::IsRippable() const {
  if (mFillLevel < VYR_FillExtendedInfo) return true;
  switch (mChannelEncoding) {
    case VYR_Bitmap:
    case VYR_Colored:
    case VYR_Intensity:
    case VYR_Grayscale:
    case VYR_NamedIntensity:
    case VYR_Cmyk:
    case VYR_NamedMultichannel:
      break;
    default:
      return false;
  }
  const QEN_TAny* bits = ExtendedInfo().Lookup("BitsPerPlane");
  if (bits != nullptr) {
    // Only 1 or 8 bits a plane; a value that is no number is neither.
    const double value = bits->IsNumber() ? bits->AsDouble() : 0.0;
    if (value != 1.0 && value != 8.0) return false;
  }
  return !mImageProcessor.Empty() && CanAcquire() != VYR_CanNone;
}

unsigned short VYR_TImageTicket::MusCode() const {
  if (!(mFillLevel & 0x40)) return 0;
  if (mExtendedInfo) {
    // The reader's own code wins over the table. One that doesn't fit 16
    // bits is a failed conversion, as for any number that doesn't fit.
    if (const QEN_TAny* code = mExtendedInfo->Lookup("MUScode")) {
      const unsigned value = *code;
      if (value > 0xFFFFu)
        VYR_THROW(QEN_EAnyConversion, "\"MUScode\" %u does not fit an unsigned 16-bit number",
                  value);
      return static_cast<unsigned short>(value);
    }
  }
  const QEN_TAny* code = FormatCodes().Lookup(mFileFormat);
  return code != nullptr ? static_cast<unsigned short>(static_cast<unsigned>(*code)) : 0;
}

const QEN_TURL& VYR_TImageTicket::SetFile(const QEN_TURL& url) {
  const QEN_TFileInfo info = VYR_GetFileInfo(url);
  mFileTimeStamp = info.ModificationTime();
  mFileSize = SizeOf(info.Size());
  return mFile = url;
}

const QEN_TURL& VYR_TImageTicket::SetFile(const QEN_TURL& url, const QEN_TFileInfo& info) {
  if (url.Protocol() == "embed") {
    unsigned long long size = EmbedNumber(url, "embed.length");
    if (size == 0 && EmbedNumber(url, "embed.position_high") == 0)
      size = SizeOf(VYR_GetFileInfo(url).Size());
    mFileTimeStamp = info.ModificationTime();
    mFileSize = size;
  } else if (url.Protocol() == "file") {
    mFileTimeStamp = info.ModificationTime();
    mFileSize = SizeOf(info.Size());
  } else {
    VYR_THROW(VYR_EImageTicketUnsupprotedFileFormat);
  }
  return mFile = url;
}
