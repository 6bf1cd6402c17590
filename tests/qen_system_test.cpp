// Time, file and volume information, host name, the read/write lock and
// dynamic modules: the base types that stand on the operating system.
#include <dlfcn.h>
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
#include <cstring>
#include <fstream>
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

using test_support::FailureOf;

// ---------------------------------------------------------------------------
// Stored forms, through the real streams.

template <class T>
T PackedRoundTrip(const T& object) {
  test_support::DataReader reader(test_support::Pack(object));
  std::unique_ptr<QEN_IPackable> read(reader.in.Extract(true));
  EXPECT_EQ(0u, reader.stream.Available());
  const T* typed = read->DynamicCast<T>();
  EXPECT_NE(nullptr, typed);
  EXPECT_TRUE(object.QEN_IsIdent(*read));
  return *typed;
}

std::string Text(const QEN_IHumanReadable& object) { return test_support::Write(object); }

void ReadText(const std::string& text, QEN_IHumanReadable& object) {
  test_support::TextReader reader(text);
  reader.in >> object;
}

// Reading `text` fails with a syntax error whose message holds `expected`.
void ExpectSyntaxError(const std::string& text, const char* expected, QEN_IHumanReadable&& object) {
  const std::string message = FailureOf<QEN_ESyntaxError>([&] { ReadText(text, object); });
  EXPECT_NE(std::string::npos, message.find(expected)) << text << ": " << message;
}

// ---------------------------------------------------------------------------
// Time

TEST(QenTime, TextFormAndFractions) {
  struct Case {
    long long micros;
    const char* text;
  } cases[] = {
      {kSampleMicros, "2026-11-22T19:34:51.123456Z"},
      {0, "1970-01-01T00:00:00.000000Z"},
      {-1, "1969-12-31T23:59:59.999999Z"},
      {951782400000000LL, "2000-02-29T00:00:00.000000Z"},
      {-62135596800000000LL, "0001-01-01T00:00:00.000000Z"},
      {-62167219200000001LL, "-0001-12-31T23:59:59.999999Z"},
      {253402300800000000LL, "10000-01-01T00:00:00.000000Z"},
  };
  for (const Case& c : cases) {
    QEN_TTime t(c.micros);
    EXPECT_EQ(c.text, std::string(t.AsString().c_str()));
    EXPECT_EQ(c.micros, QEN_TTime::Parse(c.text).AsMicros()) << c.text;
    EXPECT_EQ(std::string(c.text) + "", Text(t));
  }
  // The fraction of a time before 1970 counts forward from the second below.
  QEN_TTime before(-1500000);
  EXPECT_EQ(-2, before.Seconds());
  EXPECT_EQ(500000u, before.Micros());
  // Every 64-bit value reads back, including both ends.
  for (long long micros : {LLONG_MIN, LLONG_MAX, LLONG_MIN + 1, LLONG_MAX - 1}) {
    QEN_TTime t(micros);
    EXPECT_EQ(micros, QEN_TTime::Parse(t.AsString()).AsMicros()) << t.AsString().c_str();
  }
  // Fewer decimals, or none.
  EXPECT_EQ(1500000, QEN_TTime::Parse("1970-01-01T00:00:01.5Z").AsMicros());
  EXPECT_EQ(60000000, QEN_TTime::Parse("1970-01-01T00:01:00Z").AsMicros());
}

TEST(QenTime, MalformedTextIsRefused) {
  const char* bad[] = {
      "",
      "2026-11-22",
      "2026-11-22 19:34:51Z",
      "2026-11-22T19:34:51",
      "2026-11-22T19:34:51.1234567Z",
      "2026-11-22T24:00:00Z",
      "2026-11-22T19:34:60Z",
      "2026-02-29T00:00:00Z",
      "2026-13-01T00:00:00Z",
      "2026-04-31T00:00:00Z",
      "2026-11-22T19:34:51Zjunk",
      "999999-12-31T23:59:59Z",  // past the range of 64-bit microseconds
  };
  for (const char* text : bad) {
    EXPECT_THROW(QEN_TTime::Parse(text), QEN_ESyntaxError) << text;
  }
  ExpectSyntaxError("  2026-11-22T19:34:51.1234567Z", "bad time", QEN_TTime());
  ExpectSyntaxError("x", "bad time", QEN_TTime());
}

