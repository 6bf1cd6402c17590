// QEN_TAny, the variant: nothing, a bool, a number of a given width, a
// double, a raw or function pointer, or an owned packable object.
//
// A number answers to the class name of its width ("QEN_TUInt8",
// "QEN_TUInt32", ...): ClassName(), HasSuperclass() and DynamicCast() speak
// for the content, and DynamicCast of that name gives a pointer to the value.
// For an object they forward to it. Packed, the variant writes its content
// with its type, so it reads back as the same kind.
#ifndef QEN_ANY_H
#define QEN_ANY_H

#include "qen/qen_object.h"
#include "qen/qen_string.h"

class QEN_API QEN_TAny : public QEN_TObject,
                         public virtual QEN_IPackable,
                         public virtual QEN_IHumanReadable,
                         public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(QEN_TAny)

 public:
  typedef void (*Function)();
  enum Kind : unsigned char {
    kNothing = 0,
    kBool,
    kUInt8,
    kUInt16,
    kUInt32,
    kUInt64,
    kInt32,
    kInt64,
    kDouble,
    kPointer,
    kFunction,
    kObject
  };

  // The one variant that stands for no value.
  static const QEN_TAny& Illegal();

  QEN_TAny();
  QEN_TAny(double value);
  explicit QEN_TAny(bool value);
  explicit QEN_TAny(unsigned char value);
  explicit QEN_TAny(unsigned short value);
  explicit QEN_TAny(unsigned value);
  explicit QEN_TAny(unsigned long long value);
  explicit QEN_TAny(int value);
  explicit QEN_TAny(long long value);
  explicit QEN_TAny(const char* text);  // holds a QEN_TString
  QEN_TAny(const QEN_IPackable& object);
  QEN_TAny(QEN_IPackable&& object);
  QEN_TAny(const QEN_TAny& other);
  QEN_TAny(QEN_TAny&& other) noexcept;
  ~QEN_TAny() override;

  QEN_TAny& operator=(const QEN_TAny& other);
  QEN_TAny& operator=(QEN_TAny&& other) noexcept;
  QEN_TAny& operator=(const QEN_IPackable& object);
  QEN_TAny& operator=(QEN_IPackable&& object);
  // Takes over the object; null makes the variant hold nothing. An object of
  // class QEN_TAny, or of a class derived from it, is taken apart: its content
  // is taken over and the object deleted.
  QEN_TAny& operator=(QEN_IPackable* owned);
  QEN_TAny& operator=(bool value);
  QEN_TAny& operator=(unsigned char value);
  QEN_TAny& operator=(unsigned short value);
  QEN_TAny& operator=(unsigned value);
  QEN_TAny& operator=(unsigned long long value);
  QEN_TAny& operator=(int value);
  QEN_TAny& operator=(long long value);
  QEN_TAny& operator=(double value);
  QEN_TAny& operator=(const void* pointer);
  QEN_TAny& operator=(Function function);
  QEN_TAny& operator=(const char* text);

  // Conversions. A stored number converts to any number type it fits in
  // (a double is truncated); anything else throws QEN_EAnyConversion.
  operator unsigned() const {
    return mKind == kUInt32 ? mUInt32 : static_cast<unsigned>(AsUInt64Checked(0xFFFFFFFFull));
  }
  operator unsigned char() const { return static_cast<unsigned char>(AsUInt64Checked(0xFFull)); }
  operator double() const { return AsDouble(); }
  operator bool() const { return AsBool(); }
  operator const void*() const { return AsPointer(); }
  operator Function() const { return AsFunction(); }

  unsigned long long AsUInt64() const { return AsUInt64Checked(~0ull); }
  long long AsInt64() const;
  int AsInt32() const;
  double AsDouble() const;
  // A bool, or a number: non-zero is true.
  bool AsBool() const;
  const void* AsPointer() const;
  Function AsFunction() const;

  Kind GetKind() const { return mKind; }
  bool IsNothing() const { return mKind == kNothing; }
  bool IsNumber() const { return mKind >= kBool && mKind <= kDouble; }
  // The held object, or null.
  const QEN_IPackable* Object() const { return mKind == kObject ? mObject : nullptr; }
  QEN_IPackable* Object() { return mKind == kObject ? mObject : nullptr; }
  // Gives up the held object to the caller; the variant then holds nothing.
  QEN_IPackable* Release();
  void Clear();

  // Same kind and value; objects by QEN_IsIdent. Nothing equals Illegal().
  bool operator==(const QEN_TAny& other) const;
  bool operator!=(const QEN_TAny& other) const { return !(*this == other); }

  // The content speaks for the variant.
  const char* ClassName() const override;
  bool HasSuperclass(const char* name) const override;
  bool HasInterface(const char* name) const override;
  // QEN_DynamicInfo is the frame's, then the content's.

  void QEN_Pack(QEN_IPacking& out) const override;
  void QEN_Unpack(QEN_IUnpacking& in) override;
  bool WriteTo(QEN_THumanReadableStream& out) const override;
  bool ReadFrom(QEN_THumanReadableStream& in) override;
  bool QEN_HRMultiLine() const override;
  void PrintOn(std::ostream& out) const override;

  // The class name that a number of this kind answers to, or null.
  static const char* NumberClassName(Kind kind);

 private:
  friend class qen_data::InPlace;  // reads and writes the numbers in place
  unsigned long long AsUInt64Checked(unsigned long long max) const;
  void SetNumber(Kind kind);

  Kind mKind = kNothing;
  union {
    bool mBool;
    unsigned char mUInt8;
    unsigned short mUInt16;
    unsigned mUInt32;
    unsigned long long mUInt64;
    int mInt32;
    long long mInt64;
    double mDouble;
    const void* mPointer;
    Function mFunction;
    QEN_IPackable* mObject;
  };
};

#endif
