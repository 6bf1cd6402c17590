// The characters of URL text: which ones a part keeps as they are, "%XX"
// decoding and encoding, and the pieces that parsing and writing share.
// qen_url.cpp parses and writes; qen_url_text.cpp holds these.
#ifndef QEN_URL_TEXT_H
#define QEN_URL_TEXT_H

#include <string>

#include "qen/qen_string.h"

namespace qen_url {

typedef std::u16string::size_type Pos;
constexpr Pos npos = std::u16string::npos;

inline bool IsAsciiAlpha(char16_t c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline bool IsAsciiDigit(char16_t c) { return c >= '0' && c <= '9'; }
inline bool IsSchemeChar(char16_t c) {
  return IsAsciiAlpha(c) || IsAsciiDigit(c) || c == '+' || c == '-' || c == '.';
}
inline char16_t AsciiLower(char16_t c) { return (c >= 'A' && c <= 'Z') ? c + 32 : c; }

QEN_TString LowerAscii(const std::u16string& text);
bool EqualIgnoringAsciiCase(const std::u16string& a, const std::u16string& b);
// "%XX" decoding on UTF-8 bytes.
std::string DecodeBytes(const std::string& in);
// The characters from `from` to `to`, decoded.
QEN_TString Decode(const std::u16string& text, Pos from, Pos to);

// Which ASCII characters a part keeps as they are. Everything else, and
// every byte of a non-ASCII character, is written as "%XX".
enum Part { kUser, kPassword, kHost, kPath, kParam, kFragment };
extern const unsigned char* const kKeptBits;  // 128 entries, bit `part` set where kept
inline bool Keeps(Part part, unsigned char c) {
  return c < 0x80 && (kKeptBits[c] >> part & 1) != 0;
}

void AppendEncoded(std::string& out, const QEN_TString& text, Part part);
void AppendHost(std::string& out, const QEN_TString& host);
std::string EncodePath(const QEN_TString& path, bool hasProtocol, bool hasAuthority);
// Copies text that is ASCII and kept as it is in `part` to `out`, 16-bit
// units or bytes, and gives the end of the copy; null, with `out` as it may
// stand then, when some character needs more.
template <class C>
C* CopyPlain(C* out, const std::u16string& text, Part part) {
  for (char16_t c : text) {
    if (c >= 0x80 || !Keeps(part, static_cast<unsigned char>(c))) return nullptr;
    *out++ = static_cast<C>(c);
  }
  return out;
}

bool IsLocalFileProtocol(const QEN_TString& protocol);
// A port: up to five digits, at most 65535. An empty text is no port.
bool ReadPort(const std::u16string& text, Pos from, Pos to, unsigned& port);
// Removes "." and ".." segments, as resolution of references does.
std::u16string RemoveDotSegments(const std::u16string& in);

}  // namespace qen_url

#endif
