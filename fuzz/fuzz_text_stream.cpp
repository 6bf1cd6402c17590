// Extract over arbitrary text: every input either reads or fails with a
// QEN_EStreamException (a syntax error or an unknown class), never another
// exception, a crash, a hang or unbounded memory.
// What was read must write again in the framed form, and that must read back.
#include <cstddef>
#include <cstdint>

#include "fuzz_classes.h"

FUZZ_EXTRACT_EACH(QEN_THumanReadableStream)
