// Access to the process-wide configuration.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
