// The printf walker behind QEN_TString::Format: each conversion is taken
// apart, its argument taken at the type it names, and formatted alone by the
// C library.
#include "qen_format.h"

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <vector>

namespace {

// One conversion formatted alone, with the numbers of its '*'s.
template <class Value>
int FormatOne(std::string& out, const std::string& conversion, const int* stars, int starCount,
              Value value) {
  auto print = [&](char* buffer, std::size_t size) {
    switch (starCount) {
      case 0:
        return std::snprintf(buffer, size, conversion.c_str(), value);
      case 1:
        return std::snprintf(buffer, size, conversion.c_str(), stars[0], value);
      default:
        return std::snprintf(buffer, size, conversion.c_str(), stars[0], stars[1], value);
    }
  };
  char small[512];
  const int n = print(small, sizeof small);
  if (n < 0) return n;
  if (static_cast<std::size_t>(n) < sizeof small) {
    out.append(small, static_cast<std::size_t>(n));
  } else {
    std::vector<char> big(static_cast<std::size_t>(n) + 1);
    print(big.data(), big.size());
    out.append(big.data(), static_cast<std::size_t>(n));
  }
  return n;
}

// A conversion taken apart: its text, the values of its '*'s (taken from the
// arguments as they are met) and the width its length letters name.
struct Conversion {
  std::string text;
  int stars[2] = {0, 0};
  int starCount = 0;
  int longs = 0;
  bool longDouble = false;
  bool widest = false;  // long long, intmax_t, size_t, ptrdiff_t, long double
  bool wide = false;    // %lc, %ls, %C, %S
  char letter = '\0';
};

// Reads the conversion that starts at `p` (on its '%'); false when it is
// unfinished or positional, where nothing more can be taken safely.
bool ReadConversion(const char*& p, va_list& args, Conversion& c) {
  const char* start = p++;
  while (*p != '\0' && std::strchr("-+ #0'I", *p) != nullptr) ++p;
  auto numberOrStar = [&] {
    if (*p == '*') {
      if (c.starCount < 2) c.stars[c.starCount++] = va_arg(args, int);
      ++p;
    }
    while (*p >= '0' && *p <= '9') ++p;
  };
  numberOrStar();
  if (*p == '.') {
    ++p;
    numberOrStar();
  }
  for (; *p != '\0' && std::strchr("hlLqjzt", *p) != nullptr; ++p) {
    if (*p == 'l' || *p == 'q') ++c.longs;
    if (*p == 'q') ++c.longs;
    if (*p == 'L') c.longDouble = true;
    if (*p == 'z' || *p == 'j' || *p == 't') c.widest = true;
  }
  if (*p == '\0' || std::memchr(start, '$', static_cast<std::size_t>(p - start)) != nullptr)
    return false;
  c.letter = *p++;
  c.text.assign(start, p);
  c.widest = c.widest || c.longs >= 2 || c.longDouble;
  c.wide = c.longs > 0 || c.letter == 'C' || c.letter == 'S';
  return true;
}

constexpr int kUnknownLetter = -2;

// Formats one conversion, taking its argument at the type it names: what the
// C library gives (negative when it refuses), or kUnknownLetter.
int FormatConversion(std::string& out, const Conversion& c, va_list& args) {
  auto one = [&](auto value) { return FormatOne(out, c.text, c.stars, c.starCount, value); };
  switch (c.letter) {
    case 'd':
    case 'i':
      if (c.widest) return one(va_arg(args, long long));
      return c.longs == 1 ? one(va_arg(args, long)) : one(va_arg(args, int));
    case 'o':
    case 'u':
    case 'x':
    case 'X':
      if (c.widest) return one(va_arg(args, unsigned long long));
      return c.longs == 1 ? one(va_arg(args, unsigned long)) : one(va_arg(args, unsigned));
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      return c.longDouble ? one(va_arg(args, long double)) : one(va_arg(args, double));
    case 'c':
    case 'C':
      return c.wide ? one(static_cast<wint_t>(va_arg(args, wint_t))) : one(va_arg(args, int));
    case 's':
    case 'S':
      return c.wide ? one(va_arg(args, const wchar_t*)) : one(va_arg(args, const char*));
    case 'p':
      return one(va_arg(args, void*));
    case 'n':
      (void)va_arg(args, void*);  // never written through
      return 0;
    default:
      return kUnknownLetter;
  }
}

}  // namespace

std::string qen_format::PieceByPiece(const char* format, va_list given) {
  // A copy of its own, which the helpers take by reference as they go.
  va_list args;
  va_copy(args, given);
  std::string out;
  const char* p = format;
  while (*p != '\0') {
    if (*p != '%') {
      out += *p++;
      continue;
    }
    if (p[1] == '%') {
      out += '%';
      p += 2;
      continue;
    }
    const char* start = p;
    Conversion c;
    if (!ReadConversion(p, args, c)) {
      out += start;  // unfinished, or positional
      break;
    }
    const int n = FormatConversion(out, c, args);
    if (n == kUnknownLetter) {
      out += start;  // an unknown letter: its argument's type is unknown too
      break;
    }
    if (n < 0) out += "[refused: " + c.text + "]";
  }
  va_end(args);
  return out;
}
