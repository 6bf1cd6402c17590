// The registry of providers and creators, and plug-in loading.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
