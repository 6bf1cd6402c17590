// Memory buffers, references, the sharing ring, ownership in any order of
// deletion, the buffer handle and its packed form, the factories' routes, slices
// with the reservation behind operator() and ExtendBuffer, and hexadecimal decoding.
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using namespace buffertest;
using test_support::Extract;
using test_support::Pack;

class BufferTest : public test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__> {
 protected:
  PlatformGuard mPlatform;
};

const unsigned char* Bytes(const VYR_IBuffer& buffer) {
  return static_cast<const unsigned char*>(buffer.Buffer());
}

// Memory buffers copy, adopt or share through their ring; size 0; no memory.
TEST_F(BufferTest, MemoryBuffersCopyAdoptAndShare) {
  std::vector<unsigned char> source = Pattern(64);
  Owned copy(VYR_IBuffer::Create(64, source.data(), true));
  source[0] ^= 0xFF;  // a private copy doesn't see later writes
  EXPECT_EQ(Bytes(*copy)[0], static_cast<unsigned char>(source[0] ^ 0xFF));
  Owned shared(copy->Duplicate(false));
  const_cast<unsigned char*>(Bytes(*shared))[1] = 0xAB;  // every ring member sees a write at once
  EXPECT_EQ(Bytes(*copy)[1], 0xAB);
  Owned privateCopy(copy->Duplicate(true));
  EXPECT_NE(privateCopy->Buffer(), copy->Buffer());
  EXPECT_EQ(BytesOf(*privateCopy), BytesOf(*copy));
  void* memory = std::calloc(8, 1);  // adopted as it is; its bytes are not read
  EXPECT_EQ(Owned(VYR_IBuffer::Create(8, memory, false))->Buffer(), memory);
  // Size 0 adopts as well, and frees at the end: the leak checker would say.
  EXPECT_FALSE(Owned(VYR_IBuffer::Create(0, std::malloc(4), false))->IsValid());
  for (bool copy : {false, true}) {
    Owned empty(VYR_IBuffer::Create(0, nullptr, copy));
    EXPECT_NE(empty->Buffer(), nullptr);
    EXPECT_FALSE(empty->IsValid());
    EXPECT_EQ(empty->Buffer(0u, 0u), nullptr);  // invalid: null, not an exception
  }
  // Out of memory wraps the system error; a copy fails the same way.
  VYR_PlatformInjectFault(VYR_PlatformAllocate, ENOMEM, 1);
  try {
    Owned(VYR_IBuffer::Create(16, nullptr, false));
    FAIL() << "no exception";
  } catch (const VYR_EBufferNotEnoughMemory& failure) {
    ExpectSystemError(failure, ENOMEM);
  }
  VYR_PlatformInjectFault(VYR_PlatformAllocate, ENOMEM, 1);
  EXPECT_THROW(Owned(VYR_IBuffer::Create(8, Pattern(8).data(), true)), VYR_EBufferNotEnoughMemory);
  // References never own, and duplicate independently.
  unsigned char stack[32];
  std::memcpy(stack, Pattern(32).data(), 32);
  Owned ref(VYR_IBuffer::CreateRef(32, stack));
  Owned twin(ref->Duplicate(false));
  EXPECT_EQ(twin->Buffer(), static_cast<const void*>(stack));
  Owned slice(ref->Slice(4, 8, false));
  ref.reset();  // nothing is freed: stack memory would make the checker cry
  EXPECT_EQ(Bytes(*slice)[0], stack[4]);
  EXPECT_THROW(Owned(VYR_IBuffer::CreateRef(4, nullptr)), VYR_EBufferInternal);
}

TEST_F(BufferTest, CopyContentFromWritesTheStartAndKeepsTheRest) {
  std::vector<unsigned char> expected = Pattern(16);
  Owned target(VYR_IBuffer::Create(16, expected.data(), true));
  // From another buffer: a range, size 0 up to its end, and the whole.
  Owned source(VYR_IBuffer::Create(6, "ABCDEF", true));
  const struct {
    unsigned offset, size;
    const char* written;
  } rows[] = {{2, 3, "CDE"}, {4, 0, "EF"}, {0, 0, "ABCDEF"}};
  for (const auto& row : rows) {
    target->CopyContentFrom(*source, row.offset, row.size);
    std::memcpy(expected.data(), row.written, std::strlen(row.written));
    EXPECT_EQ(BytesOf(*target), expected) << row.written;
  }
  EXPECT_THROW(source->CopyContentFrom(*target), VYR_EBufferDestinationTooSmall);
  EXPECT_THROW(target->CopyContentFrom(*source, 5, 2), VYR_EBufferSliceTooLarge);
  target->CopyContentFrom(*target, 1, 4);  // its own bytes, moved within itself
  EXPECT_EQ(std::memcmp(Bytes(*target), "BCDE", 4), 0);
}

