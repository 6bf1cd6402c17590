// Hexadecimal text in a buffer, decoded into bytes.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include <cstring>
#include <memory>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"

namespace {

constexpr unsigned char kNotADigit = 255;

struct DigitTable {
  unsigned char value[256];
  constexpr DigitTable() : value() {
    for (int c = 0; c < 256; ++c) value[c] = kNotADigit;
    for (int c = '0'; c <= '9'; ++c) value[c] = static_cast<unsigned char>(c - '0');
    for (int c = 'A'; c <= 'F'; ++c) value[c] = static_cast<unsigned char>(c - 'A' + 10);
    for (int c = 'a'; c <= 'f'; ++c) value[c] = static_cast<unsigned char>(c - 'a' + 10);
  }
};

constexpr DigitTable kDigits;

// Decodes `left` bytes of text into at most `room` bytes; gives the number of
// bytes written. `left` counts the bytes not yet taken, so a byte is only
// read while it is positive.
unsigned int DecodePairs(unsigned char const* in, unsigned int left, unsigned char* out,
                         unsigned int room, bool& incomplete) {
  unsigned int written = 0;
  if (left == 0 || room == 0) return 0;
  for (;;) {
    unsigned char high = kDigits.value[*in++];
    while (high == kNotADigit) {
      if (--left == 0) {
        incomplete = true;
        return written;
      }
      high = kDigits.value[*in++];
    }
    if (--left == 0) {  // the source ends after the first digit of a pair
      incomplete = true;
      return written;
    }
    unsigned char low = kDigits.value[*in++];
    while (low == kNotADigit) {
      if (--left == 0) {
        // Only non-digits followed the high digit: it is stored with the
        // mark of a non-digit as its low half.
        out[written++] = static_cast<unsigned char>((high * 16 + kNotADigit) % 256);
        return written;
      }
      low = kDigits.value[*in++];
    }
    --left;
    out[written++] = static_cast<unsigned char>(high * 16 + low);
    if (left == 0 || written == room) return written;
  }
}

}  // namespace

VYR_IBuffer const* VYR_IBuffer::DecodeHex(VYR_IBuffer const* destination, bool& incomplete) const {
  incomplete = false;
  std::unique_ptr<VYR_IBuffer const> own;
  if (destination == nullptr) {
    const unsigned long long half = (static_cast<unsigned long long>(Size()) + 1) / 2;
    own.reset(new VYR_TMemoryBuffer(static_cast<unsigned int>(half), nullptr));
    destination = own.get();
  }
  // The destination is written through its address in spite of the const:
  // anything but a ReadWrite buffer would fault or change a shared file.
  if (destination->BufferAccess() != VYR_ReadWrite)
    VYR_THROW(VYR_EBufferInternal, "DecodeHex into a buffer that is not ReadWrite");
  unsigned char const* const in = vyr::AllBytes(*this);
  unsigned char* const out = static_cast<unsigned char*>(const_cast<void*>(destination->Buffer()));
  const unsigned int room = destination->Size();
  const unsigned int written = DecodePairs(in, Size(), out, room, incomplete);
  // A result of 0 bytes asks for size 0, which means to the end: the whole
  // destination comes back, with the flag telling that nothing was decoded,
  // and cleared, so that it never shows bytes that nobody wrote.
  if (written == 0 && room > 0) std::memset(out, 0, room);
  return destination->Slice(0, written, false);
}

VYR_IBuffer const* VYR_IBuffer::DecodeHex(VYR_IBuffer const* destination) const {
  bool incomplete = false;
  return DecodeHex(destination, incomplete);
}

VYR_IBuffer const* VYR_IBuffer::DecodeHex(unsigned int size, bool& incomplete) const {
  if (size == 0) return DecodeHex(static_cast<VYR_IBuffer const*>(nullptr), incomplete);
  const std::unique_ptr<VYR_IBuffer const> destination(new VYR_TMemoryBuffer(size, nullptr));
  return DecodeHex(destination.get(), incomplete);
}

VYR_IBuffer const* VYR_IBuffer::DecodeHex(unsigned int size) const {
  bool incomplete = false;
  return DecodeHex(size, incomplete);
}
