// Image tickets and proxies.
#include "vyrax/vyr_image_ticket.h"

#include "core/vyr_version_stamp.h"
#include "vyrax/vyr_exceptions.h"
#include "vyrax/vyr_image_proxy.h"

VYR_VERSION_STAMP()

// The ticket's class frame; its code lives in ticket/.
QEN_DEFINE_VALUE(VYR_TImageTicket, QEN_TObject, QEN_IPackable, QEN_IPrintable, QEN_IHumanReadable)
// The proxy's and its walk's; their code lives in ticket/ as well.
QEN_DEFINE_VALUE(VYR_TImageProxy, QEN_TObject, QEN_IPackable, QEN_IIteratable, QEN_IHumanReadable,
                 QEN_IPrintable, VYR_IRelocatable)
QEN_DEFINE_OBJECT(VYR_TIPIterator, QEN_TObject, QEN_IIteratable)
QEN_DEFINE_OBJECT(VYR_TIPIterationInfo, QEN_TObject, QEN_IIterationInfo)
