// The whole public interface of the library.
#ifndef VYRAX_H
#define VYRAX_H

#include <ordonotes/ordonotes.h>
#include <qen/qen.h>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_buffer.h"
#include "vyrax/vyr_cfswrap.h"
#include "vyrax/vyr_dynamic_loader.h"
#include "vyrax/vyr_enums.h"
#include "vyrax/vyr_exceptions.h"
#include "vyrax/vyr_image_proxy.h"
#include "vyrax/vyr_image_ticket.h"
#include "vyrax/vyr_ink.h"
#include "vyrax/vyr_metadata.h"
#include "vyrax/vyr_profile.h"
#include "vyrax/vyr_startup.h"
#include "vyrax/vyr_typedefs.h"
#include "vyrax/vyr_utils.h"
#include "vyrax/vyrax_version.h"

#endif
