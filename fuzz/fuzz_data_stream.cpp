// Extract over arbitrary bytes: every input either reads or fails with a
// QEN_EStreamException (QEN_EUnknownClass is one), never another exception,
// a crash, a hang or unbounded memory.
// What was read must pack again, and what it packs to must read back.
#include <cstddef>
#include <cstdint>

#include "fuzz_classes.h"

FUZZ_EXTRACT_EACH(QEN_TDataStream)
