// A sample plug-in: the PNG reader of the sample provider. Its start-up
// entry, named after the module's tag, registers its creator when the
// loader loads it.
#include <vyrax/vyrax.h>

#include "sample_plugins.h"

namespace {

const char* DescribePng() { return "sample PNG reader: reads .png"; }

}  // namespace

VYR_SAMPLE_PLUGIN(VYR_SAMPLE_PNG, &DescribePng, "png")
