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

// Written by us, so it must read back, and then write the same again.
void CheckBinary(const VYR_TImageTicket& ticket) {
  std::string first = Packed(ticket);
  QEN_TMemoryStream memory(&first[0], static_cast<unsigned>(first.size()),
                           static_cast<unsigned>(first.size()));
  QEN_TDataStream in(memory);
  VYR_TImageTicket again;
  try {
    again.QEN_Unpack(in);
  } catch (const QEN_EException&) {
    std::abort();
  }
  if (memory.Available() != 0 || Packed(again) != first) std::abort();
}

void CheckText(const VYR_TImageTicket& ticket) {
  std::string first;
  try {
    first = Written(ticket);
  } catch (const QEN_EException&) {
    // Only a pointer in a dictionary refuses to be written as text.
    return;
  }
  QEN_TMemoryStream memory(&first[0], static_cast<unsigned>(first.size()),
                           static_cast<unsigned>(first.size()));
  QEN_THumanReadableStream in(memory);
  VYR_TImageTicket again;
  try {
    again.ReadFrom(in);
  } catch (const QEN_EStreamException&) {
    // The writer knows names the reader doesn't ("Production", the names of
    // undefined values): such a ticket writes fine and can't be read back.
    return;
  }
  if (Written(again) != first) std::abort();
}

void CheckBoth(const VYR_TImageTicket& ticket) {
  CheckBinary(ticket);
  CheckText(ticket);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  RegisterFuzzClasses();
  if (!__QEN_INITIALIZATION_FUNCTION_VYRAX__()) std::abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return ReadFourWays<VYR_TImageTicket>(data, size,
                                        [](VYR_TImageTicket& value) { CheckBoth(value); });
}
