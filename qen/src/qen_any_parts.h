// What the variant's binary and text halves share.
#ifndef QEN_ANY_PARTS_H
#define QEN_ANY_PARTS_H

#include <string>

#include "qen/qen_object.h"

namespace qen_any {

// Objects are deleted through their QEN_IInterface part.
inline void DeleteObject(QEN_IPackable* object) {
  QEN_IInterface* root = object;
  delete root;
}

struct ReadableDeleter {
  void operator()(QEN_IHumanReadable* object) const {
    QEN_IInterface* root = object;
    delete root;
  }
};

// Shortest text that reads back as the same double, always recognisable as a
// double: "2" becomes "2.0".
std::string DoubleText(double value);

// A stream exception with this text.
[[noreturn]] void StreamFailure(const std::string& text);

}  // namespace qen_any

#endif
