// The class registry and the root classes of the object model.
#include "qen/qen_object.h"

#include <cstring>
#include <mutex>
#include <ostream>
#include <string>
#include <unordered_map>

#include "qen/qen_stream.h"

namespace {

// Class names are string literals that live as long as the process; the map
// keys are copies so that a name from an unloaded module cannot dangle.
struct Registry {
  std::mutex lock;
  std::unordered_map<std::string, QEN_TClass*> classes;
};

Registry& TheRegistry() {
  // Never destroyed: class objects are reached from static destructors of
  // other units and modules at exit.
  static Registry* registry = new Registry;
  return *registry;
}

}  // namespace

QEN_TClass::QEN_TClass(bool isInterface_, const char* name_, unsigned size_,
                       const QEN_TClass* parent_, QEN_TFactory factory_, QEN_TInitFunction init_)
    : interfacesAdded(false),
      isInterface(isInterface_),
      name(name_),
      factory(factory_),
      parent(parent_),
      size(size_),
      init(init_) {}

QEN_TClass* QEN_TClass::GetClassObject(bool isInterface, const char* name, unsigned size,
                                       const QEN_TClass* parent, QEN_TFactory factory,
                                       QEN_TInitFunction init) {
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  auto found = registry.classes.find(name);
  if (found != registry.classes.end()) return found->second;
  QEN_TClass* created = new QEN_TClass(isInterface, name, size, parent, factory, init);
  registry.classes.emplace(name, created);
  return created;
}

const QEN_TClass* QEN_TClass::Find(const char* name) {
  if (name == nullptr) return nullptr;
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  auto found = registry.classes.find(name);
  return found == registry.classes.end() ? nullptr : found->second;
}

QEN_TClass* QEN_TClass::AddInterface(const QEN_TClass* iface) {
  if (iface != nullptr) {
    for (const QEN_TClass* known : mInterfaces)
      if (known == iface) return this;
    mInterfaces.push_back(iface);
  }
  return this;
}

bool QEN_TClass::Initialize() const { return init == nullptr || init(); }

bool QEN_TClass::Implements(const char* wanted) const {
  if (wanted == nullptr) return false;
  for (const QEN_TClass* c = this; c != nullptr; c = c->parent) {
    for (const QEN_TClass* iface : c->mInterfaces) {
      if (std::strcmp(iface->name, wanted) == 0) return true;
      // An interface's own interfaces (QEN_IInterface) count too.
      if (iface != c && iface->Implements(wanted)) return true;
    }
  }
  return false;
}

bool QEN_TClass::HasSuperclass(const char* wanted) const {
  if (wanted == nullptr) return false;
  for (const QEN_TClass* c = this; c != nullptr; c = c->parent)
    if (std::strcmp(c->name, wanted) == 0) return true;
  return false;
}

// ---------------------------------------------------------------------------
// QEN_IInterface

const QEN_TClass* QEN_IInterface::QEN_ClassObject() {
  static QEN_TClass* const thisClassPtr = [] {
    QEN_TClass* c =
        QEN_TClass::GetClassObject(true, "QEN_IInterface", 0, nullptr, nullptr, nullptr);
    c->interfacesAdded = true;
    return c;
  }();
  return thisClassPtr;
}

void* QEN_IInterface::QEN_DynamicInfo(const char* name) const {
  if (name == nullptr) return const_cast<QEN_TClass*>(QEN_ClassObject());
  if (std::strcmp(name, "QEN_IInterface") == 0) return const_cast<QEN_IInterface*>(this);
  return nullptr;
}

const QEN_TClass& QEN_IInterface::ClassObject() const {
  return *static_cast<const QEN_TClass*>(QEN_DynamicInfo(nullptr));
}

const char* QEN_IInterface::ClassName() const { return ClassObject().name; }

bool QEN_IInterface::HasSuperclass(const char* name) const {
  return ClassObject().HasSuperclass(name);
}

bool QEN_IInterface::HasInterface(const char* name) const { return ClassObject().Implements(name); }

void* QEN_IInterface::QEN_Cast(const char* name) const { return QEN_DynamicInfo(name); }

// ---------------------------------------------------------------------------
// QEN_TObject: the root of the class chain.

const QEN_TClass* QEN_TObject::QEN_ClassObject() {
  static QEN_TClass* const thisClassPtr = [] {
    QEN_TClass* c = QEN_TClass::GetClassObject(false, "QEN_TObject", sizeof(QEN_TObject), nullptr,
                                               nullptr, nullptr);
    c->interfacesAdded = true;
    return c;
  }();
  return thisClassPtr;
}

void* QEN_TObject::QEN_DynamicInfo(const char* name) const {
  if (name == nullptr) return const_cast<QEN_TClass*>(QEN_ClassObject());
  if (std::strcmp(name, "QEN_TObject") == 0) return const_cast<QEN_TObject*>(this);
  return QEN_IInterface::QEN_DynamicInfo(name);
}

// ---------------------------------------------------------------------------
// The interfaces of the base library.

QEN_DEFINE_INTERFACE(QEN_IPackable)
QEN_DEFINE_INTERFACE(QEN_IHumanReadable)
QEN_DEFINE_INTERFACE(QEN_IPrintable)
QEN_DEFINE_INTERFACE(QEN_IThrowable)

QEN_IPackable* QEN_IPackable::QEN_Move(void*) { return QEN_Clone(); }

QEN_IPackable& QEN_IPackable::operator=(QEN_IUnpacking& in) {
  QEN_Unpack(in);
  return *this;
}

// The data stream writes the class name itself in front of the content, so
// the default identification adds nothing.
void QEN_IPackable::QEN_PackClassObject(QEN_IPacking&) const {}

unsigned QEN_IPackable::QEN_PackTypeID() const { return 0; }

// ---------------------------------------------------------------------------
// Print indentation: one depth per thread, shared by the objects of one print.

namespace {
thread_local unsigned tPrintDepth = 0;
constexpr unsigned kMaxPrintDepth = 256;
const std::string& Blanks() {
  static const std::string blanks(2 * kMaxPrintDepth, ' ');
  return blanks;
}
}  // namespace

void QEN_IPrintable::Indent() { ++tPrintDepth; }

void QEN_IPrintable::ReverseIndent() {
  if (tPrintDepth > 0) --tPrintDepth;
}

const char* QEN_IPrintable::Prefix() {
  unsigned depth = tPrintDepth < kMaxPrintDepth ? tPrintDepth : kMaxPrintDepth;
  const std::string& blanks = Blanks();
  return blanks.c_str() + blanks.size() - 2 * depth;
}

std::ostream& operator<<(std::ostream& out, const QEN_IPrintable& object) {
  object.PrintOn(out);
  return out;
}
