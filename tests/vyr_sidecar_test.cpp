// The side-car backend on real files: where the file lies, when it is made,
// replaced and deleted, what a broken one reads as, the retries against a
// lock that a real child process holds, failures of the disk, and two
// writing processes with a reader, and a writer killed in the middle of a
// write.
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <map>
#include <thread>

#include "metadata_test_support.h"

namespace {

using metadatatest::Exists;
using metadatatest::Keys;
using metadatatest::Lines;
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
    mSideCar = mDir.File(".metadata/.page1.tif.info");
  }

  std::unique_ptr<VYR_IMetadata> Open(const std::string& data) {
    return std::unique_ptr<VYR_IMetadata>(VYR_IMetadata::CreateAccessObject(UrlOf(data)));
  }
  std::unique_ptr<VYR_IMetadata> Open() { return Open(mData); }
  // The store with the one key A = "a" committed; its bytes in mBefore.
  std::unique_ptr<VYR_IMetadata> OpenWithA() {
    auto metadata = Open();
    EXPECT_TRUE(Store(*metadata, "A", "a"));
    mBefore = ReadFile(mSideCar);
    return metadata;
  }

  Lines mQuiet;  // the log lines of the failures the tests provoke
  metadatatest::TempDir mDir;
  std::string mData;
  std::string mSideCar;
  std::string mBefore;
};

std::string PackedDict(const QEN_TDict& dict) {
  const test_support::Bytes bytes = test_support::Pack(dict);
  return std::string(bytes.begin(), bytes.end());
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
  EXPECT_FALSE(Exists(mDir.File(".metadata")));
  ASSERT_TRUE(Store(*metadata, "KEY", "value"));
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
  // Nothing is left behind: no store, no lock, no temporary file.
  EXPECT_TRUE(metadatatest::Entries(mDir.File(".metadata")).empty());
}

TEST_F(SideCarTest, TheStoredFormIsPinned) {
  // One dictionary of data blocks, in the data stream's own layout, and
  // nothing else. A change of a byte here breaks every stored side-car file.
  const std::string golden = ReadFile(VYRAX_TEST_DATA_DIR "/metadata/page1.tif.info");
  ASSERT_FALSE(golden.empty());
  EXPECT_EQ(golden, Packed({{"PROXY", std::string("\x00\x01\x02\xff", 4)}, {"EMPTY", ""}}));

  ::mkdir(mDir.File(".metadata").c_str(), 0755);
  WriteFile(mSideCar, golden);
  EXPECT_EQ("", ValueOf(*Open(), "EMPTY"));

  // A store written in the first binary form, or in the second before it
  // had well-known classes, reads, and the next commit rewrites it whole in
  // the current form.
  for (const char* earlier : {"v1", "named"}) {
    SCOPED_TRACE(earlier);
    WriteFile(mSideCar, ReadFile(VYRAX_TEST_DATA_DIR "/metadata/" + std::string(earlier) +
                                 "/page1.tif.info"));
    auto old = Open();
    EXPECT_EQ(std::string("\x00\x01\x02\xff", 4), ValueOf(*old, "PROXY"));
    ASSERT_TRUE(Store(*old, "NEW", "n"));
    const std::string rewritten = ReadFile(mSideCar);
    EXPECT_EQ(std::string("\xB5\x02"), rewritten.substr(0, 2)) << "the current form's mark";
    EXPECT_EQ(std::string::npos, rewritten.find("QEN_T")) << "well-known classes go unnamed";
    EXPECT_EQ(std::string("\x00\x01\x02\xff", 4), ValueOf(*Open(), "PROXY"));
  }
}

