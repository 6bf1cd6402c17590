// Enumeration and exception texts, embedded-file URLs, ink names.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
