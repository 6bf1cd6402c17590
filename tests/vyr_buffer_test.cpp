// Memory buffers, references, the sharing ring, ownership in any order of
// deletion, the buffer handle and its packed form, and the factories' routes.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using buffertest::BytesOf;
using buffertest::Pattern;
using test_support::Extract;
using test_support::Golden;
using test_support::Pack;
typedef std::unique_ptr<const VYR_IBuffer> Owned;

class BufferTest : public test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__> {
 protected:
  buffertest::PlatformGuard mPlatform;
};

const unsigned char* Bytes(const VYR_IBuffer& buffer) {
  return static_cast<const unsigned char*>(buffer.Buffer());
}

unsigned char* Writable(const VYR_IBuffer& buffer) {
  return static_cast<unsigned char*>(const_cast<void*>(buffer.Buffer()));
}

// --- Memory buffers ---------------------------------------------------------------

TEST_F(BufferTest, MemoryBufferCopiesOwnsAndSharesThroughItsRing) {
  std::vector<unsigned char> source = Pattern(64);
  Owned copy(VYR_IBuffer::Create(64, source.data(), true));
  EXPECT_STREQ(copy->ClassName(), "VYR_TMemoryBuffer");
  EXPECT_EQ(copy->BufferAccess(), VYR_ReadWrite);
  EXPECT_TRUE(copy->IsValid());
  EXPECT_NE(copy->Buffer(), source.data());
  source[0] ^= 0xFF;  // a private copy doesn't see later writes
  EXPECT_EQ(Bytes(*copy)[0], static_cast<unsigned char>(source[0] ^ 0xFF));

  Owned shared(copy->Duplicate(false));
  EXPECT_EQ(shared->Buffer(), copy->Buffer());
  Writable(*shared)[1] = 0xAB;  // every ring member sees a write at once
  EXPECT_EQ(Bytes(*copy)[1], 0xAB);

  Owned privateCopy(copy->Duplicate(true));
  EXPECT_NE(privateCopy->Buffer(), copy->Buffer());
  EXPECT_EQ(BytesOf(*privateCopy), BytesOf(*copy));

  // The source dies first; the survivor still reads, and frees once.
  const std::vector<unsigned char> expected = BytesOf(*copy);
  copy.reset();
  EXPECT_EQ(BytesOf(*shared), expected);
}

TEST_F(BufferTest, CreateWithoutCopyTakesOverMallocMemory) {
  void* memory = std::malloc(8);
  std::memcpy(memory, "abcdefgh", 8);
  Owned adopted(VYR_IBuffer::Create(8, memory, false));
  EXPECT_EQ(adopted->Buffer(), memory);
  // Size 0 adopts as well, and frees at the end: the leak checker would say.
  Owned empty(VYR_IBuffer::Create(0, std::malloc(4), false));
  EXPECT_EQ(empty->Size(), 0u);
  EXPECT_FALSE(empty->IsValid());
}

TEST_F(BufferTest, SizeZeroHasAnAddressButIsNotValid) {
  for (bool copy : {false, true}) {
    Owned empty(VYR_IBuffer::Create(0, nullptr, copy));
    EXPECT_NE(empty->Buffer(), nullptr);
    EXPECT_EQ(empty->Size(), 0u);
    EXPECT_FALSE(empty->IsValid());
    EXPECT_EQ(empty->Buffer(0u, 0u), nullptr);  // invalid: null, not an exception
  }
}

