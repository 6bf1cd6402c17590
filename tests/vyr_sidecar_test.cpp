// The side-car backend on real files: where the file lies, when it is made,
// replaced and deleted, what a broken one reads as, the retries against a
// lock that a real child process holds, failures of the disk, and two
// writing processes with a reader, and a writer killed in the middle of a
// write.
#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <thread>

#include "metadata_test_support.h"
#include "vyr_platform.h"

namespace {

using metadatatest::Exists;
using metadatatest::Keys;
using metadatatest::Lines;
using metadatatest::Owned;
using metadatatest::ReadFile;
using metadatatest::Store;
using metadatatest::UrlOf;
using metadatatest::ValueOf;
using metadatatest::WriteFile;

class SideCarTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__()); }
  void SetUp() override {
    ASSERT_TRUE(mDir.Ok());
    mData = WriteFile(mDir.File("page1.tif"), "image bytes");
    mSideCar = metadatatest::SideCarOf(mDir.Path(), "page1.tif");
  }
  void TearDown() override { VYR_PlatformClearFaults(); }

  std::unique_ptr<VYR_IMetadata> Open(const std::string& data) {
    return std::unique_ptr<VYR_IMetadata>(VYR_IMetadata::CreateAccessObject(UrlOf(data)));
  }
  std::unique_ptr<VYR_IMetadata> Open() { return Open(mData); }

  metadatatest::TempDir mDir;
  std::string mData;
  std::string mSideCar;
};

std::string PackedDict(const QEN_TDict& dict) {
  QEN_TMemoryStream memory;
  QEN_TDataStream stream(memory);
  stream << dict;
  stream.Flush();
  return std::string(reinterpret_cast<const char*>(memory.Data()), memory.Length());
}

// The bytes of a store holding `entries`, as the backend writes it.
std::string Packed(const std::map<std::string, std::string>& entries) {
  QEN_TDict dict;
  for (const auto& entry : entries)
    dict.Add(
        QEN_TString(entry.first.c_str()),
        QEN_TAny(QEN_TDataBlock(entry.second.data(), static_cast<unsigned>(entry.second.size()))));
  return PackedDict(dict);
}

TEST_F(SideCarTest, TheFileIsMadeOnTheFirstWriteAndDeletedWithTheLastKey) {
  auto metadata = Open();
  ASSERT_NE(nullptr, metadata);
  EXPECT_FALSE(Exists(mDir.File(".metadata")));
  EXPECT_STREQ("VYR_TFileMetadata", metadata->ClassName());
  ASSERT_TRUE(Store(*metadata, "KEY", "value"));
  EXPECT_TRUE(metadatatest::IsFolder(mDir.File(".metadata")));
  EXPECT_EQ(Packed({{"KEY", "value"}}), ReadFile(mSideCar));
  // A committed write does not count as a read: the file is read back.
  EXPECT_EQ("value", ValueOf(*metadata, "KEY"));
  ASSERT_TRUE(Store(*metadata, "TWO", "2"));
  const ino_t before = metadatatest::InodeOf(mSideCar);
  // An absent key writes nothing; a removal replaces the file whole.
  EXPECT_FALSE(metadata->RemoveKey("THREE"));
  EXPECT_EQ(before, metadatatest::InodeOf(mSideCar));
  EXPECT_TRUE(metadata->RemoveKey("KEY"));
  EXPECT_NE(before, metadatatest::InodeOf(mSideCar));
  // Copy and Rename leave the file where it is.
  EXPECT_FALSE(metadata->Copy(UrlOf(mDir.File("copy.tif"))));
  EXPECT_FALSE(metadata->Rename(UrlOf(mDir.File("renamed.tif"))));
  EXPECT_TRUE(metadata->RemoveKey("TWO"));
  EXPECT_FALSE(Exists(mSideCar));
  EXPECT_FALSE(Exists(mSideCar + ".new"));
  EXPECT_FALSE(Exists(mSideCar + ".lock"));
  EXPECT_TRUE(metadatatest::IsFolder(mDir.File(".metadata")));
}

