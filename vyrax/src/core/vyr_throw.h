// The one way the library throws.
//
//   VYR_THROW(VYR_EBufferSliceTooLarge);                        // no message
//   VYR_THROW(VYR_EImageProxyEmpty, "The proxy holds no ticket");
//   VYR_THROW(VYR_EWrongInkName, "Wrong ink name %s for the given ink type", name);
//   VYR_THROW(VYR_EBufferRegionTooLarge, "Region %u + %u beyond %u", at, size, total);
//
// The message stays an unformatted printf format; its arguments travel as the
// exception's data: nothing, the one argument itself, or a QEN_TArray of them
// in the order of the format's conversions. A string argument must be a
// QEN_TString, a QEN_TURL or 8-bit text, so that the text of the exception
// can fill %s in later. An exception given as argument is wrapped.
//
// Every unit that throws defines its source name first:
//   #define VYR_SOURCE_NAME "Private/Source/vyr_buffer"
#ifndef VYR_THROW_H
#define VYR_THROW_H

#include <qen/qen_any.h>
#include <qen/qen_containers.h>
#include <qen/qen_exception.h>
#include <qen/qen_string.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "vyrax/vyr_exceptions.h"

namespace vyr {

// --- One argument as the variant that carries it ------------------------------

inline QEN_TAny ToAny(const QEN_TAny& value) { return value; }
inline QEN_TAny ToAny(const QEN_IPackable& object) { return QEN_TAny(object); }
inline QEN_TAny ToAny(const char* text) { return QEN_TAny(text != nullptr ? text : ""); }
inline QEN_TAny ToAny(const std::string& text) { return QEN_TAny(text.c_str()); }
inline QEN_TAny ToAny(double value) { return QEN_TAny(value); }
inline QEN_TAny ToAny(float value) { return QEN_TAny(static_cast<double>(value)); }
inline QEN_TAny ToAny(bool value) { return QEN_TAny(value); }

// Integers and enumerations keep their signedness; the width is 32 bits where
// the value fits the type, 64 where the type is wider.
template <class T, bool kIsEnum = std::is_enum<T>::value>
struct IntegerOf {
  typedef T type;
};
template <class T>
struct IntegerOf<T, true> {
  typedef std::underlying_type_t<T> type;
};

template <class T>
std::enable_if_t<(std::is_integral<T>::value || std::is_enum<T>::value) &&
                     !std::is_same<T, bool>::value,
                 QEN_TAny>
ToAny(T value) {
  typedef typename IntegerOf<T>::type Integer;
  const Integer number = static_cast<Integer>(value);
  if constexpr (std::is_signed<Integer>::value) {
    if constexpr (sizeof(Integer) <= sizeof(int))
      return QEN_TAny(static_cast<int>(number));
    else
      return QEN_TAny(static_cast<long long>(number));
  } else {
    if constexpr (sizeof(Integer) <= sizeof(unsigned))
      return QEN_TAny(static_cast<unsigned>(number));
    else
      return QEN_TAny(static_cast<unsigned long long>(number));
  }
}

// The data of an exception: nothing, the one argument, or an array of all.
inline QEN_TAny MakeData() { return QEN_TAny::Illegal(); }

template <class Arg>
QEN_TAny MakeData(const Arg& arg) {
  return ToAny(arg);
}

template <class First, class Second, class... Rest>
QEN_TAny MakeData(const First& first, const Second& second, const Rest&... rest) {
  QEN_TArray array(static_cast<unsigned>(2 + sizeof...(Rest)));
  unsigned index = 0;
  array[index++] = ToAny(first);
  array[index++] = ToAny(second);
  ((array[index++] = ToAny(rest)), ...);
  return QEN_TAny(std::move(array));
}

// --- Throwing ------------------------------------------------------------------

// Throws a copy of `built` as its most derived class, with an empty message
// replaced by the class name and the place of the throw noted. The copy is
// made through a variant, so the thrown object is whatever the class's own
// clone makes of it.
[[noreturn]] inline void RaiseException(const QEN_EException& built, unsigned line,
                                        const char* sourceName) {
  QEN_TAny holder(static_cast<const QEN_IPackable&>(built));
  QEN_EException* exception = static_cast<QEN_EException*>(holder.DynamicCast("QEN_EException"));
  if (exception == nullptr) throw std::bad_alloc();  // the clone failed
  if (exception->QEN_Message().Empty())
    exception->QEN_Message() = QEN_TString(exception->ClassName());
  exception->__PREPARE_FOR_THROW__(line, sourceName);
  static_cast<const QEN_IThrowable*>(exception)->QEN_Throw();
  throw std::bad_alloc();  // not reached: QEN_Throw always throws
}

template <class X>
[[noreturn]] void ThrowException(unsigned line, const char* sourceName) {
  RaiseException(X(), line, sourceName);
}

template <class X>
[[noreturn]] void ThrowException(unsigned line, const char* sourceName,
                                 const QEN_TString& message) {
  RaiseException(X(message), line, sourceName);
}

template <class X, class... Args>
[[noreturn]] void ThrowException(unsigned line, const char* sourceName, const QEN_TString& format,
                                 const Args&... args) {
  RaiseException(X(format, MakeData(args...)), line, sourceName);
}

// --- System errors ---------------------------------------------------------------

// The C library's text for an error number. strerror_r comes in two shapes;
// these pick the text out of either.
inline const char* ErrorTextOf(int result, const char* buffer) {
  return result == 0 ? buffer : "Unknown error";
}
inline const char* ErrorTextOf(const char* result, const char*) {
  return result != nullptr ? result : "Unknown error";
}

inline QEN_TString SystemErrorText(int code) {
  char buffer[256] = {0};
  return QEN_TString(ErrorTextOf(strerror_r(code, buffer, sizeof buffer), buffer));
}

// A failed system call, as the data of a subsystem's exception: the error
// number and its text, and with a file name the long form that names it.
// The wrapped error is the whole data of the outer exception, and errno is
// captured before anything else can change it:
//   int code = errno;
//   VYR_THROW(VYR_EBufferCannotOpenFile, "Cannot open the file", vyr::SystemError(code, path));
inline VYR_ESystemError SystemError(int code) {
  return VYR_ESystemError("System error nr. %d %s", MakeData(code, SystemErrorText(code)));
}

inline VYR_ESystemError SystemError(int code, const QEN_TString& fileName) {
  return VYR_ESystemError("System error nr. %d %s on %s",
                          MakeData(code, SystemErrorText(code), fileName));
}

// The same for the failure that errno reports now: call it right after the
// failed call, before anything else can change errno.
inline VYR_ESystemError LastSystemError() { return SystemError(errno); }
inline VYR_ESystemError LastSystemError(const QEN_TString& fileName) {
  const int code = errno;
  return SystemError(code, fileName);
}

}  // namespace vyr

// Throws X with an optional printf format and its arguments, noting the
// unit's source name and the line.
#define VYR_THROW(X, ...) ::vyr::ThrowException<X>(__LINE__, VYR_SOURCE_NAME, ##__VA_ARGS__)

// Throws a VYR_ESystemError itself, for the error number `code` (and a file).
#define VYR_THROW_SYSTEM_ERROR(...) \
  ::vyr::RaiseException(::vyr::SystemError(__VA_ARGS__), __LINE__, VYR_SOURCE_NAME)

#endif
