// The test-only hook library: faults injected into the verbs of the system
// layer (vyr_system.h), which looks vyr_platform_take_fault up by name once.
#include <atomic>
#include <mutex>

#include "vyr_system.h"

namespace {

struct Fault {
  std::atomic<unsigned> count{0};  // calls still to fail
  unsigned skip = 0;               // calls to let through first
  int error = 0;
};

Fault gFaults[VYR_PlatformCallKinds];
std::mutex gFaultMutex;

}  // namespace

// Costs one relaxed load while no fault is set.
extern "C" int vyr_platform_take_fault(unsigned call, int* error) {
  if (call >= VYR_PlatformCallKinds) return 0;
  Fault& fault = gFaults[call];
  if (fault.count.load(std::memory_order_relaxed) == 0) return 0;
  std::lock_guard<std::mutex> guard(gFaultMutex);
  if (fault.count.load(std::memory_order_relaxed) == 0) return 0;
  if (fault.skip > 0) {
    --fault.skip;
    return 0;
  }
  fault.count.fetch_sub(1, std::memory_order_relaxed);
  *error = fault.error;
  return 1;
}

void VYR_PlatformInjectFault(VYR_TPlatformCall call, int error, unsigned count, unsigned skip) {
  if (call >= VYR_PlatformCallKinds) return;
  std::lock_guard<std::mutex> guard(gFaultMutex);
  Fault& fault = gFaults[call];
  fault.error = error;
  fault.skip = skip;
  fault.count.store(count, std::memory_order_relaxed);
}

void VYR_PlatformClearFaults() {
  std::lock_guard<std::mutex> guard(gFaultMutex);
  for (Fault& fault : gFaults) {
    fault.count.store(0, std::memory_order_relaxed);
    fault.skip = 0;
  }
}