TEST_F(SideCarTest, TheStoredFormIsPinned) {
  // One dictionary of data blocks, in the data stream's own layout, and
  // nothing else. A change of a byte here breaks every stored side-car file.
  const std::string golden = ReadFile(VYRAX_TEST_DATA_DIR "/metadata/page1.tif.info");
  ASSERT_FALSE(golden.empty());
  EXPECT_EQ(golden, Packed({{"PROXY", std::string("\x00\x01\x02\xff", 4)}, {"EMPTY", ""}}));

  ::mkdir(mDir.File(".metadata").c_str(), 0755);
  WriteFile(mSideCar, golden);
  auto metadata = Open();
  EXPECT_EQ(std::string("\x00\x01\x02\xff", 4), ValueOf(*metadata, "PROXY"));
  EXPECT_EQ("", ValueOf(*metadata, "EMPTY"));
}

TEST_F(SideCarTest, AValueNotCommittedLivesOnlyInMemory) {
  auto metadata = Open();
  // Without a file the next look-up reads again and the value is gone.
  EXPECT_FALSE(Store(*metadata, "LOST", "x", false));
  EXPECT_EQ((std::vector<std::string>{"LOST"}), Keys(metadata->GetAllKeys()));
  EXPECT_TRUE(metadata->HasAnyKey());
  EXPECT_EQ("<none>", ValueOf(*metadata, "LOST"));
  EXPECT_FALSE(metadata->HasAnyKey());

  // With a file that was read, it stays until the next write or Rescan.
  ASSERT_TRUE(Store(*metadata, "SAVED", "s"));
  metadata->Rescan();
  EXPECT_FALSE(Store(*metadata, "PENDING", "p", false));
  EXPECT_EQ("p", ValueOf(*metadata, "PENDING"));
  EXPECT_EQ(Packed({{"SAVED", "s"}}), ReadFile(mSideCar));
  metadata->Rescan();
  EXPECT_EQ("<none>", ValueOf(*metadata, "PENDING"));
}

TEST_F(SideCarTest, EmptyAndBrokenFilesReadAsEmptyStores) {
  ::mkdir(mDir.File(".metadata").c_str(), 0755);
  WriteFile(mSideCar, "");
  EXPECT_FALSE(Open()->HasAnyKey());

  // Garbage, a dictionary of something else than data blocks, a store
  // with bytes behind it, a store cut short: each an empty store and a log line.
  QEN_TDict wrong;
  wrong.Add(QEN_TString("KEY"), QEN_TAny(7u));
  const std::string good = Packed({{"KEY", "value"}});
  for (const std::string& broken :
       {std::string("\x05garbage that is no dictionary"), PackedDict(wrong), good + "tail",
        good.substr(0, good.size() - 1)}) {
    Lines lines;
    WriteFile(mSideCar, broken);
    auto metadata = Open();
    ASSERT_NE(nullptr, metadata);
    EXPECT_FALSE(metadata->HasAnyKey());
    EXPECT_EQ("<none>", ValueOf(*metadata, "KEY"));
    // An empty store is read again at the next look-up: two readings, two lines.
    EXPECT_EQ(2u, lines.Count("log: VYR_TFileMetadata::ReadMetadata failed during unpacking (" +
                              mSideCar + ")"));
    // The file stays until a write replaces it.
    EXPECT_EQ(broken, ReadFile(mSideCar));
  }
  auto metadata = Open();
  ASSERT_TRUE(Store(*metadata, "NEW", "n"));
  EXPECT_EQ(Packed({{"NEW", "n"}}), ReadFile(mSideCar));
}

TEST_F(SideCarTest, AMissingDataFolderFailsAfterFiveAttemptsWithItsLogs) {
  Lines lines;
  EXPECT_FALSE(Store(*Open(mDir.File("missing/page.tif")), "A", "a"));
  const std::string folder = mDir.File("missing/.metadata");
  const std::string prefix = "log: VYR_TFileMetadata::WriteMetadata (";
  EXPECT_EQ(5u, lines.Count(prefix + "metadata folder creation) failed (" + folder +
                            ")\nError code = 2"));
  EXPECT_EQ(1u, lines.Count(prefix + "file write) failed (" + folder +
                            "/.page.tif.info)\nError code = 2"));
  EXPECT_EQ(6u, lines.All().size());
}

