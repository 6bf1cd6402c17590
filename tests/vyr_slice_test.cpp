// Slices, the reservation behind operator(), ExtendBuffer and hexadecimal
// decoding.

#include <pthread.h>

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using namespace buffertest;

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
  EXPECT_EQ(middle->BufferAccess(), VYR_ReadWrite);  // the parent's answer
  EXPECT_EQ(middle->Buffer(10u), At(20));             // relative, limited by the slice
  EXPECT_THROW(middle->Buffer(11u), VYR_EBufferRegionTooLarge);
  // A private copy of a slice holds its bytes.
  Owned middleCopy(middle->Duplicate(true));
  EXPECT_NE(middleCopy->Buffer(), middle->Buffer());
  EXPECT_EQ(BytesOf(*middleCopy), BytesOf(*middle));
  // A slice of a slice counts from its own start.
  EXPECT_EQ(Owned(middle->Slice(2, 3, false))->Buffer(), At(12));
  EXPECT_THROW(Owned(middle->Slice(8, 3, false)), VYR_EBufferSliceTooLarge);

  // Size 0 reaches the end when shared, but copies 0 bytes.
  const struct { unsigned offset, size; bool copy; unsigned expected; } sizes[] = {
      {100, 0, false, 0}, {0, 0, false, 100}, {0, 0, true, 0}, {90, 10, true, 10}};
  for (const auto& row : sizes) EXPECT_EQ(Owned(mBuffer->Slice(row.offset, row.size, row.copy))->Size(), row.expected);
  EXPECT_FALSE(Owned(mBuffer->Slice(100, 0, false))->IsValid());
  Owned copy(mBuffer->Slice(90, 10, true));
  EXPECT_STREQ(copy->ClassName(), "VYR_TMemoryBuffer");
  EXPECT_EQ(BytesOf(*copy), std::vector<unsigned char>(mBytes.begin() + 90, mBytes.end()));

  // Past the end, and offset + size that would wrap.
  const struct { unsigned offset, size; } tooLarge[] = {{101, 0}, {50, 51}, {0xFFFFFFF0u, 0x20}};
  for (const auto& row : tooLarge)
    for (bool copyIt : {false, true})
      EXPECT_THROW(Owned(mBuffer->Slice(row.offset, row.size, copyIt)), VYR_EBufferSliceTooLarge) << row.offset;
}

TEST_F(SliceTest, OperatorCallReservesUntilTheNextCall) {
  EXPECT_EQ((*mBuffer)(10, 5), At(10));
  ASSERT_NE(mBuffer->Reserved(), nullptr);
  EXPECT_EQ(mBuffer->Reserved()->Size(), 5u);
  EXPECT_EQ((*mBuffer)(95, 0), At(95));  // size 0: up to the end
  EXPECT_EQ(mBuffer->Reserved()->Size(), 5u);
  EXPECT_EQ((*mBuffer)(100, 0), At(100));  // the end itself: 0 bytes
  EXPECT_EQ(mBuffer->Reserved()->Size(), 0u);

  // A failure leaves the previous reservation in place; 64-bit offsets and
  // sizes are not cut to their low half.
  (*mBuffer)(1, 2);
  const VYR_IBuffer* before = mBuffer->Reserved();
  const struct { unsigned long long offset, size; } bad[] = {{99, 2}, {101, 0}, {0x100000001ull, 1}, {0, 0x100000001ull}};
  for (const auto& row : bad) EXPECT_THROW((*mBuffer)(row.offset, row.size), VYR_EBufferSliceTooLarge) << row.offset;
  EXPECT_EQ(mBuffer->Reserved(), before);
  mBuffer->FreeReservation();
  EXPECT_EQ(mBuffer->Reserved(), nullptr);
  (*mBuffer)(0, 10);  // the reservation goes with the object, whenever that is
}

TEST_F(SliceTest, SliceOperatorCountsFromItsStartUpToTheParentsEnd) {
  Owned slice(mBuffer->Slice(10, 10, false));
  EXPECT_EQ((*slice)(0, 0), At(10));
  EXPECT_EQ(slice->Reserved()->Size(), 90u);  // size 0 reaches the parent's end, not the slice's
  EXPECT_EQ((*slice)(15, 5), At(25));         // past the slice, inside the parent
  EXPECT_THROW((*slice)(85, 10), VYR_EBufferSliceTooLarge);
  // A duplicate of the slice has a reservation of its own.
  Owned twin(slice->Duplicate(false));
  EXPECT_EQ(twin->Reserved(), nullptr);
  (*twin)(1, 1);
  slice->FreeReservation();
  EXPECT_NE(twin->Reserved(), nullptr);
}

TEST_F(SliceTest, ExtendBufferReachesTheParentsEnd) {
  Owned slice(mBuffer->Slice(10, 10, false));
  Owned extended(VYR_IBuffer::ExtendBuffer(slice.get()));
  ASSERT_NE(extended, nullptr);
  EXPECT_EQ(extended->Buffer(), At(10));
  EXPECT_EQ(extended->Size(), 90u);
  // Through any number of handles.
  VYR_TBuffer outer(new VYR_TBuffer(VYR_TBuffer(slice->Duplicate(false))));
  Owned throughHandles(VYR_IBuffer::ExtendBuffer(&outer));
  ASSERT_NE(throughHandles, nullptr);
  EXPECT_EQ(throughHandles->Size(), 90u);
  // Nothing to extend: no slice anywhere inside.
  VYR_TBuffer memory(mBuffer->Duplicate(false)), empty;
  for (const VYR_IBuffer* none : {mBuffer.get(), static_cast<const VYR_IBuffer*>(nullptr),
                                  static_cast<const VYR_IBuffer*>(&memory), static_cast<const VYR_IBuffer*>(&empty)})
    EXPECT_EQ(VYR_IBuffer::ExtendBuffer(none), nullptr);
}

