// The printf interpreter of exception messages: a message's conversions
// filled in from its data, one at a time.
#include "core/vyr_format.h"

#include <qen/qen_any.h>
#include <qen/qen_containers.h>
#include <qen/qen_exception.h>
#include <qen/qen_url.h>
#include <qen/qen_utf8.h>

#include <cstddef>
#include <cstring>
#include <string>

using vyr::WithoutFinalLineBreak;

namespace {

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
  std::string utf8;
  QEN_AppendUtf8(utf8, static_cast<char32_t>(code));
  return utf8;
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
  const char letter = c.letter;
  if (std::strchr("eEfFgGaA", letter) != nullptr) {
    // Every floating conversion takes a double ("l" says nothing more, and
    // "L" is read as the same double).
    return QEN_TString::Format(CForm(c, "", letter).c_str(), element.AsDouble()).Utf8();
  }
  if (letter == 's' || letter == 'S') {
    // Texts are UTF-8 whatever the letter; the C library's wide forms would
    // pass through the locale, which drops what it can't encode.
    return PadText(TextOf(element).Utf8(), c);
  }
  if (letter == 'c' || letter == 'C') {
    // A character as UTF-8: any code point for the wide forms ("%C",
    // "%lc"), a byte read as Latin-1 for "%c".
    const long long value = element.AsInt64();
    const unsigned long long code =
        letter == 'c' ? static_cast<unsigned char>(value)
                      : (value < 0 ? 0xFFFD : static_cast<unsigned long long>(value));
    Conversion asText = c;
    asText.precision = -1;
    return PadText(Utf8Of(code), asText);
  }
  return IntegerText(c, element);
}

}  // namespace

QEN_TString vyr::WithoutFinalLineBreak(QEN_TString text) {
  if (!text.Empty() && text[text.Length() - 1] == u'\n') text.Truncate(text.Length() - 1);
  return text;
}

QEN_TString vyr::FormatMessage(const QEN_TString& message, const QEN_TAny& data) {
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
