// The object model: class objects, the shared virtual root, the packable,
// readable and printable interfaces, and the generated class frame.
//
// Every class is reached under several pointers (its QEN_TObject part, its
// QEN_IPackable part, ...) that share one virtual QEN_IInterface part. Casts
// between unrelated bases go by class name through QEN_DynamicInfo, and an
// object is deleted through its QEN_IInterface part.
#ifndef QEN_OBJECT_H
#define QEN_OBJECT_H

#include <cstring>
#include <iosfwd>
#include <new>
#include <vector>

#include "qen/qen_api.h"

class QEN_TObject;
class QEN_IPacking;
class QEN_IUnpacking;
class QEN_THumanReadableStream;
namespace qen_data {
class InPlace;  // the base values' own way in and out of a memory stream
}

typedef QEN_TObject* (*QEN_TFactory)();
typedef bool (*QEN_TInitFunction)();

// The run-time class object. One per class name, owned by the registry.
class QEN_API QEN_TClass {
 public:
  // Read directly by the frame, in this order.
  bool interfacesAdded;
  bool isInterface;
  const char* name;
  QEN_TFactory factory;
  const QEN_TClass* parent;
  // Held for the registry.
  unsigned size;
  QEN_TInitFunction init;

  // Gives the class object of that name, creating and registering it on the
  // first call. Later calls with the same name give the same object.
  static QEN_TClass* GetClassObject(bool isInterface, const char* name, unsigned size,
                                    const QEN_TClass* parent, QEN_TFactory factory,
                                    QEN_TInitFunction init);
  // The registered class of that name, or null.
  static const QEN_TClass* Find(const char* name);

  QEN_TClass* AddInterface(const QEN_TClass* iface);
  // Runs init (true when there is none). Safe to call again.
  bool Initialize() const;
  // This class or a superclass has the interface `name`.
  bool Implements(const char* name) const;
  // This class or a class up its chain is called `name`.
  bool HasSuperclass(const char* name) const;
  // The interfaces added to this class itself, in order.
  const std::vector<const QEN_TClass*>& Interfaces() const { return mInterfaces; }

 private:
  QEN_TClass(bool isInterface, const char* name, unsigned size, const QEN_TClass* parent,
             QEN_TFactory factory, QEN_TInitFunction init);
  std::vector<const QEN_TClass*> mInterfaces;
};

// The common virtual base of every object and interface.
class QEN_API QEN_IInterface {
 public:
  virtual void* QEN_MostDerivedObject() const = 0;
  virtual void* QEN_DynamicInfo(const char* name) const;
  virtual const QEN_TClass& ClassObject() const;
  virtual const char* ClassName() const;
  virtual bool HasSuperclass(const char* name) const;
  virtual bool HasInterface(const char* name) const;
  // Inline: every object runs these, and there is nothing in them.
  virtual ~QEN_IInterface() = default;
  virtual void* QEN_Cast(const char* name) const;

  // The object seen as the class or interface `name`, or null.
  void* DynamicCast(const char* name) { return QEN_DynamicInfo(name); }
  const void* DynamicCast(const char* name) const { return QEN_DynamicInfo(name); }
  // Typed convenience over the same name-based cast.
  template <class T>
  T* DynamicCast() {
    return static_cast<T*>(QEN_DynamicInfo(T::QEN_ClassName()));
  }
  template <class T>
  const T* DynamicCast() const {
    return static_cast<const T*>(QEN_DynamicInfo(T::QEN_ClassName()));
  }

  static const QEN_TClass* QEN_ClassObject();
  static const char* QEN_ClassName() { return "QEN_IInterface"; }

 protected:
  QEN_IInterface() = default;
  QEN_IInterface(const QEN_IInterface&) = default;
  QEN_IInterface& operator=(const QEN_IInterface&) = default;
};

// ---------------------------------------------------------------------------
// The generated frame.
//
// A class declares the frame with one of the QEN_*_FRAME macros in its body
// and defines it with the matching QEN_DEFINE_* macro in its source unit,
// naming its class base and its interfaces in the order they are added.
namespace qen_frame {

template <class X>
QEN_TInitFunction InitOf();

template <class X, bool kIsInterface, class Base, class... Interfaces>
struct Frame {
  static QEN_TClass* Class() {
    // Created once, thread-safely; the parent chain is built first.
    static QEN_TClass* const thisClassPtr = [] {
      QEN_TClass* c;
      if constexpr (kIsInterface) {
        c = QEN_TClass::GetClassObject(true, X::QEN_ClassName(), 0, nullptr, nullptr, nullptr);
      } else {
        c = QEN_TClass::GetClassObject(false, X::QEN_ClassName(), sizeof(X),
                                       Base::QEN_ClassObject(), &X::QEN_Create, InitOf<X>());
      }
      if (!c->interfacesAdded) {
        if constexpr (kIsInterface) {
          c->AddInterface(QEN_IInterface::QEN_ClassObject());
        } else {
          (c->AddInterface(Interfaces::QEN_ClassObject()), ...);
        }
        c->interfacesAdded = true;
      }
      return c;
    }();
    return thisClassPtr;
  }

