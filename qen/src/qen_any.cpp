// QEN_TAny, the variant.
//
// Binary form: one unsigned 8 kind code (the values of QEN_TAny::Kind:
// 0 nothing, 1 bool, 2 u8, 3 u16, 4 u32, 5 u64, 6 i32, 7 i64, 8 double,
// 11 object), then the value with the stream's put of that width: bool, u8,
// u16, u32, u64, signed 32, the signed 64 as its unsigned 64 two's
// complement, double, and an object with put object. Nothing has no value
// part. Raw and function pointers (codes 9 and 10) belong to this process
// only: packing one throws, and reading their codes is refused.
//
// The text form and the print are in qen_any_text.cpp.
#include "qen/qen_any.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <typeinfo>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_any_parts.h"
#include "qen_data_stream_impl.h"

namespace {

using qen_any::DeleteObject;
using qen_any::DoubleText;
using qen_any::StreamFailure;

typedef qen_frame::Frame<QEN_TAny, false, QEN_TObject, QEN_IPackable, QEN_IHumanReadable,
                         QEN_IPrintable>
    AnyFrame;

std::string Where(QEN_IUnpacking& in) {
  // Only the data stream knows its offset; other unpackers get no position.
  if (QEN_TDataStream* data = dynamic_cast<QEN_TDataStream*>(&in))
    return " at byte " + std::to_string(data->Offset());
  return std::string();
}

}  // namespace

const QEN_TClass* QEN_TAny::QEN_ClassObject() { return AnyFrame::Class(); }

// The frame answers first (QEN_TAny, its interfaces, QEN_TObject); then a
// number answers to its width's name with the address of its value; then the
// held object answers for itself.
void* QEN_TAny::QEN_DynamicInfo(const char* name) const {
  void* found = AnyFrame::Info(this, name);
  if (found != nullptr || name == nullptr) return found;
  if (IsNumber()) {
    const char* own = NumberClassName(mKind);
    if (std::strcmp(name, own) == 0) return const_cast<bool*>(&mBool);
    return nullptr;
  }
  if (mKind == kObject) return mObject->QEN_DynamicInfo(name);
  return nullptr;
}

QEN_TObject* QEN_TAny::QEN_Create() { return new (std::nothrow) QEN_TAny(); }

QEN_IPackable* QEN_TAny::QEN_Clone(void*) const { return new (std::nothrow) QEN_TAny(*this); }

bool QEN_TAny::QEN_IsIdent(const QEN_IPackable& other) const {
  if (const QEN_TAny* any = static_cast<const QEN_TAny*>(other.DynamicCast("QEN_TAny")))
    return *this == *any;
  // A bare object is the same as a variant that holds an equal one.
  return mKind == kObject && mObject->QEN_IsIdent(other);
}

const QEN_TAny& QEN_TAny::Illegal() {
  static const QEN_TAny* const illegal = new QEN_TAny();
  return *illegal;
}

const char* QEN_TAny::NumberClassName(Kind kind) {
  switch (kind) {
    case kBool:
      return "QEN_TBool";
    case kUInt8:
      return "QEN_TUInt8";
    case kUInt16:
      return "QEN_TUInt16";
    case kUInt32:
      return "QEN_TUInt32";
    case kUInt64:
      return "QEN_TUInt64";
    case kInt32:
      return "QEN_TInt32";
    case kInt64:
      return "QEN_TInt64";
    case kDouble:
      return "QEN_TDouble";
    default:
      return nullptr;
  }
}

// ---------------------------------------------------------------------------
// Construction and assignment

