// Start-up of the library, the per-unit version records and the guards that
// delete the process-wide singletons at exit.
#ifndef VYR_STARTUP_H
#define VYR_STARTUP_H

#include <cstdint>

#include "vyrax/vyr_api.h"

// Starts the base types and the version registry, then initialises every
// class of the library in a fixed order. Call once, on one thread, before
// other threads use the library; a second call after success gives true at
// once, a call after a failure runs the whole sequence again.
extern "C" VYR_API bool __QEN_INITIALIZATION_FUNCTION_VYRAX__();

// One record per source unit, linked into the unit's list at load.
struct VYR_VersionRecord {
  const char* name;  // "VYRAX"
  std::uint32_t major;
  std::uint32_t build;
  const char* header;  // "vyrax_version"
  const char* stamp;   // when the unit was compiled: "Feb 15 2024/22:42:14"
  VYR_VersionRecord* next;
};

// The head that the version registry is given; it reads the records behind
// it later.
struct VYR_VersionListHead {
  VYR_VersionRecord* first;
  void* reserved;
  const char* kind;  // "BUILD_MODULE"
};

typedef void (*VYR_VersionRegisterFunction)(VYR_VersionListHead*);
typedef void (*VYR_VersionPrintFunction)();
typedef void (*VYR_VersionSortedFunction)();

// The entry points of the version registry module, when it could be loaded.
struct VYR_VersionLoader {
  void* module;
  VYR_VersionRegisterFunction fnRegister;
  VYR_VersionPrintFunction fnPrint;
  VYR_VersionSortedFunction fnSorted;
};

// Deletes the object behind a static singleton pointer at exit, swallowing
// any exception, and clears the pointer.
template <class T>
class VYR_TSingletonGuard {
 public:
  explicit VYR_TSingletonGuard(T** singleton) : mSingleton(singleton) {}
  VYR_TSingletonGuard(const VYR_TSingletonGuard&) = delete;
  VYR_TSingletonGuard& operator=(const VYR_TSingletonGuard&) = delete;
  ~VYR_TSingletonGuard() {
    if (mSingleton == nullptr) return;
    try {
      delete *mSingleton;
    } catch (...) {
    }
    *mSingleton = nullptr;
  }

 private:
  T** mSingleton;
};

#endif
