// Reading helpers for text forms: fields separated by single characters and
// the words true and false (the file and volume values), and the guard of
// nesting depth (the stream's objects and the tree's branches).
#ifndef QEN_TEXT_FIELDS_H
#define QEN_TEXT_FIELDS_H

#include "qen/qen_stream.h"
#include "qen/qen_string.h"

namespace qen_text {

// Skips white space, then reads `expected` or reports `what` as the error.
inline void Expect(QEN_THumanReadableStream& in, char expected, const char* what) {
  in.SkipWhiteSpace();
  QEN_TUniChar c = 0;
  in.ReadChar(c);
  if (c != static_cast<QEN_TUniChar>(expected)) in.SyntaxError(what);
}

// One level of nesting while reading: Enter throws past the stream's
// deepest level, and the level is given back also when the reading throws.
class Nesting {
 public:
  explicit Nesting(QEN_THumanReadableStream& in) : mIn(in) { in.Enter(); }
  ~Nesting() { mIn.Leave(); }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;

 private:
  QEN_THumanReadableStream& mIn;
};

inline bool ReadBool(QEN_THumanReadableStream& in) {
  static const QEN_TString letters("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
  in.SkipWhiteSpace();
  QEN_TString word;
  in.Skip(word, letters);
  if (word == "true") return true;
  if (word != "false") in.SyntaxError("expected true or false");
  return false;
}

}  // namespace qen_text

#endif
