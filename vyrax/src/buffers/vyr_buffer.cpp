// Buffers: memory, mapped files, slices and the buffer handle.
#include "core/vyr_version_stamp.h"
#include "vyrax/vyr_exceptions.h"

VYR_VERSION_STAMP()

// ---------------------------------------------------------------------------
// The exceptions of this unit's subsystem.

QEN_DEFINE_EXCEPTION(VYR_EBuffer, QEN_EException)
QEN_DEFINE_EXCEPTION(VYR_EBufferCannotCreateMapping, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferCannotDetermineFileSize, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferCannotLink, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferCannotMapFile, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferCannotOpenFile, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferCannotReadFile, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferDestinationTooSmall, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferEmptyBuffer, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferEmptyFile, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferInternal, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferNotEmbeddedFile, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferNotEnoughMemory, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferRegionTooLarge, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferSliceStartsAfterEnd, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferSliceTooLarge, VYR_EBuffer)
QEN_DEFINE_EXCEPTION(VYR_EBufferUnknownProtocol, VYR_EBuffer)
