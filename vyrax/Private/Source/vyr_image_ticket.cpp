// Image tickets and proxies.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
