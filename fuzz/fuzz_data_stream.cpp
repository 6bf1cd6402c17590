// Extract over arbitrary bytes: every input either reads or fails with a
// QEN_EStreamException (QEN_EUnknownClass is one), never another exception,
// a crash, a hang or unbounded memory.
// What was read must pack again, and what it packs to must read back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "fuzz_classes.h"

namespace {

void Repack(const QEN_IPackable& object) {
  QEN_TMemoryStream packed;
  QEN_TDataStream out(packed);
  try {
    out << object;
  } catch (const QEN_EException&) {
    return;  // a content that refuses to be written (a raw pointer) is fine
  }
  QEN_TDataStream in(packed);
  try {
    std::unique_ptr<QEN_IPackable> again(in.Extract());
    if (packed.Available() != 0) std::abort();  // read less than was written
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
  QEN_TDataStream in(bytes);
  try {
    while (bytes.Available() > 0) {
      std::unique_ptr<QEN_IPackable> object(in.Extract());
      Repack(*object);
    }
  } catch (const QEN_EStreamException&) {
  }
  return 0;
}
