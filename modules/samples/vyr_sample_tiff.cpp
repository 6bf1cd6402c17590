// A sample plug-in: the TIFF reader of the sample provider. Its start-up
// entry, named after the module's tag, registers its creators when the
// loader loads it.
#include <vyrax/vyrax.h>

#include "sample_plugins.h"

namespace {

const char* DescribeTiff() { return "sample TIFF reader: reads .tif and .tiff"; }

}  // namespace

VYR_SAMPLE_PLUGIN(VYR_SAMPLE_TIFF, &DescribeTiff, "tiff", "tif")