  static void* Info(const X* self, const char* name) {
    if (name == nullptr) return Class();
    if (std::strcmp(name, X::QEN_ClassName()) == 0) return const_cast<X*>(self);
    void* found = self->Base::QEN_DynamicInfo(name);
    if constexpr (!kIsInterface) {
      // The cast spells the pack out for clang, which rejects a pack that
      // only appears as the qualifier of a member access.
      ((found = found ? found
                      : static_cast<const Interfaces*>(self)->Interfaces::QEN_DynamicInfo(name)),
       ...);
    }
    return found;
  }
};

// Equality through the packable interface: same class (or a subclass), and
// the X parts compare equal.
template <class X, class Other>
bool IsIdent(const X& self, const Other& other) {
  if (!other.HasSuperclass(X::QEN_ClassName())) return false;
  const X* o = static_cast<const X*>(other.DynamicCast(X::QEN_ClassName()));
  return o != nullptr && self == *o;
}

}  // namespace qen_frame

// Statics and the two core virtuals, common to every family.
#define QEN_FRAME_COMMON(X)                                                                    \
 public:                                                                                       \
  static const QEN_TClass* QEN_ClassObject();                                                  \
  static const char* QEN_ClassName() { return #X; }                                            \
  static QEN_TFactory QEN_Factory() { return QEN_ClassObject()->factory; }                     \
  static bool QEN_HasInterface(const char* n) { return QEN_ClassObject()->Implements(n); }     \
  static bool QEN_HasSuperclass(const char* n) { return QEN_ClassObject()->HasSuperclass(n); } \
  static bool QEN_IsInterface() { return QEN_ClassObject()->isInterface; }                     \
  static const QEN_TClass* QEN_ParentClass() { return QEN_ClassObject()->parent; }             \
  void* QEN_DynamicInfo(const char* name) const override;                                      \
  void* QEN_MostDerivedObject() const override { return const_cast<X*>(this); }

// An interface: no factory, no parent.
#define QEN_INTERFACE_FRAME(X) QEN_FRAME_COMMON(X)

// An object that can be built by name.
#define QEN_OBJECT_FRAME(X) \
  QEN_FRAME_COMMON(X)       \
  static QEN_TObject* QEN_Create();

// A packable value: adds the generated QEN_Clone and QEN_IsIdent. The class
// writes QEN_Pack and QEN_Unpack (and its text form and PrintOn) itself.
#define QEN_VALUE_FRAME(X)                                  \
  QEN_OBJECT_FRAME(X)                                       \
  QEN_IPackable* QEN_Clone(void* = nullptr) const override; \
  bool QEN_IsIdent(const QEN_IPackable& other) const override;

#define QEN_DEFINE_FRAME_(X, kIface, Base, ...)                                  \
  const QEN_TClass* X::QEN_ClassObject() {                                       \
    return ::qen_frame::Frame<X, kIface, Base, ##__VA_ARGS__>::Class();          \
  }                                                                              \
  void* X::QEN_DynamicInfo(const char* name) const {                             \
    return ::qen_frame::Frame<X, kIface, Base, ##__VA_ARGS__>::Info(this, name); \
  }

#define QEN_DEFINE_INTERFACE(X) QEN_DEFINE_FRAME_(X, true, QEN_IInterface)

#define QEN_DEFINE_OBJECT(X, Base, ...)            \
  QEN_DEFINE_FRAME_(X, false, Base, ##__VA_ARGS__) \
  QEN_TObject* X::QEN_Create() { return new (std::nothrow) X(); }

#define QEN_DEFINE_VALUE(X, Base, ...)                                             \
  QEN_DEFINE_OBJECT(X, Base, ##__VA_ARGS__)                                        \
  QEN_IPackable* X::QEN_Clone(void*) const { return new (std::nothrow) X(*this); } \
  bool X::QEN_IsIdent(const QEN_IPackable& other) const {                          \
    return ::qen_frame::IsIdent(*this, other);                                     \
  }

// ---------------------------------------------------------------------------
// The root class: non-virtually first in every class.
class QEN_API QEN_TObject : public virtual QEN_IInterface {
 public:
  QEN_TObject() = default;
  QEN_TObject(const QEN_TObject&) = default;
  QEN_TObject& operator=(const QEN_TObject&) = default;
  ~QEN_TObject() override = default;

  static const QEN_TClass* QEN_ClassObject();
  static const char* QEN_ClassName() { return "QEN_TObject"; }
  // The init of a class that declares none of its own.
  static bool QEN_Initialize() { return true; }

  void* QEN_DynamicInfo(const char* name) const override;
  void* QEN_MostDerivedObject() const override { return const_cast<QEN_TObject*>(this); }
};

namespace qen_frame {
template <class X>
QEN_TInitFunction InitOf() {
  // A class that only inherits QEN_TObject::QEN_Initialize has no init.
  return &X::QEN_Initialize == &QEN_TObject::QEN_Initialize ? nullptr : &X::QEN_Initialize;
}
}  // namespace qen_frame

// Binary packing. QEN_Pack and QEN_Unpack of one class make the same calls in
// the same order.
class QEN_API QEN_IPackable : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(QEN_IPackable)
 public:
  virtual void QEN_Pack(QEN_IPacking& out) const = 0;
  virtual void QEN_Unpack(QEN_IUnpacking& in) = 0;
  // A new heap copy, owned by the caller; null when memory runs out.
  virtual QEN_IPackable* QEN_Clone(void* = nullptr) const = 0;
  virtual bool QEN_IsIdent(const QEN_IPackable& other) const = 0;
  // A new heap object that takes over this one's content. By default a clone.
  virtual QEN_IPackable* QEN_Move(void* = nullptr);
  // Refills this object from a stream.
  virtual QEN_IPackable& operator=(QEN_IUnpacking& in);
  // Writes the class identification that precedes the content.
  virtual void QEN_PackClassObject(QEN_IPacking& out) const;
  // The identification scheme of this object's packed form.
  virtual unsigned QEN_PackTypeID() const;

 protected:
  QEN_IPackable() = default;
  QEN_IPackable(const QEN_IPackable&) = default;
  QEN_IPackable& operator=(const QEN_IPackable&) = default;
};

// A text form that reads back.
class QEN_API QEN_IHumanReadable : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(QEN_IHumanReadable)
 public:
  // Both give back false on success.
  virtual bool WriteTo(QEN_THumanReadableStream& out) const = 0;
  virtual bool ReadFrom(QEN_THumanReadableStream& in) = 0;
  virtual bool QEN_HRMultiLine() const { return false; }
  // The framed form: class name, braces, and WriteTo/ReadFrom inside. This is
  // what the text stream writes for an object and what its Extract reads.
  virtual bool QEN_WriteTo(QEN_THumanReadableStream& out) const;
  virtual bool QEN_ReadFrom(QEN_THumanReadableStream& in);

 protected:
  QEN_IHumanReadable() = default;
  QEN_IHumanReadable(const QEN_IHumanReadable&) = default;
  QEN_IHumanReadable& operator=(const QEN_IHumanReadable&) = default;
};

// A debug print. The nesting depth is per thread and shared by one print.
class QEN_API QEN_IPrintable : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(QEN_IPrintable)
 public:
  virtual void PrintOn(std::ostream& out) const = 0;

  static void Indent();
  static void ReverseIndent();
  // Two blanks per level of the current depth.
  static const char* Prefix();

 protected:
  QEN_IPrintable() = default;
  QEN_IPrintable(const QEN_IPrintable&) = default;
  QEN_IPrintable& operator=(const QEN_IPrintable&) = default;
};

QEN_API std::ostream& operator<<(std::ostream& out, const QEN_IPrintable& object);

// Exceptions: throws the object itself by value, as its most derived class.
class QEN_API QEN_IThrowable : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(QEN_IThrowable)
 public:
  virtual void QEN_Throw() const = 0;

 protected:
  QEN_IThrowable() = default;
  QEN_IThrowable(const QEN_IThrowable&) = default;
  QEN_IThrowable& operator=(const QEN_IThrowable&) = default;
};

// Starts the base-type library. Safe to call more than once.
extern "C" QEN_API bool __QEN_INITIALIZATION_FUNCTION_qentypes__();

#endif
