// Metadata kept in hidden side-car files.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
