// vyrtool plugins: the configured plug-in table and loading.
#include "tool.h"

namespace vyrtool {

void AddPlugins(CLI::App& app) { (void)app; }

}  // namespace vyrtool
