// The process-time profile.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
