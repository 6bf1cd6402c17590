// The exception root and the generated exception frame.
//
// An exception keeps its message unformatted (a printf format or a fixed
// text) with its arguments beside it as data, plus the source file and line
// of the throw. Exceptions are classes of the class system: they are built by
// name, packed, rebuilt by Extract and thrown again as their most derived
// class.
#ifndef QEN_EXCEPTION_H
#define QEN_EXCEPTION_H

#include "qen/qen_any.h"
#include "qen/qen_object.h"
#include "qen/qen_string.h"

class QEN_TList;

class QEN_API QEN_EException : public QEN_TObject,
                               public virtual QEN_IThrowable,
                               public virtual QEN_IPackable,
                               public virtual QEN_IPrintable {
  QEN_OBJECT_FRAME(QEN_EException)

 public:
  QEN_EException();
  QEN_EException(const QEN_EException& other);
  explicit QEN_EException(const QEN_TString& message);
  QEN_EException(const QEN_TString& message, const QEN_TAny& data);
  QEN_EException& operator=(const QEN_EException& other);
  ~QEN_EException() override;

  virtual unsigned QEN_ExceptionLine() const;
  virtual const QEN_TString& QEN_ExceptionFile() const;
  // Always empty here: this library records no stack.
  virtual const QEN_TList& QEN_StackTrace() const;
  virtual const QEN_TString& QEN_Message() const;
  virtual QEN_TString& QEN_Message();
  virtual const QEN_TAny& QEN_Data() const;
  virtual QEN_TAny& QEN_Data();

  // Notes the place of the throw.
  QEN_EException& __PREPARE_FOR_THROW__(unsigned line, const char* file);

  void QEN_Throw() const override;
  void QEN_Pack(QEN_IPacking& out) const override;
  void QEN_Unpack(QEN_IUnpacking& in) override;
  QEN_IPackable* QEN_Clone(void* = nullptr) const override;
  // Same class, message, data, file and line.
  bool QEN_IsIdent(const QEN_IPackable& other) const override;
  void PrintOn(std::ostream& out) const override;

 private:
  QEN_TString mMessage;
  QEN_TAny mData;
  QEN_TString mFile;
  unsigned mLine = 0;
};

// Declares exception class X under P, with the exception frame: the four
// constructors, QEN_Throw by value as X, and packing framed by P's name.
// A default-constructed X has its class name as message.
#define QEN_DECLARE_EXCEPTION(API, X, P)                                      \
  class API X : public P {                                                    \
    QEN_OBJECT_FRAME(X)                                                       \
   public:                                                                    \
    X() : P() { QEN_Message() = QEN_TString(#X); }                            \
    X(const X&) = default;                                                    \
    X& operator=(const X&) = default;                                         \
    explicit X(const QEN_TString& message) : P(message) {}                    \
    X(const QEN_TString& message, const QEN_TAny& data) : P(message, data) {} \
    ~X() override = default;                                                  \
    void QEN_Throw() const override;                                          \
    void QEN_Pack(QEN_IPacking& out) const override;                          \
    void QEN_Unpack(QEN_IUnpacking& in) override;                             \
    QEN_IPackable* QEN_Clone(void* = nullptr) const override;                 \
  };

// Defines the frame of an exception class declared with the macro above.
#define QEN_DEFINE_EXCEPTION(X, P)              \
  QEN_DEFINE_OBJECT(X, P)                       \
  void X::QEN_Throw() const { throw X(*this); } \
  void X::QEN_Pack(QEN_IPacking& out) const {   \
    out.PackBeginClass(P::QEN_ClassName());     \
    P::QEN_Pack(out);                           \
    out.PackEndClass(P::QEN_ClassName());       \
  }                                             \
  void X::QEN_Unpack(QEN_IUnpacking& in) {      \
    in.UnpackBeginClass(P::QEN_ClassName());    \
    P::QEN_Unpack(in);                          \
    in.UnpackEndClass(P::QEN_ClassName());      \
  }                                             \
  QEN_IPackable* X::QEN_Clone(void*) const { return new (std::nothrow) X(*this); }

// Failures of the base library itself.
QEN_DECLARE_EXCEPTION(QEN_API, QEN_EStreamException, QEN_EException)
QEN_DECLARE_EXCEPTION(QEN_API, QEN_ESyntaxError, QEN_EStreamException)
QEN_DECLARE_EXCEPTION(QEN_API, QEN_EUnknownClass, QEN_EStreamException)
QEN_DECLARE_EXCEPTION(QEN_API, QEN_EFileException, QEN_EException)
QEN_DECLARE_EXCEPTION(QEN_API, QEN_ETreeException, QEN_EException)
QEN_DECLARE_EXCEPTION(QEN_API, QEN_ECouldNotLoadDynamicObject, QEN_EException)
QEN_DECLARE_EXCEPTION(QEN_API, QEN_EAnyConversion, QEN_EException)
QEN_DECLARE_EXCEPTION(QEN_API, QEN_EIndexOutOfRange, QEN_EException)

// Throws X with a fixed (already formatted) message, noting this place.
#define QEN_THROW(X, message)                              \
  do {                                                     \
    X qen_thrown_(message);                                \
    qen_thrown_.__PREPARE_FOR_THROW__(__LINE__, __FILE__); \
    qen_thrown_.QEN_Throw();                               \
  } while (0)

#endif
