// File buffers on real files: ranges, the shared mapping (seen in
// /proc/self/maps), opening against a real child process that holds the
// file, failures of the platform, the fallback view, reads outside the view,
// and a file larger than 4 GiB.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using namespace buffertest;

class FileBufferTest : public test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__> {
 protected:
  void SetUp() override {
    ASSERT_FALSE(mDir.Path().empty());
    G = VYR_TFileBuffer::sAllocationGranularity;
  }
  Owned Open(const std::string& path, unsigned low = 0, unsigned high = 0, unsigned size = 0) {
    return Owned(VYR_IBuffer::Create(QEN_TString(path.c_str()), low, high, size));
  }
  PlatformGuard mPlatform;
  TempDir mDir;
  unsigned G = 0;
};

// A child process that holds an exclusive lock on a file: for `holdMs`
// milliseconds, or until it is killed when holdMs is negative.
class LockHolder {
 public:
  LockHolder(const std::string& path, int holdMs) {
    int ready[2];
    if (pipe(ready) != 0) return;
    mChild = fork();
    if (mChild == 0) {
      const int fd = open(path.c_str(), O_RDONLY);
      if (fd < 0 || flock(fd, LOCK_EX) != 0 || write(ready[1], "x", 1) != 1) _exit(1);
      if (holdMs < 0) pause();
      else usleep(static_cast<useconds_t>(holdMs) * 1000);
      _exit(0);
    }
    close(ready[1]);
    char c = 0;
    mHolding = read(ready[0], &c, 1) == 1;
    close(ready[0]);
  }
  ~LockHolder() {
    if (mChild <= 0) return;
    kill(mChild, SIGKILL);
    waitpid(mChild, nullptr, 0);
  }
  bool Holding() const { return mHolding; }

 private:
  pid_t mChild = -1;
  bool mHolding = false;
};

// Checks that the log lines count the remaining attempts down from `first`.
void ExpectCountdown(const std::vector<std::string>& lines, const std::string& path, int first) {
  for (size_t i = 0; i < lines.size(); ++i)
    EXPECT_TRUE(EndsWith(lines[i], "VYR_TFileBuffer - file open attempt failed due to sharing violation (" +
                                       path + "), remaining attempts: " + std::to_string(first - int(i))))
        << lines[i];
}

TEST_F(FileBufferTest, WholeFileAndRangesOfIt) {
  const std::vector<unsigned char> bytes = Pattern(10000);
  const std::string path = WriteFile(mDir.File("ranges.bin"), bytes);
  // Start-up set the alignment of views to the page size.
  EXPECT_EQ(static_cast<long>(VYR_TFileBuffer::sAllocationGranularity), sysconf(_SC_PAGESIZE));
  Owned whole = Open(path);
  EXPECT_STREQ(whole->ClassName(), "VYR_TFileBuffer");
  EXPECT_TRUE(whole->IsValid());
  EXPECT_EQ(whole->BufferAccess(), VYR_ReadOnly);
  EXPECT_EQ(BytesOf(*whole), bytes);
  EXPECT_EQ(static_cast<const VYR_TFileBuffer*>(whole->DynamicCast("VYR_TFileBuffer"))->SizeHigh(), 0u);

  // Size 0 reaches the end, position + size == file size is allowed, and a
  // range past the end is cut.
  const struct { unsigned position, size, from, count; } ranges[] = {
      {9000, 0, 9000, 1000}, {9000, 1000, 9000, 1000}, {9990, 500, 9990, 10}};
  for (const auto& r : ranges) EXPECT_EQ(BytesOf(*Open(path, r.position, 0, r.size)), Part(bytes, r.from, r.count));
  EXPECT_THROW(Open(path, 10000, 0, 0), VYR_EBufferSliceStartsAfterEnd);
  EXPECT_THROW(Open(path, 0, 1, 10), VYR_EBufferSliceStartsAfterEnd);

  // The same range by name, by URL and tag, and through a handle.
  Owned range = Open(path, 100, 0, 50);
  EXPECT_STREQ(range->ClassName(), "VYR_TSliceBuffer");
  EXPECT_EQ(range->BufferAccess(), VYR_ReadOnly);
  EXPECT_EQ(BytesOf(*range), Part(bytes, 100, 50));
  const QEN_TURL url = QEN_TURL::LocalToURL(QEN_TString(path.c_str()));
  EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::Create(url, VYR_TTag(100, 0, 50, 7)))), Part(bytes, 100, 50));
  EXPECT_EQ(BytesOf(VYR_TBuffer(url, 100, 0, 50)), Part(bytes, 100, 50));
}

