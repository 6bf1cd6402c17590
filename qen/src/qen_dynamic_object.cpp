#include <string>

#include "qen/qen_dynamic.h"
#include "qen/qen_exception.h"
#include "vyr_system.h"

QEN_DEFINE_OBJECT(QEN_TDynamicObject, QEN_TObject)

QEN_TDynamicObject::QEN_TDynamicObject() = default;

QEN_TDynamicObject::QEN_TDynamicObject(const QEN_TString& shareable, const QEN_TString& tag)
    : mShareable(shareable), mTag(tag) {
  // An empty name would make dlopen give the main program instead.
  if (mShareable.Empty())
    QEN_THROW(QEN_ECouldNotLoadDynamicObject, QEN_TString("Cannot load module: no name given"));
  std::string reason;
  mHandle = vyr::sys::LoadModule(mShareable.c_str(), false, reason);
  if (mHandle == nullptr) {
    QEN_THROW(
        QEN_ECouldNotLoadDynamicObject,
        QEN_TString::Format("Cannot load module \"%s\": %s", mShareable.c_str(), reason.c_str()));
  }
}

QEN_TDynamicObject::~QEN_TDynamicObject() { vyr::sys::CloseModule(mHandle); }

const QEN_TString& QEN_TDynamicObject::Shareable() const { return mShareable; }

const QEN_TString& QEN_TDynamicObject::Tag() const { return mTag; }

QEN_TDynamicObject::Function QEN_TDynamicObject::Symbol(const QEN_TString& name) const {
  if (mHandle == nullptr || name.Empty()) return nullptr;
  void* address = vyr::sys::FindSymbol(mHandle, name.c_str());
  // POSIX guarantees that a data pointer from dlsym converts to a function.
  return reinterpret_cast<Function>(address);
}