// --- Ownership in any order ------------------------------------------------------------

TEST_F(BufferTest, AnyOrderOfDeletionReleasesOnce) {
  std::vector<int> order = {0, 1, 2, 3, 4, 5};
  const std::vector<unsigned char> bytes = Pattern(100);
  const unsigned offsets[6] = {0, 0, 10, 15, 15, 10};
  do {
    std::vector<const VYR_IBuffer*> objects(6);
    objects[0] = VYR_IBuffer::Create(100, bytes.data(), true);
    objects[1] = objects[0]->Duplicate(false);
    objects[2] = objects[1]->Slice(10, 50, false);
    objects[3] = objects[2]->Slice(5, 0, false);
    objects[4] = new VYR_TBuffer(*objects[3]);
    objects[5] = objects[2]->Duplicate(false);
    for (size_t i = 0; i < order.size(); ++i) {
      // Everybody still alive still reads the right bytes.
      for (size_t j = i; j < order.size(); ++j)
        ASSERT_EQ(Bytes(*objects[order[j]])[0], bytes[offsets[order[j]]]);
      delete objects[order[i]];
    }
  } while (std::next_permutation(order.begin(), order.end()));
}

// Threads duplicating, slicing and deleting members of one ring while others
// read; run under ThreadSanitizer as well.
TEST_F(BufferTest, RingMembersComeAndGoFromManyThreads) {
  const std::vector<unsigned char> bytes = Pattern(4096);
  const VYR_IBuffer* original = VYR_IBuffer::Create(4096, bytes.data(), true);
  std::vector<const VYR_IBuffer*> seeds;
  for (int i = 0; i < 4; ++i) seeds.push_back(original->Duplicate(false));
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      const VYR_IBuffer* mine = seeds[t];
      for (int round = 0; round < 300; ++round) {
        const VYR_IBuffer* twin = mine->Duplicate(false);
        const VYR_IBuffer* slice = twin->Slice(static_cast<unsigned>(round % 64), 0, false);
        if (BytesOf(*twin) != bytes || Bytes(*slice)[0] != bytes[round % 64]) ++wrong;
        // Alternate which one dies first, and let the thread's own member go
        // now and then, so that the last member changes hands.
        delete (round % 2 == 0 ? twin : slice);
        if (round % 2 == 0) {
          delete slice;
        } else {
          delete mine;
          mine = twin;
        }
      }
      delete mine;
    });
  }
  delete original;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
}

// --- The handle ----------------------------------------------------------------------

TEST_F(BufferTest, HandlesAdoptShareAndCompareBytes) {
  const VYR_IBuffer* raw = VYR_IBuffer::Create(4, "abcd", true);
  VYR_TBuffer handle(raw);
  EXPECT_EQ(handle = raw, raw);  // taking over what it holds already changes nothing
  EXPECT_EQ(std::memcmp(handle.Buffer(), "abcd", 4), 0);
  VYR_TBuffer shared(handle);
  // A handle's duplicate shares, even when asked to copy.
  EXPECT_EQ(Owned(handle.Duplicate(true))->Buffer(), handle.Buffer());
  VYR_TBuffer part(handle, 1, 2);
  VYR_TBuffer& same = part;
  part = same;  // assigning a handle to itself keeps what it holds
  EXPECT_EQ(part.Buffer(), Bytes(handle) + 1);
  EXPECT_EQ(handle.CopyContentFrom("X", 1), raw);
  EXPECT_EQ(Bytes(shared)[0], 'X');
  // Handles compare by their bytes, and an empty one holds nothing.
  EXPECT_THROW(VYR_TBuffer().Buffer(), VYR_EBufferEmptyBuffer);
  VYR_TBuffer a(5, "hello", true);
  EXPECT_TRUE(a == VYR_TBuffer(5, "hello", true));
  EXPECT_TRUE(a != VYR_TBuffer(5, "hellO", true));
  EXPECT_TRUE(a != VYR_TBuffer(4, "hell", true));
}

