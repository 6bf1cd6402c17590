// The metadata front object.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
