// The exception family of the library, one line a class: the class and its
// parent. This is the one list of the family: the declarations
// (vyr_exceptions.h), the definitions, the start-up's registration and the
// tests all expand it, each with its own VYR_EXCEPTION(X, P). No include
// guard, so that every user may expand it again.
#ifndef VYR_EXCEPTION
#error "Define VYR_EXCEPTION(X, P) before including vyrax/vyr_exception_list.h"
#endif

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
