// QEN_TAny: the text form and the print.
//
// Text form, one token or one framed object:
//   nil               nothing
//   true  false       bool
//   5                 unsigned 32 (no suffix)
//   5u8  5u16  5u64   unsigned 8, 16, 64 (a "u32" suffix is read too)
//   -5i32  -5i64      signed 32, 64 (an unsuffixed negative reads as i32)
//   1.5  2.0  1e+300  double: always a '.', an exponent, or inf / -inf / nan
//   "text"            a QEN_TString, quoted as the text stream quotes strings
//   QEN_TDict { ... } any other object in the text stream's framed form
// Keywords are lower case; an object starts with its class name, which in
// this system starts with an upper-case letter. Integers are decimal, with no
// leading '+'; a token that doesn't fit its kind is a syntax error.
// Printed (PrintOn), numbers are plain decimal without suffix, a string is its
// text, another object prints itself, and nothing is "<nothing>".
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <ostream>
#include <string>

#include "qen/qen_any.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_any_parts.h"

std::string qen_any::DoubleText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char buffer[64];
  std::to_chars_result r = std::to_chars(buffer, buffer + sizeof buffer, value);
  std::string text(buffer, r.ptr);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

[[noreturn]] void qen_any::StreamFailure(const std::string& text) {
  QEN_THROW(QEN_EStreamException, QEN_TString(text.c_str()));
  std::abort();  // QEN_Throw never comes back
}

using qen_any::DoubleText;
using qen_any::ReadableDeleter;
using qen_any::StreamFailure;

// ---------------------------------------------------------------------------
// Text form

bool QEN_TAny::WriteTo(QEN_THumanReadableStream& out) const {
  std::string token;
  switch (mKind) {
    case kNothing:
      token = "nil";
      break;
    case kBool:
      token = mBool ? "true" : "false";
      break;
    case kUInt8:
      token = std::to_string(mUInt8) + "u8";
      break;
    case kUInt16:
      token = std::to_string(mUInt16) + "u16";
      break;
    case kUInt32:
      token = std::to_string(mUInt32);
      break;
    case kUInt64:
      token = std::to_string(mUInt64) + "u64";
      break;
    case kInt32:
      token = std::to_string(mInt32) + "i32";
      break;
    case kInt64:
      token = std::to_string(mInt64) + "i64";
      break;
    case kDouble:
      token = DoubleText(mDouble);
      break;
    case kPointer:
    case kFunction:
      StreamFailure("QEN_TAny: a pointer has no text form");
    case kObject: {
      // A plain string is a bare quoted token; anything else, subclasses of
      // the string included, names its class.
      if (std::strcmp(mObject->ClassName(), "QEN_TString") == 0) {
        out << *static_cast<const QEN_TString*>(mObject->DynamicCast("QEN_TString"));
        return false;
      }
      const QEN_IHumanReadable* readable =
          static_cast<const QEN_IHumanReadable*>(mObject->DynamicCast("QEN_IHumanReadable"));
      if (readable == nullptr)
        StreamFailure(std::string("QEN_TAny: an object of class ") + mObject->ClassName() +
                      " has no text form");
      out.WriteObject(*readable);
      return false;
    }
  }
  out << token.c_str();
  return false;
}

namespace {

const QEN_TString& NumberCharacters() {
  static const QEN_TString* const set = new QEN_TString("0123456789+-.eEuinfa");
  return *set;
}

const QEN_TString& LowerCaseLetters() {
  static const QEN_TString* const set = new QEN_TString("abcdefghijklmnopqrstuvwxyz");
  return *set;
}

bool IsDigits(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  return true;
}

// Parses one number token as the writer forms it; a token that doesn't fit is
// a syntax error at the token's end.
QEN_TAny ParseNumber(const std::string& text, QEN_THumanReadableStream& in) {
  // Messages quote the token; a hostile one is cut short there.
  const std::string token = text.size() <= 40 ? text : text.substr(0, 40) + "...";
  if (text.size() > 400) in.SyntaxError(("number '" + token + "' is too long").c_str());
  std::size_t start = 0;
  bool negative = false;
  if (!text.empty() && text[0] == '-') {
    negative = true;
    start = 1;
  }
  std::string body = text.substr(start);
  if (body == "inf")
    return QEN_TAny(negative ? -std::numeric_limits<double>::infinity()
                             : std::numeric_limits<double>::infinity());
  if (body == "nan") return QEN_TAny(std::numeric_limits<double>::quiet_NaN());

  if (body.find_first_of(".eE") != std::string::npos) {
    double value = 0;
    const char* first = body.data();
    const char* last = first + body.size();
    std::from_chars_result r = std::from_chars(first, last, value);
    // Both ends must be plain digits or a point, so "e5" and "1e" are refused.
    if (r.ec == std::errc::invalid_argument || r.ptr != last || body[0] == 'e' || body[0] == 'E')
      in.SyntaxError(("malformed number '" + token + "'").c_str());
    if (r.ec == std::errc::result_out_of_range)
      in.SyntaxError(("number '" + token + "' is out of the range of a double").c_str());
    return QEN_TAny(negative ? -value : value);
  }

  std::size_t digits = 0;
  while (digits < body.size() && body[digits] >= '0' && body[digits] <= '9') ++digits;
  std::string number = body.substr(0, digits);
  std::string suffix = body.substr(digits);
  if (!IsDigits(number)) in.SyntaxError(("malformed number '" + token + "'").c_str());
  unsigned long long magnitude = 0;
  std::from_chars_result r =
      std::from_chars(number.data(), number.data() + number.size(), magnitude);
  if (r.ec != std::errc()) in.SyntaxError(("number '" + token + "' is too large").c_str());

  auto unsignedOf = [&](unsigned long long max, const char* what) {
    if (negative && magnitude != 0)
      in.SyntaxError(("number '" + token + "' is negative but " + what + " is unsigned").c_str());
    if (magnitude > max)
      in.SyntaxError(("number '" + token + "' is too large for " + what).c_str());
    return magnitude;
  };
  auto signedOf = [&](unsigned long long maxPositive, const char* what) -> long long {
    unsigned long long limit = negative ? maxPositive + 1 : maxPositive;
    if (magnitude > limit)
      in.SyntaxError(("number '" + token + "' is out of the range of " + what).c_str());
    // Negated in unsigned arithmetic so that the smallest value stays exact.
    return negative ? static_cast<long long>(0ull - magnitude) : static_cast<long long>(magnitude);
  };

  if (suffix.empty()) {
    if (negative) return QEN_TAny(static_cast<int>(signedOf(0x7FFFFFFFull, "a signed 32")));
    return QEN_TAny(static_cast<unsigned>(unsignedOf(0xFFFFFFFFull, "an unsigned 32")));
  }
  if (suffix == "u8")
    return QEN_TAny(static_cast<unsigned char>(unsignedOf(0xFFull, "an unsigned 8")));
  if (suffix == "u16")
    return QEN_TAny(static_cast<unsigned short>(unsignedOf(0xFFFFull, "an unsigned 16")));
  if (suffix == "u32")
    return QEN_TAny(static_cast<unsigned>(unsignedOf(0xFFFFFFFFull, "an unsigned 32")));
  if (suffix == "u64") return QEN_TAny(unsignedOf(~0ull, "an unsigned 64"));
  if (suffix == "i32") return QEN_TAny(static_cast<int>(signedOf(0x7FFFFFFFull, "a signed 32")));
  if (suffix == "i64")
    return QEN_TAny(static_cast<long long>(signedOf(0x7FFFFFFFFFFFFFFFull, "a signed 64")));
  in.SyntaxError(("unknown number suffix '" + suffix + "' in '" + token + "'").c_str());
}

}  // namespace

