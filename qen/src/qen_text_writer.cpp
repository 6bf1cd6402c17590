// The text stream's writing half: the bytes of tokens, numbers and quoted
// text, indentation, and the framed form of an object. The reading half is
// in qen_text_reader.cpp.
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

#include "qen/qen_stream.h"

namespace {

// Writes the shortest of 15 and 17 significant digits that reads back to the
// same bits. to_chars doesn't depend on the process's locale, as printf does.
std::string FormatDouble(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char text[64];
  for (int precision : {15, 17}) {
    auto result =
        std::to_chars(text, text + sizeof text, value, std::chars_format::general, precision);
    double back = 0;
    std::from_chars(text, result.ptr, back);
    if (precision == 17 || std::memcmp(&back, &value, sizeof value) == 0)
      return std::string(text, result.ptr);
  }
  return std::string();  // not reached
}

template <class T>
std::string FormatInteger(T value) {
  char text[32];
  auto result = std::to_chars(text, text + sizeof text, value);
  return std::string(text, result.ptr);
}

}  // namespace

QEN_THumanReadableStream::QEN_THumanReadableStream(QEN_IStream& stream) : mStream(stream) {}

QEN_THumanReadableStream::~QEN_THumanReadableStream() = default;

// ---------------------------------------------------------------------------
// Writing

void QEN_THumanReadableStream::WriteRaw(const char* text, unsigned size) {
  if (size == 0) return;
  // Indentation is written lazily, so an empty line stays empty.
  if (mAtLineStart && text[0] != '\n' && mIndent > 0) {
    static const char kBlanks[] = "                                ";
    unsigned blanks = 2 * mIndent;
    while (blanks > 0) {
      unsigned n = blanks < sizeof kBlanks - 1 ? blanks : sizeof kBlanks - 1;
      mStream.Write(kBlanks, n);
      blanks -= n;
    }
  }
  mStream.Write(text, size);
  mAtLineStart = text[size - 1] == '\n';
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator<<(const char* text) {
  if (text != nullptr) WriteRaw(text, static_cast<unsigned>(std::strlen(text)));
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator<<(char c) {
  WriteRaw(&c, 1);
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator<<(const QEN_IHumanReadable& object) {
  object.WriteTo(*this);
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::WriteObject(const QEN_IHumanReadable& object) {
  object.QEN_WriteTo(*this);
  return *this;
}

// The string knows its quoted form; ReadQuoted below is its reader.
QEN_THumanReadableStream& QEN_THumanReadableStream::WriteQuoted(const QEN_TString& text) {
  const std::string quoted = text.QuoteForText();
  WriteRaw(quoted.data(), static_cast<unsigned>(quoted.size()));
  return *this;
}

QEN_THumanReadableStream& QEN_THumanReadableStream::operator<<(double value) {
  std::string text = FormatDouble(value);
  WriteRaw(text.data(), static_cast<unsigned>(text.size()));
  return *this;
}

#define QEN_WRITE_INTEGER(T)                                                \
  QEN_THumanReadableStream& QEN_THumanReadableStream::operator<<(T value) { \
    std::string text = FormatInteger(value);                                \
    WriteRaw(text.data(), static_cast<unsigned>(text.size()));              \
    return *this;                                                           \
  }

QEN_WRITE_INTEGER(unsigned)
QEN_WRITE_INTEGER(int)
QEN_WRITE_INTEGER(unsigned long long)
QEN_WRITE_INTEGER(long long)
QEN_WRITE_INTEGER(unsigned short)
QEN_WRITE_INTEGER(unsigned char)
#undef QEN_WRITE_INTEGER

QEN_THumanReadableStream& cr(QEN_THumanReadableStream& stream) { return stream << "\n"; }

// ---------------------------------------------------------------------------
// The framed form of an object: its class name, then its text form in braces;
// one line, or a block with the content indented one level. Its reader is in
// qen_text_reader.cpp.

bool QEN_IHumanReadable::QEN_WriteTo(QEN_THumanReadableStream& out) const {
  out << ClassObject().name << " {";
  if (QEN_HRMultiLine()) {
    unsigned level = out.IndentLevel();
    out.SetIndentLevel(level + 1);
    out << cr;
    WriteTo(out);
    out.SetIndentLevel(level);
    if (!out.AtLineStart()) out << cr;
    out << "}";
  } else {
    out << " ";
    WriteTo(out);
    out << " }";
  }
  return false;
}
