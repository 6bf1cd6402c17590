// The text stream's reading half: UTF-8 bytes outside, 16-bit characters
// inside. The writing half is in qen_text_writer.cpp.
//
// Text is written by people as often as by programs (configuration files),
// so reading is forgiving where it costs nothing (white space, comments) and
// strict everywhere else: a text that doesn't fit is a QEN_ESyntaxError that
// names the line and column. Invalid UTF-8 reads as U+FFFD rather than
// failing, so a stray byte in a comment does no harm. docs/formats.md
// describes tokens, quoting, comments, numbers and the framed object form.
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <type_traits>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_text_fields.h"
#include "qen_utf8_lead.h"

const QEN_TString QEN_THumanReadableStream::sWhiteSpace(" \t\r\n");
const unsigned QEN_THumanReadableStream::sMaxDepth = 64;

namespace {

constexpr QEN_TUniChar kReplacement = 0xFFFD;
// Longer tokens than this are not numbers anyone writes.
constexpr std::size_t kMaxNumberLength = 400;
constexpr std::size_t kMaxClassNameLength = 255;

bool IsDigit(QEN_TUniChar c) { return c >= '0' && c <= '9'; }
bool IsLetter(QEN_TUniChar c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool IsNameStart(QEN_TUniChar c) { return IsLetter(c) || c == '_'; }
bool IsNameChar(QEN_TUniChar c) { return IsNameStart(c) || IsDigit(c); }
bool IsHighSurrogate(QEN_TUniChar c) { return c >= 0xD800 && c <= 0xDBFF; }

bool InSet(const QEN_TString& set, QEN_TUniChar c) {
  return set.Chars().find(c) != std::u16string::npos;
}

// A character as it appears in a message: 'x' when printable, U+XXXX else.
std::string Describe(QEN_TUniChar c) {
  if (c >= 0x21 && c < 0x7F && c != '\'') return std::string("'") + static_cast<char>(c) + "'";
  char text[16];
  std::snprintf(text, sizeof text, "U+%04X", static_cast<unsigned>(c));
  return text;
}

std::string Narrow(const std::u16string& text) { return QEN_TString(text).c_str(); }

}  // namespace

// Helpers with access to the stream's state.
class QEN_THumanReadableStream::Impl {
 public:
  // One 16-bit unit from the bytes, or false at their end.
  static bool Decode(QEN_THumanReadableStream& s, QEN_TUniChar& unit) {
    if (s.mHaveLow) {
      s.mHaveLow = false;
      unit = s.mLow;
      return true;
    }
    unsigned char lead;
    if (!s.NextByte(lead)) return false;
    if (lead < 0x80) {
      unit = lead;
      return true;
    }
    qen_detail::Utf8Lead head;
    if (!qen_detail::ReadUtf8Lead(lead, head)) {
      unit = kReplacement;
      return true;
    }
    char32_t codePoint = head.bits;
    for (unsigned i = 0; i < head.follow; ++i) {
      unsigned char next;
      if (!s.NextByte(next)) {
        unit = kReplacement;
        return true;
      }
      // A byte that doesn't fit starts the next character.
      if (!head.Fits(i, next)) {
        s.mPushedByte = next;
        unit = kReplacement;
        return true;
      }
      codePoint = (codePoint << 6) | (next & 0x3F);
    }
    if (codePoint >= 0x10000) {
      codePoint -= 0x10000;
      unit = static_cast<QEN_TUniChar>(0xD800 + (codePoint >> 10));
      s.mLow = static_cast<QEN_TUniChar>(0xDC00 + (codePoint & 0x3FF));
      s.mHaveLow = true;
    } else {
      unit = static_cast<QEN_TUniChar>(codePoint);
    }
    return true;
  }

  // Takes the next character and moves the line and column past it.
  static bool Take(QEN_THumanReadableStream& s, QEN_TUniChar& c) {
    if (s.mHavePeek) {
      s.mHavePeek = false;
      c = s.mPeek;
    } else if (!Decode(s, c)) {
      return false;
    }
    s.mLastLine = s.mLine;
    s.mLastColumn = s.mColumn;
    s.mLastChar = c;
    if (c == '\n') {
      ++s.mLine;
      s.mColumn = 1;
    } else if (!IsHighSurrogate(c)) {
      // A surrogate pair is one column.
      ++s.mColumn;
    }
    return true;
  }

