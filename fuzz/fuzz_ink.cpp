// The ink's text form from arbitrary text: read into an ink directly and as
// a framed object. A read either fills the ink or fails with an exception of
// the stream family; an ink that was read writes a text that reads back to
// an equal ink.
#include <vyrax/vyrax.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

std::string Written(const VYR_TInk& ink) {
  QEN_TMemoryStream memory;
  QEN_THumanReadableStream out(memory);
  out.WriteObject(ink);
  return std::string(reinterpret_cast<const char*>(memory.Data()), memory.Length());
}

std::unique_ptr<QEN_IInterface> Extracted(const std::string& text) {
  QEN_TMemoryStream memory(const_cast<char*>(text.data()), static_cast<unsigned>(text.size()),
                           static_cast<unsigned>(text.size()));
  QEN_THumanReadableStream in(memory);
  return std::unique_ptr<QEN_IInterface>(in.Extract());
}

// An ink that was read is written and read back; what comes back is equal,
// but for previews that are not numbers, which equal nothing.
void RoundTrip(const VYR_TInk& ink) {
  const double* preview = ink.InkPreview();
  if (preview != nullptr)
    for (int i = 0; i < 4; ++i)
      if (preview[i] != preview[i]) return;
  std::unique_ptr<QEN_IInterface> again = Extracted(Written(ink));
  const VYR_TInk* copy = again ? again->DynamicCast<VYR_TInk>() : nullptr;
  if (copy == nullptr || !(*copy == ink)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!__QEN_INITIALIZATION_FUNCTION_VYRAX__()) std::abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    std::unique_ptr<QEN_IInterface> made(VYR_TInk::QEN_Create());
    VYR_TInk& ink = *made->DynamicCast<VYR_TInk>();
    QEN_TMemoryStream memory(const_cast<char*>(text.data()), static_cast<unsigned>(size),
                             static_cast<unsigned>(size));
    QEN_THumanReadableStream in(memory);
    ink.ReadFrom(in);
    RoundTrip(ink);
  } catch (const QEN_EStreamException&) {
  }
  try {
    std::unique_ptr<QEN_IInterface> object = Extracted("VYR_TInk {" + text + "}");
    if (const VYR_TInk* ink = object ? object->DynamicCast<VYR_TInk>() : nullptr) RoundTrip(*ink);
  } catch (const QEN_EStreamException&) {
  }
  return 0;
}
