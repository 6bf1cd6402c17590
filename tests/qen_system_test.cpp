// Time, file and volume information, host name, the read/write lock and
// dynamic modules: the base types that stand on the operating system.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qen/qen_dynamic.h"
#include "qen/qen_exception.h"
#include "qen/qen_file.h"
#include "qen/qen_stream.h"
#include "qen/qen_sync.h"
#include "qen/qen_time.h"
#include "qen/qen_url.h"
#include "stream_test_support.h"

namespace {

using namespace std::chrono_literals;

// 2026-11-22T19:34:51.123456Z
constexpr long long kSampleMicros = 1795376091123456LL;

// ---------------------------------------------------------------------------
// Stored forms, through the real streams.

void ReadText(const std::string& text, QEN_IHumanReadable& object) {
  test_support::TextReader reader(text);
  reader.in >> object;
}

// The object comes back equal through the binary form, read whole, and
// through the text form read into `read`.
template <class T>
void ExpectRoundTrips(const T& object, T read = T()) {
  test_support::DataReader reader(test_support::Pack(object));
  std::unique_ptr<QEN_IInterface> packed(reader.in.Extract(true));
  EXPECT_EQ(0u, reader.stream.Available());
  ASSERT_NE(nullptr, packed->DynamicCast<T>());
  EXPECT_EQ(object, *packed->DynamicCast<T>());
  ReadText(test_support::Write(object), read);
  EXPECT_EQ(object, read);
}

// Reading `text` into `object` fails with a syntax error.
void ExpectSyntaxError(const std::string& text, QEN_IHumanReadable&& object) {
  EXPECT_THROW(ReadText(text, object), QEN_ESyntaxError) << text;
}

// ---------------------------------------------------------------------------
// Time

TEST(QenTime, TextFormAndFractions) {
  struct Case {
    long long micros;
    const char* text;
  } cases[] = {
      {kSampleMicros, "2026-11-22T19:34:51.123456Z"},
      {-1, "1969-12-31T23:59:59.999999Z"},
      {951782400000000LL, "2000-02-29T00:00:00.000000Z"},
      {-62167219200000001LL, "-0001-12-31T23:59:59.999999Z"},
      {253402300800000000LL, "10000-01-01T00:00:00.000000Z"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.text, std::string(QEN_TTime(c.micros).AsString().c_str()));
    EXPECT_EQ(c.micros, QEN_TTime::Parse(c.text).AsMicros()) << c.text;
  }
  // Every 64-bit value reads back, including both ends.
  for (long long micros : {LLONG_MIN, LLONG_MAX, LLONG_MIN + 1, LLONG_MAX - 1}) {
    QEN_TTime t(micros);
    EXPECT_EQ(micros, QEN_TTime::Parse(t.AsString()).AsMicros()) << t.AsString().c_str();
  }
  EXPECT_EQ(1500000, QEN_TTime::Parse("1970-01-01T00:00:01.5Z").AsMicros()) << "fewer decimals";
}

TEST(QenTime, MalformedTextIsRefused) {
  const char* bad[] = {
      "2026-11-22 19:34:51Z",   "2026-11-22T19:34:51",  "2026-11-22T24:00:00Z",
      "2026-11-22T19:34:60Z",   "2026-02-29T00:00:00Z", "2026-11-22T19:34:51Zjunk",
      "999999-12-31T23:59:59Z",  // past the range of 64-bit microseconds
  };
  for (const char* text : bad) EXPECT_THROW(QEN_TTime::Parse(text), QEN_ESyntaxError) << text;
  ExpectSyntaxError("  2026-11-22T19:34:51.1234567Z", QEN_TTime());
}

TEST(QenTime, SetMicrosKeepsTheSecond) {
  QEN_TTime t(kSampleMicros);
  t.SetMicros(999999);
  EXPECT_EQ(kSampleMicros - 123456 + 999999, t.AsMicros());
  // The fraction of a time before 1970 counts forward from the second below.
  QEN_TTime before(-1500000);
  EXPECT_EQ(500000u, before.Micros());
  before.SetMicros(250000);
  EXPECT_EQ(-1750000, before.AsMicros());
  EXPECT_THROW(t.SetMicros(1000000), QEN_EIndexOutOfRange);
  // At the ends of the range the whole second doesn't fit: no overflow, and
  // a place beyond the range is refused.
  QEN_TTime lowest(LLONG_MIN), highest(LLONG_MAX);
  EXPECT_EQ(224192u, lowest.Micros());
  EXPECT_THROW(lowest.SetMicros(0), QEN_EIndexOutOfRange);
  EXPECT_THROW(highest.SetMicros(999999), QEN_EIndexOutOfRange);
  highest.SetMicros(0);
  EXPECT_EQ(LLONG_MAX - 775807, highest.AsMicros());

  EXPECT_EQ(kSampleMicros, QEN_TTime::FromSeconds(kSampleMicros / 1000000, 123456).AsMicros());
  EXPECT_THROW(QEN_TTime::FromSeconds(LLONG_MAX / 10), QEN_EIndexOutOfRange);
}

TEST(QenTime, NowComparisonAndIntervals) {
  timespec before{};
  ::clock_gettime(CLOCK_REALTIME, &before);
  EXPECT_NEAR(QEN_TTime::Now().Seconds(), before.tv_sec, 5);

  EXPECT_EQ(-10, QEN_TInterval(QEN_TTime(20), QEN_TTime(10)).Length());
  // Distances beyond 64 bits stop at the ends of the range.
  EXPECT_EQ(LLONG_MAX, QEN_TInterval(QEN_TTime(LLONG_MIN), QEN_TTime(LLONG_MAX)).Length());
  EXPECT_EQ(LLONG_MIN, QEN_TInterval(QEN_TTime(LLONG_MAX), QEN_TTime(-2)).Length());
}

// ---------------------------------------------------------------------------
// Data block

TEST(QenDataBlock, CopiesAndStoredForms) {
  // The golden files pin the stored forms of a small block.
  unsigned char bytes[] = {0x00, 0xFF, 0x10, 0x7A};
  QEN_TDataBlock block(bytes, sizeof bytes);
  bytes[0] = 0x55;  // the block has its own copy
  ExpectRoundTrips(QEN_TDataBlock());
  std::vector<unsigned char> big(200000);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 7);
  ExpectRoundTrips(QEN_TDataBlock(big.data(), 200000));

