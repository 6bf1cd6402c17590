// The UTF-8 encoder of the base library, for the text classes and for
// anyone who builds UTF-8 from code points.
#ifndef QEN_UTF8_H
#define QEN_UTF8_H

#include <string>

// Appends the UTF-8 form of `c`, which must be a code point: at most
// U+10FFFF and no surrogate. Inline, as the text classes call it for every
// character they convert.
inline void QEN_AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

#endif
