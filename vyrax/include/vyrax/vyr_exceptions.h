// The exception family of the library.
//
// Every failure leaves an operation as one of these classes. They add no
// state to QEN_EException: the message stays an unformatted printf format
// (or a fixed text), its arguments travel as data, and VYR_Exception2String
// (vyr_utils.h) puts the two together for a person. Each class is an ordinary
// class of the class system: it is built by name, packed (framed by its
// parent's name) and thrown again as its most derived class after Extract.
//
// Eight classes hang directly under QEN_EException, one per subsystem, so a
// caller can catch a whole subsystem's failures by its root.
#ifndef VYR_EXCEPTIONS_H
#define VYR_EXCEPTIONS_H

#include <qen/qen_exception.h>
// The generated packing of each class speaks to the stream interfaces.
#include <qen/qen_stream.h>

#include "vyrax/vyr_api.h"

// One line per class: the frame, the four constructors, QEN_Throw by value,
// packing and cloning are all generated.
#define VYR_EXCEPTION(X, P) QEN_DECLARE_EXCEPTION(VYR_API, X, P)

// --- General: the value types and the utilities -------------------------------
VYR_EXCEPTION(VYR_EVYRAX, QEN_EException)
VYR_EXCEPTION(VYR_EEmbedRegionTooLarge, VYR_EVYRAX)
VYR_EXCEPTION(VYR_EIllegalCMYKInkPreviewValues, VYR_EVYRAX)
VYR_EXCEPTION(VYR_EIllegalRGBInkPreviewValues, VYR_EVYRAX)
VYR_EXCEPTION(VYR_ENotEmbeddedFile, VYR_EVYRAX)
// An operating-system call failed: "System error nr. %d %s" with the data
// [error number, its text], or "System error nr. %d %s on %s" with the file
// name as a third element. Built by the library's system-error helper.
VYR_EXCEPTION(VYR_ESystemError, VYR_EVYRAX)
// Reserved: registered so that one arriving in a stream can be rebuilt.
VYR_EXCEPTION(VYR_EUnicodePSStringNotSupported, VYR_EVYRAX)
VYR_EXCEPTION(VYR_EUnsupportedProtocol, VYR_EVYRAX)
VYR_EXCEPTION(VYR_EWrongInkName, VYR_EVYRAX)
VYR_EXCEPTION(VYR_EWrongInkPreviewType, VYR_EVYRAX)

// A failed internal check. Not thrown by the library itself.
VYR_EXCEPTION(VYR_EAssertFailed, QEN_EException)

// --- Buffers -------------------------------------------------------------------
VYR_EXCEPTION(VYR_EBuffer, QEN_EException)
VYR_EXCEPTION(VYR_EBufferCannotCreateMapping, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferCannotDetermineFileSize, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferCannotLink, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferCannotMapFile, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferCannotOpenFile, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferCannotReadFile, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferDestinationTooSmall, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferEmptyBuffer, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferEmptyFile, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferInternal, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferNotEmbeddedFile, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferNotEnoughMemory, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferRegionTooLarge, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferSliceStartsAfterEnd, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferSliceTooLarge, VYR_EBuffer)
VYR_EXCEPTION(VYR_EBufferUnknownProtocol, VYR_EBuffer)

// --- Metadata ------------------------------------------------------------------
VYR_EXCEPTION(VYR_EMetadataException, QEN_EException)
VYR_EXCEPTION(VYR_EMetadataCouldNotRead, VYR_EMetadataException)
VYR_EXCEPTION(VYR_EMetadataCouldNotWrite, VYR_EMetadataException)
VYR_EXCEPTION(VYR_EMetadataFileDoesNotExist, VYR_EMetadataException)
VYR_EXCEPTION(VYR_EMetadataInterfaceCalled, VYR_EMetadataException)
VYR_EXCEPTION(VYR_EMetadataInternal, VYR_EMetadataException)
VYR_EXCEPTION(VYR_EMetadataKeyDoesNotExist, VYR_EMetadataException)
VYR_EXCEPTION(VYR_EMetadataNotImplemented, VYR_EMetadataException)

// --- Image tickets (the misspelt names are the registered class names) ---------
VYR_EXCEPTION(VYR_EImageTicket, QEN_EException)
VYR_EXCEPTION(VYR_EImageMemoryAllocationError, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketCannotCheckValidity, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketCannotCreateTicket, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketCannotGetDependencies, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketFileCorrupted, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketInternalError, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketKeyNotFound, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketNoExtendedInfo, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketNoExternalRefs, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketUnkownFileFormat, VYR_EImageTicket)
VYR_EXCEPTION(VYR_EImageTicketUnsupprotedFileFormat, VYR_EImageTicket)

// --- Image proxy -----------------------------------------------------------------
VYR_EXCEPTION(VYR_EImageProxy, QEN_EException)
VYR_EXCEPTION(VYR_EImageProxyEmpty, VYR_EImageProxy)
VYR_EXCEPTION(VYR_EImageProxyInternal, VYR_EImageProxy)
VYR_EXCEPTION(VYR_EImageProxyNotImplemented, VYR_EImageProxy)

// --- Plug-in loader --------------------------------------------------------------
VYR_EXCEPTION(VYR_EDynamicLoader, QEN_EException)
VYR_EXCEPTION(VYR_EDynamicLoaderAlreadyLoaded, VYR_EDynamicLoader)
VYR_EXCEPTION(VYR_EDynamicLoaderDoubleCreator, VYR_EDynamicLoader)
VYR_EXCEPTION(VYR_EDynamicLoaderDoubleInstance, VYR_EDynamicLoader)
VYR_EXCEPTION(VYR_EDynamicLoaderDoubleProvider, VYR_EDynamicLoader)
VYR_EXCEPTION(VYR_EDynamicLoaderInternal, VYR_EDynamicLoader)
VYR_EXCEPTION(VYR_EDynamicLoaderNoSuchCreator, VYR_EDynamicLoader)
VYR_EXCEPTION(VYR_EDynamicLoaderNoSuchPlugin, VYR_EDynamicLoader)
VYR_EXCEPTION(VYR_EDynamicLoaderNoSuchProvider, VYR_EDynamicLoader)

// --- Configuration ---------------------------------------------------------------
VYR_EXCEPTION(VYR_ECfsWrap, QEN_EException)

#undef VYR_EXCEPTION

#endif