// The pinned form; any original unpacks into a private writable memory
// buffer, and a forged size is refused.
TEST_F(BufferTest, PackedFormIsPinnedAndUnpacksIntoMemory) {
  test_support::ExpectPinnedPacked("vyr_buffer.bin",
                                   std::vector<VYR_TBuffer>{VYR_TBuffer(5, "bytes", true)});
  unsigned char external[6] = {'a', 'b', 'c', 'd', 'e', 'f'};
  // Larger than what is allocated at once: the bytes arrive in growing steps.
  const std::vector<unsigned char> big = Pattern(3u << 20);
  for (const VYR_TBuffer& original :
       {VYR_TBuffer(VYR_IBuffer::CreateRef(6, external)), VYR_TBuffer(0, nullptr, false),
        VYR_TBuffer(static_cast<unsigned>(big.size()), big.data(), true)}) {
    const std::unique_ptr<QEN_IInterface> rebuilt = Extract(Pack(original));
    const VYR_TBuffer* handle = rebuilt ? rebuilt->DynamicCast<VYR_TBuffer>() : nullptr;
    ASSERT_NE(handle, nullptr);
    EXPECT_TRUE(*handle == original);
    EXPECT_NE(handle->Buffer(), static_cast<const void*>(external));
    EXPECT_EQ(handle->BufferAccess(), VYR_ReadWrite);
  }
  // The size is the four bytes before the payload: claim 1 GiB and 3 GiB.
  const std::vector<unsigned char> packed = Pack(VYR_TBuffer(4, "abcd", true));
  for (unsigned claim : {1u << 30, 3u << 30, 5u}) {
    std::vector<unsigned char> forged = packed;
    std::memcpy(&forged[forged.size() - 8], &claim, 4);
    EXPECT_THROW(Extract(forged), QEN_EStreamException) << claim;
  }
}

TEST_F(BufferTest, ProtocolsThatNoFileRouteServes) {
  EXPECT_THROW(Owned(VYR_IBuffer::Create(QEN_TURL("extern://host/x"), 0, 0, 0)),
               VYR_EBufferInternal);
  EXPECT_THROW(Owned(VYR_IBuffer::Create(QEN_TURL("ftp://host/x"), 0, 0, 0)),
               VYR_EBufferUnknownProtocol);
  // As a name, an unknown protocol is tried as a file of that very name.
  EXPECT_THROW(Owned(VYR_IBuffer::Create(QEN_TString("ftp://nowhere/at/all"), 0, 0, 0)),
               VYR_EBufferCannotOpenFile);
}

// --- Slices, the reservation behind operator(), ExtendBuffer ----------------------------

class SliceTest : public BufferTest {
 protected:
  const unsigned char* At(unsigned offset) const { return Bytes(*mBuffer) + offset; }
  const std::vector<unsigned char> mBytes = Pattern(100);
  const Owned mBuffer{VYR_IBuffer::Create(100, mBytes.data(), true)};
};

