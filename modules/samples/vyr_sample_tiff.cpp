// A sample plug-in: the TIFF reader of the sample provider. Its start-up
// entry, named after the module's tag, registers its creators when the
// loader loads it.
#include <vyrax/vyrax.h>

#include "sample_plugins.h"

namespace {

const char* DescribeTiff() { return "sample TIFF reader: reads .tif and .tiff"; }

}  // namespace

extern "C" __attribute__((visibility("default"))) bool
__QEN_INITIALIZATION_FUNCTION_VYR_SAMPLE_TIFF__() {
  if (VYR_TDynamicLoader::sLoader == nullptr) return false;
  VYR_TDynamicLoader::Function creator =
      reinterpret_cast<VYR_TDynamicLoader::Function>(&DescribeTiff);
  VYR_TDynamicLoader::sLoader->RegisterCreator(VYR_SAMPLE_PROVIDER, "tiff", creator);
  VYR_TDynamicLoader::sLoader->RegisterCreator(VYR_SAMPLE_PROVIDER, "tif", creator);
  return true;
}
