// The printf walker behind QEN_TString::Format.
#ifndef QEN_FORMAT_H
#define QEN_FORMAT_H

#include <cstdarg>
#include <string>

namespace qen_format {

// The format walked one conversion at a time, each argument taken at the
// type its conversion names. For when the C library refuses the whole format
// (a wide character the locale can't encode): the literal text and every
// other conversion stay, and a refused one is marked "[refused: %lc]" in its
// place. A positional ('$') or unknown conversion ends the walk, and a %n is
// never written through.
std::string PieceByPiece(const char* format, va_list args);

}  // namespace qen_format

#endif
