// Slices, the reservation behind operator(), ExtendBuffer and hexadecimal
// decoding.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using buffertest::BytesOf;
using buffertest::Pattern;
typedef std::unique_ptr<const VYR_IBuffer> Owned;

class SliceTest : public test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__> {
 protected:
  void SetUp() override {
    mBytes = Pattern(100);
    mBuffer.reset(VYR_IBuffer::Create(100, mBytes.data(), true));
  }
  const unsigned char* At(unsigned offset) const {
    return static_cast<const unsigned char*>(mBuffer->Buffer()) + offset;
  }
  std::vector<unsigned char> mBytes;
  Owned mBuffer;
};

TEST_F(SliceTest, SizesAndLimitsOfSlices) {
  Owned middle(mBuffer->Slice(10, 10, false));
  EXPECT_STREQ(middle->ClassName(), "VYR_TSliceBuffer");
  EXPECT_EQ(middle->Buffer(), At(10));
  EXPECT_EQ(middle->Size(), 10u);
  EXPECT_EQ(middle->BufferAccess(), VYR_ReadWrite);  // the parent's answer
  EXPECT_EQ(middle->Buffer(10u), At(20));             // relative, limited by the slice
  EXPECT_THROW(middle->Buffer(11u), VYR_EBufferRegionTooLarge);

  Owned atEnd(mBuffer->Slice(100, 0, false));
  EXPECT_EQ(atEnd->Size(), 0u);
  EXPECT_FALSE(atEnd->IsValid());
  Owned whole(mBuffer->Slice(0, 0, false));
  EXPECT_EQ(whole->Size(), 100u);
  Owned emptyCopy(mBuffer->Slice(0, 0, true));  // a copy of 0 bytes, not to the end
  EXPECT_EQ(emptyCopy->Size(), 0u);
  Owned copy(mBuffer->Slice(90, 10, true));
  EXPECT_STREQ(copy->ClassName(), "VYR_TMemoryBuffer");
  EXPECT_EQ(BytesOf(*copy), std::vector<unsigned char>(mBytes.begin() + 90, mBytes.end()));

  EXPECT_THROW(Owned(mBuffer->Slice(101, 0, false)), VYR_EBufferSliceTooLarge);
  EXPECT_THROW(Owned(mBuffer->Slice(50, 51, false)), VYR_EBufferSliceTooLarge);
  EXPECT_THROW(Owned(mBuffer->Slice(0xFFFFFFF0u, 0x20, false)), VYR_EBufferSliceTooLarge);
  EXPECT_THROW(Owned(mBuffer->Slice(0xFFFFFFF0u, 0x20, true)), VYR_EBufferSliceTooLarge);

  // A slice of a slice counts from its own start.
  Owned inner(middle->Slice(2, 3, false));
  EXPECT_EQ(inner->Buffer(), At(12));
  EXPECT_THROW(Owned(middle->Slice(8, 3, false)), VYR_EBufferSliceTooLarge);
}

TEST_F(SliceTest, SlicesKeepTheBytesAlive) {
  Owned slice(mBuffer->Slice(40, 20, false));
  Owned sliceTwin(slice->Duplicate(false));
  EXPECT_EQ(sliceTwin->Buffer(), slice->Buffer());
  mBuffer.reset();
  slice.reset();
  EXPECT_EQ(BytesOf(*sliceTwin), std::vector<unsigned char>(mBytes.begin() + 40, mBytes.begin() + 60));
  Owned copy(sliceTwin->Duplicate(true));
  EXPECT_NE(copy->Buffer(), sliceTwin->Buffer());
  EXPECT_EQ(BytesOf(*copy), BytesOf(*sliceTwin));
}

