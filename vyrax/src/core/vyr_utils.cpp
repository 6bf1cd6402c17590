// Enumeration and exception texts, embedded-file URLs, ink names.
#include "core/vyr_version_stamp.h"

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

const char kConversions[] = "cCdiouxXeEfFgGaAnpsS";

// The size of value a conversion takes, from its length letters: the C
// forms, and the explicit forms that messages from older modules use
// ("I64", "I32", and "I" alone for a pointer-sized number).
enum class Length { kDefault, kChar, kShort, k32, k64 };

// One conversion: what stands between '%' and its letter, taken apart.
struct Conversion {
  std::string flags;
  int width = -1;  // -1: none
  bool widthFromData = false;
  int precision = -1;  // -1: none
  bool precisionFromData = false;
  Length length = Length::kDefault;
  char letter = 0;
};

bool ReadNumber(const std::string& text, std::size_t& at, int* value) {
  long number = 0;
  while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
    number = number * 10 + (text[at++] - '0');
    if (number > kMaxFieldWidth) return false;
  }
  *value = static_cast<int>(number);
  return true;
}

Length ReadLength(const std::string& text, std::size_t& at) {
  const std::string rest = text.substr(at);
  static const struct {
    const char* letters;
    Length length;
  } kLengths[] = {{"I64", Length::k64}, {"I32", Length::k32},  {"hh", Length::kChar},
                  {"ll", Length::k64},  {"h", Length::kShort}, {"l", Length::k64},
                  {"L", Length::k64},   {"q", Length::k64},    {"j", Length::k64},
                  {"z", Length::k64},   {"t", Length::k64},    {"I", Length::k64}};
  for (const auto& entry : kLengths) {
    if (rest.compare(0, std::strlen(entry.letters), entry.letters) == 0) {
      at += std::strlen(entry.letters);
      return entry.length;
    }
  }
  return Length::kDefault;
}

// Takes apart what stands between '%' and the letter: flags, width,
// precision, length. Anything else (a '$' position, a second '%', a letter,
// a width beyond sense) would make the C library read arguments that aren't
// there, so such a conversion is copied unchanged like %n.
bool ParseConversion(const std::string& text, char letter, Conversion* out) {
  std::size_t at = 0;
  while (at < text.size() && std::strchr("-+ #0'", text[at]) != nullptr) out->flags += text[at++];
  if (at < text.size() && text[at] == '*') {
    out->widthFromData = true;
    ++at;
  } else if (at < text.size() && text[at] >= '1' && text[at] <= '9') {
    if (!ReadNumber(text, at, &out->width)) return false;
  }
  if (at < text.size() && text[at] == '.') {
    ++at;
    if (at < text.size() && text[at] == '*') {
      out->precisionFromData = true;
      ++at;
    } else if (!ReadNumber(text, at, &out->precision)) {
      return false;
    }
  }
  // "l" before a character or a text makes it the wide form; before a
  // floating conversion it says nothing.
  const bool wide = text.compare(at, std::string::npos, "l") == 0;
  out->length = ReadLength(text, at);
  out->letter = letter;
  if (wide && letter == 'c') out->letter = 'C';
  if (wide && letter == 's') out->letter = 'S';
  return at == text.size();
}

// The conversion in its C form, with the numbers from the data put in and
// the length letters that match the value passed.
std::string CForm(const Conversion& c, const char* length, char letter) {
  std::string form = "%" + c.flags;
  if (c.width >= 0) form += std::to_string(c.width);
  if (c.precision >= 0) form += "." + std::to_string(c.precision);
  form += length;
  form += letter;
  return form;
}

// A code point as UTF-8; what is no character reads as U+FFFD.
std::string Utf8Of(unsigned long long code) {
  if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = 0xFFFD;
  const wchar_t wide = static_cast<wchar_t>(code);
  return QEN_TString(&wide, 1).Utf8();
}

// A text conversion done here, in characters rather than bytes: the
// precision keeps that many characters, the width pads to that many.
std::string PadText(const std::string& utf8, const Conversion& c) {
  std::string text;
  int characters = 0;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const bool starts = (static_cast<unsigned char>(utf8[i]) & 0xC0) != 0x80;
    if (starts) {
      if (c.precision >= 0 && characters == c.precision) break;
      ++characters;
    }
    text += utf8[i];
  }
  if (c.width > characters) {
    const std::string padding(static_cast<std::size_t>(c.width - characters), ' ');
    text = c.flags.find('-') != std::string::npos ? text + padding : padding + text;
  }
  return text;
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