QEN_TAny::QEN_TAny() : mUInt64(0) {}
QEN_TAny::QEN_TAny(double value) : mKind(kDouble), mDouble(value) {}
QEN_TAny::QEN_TAny(bool value) : mKind(kBool), mUInt64(0) { mBool = value; }
QEN_TAny::QEN_TAny(unsigned char value) : mKind(kUInt8), mUInt64(0) { mUInt8 = value; }
QEN_TAny::QEN_TAny(unsigned short value) : mKind(kUInt16), mUInt64(0) { mUInt16 = value; }
QEN_TAny::QEN_TAny(unsigned value) : mKind(kUInt32), mUInt64(0) { mUInt32 = value; }
QEN_TAny::QEN_TAny(unsigned long long value) : mKind(kUInt64), mUInt64(value) {}
QEN_TAny::QEN_TAny(int value) : mKind(kInt32), mUInt64(0) { mInt32 = value; }
QEN_TAny::QEN_TAny(long long value) : mKind(kInt64), mInt64(value) {}
QEN_TAny::QEN_TAny(const char* text) : mUInt64(0) { *this = QEN_TString(text); }
QEN_TAny::QEN_TAny(const QEN_IPackable& object) : mUInt64(0) { *this = object; }
QEN_TAny::QEN_TAny(QEN_IPackable&& object) : mUInt64(0) { *this = std::move(object); }
QEN_TAny::QEN_TAny(const QEN_TAny& other)
    : QEN_IInterface(other),
      QEN_IPackable(other),
      QEN_IHumanReadable(other),
      QEN_IPrintable(other),
      QEN_TObject(other),
      mUInt64(0) {
  *this = other;
}

QEN_TAny::QEN_TAny(QEN_TAny&& other) noexcept : mKind(other.mKind), mUInt64(other.mUInt64) {
  other.mKind = kNothing;
  other.mUInt64 = 0;
}

QEN_TAny::~QEN_TAny() { Clear(); }

void QEN_TAny::Clear() {
  if (mKind == kObject) DeleteObject(mObject);
  mKind = kNothing;
  mUInt64 = 0;
}

QEN_IPackable* QEN_TAny::Release() {
  if (mKind != kObject) return nullptr;
  QEN_IPackable* object = mObject;
  mKind = kNothing;
  mUInt64 = 0;
  return object;
}

void QEN_TAny::SetNumber(Kind kind) {
  Clear();
  mKind = kind;
}

// `other` may live inside this variant's object (an entry of a held
// dictionary), which Clear deletes: everything is taken from it first.
QEN_TAny& QEN_TAny::operator=(const QEN_TAny& other) {
  if (this == &other) return *this;
  Kind kind = other.mKind;
  unsigned long long bits = other.mUInt64;
  if (kind == kObject) {
    QEN_IPackable* copy = other.mObject->QEN_Clone();
    if (copy == nullptr) throw std::bad_alloc();
    Clear();
    mKind = kObject;
    mObject = copy;
  } else {
    Clear();
    mKind = kind;
    mUInt64 = bits;
  }
  return *this;
}

QEN_TAny& QEN_TAny::operator=(QEN_TAny&& other) noexcept {
  if (this == &other) return *this;
  Kind kind = other.mKind;
  unsigned long long bits = other.mUInt64;
  other.mKind = kNothing;
  other.mUInt64 = 0;
  Clear();
  mKind = kind;
  mUInt64 = bits;
  return *this;
}

// A variant given as a plain packable is not nested: its content is taken.
QEN_TAny& QEN_TAny::operator=(const QEN_IPackable& object) {
  if (const QEN_TAny* any = static_cast<const QEN_TAny*>(object.DynamicCast("QEN_TAny")))
    return *this = *any;
  // Cloned before the old content goes: the object may be that content.
  QEN_IPackable* copy = object.QEN_Clone();
  if (copy == nullptr) throw std::bad_alloc();
  Clear();
  mKind = kObject;
  mObject = copy;
  return *this;
}

QEN_TAny& QEN_TAny::operator=(QEN_IPackable&& object) {
  if (QEN_TAny* any = static_cast<QEN_TAny*>(object.DynamicCast("QEN_TAny")))
    return *this = std::move(*any);
  QEN_IPackable* moved = object.QEN_Move();
  if (moved == nullptr) throw std::bad_alloc();
  Clear();
  mKind = kObject;
  mObject = moved;
  return *this;
}

