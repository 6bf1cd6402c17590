// The registry of providers and creators, and plug-in loading.
#include "vyr_version_stamp.h"
#include "vyrax/vyr_exceptions.h"

VYR_VERSION_STAMP()

// ---------------------------------------------------------------------------
// The exceptions of this unit's subsystem.

QEN_DEFINE_EXCEPTION(VYR_EDynamicLoader, QEN_EException)
QEN_DEFINE_EXCEPTION(VYR_EDynamicLoaderAlreadyLoaded, VYR_EDynamicLoader)
QEN_DEFINE_EXCEPTION(VYR_EDynamicLoaderDoubleCreator, VYR_EDynamicLoader)
QEN_DEFINE_EXCEPTION(VYR_EDynamicLoaderDoubleInstance, VYR_EDynamicLoader)
QEN_DEFINE_EXCEPTION(VYR_EDynamicLoaderDoubleProvider, VYR_EDynamicLoader)
QEN_DEFINE_EXCEPTION(VYR_EDynamicLoaderInternal, VYR_EDynamicLoader)
QEN_DEFINE_EXCEPTION(VYR_EDynamicLoaderNoSuchCreator, VYR_EDynamicLoader)
QEN_DEFINE_EXCEPTION(VYR_EDynamicLoaderNoSuchPlugin, VYR_EDynamicLoader)
QEN_DEFINE_EXCEPTION(VYR_EDynamicLoaderNoSuchProvider, VYR_EDynamicLoader)
