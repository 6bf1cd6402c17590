// "embed" URLs: a range inside a container file, named by the container's
// location and the parameters of the range. Their text is stored in tickets,
// so the parameter names and number formats never change.
#define VYR_SOURCE_NAME "Private/Source/vyr_utils"

#include <qen/qen_file.h>
#include <qen/qen_url.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"
#include "vyrax/vyr_buffer.h"

namespace {

using vyr::Join;

const char kEmbed[] = "embed";
const char kPositionLow[] = "embed.position_low";
const char kPositionHigh[] = "embed.position_high";
const char kLength[] = "embed.length";
const char kRealSizeV[] = "embed.realsize_v";
const char kRealSizeH[] = "embed.realsize_h";

// Numbers are written with the letter l behind them ("1000l"): stored URLs
// carry it, and readers stop at it.
QEN_TString NumberText(unsigned int value) { return QEN_TString::Format("%ul", value); }

unsigned int NumberParam(QEN_TURL const& url, const char* key) {
  QEN_TString value;
  if (!url.GetParam(key, value)) return 0;
  return vyr::ParseEmbedNumber(value);
}

}  // namespace

namespace vyr {

unsigned int ParseEmbedNumber(QEN_TString const& text) {
  const unsigned int largest = std::numeric_limits<unsigned int>::max();
  unsigned int value = 0;
  for (unsigned int i = 0; i < text.Length(); ++i) {
    const QEN_TUniChar c = text[i];
    if (c < u'0' || c > u'9') break;
    const unsigned int digit = static_cast<unsigned int>(c - u'0');
    // More digits than 32 bits hold read as the largest value: a range past
    // every end, never a wrapped-around one inside the file.
    value = value > (largest - digit) / 10 ? largest : value * 10 + digit;
  }
  return value;
}

VYR_IBuffer const* OpenEmbedded(QEN_TURL const& url, unsigned int positionLow,
                                unsigned int positionHigh, unsigned int size) {
  const QEN_TURL container = VYR_Embedded2Original(url);
  // The position counts from the start of the range, on 64 bits, so a range
  // behind the first 4 GiB is found where it is; one that wraps is nowhere.
  const unsigned long long inRange = Join(positionLow, positionHigh);
  const unsigned long long start =
      Join(NumberParam(url, kPositionLow), NumberParam(url, kPositionHigh));
  const unsigned long long position = start + inRange;
  if (position < start) VYR_THROW(VYR_EBufferSliceStartsAfterEnd);
  // The range confines its readers: a position at or past its length finds
  // nothing, and a size runs to the range's end at most. A length of 0 runs
  // to the end of the file.
  const unsigned int length = NumberParam(url, kLength);
  if (length != 0) {
    if (inRange >= length) VYR_THROW(VYR_EBufferSliceStartsAfterEnd);
    const unsigned int rest = length - static_cast<unsigned int>(inRange);
    if (size == 0 || size > rest) size = rest;
  }
  return VYR_IBuffer::Create(container, static_cast<unsigned int>(position),
                             static_cast<unsigned int>(position >> 32), size);
}

}  // namespace vyr

QEN_TURL VYR_EmbeddedFile(QEN_TURL const& url, unsigned int size, unsigned int positionLow,
                          unsigned int positionHigh, double realSizeV, double realSizeH) {
  QEN_TURL result(url);
  if (url.Protocol() != kEmbed) {
    result.SetParam(kPositionLow, NumberText(positionLow));
    result.SetParam(kPositionHigh, NumberText(positionHigh));
    result.SetParam(kLength, NumberText(size));
  } else {
    // The new range is relative to the old one.
    const unsigned int oldLength = NumberParam(url, kLength);
    const unsigned long long position =
        Join(NumberParam(url, kPositionLow), NumberParam(url, kPositionHigh)) +
        Join(positionLow, positionHigh);
    result.SetParam(kPositionLow, NumberText(static_cast<unsigned int>(position)));
    result.SetParam(kPositionHigh, NumberText(static_cast<unsigned int>(position >> 32)));
    if (size != 0) {
      // The inner end, on 64 bits: any high position lies past a 32-bit length.
      if (oldLength != 0 &&
          (positionHigh != 0 || static_cast<unsigned long long>(positionLow) + size > oldLength))
        VYR_THROW(VYR_EEmbedRegionTooLarge, "Too large", result);
      result.SetParam(kLength, NumberText(size));
    } else {
      result.SetParam(kLength, NumberText(oldLength));
    }
  }
  if (!(realSizeV == 0.0 && realSizeH == 0.0)) {
    result.SetParam(kRealSizeV, QEN_TString::Format("%f", realSizeV));
    result.SetParam(kRealSizeH, QEN_TString::Format("%f", realSizeH));
  }
  result.SetProtocol(kEmbed);
  return result;
}

QEN_TURL VYR_EmbeddedFile(QEN_TURL const& url, VYR_TTag const& tag) {
  return VYR_EmbeddedFile(url, tag.Size(), tag.Position(), tag.PositionHigh(), 0.0, 0.0);
}

QEN_TURL VYR_Embedded2Original(QEN_TURL const& url) {
  return QEN_TURL(QEN_TString("file"), url.Host(), url.PathString(), QEN_TString(), 0,
                  QEN_TString(), QEN_TString());
}

VYR_TTag VYR_Embedded2Tag(QEN_TURL const& url) {
  if (url.Protocol() != kEmbed)
    VYR_THROW(VYR_ENotEmbeddedFile, "Invalid protocol in url %s", url.AsString());
  return VYR_TTag(NumberParam(url, kPositionLow), NumberParam(url, kPositionHigh),
                  NumberParam(url, kLength), 0u);
}

bool VYR_Embedded2Size(QEN_TURL const& url, double& realSizeV, double& realSizeH) {
  if (url.Protocol() != kEmbed) return false;
  QEN_TString vertical;
  QEN_TString horizontal;
  if (!url.GetParam(kRealSizeV, vertical) || !url.GetParam(kRealSizeH, horizontal)) return false;
  realSizeV = std::atof(vertical.c_str());
  realSizeH = std::atof(horizontal.c_str());
  return true;
}

QEN_TFileInfo VYR_GetFileInfo(QEN_TURL const& url) {
  if (url.Protocol() == kEmbed) {
    QEN_TFileInfo info(VYR_Embedded2Original(url), true);
    double length = NumberParam(url, kLength);
    if (length == 0 && NumberParam(url, kPositionHigh) == 0) {
      // The rest of the file behind the position; nothing for a position
      // past the end.
      const double rest = info.Size() - NumberParam(url, kPositionLow);
      length = rest > 0 ? std::floor(rest) : 0;
    }
    info.SetSize(length);
    return info;
  }
  if (url.Protocol() == "file") return QEN_TFileInfo(url, true);
  VYR_THROW(VYR_EUnsupportedProtocol, "Invalid protocol for url %s", url.AsString());
}

bool VYR_ExtractPassword(QEN_TURL const& url, QEN_TString& password) {
  return url.GetParam("password", password);
}
