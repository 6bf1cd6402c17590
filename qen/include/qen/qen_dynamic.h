// A shared module held open for as long as the object lives.
#ifndef QEN_DYNAMIC_H
#define QEN_DYNAMIC_H

#include "qen/qen_object.h"
#include "qen/qen_string.h"

// Loads `shareable` with dlopen, resolving all its symbols at once, and looks
// up functions in it. The name is given to dlopen as it is: a name without a
// slash is searched for the way the dynamic loader searches; trying other
// spellings of a module name is the caller's business. `tag` is the caller's
// own label for the module, kept and given back.
//
// Deleting the object gives up its hold on the module; the module is
// unloaded when no other hold remains. Function pointers from Symbol are
// not to be used after that.
class QEN_API QEN_TDynamicObject : public QEN_TObject {
  QEN_OBJECT_FRAME(QEN_TDynamicObject)

 public:
  typedef void (*Function)();

  // Throws QEN_ECouldNotLoadDynamicObject, whose message holds the name and
  // the dynamic loader's own text of the failure.
  QEN_TDynamicObject(const QEN_TString& shareable, const QEN_TString& tag);
  QEN_TDynamicObject(const QEN_TDynamicObject&) = delete;
  QEN_TDynamicObject& operator=(const QEN_TDynamicObject&) = delete;
  ~QEN_TDynamicObject() override;

  virtual const QEN_TString& Shareable() const;
  virtual const QEN_TString& Tag() const;
  // The function of that name, or null when the module has none.
  virtual Function Symbol(const QEN_TString& name) const;

 private:
  // Only the class frame builds one by name; it holds no module, and Symbol
  // gives null.
  QEN_TDynamicObject();

  QEN_TString mShareable;
  QEN_TString mTag;
  void* mHandle = nullptr;
};

#endif
