// The version stamp that every source unit of the library carries.
//
// At load each unit tries to open the version registry module, registers its
// (still empty) list head with it, and links its own record in front of the
// list. Without the module nothing is registered and loading goes on.
#ifndef VYR_VERSION_STAMP_H
#define VYR_VERSION_STAMP_H

#include "vyrax/vyr_startup.h"
#include "vyrax/vyrax_version.h"

namespace vyr {

class VYR_LOCAL VersionStamp {
 public:
  VersionStamp(VYR_VersionListHead& head, VYR_VersionRecord& record, VYR_VersionLoader& loader);
  VersionStamp(const VersionStamp&) = delete;
  VersionStamp& operator=(const VersionStamp&) = delete;
  // Closes the registry module; nothing is unregistered.
  ~VersionStamp();

 private:
  VYR_VersionLoader& mLoader;
};

// Opens the version registry module by name, as given and as its library
// file name; null when neither can be loaded.
VYR_LOCAL void* OpenVersionModule();

}  // namespace vyr

// One per source unit, at namespace scope.
#define VYR_VERSION_STAMP()                                                            \
  namespace {                                                                          \
  VYR_VersionListHead gVersionHead = {nullptr, nullptr, "BUILD_MODULE"};               \
  VYR_VersionRecord gVersionRecord = {VYRAX_VERSION_NAME,    VYRAX_VERSION_MAJOR,      \
                                      VYRAX_VERSION_BUILD,   VYRAX_VERSION_HEADER,     \
                                      __DATE__ "/" __TIME__, nullptr};                 \
  VYR_VersionLoader gVersionLoader = {nullptr, nullptr, nullptr, nullptr};             \
  const vyr::VersionStamp gVersionStamp(gVersionHead, gVersionRecord, gVersionLoader); \
  }

#endif
