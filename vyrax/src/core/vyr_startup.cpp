// The start-up unit: the library's one start-up call and the order in which
// its classes are initialised.
#include "vyrax/vyr_startup.h"

#include <qen/qen_object.h>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_version_stamp.h"
#include "metadata/vyr_sidecar_metadata.h"
#include "vyr_system.h"
#include "vyrax/vyr_cfswrap.h"
#include "vyrax/vyr_dynamic_loader.h"
#include "vyrax/vyr_exceptions.h"
#include "vyrax/vyr_image_proxy.h"
#include "vyrax/vyr_image_ticket.h"
#include "vyrax/vyr_ink.h"
#include "vyrax/vyr_metadata.h"
#include "vyrax/vyr_typedefs.h"

VYR_VERSION_STAMP()

namespace {

typedef const QEN_TClass* (*ClassObjectFunction)();

// Every class of the library, in the order of initialisation. Asking a class
// for its class object registers it, so that streams can rebuild it by name.
const ClassObjectFunction kClassInitialisationList[] = {
// The exception family first, parents before children, as its list has it.
#define VYR_EXCEPTION(X, P) &X::QEN_ClassObject,
#include "vyrax/vyr_exception_list.h"
#undef VYR_EXCEPTION
    &VYR_TTag::QEN_ClassObject,         &VYR_TReference::QEN_ClassObject,
    &VYR_TKnot::QEN_ClassObject,        &VYR_TInk::QEN_ClassObject,
    &VYR_IBuffer::QEN_ClassObject,      &VYR_TBuffer::QEN_ClassObject,
    &VYR_IRelocatable::QEN_ClassObject, &VYR_IMetadata::QEN_ClassObject,
    &VYR_TMetadata::QEN_ClassObject,    &VYR_TImageTicket::QEN_ClassObject,
    &VYR_TImageProxy::QEN_ClassObject,  &VYR_TDynamicLoader::QEN_ClassObject,
    &VYR_ICfs::QEN_ClassObject,         &VYR_TFileMetadata::QEN_ClassObject,
    &VYR_TBuffPriv::QEN_ClassObject,    &VYR_TMemoryBuffer::QEN_ClassObject,
    &VYR_TMemoryRef::QEN_ClassObject,   &VYR_TFileBuffer::QEN_ClassObject,
    &VYR_TSliceBuffer::QEN_ClassObject, &VYR_TIPIterationInfo::QEN_ClassObject,
    &VYR_TIPIterator::QEN_ClassObject,  &VYR_TCfsWrap::QEN_ClassObject,
};

bool gStarted = false;

// The version registry's own start-up. Without the module there is nothing
// to start, and the library works without version registration.
bool StartVersionRegistry() {
  void* module = vyr::OpenVersionModule();
  if (module == nullptr) return true;
  typedef bool (*StartFunction)();
  StartFunction start = reinterpret_cast<StartFunction>(
      vyr::sys::FindSymbol(module, "__QEN_INITIALIZATION_FUNCTION_VYR_VER__"));
  bool started = start == nullptr || start();
  vyr::sys::CloseModule(module);
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