  [[noreturn]] static void Fail(unsigned line, unsigned column, const std::string& what) {
    QEN_THROW(QEN_ESyntaxError, QEN_TString::Format("syntax error at line %u, column %u: %s", line,
                                                    column, what.c_str()));
    std::abort();  // QEN_Throw doesn't come back
  }

  // A failure at the place of the next character, as at the end of the text.
  [[noreturn]] static void FailAhead(QEN_THumanReadableStream& s, const std::string& what) {
    Fail(s.mLine, s.mColumn, what);
  }

  // A failure at the character just read, or ahead when there is none.
  [[noreturn]] static void FailAtOffending(QEN_THumanReadableStream& s, const std::string& what) {
    QEN_TUniChar c;
    if (Take(s, c)) Fail(s.mLastLine, s.mLastColumn, what + ", found " + Describe(c));
    FailAhead(s, what + ", found the end of the text");
  }

  static void SkipSet(QEN_THumanReadableStream& s, const QEN_TString& set, std::u16string* out) {
    bool comments = InSet(set, '\n');
    QEN_TUniChar c;
    while (s.PeekChar(c)) {
      if (InSet(set, c)) {
        Take(s, c);
        if (out != nullptr) *out += c;
      } else if (comments && c == '#') {
        // A comment runs to the line break, which the set then takes.
        while (s.PeekChar(c) && c != '\n') Take(s, c);
      } else {
        break;
      }
    }
  }

  static std::string ReadName(QEN_THumanReadableStream& s) {
    std::u16string name;
    QEN_TUniChar c;
    if (!s.PeekChar(c) || !IsNameStart(c)) FailAtOffending(s, "expected a class name");
    while (s.PeekChar(c) && IsNameChar(c)) {
      if (name.size() == kMaxClassNameLength) FailAhead(s, "class name too long");
      Take(s, c);
      name += c;
    }
    return Narrow(name);
  }

  // The characters of a number, after white space; `line` and `column` tell
  // where it starts. `real` admits the characters of a double (point,
  // exponent, inf, nan).
  static std::string ReadNumberToken(QEN_THumanReadableStream& s, bool real, const char* kind,
                                     unsigned& line, unsigned& column) {
    s.SkipWhiteSpace();
    line = s.mLine;
    column = s.mColumn;
    std::string token;
    QEN_TUniChar c;
    while (s.PeekChar(c)) {
      bool sign = c == '-' || c == '+';
      bool fits = IsDigit(c) || (sign && token.empty()) ||
                  (real && (c == '.' || IsLetter(c) ||
                            (sign && (token.back() == 'e' || token.back() == 'E'))));
      if (!fits) break;
      if (token.size() == kMaxNumberLength) Fail(line, column, std::string(kind) + " too long");
      Take(s, c);
      token += static_cast<char>(c);
    }
    if (token.empty()) FailAtOffending(s, std::string("expected ") + kind);
    return token;
  }

  template <class T>
  static T ReadInteger(QEN_THumanReadableStream& s, const char* kind) {
    unsigned line, column;
    std::string token = ReadNumberToken(s, false, kind, line, column);
    T value{};
    const char* end = token.data() + token.size();
    auto result = std::from_chars(token.data(), end, value);
    bool negative = token.size() > 1 && token[0] == '-' && IsDigit(token[1]);
    if (result.ec == std::errc::result_out_of_range || (negative && !std::is_signed<T>::value))
      Fail(line, column, "number " + token + " is out of range for " + kind);
    if (result.ec != std::errc() || result.ptr != end)
      Fail(line, column, std::string("expected ") + kind + ", found \"" + token + "\"");
    return value;
  }