TEST_F(SideCarTest, BrokenStoresReadAsEmptyAndAreKeptAsideBeforeAWrite) {
  ::mkdir(mDir.File(".metadata").c_str(), 0755);
  WriteFile(mSideCar, "");
  EXPECT_FALSE(Open()->HasAnyKey());

  // Garbage, a flipped bit, a dictionary of something else than data blocks,
  // a store with bytes behind it, a store cut short: each an empty store and
  // a log line to read; a commit keeps the bytes aside, says where, and
  // writes its own change.
  QEN_TDict wrong;
  wrong.Add(QEN_TString("KEY"), QEN_TAny(7u));
  const std::string good = Packed({{"KEY", "value"}});
  std::string flipped = good;
  flipped[0] ^= 0x01;
  for (const std::string& broken :
       {std::string("\x05garbage that is no dictionary"), flipped, PackedDict(wrong), good + "tail",
        good.substr(0, good.size() - 1)}) {
    WriteFile(mSideCar, broken);
    auto metadata = Open();
    EXPECT_EQ("<none>", ValueOf(*metadata, "KEY"));
    EXPECT_EQ(broken, ReadFile(mSideCar));

    ASSERT_TRUE(Store(*metadata, "NEW", "n"));
    EXPECT_EQ(Packed({{"NEW", "n"}}), ReadFile(mSideCar));
    // Beside the store and its lock: the bytes kept aside.
    const std::vector<std::string> names = metadatatest::Entries(mDir.File(".metadata"));
    ASSERT_EQ(3u, names.size());
    EXPECT_EQ(0u, names[2].rfind(".page1.tif.info.unreadable-", 0));
    EXPECT_EQ(broken, ReadFile(mDir.File(".metadata/" + names[2])));
    ::unlink(mDir.File(".metadata/" + names[2]).c_str());
  }

  // A store larger than the reader takes (here a sparse file just over the
  // limit of 1 GiB) is kept aside too, not read.
  ASSERT_EQ(0, ::truncate(mSideCar.c_str(), (1ll << 30) + 1));
  ASSERT_TRUE(Store(*Open(), "AFTER", "a"));
  EXPECT_EQ(Packed({{"AFTER", "a"}}), ReadFile(mSideCar));
  EXPECT_EQ(3u, metadatatest::Entries(mDir.File(".metadata")).size());
}

TEST_F(SideCarTest, NoFileOutsideTheStoreIsEverTouched) {
  // A file of the pipeline's user that somebody who may write the job
  // folder wants clobbered, and a name where a file is to be made.
  const std::string victim = WriteFile(mDir.File("victim.txt"), "precious");
  const std::string nowhere = mDir.File("created-by-nobody");
  ::mkdir(mDir.File(".metadata").c_str(), 0755);
  for (const std::string& planted :
       {mSideCar + ".new", mSideCar + ".new-" + std::to_string(::getpid()) + "-0",
        mSideCar + ".lock"}) {
    for (const std::string& target : {victim, nowhere}) {
      ::unlink(planted.c_str());
      ASSERT_EQ(0, ::symlink(target.c_str(), planted.c_str())) << planted;
      EXPECT_TRUE(Store(*Open(), "KEY", planted));
      EXPECT_EQ(planted, ValueOf(*Open(), "KEY"));
      EXPECT_EQ("precious", ReadFile(victim));
      EXPECT_FALSE(Exists(nowhere));
    }
  }
  // A link at the store's name is neither read nor written through: it is
  // kept aside, as anything else that is no store.
  ASSERT_EQ(0, ::unlink(mSideCar.c_str()));
  ASSERT_EQ(0, ::symlink(victim.c_str(), mSideCar.c_str()));
  EXPECT_FALSE(Open()->HasAnyKey());
  EXPECT_TRUE(Store(*Open(), "KEY", "mine"));
  EXPECT_EQ("precious", ReadFile(victim));
  EXPECT_EQ(Packed({{"KEY", "mine"}}), ReadFile(mSideCar));

  // A .metadata that is a link is refused.
  metadatatest::TempDir job;
  const std::string elsewhere = mDir.File("elsewhere");
  ::mkdir(elsewhere.c_str(), 0755);
  ASSERT_EQ(0, ::symlink(elsewhere.c_str(), job.File(".metadata").c_str()));
  EXPECT_FALSE(Store(*Open(WriteFile(job.File("page.tif"), "x")), "KEY", "v"));
  EXPECT_TRUE(metadatatest::Entries(elsewhere).empty());

  // A data folder that does not exist: the folder cannot be made.
  EXPECT_FALSE(Store(*Open(mDir.File("missing/page.tif")), "A", "a"));
}