TEST_F(SliceTest, OperatorCallReservesUntilTheNextCall) {
  const void* first = (*mBuffer)(10, 5);
  EXPECT_EQ(first, At(10));
  const VYR_IBuffer* reserved = mBuffer->Reserved();
  ASSERT_NE(reserved, nullptr);
  EXPECT_EQ(reserved->Size(), 5u);
  EXPECT_EQ((*mBuffer)(95, 0), At(95));  // size 0: up to the end
  EXPECT_EQ(mBuffer->Reserved()->Size(), 5u);
  EXPECT_EQ((*mBuffer)(100, 0), At(100));  // the end itself: 0 bytes
  EXPECT_EQ(mBuffer->Reserved()->Size(), 0u);

  // A failure leaves the previous reservation in place.
  (*mBuffer)(1, 2);
  const VYR_IBuffer* before = mBuffer->Reserved();
  EXPECT_THROW((*mBuffer)(99, 2), VYR_EBufferSliceTooLarge);
  EXPECT_THROW((*mBuffer)(101, 0), VYR_EBufferSliceTooLarge);
  EXPECT_THROW((*mBuffer)(0x100000001ull, 1), VYR_EBufferSliceTooLarge);  // not the low half
  EXPECT_THROW((*mBuffer)(0, 0x100000001ull), VYR_EBufferSliceTooLarge);
  EXPECT_EQ(mBuffer->Reserved(), before);

  mBuffer->FreeReservation();
  EXPECT_EQ(mBuffer->Reserved(), nullptr);
  // The reservation goes with the object, whenever that is.
  (*mBuffer)(0, 10);
}

TEST_F(SliceTest, SliceOperatorCountsFromItsStartUpToTheParentsEnd) {
  Owned slice(mBuffer->Slice(10, 10, false));
  EXPECT_EQ((*slice)(0, 0), At(10));
  // Size 0 reaches the parent's end, not the slice's.
  EXPECT_EQ(slice->Reserved()->Size(), 90u);
  EXPECT_EQ((*slice)(15, 5), At(25));  // past the slice, inside the parent
  EXPECT_THROW((*slice)(85, 10), VYR_EBufferSliceTooLarge);

  // A duplicate of the slice has a reservation of its own.
  Owned twin(slice->Duplicate(false));
  EXPECT_EQ(twin->Reserved(), nullptr);
  (*twin)(1, 1);
  EXPECT_NE(twin->Reserved(), slice->Reserved());
  slice->FreeReservation();
  EXPECT_EQ(slice->Reserved(), nullptr);
  EXPECT_NE(twin->Reserved(), nullptr);
}

TEST_F(SliceTest, ExtendBufferReachesTheParentsEnd) {
  Owned slice(mBuffer->Slice(10, 10, false));
  Owned extended(VYR_IBuffer::ExtendBuffer(slice.get()));
  ASSERT_NE(extended, nullptr);
  EXPECT_EQ(extended->Buffer(), At(10));
  EXPECT_EQ(extended->Size(), 90u);

  // Through any number of handles.
  VYR_TBuffer inner(slice->Duplicate(false));
  VYR_TBuffer outer(new VYR_TBuffer(inner));
  Owned throughHandles(VYR_IBuffer::ExtendBuffer(&outer));
  ASSERT_NE(throughHandles, nullptr);
  EXPECT_EQ(throughHandles->Size(), 90u);

  EXPECT_EQ(VYR_IBuffer::ExtendBuffer(mBuffer.get()), nullptr);
  EXPECT_EQ(VYR_IBuffer::ExtendBuffer(nullptr), nullptr);
  VYR_TBuffer memory(mBuffer->Duplicate(false));
  EXPECT_EQ(VYR_IBuffer::ExtendBuffer(&memory), nullptr);
  VYR_TBuffer empty;
  EXPECT_EQ(VYR_IBuffer::ExtendBuffer(&empty), nullptr);
}

// --- DecodeHex ------------------------------------------------------------------------

struct HexCase {
  const char* text;
  unsigned size;  // argument of DecodeHex(size)
  const char* bytes;
  unsigned count;
  bool incomplete;
};

