// The version registry: modules register the heads of their version lists at
// load, and the registry reads the records behind them when asked.
#include <algorithm>
#include <cstdio>
#include <mutex>
#include <vector>

#include "vyrax/vyr_startup.h"

#define VYR_VER_API extern "C" __attribute__((visibility("default")))

namespace {

struct Registry {
  std::mutex lock;
  std::vector<const VYR_VersionListHead*> heads;
  unsigned initialisations = 0;
  unsigned failuresToInject = 0;
};

Registry& TheRegistry() {
  static Registry* registry = new Registry;  // outlives the modules that register
  return *registry;
}

std::vector<const VYR_VersionRecord*> Records() {
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  std::vector<const VYR_VersionRecord*> records;
  for (const VYR_VersionListHead* head : registry.heads)
    for (const VYR_VersionRecord* r = head->first; r != nullptr; r = r->next) records.push_back(r);
  return records;
}

void Print(const std::vector<const VYR_VersionRecord*>& records) {
  for (const VYR_VersionRecord* r : records)
    std::printf("%s %u.%u (%s) built %s\n", r->name, r->major, r->build, r->header, r->stamp);
}

}  // namespace

VYR_VER_API bool __QEN_INITIALIZATION_FUNCTION_VYR_VER__() {
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  ++registry.initialisations;
  if (registry.failuresToInject > 0) {
    --registry.failuresToInject;
    return false;
  }
  return true;
}

VYR_VER_API void VYR_VersionRegister(VYR_VersionListHead* head) {
  if (head == nullptr) return;
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  registry.heads.push_back(head);
}

VYR_VER_API void VYR_VersionPrint() { Print(Records()); }

VYR_VER_API void VYR_VersionSorted() {
  std::vector<const VYR_VersionRecord*> records = Records();
  std::sort(
      records.begin(), records.end(),
      [](const VYR_VersionRecord* a, const VYR_VersionRecord* b) { return a->build > b->build; });
  Print(records);
}

// For tests: how often the registry was started, how many records it
// holds, and a way to make the next starts fail.
VYR_VER_API unsigned VYR_VersionInitialisations() {
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  return registry.initialisations;
}

VYR_VER_API unsigned VYR_VersionRecordCount() { return static_cast<unsigned>(Records().size()); }

VYR_VER_API void VYR_VersionFailNextStarts(unsigned count) {
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  registry.failuresToInject = count;
}