TEST_F(FileBufferTest, FilesThatCannotBeOpened) {
  LogCapture log;
  const std::string empty = WriteFile(mDir.File("empty.bin"), std::string());
  try { Open(empty); FAIL() << "no exception"; } catch (const VYR_EBufferEmptyFile& failure) {
    EXPECT_STREQ(failure.QEN_Message().c_str(), "VYR_EBufferEmptyFile");
    EXPECT_EQ(TextOf(failure.QEN_Data()), empty);
  }
  const std::string missing = mDir.File("missing.bin");
  try { Open(missing); FAIL() << "no exception"; } catch (const VYR_EBufferCannotOpenFile& failure) {
    EXPECT_STREQ(failure.QEN_Message().c_str(), "VYR_EBufferCannotOpenFile");
    EXPECT_STREQ(failure.QEN_ExceptionFile().c_str(), "Private/Source/vyr_buffer");
    ExpectSystemError(failure, ENOENT, "System error nr. %d %s on %s", missing);
  }
  EXPECT_TRUE(log.Lines().empty());  // a missing file is not retried
  try { Open(mDir.Path()); FAIL() << "no exception"; } catch (const VYR_EBufferCannotDetermineFileSize& failure) {
    ExpectSystemError(failure, EISDIR);
  }
}

TEST_F(FileBufferTest, OpensOfOnePathShareOneMappingUntilTheLastGoes) {
  const std::vector<unsigned char> bytes = Pattern(3 * G + 10);
  const std::string path = WriteFile(mDir.File("shared.bin"), bytes);
  const unsigned descriptors = OpenDescriptors();
  EXPECT_EQ(MappingsOf(path), 0u);

  Owned first = Open(path);
  EXPECT_EQ(MappingsOf(path), 1u);
  Owned second = Open(path);
  EXPECT_EQ(MappingsOf(path), 1u);
  EXPECT_EQ(first->Buffer(), second->Buffer());
  // A second open costs one descriptor, opened and closed again.
  EXPECT_EQ(OpenDescriptors(), descriptors + 1);
  Owned duplicate(first->Duplicate(false));
  Owned slice(second->Slice(5, 5, false));
  Owned range = Open(path, 100, 0, 50);
  EXPECT_EQ(range->Buffer(), static_cast<const unsigned char*>(first->Buffer()) + 100);
  EXPECT_EQ(MappingsOf(path), 1u);

  first.reset();
  second.reset();
  duplicate.reset();
  slice.reset();
  EXPECT_EQ(MappingsOf(path), 1u);
  EXPECT_EQ(BytesOf(*range), Part(bytes, 100, 50));
  range.reset();
  EXPECT_EQ(MappingsOf(path), 0u);
  EXPECT_EQ(OpenDescriptors(), descriptors);

  // Names are compared as text: another spelling is another mapping.
  Owned plain = Open(path);
  Owned spelledOtherwise = Open(mDir.Path() + "/./shared.bin");
  EXPECT_EQ(MappingsOf(path), 2u);
  EXPECT_NE(plain->Buffer(), spelledOtherwise->Buffer());
}

TEST_F(FileBufferTest, AFileThatGrewIsMappedAnew) {
  const std::string path = WriteFile(mDir.File("growing.bin"), Pattern(100));
  Owned before = Open(path);
  WriteFile(path, Pattern(5000));
  Owned after = Open(path);
  EXPECT_EQ(MappingsOf(path), 2u);
  EXPECT_EQ(BytesOf(*after), Pattern(5000));
  before.reset();
  after.reset();
  EXPECT_EQ(MappingsOf(path), 0u);
}