TEST_F(SliceTest, SizesAndLimitsOfAddressesAndSlices) {
  EXPECT_EQ(mBuffer->Buffer(100u), At(100));  // one past the end
  EXPECT_THROW(mBuffer->Buffer(101u), VYR_EBufferRegionTooLarge);
  EXPECT_EQ(mBuffer->Buffer(2u, 98u), At(2));
  EXPECT_EQ(mBuffer->Buffer(2u, 99u), nullptr);
  EXPECT_EQ(mBuffer->Buffer(0xFFFFFFFFu, 2u), nullptr);  // the sum must not wrap
  Owned middle(mBuffer->Slice(10, 10, false));
  EXPECT_EQ(middle->Buffer(10u), At(20));  // relative, limited by the slice
  EXPECT_THROW(middle->Buffer(11u), VYR_EBufferRegionTooLarge);
  // A slice of a slice is limited by it.
  EXPECT_THROW(Owned(middle->Slice(8, 3, false)), VYR_EBufferSliceTooLarge);
  // Size 0 reaches the end when shared, but copies 0 bytes.
  const struct {
    unsigned offset, size;
    bool copy;
    unsigned expected;
  } sizes[] = {{100, 0, false, 0}, {0, 0, false, 100}, {0, 0, true, 0}, {90, 10, true, 10}};
  for (const auto& row : sizes)
    EXPECT_EQ(Owned(mBuffer->Slice(row.offset, row.size, row.copy))->Size(), row.expected);
  // Past the end, and offset + size that would wrap.
  const struct { unsigned offset, size; } tooLarge[] = {{101, 0}, {50, 51}, {0xFFFFFFF0u, 0x20}};
  for (const auto& row : tooLarge)
    for (bool copyIt : {false, true})
      EXPECT_THROW(Owned(mBuffer->Slice(row.offset, row.size, copyIt)), VYR_EBufferSliceTooLarge)
          << row.offset;
}

TEST_F(SliceTest, OperatorCallReservesUntilTheNextCall) {
  EXPECT_EQ((*mBuffer)(10, 5), At(10));
  EXPECT_EQ(mBuffer->Reserved()->Size(), 5u);
  EXPECT_EQ((*mBuffer)(95, 0), At(95));  // size 0: up to the end
  EXPECT_EQ(mBuffer->Reserved()->Size(), 5u);
  // A failure leaves the previous reservation in place; 64-bit offsets and
  // sizes are not cut to their low half.
  const VYR_IBuffer* before = mBuffer->Reserved();
  const struct {
    unsigned long long offset, size;
  } bad[] = {{99, 2}, {101, 0}, {0x100000001ull, 1}, {0, 0x100000001ull}};
  for (const auto& row : bad)
    EXPECT_THROW((*mBuffer)(row.offset, row.size), VYR_EBufferSliceTooLarge) << row.offset;
  EXPECT_EQ(mBuffer->Reserved(), before);
  mBuffer->FreeReservation();
  (*mBuffer)(0, 10);  // the reservation goes with the object, whenever that is
  // A slice's counts from its start up to the parent's end.
  Owned slice(mBuffer->Slice(10, 10, false));
  EXPECT_EQ((*slice)(0, 0), At(10));
  EXPECT_EQ(slice->Reserved()->Size(), 90u);  // size 0 reaches the parent's end, not the slice's
  EXPECT_EQ((*slice)(15, 5), At(25));         // past the slice, inside the parent
  EXPECT_THROW((*slice)(85, 10), VYR_EBufferSliceTooLarge);
  // A duplicate of the slice has a reservation of its own.
  Owned twin(slice->Duplicate(false));
  (*twin)(1, 1);
  slice->FreeReservation();
  EXPECT_NE(twin->Reserved(), nullptr);
}

TEST_F(SliceTest, ExtendBufferReachesTheParentsEnd) {
  Owned slice(mBuffer->Slice(10, 10, false));
  EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::ExtendBuffer(slice.get()))),
            std::vector<unsigned char>(mBytes.begin() + 10, mBytes.end()));
  // Through any number of handles.
  VYR_TBuffer outer(new VYR_TBuffer(VYR_TBuffer(slice->Duplicate(false))));
  EXPECT_EQ(Owned(VYR_IBuffer::ExtendBuffer(&outer))->Size(), 90u);
  // A slice of a slice is bounded as if each level held the one before it:
  // it extends to the end of the slice it was cut from, while operator()
  // reaches the owner's end.
  Owned nested(Owned(mBuffer->Slice(10, 80, false))->Slice(5, 10, false));
  EXPECT_EQ(Owned(VYR_IBuffer::ExtendBuffer(nested.get()))->Size(), 75u);
  EXPECT_EQ((*nested)(0, 0), At(15));
  EXPECT_EQ(nested->Reserved()->Size(), 85u);
  // Nothing to extend: no slice anywhere inside.
  VYR_TBuffer memory(mBuffer->Duplicate(false)), empty;
  for (const VYR_IBuffer* none :
       {mBuffer.get(), static_cast<const VYR_IBuffer*>(nullptr),
        static_cast<const VYR_IBuffer*>(&memory), static_cast<const VYR_IBuffer*>(&empty)})
    EXPECT_EQ(VYR_IBuffer::ExtendBuffer(none), nullptr);
}

