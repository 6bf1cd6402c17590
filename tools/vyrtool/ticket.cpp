// vyrtool ticket: whether a ticket can still be trusted and its files used.
#include <iostream>

#include "tool.h"

namespace vyrtool {

void AddTicket(CLI::App& app) { (void)app; }

}  // namespace vyrtool
