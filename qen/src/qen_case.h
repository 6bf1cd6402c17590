// Letter case of 16-bit text: simple one-to-one mappings, no tables.
#ifndef QEN_CASE_H
#define QEN_CASE_H

namespace qen_case {

// Simple one-to-one case mappings of Latin, Greek and Cyrillic letters.
inline char16_t LowerOf(char16_t c) {
  if (c < 0x80) return (c >= 'A' && c <= 'Z') ? c + 32 : c;
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
  if (c == 0x130) return u'i';
  if (c >= 0x100 && c <= 0x137) return (c % 2 == 0) ? c + 1 : c;
  if (c >= 0x139 && c <= 0x148) return (c % 2 == 1) ? c + 1 : c;
  if (c >= 0x14A && c <= 0x177) return (c % 2 == 0) ? c + 1 : c;
  if (c == 0x178) return 0xFF;
  if (c >= 0x179 && c <= 0x17E) return (c % 2 == 1) ? c + 1 : c;
  if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return c + 32;
  if (c >= 0x410 && c <= 0x42F) return c + 32;
  if (c >= 0x400 && c <= 0x40F) return c + 80;
  return c;
}

inline char16_t UpperOf(char16_t c) {
  if (c < 0x80) return (c >= 'a' && c <= 'z') ? c - 32 : c;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
  if (c == 0xFF) return 0x178;
  if (c == 0x131) return u'I';
  if (c >= 0x101 && c <= 0x137) return (c % 2 == 1) ? c - 1 : c;
  if (c >= 0x13A && c <= 0x148) return (c % 2 == 0) ? c - 1 : c;
  if (c >= 0x14B && c <= 0x177) return (c % 2 == 1) ? c - 1 : c;
  if (c >= 0x17A && c <= 0x17E) return (c % 2 == 0) ? c - 1 : c;
  if (c == 0x3C2) return 0x3A3;
  if (c >= 0x3B1 && c <= 0x3C9) return c - 32;
  if (c >= 0x430 && c <= 0x44F) return c - 32;
  if (c >= 0x450 && c <= 0x45F) return c - 80;
  return c;
}

// The form both sides of a case-blind comparison are brought to.
inline char16_t FoldOf(char16_t c) { return c == 0x3C2 ? 0x3C3 : LowerOf(c); }

}  // namespace qen_case

#endif
