// File buffers on real files: ranges, the shared mapping (seen in
// /proc/self/maps), files replaced and truncated by others, opening against
// another holder of the file, failures of the platform, the fallback view,
// reads outside the view, and files of 4 GiB and more.
#include <atomic>
#include <thread>

#include "metadata_test_support.h"

namespace {

using namespace buffertest;
using metadatatest::Spawn;
using metadatatest::Wait;
typedef std::vector<unsigned char> Bytes;

class FileBufferTest : public test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__> {
 protected:
  Owned Open(const std::string& path, unsigned low = 0, unsigned high = 0, unsigned size = 0) {
    return Owned(VYR_IBuffer::Create(QEN_TString(path.c_str()), low, high, size));
  }
  PlatformGuard mPlatform;
  TempDir mDir;
  const unsigned G = VYR_TFileBuffer::sAllocationGranularity;
};

Bytes Part(const Bytes& bytes, size_t from, size_t count) {
  return Bytes(bytes.begin() + from, bytes.begin() + from + count);
}

// The E that `body` throws; a failed check if it throws none.
template <class E, class F>
E Failure(F body) {
  try {
    body();
  } catch (const E& failure) {
    return failure;
  }
  ADD_FAILURE() << "nothing thrown";
  return E();
}

// The number of mappings of `path` that the process has now.
unsigned MappingsOf(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  unsigned count = 0;
  for (std::string line; std::getline(maps, line);) count += line.find(path) != line.npos;
  return count;
}

// Open file descriptors of the process.
unsigned OpenDescriptors() {
  unsigned count = 0;
  for (int fd = 0; fd < 1024; ++fd) count += fcntl(fd, F_GETFD) != -1;
  return count;
}

TEST_F(FileBufferTest, WholeFileAndRangesOfIt) {
  const Bytes bytes = Pattern(10000);
  const std::string path = WriteFile(mDir.File("ranges.bin"), bytes);
  Owned whole = Open(path);
  EXPECT_EQ(BytesOf(*whole), bytes);
  // Size 0 reaches the end, position + size == file size is allowed, and a
  // range past the end is cut.
  const struct {
    unsigned position, size, from, count;
  } ranges[] = {{9000, 0, 9000, 1000}, {9000, 1000, 9000, 1000}, {9990, 500, 9990, 10}};
  for (const auto& r : ranges)
    EXPECT_EQ(BytesOf(*Open(path, r.position, 0, r.size)), Part(bytes, r.from, r.count));
  EXPECT_THROW(Open(path, 10000, 0, 0), VYR_EBufferSliceStartsAfterEnd);
  EXPECT_THROW(Open(path, 0, 1, 10), VYR_EBufferSliceStartsAfterEnd);
  // A range by URL and tag.
  const QEN_TURL url = QEN_TURL::LocalToURL(QEN_TString(path.c_str()));
  EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::Create(url, VYR_TTag(100, 0, 50, 7)))),
            Part(bytes, 100, 50));
  // Mapped bytes are not written through.
  EXPECT_THROW(whole->CopyContentFrom("x", 1), VYR_EBufferInternal);
  Owned slice(whole->Slice(0, 2, false));
  EXPECT_THROW(slice->CopyContentFrom("x", 1), VYR_EBufferInternal);
  EXPECT_THROW(Owned(whole->DecodeHex(slice.get())), VYR_EBufferInternal);
}

