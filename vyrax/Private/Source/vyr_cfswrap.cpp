// Access to the process-wide configuration.
#include "vyr_version_stamp.h"
#include "vyrax/vyr_exceptions.h"

VYR_VERSION_STAMP()

// ---------------------------------------------------------------------------
// The exceptions of this unit's subsystem.

QEN_DEFINE_EXCEPTION(VYR_ECfsWrap, QEN_EException)