  QEN_TDataBlock read;
  ReadText(" <00FF107a>", read);
  EXPECT_EQ(block, read);
  ReadText("<>", read);
  EXPECT_EQ(0u, read.Size());
  for (const char* bad : {"<0>", "<00 ff>", "00ff", "<00ff"})
    ExpectSyntaxError(bad, QEN_TDataBlock());
}

TEST(QenDataBlock, SizeInTheStreamIsNotTrusted) {
  // A claim of 4 GiB over three bytes fails before anything is allocated.
  QEN_TDataBlock block("\x01\x02", 2);
  EXPECT_THROW(test_support::UnpackContent({0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3}, block),
               QEN_EStreamException);
  EXPECT_EQ(2u, block.Size());  // left as it was

  // One byte short of the claim fails the same way.
  EXPECT_THROW(test_support::UnpackContent({4, 0, 0, 0, 1, 2, 3}, block), QEN_EStreamException);
}

// ---------------------------------------------------------------------------
// File and volume information

class QenFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/qen_system_test_XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(dir));
    dir_ = dir;
  }
  void TearDown() override { EXPECT_EQ(0, std::system(("rm -rf '" + dir_ + "'").c_str())); }
  std::string MakeFile(const std::string& name, std::size_t size) {
    std::string path = dir_ + "/" + name;
    std::ofstream(path, std::ios::binary) << std::string(size, 'x');
    return path;
  }
  static void SetTime(const std::string& path, time_t seconds, long nanos) {
    timespec times[2] = {{seconds, nanos}, {seconds, nanos}};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, path.c_str(), times, 0));
  }

  std::string dir_;
};

