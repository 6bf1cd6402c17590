// Hexadecimal decoding over arbitrary bytes, checked against a plain second
// reading of the same rules: the digits are paired in order, anything else
// is skipped; decoding stops when the destination is full; a digit left
// alone is dropped when it ends the text and kept with 255 as its low half
// when only non-digits follow it; the flag tells that the text ended while a
// pair was awaited or half read.
//
// Input: byte 0 picks the kind of destination, byte 1 its size, the rest is
// the text.
#include <vyrax/vyrax.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

typedef std::unique_ptr<const VYR_IBuffer> Owned;

void Check(bool condition) {
  if (!condition) std::abort();
}

int DigitOf(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

struct Expected {
  std::vector<unsigned char> bytes;
  bool incomplete = false;
};

Expected Decode(const unsigned char* text, size_t size, size_t room) {
  Expected result;
  std::vector<int> digits;
  std::vector<size_t> where;
  for (size_t i = 0; i < size; ++i) {
    const int digit = DigitOf(text[i]);
    if (digit < 0) continue;
    digits.push_back(digit);
    where.push_back(i);
  }
  if (room == 0 || size == 0) return result;
  size_t pair = 0;
  for (; pair + 1 < digits.size() && result.bytes.size() < room; pair += 2)
    result.bytes.push_back(static_cast<unsigned char>(digits[pair] * 16 + digits[pair + 1]));
  if (result.bytes.size() == room) return result;  // full: whatever is left is ignored
  if (pair < digits.size()) {                      // one digit left
    if (where[pair] == size - 1) {
      result.incomplete = true;
    } else {
      result.bytes.push_back(static_cast<unsigned char>((digits[pair] * 16 + 255) % 256));
    }
    return result;
  }
  // All digits paired: anything after the last one is an awaited pair.
  const size_t end = digits.empty() ? 0 : where.back() + 1;
  result.incomplete = end < size;
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!__QEN_INITIALIZATION_FUNCTION_VYRAX__()) std::abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const unsigned mode = data[0] % 4;
  const unsigned destinationSize = data[1];
  std::vector<unsigned char> text(data + 2, data + size);
  const unsigned length = static_cast<unsigned>(text.size());
  // A reference over the caller's memory: the decoder must stay inside it.
  Owned source(text.empty() ? VYR_IBuffer::Create(0, nullptr, false)
                            : VYR_IBuffer::CreateRef(length, text.data()));

  bool incomplete = false;
  Owned result;
  Owned destination;
  size_t room = 0;
  switch (mode) {
    case 0:  // a destination that the decoder makes
      room = (static_cast<size_t>(length) + 1) / 2;
      result.reset(source->DecodeHex(0u, incomplete));
      break;
    case 1:  // a size
      room = destinationSize != 0 ? destinationSize : (static_cast<size_t>(length) + 1) / 2;
      result.reset(source->DecodeHex(destinationSize, incomplete));
      break;
    case 2: {  // the caller's destination, with a guard byte beside it
      room = destinationSize;
      destination.reset(VYR_IBuffer::Create(destinationSize + 1, nullptr, false));
      unsigned char* bytes = static_cast<unsigned char*>(const_cast<void*>(destination->Buffer()));
      std::memset(bytes, 0xA5, destinationSize + 1);
      // A window of exactly `room` bytes; size 0 would mean "to the end",
      // so an empty window is cut at the end instead.
      const unsigned guard = destinationSize;
      Owned window(destinationSize != 0 ? destination->Slice(0, destinationSize, false)
                                        : destination->Slice(1, 0, false));
      result.reset(source->DecodeHex(window.get(), incomplete));
      Check(bytes[guard] == 0xA5);
      break;
    }
    default: {  // a slice of the text as the source, through a handle
      const unsigned skip = length > 0 ? destinationSize % (length + 1) : 0;
      VYR_TBuffer part(*source, skip, length - skip);
      room = (static_cast<size_t>(length - skip) + 1) / 2;
      result.reset(part.DecodeHex(static_cast<const VYR_IBuffer*>(nullptr), incomplete));
      text.erase(text.begin(), text.begin() + skip);
      break;
    }
  }

  const Expected expected = Decode(text.data(), text.size(), room);
  Check(incomplete == expected.incomplete);
  if (expected.bytes.empty()) {
    // Nothing decoded: size 0 asks the slice for the whole destination.
    Check(result->Size() == room);
  } else {
    Check(result->Size() == expected.bytes.size());
    Check(std::memcmp(result->Buffer(), expected.bytes.data(), expected.bytes.size()) == 0);
  }
  return 0;
}