TEST_F(BufferTest, OutOfMemoryWrapsTheSystemError) {
  VYR_PlatformInjectFault(VYR_PlatformAllocate, ENOMEM, 1);
  try {
    Owned never(VYR_IBuffer::Create(16, nullptr, false));
    FAIL() << "no exception";
  } catch (const VYR_EBufferNotEnoughMemory& failure) {
    EXPECT_STREQ(failure.QEN_Message().c_str(), "VYR_EBufferNotEnoughMemory");
    EXPECT_STREQ(failure.QEN_ExceptionFile().c_str(), "Private/Source/vyr_buffer");
    const VYR_ESystemError* system = buffertest::SystemErrorIn(failure);
    ASSERT_NE(system, nullptr);
    EXPECT_STREQ(system->QEN_Message().c_str(), "System error nr. %d %s");
    EXPECT_EQ(buffertest::DataItem(*system, 0).AsInt64(), ENOMEM);
    EXPECT_EQ(buffertest::TextOf(buffertest::DataItem(*system, 1)), std::strerror(ENOMEM));
  }
  // A copy that can't get its memory fails the same way.
  VYR_PlatformInjectFault(VYR_PlatformAllocate, ENOMEM, 1);
  std::vector<unsigned char> source = Pattern(8);
  EXPECT_THROW(Owned(VYR_IBuffer::Create(8, source.data(), true)), VYR_EBufferNotEnoughMemory);
}

TEST_F(BufferTest, ReferencesNeverOwnAndDuplicateIndependently) {
  unsigned char stack[32];
  std::memcpy(stack, Pattern(32).data(), 32);
  Owned ref(VYR_IBuffer::CreateRef(32, stack));
  EXPECT_STREQ(ref->ClassName(), "VYR_TMemoryRef");
  EXPECT_EQ(ref->BufferAccess(), VYR_ReadWrite);
  Owned twin(ref->Duplicate(false));
  EXPECT_STREQ(twin->ClassName(), "VYR_TMemoryRef");
  EXPECT_EQ(twin->Buffer(), static_cast<const void*>(stack));
  Owned slice(ref->Slice(4, 8, false));
  ref.reset();  // nothing is freed: stack memory would make the checker cry
  EXPECT_EQ(Bytes(*slice)[0], stack[4]);
  Owned copy(twin->Duplicate(true));
  EXPECT_STREQ(copy->ClassName(), "VYR_TMemoryBuffer");
  stack[0] ^= 0xFF;
  EXPECT_NE(Bytes(*copy)[0], stack[0]);

  EXPECT_THROW(Owned(VYR_IBuffer::CreateRef(4, nullptr)), VYR_EBufferInternal);
}

TEST_F(BufferTest, FactoriesOfTheClassFrame) {
  // The implementations have no default state: their factories refuse.
  for (const char* name : {"VYR_TMemoryBuffer", "VYR_TMemoryRef", "VYR_TSliceBuffer", "VYR_TFileBuffer"}) {
    SCOPED_TRACE(name);
    const QEN_TClass* type = QEN_TClass::Find(name);
    ASSERT_NE(type, nullptr);
    EXPECT_TRUE(type->Implements("VYR_IBuffer"));
    EXPECT_TRUE(type->HasSuperclass("VYR_TBuffPriv"));
    try {
      std::unique_ptr<QEN_TObject> object(type->factory());
      FAIL() << "no exception";
    } catch (const VYR_EBufferInternal& failure) {
      EXPECT_STREQ(failure.QEN_ExceptionFile().c_str(), "Private/Include/vyr_buffer-priv");
    }
  }
  // The base builds an object without bytes.
  const QEN_TClass* base = QEN_TClass::Find("VYR_TBuffPriv");
  ASSERT_NE(base, nullptr);
  std::unique_ptr<QEN_TObject> object(base->factory());
  const VYR_IBuffer* empty = static_cast<const VYR_IBuffer*>(object->DynamicCast("VYR_IBuffer"));
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->Size(), 0u);
  EXPECT_FALSE(empty->IsValid());
  EXPECT_EQ(empty->BufferAccess(), VYR_ReadOnly);
  EXPECT_THROW(empty->Buffer(), VYR_EBufferEmptyBuffer);
  EXPECT_THROW(empty->Buffer(0u), VYR_EBufferRegionTooLarge);
  EXPECT_THROW(Owned(empty->Duplicate(false)), VYR_EBufferEmptyBuffer);
  EXPECT_THROW(Owned(empty->DecodeHex(0u)), VYR_EBufferEmptyBuffer);

  EXPECT_TRUE(VYR_IBuffer::QEN_IsInterface());
  EXPECT_TRUE(VYR_TBuffer::QEN_HasInterface("QEN_IPackable"));
  EXPECT_TRUE(VYR_TBuffer::QEN_HasInterface("VYR_IBuffer"));
  EXPECT_FALSE(VYR_TBuffer::QEN_HasInterface("QEN_IHumanReadable"));
}

