// The start-up unit: the library's one start-up call and the order in which
// its classes are initialised.
#include <dlfcn.h>

#include <qen/qen_object.h>

#include "vyr_version_stamp.h"
#include "vyrax/vyr_startup.h"
#include "vyrax/vyr_typedefs.h"

VYR_VERSION_STAMP()

namespace {

typedef const QEN_TClass* (*ClassObjectFunction)();

// Every class of the library, in the order of initialisation. Asking a class
// for its class object registers it, so that streams can rebuild it by name.
const ClassObjectFunction kClassInitialisationList[] = {
    &VYR_TTag::QEN_ClassObject,
};

bool gStarted = false;

// The version registry's own start-up. Without the module there is nothing
// to start, and the library works without version registration.
bool StartVersionRegistry() {
  void* module = vyr::OpenVersionModule();
  if (module == nullptr) return true;
  typedef bool (*StartFunction)();
  StartFunction start =
      reinterpret_cast<StartFunction>(dlsym(module, "__QEN_INITIALIZATION_FUNCTION_VYR_VER__"));
  bool started = start == nullptr || start();
  dlclose(module);
  return started;
}

}  // namespace

extern "C" bool __QEN_INITIALIZATION_FUNCTION_VYRAX__() {
  if (gStarted) return true;
  bool ok = __QEN_INITIALIZATION_FUNCTION_qentypes__() && StartVersionRegistry();
  if (ok) {
    for (ClassObjectFunction classObject : kClassInitialisationList) {
      if (!classObject()->Initialize()) {
        ok = false;
        break;
      }
    }
  }
  gStarted = ok;
  return ok;
}
