// Buffers: memory, mapped files, slices and the buffer handle.
#include "vyr_version_stamp.h"

VYR_VERSION_STAMP()
