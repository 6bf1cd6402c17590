// File buffers on real files: ranges, the shared mapping (seen in
// /proc/self/maps), files replaced and truncated by others, opening against
// another holder of the file, failures of the platform, the fallback view,
// reads outside the view, and files of 4 GiB and more.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
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

// Checks that the log lines count the remaining attempts down from `first`.
void ExpectCountdown(const std::vector<std::string>& lines, const std::string& path, int first) {
  for (size_t i = 0; i < lines.size(); ++i)
    EXPECT_TRUE(
        EndsWith(lines[i], "VYR_TFileBuffer - file open attempt failed due to sharing violation (" +
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
  EXPECT_EQ(static_cast<const VYR_TFileBuffer*>(whole->DynamicCast("VYR_TFileBuffer"))->SizeHigh(),
            0u);

  // Size 0 reaches the end, position + size == file size is allowed, and a
  // range past the end is cut.
  const struct {
    unsigned position, size, from, count;
  } ranges[] = {{9000, 0, 9000, 1000}, {9000, 1000, 9000, 1000}, {9990, 500, 9990, 10}};
  for (const auto& r : ranges)
    EXPECT_EQ(BytesOf(*Open(path, r.position, 0, r.size)), Part(bytes, r.from, r.count));
  EXPECT_THROW(Open(path, 10000, 0, 0), VYR_EBufferSliceStartsAfterEnd);
  EXPECT_THROW(Open(path, 0, 1, 10), VYR_EBufferSliceStartsAfterEnd);

  // The same range by name, by URL and tag, and through a handle.
  Owned range = Open(path, 100, 0, 50);
  EXPECT_STREQ(range->ClassName(), "VYR_TSliceBuffer");
  EXPECT_EQ(range->BufferAccess(), VYR_ReadOnly);
  EXPECT_EQ(BytesOf(*range), Part(bytes, 100, 50));
  const QEN_TURL url = QEN_TURL::LocalToURL(QEN_TString(path.c_str()));
  EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::Create(url, VYR_TTag(100, 0, 50, 7)))),
            Part(bytes, 100, 50));
  EXPECT_EQ(BytesOf(VYR_TBuffer(url, 100, 0, 50)), Part(bytes, 100, 50));
}

