// Access to the process-wide configuration: where it comes from, decided
// once per process, and the lock that makes that decision safe from any
// thread.
#define VYR_SOURCE_NAME "Private/Source/vyr_cfswrap"

#include "core/vyr_version_stamp.h"

VYR_VERSION_STAMP()

#include <qen/qen_dynamic.h>
#include <qen/qen_sync.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "config/vyr_cfs_file.h"
#include "core/vyr_throw.h"
#include "core/vyr_trace.h"
#include "platform/vyr_platform.h"
#include "vyrax/vyr_cfswrap.h"
#include "vyrax/vyr_dynamic_loader.h"
#include "vyrax/vyr_exceptions.h"

namespace {

// The configuration object: set once, never deleted.
VYR_ICfs* gCfs = nullptr;
bool gNeedsInitialisation = true;
// The module of the configuration service, when the configuration comes
// from it; deleted at exit by its guard.
QEN_TDynamicObject* gCfsModule = nullptr;
VYR_TSingletonGuard<QEN_TDynamicObject> gCfsModuleGuard(&gCfsModule);

// Built by the class's initialisation, or on first use.
QEN_TRWLock& CfsLock() {
  static QEN_TRWLock lock;
  return lock;
}

// An environment variable, read at its first use and kept for the process.
// Every use notes the value in the loader's trace.
struct CachedVariable {
  explicit CachedVariable(const char* name_) : name(name_) {
    const char* value = vyr::sys::Environment(name);
    set = value != nullptr;
    if (set) text = value;
  }
  const CachedVariable& Traced() const {
    if (set)
      VYR_TRACE(vyr::kTraceLoader, "Get_%s: %s\n", name, text.c_str());
    else
      VYR_TRACE(vyr::kTraceLoader, "Get_%s: Variable does not exist!\n", name);
    return *this;
  }
  const char* name;
  bool set = false;
  std::string text;
};

const CachedVariable& UseCfs() {
  static const CachedVariable variable("VYR_USE_CFS");
  return variable.Traced();
}

const CachedVariable& QenServer() {
  static const CachedVariable variable("QEN_SERVER");
  return variable.Traced();
}

typedef VYR_ICfs* (*ServiceFactory)();

// Loads the configuration service and takes its configuration object. A
// service that gives none is of no use: that counts as a failure to load.
void UseService(const char* tag) {
  VYR_TRACE(vyr::kTraceLoader, "init_cfs_wrap() - Looking for real config server\n");
  delete gCfsModule;
  gCfsModule = nullptr;
  gCfsModule = vyr::platform::LoadModule(QEN_TString("VYR_CFS"), QEN_TString(tag));
  ServiceFactory factory =
      reinterpret_cast<ServiceFactory>(gCfsModule->Symbol(QEN_TString("VYR_Cfs")));
  if (factory == nullptr)
    VYR_THROW(VYR_ECfsWrap, "The configuration service has no entry %s", "VYR_Cfs");
  VYR_ICfs* cfs = factory();
  if (cfs == nullptr) VYR_THROW(VYR_ECfsWrap, "The configuration service gave no configuration");
  gCfs = cfs;
}

// The file branch: the configuration from the file that VYR_USE_CFS names.
void UseFile(const std::string& fileName) {
  VYR_TRACE(vyr::kTraceLoader, "init_cfs_wrap() - Looking for data in CFS file\n");
  std::unique_ptr<QEN_IInterface> object(vyr::config::ReadCfsFile(QEN_TString(fileName)));
  if (object == nullptr) {
    VYR_TRACE(vyr::kTraceLoader, "init_cfs_wrap() - Empty or invalid CFS file\n");
    VYR_THROW(VYR_ECfsWrap);
  }
  if (const QEN_TTree* tree = object->DynamicCast<QEN_TTree>()) {
    gCfs = new VYR_TCfsWrap(*tree);
  } else if (const QEN_TDict* plugins = object->DynamicCast<QEN_TDict>()) {
    gCfs = new VYR_TCfsWrap();
    // Through the public door, which finds the lock held by this thread and
    // the initialisation under way.
    VYR_CfsWrap().SetAt(QEN_TString(VYR_TDynamicLoader::sCfsName), QEN_TAny(*plugins));
  } else {
    VYR_TRACE(vyr::kTraceLoader, "init_cfs_wrap() - Invalid CFS file content\n");
    VYR_THROW(VYR_ECfsWrap);
  }
}

void InitCfsWrap() {
  VYR_TRACE(vyr::kTraceLifeCycle, "init_cfs_wrap()\n");
  try {
    const CachedVariable& useCfs = UseCfs();
    if (useCfs.set && useCfs.text != "*") {
      try {
        UseFile(useCfs.text);
      } catch (...) {
        // The file could not be used: the service stands in for it.
        delete gCfs;
        gCfs = nullptr;
        UseService("VYR_CFS");
      }
      return;
    }
    if (!useCfs.set && !QenServer().set) {
      VYR_TRACE(vyr::kTraceLoader, "init_cfs_wrap() - No CFS file, no server!\n");
      VYR_THROW(VYR_ECfsWrap);
    }
    UseService("vyr_cfs");
  } catch (...) {
    VYR_TRACE(vyr::kTraceLoader, "init_cfs_wrap() - Empty configuration!\n");
    gCfs = new VYR_TCfsWrap();
  }
}

}  // namespace

bool VYR_TCfsWrap::QEN_Initialize() {
  VYR_TRACE(vyr::kTraceLifeCycle, "QEN_Initialize of VYR_TCfsWrap\n");
  CfsLock();
  return true;
}

VYR_ICfs& VYR_CfsWrap() {
  VYR_TRACE(vyr::kTraceLoader, "VYR_CfsWrap()\n");
  QEN_TRWLock& lock = CfsLock();
  lock.WriteLock();
  try {
    if (gNeedsInitialisation) {
      gNeedsInitialisation = false;
      InitCfsWrap();
    }
  } catch (...) {
    lock.WriteUnlock();
    VYR_TRACE(vyr::kTraceLoader, "VYR_CfsWrap() - falied\n");
    throw;
  }
  VYR_ICfs* cfs = gCfs;
  lock.WriteUnlock();
  // Only an allocation that failed in the last resort leaves no object.
  if (cfs == nullptr) throw std::bad_alloc();
  return *cfs;
}

bool VYR_IsServer() {
  const CachedVariable& useCfs = UseCfs();
  if (useCfs.set) return !useCfs.text.empty() && useCfs.text[0] == '*';
  return QenServer().set;
}