TEST_F(FileBufferTest, ThreadsOpeningOneFileAtOnce) {
  const std::vector<unsigned char> bytes = Pattern(2 * G);
  const std::string path = WriteFile(mDir.File("threads.bin"), bytes);
  Owned keeper = Open(path);
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 50; ++round) {
        Owned mine = Open(path, static_cast<unsigned>(round + t), 0, 16);
        Owned twin(mine->Duplicate(false));
        if (BytesOf(*twin) != Part(bytes, round + t, 16)) ++wrong;
        if (std::memcmp((*twin)(G + 3, 4), &bytes[G + 3 + round + t], 4) != 0) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(MappingsOf(path), 1u);
  keeper.reset();
  EXPECT_EQ(MappingsOf(path), 0u);
}

// --- Another process holds the file ---------------------------------------------------

TEST_F(FileBufferTest, OpenWaitsForAnotherProcessThatLetsGoInTime) {
  const std::string path = WriteFile(mDir.File("held.bin"), Pattern(1000));
  // The child lets go after 150 ms; the retries wait up to 500 ms.
  LogCapture log;
  {
    LockHolder holder(path, 150);
    ASSERT_TRUE(holder.Holding());
    EXPECT_EQ(BytesOf(*Open(path)), Pattern(1000));
  }
  const std::vector<std::string> lines = log.Lines();
  ASSERT_GE(lines.size(), 1u);
  EXPECT_LE(lines.size(), 5u);
  ExpectCountdown(lines, path, 5);
}

TEST_F(FileBufferTest, OpenGivesUpOnAProcessThatHoldsOn) {
  const std::string path = WriteFile(mDir.File("kept.bin"), Pattern(1000));
  VYR_TFileBuffer::sRetryDelay = 5;
  VYR_TFileBuffer::sNrOfRetries = 2;
  LogCapture log;
  LockHolder holder(path, -1);
  ASSERT_TRUE(holder.Holding());
  try { Open(path); FAIL() << "no exception"; } catch (const VYR_EBufferCannotOpenFile& failure) {
    ExpectSystemError(failure, EWOULDBLOCK, nullptr, path);
  }
  // The whole file and then the fallback view, each with its retries.
  const std::vector<std::string> lines = log.Lines();
  ASSERT_EQ(lines.size(), 4u);
  ExpectCountdown({lines[0], lines[1]}, path, 2);
  ExpectCountdown({lines[2], lines[3]}, path, 2);
  EXPECT_EQ(MappingsOf(path), 0u);
}

TEST_F(FileBufferTest, RetriesGiveUpAfterTheLastAttempt) {
  const std::string path = WriteFile(mDir.File("injected.bin"), Pattern(100));
  VYR_TFileBuffer::sRetryDelay = 1;
  // With the defaults: 12 opens, 10 log lines, then the failure.
  LogCapture log;
  VYR_PlatformInjectFault(VYR_PlatformOpen, EWOULDBLOCK, 12);
  EXPECT_THROW(Open(path), VYR_EBufferCannotOpenFile);
  EXPECT_EQ(log.Lines().size(), 10u);
  Open(path);  // exactly the twelve failed
}

TEST_F(FileBufferTest, FailedSystemCallsCleanUpAndReport) {
  const std::string path = WriteFile(mDir.File("faults.bin"), Pattern(100));
  const unsigned descriptors = OpenDescriptors();
  VYR_PlatformInjectFault(VYR_PlatformCreateMapping, ENOMEM, 2);
  try { Open(path); FAIL() << "no exception"; } catch (const VYR_EBufferCannotCreateMapping& failure) {
    ExpectSystemError(failure, ENOMEM, "System error nr. %d %s on %s");
  }
  VYR_PlatformInjectFault(VYR_PlatformMapView, ENOMEM, 2);
  try { Open(path); FAIL() << "no exception"; } catch (const VYR_EBufferCannotMapFile& failure) {
    ExpectSystemError(failure, ENOMEM, "System error nr. %d %s");
  }
  VYR_PlatformInjectFault(VYR_PlatformFileSize, EIO, 2);
  EXPECT_THROW(Open(path), VYR_EBufferCannotDetermineFileSize);
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(MappingsOf(path), 0u);
}