TEST_F(SideCarTest, ReadersAndWritersRetryWhileAnotherProcessHoldsTheStoreOrItsLock) {
  OpenWithA();
  // A real process holding the file exclusively outlasts all five attempts,
  // 20 ms apart: the store reads as empty.
  metadatatest::LockHolder holder(mSideCar);
  ASSERT_TRUE(holder.Held());
  const auto start = std::chrono::steady_clock::now();
  auto blocked = Open();
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_FALSE(blocked->HasAnyKey());
  EXPECT_GE(waited, std::chrono::milliseconds(80));
  // Held is not empty: a commit meanwhile changes nothing and says so.
  EXPECT_FALSE(Store(*blocked, "B", "b"));
  EXPECT_EQ(mBefore, ReadFile(mSideCar));
  holder.Release();
  // The pending change goes in with the next commit, beside what was there.
  EXPECT_TRUE(Store(*blocked, "C", "c"));
  EXPECT_EQ(Packed({{"A", "a"}, {"B", "b"}, {"C", "c"}}), ReadFile(mSideCar));

  // Writers take turns by a lock file beside the store; readers are not
  // held up by it, nor is the store touched.
  metadatatest::LockHolder writer(mSideCar + ".lock");
  ASSERT_TRUE(writer.Held());
  EXPECT_FALSE(Store(*blocked, "D", "d"));
  EXPECT_EQ("a", ValueOf(*Open(), "A"));
  EXPECT_EQ(Packed({{"A", "a"}, {"B", "b"}, {"C", "c"}}), ReadFile(mSideCar));
  writer.Release();
  EXPECT_TRUE(Store(*blocked, "E", "e"));
  EXPECT_EQ("d", ValueOf(*Open(), "D"));
}

TEST_F(SideCarTest, AStoreThatCannotBeReadNowIsNeverReplaced) {
  OpenWithA();
  // Out of descriptors: the object starts empty, a commit then fails and
  // changes nothing; once descriptors are free again, its commit keeps what
  // the store holds.
  EXPECT_EQ(0, metadatatest::Wait(metadatatest::Spawn([&] {
#ifdef __SANITIZE_ADDRESS__
              // The undefined-behaviour checks of this build need a pipe of their own
              // to look at memory, and take a full table for a fault.
              if (true) {
                auto writer = Open();
                return writer && Store(*writer, "B", "b") && Store(*writer, "C", "c") ? 0 : 16;
              }
#endif
              struct rlimit limit = {64, 64};
              if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return 10;
              std::vector<int> taken;
              for (int fd; (fd = ::open("/dev/null", O_RDONLY)) >= 0;) taken.push_back(fd);
              if (errno != EMFILE) return 11;
              auto writer = Open();
              if (!writer || writer->HasAnyKey()) return 12;
              if (Store(*writer, "B", "b")) return 13;
              for (int fd : taken) ::close(fd);
              if (ReadFile(mSideCar) != mBefore) return 14;
              return Store(*writer, "C", "c") ? 0 : 15;
            })));
  EXPECT_EQ(Packed({{"A", "a"}, {"B", "b"}, {"C", "c"}}), ReadFile(mSideCar));

  // No permission to read the store, though the folder may be written: the
  // commit of another user refuses.
  const std::string after = ReadFile(mSideCar);
  ASSERT_EQ(0, ::chmod(mDir.Path().c_str(), 0755));
  ASSERT_EQ(0, ::chmod(mDir.File(".metadata").c_str(), 0777));
  ASSERT_EQ(0, ::chmod(mSideCar.c_str(), 0600));
  ASSERT_EQ(0, ::chmod((mSideCar + ".lock").c_str(), 0666));
  EXPECT_EQ(0, metadatatest::Wait(metadatatest::Spawn([&] {
              if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 20;
              auto writer = Open();
              if (!writer || writer->HasAnyKey()) return 21;
              return Store(*writer, "D", "d") ? 22 : 0;
            })));
  EXPECT_EQ(after, ReadFile(mSideCar));

  // A lock file of another user that this one may only read still locks.
  ASSERT_EQ(0, ::chmod(mSideCar.c_str(), 0644));
  ASSERT_EQ(0, ::chmod((mSideCar + ".lock").c_str(), 0644));
  EXPECT_EQ(0, metadatatest::Wait(metadatatest::Spawn([&] {
              if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 30;
              return Store(*Open(), "E", "e") ? 0 : 31;
            })));
  EXPECT_EQ("e", ValueOf(*Open(), "E"));
}