TEST(QenTime, SetMicrosKeepsTheSecond) {
  QEN_TTime t(kSampleMicros);
  t.SetMicros(0);
  EXPECT_EQ(kSampleMicros - 123456, t.AsMicros());
  t.SetMicros(999999);
  EXPECT_EQ(kSampleMicros - 123456 + 999999, t.AsMicros());
  QEN_TTime before(-1500000);
  before.SetMicros(250000);
  EXPECT_EQ(-1750000, before.AsMicros());
  EXPECT_THROW(t.SetMicros(1000000), QEN_EIndexOutOfRange);
  EXPECT_EQ(kSampleMicros - 123456 + 999999, t.AsMicros());
  // At the ends of the range the whole second doesn't fit: no overflow, and
  // a place beyond the range is refused.
  QEN_TTime lowest(LLONG_MIN), highest(LLONG_MAX);
  EXPECT_EQ(224192u, lowest.Micros());
  lowest.SetMicros(999999);
  EXPECT_EQ(LLONG_MIN + (999999 - 224192), lowest.AsMicros());
  lowest = QEN_TTime(LLONG_MIN);
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
  QEN_TTime now = QEN_TTime::Now();
  EXPECT_GE(now.Seconds(), before.tv_sec);
  EXPECT_LE(now.Seconds(), before.tv_sec + 5);

  QEN_TTime a(10), b(20);
  EXPECT_EQ(10, QEN_TInterval(a, b).Length());
  EXPECT_EQ(-10, QEN_TInterval(b, a).Length());
  // The interval between equal times is the empty one, wherever they lie.
  EXPECT_EQ(QEN_TInterval(), QEN_TInterval(b, b));
  // Distances beyond 64 bits stop at the ends of the range.
  EXPECT_EQ(LLONG_MAX, QEN_TInterval(QEN_TTime(LLONG_MIN), QEN_TTime(LLONG_MAX)).Length());
  EXPECT_EQ(LLONG_MIN, QEN_TInterval(QEN_TTime(LLONG_MAX), QEN_TTime(-2)).Length());
}

// ---------------------------------------------------------------------------
// Data block

TEST(QenDataBlock, CopiesAndStoredForms) {
  unsigned char bytes[] = {0x00, 0xFF, 0x10, 0x7A};
  QEN_TDataBlock block(bytes, sizeof bytes);
  bytes[0] = 0x55;  // the block has its own copy
  ASSERT_EQ(4u, block.Size());
  EXPECT_EQ(0, std::memcmp(block.Data(), "\x00\xFF\x10\x7A", 4));
  EXPECT_EQ(QEN_TDataBlock("\0\0\0", 3), QEN_TDataBlock(nullptr, 3));

  EXPECT_EQ(block, PackedRoundTrip(block));
  EXPECT_EQ(QEN_TDataBlock(), PackedRoundTrip(QEN_TDataBlock()));
  std::vector<unsigned char> big(200000);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 7);
  EXPECT_EQ(QEN_TDataBlock(big.data(), 200000),
            PackedRoundTrip(QEN_TDataBlock(big.data(), 200000)));

  QEN_TDataBlock read;
  ReadText(" <00FF107a>", read);
  EXPECT_EQ(block, read);
  ReadText("<>", read);
  EXPECT_EQ(0u, read.Size());
  ExpectSyntaxError("<0>", "odd number of hex digits", QEN_TDataBlock());
  ExpectSyntaxError("<00 ff>", "'>' to close", QEN_TDataBlock());
  ExpectSyntaxError("00ff", "'<' to open", QEN_TDataBlock());
  ExpectSyntaxError("<00ff", "", QEN_TDataBlock());
}