QEN_TAny& QEN_TAny::operator=(QEN_IPackable* owned) {
  if (owned == nullptr) {
    Clear();
    return *this;
  }
  if (mKind == kObject && mObject == owned) return *this;
  // A variant is taken apart, not held. Its class says so: asking the
  // object by name would ask each of its bases and interfaces in turn.
  QEN_TAny* any = nullptr;
  if (typeid(*owned) == typeid(QEN_TAny))
    any = static_cast<QEN_TAny*>(owned->QEN_MostDerivedObject());
  else if (owned->HasSuperclass("QEN_TAny"))
    any = static_cast<QEN_TAny*>(owned->DynamicCast("QEN_TAny"));
  if (any != nullptr) {
    QEN_TAny content(std::move(*any));
    DeleteObject(owned);
    return *this = std::move(content);
  }
  Clear();
  mKind = kObject;
  mObject = owned;
  return *this;
}

// A number or a pointer: its kind, then its value in the member of that kind.
#define QEN_ANY_ASSIGN(Type, kind, member)    \
  QEN_TAny& QEN_TAny::operator=(Type value) { \
    SetNumber(kind);                          \
    member = value;                           \
    return *this;                             \
  }
QEN_ANY_ASSIGN(bool, kBool, mBool)
QEN_ANY_ASSIGN(unsigned char, kUInt8, mUInt8)
QEN_ANY_ASSIGN(unsigned short, kUInt16, mUInt16)
QEN_ANY_ASSIGN(unsigned, kUInt32, mUInt32)
QEN_ANY_ASSIGN(unsigned long long, kUInt64, mUInt64)
QEN_ANY_ASSIGN(int, kInt32, mInt32)
QEN_ANY_ASSIGN(long long, kInt64, mInt64)
QEN_ANY_ASSIGN(double, kDouble, mDouble)
QEN_ANY_ASSIGN(const void*, kPointer, mPointer)
QEN_ANY_ASSIGN(Function, kFunction, mFunction)
#undef QEN_ANY_ASSIGN
QEN_TAny& QEN_TAny::operator=(const char* text) { return *this = QEN_TString(text); }

// ---------------------------------------------------------------------------
// Conversions

namespace {

std::string Describe(const QEN_TAny& any) {
  switch (any.GetKind()) {
    case QEN_TAny::kNothing:
      return "nothing";
    case QEN_TAny::kBool:
      return any.AsBool() ? "the bool true" : "the bool false";
    case QEN_TAny::kUInt8:
    case QEN_TAny::kUInt16:
    case QEN_TAny::kUInt32:
    case QEN_TAny::kUInt64:
      return std::string("the ") + QEN_TAny::NumberClassName(any.GetKind()) + " " +
             std::to_string(any.AsUInt64());
    case QEN_TAny::kInt32:
    case QEN_TAny::kInt64:
      return std::string("the ") + QEN_TAny::NumberClassName(any.GetKind()) + " " +
             std::to_string(any.AsInt64());
    case QEN_TAny::kDouble:
      return "the QEN_TDouble " + DoubleText(any.AsDouble());
    case QEN_TAny::kPointer:
      return "a raw pointer";
    case QEN_TAny::kFunction:
      return "a function pointer";
    case QEN_TAny::kObject:
      return std::string("an object of class ") + any.Object()->ClassName();
  }
  return "an unknown kind";
}

[[noreturn]] void CannotConvert(const QEN_TAny& any, const char* target) {
  QEN_THROW(QEN_EAnyConversion,
            QEN_TString(("QEN_TAny: cannot convert " + Describe(any) + " to " + target).c_str()));
  std::abort();  // QEN_Throw never comes back
}

// 2^64 and 2^63 as doubles, the first values out of range.
constexpr double kTwoTo64 = 18446744073709551616.0;
constexpr double kTwoTo63 = 9223372036854775808.0;

}  // namespace