// --- Reading inside and outside the view ---------------------------------------------------

TEST_F(FileBufferTest, OperatorCallGivesViewAddressesAndReadsTheRest) {
  const std::vector<unsigned char> bytes = Pattern(3 * G);
  const std::string path = WriteFile(mDir.File("view.bin"), bytes);
  Owned whole = Open(path);
  const unsigned char* view = static_cast<const unsigned char*>(whole->Buffer());
  EXPECT_EQ((*whole)(10, 20), view + 10);  // inside: nothing is read
  EXPECT_EQ(whole->Reserved()->Size(), 20u);
  // Past the end of the file: the bytes that are there, and zeros behind.
  const unsigned char* tail = static_cast<const unsigned char*>((*whole)(3 * G - 4, 8));
  EXPECT_TRUE(tail < view || tail >= view + 3 * G);
  EXPECT_EQ(std::memcmp(tail, &bytes[3 * G - 4], 4), 0);
  EXPECT_EQ(std::memcmp(tail + 4, "\0\0\0\0", 4), 0);
  EXPECT_STREQ(whole->Reserved()->ClassName(), "VYR_TMemoryBuffer");
  // An offset past the size with size 0: a block of 0 bytes.
  EXPECT_NE((*whole)(3 * G + 5, 0), nullptr);
  EXPECT_EQ(whole->Reserved()->Size(), 0u);
  // A slice counts from its start and reaches the file's end with size 0.
  Owned range = Open(path, 100, 0, 50);
  EXPECT_EQ((*range)(0, 0), view + 100);
  EXPECT_EQ(range->Reserved()->Size(), 3 * G - 100);

  // A failed read leaves the new block in the reservation.
  VYR_PlatformInjectFault(VYR_PlatformRead, EIO, 1);
  try { (*whole)(3 * G - 1, 2); FAIL() << "no exception"; } catch (const VYR_EBufferCannotReadFile& failure) {
    ExpectSystemError(failure, EIO);
  }
  ASSERT_NE(whole->Reserved(), nullptr);
  EXPECT_EQ(whole->Reserved()->Size(), 2u);
}

TEST_F(FileBufferTest, FallbackViewReachesOnlyWhatIsMapped) {
  const std::vector<unsigned char> bytes = Pattern(5 * G + 100);
  const std::string path = WriteFile(mDir.File("partial.bin"), bytes);
  VYR_TFileBuffer::sAllocationBlock = 2 * G;

  // The whole file can't be mapped once: a view of sAllocationBlock bytes.
  VYR_PlatformInjectFault(VYR_PlatformMapView, ENOMEM, 1);
  Owned partial = Open(path);
  EXPECT_STREQ(partial->ClassName(), "VYR_TFileBuffer");
  EXPECT_FALSE(partial->IsValid());
  EXPECT_EQ(partial->Size(), 5 * G + 100);  // the file's size, not the view's
  EXPECT_EQ(partial->Buffer(0u, 10u), nullptr);
  const unsigned char* view = static_cast<const unsigned char*>(partial->Buffer());
  EXPECT_EQ(partial->Buffer(2 * G), view + 2 * G);
  EXPECT_THROW(partial->Buffer(2 * G + 1), VYR_EBufferRegionTooLarge);
  EXPECT_EQ(BytesOf(*Owned(partial->Slice(G, 0, false))), Part(bytes, G, G));
  EXPECT_THROW(Owned(partial->Slice(G, G + 1, false)), VYR_EBufferSliceTooLarge);
  EXPECT_THROW(Owned(partial->Slice(G, G + 1, true)), VYR_EBufferSliceTooLarge);
  // What needs every byte by address fails in order instead of faulting.
  EXPECT_THROW(Owned(partial->Duplicate(true)), VYR_EBufferRegionTooLarge);
  QEN_TMemoryStream memory;
  QEN_TDataStream stream(memory);
  EXPECT_THROW(VYR_TBuffer(*partial).QEN_Pack(stream), VYR_EBufferRegionTooLarge);
  EXPECT_THROW(Owned(partial->DecodeHex(0u)), VYR_EBufferRegionTooLarge);
  // operator() gives addresses inside and reads outside.
  EXPECT_EQ((*partial)(7, 9), view + 7);
  EXPECT_EQ(std::memcmp((*partial)(2 * G - 10, 100), &bytes[2 * G - 10], 100), 0);
  EXPECT_EQ(MappingsOf(path), 1u);

  // A range asked for lands in a view around it.
  VYR_PlatformInjectFault(VYR_PlatformMapView, ENOMEM, 1);
  EXPECT_EQ(BytesOf(*Open(path, G + G / 2, 0, G)), Part(bytes, G + G / 2, G));
}