TEST_F(SideCarTest, AReaderRetriesWhileAnotherProcessHoldsTheFile) {
  auto writer = Open();
  ASSERT_TRUE(Store(*writer, "A", "a"));

  // Four refusals are got over, the fifth attempt reads.
  VYR_PlatformInjectFault(VYR_PlatformOpen, EWOULDBLOCK, 4);
  auto patient = Open();
  EXPECT_EQ("a", ValueOf(*patient, "A"));

  // A real process holding the file exclusively outlasts all five attempts,
  // 20 ms apart: the store reads as empty and the log says why.
  Lines lines;
  metadatatest::LockHolder holder(mSideCar);
  ASSERT_TRUE(holder.Held());
  const auto start = std::chrono::steady_clock::now();
  auto blocked = Open();
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_FALSE(blocked->HasAnyKey());
  EXPECT_GE(waited, std::chrono::milliseconds(80));
  EXPECT_EQ(1u, lines.Count("log: VYR_TFileMetadata::ReadMetadata file open failed (" + mSideCar +
                            ")\nError code = " + std::to_string(EWOULDBLOCK)));
  holder.Release();
  blocked->Rescan();
  EXPECT_EQ("a", ValueOf(*blocked, "A"));
}

TEST_F(SideCarTest, AWriterRetriesWhileAnotherWriterHoldsTheStore) {
  auto metadata = Open();
  ASSERT_TRUE(Store(*metadata, "A", "a"));
  Lines lines;
  {
    // Writers take turns by a lock file beside the store.
    metadatatest::LockHolder holder(mSideCar + ".lock");
    ASSERT_TRUE(holder.Held());
    EXPECT_FALSE(Store(*metadata, "B", "b"));
    EXPECT_EQ(1u, lines.Count("log: VYR_TFileMetadata::WriteMetadata (file write) failed (" +
                              mSideCar + ")\nError code = " + std::to_string(EWOULDBLOCK)));
    // Readers are not held up by it, nor is the store touched.
    EXPECT_EQ("a", ValueOf(*Open(), "A"));
    EXPECT_EQ(Packed({{"A", "a"}}), ReadFile(mSideCar));
  }
  EXPECT_TRUE(Store(*metadata, "C", "c"));
  EXPECT_EQ(Packed({{"A", "a"}, {"B", "b"}, {"C", "c"}}), ReadFile(mSideCar));
}

TEST_F(SideCarTest, AFailedWriteKeepsThePreviousStore) {
  auto metadata = Open();
  ASSERT_TRUE(Store(*metadata, "A", "a"));
  const std::string before = ReadFile(mSideCar);
  // The child may write no file longer than 64 bytes: the disk refuses the
  // rest, as a full disk would.
  const pid_t child = metadatatest::Spawn([&] {
    Lines lines;
    ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {64, 64};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 10;
    auto writer = Open();
    if (Store(*writer, "BIG", std::string(200, 'x'))) return 11;
    if (lines.Count("(file write) failed (" + mSideCar +
                    ")\nError code = " + std::to_string(EFBIG)) != 1)
      return 12;
    return 0;
  });
  EXPECT_EQ(0, metadatatest::Wait(child));
  EXPECT_EQ(before, ReadFile(mSideCar));
  EXPECT_FALSE(Exists(mSideCar + ".new"));
}

// --- Processes at the same store ---------------------------------------------------

// Keys of letters only, so that they are stored as they are written.
std::string KeyOf(char writer, unsigned number) {
  std::string key(1, writer);
  key += '_';
  for (int digit = 0; digit < 3; ++digit, number /= 26) key += static_cast<char>('A' + number % 26);
  return key;
}

// A value that tells its key, so that a value under a wrong key shows.
std::string ValueFor(const std::string& key) {
  std::string value;
  while (value.size() < 48) value += key + ";";
  return value;
}

