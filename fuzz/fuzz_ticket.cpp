// A ticket read from arbitrary bytes: every input either reads or fails with
// a QEN_EStreamException, never another exception, a crash, a hang or
// unbounded memory. A ticket that was read writes again, and what it writes reads back
// to the same form.
//
// The first byte picks the reader, the rest is its input:
//   0  QEN_Unpack of the bare binary items into a new ticket
//   1  ReadFrom of the bare text form
//   2  Extract of a packed object (the class named in the bytes)
//   3  Extract of a framed text object
#include <vyrax/vyrax.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "fuzz_classes.h"

namespace {

void CheckText(const VYR_TImageTicket& ticket) {
  std::string first;
  try {
    first = Written(ticket);
  } catch (const QEN_EException&) {
    // Only a pointer in a dictionary refuses to be written as text.
    return;
  }
  TextReadsBack<VYR_TImageTicket>(first);
}

void CheckBoth(const VYR_TImageTicket& ticket) {
  BinaryReadsBack(ticket);
  CheckText(ticket);
}

}  // namespace

FUZZ_READ_FOUR_WAYS(VYR_TImageTicket, __QEN_INITIALIZATION_FUNCTION_VYRAX__, CheckBoth)