TEST_F(QenFiles, SizeTimeAndIdentity) {
  // A blank in the name: the URL carries it encoded, the file call decoded.
  std::string path = MakeFile("first file.tif", 5000);
  SetTime(path, kSampleMicros / 1000000, 123456789);
  QEN_TURL url = QEN_TURL::LocalToURL(path.c_str());
  ASSERT_NE(std::string::npos, std::string(url.AsString().c_str()).find("%20"));

  QEN_TFileInfo info(url, true);
  EXPECT_EQ(path, info.Path().c_str());
  EXPECT_EQ(5000.0, info.Size());
  EXPECT_EQ(kSampleMicros, info.ModificationTime().AsMicros());

  // The same file under another name, and through a link, is the same file.
  std::string hardLink = dir_ + "/hard";
  ASSERT_EQ(0, ::link(path.c_str(), hardLink.c_str()));
  std::string softLink = dir_ + "/soft";
  ASSERT_EQ(0, ::symlink(path.c_str(), softLink.c_str()));
  EXPECT_EQ(info.SmartID(), QEN_TFileInfo(QEN_TURL::LocalToURL(hardLink.c_str()), true).SmartID());
  EXPECT_EQ(info.SmartID(), QEN_TFileInfo(QEN_TURL::LocalToURL(softLink.c_str()), true).SmartID());

  // Another file, even with the same content and time, is not.
  std::string other = MakeFile("second", 5000);
  SetTime(other, kSampleMicros / 1000000, 123456789);
  EXPECT_NE(info.SmartID(), QEN_TFileInfo(QEN_TURL::LocalToURL(other.c_str()), true).SmartID());
}

TEST_F(QenFiles, MissingFile) {
  std::string path = dir_ + "/missing.tif";
  QEN_TURL url = QEN_TURL::LocalToURL(path.c_str());
  EXPECT_THROW(QEN_TFileInfo(url, true), QEN_EFileException);
  EXPECT_FALSE(QEN_TFileInfo(url, false).Exists());
  EXPECT_THROW(QEN_TFileInfo(QEN_TURL(), true), QEN_EFileException);
}

TEST_F(QenFiles, FileInfoStoredForms) {
  std::string path = MakeFile("with \"quote\"", 52311);
  SetTime(path, kSampleMicros / 1000000, 123456000);
  ExpectRoundTrips(QEN_TFileInfo(QEN_TURL::LocalToURL(path.c_str()), true));
  ExpectRoundTrips(QEN_TFileInfo());
  ExpectSyntaxError("\"/a\", maybe, 1, 1970-01-01T00:00:00Z, 1", QEN_TFileInfo());
  ExpectSyntaxError("\"/a\", true; 1, 1970-01-01T00:00:00Z, 1", QEN_TFileInfo());
}

TEST_F(QenFiles, VolumeOfTemporaryFolder) {
  QEN_TVolumeInfo volume(dir_.c_str());
  EXPECT_NE(QEN_TVolumeInfo::kNoRoot, volume.Type());
  EXPECT_LE(volume.FreeBytes(), volume.TotalBytes());
  // The answer agrees with actually writing a user attribute there.
  std::string file = MakeFile("attributes", 1);
  bool writable = ::setxattr(file.c_str(), "user.qen.test", "1", 1, 0) == 0;
  EXPECT_EQ(writable, volume.KeepsUserAttributes());

  QEN_TVolumeInfo proc("/proc/self");
  EXPECT_STREQ("proc", proc.FileSystemName().c_str());
  EXPECT_FALSE(proc.KeepsUserAttributes());

  QEN_TVolumeInfo missing((dir_ + "/no/such/place").c_str());
  EXPECT_EQ(QEN_TVolumeInfo::kNoRoot, missing.Type());

  ExpectRoundTrips(volume, missing);
  ExpectSyntaxError("\"/a\", \"ext4\", 7, true, 1, 2", std::move(missing));
}

// ---------------------------------------------------------------------------
// Read/write lock

// `body` on a thread of its own; the future's end waits for it.
template <class F>
std::future<void> Attempt(F body) {
  return std::async(std::launch::async, body);
}