unsigned long long QEN_TAny::AsUInt64Checked(unsigned long long max) const {
  const char* target = max == 0xFFull         ? "unsigned 8"
                       : max == 0xFFFFull     ? "unsigned 16"
                       : max == 0xFFFFFFFFull ? "unsigned 32"
                                              : "unsigned 64";
  unsigned long long value = 0;
  switch (mKind) {
    case kBool:
      value = mBool ? 1 : 0;
      break;
    case kUInt8:
      value = mUInt8;
      break;
    case kUInt16:
      value = mUInt16;
      break;
    case kUInt32:
      value = mUInt32;
      break;
    case kUInt64:
      value = mUInt64;
      break;
    case kInt32:
      if (mInt32 < 0) CannotConvert(*this, target);
      value = static_cast<unsigned long long>(mInt32);
      break;
    case kInt64:
      if (mInt64 < 0) CannotConvert(*this, target);
      value = static_cast<unsigned long long>(mInt64);
      break;
    case kDouble: {
      double t = std::trunc(mDouble);
      if (std::isnan(t) || t < 0 || t >= kTwoTo64) CannotConvert(*this, target);
      value = static_cast<unsigned long long>(t);
      break;
    }
    default:
      CannotConvert(*this, target);
  }
  if (value > max) CannotConvert(*this, target);
  return value;
}

long long QEN_TAny::AsInt64() const {
  switch (mKind) {
    case kBool:
      return mBool ? 1 : 0;
    case kUInt8:
      return mUInt8;
    case kUInt16:
      return mUInt16;
    case kUInt32:
      return mUInt32;
    case kUInt64:
      if (mUInt64 > static_cast<unsigned long long>(std::numeric_limits<long long>::max()))
        CannotConvert(*this, "signed 64");
      return static_cast<long long>(mUInt64);
    case kInt32:
      return mInt32;
    case kInt64:
      return mInt64;
    case kDouble: {
      double t = std::trunc(mDouble);
      if (std::isnan(t) || t < -kTwoTo63 || t >= kTwoTo63) CannotConvert(*this, "signed 64");
      return static_cast<long long>(t);
    }
    default:
      CannotConvert(*this, "signed 64");
  }
}

int QEN_TAny::AsInt32() const {
  if (!IsNumber()) CannotConvert(*this, "signed 32");
  if (mKind == kDouble) {
    double t = std::trunc(mDouble);
    if (std::isnan(t) || t < -2147483648.0 || t > 2147483647.0) CannotConvert(*this, "signed 32");
    return static_cast<int>(t);
  }
  if (mKind == kUInt64 && mUInt64 > 0x7FFFFFFFull) CannotConvert(*this, "signed 32");
  long long value = AsInt64();
  if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
    CannotConvert(*this, "signed 32");
  return static_cast<int>(value);
}

double QEN_TAny::AsDouble() const {
  switch (mKind) {
    case kBool:
      return mBool ? 1.0 : 0.0;
    case kUInt8:
      return mUInt8;
    case kUInt16:
      return mUInt16;
    case kUInt32:
      return mUInt32;
    case kUInt64:
      return static_cast<double>(mUInt64);
    case kInt32:
      return mInt32;
    case kInt64:
      return static_cast<double>(mInt64);
    case kDouble:
      return mDouble;
    default:
      CannotConvert(*this, "double");
  }
}

bool QEN_TAny::AsBool() const {
  switch (mKind) {
    case kBool:
      return mBool;
    case kUInt8:
      return mUInt8 != 0;
    case kUInt16:
      return mUInt16 != 0;
    case kUInt32:
      return mUInt32 != 0;
    case kUInt64:
      return mUInt64 != 0;
    case kInt32:
      return mInt32 != 0;
    case kInt64:
      return mInt64 != 0;
    case kDouble:
      return mDouble != 0;
    default:
      CannotConvert(*this, "bool");
  }
}

// Nothing reads as the null pointer, so a missing entry is a null pointer.
const void* QEN_TAny::AsPointer() const {
  if (mKind == kPointer) return mPointer;
  if (mKind == kNothing) return nullptr;
  CannotConvert(*this, "a raw pointer");
}

QEN_TAny::Function QEN_TAny::AsFunction() const {
  if (mKind == kFunction) return mFunction;
  if (mKind == kNothing) return nullptr;
  CannotConvert(*this, "a function pointer");
}

