// Traces of the library: one group per bit of VYR_DebugFlag.
//
//   VYR_TRACE(vyr::kTraceLifeCycle, "QEN_Initialize of %s\n", name);
//
// Where the text takes work to build, ask vyr::TraceOn(mask) first.
#ifndef VYR_TRACE_H
#define VYR_TRACE_H

#include <ordonotes/ordonotes.h>

#include "vyrax/vyr_profile.h"

namespace vyr {

// Class initialisation, constructors and destructors of the loader and the
// configuration wrapper, ticket checks, side-car and NTFS metadata.
constexpr unsigned kTraceLifeCycle = 0x4;
// Plug-in loading, providers and creators, configuration reads, and the
// metadata emulation switch.
constexpr unsigned kTraceLoader = 0x10;
// Time stamps and archive data of metadata.
constexpr unsigned kTraceStamps = 0x40;

inline bool TraceOn(unsigned mask) { return QENMESG_CheckTrace(VYR_DebugFlag, mask); }

}  // namespace vyr

// The flag word is read at each trace, so a host's change counts at once.
#define VYR_TRACE(mask, ...) QENMESG_Trace(VYR_DebugFlag, (mask), __VA_ARGS__)

#endif
