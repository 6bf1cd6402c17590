// Enumeration and exception texts, embedded-file URLs, ink names.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()

#include <qen/qen_any.h>
#include <qen/qen_containers.h>
#include <qen/qen_exception.h>
#include <qen/qen_string.h>
#include <qen/qen_url.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "vyrax/vyr_enums.h"
#include "vyrax/vyr_utils.h"

// ===========================================================================
// Enumerations

namespace {

struct Row {
  const char* text;
  unsigned value;
};

template <std::size_t N>
const char* NameOf(const char* const (&names)[N], unsigned value, const char* otherwise) {
  return value < N ? names[value] : otherwise;
}

// The look-up of a "dictionary" function: a function-local static, so that
// building and filling it is one thread-safe initialisation, read-only after.
template <std::size_t N>
QEN_TDict MakeDictionary(const Row (&rows)[N]) {
  QEN_TDict dictionary;
  for (const Row& row : rows) dictionary[row.text] = row.value;
  return dictionary;
}

unsigned LookUp(const QEN_TDict& dictionary, const QEN_TString& key, unsigned otherwise) {
  const QEN_TAny* value = dictionary.Lookup(key);
  return value != nullptr ? static_cast<unsigned>(*value) : otherwise;
}

// The case-ignoring scans compare in table order; their keys are strings
// made once.
typedef std::vector<std::pair<QEN_TString, unsigned>> TextTable;

template <std::size_t N>
TextTable MakeTextTable(const Row (&rows)[N]) {
  TextTable table;
  for (const Row& row : rows) table.emplace_back(QEN_TString(row.text), row.value);
  return table;
}

unsigned ScanIgnoringCase(const TextTable& table, const QEN_TString& text, unsigned otherwise) {
  for (const auto& row : table)
    if (text.CompareWith(row.first, true) == 0) return row.second;
  return otherwise;
}

template <std::size_t N>
unsigned ScanExact(const Row (&rows)[N], const QEN_TString& text, unsigned otherwise) {
  for (const Row& row : rows)
    if (text == row.text) return row.value;
  return otherwise;
}

const char* const kChannelEncodingNames[] = {"UnknownChannelEncoding",
                                             "Bitmap",
                                             "Colored",
                                             "IndexedRgb",
                                             "IndexedCmyk",
                                             "NamedIndexed",
                                             "Intensity",
                                             "Grayscale",
                                             "NamedIntensity",
                                             "Multitone",
                                             "Rgb",
                                             "Cmyk",
                                             "Labcolor",
                                             "YCbCr",
                                             "Hsv",
                                             "Multichannel",
                                             "NamedMultichannel",
                                             "YCbCrK"};
const Row kChannelEncodingKeys[] = {
    {"bitmap", 1},       {"colored", 2},   {"indexedrgb", 3},    {"indexedcmyk", 4},
    {"namedindexed", 5}, {"intensity", 6}, {"grayscale", 7},     {"namedintensity", 8},
    {"multitone", 9},    {"rgb", 10},      {"cmyk", 11},         {"labcolor", 12},
    {"ycbcr", 13},       {"hsv", 14},      {"multichannel", 15}, {"namedmultichannel", 16},
    {"ycbcrk", 17}};

const char* const kAlphaPlaneNames[] = {"AlphaNone", "AlphaNormal", "AlphaPremultiplied",
                                        "AlphaOne", "AlphaUnknown"};
const Row kAlphaPlaneKeys[] = {{"alphanone", 0},
                               {"alphanormal", 1},
                               {"alphapremultiplied", 2},
                               {"alphaone", 3},
                               {"unknownalpha", 4}};

const char* const kBufferAccessNames[] = {"ReadOnly", "ReadWrite", "CopyOnWrite", "InvalidAccess"};
const Row kBufferAccessKeys[] = {
    {"ReadOnly", 0}, {"ReadWrite", 1}, {"CopyOnWrite", 2}, {"InvalidAccess", 3}};

const char* const kCanFlagNames[] = {"invalid", "none", "limited", "full"};
const Row kCanFlagKeys[] = {{"none", 1}, {"limited", 2}, {"full", 3}};

const char* const kDefInkTypeNames[] = {"", "process", "display", "designer"};
const Row kDefInkTypeKeys[] = {{"process", 1}, {"display", 2}, {"designer", 3}};

const char* const kRotationNames[] = {"NotRotated", "Rot90",    "Rot180",    "Rot270",
                                      "Mirrored",   "MirRot90", "MirRot180", "MirRot270"};
const Row kRotationKeys[] = {{"notrotated", 0}, {"rot90", 1},    {"rot180", 2},
                             {"rot270", 3},     {"mirrored", 4}, {"mirrot90", 5},
                             {"mirrot180", 6},  {"mirrot270", 7}};

const char* const kSubtypeNames[] = {"UnknownSubtype", "CT", "LP", "LW", "HC", "FP"};

const char* const kImageTypeNames[] = {"UnknownType", "Preview",  "Icon",
                                       "Image",       "Internal", "Production"};
const Row kImageTypeKeys[] = {{"unknowntype", 0}, {"preview", 1},  {"icon", 2},
                              {"image", 3},       {"internal", 4}, {"production", 5}};

const char* const kInkNames[] = {"unknownink", "cyan", "magenta", "yellow",
                                 "black",      "red",  "green",   "blue"};
const Row kInkKeys[] = {{"cyan", 1}, {"magenta", 2}, {"yellow", 3}, {"black", 4},
                        {"red", 5},  {"green", 6},   {"blue", 7}};

const char* const kInterleavedNames[] = {"UnknownInterleaved", "PixelInterleaved",
                                         "LineInterleaved", "PlaneInterleaved"};
const Row kInterleavedKeys[] = {
    {"PixelInterleaved", 1}, {"LineInterleaved", 2}, {"PlaneInterleaved", 3}};

const char* const kKnotTypeNames[] = {"KnotNop",        "KnotMoveTo",     "KnotClose",
                                      "KnotLinkLineTo", "KnotNormLineTo", "KnotLinkCurveTo",
                                      "KnotNormCurveTo"};
const Row kKnotTypeKeys[] = {{"KnotMoveTo", 1},     {"KnotClose", 2},       {"KnotLinkLineTo", 3},
                             {"KnotNormLineTo", 4}, {"KnotLinkCurveTo", 5}, {"KnotNormCurveTo", 6}};

const char* const kUnitNames[] = {"Pixel", "MM", "CM", "Inch", "Mil"};
// Pixel is no key: it is what an unknown text gives.
const Row kUnitKeys[] = {{"MM", 1}, {"Inch", 3}, {"CM", 2}, {"Mil", 4}};

const char* const kVerifyStatusNames[] = {"KeyUnknown", "KeyDifferent", "KeyEqual"};
const Row kVerifyStatusKeys[] = {{"KeyDifferent", 1}, {"KeyEqual", 2}};

const Row kFillLevelNames[] = {
    {"Empty", VYR_FillEmpty},         {"FileAssigned", VYR_FillFileAssigned},
    {"FileType", VYR_FillFileType},   {"ImageProcessor", VYR_FillImageProcessor},
    {"BasicInfo", VYR_FillBasicInfo}, {"ExtendedInfo", VYR_FillExtendedInfo},
    {"FullInfo", VYR_FillFullInfo}};
const Row kFillLevelKeys[] = {
    {"empty", VYR_FillEmpty},         {"fileassigned", VYR_FillFileAssigned},
    {"filetype", VYR_FillFileType},   {"imageprocessor", VYR_FillImageProcessor},
    {"basicinfo", VYR_FillBasicInfo}, {"extendedinfo", VYR_FillExtendedInfo},
    {"fullinfo", VYR_FillFullInfo}};

bool IsPreviewEncoding(unsigned value) {
  return value == VYR_Rgb || value == VYR_Cmyk || value == VYR_Labcolor || value == VYR_Hsv;
}

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

QEN_TString VYR_Enum2String(VYR_TChannelEnc value) {
  return NameOf(kChannelEncodingNames, value, "UnknownChannelEncoding");
}
QEN_TString VYR_Enum2String(VYR_TInkPreviewEnc value) {
  return VYR_Enum2String(static_cast<VYR_TChannelEnc>(value));
}
QEN_TString VYR_Enum2String(VYR_TAlphaPlane value) {
  return NameOf(kAlphaPlaneNames, value, "UndefinedAlphaPlane");
}
QEN_TString VYR_Enum2String(VYR_TBufferAccess value) {
  return NameOf(kBufferAccessNames, value, "InvalidAccess");
}
QEN_TString VYR_Enum2String(VYR_TCanFlag value) { return NameOf(kCanFlagNames, value, "invalid"); }
QEN_TString VYR_Enum2String(VYR_TDefInkTypes value) { return NameOf(kDefInkTypeNames, value, ""); }
QEN_TString VYR_Enum2String(VYR_TImageRotation value) {
  return NameOf(kRotationNames, value, "UnknownRotation");
}
QEN_TString VYR_Enum2String(VYR_TImageSubtype value) {
  return NameOf(kSubtypeNames, value, "UndefinedImageSubtype");
}
QEN_TString VYR_Enum2String(VYR_TImageType value) {
  return NameOf(kImageTypeNames, value, "UndefinedImageType");
}
QEN_TString VYR_Enum2String(VYR_TInks value) { return NameOf(kInkNames, value, "undefinedink"); }
QEN_TString VYR_Enum2String(VYR_TInterleavedType value) {
  return NameOf(kInterleavedNames, value, "UnknownInterleaved");
}
QEN_TString VYR_Enum2String(VYR_TKnotType value) {
  return NameOf(kKnotTypeNames, value, "KnotNop");
}
QEN_TString VYR_Enum2String(VYR_TMUnits value) { return NameOf(kUnitNames, value, "UnknownUnits"); }
QEN_TString VYR_Enum2String(VYR_TVerifyStatus value) {
  return NameOf(kVerifyStatusNames, value, "KeyInvalid");
}
QEN_TString VYR_Enum2String(unsigned int fillLevel) {
  for (const Row& row : kFillLevelNames)
    if (row.value == fillLevel) return row.text;
  return "UnknownFillLevel";
}

VYR_TChannelEnc VYR_String2ChannelEnc(const QEN_TString& text) {
  static const QEN_TDict dictionary = MakeDictionary(kChannelEncodingKeys);
  return static_cast<VYR_TChannelEnc>(LookUp(dictionary, text.ToLower(), 0));
}

VYR_TInkPreviewEnc VYR_String2InkPreviewEnc(const QEN_TString& text) {
  const unsigned value = VYR_String2ChannelEnc(text);
  return static_cast<VYR_TInkPreviewEnc>(IsPreviewEncoding(value) ? value : 0);
}

VYR_TAlphaPlane VYR_String2AlphaPlane(const QEN_TString& text) {
  static const QEN_TDict dictionary = MakeDictionary(kAlphaPlaneKeys);
  return static_cast<VYR_TAlphaPlane>(LookUp(dictionary, text.ToLower(), VYR_AlphaUnknown));
}

VYR_TImageRotation VYR_String2ImageRotation(const QEN_TString& text) {
  static const QEN_TDict dictionary = MakeDictionary(kRotationKeys);
  return static_cast<VYR_TImageRotation>(LookUp(dictionary, text.ToLower(), VYR_NotRotated));
}

VYR_TImageType VYR_String2ImageType(const QEN_TString& text) {
  static const QEN_TDict dictionary = MakeDictionary(kImageTypeKeys);
  return static_cast<VYR_TImageType>(LookUp(dictionary, text.ToLower(), VYR_UnknownType));
}

unsigned int VYR_String2FillLevel(const QEN_TString& text) {
  static const QEN_TDict dictionary = MakeDictionary(kFillLevelKeys);
  return LookUp(dictionary, text.ToLower(), VYR_FillEmpty);
}

VYR_TBufferAccess& VYR_String2Enum(const QEN_TString& text, VYR_TBufferAccess& access) {
  static const QEN_TDict dictionary = MakeDictionary(kBufferAccessKeys);
  access = static_cast<VYR_TBufferAccess>(LookUp(dictionary, text, VYR_InvalidAccess));
  return access;
}

VYR_TInks VYR_String2Inks(const QEN_TString& text) {
  static const TextTable table = MakeTextTable(kInkKeys);
  return static_cast<VYR_TInks>(ScanIgnoringCase(table, text, VYR_UnknownInk));
}

VYR_TDefInkTypes VYR_String2DefInkTypes(const QEN_TString& text) {
  static const TextTable table = MakeTextTable(kDefInkTypeKeys);
  return static_cast<VYR_TDefInkTypes>(ScanIgnoringCase(table, text, VYR_NoDefInkType));
}

VYR_TMUnits VYR_String2Units(const QEN_TString& text) {
  static const TextTable table = MakeTextTable(kUnitKeys);
  return static_cast<VYR_TMUnits>(ScanIgnoringCase(table, text, VYR_Pixel));
}

VYR_TCanFlag VYR_String2CanFlag(const QEN_TString& text) {
  return static_cast<VYR_TCanFlag>(ScanExact(kCanFlagKeys, text, VYR_CanInvalid));
}

VYR_TInterleavedType VYR_String2InterleavedType(const QEN_TString& text) {
  return static_cast<VYR_TInterleavedType>(
      ScanExact(kInterleavedKeys, text, VYR_UnknownInterleaved));
}

VYR_TKnotType VYR_String2KnotType(const QEN_TString& text) {
  return static_cast<VYR_TKnotType>(ScanExact(kKnotTypeKeys, text, VYR_KnotNop));
}

VYR_TVerifyStatus VYR_String2VerifyStatus(const QEN_TString& text) {
  return static_cast<VYR_TVerifyStatus>(ScanExact(kVerifyStatusKeys, text, VYR_KeyUnknown));
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

double VYR_Size2Size(double value, VYR_TMUnits from, VYR_TMUnits to, double resolution) {
  if (from == to) return value;
  // This order of operations is part of the result's last bits.
  return UnitsPerInch(to, resolution) / UnitsPerInch(from, resolution) * value;
}

// ===========================================================================
// Exception texts

namespace {

// Wrapped exceptions come from streams too; deeper nesting than this is
// left out of the text.
constexpr unsigned kMaxNesting = 64;
// The largest width or precision a message may ask for, so that no message
// makes a text of unbounded size.
constexpr long kMaxFieldWidth = 1 << 16;

const char kConversions[] = "cCdiouxXeEfgGnpsS";

// What may stand between '%' and the conversion: flags, width, precision,
// length. Anything else (a '$' position, a second '%', a letter) would make
// the C library read arguments that aren't there, so such a conversion is
// copied unchanged like %n.
bool IsSafeConversion(const std::string& conversion, int* stars, bool* wide) {
  *stars = 0;
  *wide = false;
  long number = 0;
  for (char c : conversion) {
    if (c >= '0' && c <= '9') {
      number = number * 10 + (c - '0');
      if (number > kMaxFieldWidth) return false;
      continue;
    }
    number = 0;
    if (c == '*') {
      if (++*stars > 2) return false;
    } else if (c == 'l' || c == 'L' || c == 'q' || c == 'j' || c == 'z' || c == 't') {
      *wide = true;
    } else if (std::strchr("-+ #'I.h", c) == nullptr) {
      return false;
    }
  }
  return true;
}

// One line break at the end of a text goes.
QEN_TString WithoutFinalLineBreak(QEN_TString text) {
  if (!text.Empty() && text[text.Length() - 1] == u'\n') text.Truncate(text.Length() - 1);
  return text;
}

class ArgumentList {
 public:
  explicit ArgumentList(const QEN_TAny& data) {
    const QEN_TArray* array = static_cast<const QEN_TArray*>(data.DynamicCast("QEN_TArray"));
    if (array != nullptr) {
      mArray = array;
    } else {
      mSingle = &data;
    }
  }

  // The element at `index`; one beyond the end is the thrower's fault, and
  // ends the walk with an exception that the caller turns into the fallback.
  const QEN_TAny& At(unsigned index) const {
    if (mArray != nullptr) return (*mArray)[index];
    if (index == 0) return *mSingle;
    // Never leaves this unit: the text falls back instead.
    throw QEN_EIndexOutOfRange("The message asks for more values than it has");
  }

 private:
  const QEN_TArray* mArray = nullptr;
  const QEN_TAny* mSingle = nullptr;
};

int StarValue(const QEN_TAny& element) {
  long long value;
  try {
    value = element.AsInt64();
  } catch (const QEN_EException&) {
    value = static_cast<long long>(element.AsUInt64());
  }
  if (value > kMaxFieldWidth) return static_cast<int>(kMaxFieldWidth);
  if (value < -kMaxFieldWidth) return static_cast<int>(-kMaxFieldWidth);
  return static_cast<int>(value);
}

QEN_TString TextOf(const QEN_TAny& element) {
  if (const QEN_TString* text = static_cast<const QEN_TString*>(element.DynamicCast("QEN_TString")))
    return WithoutFinalLineBreak(*text);
  if (const QEN_TURL* url = static_cast<const QEN_TURL*>(element.DynamicCast("QEN_TURL")))
    return WithoutFinalLineBreak(url->AsString());
  throw QEN_EAnyConversion("A text conversion of the message needs a string or a URL");
}

// The piece with its wide text conversion ("%S", "%ls") made "%s". Only
// the conversion's own length letters go; the literal text stays.
std::string NarrowConversion(std::string piece) {
  const std::size_t percent = piece.rfind('%');
  piece.back() = 's';
  for (std::size_t i = piece.size() - 1; i-- > percent;)
    if (piece[i] == 'l') piece.erase(i, 1);
  return piece;
}

template <class Value>
QEN_TString FormatPiece(const char* piece, const int* stars, int starCount, Value value) {
  switch (starCount) {
    case 0:
      return QEN_TString::Format(piece, value);
    case 1:
      return QEN_TString::Format(piece, stars[0], value);
    default:
      return QEN_TString::Format(piece, stars[0], stars[1], value);
  }
}

// Fills the message in from its values, one conversion at a time, each
// formatted by the C library with a value of the kind its letter asks for.
QEN_TString FormatMessage(const QEN_TString& message, const QEN_TAny& data) {
  const std::string format = message.c_str();
  const ArgumentList arguments(data);
  QEN_TString out;
  std::size_t position = 0;
  unsigned index = 0;
  while (position < format.size()) {
    const std::size_t percent = format.find('%', position);
    if (percent == std::string::npos || percent + 1 == format.size()) {
      out += format.substr(position).c_str();
      break;
    }
    if (format[percent + 1] == '%') {
      out += format.substr(position, percent + 1 - position).c_str();
      position = percent + 2;
      continue;
    }
    const std::size_t conversionAt = format.find_first_of(kConversions, percent + 1);
    int starCount = 0;
    bool wide = false;
    if (conversionAt == std::string::npos || format[conversionAt] == 'n' ||
        format[conversionAt] == 'p' ||
        !IsSafeConversion(format.substr(percent + 1, conversionAt - percent - 1), &starCount,
                             &wide)) {
      out += format.substr(position).c_str();
      break;
    }
    const std::string piece = format.substr(position, conversionAt + 1 - position);
    position = conversionAt + 1;

    int stars[2] = {0, 0};
    for (int i = 0; i < starCount; ++i) stars[i] = StarValue(arguments.At(index + i));
    const QEN_TAny& element = arguments.At(index + starCount);
    const char conversion = format[conversionAt];
    switch (conversion) {
      case 'e':
      case 'E':
      case 'f':
      case 'g':
      case 'G':
        if (wide) {
          out += FormatPiece(piece.c_str(), stars, starCount,
                             static_cast<long double>(element.AsDouble()));
        } else {
          out += FormatPiece(piece.c_str(), stars, starCount, element.AsDouble());
        }
        break;
      case 's':
      case 'S': {
        // Wide text would pass through the C library's locale, which drops
        // what the "C" locale can't encode; the 8-bit form is the same text
        // in UTF-8, so wide conversions are made narrow ones.
        const QEN_TString text = TextOf(element);
        const std::string narrow = conversion == 'S' || wide ? NarrowConversion(piece) : piece;
        out += FormatPiece(narrow.c_str(), stars, starCount, text.c_str());
        break;
      }
      default: {
        // The signed value, or the unsigned one where it doesn't fit, with
        // the width that the length modifier asks for.
        bool isSigned = true;
        long long signedValue = 0;
        unsigned long long unsignedValue = 0;
        try {
          signedValue = element.AsInt64();
        } catch (const QEN_EException&) {
          unsignedValue = element.AsUInt64();
          isSigned = false;
        }
        const bool integerWide = wide && conversion != 'c' && conversion != 'C';
        if (isSigned && integerWide) {
          out += FormatPiece(piece.c_str(), stars, starCount, signedValue);
        } else if (isSigned) {
          out += FormatPiece(piece.c_str(), stars, starCount, static_cast<int>(signedValue));
        } else if (integerWide) {
          out += FormatPiece(piece.c_str(), stars, starCount, unsignedValue);
        } else {
          out += FormatPiece(piece.c_str(), stars, starCount, static_cast<unsigned>(unsignedValue));
        }
        break;
      }
    }
    index += 1 + starCount;
  }
  return out;
}

QEN_TString FallbackText(const QEN_EException& exception) {
  try {
    return VYR_Any2String(QEN_TAny(static_cast<const QEN_IPackable&>(exception)));
  } catch (...) {
    return QEN_TString("Exception of class ") + exception.ClassName();
  }
}

QEN_TString ExceptionText(const QEN_EException& exception, bool noNested, unsigned indent,
                          unsigned depth) {
  try {
    static const QEN_TString kLineBreak("\n");
    QEN_TString result;
    const QEN_TAny& data = exception.QEN_Data();
    const QEN_TString className(exception.ClassName());
    QEN_TString message = exception.QEN_Message();
    bool hasData = !data.IsNothing();

    if (!noNested && hasData && data.HasSuperclass("QEN_EException")) {
      const QEN_EException* inner =
          static_cast<const QEN_EException*>(data.DynamicCast("QEN_EException"));
      if (inner != nullptr && depth < kMaxNesting) {
        QEN_TString text = ExceptionText(*inner, false, indent, depth + 1);
        if (indent != 0 && text.Find('\n') >= 0)
          text = text.ReplaceChars(kLineBreak, kLineBreak + QEN_TString(std::string(indent, ' ')));
        result += text;
        if (!result.Empty() && result[result.Length() - 1] != u'\n') result += kLineBreak;
      }
      hasData = false;
    }

    if (!hasData) {
      result += "Exception of class ";
      result += className;
      if (message.CompareWith(className, false) != 0) {
        result += " with message \"";
        result += WithoutFinalLineBreak(message);
        result += '"';
      }
    } else {
      result += FormatMessage(message, data);
    }
    return result;
  } catch (...) {
    return FallbackText(exception);
  }
}

}  // namespace

QEN_TString VYR_Exception2String(const QEN_EException& exception, bool noNested, unsigned indent) {
  return ExceptionText(exception, noNested, indent, 0);
}

QEN_TString VYR_Any2String(const QEN_TAny& any) {
  std::ostringstream out;
  any.PrintOn(out);
  // The text ends at its first zero byte, as the string constructor reads it.
  return QEN_TString(out.str().c_str());
}