TEST(QenDataBlock, SizeInTheStreamIsNotTrusted) {
  // A claim of 4 GiB over three bytes fails before anything is allocated.
  QEN_TDataBlock block("\x01\x02", 2);
  const std::string message = FailureOf<QEN_EStreamException>([&] {
    test_support::UnpackContent({0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3}, block);
  });
  EXPECT_NE(std::string::npos, message.find("4294967295 bytes")) << message;
  EXPECT_NE(std::string::npos, message.find("only 3 bytes")) << message;
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
  void TearDown() override {
    for (auto& path : made_) ::unlink(path.c_str());
    ::rmdir(dir_.c_str());
  }
  std::string MakeFile(const std::string& name, std::size_t size) {
    std::string path = dir_ + "/" + name;
    std::ofstream(path, std::ios::binary) << std::string(size, 'x');
    made_.push_back(path);
    return path;
  }
  std::string Remember(const std::string& path) {
    made_.push_back(path);
    return path;
  }
  static void SetTime(const std::string& path, time_t seconds, long nanos) {
    timespec times[2] = {{seconds, nanos}, {seconds, nanos}};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, path.c_str(), times, 0));
  }

  std::string dir_;
  std::vector<std::string> made_;
};

TEST_F(QenFiles, SizeTimeAndIdentity) {
  // A blank in the name: the URL carries it encoded, the file call decoded.
  std::string path = MakeFile("first file.tif", 5000);
  SetTime(path, kSampleMicros / 1000000, 123456789);
  QEN_TURL url = QEN_TURL::LocalToURL(path.c_str());
  ASSERT_NE(std::string::npos, std::string(url.AsString().c_str()).find("%20"));

  QEN_TFileInfo info(url, true);
  EXPECT_TRUE(info.Exists());
  EXPECT_EQ(path, info.Path().c_str());
  EXPECT_EQ(5000.0, info.Size());
  EXPECT_EQ(kSampleMicros, info.ModificationTime().AsMicros());
  EXPECT_NE(0u, info.SmartID());

  // The same file under another name, and through a link, is the same file.
  std::string hardLink = Remember(dir_ + "/hard");
  ASSERT_EQ(0, ::link(path.c_str(), hardLink.c_str()));
  std::string softLink = Remember(dir_ + "/soft");
  ASSERT_EQ(0, ::symlink(path.c_str(), softLink.c_str()));
  EXPECT_EQ(info.SmartID(), QEN_TFileInfo(QEN_TURL::LocalToURL(hardLink.c_str()), true).SmartID());
  QEN_TFileInfo viaLink(QEN_TURL::LocalToURL(softLink.c_str()), true);
  EXPECT_EQ(info.SmartID(), viaLink.SmartID());
  EXPECT_EQ(5000.0, viaLink.Size());

  // Another file, even with the same content and time, is not.
  std::string other = MakeFile("second", 5000);
  SetTime(other, kSampleMicros / 1000000, 123456789);
  EXPECT_NE(info.SmartID(), QEN_TFileInfo(QEN_TURL::LocalToURL(other.c_str()), true).SmartID());

  // A new time on the file shows in a new object, not in the old one.
  SetTime(path, 1000, 999999999);
  QEN_TFileInfo later(url, true);
  EXPECT_EQ(1000999999, later.ModificationTime().AsMicros());
  EXPECT_EQ(kSampleMicros, info.ModificationTime().AsMicros());
}

TEST_F(QenFiles, MissingFile) {
  std::string path = dir_ + "/missing.tif";
  QEN_TURL url = QEN_TURL::LocalToURL(path.c_str());
  const std::string message = FailureOf<QEN_EFileException>([&] { QEN_TFileInfo(url, true); });
  EXPECT_NE(std::string::npos, message.find(path)) << message;
  EXPECT_NE(std::string::npos, message.find(std::strerror(ENOENT))) << message;
  QEN_TFileInfo quiet(url, false);
  EXPECT_FALSE(quiet.Exists());
  EXPECT_EQ(0u, quiet.SmartID());
  EXPECT_THROW(QEN_TFileInfo(QEN_TURL(), true), QEN_EFileException);
}