// A number from the data, and the C library's text of it for a conversion
// of integers: the value is passed at the size the length letters name,
// signed unless it only fits unsigned.
std::string IntegerText(const Conversion& c, const QEN_TAny& element) {
  bool isSigned = true;
  long long signedValue = 0;
  unsigned long long unsignedValue = 0;
  try {
    signedValue = element.AsInt64();
  } catch (const QEN_EException&) {
    unsignedValue = element.AsUInt64();
    isSigned = false;
  }
  const char letter = c.letter;
  switch (c.length) {
    case Length::k64:
      return isSigned ? QEN_TString::Format(CForm(c, "ll", letter).c_str(), signedValue).Utf8()
                      : QEN_TString::Format(CForm(c, "ll", letter).c_str(), unsignedValue).Utf8();
    case Length::kShort:
    case Length::kChar: {
      const char* length = c.length == Length::kShort ? "h" : "hh";
      return isSigned ? QEN_TString::Format(CForm(c, length, letter).c_str(),
                                            static_cast<int>(signedValue))
                            .Utf8()
                      : QEN_TString::Format(CForm(c, length, letter).c_str(),
                                            static_cast<unsigned>(unsignedValue))
                            .Utf8();
    }
    default:
      return isSigned
                 ? QEN_TString::Format(CForm(c, "", letter).c_str(), static_cast<int>(signedValue))
                       .Utf8()
                 : QEN_TString::Format(CForm(c, "", letter).c_str(),
                                       static_cast<unsigned>(unsignedValue))
                       .Utf8();
  }
}

// The text of one conversion with its value.
std::string ConversionText(const Conversion& c, const QEN_TAny& element) {
  switch (c.letter) {
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      // Every floating conversion takes a double ("l" says nothing more,
      // and "L" is read as the same double).
      return QEN_TString::Format(CForm(c, "", c.letter).c_str(), element.AsDouble()).Utf8();
    case 's':
    case 'S':
      // Texts are UTF-8 whatever the letter; the C library's wide forms
      // would pass through the locale, which drops what it can't encode.
      return PadText(TextOf(element).Utf8(), c);
    case 'c':
    case 'C': {
      // A character as UTF-8: any code point for the wide forms ("%C",
      // "%lc"), a byte read as Latin-1 for "%c".
      const long long value = element.AsInt64();
      const unsigned long long code =
          c.letter == 'c' ? static_cast<unsigned char>(value)
                          : (value < 0 ? 0xFFFD : static_cast<unsigned long long>(value));
      Conversion asText = c;
      asText.precision = -1;
      return PadText(Utf8Of(code), asText);
    }
    default:
      return IntegerText(c, element);
  }
}

// Fills the message in from its values, one conversion at a time, each
// formatted by the C library with a value of the kind its letter asks for.
QEN_TString FormatMessage(const QEN_TString& message, const QEN_TAny& data) {
  const std::string format = message.c_str();
  const ArgumentList arguments(data);
  std::string out;
  std::size_t position = 0;
  unsigned index = 0;
  while (position < format.size()) {
    const std::size_t percent = format.find('%', position);
    if (percent == std::string::npos || percent + 1 == format.size()) {
      out += format.substr(position);
      break;
    }
    if (format[percent + 1] == '%') {
      out += format.substr(position, percent + 1 - position);
      position = percent + 2;
      continue;
    }
    const std::size_t letterAt = format.find_first_of(kConversions, percent + 1);
    Conversion c;
    if (letterAt == std::string::npos || format[letterAt] == 'n' || format[letterAt] == 'p' ||
        !ParseConversion(format.substr(percent + 1, letterAt - percent - 1), format[letterAt],
                         &c)) {
      out += format.substr(position);
      break;
    }
    out += format.substr(position, percent - position);
    position = letterAt + 1;

    if (c.widthFromData) {
      c.width = StarValue(arguments.At(index++));
      if (c.width < 0) {  // a negative width from the data means "left-justified"
        c.flags += '-';
        c.width = -c.width;
      }
    }
    if (c.precisionFromData) {
      c.precision = StarValue(arguments.At(index++));
      if (c.precision < 0) c.precision = -1;  // a negative precision is none
    }
    out += ConversionText(c, arguments.At(index++));
  }
  return QEN_TString(out);
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
