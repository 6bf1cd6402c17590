// What the two halves of the loader share: the registry
// (vyr_dynamic_loader.cpp) and plug-in loading (plugins/).
#ifndef VYR_DYNAMIC_LOADER_PRIV_H
#define VYR_DYNAMIC_LOADER_PRIV_H

#include <qen/qen_string.h>
#include <qen/qen_sync.h>

#include "vyrax/vyr_api.h"

namespace vyr {

// The loader lock: made on first use, never freed, so that it outlives
// every static that might still take it at exit.
VYR_LOCAL QEN_TRWLock& LoaderLock();

// The tag of a module: the name in upper case, behind the last '\', then
// behind the last '/', then before the last '.'; a separator at position 0
// doesn't count. "C:\plugins\tiff_reader.dll" has the tag "TIFF_READER".
VYR_LOCAL QEN_TString ModuleTag(QEN_TString const& shareable);

}  // namespace vyr

#endif
