// The member declarations that every value class writes alike, each list in
// one place: a class names them with these macros in its body, next to its
// QEN_VALUE_FRAME.
#ifndef QEN_VALUE_H
#define QEN_VALUE_H

#include <iosfwd>

#include "qen/qen_object.h"

// Copy, move and the destructor, defined in the class's source unit (mostly
// as the defaults).
#define QEN_VALUE_COPY_MOVE(X)      \
  X(const X& other);                \
  X(X&& other) noexcept;            \
  X& operator=(const X& other);     \
  X& operator=(X&& other) noexcept; \
  ~X() override;

// The definitions of QEN_VALUE_COPY_MOVE when all five are the defaults:
// they are defined in the source unit, where the members' types are whole.
#define QEN_DEFINE_DEFAULT_COPY_MOVE(X)    \
  X::X(const X&) = default;                \
  X::X(X&&) noexcept = default;            \
  X& X::operator=(const X&) = default;     \
  X& X::operator=(X&&) noexcept = default; \
  X::~X() = default;

// Equality of two values of the class, and its negation.
#define QEN_VALUE_EQUALITY(X)            \
  bool operator==(const X& other) const; \
  bool operator!=(const X& other) const { return !(*this == other); }

// The value's forms: binary (QEN_Pack, QEN_Unpack), text (WriteTo, ReadFrom;
// the text stream frames them with the class name) and print (PrintOn).
#define QEN_VALUE_FORMS                                       \
  void QEN_Pack(QEN_IPacking& out) const override;            \
  void QEN_Unpack(QEN_IUnpacking& in) override;               \
  bool WriteTo(QEN_THumanReadableStream& out) const override; \
  bool ReadFrom(QEN_THumanReadableStream& in) override;       \
  void PrintOn(std::ostream& out) const override;

#endif
