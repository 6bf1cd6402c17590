// Buffers: memory, mapped files, slices and the buffer handle.
#include "core/vyr_version_stamp.h"
#include "vyrax/vyr_exceptions.h"

VYR_VERSION_STAMP()
