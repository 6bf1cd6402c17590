// A sample plug-in: the PNG reader of the sample provider. Its start-up
// entry, named after the module's tag, registers its creator when the
// loader loads it.
#include <vyrax/vyrax.h>

#include "sample_plugins.h"

namespace {

const char* DescribePng() { return "sample PNG reader: reads .png"; }

}  // namespace

extern "C" __attribute__((visibility("default"))) bool
__QEN_INITIALIZATION_FUNCTION_VYR_SAMPLE_PNG__() {
  if (VYR_TDynamicLoader::sLoader == nullptr) return false;
  VYR_TDynamicLoader::sLoader->RegisterCreator(
      VYR_SAMPLE_PROVIDER, "png", reinterpret_cast<VYR_TDynamicLoader::Function>(&DescribePng));
  return true;
}