TEST_F(FileBufferTest, MappedBytesAreNotWrittenThrough) {
  Owned file = Open(WriteFile(mDir.File("readonly.bin"), std::string("00ff10")));
  Owned slice(file->Slice(0, 2, false));
  EXPECT_THROW(file->CopyContentFrom("x", 1), VYR_EBufferInternal);
  EXPECT_THROW(slice->CopyContentFrom("x", 1), VYR_EBufferInternal);
  EXPECT_THROW(Owned(file->DecodeHex(slice.get())), VYR_EBufferInternal);
  // Reading hexadecimal text from a file works.
  EXPECT_EQ(BytesOf(*Owned(file->DecodeHex(0u))), (std::vector<unsigned char>{0x00, 0xFF, 0x10}));
  EXPECT_EQ(Owned(file->Duplicate(true))->BufferAccess(), VYR_ReadWrite);
}

TEST_F(FileBufferTest, FileLargerThanFourGiB) {
  const std::string path = mDir.File("large.bin");
  const unsigned long long fourGiB = 1ull << 32;
  const int fd = open(path.c_str(), O_CREAT | O_RDWR | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  if (ftruncate(fd, static_cast<off_t>(fourGiB + 3ull * G)) != 0) {
    close(fd);
    GTEST_SKIP() << "the file system refuses a sparse file of more than 4 GiB";
  }
  const bool written = pwrite(fd, "HEAD", 4, 0) == 4 &&
                       pwrite(fd, "MARKER", 6, static_cast<off_t>(fourGiB + G + 7)) == 6;
  close(fd);
  ASSERT_TRUE(written);

  Owned whole = Open(path);
  const VYR_TFileBuffer* file = static_cast<const VYR_TFileBuffer*>(whole->DynamicCast("VYR_TFileBuffer"));
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(whole->Size(), 3 * G);  // the low half
  EXPECT_EQ(file->SizeHigh(), 1u);
  EXPECT_TRUE(whole->IsValid());
  EXPECT_EQ(std::memcmp(whole->Buffer(), "HEAD", 4), 0);
  // The read route reaches any byte of the file.
  EXPECT_EQ(std::memcmp((*whole)(fourGiB + G + 7, 6), "MARKER", 6), 0);
  // Create compares positions with Size(): the high half is refused.
  EXPECT_THROW(Open(path, G + 7, 1, 6), VYR_EBufferSliceStartsAfterEnd);
  const QEN_TURL embedded = VYR_EmbeddedFile(QEN_TURL::LocalToURL(QEN_TString(path.c_str())), 6,
                                             G + 7, 1, 0.0, 0.0);
  EXPECT_THROW(Owned(VYR_IBuffer::Create(embedded, 0, 0, 0)), VYR_EBufferSliceStartsAfterEnd);
  whole.reset();

  // The fallback view takes the high half to the mapping.
  VYR_PlatformInjectFault(VYR_PlatformMapView, ENOMEM, 1);
  EXPECT_EQ(std::memcmp(Open(path, G + 7, 1, 6)->Buffer(), "MARKER", 6), 0);
}

}  // namespace