TEST_F(FileBufferTest, FilesThatCannotBeOpened) {
  LogCapture log;
  const std::string empty = WriteFile(mDir.File("empty.bin"), std::string());
  EXPECT_EQ(TextOf(Failure<VYR_EBufferEmptyFile>([&] { Open(empty); }).QEN_Data()), empty);
  const std::string missing = mDir.File("missing.bin");
  ExpectSystemError(Failure<VYR_EBufferCannotOpenFile>([&] { Open(missing); }), ENOENT, missing);
  EXPECT_TRUE(log.With().empty());  // a missing file is not retried
  EXPECT_THROW(Open(mDir.Path()), VYR_EBufferCannotDetermineFileSize);
  // A FIFO is refused at once instead of waiting for a writer.
  const std::string fifo = mDir.File("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_THROW(Open(fifo), VYR_EBufferCannotDetermineFileSize);
  EXPECT_THROW(QEN_TFile(QEN_TString(fifo.c_str()), QEN_TFile::ReadOnly), QEN_EFileException);
  EXPECT_THROW(QEN_TFile(QEN_TString(fifo.c_str()), QEN_TFile::WriteOnly), QEN_EFileException);

  // A NUL never opens the shorter name before it, as text or as %00.
  WriteFile(mDir.File("short"), std::string("bytes"));
  std::u16string nul = QEN_TString((mDir.File("short") + "\x01tail").c_str()).Chars();
  nul[nul.find(u'\x01')] = u'\0';
  EXPECT_THROW(Owned(VYR_IBuffer::Create(QEN_TString(nul), 0, 0, 0)), VYR_EBufferCannotOpenFile);
  EXPECT_THROW(QEN_TFile(QEN_TString(nul), QEN_TFile::ReadOnly), QEN_EFileException);
  const std::string url = "file://" + mDir.File("short") + "%00tail";
  EXPECT_THROW(Open(url), VYR_EBufferCannotOpenFile);
  EXPECT_THROW(Owned(VYR_IBuffer::Create(QEN_TURL(QEN_TString(url.c_str())), 0, 0, 0)),
               VYR_EBufferCannotOpenFile);
  // A URL that fails reports its own failure, not that of its text as a path.
  const std::string embedded =
      "embed://" + missing + "?embed.position_low=0l&embed.position_high=0l&embed.length=5l";
  ExpectSystemError(Failure<VYR_EBufferCannotOpenFile>([&] { Open(embedded); }), ENOENT, missing);
}

TEST_F(FileBufferTest, OpensOfOneFileShareOneMappingUntilTheLastGoes) {
  const Bytes bytes = Pattern(2 * G);
  const std::string path = WriteFile(mDir.File("shared.bin"), bytes);
  const unsigned descriptors = OpenDescriptors();
  Owned first = Open(path);
  Owned range = Open(path, 100, 0, 50);
  EXPECT_EQ(range->Buffer(), static_cast<const unsigned char*>(first->Buffer()) + 100);
  // A second open costs one descriptor, opened and closed again.
  EXPECT_EQ(OpenDescriptors(), descriptors + 1);
  // A file is known by what it is, not by how it is named.
  EXPECT_EQ(first->Buffer(), Open(mDir.Path() + "/./shared.bin")->Buffer());
  // Threads open, duplicate and read ranges of it at once.
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
  first.reset();
  EXPECT_EQ(BytesOf(*range), Part(bytes, 100, 50));  // the last user holds the mapping
  range.reset();
  EXPECT_EQ(MappingsOf(path), 0u);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(FileBufferTest, AFileReplacedOrChangedIsMappedAnew) {
  const std::string path = WriteFile(mDir.File("page.bin"), Pattern(100));
  Owned first = Open(path);
  WriteFile(path, Pattern(5000));  // grown in place
  Owned grown = Open(path);
  EXPECT_EQ(BytesOf(*grown), Pattern(5000));
  // Replaced by rename with a file of the same size: the new bytes, while
  // the old buffer keeps the old file.
  WriteFile(mDir.File("page.new"), Pattern(5000, 99));
  ASSERT_EQ(rename(mDir.File("page.new").c_str(), path.c_str()), 0);
  EXPECT_EQ(BytesOf(*Open(path)), Pattern(5000, 99));
  EXPECT_EQ(BytesOf(*grown), Pattern(5000));
  grown.reset();
  first.reset();
  EXPECT_EQ(MappingsOf(path), 0u);

  // One relative name in two folders: two files.
  TempDir other;
  WriteFile(other.File("page.bin"), Pattern(5000, 3));
  char here[PATH_MAX];
  ASSERT_NE(getcwd(here, sizeof here), nullptr);
  ASSERT_EQ(chdir(mDir.Path().c_str()), 0);
  Owned inFirst = Open("page.bin");
  ASSERT_EQ(chdir(other.Path().c_str()), 0);
  Owned inOther = Open("page.bin");
  ASSERT_EQ(chdir(here), 0);
  EXPECT_EQ(BytesOf(*inFirst), Pattern(5000, 99));
  EXPECT_EQ(BytesOf(*inOther), Pattern(5000, 3));
}

// The reader runs in a child; the parent is the other process that
// truncates the file under the child's mapping. The child must live, read
// zeros where the bytes were lost, and be told on its next checked call.
TEST_F(FileBufferTest, AFileTruncatedByAnotherProcessDoesNotKillTheReader) {
  const Bytes bytes = Pattern(1 << 20);
  const std::string path = WriteFile(mDir.File("shrinking.bin"), bytes);
  Owned whole = Open(path);
  Owned range = Open(path, 400000, 0, 200000);
  Owned nested(range->Slice(1000, 5000, false));
  int truncated[2];
  ASSERT_EQ(pipe(truncated), 0);
  const pid_t reader = Spawn([&] {
    int failures = 0;
    auto check = [&](bool ok) { failures += ok ? 0 : 1; };
    char c = 0;
    if (read(truncated[0], &c, 1) != 1) return 90;
    const unsigned char* view = static_cast<const unsigned char*>(whole->Buffer());
    check(view[500000] == 0 && view[(1 << 20) - 1] == 0);  // lost pages read as zeros
    check(view[10] == bytes[10] && whole->Size() == (1u << 20));
    check(!whole->IsValid() && !range->IsValid() && !nested->IsValid() &&
          whole->Buffer(0u, 10u) == nullptr);
    for (const VYR_IBuffer* buffer : {whole.get(), range.get(), nested.get()}) {
      const auto failure = Failure<VYR_EBufferCannotReadFile>([&] { (*buffer)(0, 10); });
      check(TextOf(failure.QEN_Data()) == path);
    }
    try {
      Owned(whole->Duplicate(true));
      check(false);
    } catch (const VYR_EBufferCannotReadFile&) {
    }
    // A new open sees the file as it is now.
    check(Open(path)->Size() == 100 && Open(path)->IsValid());
    return failures;
  });
  ASSERT_EQ(truncate(path.c_str(), 100), 0);
  ASSERT_EQ(write(truncated[1], "t", 1), 1);
  EXPECT_EQ(Wait(reader), 0) << "failed checks in the reader, or its death";
  for (int fd : truncated) close(fd);
}

// Run in a fresh process by the test below: maps a file, truncates it and
// reads a lost byte. With the guard on, a SIGBUS handler of the program's
// own comes first, and the probe exits 0 when the guard handled the read
// and passed a SIGBUS it does not own on to that handler. With the guard
// off the read ends the process.
volatile sig_atomic_t gEarlierHandlerRan = 0;

TEST(MappingGuardProbe, ReadsATruncatedFile) {
  const char* path = std::getenv("VYR_GUARD_PROBE_FILE");
  if (path == nullptr) GTEST_SKIP() << "runs only as a child of TheGuardChainsAndCanBeSwitchedOff";
  const bool guarded = std::strcmp(std::getenv("VYR_MAPPING_GUARD"), "off") != 0;
  struct sigaction earlier = {};
  earlier.sa_handler = [](int) { gEarlierHandlerRan = 1; };
  ASSERT_TRUE(!guarded || sigaction(SIGBUS, &earlier, nullptr) == 0);
  ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
  Owned whole(VYR_IBuffer::Create(QEN_TString(path), 0, 0, 0));
  ASSERT_EQ(truncate(path, 10), 0);
  // With the guard off this ends the process.
  const unsigned char lost = static_cast<const volatile unsigned char*>(whole->Buffer())[3 * 4096];
  if (!guarded) std::exit(3);  // survived
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(gEarlierHandlerRan, 0);
  raise(SIGBUS);  // not about a view: the earlier handler's
  EXPECT_EQ(gEarlierHandlerRan, 1);
  std::exit(::testing::Test::HasFailure() ? 1 : 0);
}

TEST_F(FileBufferTest, TheGuardChainsAndCanBeSwitchedOff) {
  for (const char* guard : {"on", "off"}) {
    const std::string path = WriteFile(mDir.File(std::string("probe-") + guard), Pattern(8 * G));
    const int status = Wait(Spawn([&] {
      setenv("VYR_GUARD_PROBE_FILE", path.c_str(), 1);
      setenv("VYR_MAPPING_GUARD", guard, 1);
      execl("/proc/self/exe", "vyr_file_buffer_test", "--gtest_filter=MappingGuardProbe.*",
            static_cast<char*>(nullptr));
      return 127;
    }));
    // Off: killed by SIGBUS, or ended by a sanitizer's report of it.
    if (std::string(guard) == "on") {
      EXPECT_EQ(status, 0);
    } else {
      EXPECT_TRUE(status != 0 && status != 3 && status != 127) << status;
    }
  }
}

TEST_F(FileBufferTest, OpenRetriesWhileAnotherHoldsTheFile) {
  const std::string path = WriteFile(mDir.File("held.bin"), Pattern(1000));
  VYR_TFileBuffer::sRetryDelay = 1;
  VYR_TFileBuffer::sNrOfRetries = 2;
  // Let go in time: two held answers, then the file.
  LogCapture early;
  VYR_PlatformInjectFault(VYR_PlatformLock, EWOULDBLOCK, 2);
  EXPECT_EQ(BytesOf(*Open(path)), Pattern(1000));
  EXPECT_EQ(early.With("remaining attempts").size(), 2u);
  // A real exclusive lock of another open file, held on.
  LogCapture log;
  const int holder = open(path.c_str(), O_RDONLY);
  ASSERT_EQ(flock(holder, LOCK_EX), 0);
  ExpectSystemError(Failure<VYR_EBufferCannotOpenFile>([&] { Open(path); }), EWOULDBLOCK, path);
  close(holder);
  // One open with its retries; the fallback view never opens again.
  EXPECT_EQ(log.With("remaining attempts").size(), 2u);
  EXPECT_EQ(MappingsOf(path), 0u);
}

TEST_F(FileBufferTest, FailedSystemCallsCleanUpAndReport) {
  const std::string path = WriteFile(mDir.File("faults.bin"), Pattern(100));
  const unsigned descriptors = OpenDescriptors();
  // The whole file and the fallback view both fail to map.
  const struct {
    VYR_TPlatformCall call;
    int error;
    unsigned count;
    const char* thrown;
  } faults[] = {
      {VYR_PlatformMap, ENOMEM, 2, "VYR_EBufferCannotMapFile"},
      {VYR_PlatformStatus, EIO, 1, "VYR_EBufferCannotDetermineFileSize"},
      {VYR_PlatformOpen, EACCES, 1, "VYR_EBufferCannotOpenFile"},
      {VYR_PlatformLock, EIO, 1, "VYR_EBufferCannotOpenFile"},
  };
  for (const auto& fault : faults) {
    VYR_PlatformInjectFault(fault.call, fault.error, fault.count);
    try {
      Open(path);
      ADD_FAILURE() << "no exception";
    } catch (const VYR_EBuffer& failure) {
      EXPECT_STREQ(failure.ClassName(), fault.thrown);
      ExpectSystemError(failure, fault.error);
    }
    Open(path);  // the fault is used up
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(MappingsOf(path), 0u);
}

// --- Reading inside and outside the view ---------------------------------------------------

TEST_F(FileBufferTest, OperatorCallGivesViewAddressesAndReadsTheRest) {
  const Bytes bytes = Pattern(3 * G);
  const std::string path = WriteFile(mDir.File("view.bin"), bytes);
  Owned whole = Open(path);
  const unsigned char* view = static_cast<const unsigned char*>(whole->Buffer());
  // Past the end of the file: the bytes that are there, and zeros behind.
  const unsigned char* tail = static_cast<const unsigned char*>((*whole)(3 * G - 4, 8));
  EXPECT_TRUE(tail < view || tail >= view + 3 * G);
  EXPECT_EQ(std::memcmp(tail, &bytes[3 * G - 4], 4), 0);
  EXPECT_EQ(std::memcmp(tail + 4, "\0\0\0\0", 4), 0);
  // An offset past the size with size 0: a block of 0 bytes.
  EXPECT_NE((*whole)(3 * G + 5, 0), nullptr);
  EXPECT_EQ(whole->Reserved()->Size(), 0u);
  // A block far larger than the file: what the file has, then zeros.
  const unsigned char* huge = static_cast<const unsigned char*>((*whole)(0, 0xFFFFFFFFull));
  EXPECT_EQ(std::memcmp(huge, bytes.data(), 3 * G), 0);
  EXPECT_EQ(huge[0xFFFFFFFEull], 0);
  whole->FreeReservation();
  // A failed read leaves the new block in the reservation.
  VYR_PlatformInjectFault(VYR_PlatformRead, EIO, 1);
  ExpectSystemError(Failure<VYR_EBufferCannotReadFile>([&] { (*whole)(3 * G - 1, 2); }), EIO);
  ASSERT_NE(whole->Reserved(), nullptr);
  EXPECT_EQ(whole->Reserved()->Size(), 2u);
}

TEST_F(FileBufferTest, FallbackViewReachesOnlyWhatIsMapped) {
  const Bytes bytes = Pattern(5 * G + 100);
  const std::string path = WriteFile(mDir.File("partial.bin"), bytes);
  VYR_TFileBuffer::sAllocationBlock = 2 * G;
  // The whole file can't be mapped once: a view of sAllocationBlock bytes.
  VYR_PlatformInjectFault(VYR_PlatformMap, ENOMEM, 1);
  Owned partial = Open(path);
  EXPECT_FALSE(partial->IsValid());
  EXPECT_EQ(partial->Size(), 5 * G + 100);  // the file's size, not the view's
  const unsigned char* view = static_cast<const unsigned char*>(partial->Buffer());
  EXPECT_EQ(partial->Buffer(2 * G), view + 2 * G);
  EXPECT_THROW(partial->Buffer(2 * G + 1), VYR_EBufferRegionTooLarge);
  EXPECT_EQ(BytesOf(*Owned(partial->Slice(G, 0, false))), Part(bytes, G, G));
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
  // A range asked for lands in a view around it.
  VYR_PlatformInjectFault(VYR_PlatformMap, ENOMEM, 1);
  EXPECT_EQ(BytesOf(*Open(path, G + G / 2, 0, G)), Part(bytes, G + G / 2, G));
}

TEST_F(FileBufferTest, FilesOfFourGiBAndMore) {
  const unsigned long long fourGiB = 1ull << 32;
  for (const unsigned long long size : {fourGiB, fourGiB + 3ull * G}) {
    SCOPED_TRACE(size);
    const std::string path = mDir.File("large.bin");
    const int fd = open(path.c_str(), O_CREAT | O_RDWR | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
      close(fd);
      GTEST_SKIP() << "the file system refuses a sparse file of more than 4 GiB";
    }
    const bool written =
        pwrite(fd, "HEAD", 4, 0) == 4 && pwrite(fd, "TAIL", 4, static_cast<off_t>(size - 4)) == 4;
    close(fd);
    ASSERT_TRUE(written);
    // A whole-file buffer can't count the bytes: refused, never its low half.
    const auto refused = Failure<VYR_EBufferRegionTooLarge>([&] { Open(path); });
    EXPECT_EQ(TextOf(DataItem(refused, 0)), path);
    // Ranges that 32 bits can count work at any position, by path and by URL.
    const unsigned tailLow = static_cast<unsigned>(size - 4), tailHigh = unsigned((size - 4) >> 32);
    EXPECT_EQ(BytesOf(*Open(path, 0, 0, 4)), Bytes({'H', 'E', 'A', 'D'}));
    EXPECT_EQ(BytesOf(*Open(path, tailLow, tailHigh, 0)), Bytes({'T', 'A', 'I', 'L'}));
    const QEN_TURL container = QEN_TURL::LocalToURL(QEN_TString(path.c_str()));
    const QEN_TURL tail = VYR_EmbeddedFile(container, 4, tailLow, tailHigh, 0.0, 0.0);
    EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::Create(tail, 0, 0, 0))), Bytes({'T', 'A', 'I', 'L'}));
    EXPECT_THROW(Open(path, static_cast<unsigned>(size), static_cast<unsigned>(size >> 32), 0),
                 VYR_EBufferSliceStartsAfterEnd);
    // The rest from a position near the start does not fit 32 bits.
    EXPECT_THROW(Open(path, 1, 0, 0), VYR_EBufferRegionTooLarge);
    EXPECT_EQ(MappingsOf(path), 0u);
  }
}

}  // namespace