bool QEN_TAny::operator==(const QEN_TAny& other) const {
  if (mKind != other.mKind) return false;
  switch (mKind) {
    case kNothing:
      return true;
    case kBool:
      return mBool == other.mBool;
    case kUInt8:
      return mUInt8 == other.mUInt8;
    case kUInt16:
      return mUInt16 == other.mUInt16;
    case kUInt32:
      return mUInt32 == other.mUInt32;
    case kUInt64:
      return mUInt64 == other.mUInt64;
    case kInt32:
      return mInt32 == other.mInt32;
    case kInt64:
      return mInt64 == other.mInt64;
    case kDouble:
      return mDouble == other.mDouble;
    case kPointer:
      return mPointer == other.mPointer;
    case kFunction:
      return mFunction == other.mFunction;
    case kObject:
      return mObject == other.mObject || mObject->QEN_IsIdent(*other.mObject);
  }
  return false;
}

// ---------------------------------------------------------------------------
// The content speaks for the variant.

const char* QEN_TAny::ClassName() const {
  if (IsNumber()) return NumberClassName(mKind);
  if (mKind == kObject) return mObject->ClassName();
  return QEN_ClassName();
}

bool QEN_TAny::HasSuperclass(const char* name) const {
  if (name == nullptr) return false;
  if (QEN_ClassObject()->HasSuperclass(name)) return true;
  if (IsNumber()) return std::strcmp(name, NumberClassName(mKind)) == 0;
  return mKind == kObject && mObject->HasSuperclass(name);
}

bool QEN_TAny::HasInterface(const char* name) const {
  if (QEN_ClassObject()->Implements(name)) return true;
  return mKind == kObject && mObject->HasInterface(name);
}

// ---------------------------------------------------------------------------
// Binary form

void QEN_TAny::QEN_Pack(QEN_IPacking& out) const {
  if (QEN_TDataStream* s = qen_data::InPlace::Writing(out))
    if (qen_data::InPlace::PutValue(*s, *this)) return;
  if (mKind == kPointer || mKind == kFunction)
    QEN_THROW(QEN_EStreamException, mKind == kPointer
                                        ? "QEN_TAny: a raw pointer cannot be packed"
                                        : "QEN_TAny: a function pointer cannot be packed");
  out << static_cast<unsigned char>(mKind);
  switch (mKind) {
    case kBool:
      out << mBool;
      break;
    case kUInt8:
      out << mUInt8;
      break;
    case kUInt16:
      out << mUInt16;
      break;
    case kUInt32:
      out << mUInt32;
      break;
    case kUInt64:
      out << mUInt64;
      break;
    case kInt32:
      out << mInt32;
      break;
    case kInt64:
      out << static_cast<unsigned long long>(mInt64);
      break;
    case kDouble:
      out << mDouble;
      break;
    case kObject:
      out << *mObject;
      break;
    default:
      break;
  }
}

void QEN_TAny::QEN_Unpack(QEN_IUnpacking& in) {
  if (QEN_TDataStream* s = qen_data::InPlace::Reading(in))
    if (qen_data::InPlace::GetValue(*s, *this)) return;
  unsigned char code = 0;
  in >> &code;
  switch (code) {
    case kNothing:
      Clear();
      break;
    case kBool: {
      bool v = false;
      in >> &v;
      *this = v;
      break;
    }
    case kUInt8: {
      unsigned char v = 0;
      in >> &v;
      *this = v;
      break;
    }
    case kUInt16: {
      unsigned short v = 0;
      in >> &v;
      *this = v;
      break;
    }
    case kUInt32: {
      unsigned v = 0;
      in >> &v;
      *this = v;
      break;
    }
    case kUInt64: {
      unsigned long long v = 0;
      in >> &v;
      *this = v;
      break;
    }
    case kInt32: {
      int v = 0;
      in >> &v;
      *this = v;
      break;
    }
    case kInt64: {
      unsigned long long v = 0;
      in >> &v;
      *this = static_cast<long long>(v);
      break;
    }
    case kDouble: {
      double v = 0;
      in >> &v;
      *this = v;
      break;
    }
    case kObject: {
      QEN_IPackable* object = in.Extract(true);
      if (object == nullptr) StreamFailure("QEN_TAny: no object behind an object kind" + Where(in));
      *this = object;
      break;
    }
    case kPointer:
    case kFunction:
      StreamFailure("QEN_TAny: a packed variant cannot hold a pointer (kind code " +
                    std::to_string(code) + ")" + Where(in));
    default:
      StreamFailure("QEN_TAny: unknown kind code " + std::to_string(code) + Where(in));
  }
}