TEST_F(SideCarTest, AFailedWriteKeepsThePreviousStore) {
  OpenWithA();
  // The child may write no file longer than 64 bytes: the disk refuses the
  // rest, as a full disk would.
  EXPECT_EQ(0, metadatatest::Wait(metadatatest::Spawn([&] {
              ::signal(SIGXFSZ, SIG_IGN);
              struct rlimit limit = {64, 64};
              if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 10;
              return Store(*Open(), "BIG", std::string(200, 'x')) ? 11 : 0;
            })));
  EXPECT_EQ(mBefore, ReadFile(mSideCar));
  EXPECT_EQ((std::vector<std::string>{".page1.tif.info", ".page1.tif.info.lock"}),
            metadatatest::Entries(mDir.File(".metadata")));
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

// Each write by a fresh object, as separate steps of a pipeline do it.
bool WriteFresh(const std::string& data, const std::string& key) {
  std::unique_ptr<VYR_IMetadata> metadata(VYR_IMetadata::CreateAccessObject(UrlOf(data)));
  return metadata && Store(*metadata, key.c_str(), ValueFor(key));
}

TEST_F(SideCarTest, ConcurrentWritersLoseNothingAndAReaderNeverSeesATornStore) {
  constexpr unsigned kKeysPerWriter = 300;
  std::vector<pid_t> writers;
  for (char writer : {'W', 'X'}) {
    writers.push_back(metadatatest::Spawn([&, writer] {
      for (unsigned i = 0; i < kKeysPerWriter; ++i)
        if (!WriteFresh(mData, KeyOf(writer, i))) return 21;
      return 0;
    }));
  }

  // The reader: every store it reads is a whole one, with the right value
  // under every key, and it never shrinks.
  auto reader = Open();
  unsigned nonEmpty = 0, shrunk = 0, wrongValues = 0, mostKeys = 0;
  std::vector<int> statuses;
  while (statuses.size() < writers.size()) {
    int status = 0;
    if (::waitpid(-1, &status, WNOHANG) > 0)
      statuses.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    reader->Rescan();
    const std::vector<std::string> keys = Keys(reader->GetAllKeys());
    nonEmpty += keys.empty() ? 0 : 1;
    shrunk += keys.size() < mostKeys ? 1 : 0;
    mostKeys = std::max(mostKeys, static_cast<unsigned>(keys.size()));
    for (const std::string& key : keys)
      if (ValueOf(*reader, key.c_str()) != ValueFor(key)) ++wrongValues;
  }
  for (int status : statuses) EXPECT_EQ(0, status);
  EXPECT_GT(nonEmpty, 10u) << "the reader should have seen the store grow";
  EXPECT_EQ(0u, shrunk);
  EXPECT_EQ(0u, wrongValues);
  // Every key of both writers is there.
  reader->Rescan();
  EXPECT_EQ(2 * kKeysPerWriter, Keys(reader->GetAllKeys()).size());

  // Threads of one process take turns in the same way.
  std::vector<std::thread> threads;
  std::atomic<unsigned> failed{0};
  for (char writer : {'A', 'B', 'C', 'D'})
    threads.emplace_back([&, writer] {
      for (unsigned i = 0; i < 25; ++i)
        if (!WriteFresh(mData, KeyOf(writer, i))) ++failed;
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0u, failed.load());
  reader->Rescan();
  EXPECT_EQ(2 * kKeysPerWriter + 100, Keys(reader->GetAllKeys()).size());
  // A removal is a change of its own too: it takes out one key, not the
  // keys that others wrote since this object read the store.
  auto remover = Open();
  ASSERT_TRUE(WriteFresh(mData, "LATE"));
  EXPECT_TRUE(remover->RemoveKey("W_AAA"));
  EXPECT_EQ(ValueFor("LATE"), ValueOf(*remover, "LATE"));
  EXPECT_EQ(2 * kKeysPerWriter + 100, Keys(remover->GetAllKeys()).size());
}

TEST_F(SideCarTest, AWriterKilledInTheMiddleOfAWriteLeavesThePreviousStore) {
  auto metadata = Open();
  const std::string big(48u << 20, 'b');
  ASSERT_TRUE(Store(*metadata, "VERSION", "one"));
  ASSERT_TRUE(Store(*metadata, "DATA", "small"));
  const std::string previous = ReadFile(mSideCar);
  // Whether a temporary file of a writer is in the folder.
  auto writing = [&] {
    for (const std::string& name : metadatatest::Entries(mDir.File(".metadata")))
      if (name.rfind(".page1.tif.info.new-", 0) == 0) return true;
    return false;
  };

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
    while (!writing() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    ::kill(child, SIGSTOP);
    killedMidWrite = writing();
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    if (!killedMidWrite) WriteFile(mSideCar, previous);
  }
  ASSERT_TRUE(killedMidWrite);

  // The previous store, whole; the new write then goes through as usual.
  EXPECT_EQ(previous, ReadFile(mSideCar));
  auto after = Open();
  EXPECT_EQ("small", ValueOf(*after, "DATA"));
  ASSERT_TRUE(Store(*after, "VERSION", "three"));
  // The next commit takes the lock the killed writer held, and clears away
  // what it left.
  EXPECT_FALSE(writing());
  EXPECT_EQ("three", ValueOf(*Open(), "VERSION"));
}

}  // namespace