bool FinishedWithin(const std::future<void>& attempt, std::chrono::milliseconds wait) {
  return attempt.wait_for(wait) == std::future_status::ready;
}

TEST(QenRWLock, WriteSideIsReentrantAndExcludesOthers) {
  QEN_TRWLock lock;
  lock.WriteLock();
  lock.WriteLock();
  {
    auto reader = Attempt([&] { QEN_TReadGuard guard(lock); });
    auto writer = Attempt([&] { QEN_TWriteGuard guard(lock); });
    lock.WriteUnlock();  // still held once
    EXPECT_FALSE(FinishedWithin(reader, 50ms));
    EXPECT_FALSE(FinishedWithin(writer, 1ms));
    lock.WriteUnlock();
    EXPECT_TRUE(FinishedWithin(reader, 10s));
    EXPECT_TRUE(FinishedWithin(writer, 10s));
  }
  EXPECT_FALSE(lock.HoldsWriteLock());
}

TEST(QenRWLock, WriteHolderMayTakeTheReadSide) {
  QEN_TRWLock lock;
  lock.WriteLock();
  lock.ReadLock();
  lock.ReadLock();
  lock.ReadUnlock();
  // Letting go of the write side first leaves an ordinary read hold.
  lock.WriteUnlock();
  EXPECT_FALSE(lock.HoldsWriteLock());
  EXPECT_TRUE(FinishedWithin(Attempt([&] { QEN_TReadGuard guard(lock); }), 10s));
  auto writer = Attempt([&] { QEN_TWriteGuard guard(lock); });
  EXPECT_FALSE(FinishedWithin(writer, 50ms));
  lock.ReadUnlock();
  EXPECT_TRUE(FinishedWithin(writer, 10s));
}

// Each reader waits, holding the read side twice, until all are inside at once.
TEST(QenRWLock, ReadersShareAndWritersWait) {
  QEN_TRWLock lock;
  constexpr int kReaders = 4;
  std::mutex mutex;
  std::condition_variable changed;
  int inside = 0;
  bool allInside = true;
  std::vector<std::thread> readers;
  for (int i = 0; i < kReaders; ++i) {
    readers.emplace_back([&] {
      QEN_TReadGuard guard(lock);
      QEN_TReadGuard again(lock);
      std::unique_lock<std::mutex> hold(mutex);
      ++inside;
      changed.notify_all();
      if (!changed.wait_for(hold, 10s, [&] { return inside == kReaders; })) allInside = false;
    });
  }
  for (auto& reader : readers) reader.join();
  EXPECT_TRUE(allInside);
}

TEST(QenRWLock, WritersAreExclusive) {
  QEN_TRWLock lock;
  long counter = 0;  // guarded by the lock alone
  std::atomic<long> writes{0};
  std::atomic<int> writersInside{0};
  std::atomic<bool> overlap{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        if ((i + t) % 4 == 0) {
          QEN_TReadGuard guard(lock);
          if (writersInside.load() != 0) overlap = true;
          continue;
        }
        QEN_TWriteGuard outer(lock);
        QEN_TWriteGuard inner(lock);
        if (writersInside.fetch_add(1) != 0) overlap = true;
        ++counter;
        ++writes;
        writersInside.fetch_sub(1);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(overlap);
  EXPECT_EQ(writes.load(), counter);
}

// ---------------------------------------------------------------------------
// Dynamic modules

TEST(QenDynamicObject, LoadsAndLooksUp) {
  QEN_TDynamicObject math("libm.so.6", "math");
  auto cosine = reinterpret_cast<double (*)(double)>(math.Symbol("cos"));
  ASSERT_NE(nullptr, cosine);
  EXPECT_DOUBLE_EQ(1.0, cosine(0.0));
  EXPECT_EQ(nullptr, math.Symbol("no_such_function_here"));
  EXPECT_THROW(QEN_TDynamicObject("libqen_no_such_module.so", "tag"),
               QEN_ECouldNotLoadDynamicObject);
  EXPECT_THROW(QEN_TDynamicObject("", "tag"), QEN_ECouldNotLoadDynamicObject);
}

}  // namespace