TEST_F(BufferTest, AddressesAreCheckedAgainstTheSize) {
  Owned buffer(VYR_IBuffer::Create(10, Pattern(10).data(), true));
  EXPECT_EQ(buffer->Buffer(10u), Bytes(*buffer) + 10);  // one past the end
  try {
    buffer->Buffer(11u);
    FAIL() << "no exception";
  } catch (const VYR_EBufferRegionTooLarge& failure) {
    EXPECT_STREQ(failure.QEN_Message().c_str(), "VYR_EBufferRegionTooLarge");
    EXPECT_EQ(buffertest::TextOf(failure.QEN_Data()), "offset = 11, size = 10");
  }
  EXPECT_EQ(buffer->Buffer(2u, 8u), Bytes(*buffer) + 2);
  EXPECT_EQ(buffer->Buffer(2u, 9u), nullptr);
  EXPECT_EQ(buffer->Buffer(0xFFFFFFFFu, 2u), nullptr);  // the sum must not wrap
}

TEST_F(BufferTest, CopyContentFromWritesTheStartAndKeepsTheRest) {
  const std::vector<unsigned char> original = Pattern(16);
  Owned target(VYR_IBuffer::Create(16, original.data(), true));
  EXPECT_EQ(target->CopyContentFrom("xyz", 3), target.get());
  std::vector<unsigned char> expected = original;
  std::memcpy(expected.data(), "xyz", 3);
  EXPECT_EQ(BytesOf(*target), expected);
  EXPECT_EQ(target->Size(), 16u);

  Owned source(VYR_IBuffer::Create(6, "ABCDEF", true));
  target->CopyContentFrom(*source, 2, 3);  // "CDE"
  std::memcpy(expected.data(), "CDE", 3);
  EXPECT_EQ(BytesOf(*target), expected);
  target->CopyContentFrom(*source, 4, 0);  // size 0: up to the end, "EF"
  std::memcpy(expected.data(), "EF", 2);
  EXPECT_EQ(BytesOf(*target), expected);
  target->CopyContentFrom(*source);
  std::memcpy(expected.data(), "ABCDEF", 6);
  EXPECT_EQ(BytesOf(*target), expected);

  EXPECT_THROW(source->CopyContentFrom(*target), VYR_EBufferDestinationTooSmall);
  EXPECT_THROW(target->CopyContentFrom(*source, 5, 2), VYR_EBufferSliceTooLarge);
  // Its own bytes, moved within itself.
  target->CopyContentFrom(*target, 1, 4);
  EXPECT_EQ(std::memcmp(Bytes(*target), "BCDE", 4), 0);
}

// --- Ownership in any order ------------------------------------------------------------

