// Conversions between values of the enumerations: sizes from one unit to
// another, and palette encodings to the encoding of their colours.
#include <limits>

#include "vyrax/vyr_enums.h"

namespace {

// Units per inch; Pixel counts in the resolution given.
double UnitsPerInch(VYR_TMUnits unit, double resolution) {
  switch (unit) {
    case VYR_Pixel:
      return resolution;
    case VYR_MM:
      return 25.4;
    case VYR_CM:
      return 2.54;
    case VYR_Inch:
      return 1.0;
    case VYR_Mil:
      return 1000.0;
  }
  return std::numeric_limits<double>::quiet_NaN();
}

}  // namespace

double VYR_Size2Size(double value, VYR_TMUnits from, VYR_TMUnits to, double resolution) {
  if (from == to) return value;
  // This order of operations is part of the result's last bits.
  return UnitsPerInch(to, resolution) / UnitsPerInch(from, resolution) * value;
}

bool VYR_IsIndexedEncoding(VYR_TChannelEnc encoding) {
  return encoding == VYR_IndexedRgb || encoding == VYR_IndexedCmyk || encoding == VYR_NamedIndexed;
}

VYR_TChannelEnc VYR_IndexedEncoding2True(VYR_TChannelEnc encoding) {
  switch (encoding) {
    case VYR_IndexedRgb:
      return VYR_Rgb;
    case VYR_IndexedCmyk:
      return VYR_Cmyk;
    case VYR_NamedIndexed:
      return VYR_NamedMultichannel;
    default:
      return encoding;
  }
}
