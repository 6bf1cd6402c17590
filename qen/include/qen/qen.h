// The whole base-type library.
#ifndef QEN_H
#define QEN_H

#include "qen/qen_any.h"
#include "qen/qen_containers.h"
#include "qen/qen_dynamic.h"
#include "qen/qen_exception.h"
#include "qen/qen_file.h"
#include "qen/qen_object.h"
#include "qen/qen_stream.h"
#include "qen/qen_string.h"
#include "qen/qen_sync.h"
#include "qen/qen_time.h"
#include "qen/qen_url.h"

#endif
