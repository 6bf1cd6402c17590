// Metadata kept in extended attributes of the file.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