// Slices a slice 200000 times, deleting the one before each time.
void* WalkAChainOfSlices(void* owner) {
  const VYR_IBuffer* start = static_cast<const VYR_IBuffer*>(owner);
  const VYR_IBuffer* current = start->Slice(0, 0, false);
  const unsigned steps = 200000;
  for (unsigned step = 0; step < steps; ++step) {
    const VYR_IBuffer* next = current->Slice(1, 0, false);
    delete current;
    current = next;
  }
  bool ok = current->Size() == start->Size() - steps && current->Buffer() == Bytes(*start) + steps;
  ok = ok && Owned(VYR_IBuffer::ExtendBuffer(current))->Size() == current->Size();
  delete current;
  return ok ? owner : nullptr;
}

// A chain of any length costs the same per step and unwinds without
// recursion, on a small stack.
TEST_F(BufferTest, ChainsOfSlicesStayFlat) {
  std::vector<unsigned char> big(1 << 20);
  Owned owner(VYR_IBuffer::Create(static_cast<unsigned>(big.size()), big.data(), true));
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 1 << 20);
  pthread_t thread;
  void* const arg = const_cast<VYR_IBuffer*>(owner.get());
  ASSERT_EQ(pthread_create(&thread, &attributes, &WalkAChainOfSlices, arg), 0);
  void* result = nullptr;
  pthread_join(thread, &result);
  pthread_attr_destroy(&attributes);
  EXPECT_EQ(result, arg);
}

// --- DecodeHex ------------------------------------------------------------------------

// A table of texts, then destinations of the caller.
TEST_F(BufferTest, DecodeHex) {
  const struct {
    const char *text, *bytes;
    unsigned size, count;  // size: the argument of DecodeHex(size)
    bool incomplete;
  } cases[] = {
      {"4A4b", "\x4A\x4B", 0, 2, false},
      {"4A 4b\n", "\x4A\x4B", 0, 2, true},  // trailing non-digits set the flag
      {"414", "\x41", 0, 1, true},          // the last digit is dropped
      {"4 ", "\x3F", 0, 1, false},          // a lone digit with the mark as its low half
      {"4142", "\x41", 1, 1, false},        // the destination is full
      {"x4y1z", "\x41", 0, 1, true},        // non-digits even inside a pair
      // No digit at all, with a destination of its own: 0 bytes asks for
      // size 0, which gives the whole destination, cleared, and the flag
      // says so.
      {"zz z", "\0\0", 0, 2, true},
      {"", nullptr, 0, 0, false},  // an empty source gives an empty result
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.text);
    const unsigned length = static_cast<unsigned>(std::strlen(row.text));
    Owned source(VYR_IBuffer::Create(length, length ? row.text : nullptr, length != 0));
    bool incomplete = !row.incomplete;
    Owned result(length ? source->DecodeHex(row.size, incomplete) : source->DecodeHex(row.size));
    EXPECT_TRUE(length == 0 || incomplete == row.incomplete);
    ASSERT_EQ(result->Size(), row.count);
    EXPECT_TRUE(row.count == 0 || std::memcmp(result->Buffer(), row.bytes, row.count) == 0);
  }
  // A destination of the caller stays the caller's; its tail is untouched.
  Owned destination(VYR_IBuffer::Create(6, "......", true));
  bool incomplete = true;
  Owned decoded(
      Owned(VYR_IBuffer::Create(4, "cafe", true))->DecodeHex(destination.get(), incomplete));
  EXPECT_FALSE(incomplete);
  EXPECT_EQ(decoded->Buffer(), destination->Buffer());
  EXPECT_EQ(std::memcmp(destination->Buffer(), "\xCA\xFE....", 6), 0);
  // Through a handle, into a slice of a larger buffer.
  Owned big(VYR_IBuffer::Create(10, "0123456789", true));
  Owned window(big->Slice(4, 2, false));
  Owned(VYR_TBuffer(6, "010203", true).DecodeHex(window.get()));
  EXPECT_EQ(std::memcmp(big->Buffer(),
                        "0123\x01\x02"
                        "6789",
                        10),
            0);
}

}  // namespace