TEST_F(QenFiles, FileInfoStoredForms) {
  std::string path = MakeFile("with \"quote\"", 52311);
  SetTime(path, kSampleMicros / 1000000, 123456000);
  QEN_TFileInfo info(QEN_TURL::LocalToURL(path.c_str()), true);
  EXPECT_EQ(info, PackedRoundTrip(info));
  EXPECT_EQ(QEN_TFileInfo(), PackedRoundTrip(QEN_TFileInfo()));

  std::string text = Text(info);
  EXPECT_NE(std::string::npos, text.find(", true, 52311, 2026-11-22T19:34:51.123456Z, " +
                                         std::to_string(info.SmartID())))
      << text;
  QEN_TFileInfo read;
  ReadText(text, read);
  EXPECT_EQ(info, read);
  ExpectSyntaxError("\"/a\", maybe, 1, 1970-01-01T00:00:00Z, 1", "true or false", QEN_TFileInfo());
  ExpectSyntaxError("\"/a\", true; 1, 1970-01-01T00:00:00Z, 1", "',' after", QEN_TFileInfo());
}

TEST_F(QenFiles, VolumeOfTemporaryFolder) {
  QEN_TVolumeInfo volume(dir_.c_str());
  EXPECT_FALSE(volume.FileSystemName().Empty());
  EXPECT_NE(QEN_TVolumeInfo::kNoRoot, volume.Type());
  EXPECT_GT(volume.TotalBytes(), 0u);
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
  EXPECT_TRUE(missing.FileSystemName().Empty());
  EXPECT_FALSE(missing.KeepsUserAttributes());

  EXPECT_EQ(volume, PackedRoundTrip(volume));
  QEN_TVolumeInfo read(missing);
  ReadText(Text(volume), read);
  EXPECT_EQ(volume, read);
  ExpectSyntaxError("\"/a\", \"ext4\", 7, true, 1, 2", "type out of range", std::move(read));
}

TEST(QenHostName, ShortAndQualified) {
  std::string shortName = QEN_TSocket::HostName(false).c_str();
  std::string fullName = QEN_TSocket::HostName(true).c_str();
  EXPECT_FALSE(shortName.empty());
  EXPECT_EQ(std::string::npos, shortName.find('.'));
  EXPECT_EQ(0u, fullName.find(shortName)) << fullName;
}

// ---------------------------------------------------------------------------
// Read/write lock

// Runs `body` on a thread and reports whether it finished within `wait`.
class Attempt {
 public:
  template <class F>
  explicit Attempt(F body)
      : mThread([this, body] {
          body();
          mDone = true;
        }) {}
  ~Attempt() { mThread.join(); }
  bool FinishedWithin(std::chrono::milliseconds wait) {
    auto until = std::chrono::steady_clock::now() + wait;
    while (!mDone && std::chrono::steady_clock::now() < until) std::this_thread::sleep_for(1ms);
    return mDone;
  }

 private:
  std::atomic<bool> mDone{false};
  std::thread mThread;
};