TEST(DecodeHexTest, TableOfTexts) {
  ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
  const HexCase cases[] = {
      {"4A4b", 0, "\x4A\x4B", 2, false},
      {"4A 4b\n", 0, "\x4A\x4B", 2, true},  // trailing non-digits set the flag
      {"4A 4b", 0, "\x4A\x4B", 2, false},
      {"414", 0, "\x41", 1, true},          // the last digit is dropped
      {"4 ", 0, "\x3F", 1, false},          // a lone digit with the mark as its low half
      {"4\n\n", 0, "\x3F", 1, false},
      {"4142", 1, "\x41", 1, false},        // the destination is full
      {" 0\n0 ", 0, "\x00", 1, true},       // blanks even inside a pair
      {"fFaA09", 0, "\xFF\xAA\x09", 3, false},
      {"x4y1z", 0, "\x41", 1, true},
      {"00112233", 3, "\x00\x11\x22", 3, false},
      {"g", 0, nullptr, 0, true},  // see below: no digit at all
  };
  for (const HexCase& row : cases) {
    SCOPED_TRACE(row.text);
    const unsigned length = static_cast<unsigned>(std::strlen(row.text));
    Owned source(VYR_IBuffer::Create(length, row.text, true));
    bool incomplete = !row.incomplete;
    Owned result(source->DecodeHex(row.size, incomplete));
    EXPECT_EQ(incomplete, row.incomplete);
    if (row.bytes == nullptr) continue;
    ASSERT_EQ(result->Size(), row.count);
    EXPECT_EQ(std::memcmp(result->Buffer(), row.bytes, row.count), 0);
  }
}

TEST(DecodeHexTest, DestinationsAndEmptyResults) {
  ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
  // No digit at all, with a destination of its own: 0 bytes asks for size 0,
  // which gives the whole destination, and the flag says so.
  Owned noDigits(VYR_IBuffer::Create(4, "zz z", true));
  bool incomplete = false;
  Owned whole(noDigits->DecodeHex(0u, incomplete));
  EXPECT_TRUE(incomplete);
  EXPECT_EQ(whole->Size(), 2u);

  // A destination of the caller stays the caller's; its tail is untouched.
  Owned destination(VYR_IBuffer::Create(6, "......", true));
  Owned text(VYR_IBuffer::Create(4, "cafe", true));
  Owned decoded(text->DecodeHex(destination.get(), incomplete));
  EXPECT_FALSE(incomplete);
  EXPECT_EQ(decoded->Buffer(), destination->Buffer());
  EXPECT_EQ(decoded->Size(), 2u);
  EXPECT_EQ(std::memcmp(destination->Buffer(), "\xCA\xFE....", 6), 0);
  decoded.reset();
  destination.reset();

  // An empty source gives an empty result.
  Owned nothing(VYR_IBuffer::Create(0, nullptr, false));
  Owned empty(nothing->DecodeHex(0u));
  EXPECT_EQ(empty->Size(), 0u);

  // Decoding through a handle and into a slice of a larger buffer.
  VYR_TBuffer handle(6, "010203", true);
  Owned big(VYR_IBuffer::Create(10, "0123456789", true));
  Owned window(big->Slice(4, 2, false));
  Owned intoWindow(handle.DecodeHex(window.get()));
  EXPECT_EQ(intoWindow->Size(), 2u);
  EXPECT_EQ(std::memcmp(big->Buffer(), "0123\x01\x02" "6789", 10), 0);

  // The result outlives both the source and a destination it made itself.
  Owned longText(VYR_IBuffer::Create(8, "deadbeef", true));
  Owned bytes(longText->DecodeHex(0u));
  longText.reset();
  EXPECT_EQ(std::memcmp(bytes->Buffer(), "\xDE\xAD\xBE\xEF", 4), 0);
}

}  // namespace
