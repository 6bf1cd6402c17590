// Extract over arbitrary text: every input either reads or fails with a
// QEN_EStreamException (a syntax error or an unknown class), never another
// exception, a crash, a hang or unbounded memory.
// What was read must write again in the framed form, and that must read back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "fuzz_classes.h"

namespace {

void Rewrite(const QEN_IHumanReadable& object) {
  QEN_TMemoryStream text;
  QEN_THumanReadableStream out(text);
  try {
    out.WriteObject(object);
  } catch (const QEN_EException&) {
    return;
  }
  QEN_THumanReadableStream in(text);
  try {
    std::unique_ptr<QEN_IHumanReadable> again(in.Extract());
    in.SkipWhiteSpace();
    if (!in.AtEnd()) std::abort();  // read less than was written
  } catch (const QEN_EException&) {
    std::abort();  // written by us, refused by us
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  RegisterFuzzClasses();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 1 << 20) return 0;
  QEN_TMemoryStream bytes(const_cast<std::uint8_t*>(data), static_cast<unsigned>(size),
                          static_cast<unsigned>(size));
  QEN_THumanReadableStream in(bytes);
  try {
    for (;;) {
      in.SkipWhiteSpace();
      if (in.AtEnd()) break;
      std::unique_ptr<QEN_IHumanReadable> object(in.Extract());
      Rewrite(*object);
    }
  } catch (const QEN_EStreamException&) {
  }
  return 0;
}
