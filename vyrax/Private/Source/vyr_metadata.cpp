// The metadata front object.
#include "vyr_version_stamp.h"
#include "vyrax/vyr_exceptions.h"

VYR_VERSION_STAMP()

// ---------------------------------------------------------------------------
// The exceptions of this unit's subsystem.

QEN_DEFINE_EXCEPTION(VYR_EMetadataException, QEN_EException)
QEN_DEFINE_EXCEPTION(VYR_EMetadataCouldNotRead, VYR_EMetadataException)
QEN_DEFINE_EXCEPTION(VYR_EMetadataCouldNotWrite, VYR_EMetadataException)
QEN_DEFINE_EXCEPTION(VYR_EMetadataFileDoesNotExist, VYR_EMetadataException)
QEN_DEFINE_EXCEPTION(VYR_EMetadataInterfaceCalled, VYR_EMetadataException)
QEN_DEFINE_EXCEPTION(VYR_EMetadataInternal, VYR_EMetadataException)
QEN_DEFINE_EXCEPTION(VYR_EMetadataKeyDoesNotExist, VYR_EMetadataException)
QEN_DEFINE_EXCEPTION(VYR_EMetadataNotImplemented, VYR_EMetadataException)
