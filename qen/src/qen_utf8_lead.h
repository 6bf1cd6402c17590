// The first byte of a UTF-8 sequence as the base library's decoders read it:
// the text class from its bytes, the text stream from its input.
#ifndef QEN_UTF8_LEAD_H
#define QEN_UTF8_LEAD_H

namespace qen_detail {

struct Utf8Lead {
  unsigned follow;  // the bytes that follow it, 1 to 3
  char32_t bits;    // the code point's bits that it carries
  // The range of the second byte, which rules out overlong forms, surrogates
  // and code points past U+10FFFF; every later byte is 80-BF.
  unsigned char low, high;

  // The byte fits as the i-th (from 0) that follows.
  bool Fits(unsigned i, unsigned char byte) const {
    return i == 0 ? byte >= low && byte <= high : byte >= 0x80 && byte <= 0xBF;
  }
};

// False for a byte that starts no sequence of two bytes or more.
inline bool ReadUtf8Lead(unsigned char b, Utf8Lead& lead) {
  lead.low = 0x80;
  lead.high = 0xBF;
  if (b >= 0xC2 && b <= 0xDF) {
    lead.follow = 1;
    lead.bits = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    lead.follow = 2;
    lead.bits = b & 0x0F;
    if (b == 0xE0) lead.low = 0xA0;
    if (b == 0xED) lead.high = 0x9F;
  } else if (b >= 0xF0 && b <= 0xF4) {
    lead.follow = 3;
    lead.bits = b & 0x07;
    if (b == 0xF0) lead.low = 0x90;
    if (b == 0xF4) lead.high = 0x8F;
  } else {
    return false;
  }
  return true;
}

}  // namespace qen_detail

#endif
