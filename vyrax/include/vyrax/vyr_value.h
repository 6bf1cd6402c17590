// The members that every small value class of the library (tag, knot, ink,
// reference) declares beside its class frame.
#ifndef VYR_VALUE_H
#define VYR_VALUE_H

#include <qen/qen_object.h>

#include <iosfwd>

// Copying and destruction as the compiler makes them; comparison; packing;
// the text form, on one line or on several when `multiLine`; the print for
// people. Each class says in its header what its fields are and how they are
// packed and written.
#define VYR_VALUE_MEMBERS(X, multiLine)                               \
  X(const X& other) = default;                                        \
  X& operator=(const X& other) = default;                             \
  ~X() override = default;                                            \
  bool operator==(const X& other) const;                              \
  bool operator!=(const X& other) const { return !(*this == other); } \
  void QEN_Pack(QEN_IPacking& out) const override;                    \
  void QEN_Unpack(QEN_IUnpacking& in) override;                       \
  bool WriteTo(QEN_THumanReadableStream& out) const override;         \
  bool ReadFrom(QEN_THumanReadableStream& in) override;               \
  bool QEN_HRMultiLine() const override { return multiLine; }         \
  void PrintOn(std::ostream& out) const override;

#endif