// Each step slices the previous slice and deletes it: a chain of any length
// costs the same per step and unwinds without recursion, on a small stack.
TEST_F(SliceTest, ChainsOfSlicesStayFlat) {
  Owned slice(mBuffer->Slice(10, 80, false));
  Owned nested(slice->Slice(5, 10, false));
  // Bounds as if each level held the one before it.
  EXPECT_EQ(nested->Buffer(), At(15));
  EXPECT_EQ((*nested)(0, 0), At(15));
  EXPECT_EQ(nested->Reserved()->Size(), 85u);  // operator() reaches the owner's end
  Owned extended(VYR_IBuffer::ExtendBuffer(nested.get()));
  EXPECT_EQ(extended->Buffer(), At(15));
  EXPECT_EQ(extended->Size(), 75u);  // the end of the slice it was cut from
  Owned atTheEnd(slice->Slice(80, 0, false));
  EXPECT_EQ(Owned(VYR_IBuffer::ExtendBuffer(atTheEnd.get()))->Size(), 0u);

  std::vector<unsigned char> big(1 << 20);
  Owned owner(VYR_IBuffer::Create(static_cast<unsigned>(big.size()), big.data(), true));
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 1 << 20);
  struct Chain {
    const VYR_IBuffer* owner;
    bool ok;
  } chain{owner.get(), false};
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, [](void* arg) -> void* {
    Chain* chain = static_cast<Chain*>(arg);
    const VYR_IBuffer* current = chain->owner->Slice(0, 0, false);
    const unsigned steps = 200000;
    for (unsigned step = 0; step < steps; ++step) {
      const VYR_IBuffer* next = current->Slice(1, 0, false);
      delete current;
      current = next;
    }
    chain->ok = current->Size() == chain->owner->Size() - steps &&
                current->Buffer() == static_cast<const unsigned char*>(chain->owner->Buffer()) + steps;
    Owned extended(VYR_IBuffer::ExtendBuffer(current));
    chain->ok = chain->ok && extended->Size() == current->Size();
    delete current;
    return nullptr;
  }, &chain), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  EXPECT_TRUE(chain.ok);
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
      // No digit at all, with a destination of its own: 0 bytes asks for
      // size 0, which gives the whole destination, cleared, and the flag
      // says so.
      {"zz z", 0, "\0\0", 2, true},
      {"z", 0, "\0", 1, true},
      {"", 0, nullptr, 0, false},  // an empty source gives an empty result
  };
  for (const HexCase& row : cases) {
    SCOPED_TRACE(row.text);
    const unsigned length = static_cast<unsigned>(std::strlen(row.text));
    Owned source(VYR_IBuffer::Create(length, length ? row.text : nullptr, length != 0));
    bool incomplete = !row.incomplete;
    Owned result(length ? source->DecodeHex(row.size, incomplete) : source->DecodeHex(row.size));
    if (length) { EXPECT_EQ(incomplete, row.incomplete); }
    ASSERT_EQ(result->Size(), row.count);
    if (row.bytes != nullptr) { EXPECT_EQ(std::memcmp(result->Buffer(), row.bytes, row.count), 0); }
  }
}

TEST(DecodeHexTest, DestinationsOfTheCaller) {
  ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
  // A destination of the caller stays the caller's; its tail is untouched.
  Owned destination(VYR_IBuffer::Create(6, "......", true));
  bool incomplete = true;
  Owned decoded(Owned(VYR_IBuffer::Create(4, "cafe", true))->DecodeHex(destination.get(), incomplete));
  EXPECT_FALSE(incomplete);
  EXPECT_EQ(decoded->Buffer(), destination->Buffer());
  EXPECT_EQ(decoded->Size(), 2u);
  EXPECT_EQ(std::memcmp(destination->Buffer(), "\xCA\xFE....", 6), 0);
  // When nothing decodes, the whole destination comes back, cleared.
  Owned none(Owned(VYR_IBuffer::Create(2, "zz", true))->DecodeHex(destination.get(), incomplete));
  EXPECT_EQ(std::memcmp(none->Buffer(), "\0\0\0\0\0\0", 6), 0);

  // Decoding through a handle and into a slice of a larger buffer.
  Owned big(VYR_IBuffer::Create(10, "0123456789", true));
  Owned window(big->Slice(4, 2, false));
  EXPECT_EQ(Owned(VYR_TBuffer(6, "010203", true).DecodeHex(window.get()))->Size(), 2u);
  EXPECT_EQ(std::memcmp(big->Buffer(), "0123\x01\x02" "6789", 10), 0);

  // The result outlives both the source and a destination it made itself.
  Owned longText(VYR_IBuffer::Create(8, "deadbeef", true));
  Owned bytes(longText->DecodeHex(0u));
  longText.reset();
  EXPECT_EQ(std::memcmp(bytes->Buffer(), "\xDE\xAD\xBE\xEF", 4), 0);
}

}  // namespace