  static double ReadDouble(QEN_THumanReadableStream& s) {
    unsigned line, column;
    std::string token = ReadNumberToken(s, true, "a number", line, column);
    double value = 0;
    const char* end = token.data() + token.size();
    auto result = std::from_chars(token.data(), end, value);
    if (result.ec == std::errc::result_out_of_range)
      Fail(line, column, "number " + token + " is out of range for a double");
    if (result.ec != std::errc() || result.ptr != end)
      Fail(line, column, "expected a number, found \"" + token + "\"");
    return value;
  }
};

// ---------------------------------------------------------------------------
// Reading

bool QEN_THumanReadableStream::NextByte(unsigned char& b) {
  if (mPushedByte >= 0) {
    b = static_cast<unsigned char>(mPushedByte);
    mPushedByte = -1;
    return true;
  }
  // One byte at a time: what this stream doesn't read stays in the byte
  // stream for whoever reads on.
  return mStream.Read(&b, 1) == 1;
}

const QEN_TUniChar* QEN_THumanReadableStream::ReadChar(QEN_TUniChar& c) {
  if (!Impl::Take(*this, c)) Impl::FailAhead(*this, "unexpected end of text");
  return &c;
}

bool QEN_THumanReadableStream::PeekChar(QEN_TUniChar& c) {
  if (!mHavePeek) {
    if (!Impl::Decode(*this, mPeek)) return false;
    mHavePeek = true;
  }
  c = mPeek;
  return true;
}

bool QEN_THumanReadableStream::AtEnd() {
  QEN_TUniChar c;
  return !PeekChar(c);
}

QEN_THumanReadableStream& QEN_THumanReadableStream::Skip(QEN_TString& out, const QEN_TString& set) {
  std::u16string skipped;
  Impl::SkipSet(*this, set, &skipped);
  out = QEN_TString(std::move(skipped));
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::SkipWhiteSpace() {
  Impl::SkipSet(*this, sWhiteSpace, nullptr);
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::ReadUntil(QEN_TString& out,
                                                              const QEN_TString& set) {
  std::u16string word;
  QEN_TUniChar c;
  while (PeekChar(c) && !InSet(set, c)) {
    Impl::Take(*this, c);
    word += c;
  }
  out = QEN_TString(std::move(word));
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::ReadQuoted(QEN_TString& out) {
  SkipWhiteSpace();
  QEN_TUniChar c;
  if (!PeekChar(c) || c != '"') Impl::FailAtOffending(*this, "expected '\"'");
  Impl::Take(*this, c);
  unsigned line = mLastLine, column = mLastColumn;
  std::u16string text;
  for (;;) {
    if (!Impl::Take(*this, c))
      Impl::Fail(line, column, "quoted text not closed before the end of the text");
    if (c == '"') break;
    if (c == '\n' || c == '\r') SyntaxError("line break inside quoted text (write \\n)");
    if (c != '\\') {
      text += c;
      continue;
    }
    ReadChar(c);
    switch (c) {
      case '"':
      case '\\':
        text += c;
        break;
      case 'n':
        text += u'\n';
        break;
      case 'r':
        text += u'\r';
        break;
      case 't':
        text += u'\t';
        break;
      case 'u': {
        unsigned value = 0;
        for (int i = 0; i < 4; ++i) {
          ReadChar(c);
          unsigned digit;
          if (IsDigit(c))
            digit = c - '0';
          else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
          else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
          else
            SyntaxError("expected four hex digits after \\u");
          value = value * 16 + digit;
        }
        text += static_cast<QEN_TUniChar>(value);
        break;
      }
      default:
        SyntaxError("unknown escape in quoted text");
    }
  }
  out = QEN_TString(std::move(text));
  return *this;
}

// Runs an object's ReadFrom. Whatever else fails inside (a value of the
// wrong kind, a check of the class itself, the standard library) becomes a
// syntax error with its place: a reader of outside text has one failure type
// to catch.
static void ReadGuarded(QEN_IHumanReadable& object, QEN_THumanReadableStream& in) {
  std::string why;
  try {
    object.ReadFrom(in);
    return;
  } catch (const QEN_EStreamException&) {
    throw;
  } catch (const QEN_EException& e) {
    why = e.QEN_Message().Utf8();
  } catch (const std::exception& e) {
    why = e.what();
  }
  in.SyntaxError(("cannot read " + std::string(object.ClassObject().name) + ": " + why).c_str());
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator>>(QEN_IHumanReadable& object) {
  qen_text::Nesting nesting(*this);
  ReadGuarded(object, *this);
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator>>(double* value) {
  *value = Impl::ReadDouble(*this);
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator>>(unsigned* value) {
  *value = Impl::ReadInteger<unsigned>(*this, "an unsigned 32");
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator>>(int* value) {
  *value = Impl::ReadInteger<int>(*this, "a signed 32");
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator>>(unsigned long long* value) {
  *value = Impl::ReadInteger<unsigned long long>(*this, "an unsigned 64");
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator>>(long long* value) {
  *value = Impl::ReadInteger<long long>(*this, "a signed 64");
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator>>(unsigned short* value) {
  *value = Impl::ReadInteger<unsigned short>(*this, "an unsigned 16");
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator>>(unsigned char* value) {
  *value = Impl::ReadInteger<unsigned char>(*this, "an unsigned 8");
  return *this;
}

void QEN_THumanReadableStream::SyntaxError(const char* what) {
  if (mLastLine == 0) Impl::FailAhead(*this, what != nullptr ? what : "unexpected text");
  std::string text =
      what != nullptr ? std::string(what) : "unexpected character " + Describe(mLastChar);
  Impl::Fail(mLastLine, mLastColumn, text);
}

void QEN_THumanReadableStream::Enter() {
  if (mDepth >= sMaxDepth)
    Impl::FailAhead(*this, "objects nested deeper than " + std::to_string(sMaxDepth));
  ++mDepth;
}

QEN_IHumanReadable* QEN_THumanReadableStream::Extract() {
  SkipWhiteSpace();
  unsigned line = mLine, column = mColumn;
  std::string name = Impl::ReadName(*this);
  const QEN_TClass* found = QEN_TClass::Find(name.c_str());
  if (found == nullptr)
    QEN_THROW(QEN_EUnknownClass, QEN_TString::Format("unknown class \"%s\" at line %u, column %u",
                                                     name.c_str(), line, column));
  if (found->isInterface || found->factory == nullptr)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("class \"%s\" at line %u, column %u has no factory", name.c_str(),
                                  line, column));
  if (!found->Implements("QEN_IHumanReadable"))
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("class \"%s\" at line %u, column %u has no text form",
                                  name.c_str(), line, column));

  QEN_TObject* made = found->factory();
  if (made == nullptr)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("out of memory building class \"%s\" at line %u, column %u",
                                  name.c_str(), line, column));
  // Deleted through its QEN_IInterface part unless it is handed out.
  std::unique_ptr<QEN_IInterface> owner(made);
  auto* object = static_cast<QEN_IHumanReadable*>(owner->DynamicCast("QEN_IHumanReadable"));
  if (object == nullptr)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("class \"%s\" at line %u, column %u has no text form",
                                  name.c_str(), line, column));
  object->QEN_ReadFrom(*this);
  owner.release();
  return object;
}

// ---------------------------------------------------------------------------
// The framed form of an object, as QEN_WriteTo writes it.

bool QEN_IHumanReadable::QEN_ReadFrom(QEN_THumanReadableStream& in) {
  // Extract has taken the class name already; a caller filling an existing
  // object may leave it in, and then it must name this object's class.
  in.SkipWhiteSpace();
  QEN_TUniChar c;
  if (in.PeekChar(c) && c != '{') {
    std::string name;
    while (in.PeekChar(c) && IsNameChar(c) && name.size() <= kMaxClassNameLength) {
      in.ReadChar(c);
      name += static_cast<char>(c);
    }
    const char* expected = ClassObject().name;
    if (name != expected) {
      std::string what = name.empty()
                             ? std::string("expected '{'")
                             : "expected class " + std::string(expected) + ", found " + name;
      if (name.empty()) in.ReadChar(c);
      in.SyntaxError(what.c_str());
    }
    in.SkipWhiteSpace();
  }
  in.ReadChar(c);
  if (c != '{') in.SyntaxError("expected '{'");
  {
    qen_text::Nesting nesting(in);
    ReadGuarded(*this, in);
  }
  in.SkipWhiteSpace();
  in.ReadChar(c);
  if (c != '}') in.SyntaxError("expected '}'");
  return false;
}