TEST_F(FileBufferTest, FilesThatCannotBeOpened) {
  LogCapture log;
  const std::string empty = WriteFile(mDir.File("empty.bin"), std::string());
  try {
    Open(empty);
    FAIL() << "no exception";
  } catch (const VYR_EBufferEmptyFile& failure) {
    EXPECT_STREQ(failure.QEN_Message().c_str(), "VYR_EBufferEmptyFile");
    EXPECT_EQ(TextOf(failure.QEN_Data()), empty);
  }
  const std::string missing = mDir.File("missing.bin");
  try {
    Open(missing);
    FAIL() << "no exception";
  } catch (const VYR_EBufferCannotOpenFile& failure) {
    EXPECT_STREQ(failure.QEN_Message().c_str(), "VYR_EBufferCannotOpenFile");
    EXPECT_STREQ(failure.QEN_ExceptionFile().c_str(), "Private/Source/vyr_buffer");
    ExpectSystemError(failure, ENOENT, "System error nr. %d %s on %s", missing);
  }
  EXPECT_TRUE(log.Lines().empty());  // a missing file is not retried
  try {
    Open(mDir.Path());
    FAIL() << "no exception";
  } catch (const VYR_EBufferCannotDetermineFileSize& failure) {
    ExpectSystemError(failure, EISDIR);
  }
  // A FIFO is refused at once instead of waiting for a writer.
  const std::string fifo = mDir.File("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_THROW(Open(fifo), VYR_EBufferCannotDetermineFileSize);
  EXPECT_THROW(QEN_TFile(QEN_TString(fifo.c_str()), QEN_TFile::ReadOnly), QEN_EFileException);
  EXPECT_THROW(QEN_TFile(QEN_TString(fifo.c_str()), QEN_TFile::WriteOnly), QEN_EFileException);

  // A NUL never opens the shorter name before it, as text or as %00.
  WriteFile(mDir.File("short"), std::string("bytes"));
  const std::u16string withNul = QEN_TString((mDir.File("short") + "\x01tail").c_str()).Chars();
  std::u16string nul = withNul;
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
  try {
    Open(embedded);
    FAIL() << "no exception";
  } catch (const VYR_EBufferCannotOpenFile& failure) {
    ExpectSystemError(failure, ENOENT, nullptr, missing);
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

  // A file is known by what it is, not by how it is named.
  Owned plain = Open(path);
  Owned spelledOtherwise = Open(mDir.Path() + "/./shared.bin");
  EXPECT_EQ(MappingsOf(path), 1u);
  EXPECT_EQ(plain->Buffer(), spelledOtherwise->Buffer());
}

TEST_F(FileBufferTest, AFileReplacedOrChangedIsMappedAnew) {
  const std::string path = WriteFile(mDir.File("page.bin"), Pattern(100));
  Owned first = Open(path);
  // Grown in place.
  WriteFile(path, Pattern(5000));
  Owned grown = Open(path);
  EXPECT_EQ(BytesOf(*grown), Pattern(5000));
  // Replaced by rename with a file of the same size: the new bytes, while
  // the old buffer keeps the old file.
  WriteFile(mDir.File("page.new"), Pattern(5000, 99));
  ASSERT_EQ(rename(mDir.File("page.new").c_str(), path.c_str()), 0);
  Owned replaced = Open(path);
  EXPECT_EQ(BytesOf(*replaced), Pattern(5000, 99));
  EXPECT_EQ(BytesOf(*grown), Pattern(5000));
  grown.reset();
  first.reset();
  replaced.reset();
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
  const std::vector<unsigned char> bytes = Pattern(1 << 20);
  const std::string path = WriteFile(mDir.File("shrinking.bin"), bytes);
  int toParent[2], toChild[2];
  ASSERT_EQ(pipe(toParent), 0);
  ASSERT_EQ(pipe(toChild), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int failures = 0;
    auto check = [&](bool ok) { failures += ok ? 0 : 1; };
    Owned whole = Open(path);
    Owned range = Open(path, 400000, 0, 200000);
    Owned nested(range->Slice(1000, 5000, false));
    check(whole->IsValid() && range->IsValid() && nested->IsValid());
    char c = 'r';
    if (write(toParent[1], &c, 1) != 1 || read(toChild[0], &c, 1) != 1) _exit(90);
    const unsigned char* view = static_cast<const unsigned char*>(whole->Buffer());
    check(view[500000] == 0 && view[(1 << 20) - 1] == 0);  // lost pages read as zeros
    check(view[10] == bytes[10]);                          // the first page is still the file
    check(whole->Size() == (1u << 20));
    check(!whole->IsValid() && !range->IsValid() && !nested->IsValid());
    check(whole->Buffer(0u, 10u) == nullptr);
    for (const VYR_IBuffer* buffer : {whole.get(), range.get(), nested.get()}) {
      try {
        (*buffer)(0, 10);
        check(false);
      } catch (const VYR_EBufferCannotReadFile& failure) {
        check(TextOf(failure.QEN_Data()) == path);
      }
    }
    bool copyRefused = false;
    try {
      Owned(whole->Duplicate(true));
    } catch (const VYR_EBufferCannotReadFile&) {
      copyRefused = true;
    }
    check(copyRefused);
    // A new open sees the file as it is now.
    check(Open(path)->Size() == 100 && Open(path)->IsValid());
    _exit(failures);
  }
  char c = 0;
  ASSERT_EQ(read(toParent[0], &c, 1), 1);
  ASSERT_EQ(truncate(path.c_str(), 100), 0);
  ASSERT_EQ(write(toChild[1], "t", 1), 1);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  for (int fd : {toParent[0], toParent[1], toChild[0], toChild[1]}) close(fd);
  ASSERT_TRUE(WIFEXITED(status)) << "signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "failed checks in the reader";
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

// --- The guard, and others that hold the file -------------------------------------------

// Run in a fresh process by the test below: maps a file, truncates it and
// reads a lost byte. With the guard on, a SIGBUS handler of the program's
// own comes first, and the probe exits 0 when the guard handled the read
// and passed a SIGBUS it does not own on to that handler. With the guard
// off the read ends the process.
volatile sig_atomic_t gEarlierHandlerRan = 0;

TEST(MappingGuardProbe, ReadsATruncatedFile) {
  const char* path = std::getenv("VYR_GUARD_PROBE_FILE");
  if (path == nullptr) GTEST_SKIP() << "runs only as a child of TheGuardChainsAndCanBeSwitchedOff";
  struct sigaction earlier;
  earlier.sa_handler = [](int) { gEarlierHandlerRan = 1; };
  earlier.sa_flags = 0;
  sigemptyset(&earlier.sa_mask);
  if (std::strcmp(std::getenv("VYR_MAPPING_GUARD"), "off") != 0) {
    ASSERT_EQ(sigaction(SIGBUS, &earlier, nullptr), 0);
  }
  ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
  Owned whole(VYR_IBuffer::Create(QEN_TString(path), 0, 0, 0));
  ASSERT_EQ(truncate(path, 10), 0);
  // With the guard off this ends the process.
  const unsigned char lost = static_cast<const volatile unsigned char*>(whole->Buffer())[3 * 4096];
  if (std::strcmp(std::getenv("VYR_MAPPING_GUARD"), "off") == 0) std::exit(3);  // survived
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(gEarlierHandlerRan, 0);
  raise(SIGBUS);  // not about a view: the earlier handler's
  EXPECT_EQ(gEarlierHandlerRan, 1);
  std::exit(::testing::Test::HasFailure() ? 1 : 0);
}

TEST_F(FileBufferTest, TheGuardChainsAndCanBeSwitchedOff) {
  for (const char* guard : {"on", "off"}) {
    const std::string path = WriteFile(mDir.File(std::string("probe-") + guard), Pattern(8 * G));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      setenv("VYR_GUARD_PROBE_FILE", path.c_str(), 1);
      setenv("VYR_MAPPING_GUARD", guard, 1);
      const int quiet = open("/dev/null", O_WRONLY);
      if (quiet >= 0) dup2(quiet, STDOUT_FILENO);
      execl("/proc/self/exe", "vyr_file_buffer_test", "--gtest_filter=MappingGuardProbe.*",
            static_cast<char*>(nullptr));
      _exit(127);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (std::string(guard) == "on") {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    } else {
      // Killed by SIGBUS, or ended by a sanitizer's report of it.
      EXPECT_TRUE(WIFSIGNALED(status) || (WEXITSTATUS(status) != 0 && WEXITSTATUS(status) != 3 &&
                                          WEXITSTATUS(status) != 127))
          << status;
    }
  }
}

TEST_F(FileBufferTest, OpenRetriesWhileAnotherHoldsTheFile) {
  const std::string path = WriteFile(mDir.File("held.bin"), Pattern(1000));
  VYR_TFileBuffer::sRetryDelay = 1;
  // Let go in time: two held answers, then the file. With the defaults:
  // six held answers are 6 opens, 5 log lines, then the failure.
  for (const unsigned held : {2u, 6u}) {
    LogCapture log;
    VYR_PlatformInjectFault(VYR_PlatformLock, EWOULDBLOCK, held);
    if (held < 6)
      EXPECT_EQ(BytesOf(*Open(path)), Pattern(1000));
    else
      EXPECT_THROW(Open(path), VYR_EBufferCannotOpenFile);
    EXPECT_EQ(log.Lines().size(), std::min(held, 5u));
    ExpectCountdown(log.Lines(), path, 5);
  }
  // A real exclusive lock of another open file, held on.
  VYR_TFileBuffer::sNrOfRetries = 2;
  LogCapture log;
  const int holder = open(path.c_str(), O_RDONLY);
  ASSERT_EQ(flock(holder, LOCK_EX), 0);
  try {
    Open(path);
    ADD_FAILURE() << "no exception";
  } catch (const VYR_EBufferCannotOpenFile& failure) {
    ExpectSystemError(failure, EWOULDBLOCK, nullptr, path);
  }
  close(holder);
  // One open with its retries; the fallback view never opens again.
  ASSERT_EQ(log.Lines().size(), 2u);
  ExpectCountdown(log.Lines(), path, 2);
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
    const char* message;
  } faults[] = {
      {VYR_PlatformMap, ENOMEM, 2, "VYR_EBufferCannotMapFile", "System error nr. %d %s"},
      {VYR_PlatformStatus, EIO, 1, "VYR_EBufferCannotDetermineFileSize", nullptr},
      {VYR_PlatformOpen, EACCES, 1, "VYR_EBufferCannotOpenFile", "System error nr. %d %s on %s"},
      {VYR_PlatformLock, EIO, 1, "VYR_EBufferCannotOpenFile", nullptr},
  };
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.thrown);
    VYR_PlatformInjectFault(fault.call, fault.error, fault.count);
    try {
      Open(path);
      ADD_FAILURE() << "no exception";
    } catch (const VYR_EBuffer& failure) {
      EXPECT_STREQ(failure.ClassName(), fault.thrown);
      ExpectSystemError(failure, fault.error, fault.message);
    }
    Open(path);  // the fault is used up
  }
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
  // A block far larger than the file costs the memory of what was read.
  const long before = ResidentKiB();
  const unsigned char* huge = static_cast<const unsigned char*>((*whole)(0, 0xFFFFFFFFull));
  EXPECT_EQ(std::memcmp(huge, bytes.data(), 3 * G), 0);
  EXPECT_EQ(huge[0xFFFFFFFEull], 0);
  EXPECT_LT(ResidentKiB() - before, 64 * 1024);
  whole->FreeReservation();
  // A slice counts from its start and reaches the file's end with size 0.
  Owned range = Open(path, 100, 0, 50);
  EXPECT_EQ((*range)(0, 0), view + 100);
  EXPECT_EQ(range->Reserved()->Size(), 3 * G - 100);

  // A failed read leaves the new block in the reservation.
  VYR_PlatformInjectFault(VYR_PlatformRead, EIO, 1);
  try {
    (*whole)(3 * G - 1, 2);
    FAIL() << "no exception";
  } catch (const VYR_EBufferCannotReadFile& failure) {
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
  VYR_PlatformInjectFault(VYR_PlatformMap, ENOMEM, 1);
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
  VYR_PlatformInjectFault(VYR_PlatformMap, ENOMEM, 1);
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
    const bool written = pwrite(fd, "HEAD", 4, 0) == 4 &&
                         pwrite(fd, "MARKER", 6, static_cast<off_t>(fourGiB - G + 7)) == 6 &&
                         pwrite(fd, "TAIL", 4, static_cast<off_t>(size - 4)) == 4;
    close(fd);
    ASSERT_TRUE(written);

    // A whole-file buffer can't count the bytes: refused, never its low half.
    try {
      Open(path);
      FAIL() << "no exception";
    } catch (const VYR_EBufferRegionTooLarge& failure) {
      EXPECT_EQ(TextOf(DataItem(failure, 0)), path);
    }
    EXPECT_THROW(VYR_TFileBuffer(QEN_TString(path.c_str()), 0, 0, 0), VYR_EBufferRegionTooLarge);
    // Ranges that 32 bits can count work at any position, by path and by URL.
    const unsigned tailLow = static_cast<unsigned>(size - 4),
                   tailHigh = static_cast<unsigned>((size - 4) >> 32);
    EXPECT_EQ(std::memcmp(Open(path, 0, 0, 4)->Buffer(), "HEAD", 4), 0);
    EXPECT_EQ(std::memcmp(Open(path, static_cast<unsigned>(fourGiB - G + 7), 0, 6)->Buffer(),
                          "MARKER", 6),
              0);
    EXPECT_EQ(BytesOf(*Open(path, tailLow, tailHigh, 0)),
              std::vector<unsigned char>({'T', 'A', 'I', 'L'}));
    const QEN_TURL container = QEN_TURL::LocalToURL(QEN_TString(path.c_str()));
    Owned tail(
        VYR_IBuffer::Create(VYR_EmbeddedFile(container, 4, tailLow, tailHigh, 0.0, 0.0), 0, 0, 0));
    EXPECT_EQ(std::memcmp(tail->Buffer(), "TAIL", 4), 0);
    EXPECT_THROW(Open(path, static_cast<unsigned>(size), static_cast<unsigned>(size >> 32), 0),
                 VYR_EBufferSliceStartsAfterEnd);
    // The rest from a position near the start does not fit 32 bits.
    EXPECT_THROW(Open(path, 1, 0, 0), VYR_EBufferRegionTooLarge);
    tail.reset();
    EXPECT_EQ(MappingsOf(path), 0u);
  }
}

}  // namespace