bool QEN_TAny::ReadFrom(QEN_THumanReadableStream& in) {
  in.SkipWhiteSpace();
  QEN_TUniChar c = 0;
  if (!in.PeekChar(c)) in.SyntaxError("a value expected, found the end of the text");
  if (c == u'"') {
    std::unique_ptr<QEN_TString> text(new QEN_TString);
    in.ReadQuoted(*text);
    *this = static_cast<QEN_IPackable*>(text.release());
    return false;
  }
  // As everywhere in the text form, a number has no leading '+'.
  if ((c >= u'0' && c <= u'9') || c == u'-' || c == u'.') {
    QEN_TString token;
    in.Skip(token, NumberCharacters());
    *this = ParseNumber(token.c_str(), in);
    return false;
  }
  if (c >= u'a' && c <= u'z') {
    QEN_TString word;
    in.Skip(word, LowerCaseLetters());
    if (word == "nil") {
      Clear();
    } else if (word == "true" || word == "false") {
      *this = word == "true";
    } else if (word == "inf") {
      *this = std::numeric_limits<double>::infinity();
    } else if (word == "nan") {
      *this = std::numeric_limits<double>::quiet_NaN();
    } else {
      in.SyntaxError((std::string("unknown word '") + word.c_str() +
                      "': a value is nil, true, false, a number, a quoted text or an object")
                         .c_str());
    }
    return false;
  }
  if ((c >= u'A' && c <= u'Z') || c == u'_') {
    std::unique_ptr<QEN_IHumanReadable, ReadableDeleter> object(in.Extract());
    if (!object) in.SyntaxError("an object expected");
    QEN_IPackable* packable = static_cast<QEN_IPackable*>(object->DynamicCast("QEN_IPackable"));
    if (packable == nullptr)
      in.SyntaxError((std::string("an object of class ") + object->ClassName() +
                      " cannot be held in a value: it is not packable")
                         .c_str());
    object.release();
    *this = packable;
    return false;
  }
  in.SyntaxError("a value expected: nil, true, false, a number, a quoted text or an object");
}

bool QEN_TAny::QEN_HRMultiLine() const {
  if (mKind != kObject) return false;
  const QEN_IHumanReadable* readable =
      static_cast<const QEN_IHumanReadable*>(mObject->DynamicCast("QEN_IHumanReadable"));
  return readable != nullptr && readable->QEN_HRMultiLine();
}

void QEN_TAny::PrintOn(std::ostream& out) const {
  switch (mKind) {
    case kNothing:
      out << "<nothing>";
      break;
    case kBool:
      out << (mBool ? "true" : "false");
      break;
    case kUInt8:
      out << static_cast<unsigned>(mUInt8);
      break;
    case kUInt16:
      out << mUInt16;
      break;
    case kUInt32:
      out << mUInt32;
      break;
    case kUInt64:
      out << mUInt64;
      break;
    case kInt32:
      out << mInt32;
      break;
    case kInt64:
      out << mInt64;
      break;
    case kDouble: {
      // The shortest exact text, without the ".0" that the text form adds.
      std::string text = DoubleText(mDouble);
      if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0)
        text.resize(text.size() - 2);
      out << text;
      break;
    }
    case kPointer:
      out << "<pointer " << mPointer << ">";
      break;
    case kFunction:
      out << "<function " << reinterpret_cast<const void*>(mFunction) << ">";
      break;
    case kObject: {
      const QEN_IPrintable* printable =
          static_cast<const QEN_IPrintable*>(mObject->DynamicCast("QEN_IPrintable"));
      if (printable != nullptr)
        printable->PrintOn(out);
      else
        out << "<" << mObject->ClassName() << ">";
      break;
    }
  }
}
