// vyrtool config: what the process-wide configuration says, and where from.
#include "tool.h"

namespace vyrtool {

void AddConfig(CLI::App& app) { (void)app; }

}  // namespace vyrtool
