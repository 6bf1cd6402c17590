// The characters of URL text; qen_url_text.h says what each piece does.
#include "qen_url_text.h"

#include <cstring>

namespace qen_url {

namespace {

int HexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

constexpr bool IsUnreserved(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}
constexpr bool IsSubDelim(unsigned char c) {
  for (char d : {'!', '$', '&', '\'', '(', ')', '*', '+', ',', ';', '='})
    if (c == static_cast<unsigned char>(d)) return true;
  return false;
}

void AppendEscaped(std::string& out, unsigned char c) {
  static const char kHex[] = "0123456789ABCDEF";
  out += '%';
  out += kHex[c >> 4];
  out += kHex[c & 0xF];
}

}  // namespace

QEN_TString LowerAscii(const std::u16string& text) {
  std::u16string out(text);
  for (char16_t& c : out) c = AsciiLower(c);
  return QEN_TString(std::move(out));
}

bool EqualIgnoringAsciiCase(const std::u16string& a, const std::u16string& b) {
  if (a.size() != b.size()) return false;
  for (Pos i = 0; i < a.size(); ++i)
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  return true;
}

// "%XX" decoding on UTF-8 bytes; '%' and hex digits are ASCII, so escapes
// and literal non-ASCII characters mix freely.
std::string DecodeBytes(const std::string& in) {
  std::string out;
  out.reserve(in.size());
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] == '%' && i + 2 < in.size()) {
      int hi = HexValue(static_cast<unsigned char>(in[i + 1]));
      int lo = HexValue(static_cast<unsigned char>(in[i + 2]));
      if (hi >= 0 && lo >= 0) {
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
        continue;
      }
    }
    out += in[i];
  }
  return out;
}

QEN_TString Decode(const std::u16string& text, Pos from, Pos to) {
  std::u16string piece(text, from, to - from);
  if (piece.find(u'%') == npos) return QEN_TString(std::move(piece));
  return QEN_TString(DecodeBytes(QEN_TString(std::move(piece)).Utf8()));
}

namespace {

constexpr bool KeptByRule(Part part, unsigned char c) {
  switch (part) {
    case kParam:
      return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
             c == '*' || c == '-' || c == '.' || c == '_';
    case kUser:
    case kHost:
      return IsUnreserved(c) || IsSubDelim(c);
    case kPassword:
      return IsUnreserved(c) || IsSubDelim(c) || c == ':';
    case kPath:
      return IsUnreserved(c) || IsSubDelim(c) || c == ':' || c == '@' || c == '/';
    case kFragment:
      return IsUnreserved(c) || IsSubDelim(c) || c == ':' || c == '@' || c == '/' || c == '?';
  }
  return false;
}

// Bit `part` of entry c: the part keeps c as it is. Made by the compiler,
// so it holds from the start, before any static constructor runs.
struct KeptTable {
  unsigned char bits[128] = {};
  constexpr KeptTable() {
    for (unsigned c = 0; c < 128; ++c)
      for (Part part : {kUser, kPassword, kHost, kPath, kParam, kFragment})
        if (KeptByRule(part, static_cast<unsigned char>(c))) bits[c] |= 1u << part;
  }
};
constexpr KeptTable kKeptTable;

}  // namespace

const unsigned char* const kKeptBits = kKeptTable.bits;

void AppendEncoded(std::string& out, const QEN_TString& text, Part part) {
  for (unsigned char c : text.Utf8()) {
    if (Keeps(part, c)) {
      out += static_cast<char>(c);
    } else {
      AppendEscaped(out, c);
    }
  }
}

// A host in brackets keeps them and its colons, so "[::1]" stays readable;
// brackets anywhere else are escaped, so the first ']' still ends it.
void AppendHost(std::string& out, const QEN_TString& host) {
  std::string bytes = host.Utf8();
  bool bracketed = bytes.size() >= 2 && bytes.front() == '[' && bytes.back() == ']';
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(bytes[i]);
    bool keep =
        Keeps(kHost, c) ||
        (bracketed && (c == ':' || (c == '[' && i == 0) || (c == ']' && i + 1 == bytes.size())));
    if (keep) {
      out += static_cast<char>(c);
    } else {
      AppendEscaped(out, c);
    }
  }
}

// The path as it stands in URL text. Without an authority, a path that starts
// with "//" would read as one, and without a protocol a ':' in the first
// segment would read as the end of one; those characters are escaped.
std::string EncodePath(const QEN_TString& path, bool hasProtocol, bool hasAuthority) {
  std::string bytes = path.Utf8();
  std::string out;
  out.reserve(bytes.size());
  std::size_t firstSlash = bytes.find('/');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(bytes[i]);
    bool keep = Keeps(kPath, c);
    if (c == '/' && i == 1 && !hasAuthority && bytes[0] == '/') keep = false;
    // A drive letter ("C:") never reads as a protocol, so its colon may stay.
    if (c == ':' && !hasProtocol && !hasAuthority && i < firstSlash && i != 1) keep = false;
    if (keep) {
      out += static_cast<char>(c);
    } else {
      AppendEscaped(out, c);
    }
  }
  return out;
}

bool IsLocalFileProtocol(const QEN_TString& protocol) {
  const std::u16string& text = protocol.Chars();
  return text == u"file" || text == u"embed";
}

// A port: up to five digits, at most 65535. An empty text is no port.
bool ReadPort(const std::u16string& text, Pos from, Pos to, unsigned& port) {
  if (to - from > 5) return false;
  unsigned value = 0;
  for (Pos i = from; i < to; ++i) {
    if (!IsAsciiDigit(text[i])) return false;
    value = value * 10 + (text[i] - '0');
  }
  if (value > 65535) return false;
  port = value;
  return true;
}

// Removes "." and ".." segments, as resolution of references does. One pass
// over the input; the output only shrinks by what it last received.
std::u16string RemoveDotSegments(const std::u16string& in) {
  std::u16string out;
  out.reserve(in.size());
  const Pos n = in.size();
  Pos i = 0;
  auto startsWith = [&](const char16_t* p) {
    Pos k = 0;
    for (; p[k] != 0; ++k)
      if (i + k >= n || in[i + k] != p[k]) return false;
    return true;
  };
  auto restIs = [&](const char16_t* p) {
    return startsWith(p) && n - i == std::char_traits<char16_t>::length(p);
  };
  auto dropLastSegment = [&out]() {
    Pos slash = out.rfind(u'/');
    out.erase(slash == npos ? 0 : slash);
  };
  while (i < n) {
    if (startsWith(u"../")) {
      i += 3;
    } else if (startsWith(u"./")) {
      i += 2;
    } else if (startsWith(u"/./")) {
      i += 2;  // leaves the '/' in front
    } else if (restIs(u"/.")) {
      out += u'/';
      i = n;
    } else if (startsWith(u"/../")) {
      i += 3;
      dropLastSegment();
    } else if (restIs(u"/..")) {
      dropLastSegment();
      out += u'/';
      i = n;
    } else if (restIs(u".") || restIs(u"..")) {
      i = n;
    } else {
      Pos next = in.find(u'/', in[i] == u'/' ? i + 1 : i);
      if (next == npos) next = n;
      out.append(in, i, next - i);
      i = next;
    }
  }
  return out;
}

// Appends text that is ASCII and kept as it is in `part`; false, with `out`
// as it may stand then, when some character needs more.
}  // namespace qen_url
