#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ordonotes/ordonotes.h"

namespace {

// The destination is chosen once per process, so each destination is tried
// in a fresh process: this binary run again with ORDO_LOG_CHILD set, which
// writes kThreads x kLines traces from several threads and exits before any
// test runs.
constexpr int kThreads = 4;
constexpr int kLines = 300;

std::string Payload(int thread, int line) {
  // Long enough that a torn write would show, and checkable from its header.
  return "thread " + std::to_string(thread) + " line " + std::to_string(line) + " " +
         std::string(200 + (line % 50), static_cast<char>('a' + thread));
}

void WriteLinesFromThreads() {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) QENMESG_Trace(1, 1, "%s\n", Payload(t, i).c_str());
    });
  for (auto& thread : threads) thread.join();
}

const bool kIsChild = [] {
  if (std::getenv("ORDO_LOG_CHILD") == nullptr) return false;
  WriteLinesFromThreads();
  std::_Exit(0);
  return true;
}();

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Every line is one whole trace of the child and every trace is there once.
void ExpectAllChildLines(const std::string& text) {
  std::multiset<std::string> lines, expected;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.insert(line);
  for (int t = 0; t < kThreads; ++t)
    for (int i = 0; i < kLines; ++i) expected.insert("trace: " + Payload(t, i));
  EXPECT_TRUE(lines == expected) << lines.size() << " lines, " << expected.size() << " expected";
}

// Everything the log gives while a test runs, a line each, in `text`.
class OrdoLogSink : public ::testing::Test {
 protected:
  void SetUp() override {
    QENMESG_SetSink(
        [](const char* line, void* self) {
          auto* test = static_cast<OrdoLogSink*>(self);
          std::lock_guard<std::mutex> lock(test->mutex);
          test->text += std::string(line) + "\n";
        },
        this);
  }
  void TearDown() override { QENMESG_SetSink(nullptr, nullptr); }
  std::mutex mutex;
  std::string text;
};

// Line breaks at the end are dropped, text is never taken as a format, a null
// text is empty, traces follow the mask, and a long text stays whole.
TEST_F(OrdoLogSink, LinesAreWholeAndTracesFollowTheMask) {
  QENMESG_Trace(0x100, 0x4, "never %s\n", "shown");
  std::string big(100000, 'x');
  QENMESG_Trace(0x14, 0x10, "<%s|%d>\n", big.c_str(), 7);
  QENMESG_Log("100% literal, not a format %s");
  QENMESG_Log(nullptr);
  QENMESG_AddMessageFF(0, "huge", 1e300, -1e300);
  const std::string lines = "trace: <" + big + "|7>\nlog: 100% literal, not a format %s\nlog: \n";
  EXPECT_EQ(0u, text.rfind(lines + "time: huge: 1000000", 0));
  // From several threads at once.
  text.clear();
  WriteLinesFromThreads();
  ExpectAllChildLines(text);
}

// A sink that logs must neither deadlock nor recurse into itself.
TEST(OrdoLog, SinkMayLogAndRemoveItself) {
  int calls = 0;
  QENMESG_SetSink(
      [](const char* line, void* count) {
        ++*static_cast<int*>(count);
        QENMESG_Log("from inside the sink");
        if (std::strstr(line, "last") != nullptr) QENMESG_SetSink(nullptr, nullptr);
      },
      &calls);
  QENMESG_Log("last");
  QENMESG_Log("after the sink is gone");
  QENMESG_SetSink(nullptr, nullptr);
  EXPECT_EQ(1, calls);
}

class OrdoLogDestination : public ::testing::Test {
 protected:
  void TearDown() override {
    ::unlink(log_.c_str());
    ::unlink(err_.c_str());
  }
  // Runs the child with QENMESG_LOG set to `log` (or unset for null); gives
  // what it wrote to its standard error.
  std::string StandardErrorOf(const char* log) {
    std::string command = "env -u QENMESG_LOG ORDO_LOG_CHILD=1 ";
    if (log != nullptr) command += std::string("QENMESG_LOG='") + log + "' ";
    command += std::filesystem::read_symlink("/proc/self/exe").string() + " 2>'" + err_ + "'";
    EXPECT_EQ(0, std::system(command.c_str())) << command;
    return ReadFile(err_);
  }
  const std::string base_ = "/tmp/ordo_log_test_" + std::to_string(::getpid());
  const std::string log_ = base_ + ".log", err_ = base_ + ".err";
};

TEST_F(OrdoLogDestination, FileIsAppendedWithWholeLines) {
  const std::string first = "trace: " + Payload(0, 0) + "\n";
  std::ofstream(log_) << first;
  EXPECT_EQ("", StandardErrorOf(log_.c_str()));
  // The line written before is kept: the child's lines follow it.
  ExpectAllChildLines(ReadFile(log_).substr(first.size()));
}

// Standard error by default, and as the fall-back for a file that can't be opened.
TEST_F(OrdoLogDestination, StandardErrorByDefaultAsFallBackAndOff) {
  ExpectAllChildLines(StandardErrorOf(nullptr));
  EXPECT_EQ("", StandardErrorOf("OFF"));
  const std::string text = StandardErrorOf("/nonexistent-dir/x/log");
  ExpectAllChildLines(text.substr(text.find('\n') + 1));  // behind a line that says why
}

}  // namespace
