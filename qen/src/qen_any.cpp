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
// Text form, one token or one framed object:
//   nil               nothing
//   true  false       bool
//   5                 unsigned 32 (no suffix)
//   5u8  5u16  5u64   unsigned 8, 16, 64 (a "u32" suffix is read too)
//   -5i32  -5i64      signed 32, 64 (an unsuffixed negative reads as i32)
//   1.5  2.0  1e+300  double: always a '.', an exponent, or inf / -inf / nan
//   "text"            a QEN_TString, quoted as the text stream quotes strings
//   QEN_TDict { ... } any other object in the text stream's framed form
// Keywords are lower case; an object starts with its class name, which in
// this system starts with an upper-case letter. Integers are decimal, with no
// leading '+'; a token that doesn't fit its kind is a syntax error.
// Printed (PrintOn), numbers are plain decimal without suffix, a string is its
// text, another object prints itself, and nothing is "<nothing>".
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

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"

namespace {

typedef qen_frame::Frame<QEN_TAny, false, QEN_TObject, QEN_IPackable, QEN_IHumanReadable,
                         QEN_IPrintable>
    AnyFrame;

void DeleteObject(QEN_IPackable* object) {
  // Objects are deleted through their QEN_IInterface part.
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
std::string DoubleText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char buffer[64];
  std::to_chars_result r = std::to_chars(buffer, buffer + sizeof buffer, value);
  std::string text(buffer, r.ptr);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

[[noreturn]] void StreamFailure(const std::string& text) {
  QEN_THROW(QEN_EStreamException, QEN_TString(text.c_str()));
  std::abort();  // QEN_Throw never comes back
}

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
  if (QEN_TAny* any = static_cast<QEN_TAny*>(owned->DynamicCast("QEN_TAny"))) {
    QEN_TAny content(std::move(*any));
    DeleteObject(owned);
    return *this = std::move(content);
  }
  Clear();
  mKind = kObject;
  mObject = owned;
  return *this;
}

QEN_TAny& QEN_TAny::operator=(bool value) {
  SetNumber(kBool);
  mBool = value;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(unsigned char value) {
  SetNumber(kUInt8);
  mUInt8 = value;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(unsigned short value) {
  SetNumber(kUInt16);
  mUInt16 = value;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(unsigned value) {
  SetNumber(kUInt32);
  mUInt32 = value;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(unsigned long long value) {
  SetNumber(kUInt64);
  mUInt64 = value;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(int value) {
  SetNumber(kInt32);
  mInt32 = value;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(long long value) {
  SetNumber(kInt64);
  mInt64 = value;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(double value) {
  SetNumber(kDouble);
  mDouble = value;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(const void* pointer) {
  SetNumber(kPointer);
  mPointer = pointer;
  return *this;
}
QEN_TAny& QEN_TAny::operator=(Function function) {
  SetNumber(kFunction);
  mFunction = function;
  return *this;
}
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

// ---------------------------------------------------------------------------
// Text form

bool QEN_TAny::WriteTo(QEN_THumanReadableStream& out) const {
  std::string token;
  switch (mKind) {
    case kNothing:
      token = "nil";
      break;
    case kBool:
      token = mBool ? "true" : "false";
      break;
    case kUInt8:
      token = std::to_string(mUInt8) + "u8";
      break;
    case kUInt16:
      token = std::to_string(mUInt16) + "u16";
      break;
    case kUInt32:
      token = std::to_string(mUInt32);
      break;
    case kUInt64:
      token = std::to_string(mUInt64) + "u64";
      break;
    case kInt32:
      token = std::to_string(mInt32) + "i32";
      break;
    case kInt64:
      token = std::to_string(mInt64) + "i64";
      break;
    case kDouble:
      token = DoubleText(mDouble);
      break;
    case kPointer:
    case kFunction:
      StreamFailure("QEN_TAny: a pointer has no text form");
    case kObject: {
      // A plain string is a bare quoted token; anything else, subclasses of
      // the string included, names its class.
      if (std::strcmp(mObject->ClassName(), "QEN_TString") == 0) {
        out << *static_cast<const QEN_TString*>(mObject->DynamicCast("QEN_TString"));
        return false;
      }
      const QEN_IHumanReadable* readable =
          static_cast<const QEN_IHumanReadable*>(mObject->DynamicCast("QEN_IHumanReadable"));
      if (readable == nullptr)
        StreamFailure(std::string("QEN_TAny: an object of class ") + mObject->ClassName() +
                      " has no text form");
      out.WriteObject(*readable);
      return false;
    }
  }
  out << token.c_str();
  return false;
}

namespace {

const QEN_TString& NumberCharacters() {
  static const QEN_TString* const set = new QEN_TString("0123456789+-.eEuinfa");
  return *set;
}

const QEN_TString& LowerCaseLetters() {
  static const QEN_TString* const set = new QEN_TString("abcdefghijklmnopqrstuvwxyz");
  return *set;
}

bool IsDigits(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  return true;
}

// Parses one number token as the writer forms it; a token that doesn't fit is
// a syntax error at the token's end.
QEN_TAny ParseNumber(const std::string& text, QEN_THumanReadableStream& in) {
  // Messages quote the token; a hostile one is cut short there.
  const std::string token = text.size() <= 40 ? text : text.substr(0, 40) + "...";
  if (text.size() > 400) in.SyntaxError(("number '" + token + "' is too long").c_str());
  std::size_t start = 0;
  bool negative = false;
  if (!text.empty() && text[0] == '-') {
    negative = true;
    start = 1;
  }
  std::string body = text.substr(start);
  if (body == "inf")
    return QEN_TAny(negative ? -std::numeric_limits<double>::infinity()
                             : std::numeric_limits<double>::infinity());
  if (body == "nan") return QEN_TAny(std::numeric_limits<double>::quiet_NaN());

  if (body.find_first_of(".eE") != std::string::npos) {
    double value = 0;
    const char* first = body.data();
    const char* last = first + body.size();
    std::from_chars_result r = std::from_chars(first, last, value);
    // Both ends must be plain digits or a point, so "e5" and "1e" are refused.
    if (r.ec == std::errc::invalid_argument || r.ptr != last || body[0] == 'e' || body[0] == 'E')
      in.SyntaxError(("malformed number '" + token + "'").c_str());
    if (r.ec == std::errc::result_out_of_range)
      in.SyntaxError(("number '" + token + "' is out of the range of a double").c_str());
    return QEN_TAny(negative ? -value : value);
  }

  std::size_t digits = 0;
  while (digits < body.size() && body[digits] >= '0' && body[digits] <= '9') ++digits;
  std::string number = body.substr(0, digits);
  std::string suffix = body.substr(digits);
  if (!IsDigits(number)) in.SyntaxError(("malformed number '" + token + "'").c_str());
  unsigned long long magnitude = 0;
  std::from_chars_result r =
      std::from_chars(number.data(), number.data() + number.size(), magnitude);
  if (r.ec != std::errc()) in.SyntaxError(("number '" + token + "' is too large").c_str());

  auto unsignedOf = [&](unsigned long long max, const char* what) {
    if (negative && magnitude != 0)
      in.SyntaxError(("number '" + token + "' is negative but " + what + " is unsigned").c_str());
    if (magnitude > max)
      in.SyntaxError(("number '" + token + "' is too large for " + what).c_str());
    return magnitude;
  };
  auto signedOf = [&](unsigned long long maxPositive, const char* what) -> long long {
    unsigned long long limit = negative ? maxPositive + 1 : maxPositive;
    if (magnitude > limit)
      in.SyntaxError(("number '" + token + "' is out of the range of " + what).c_str());
    // Negated in unsigned arithmetic so that the smallest value stays exact.
    return negative ? static_cast<long long>(0ull - magnitude) : static_cast<long long>(magnitude);
  };

  if (suffix.empty()) {
    if (negative) return QEN_TAny(static_cast<int>(signedOf(0x7FFFFFFFull, "a signed 32")));
    return QEN_TAny(static_cast<unsigned>(unsignedOf(0xFFFFFFFFull, "an unsigned 32")));
  }
  if (suffix == "u8")
    return QEN_TAny(static_cast<unsigned char>(unsignedOf(0xFFull, "an unsigned 8")));
  if (suffix == "u16")
    return QEN_TAny(static_cast<unsigned short>(unsignedOf(0xFFFFull, "an unsigned 16")));
  if (suffix == "u32")
    return QEN_TAny(static_cast<unsigned>(unsignedOf(0xFFFFFFFFull, "an unsigned 32")));
  if (suffix == "u64") return QEN_TAny(unsignedOf(~0ull, "an unsigned 64"));
  if (suffix == "i32") return QEN_TAny(static_cast<int>(signedOf(0x7FFFFFFFull, "a signed 32")));
  if (suffix == "i64")
    return QEN_TAny(static_cast<long long>(signedOf(0x7FFFFFFFFFFFFFFFull, "a signed 64")));
  in.SyntaxError(("unknown number suffix '" + suffix + "' in '" + token + "'").c_str());
}

}  // namespace

bool QEN_TAny::ReadFrom(QEN_THumanReadableStream& in) {
  in.SkipWhiteSpace();
  QEN_TUniChar c = 0;
  if (!in.PeekChar(c)) in.SyntaxError("a value expected, found the end of the text");
  if (c == u'"') {
    std::unique_ptr<QEN_TString> text(new QEN_TString);
    in.ReadQuoted(*text);
    *this = static_cast<QEN_IPackable*>(text.release());
    return false;
  }
  // As everywhere in the text form, a number has no leading '+'.
  if ((c >= u'0' && c <= u'9') || c == u'-' || c == u'.') {
    QEN_TString token;
    in.Skip(token, NumberCharacters());
    *this = ParseNumber(token.c_str(), in);
    return false;
  }
  if (c >= u'a' && c <= u'z') {
    QEN_TString word;
    in.Skip(word, LowerCaseLetters());
    if (word == "nil") {
      Clear();
    } else if (word == "true" || word == "false") {
      *this = word == "true";
    } else if (word == "inf") {
      *this = std::numeric_limits<double>::infinity();
    } else if (word == "nan") {
      *this = std::numeric_limits<double>::quiet_NaN();
    } else {
      in.SyntaxError((std::string("unknown word '") + word.c_str() +
                      "': a value is nil, true, false, a number, a quoted text or an object")
                         .c_str());
    }
    return false;
  }
  if ((c >= u'A' && c <= u'Z') || c == u'_') {
    std::unique_ptr<QEN_IHumanReadable, ReadableDeleter> object(in.Extract());
    if (!object) in.SyntaxError("an object expected");
    QEN_IPackable* packable = static_cast<QEN_IPackable*>(object->DynamicCast("QEN_IPackable"));
    if (packable == nullptr)
      in.SyntaxError((std::string("an object of class ") + object->ClassName() +
                      " cannot be held in a value: it is not packable")
                         .c_str());
    object.release();
    *this = packable;
    return false;
  }
  in.SyntaxError("a value expected: nil, true, false, a number, a quoted text or an object");
}

bool QEN_TAny::QEN_HRMultiLine() const {
  if (mKind != kObject) return false;
  const QEN_IHumanReadable* readable =
      static_cast<const QEN_IHumanReadable*>(mObject->DynamicCast("QEN_IHumanReadable"));
  return readable != nullptr && readable->QEN_HRMultiLine();
}

void QEN_TAny::PrintOn(std::ostream& out) const {
  switch (mKind) {
    case kNothing:
      out << "<nothing>";
      break;
    case kBool:
      out << (mBool ? "true" : "false");
      break;
    case kUInt8:
      out << static_cast<unsigned>(mUInt8);
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
      out << mInt64;
      break;
    case kDouble: {
      // The shortest exact text, without the ".0" that the text form adds.
      std::string text = DoubleText(mDouble);
      if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0)
        text.resize(text.size() - 2);
      out << text;
      break;
    }
    case kPointer:
      out << "<pointer " << mPointer << ">";
      break;
    case kFunction:
      out << "<function " << reinterpret_cast<const void*>(mFunction) << ">";
      break;
    case kObject: {
      const QEN_IPrintable* printable =
          static_cast<const QEN_IPrintable*>(mObject->DynamicCast("QEN_IPrintable"));
      if (printable != nullptr)
        printable->PrintOn(out);
      else
        out << "<" << mObject->ClassName() << ">";
      break;
    }
  }
}
