// What the proxy's units share.
#ifndef VYR_IMAGE_PROXY_TICKETS_H
#define VYR_IMAGE_PROXY_TICKETS_H

#include <qen/qen_any.h>

#include "vyrax/vyr_image_ticket.h"

namespace vyr_ticket {

// The ticket an element of a proxy's list holds; VYR_EImageProxyInternal
// when it holds something else, which only a derived class's Tickets()
// can put there.
const VYR_TImageTicket& TicketOf(const QEN_TAny& value);

}  // namespace vyr_ticket

#endif
