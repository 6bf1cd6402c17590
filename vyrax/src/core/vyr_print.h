// The print of a value for people: its class name, then its fields one a
// line between braces, the fields a level deeper than the braces.
#ifndef VYR_PRINT_H
#define VYR_PRINT_H

#include <qen/qen_object.h>

#include <ostream>

namespace vyr {

class FieldPrint {
 public:
  FieldPrint(std::ostream& out, const char* className) : mOut(out) {
    out << className << std::endl << QEN_IPrintable::Prefix() << '{' << std::endl;
    QEN_IPrintable::Indent();
  }
  FieldPrint(const FieldPrint&) = delete;
  FieldPrint& operator=(const FieldPrint&) = delete;

  // A new line at the fields' depth, with its label.
  std::ostream& operator()(const char* label) { return mOut << QEN_IPrintable::Prefix() << label; }

  // A line with a field that prints itself.
  template <class T>
  void Printed(const char* label, const T& value) {
    (*this)(label);
    value.PrintOn(mOut);
    mOut << std::endl;
  }

  // The closing brace, at the depth of the opening one.
  std::ostream& Close() {
    QEN_IPrintable::ReverseIndent();
    return mOut << QEN_IPrintable::Prefix() << '}';
  }

 private:
  std::ostream& mOut;
};

}  // namespace vyr

#endif
