// The members that every small value class of the library (tag, knot, ink,
// reference) declares beside its class frame.
#ifndef VYR_VALUE_H
#define VYR_VALUE_H

#include <qen/qen_object.h>
#include <qen/qen_value.h>

#include <iosfwd>

// Copying and destruction as the compiler makes them; comparison and the
// forms as every value class of the base types declares them; the text form
// on one line or on several when `multiLine`. Each class says in its header
// what its fields are and how they are packed and written.
#define VYR_VALUE_MEMBERS(X, multiLine)   \
  X(const X& other) = default;            \
  X& operator=(const X& other) = default; \
  ~X() override = default;                \
  QEN_VALUE_EQUALITY(X)                   \
  QEN_VALUE_FORMS                         \
  bool QEN_HRMultiLine() const override { return multiLine; }

#endif