TEST(QenRWLock, WriteSideIsReentrantAndExcludesOthers) {
  QEN_TRWLock lock;
  lock.WriteLock();
  lock.WriteLock();
  EXPECT_TRUE(lock.HoldsWriteLock());
  {
    Attempt reader([&] {
      QEN_TReadGuard guard(lock);
      EXPECT_FALSE(lock.HoldsWriteLock());
    });
    Attempt writer([&] { QEN_TWriteGuard guard(lock); });
    EXPECT_FALSE(reader.FinishedWithin(50ms));
    lock.WriteUnlock();  // still held once
    EXPECT_FALSE(reader.FinishedWithin(20ms));
    EXPECT_FALSE(writer.FinishedWithin(1ms));
    lock.WriteUnlock();
    EXPECT_TRUE(reader.FinishedWithin(10s));
    EXPECT_TRUE(writer.FinishedWithin(10s));
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
  {
    Attempt otherReader([&] { QEN_TReadGuard guard(lock); });
    EXPECT_TRUE(otherReader.FinishedWithin(10s));
    Attempt writer([&] { QEN_TWriteGuard guard(lock); });
    EXPECT_FALSE(writer.FinishedWithin(50ms));
    lock.ReadUnlock();
    EXPECT_TRUE(writer.FinishedWithin(10s));
  }
  // Releases that match no take leave the lock usable (debug builds assert).
#ifdef NDEBUG
  lock.ReadUnlock();
  lock.WriteUnlock();
#endif
  QEN_TWriteGuard guard(lock);
  EXPECT_TRUE(lock.HoldsWriteLock());
}

TEST(QenRWLock, ReadersShareAndWritersWait) {
  QEN_TRWLock lock;
  constexpr int kReaders = 4;
  std::mutex mutex;
  std::condition_variable changed;
  int inside = 0;
  bool allInside = true;
  {
    // Each reader waits, holding the read side, until all are inside at once.
    std::vector<std::thread> readers;
    for (int i = 0; i < kReaders; ++i) {
      readers.emplace_back([&] {
        QEN_TReadGuard guard(lock);
        QEN_TReadGuard again(lock);  // a reader may take it again
        std::unique_lock<std::mutex> hold(mutex);
        ++inside;
        changed.notify_all();
        if (!changed.wait_for(hold, 10s, [&] { return inside == kReaders; })) allInside = false;
      });
    }
    for (auto& reader : readers) reader.join();
  }
  EXPECT_TRUE(allInside);
}

TEST(QenRWLock, WritersAreExclusive) {
  QEN_TRWLock lock;
  constexpr int kThreads = 4, kRounds = 2000;
  long counter = 0;  // guarded by the lock alone
  std::atomic<int> writersInside{0};
  std::atomic<bool> overlap{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        if ((i + t) % 4 == 0) {
          QEN_TReadGuard guard(lock);
          if (writersInside.load() != 0) overlap = true;
          (void)counter;
          continue;
        }
        QEN_TWriteGuard outer(lock);
        QEN_TWriteGuard inner(lock);
        if (writersInside.fetch_add(1) != 0) overlap = true;
        ++counter;
        writersInside.fetch_sub(1);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(overlap);
  long writes = 0;
  for (int t = 0; t < kThreads; ++t)
    for (int i = 0; i < kRounds; ++i) writes += (i + t) % 4 != 0;
  EXPECT_EQ(writes, counter);
}

// ---------------------------------------------------------------------------
// Dynamic modules

TEST(QenDynamicObject, LoadsAndLooksUp) {
  QEN_TDynamicObject math("libm.so.6", "math");
  auto cosine = reinterpret_cast<double (*)(double)>(math.Symbol("cos"));
  ASSERT_NE(nullptr, cosine);
  EXPECT_DOUBLE_EQ(1.0, cosine(0.0));
  EXPECT_EQ(nullptr, math.Symbol("no_such_function_here"));
}

TEST(QenDynamicObject, FailureCarriesTheLoadersText) {
  const char* name = "libqen_no_such_module.so";
  ASSERT_EQ(nullptr, ::dlopen(name, RTLD_NOW));
  std::string loaderText = ::dlerror();
  const std::string message =
      FailureOf<QEN_ECouldNotLoadDynamicObject>([&] { QEN_TDynamicObject(name, "tag"); });
  EXPECT_NE(std::string::npos, message.find(loaderText)) << message;
  EXPECT_THROW(QEN_TDynamicObject("", "tag"), QEN_ECouldNotLoadDynamicObject);
}

}  // namespace