TEST_F(SideCarTest, TwoWritersAndAReaderNeverSeeATornStore) {
  constexpr unsigned kKeysPerWriter = 500;
  Lines lines;
  std::vector<pid_t> writers;
  for (char writer : {'W', 'X'}) {
    writers.push_back(metadatatest::Spawn([&, writer] {
      auto metadata = Open();
      if (!metadata) return 20;
      for (unsigned i = 0; i < kKeysPerWriter; ++i) {
        const std::string key = KeyOf(writer, i);
        const std::string value = ValueFor(key);
        // A write that finds the store held past its five attempts is
        // tried again: the test is about what readers see.
        bool stored = false;
        for (int attempt = 0; attempt < 50 && !stored; ++attempt) {
          metadata->Rescan();
          stored = Store(*metadata, key.c_str(), value);
        }
        if (!stored) return 21;
      }
      return 0;
    }));
  }

  // The reader: every store it reads is a whole one, with the right value
  // under every key, and once there is a store it never goes away.
  auto reader = Open();
  unsigned reads = 0, nonEmpty = 0, emptyAfterFirst = 0, wrongValues = 0, mostKeys = 0;
  std::vector<int> statuses(writers.size(), -2);
  auto running = [&] {
    bool any = false;
    for (size_t i = 0; i < writers.size(); ++i) {
      int status = 0;
      if (statuses[i] != -2) continue;
      const pid_t ended = ::waitpid(writers[i], &status, WNOHANG);
      if (ended == 0)
        any = true;
      else
        statuses[i] = ended == writers[i] && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return any;
  };
  while (running()) {
    reader->Rescan();
    const std::vector<std::string> keys = Keys(reader->GetAllKeys());
    ++reads;
    if (keys.empty())
      emptyAfterFirst += nonEmpty > 0 ? 1 : 0;
    else
      ++nonEmpty;
    mostKeys = std::max(mostKeys, static_cast<unsigned>(keys.size()));
    for (const std::string& key : keys)
      if (ValueOf(*reader, key.c_str()) != ValueFor(key)) ++wrongValues;
  }
  for (int status : statuses) EXPECT_EQ(0, status);

  EXPECT_GT(nonEmpty, 10u) << "the reader should have seen the store grow";
  EXPECT_EQ(0u, emptyAfterFirst);
  EXPECT_EQ(0u, wrongValues);
  EXPECT_GE(mostKeys, 2u);
  EXPECT_TRUE(lines.With("failed during unpacking").empty());
  EXPECT_TRUE(lines.With("ReadMetadata file").empty());
}

TEST_F(SideCarTest, AWriterKilledInTheMiddleOfAWriteLeavesThePreviousStore) {
  auto metadata = Open();
  const std::string big(48u << 20, 'b');
  ASSERT_TRUE(Store(*metadata, "VERSION", "one"));
  ASSERT_TRUE(Store(*metadata, "DATA", "small"));
  const std::string previous = ReadFile(mSideCar);
  const std::string temporary = mSideCar + ".new";

  bool killedMidWrite = false;
  for (int round = 0; round < 10 && !killedMidWrite; ++round) {
    const pid_t child = metadatatest::Spawn([&] {
      auto writer = Open();
      for (;;) {
        writer->Rescan();
        Store(*writer, "DATA", big, false);
        Store(*writer, "VERSION", "two");
      }
      return 0;
    });
    // Stop the writer once its temporary file is there; if it is still
    // there while the writer stands still, the write is under way.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!Exists(temporary) && std::chrono::steady_clock::now() < deadline)
      std::this_thread::yield();
    ::kill(child, SIGSTOP);
    killedMidWrite = Exists(temporary);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    if (!killedMidWrite) {
      ASSERT_TRUE(Store(*metadata, "VERSION", "one"));
      ASSERT_TRUE(Store(*metadata, "DATA", "small"));
    }
  }
  ASSERT_TRUE(killedMidWrite);

  // The previous store, whole; the new write then goes through as usual.
  EXPECT_EQ(previous, ReadFile(mSideCar));
  auto after = Open();
  EXPECT_EQ("small", ValueOf(*after, "DATA"));
  ASSERT_TRUE(Store(*after, "VERSION", "three"));
  EXPECT_FALSE(Exists(temporary));
  EXPECT_EQ("three", ValueOf(*Open(), "VERSION"));
}

}  // namespace