TEST_F(BufferTest, AnyOrderOfDeletionReleasesOnce) {
  std::vector<int> order = {0, 1, 2, 3, 4};
  const std::vector<unsigned char> bytes = Pattern(100);
  do {
    std::vector<const VYR_IBuffer*> objects(5);
    objects[0] = VYR_IBuffer::Create(100, bytes.data(), true);
    objects[1] = objects[0]->Duplicate(false);
    objects[2] = objects[1]->Slice(10, 50, false);
    objects[3] = objects[2]->Slice(5, 0, false);
    objects[4] = new VYR_TBuffer(*objects[3]);
    const unsigned offsets[5] = {0, 0, 10, 15, 15};
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
  const unsigned long expected = std::accumulate(bytes.begin(), bytes.end(), 0ul);
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
        const unsigned char* first = Bytes(*twin);
        if (std::accumulate(first, first + twin->Size(), 0ul) != expected) ++wrong;
        if (Bytes(*slice)[0] != bytes[round % 64]) ++wrong;
        // Alternate which one dies first, and let the thread's own member go
        // now and then, so that the last member changes hands.
        if (round % 2 == 0) {
          delete twin;
          delete slice;
        } else {
          delete slice;
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

TEST_F(BufferTest, EmptyHandleHoldsNothing) {
  VYR_TBuffer empty;
  EXPECT_EQ(empty.Size(), 0u);
  EXPECT_FALSE(empty.IsValid());
  EXPECT_EQ(empty.Reserved(), nullptr);
  EXPECT_THROW(empty.Buffer(), VYR_EBufferEmptyBuffer);
  EXPECT_THROW(empty(0, 0), VYR_EBufferEmptyBuffer);
  VYR_TBuffer copy(empty);
  EXPECT_EQ(copy.Size(), 0u);
  EXPECT_TRUE(copy == empty);
  empty = VYR_IBuffer::Create(3, "abc", true);
  EXPECT_EQ(empty.Size(), 3u);
}

TEST_F(BufferTest, HandleAdoptsPointersAndDuplicatesReferences) {
  const VYR_IBuffer* raw = VYR_IBuffer::Create(4, "abcd", true);
  VYR_TBuffer handle(raw);
  EXPECT_EQ(handle.Buffer(), raw->Buffer());
  // Taking over what it holds already changes nothing.
  EXPECT_EQ(handle = raw, raw);
  EXPECT_EQ(std::memcmp(handle.Buffer(), "abcd", 4), 0);

  VYR_TBuffer shared(handle);
  EXPECT_EQ(shared.Buffer(), handle.Buffer());
  // A handle's duplicate shares, even when asked to copy.
  Owned duplicate(handle.Duplicate(true));
  EXPECT_EQ(duplicate->Buffer(), handle.Buffer());
  EXPECT_STREQ(duplicate->ClassName(), "VYR_TMemoryBuffer");
  // A slice does copy when asked.
  Owned sliceCopy(handle.Slice(1, 2, true));
  EXPECT_NE(sliceCopy->Buffer(), Bytes(handle) + 1);

  VYR_TBuffer part(handle, 1, 2);
  EXPECT_EQ(part.Buffer(), Bytes(handle) + 1);
  VYR_TBuffer& same = part;
  part = same;  // assigning a handle to itself keeps what it holds
  EXPECT_EQ(part.Size(), 2u);
  part = handle;
  EXPECT_EQ(part.Size(), 4u);
  EXPECT_EQ(handle.CopyContentFrom("X", 1), raw);
  EXPECT_EQ(Bytes(shared)[0], 'X');
}

TEST_F(BufferTest, HandlesCompareByBytes) {
  VYR_TBuffer a(5, "hello", true);
  VYR_TBuffer b(5, "hello", true);
  VYR_TBuffer c(5, "hellO", true);
  VYR_TBuffer d(4, "hell", true);
  EXPECT_NE(a.Buffer(), b.Buffer());
  EXPECT_TRUE(a == b);
  EXPECT_TRUE(a != c);
  EXPECT_TRUE(a != d);
  VYR_TBuffer twin(a);
  EXPECT_TRUE(twin == a);
  EXPECT_TRUE(a.QEN_IsIdent(b));
  VYR_TTag tag;
  EXPECT_FALSE(a.QEN_IsIdent(tag));
  std::unique_ptr<QEN_IPackable> clone(a.QEN_Clone());
  ASSERT_NE(clone, nullptr);
  EXPECT_TRUE(clone->QEN_IsIdent(a));
}

TEST_F(BufferTest, PackedFormIsPinned) {
  std::vector<unsigned char> packed = Pack(VYR_TBuffer(5, "bytes", true));
  std::vector<unsigned char> golden = Golden("vyr_buffer.bin", packed);
  EXPECT_EQ(packed, golden);
  std::unique_ptr<QEN_IInterface> rebuilt = Extract(golden);
  ASSERT_NE(rebuilt, nullptr);
  EXPECT_TRUE(*rebuilt->DynamicCast<VYR_TBuffer>() == VYR_TBuffer(5, "bytes", true));
}

TEST_F(BufferTest, UnpackingGivesAPrivateWritableMemoryBuffer) {
  unsigned char external[6] = {'a', 'b', 'c', 'd', 'e', 'f'};
  VYR_TBuffer reference(VYR_IBuffer::CreateRef(6, external));
  std::unique_ptr<QEN_IInterface> rebuilt = Extract(Pack(reference));
  ASSERT_NE(rebuilt, nullptr);
  const VYR_TBuffer* handle = rebuilt->DynamicCast<VYR_TBuffer>();
  ASSERT_NE(handle, nullptr);
  EXPECT_TRUE(*handle == reference);
  EXPECT_NE(handle->Buffer(), static_cast<const void*>(external));
  EXPECT_EQ(handle->BufferAccess(), VYR_ReadWrite);
  Owned inner(handle->Duplicate(false));
  EXPECT_STREQ(inner->ClassName(), "VYR_TMemoryBuffer");

  std::unique_ptr<QEN_IInterface> empty = Extract(Pack(VYR_TBuffer(0, nullptr, false)));
  const VYR_TBuffer* emptyHandle = empty->DynamicCast<VYR_TBuffer>();
  ASSERT_NE(emptyHandle, nullptr);
  EXPECT_EQ(emptyHandle->Size(), 0u);
  EXPECT_FALSE(emptyHandle->IsValid());
  EXPECT_NE(emptyHandle->Buffer(), nullptr);

  // Larger than what is allocated at once: the bytes arrive in growing steps.
  const std::vector<unsigned char> big = Pattern(3u << 20);
  VYR_TBuffer large(static_cast<unsigned>(big.size()), big.data(), true);
  std::unique_ptr<QEN_IInterface> largeCopy = Extract(Pack(large));
  ASSERT_NE(largeCopy->DynamicCast<VYR_TBuffer>(), nullptr);
  EXPECT_TRUE(*largeCopy->DynamicCast<VYR_TBuffer>() == large);
}

TEST_F(BufferTest, ForgedSizeInAPackedHandleIsRefused) {
  std::vector<unsigned char> packed = Pack(VYR_TBuffer(4, "abcd", true));
  // The size is the four bytes before the payload: claim 1 GiB and 3 GiB.
  for (unsigned claim : {1u << 30, 3u << 30, 5u}) {
    std::vector<unsigned char> forged = packed;
    const size_t at = forged.size() - 4 - 4;
    std::memcpy(&forged[at], &claim, 4);
    EXPECT_THROW(Extract(forged), QEN_EStreamException) << claim;
  }
  VYR_TBuffer handle(4, "abcd", true);
  std::vector<unsigned char> cut = Pack(handle);
  cut.resize(cut.size() - 2);
  EXPECT_THROW(Extract(cut), QEN_EStreamException);
}

// --- The factories' routes --------------------------------------------------------------

TEST_F(BufferTest, ProtocolsThatNoFileRouteServes) {
  EXPECT_THROW(Owned(VYR_IBuffer::Create(QEN_TURL("extern://host/x"), 0, 0, 0)), VYR_EBufferInternal);
  EXPECT_THROW(Owned(VYR_IBuffer::Create(QEN_TURL("ftp://host/x"), 0, 0, 0)),
               VYR_EBufferUnknownProtocol);
  // As a name, an unknown protocol is tried as a file of that very name, and
  // the failure reported is the file route's.
  try {
    Owned never(VYR_IBuffer::Create(QEN_TString("ftp://nowhere/at/all"), 0, 0, 0));
    FAIL() << "no exception";
  } catch (const VYR_EBufferCannotOpenFile& failure) {
    const VYR_ESystemError* system = buffertest::SystemErrorIn(failure);
    ASSERT_NE(system, nullptr);
    EXPECT_EQ(buffertest::DataItem(*system, 0).AsInt64(), ENOENT);
    EXPECT_EQ(buffertest::TextOf(buffertest::DataItem(*system, 2)), "ftp://nowhere/at/all");
  }
}

}  // namespace
