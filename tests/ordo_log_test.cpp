#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ordonotes/ordonotes.h"

extern char** environ;

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
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) QENMESG_Trace(1, 1, "%s\n", Payload(t, i).c_str());
    });
  }
  for (auto& thread : threads) thread.join();
}

const bool kIsChild = [] {
  if (std::getenv("ORDO_LOG_CHILD") == nullptr) return false;
  WriteLinesFromThreads();
  std::_Exit(0);
  return true;
}();

std::string TempPath(const char* name) {
  const char* dir = std::getenv("TMPDIR");
  std::string path = std::string(dir != nullptr ? dir : "/tmp") + "/ordo_log_test_" +
                     std::to_string(::getpid()) + "_" + name;
  ::unlink(path.c_str());
  return path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs the child with QENMESG_LOG set to `log` (or unset for null) and its
// standard error going to `stderrPath`; gives the exit status.
int RunChild(const char* log, const std::string& stderrPath) {
  std::vector<std::string> env;
  for (char** e = environ; *e != nullptr; ++e) {
    if (std::strncmp(*e, "QENMESG_LOG=", 12) != 0) env.emplace_back(*e);
  }
  env.emplace_back("ORDO_LOG_CHILD=1");
  if (log != nullptr) env.emplace_back(std::string("QENMESG_LOG=") + log);
  std::vector<char*> envp;
  for (auto& entry : env) envp.push_back(&entry[0]);
  envp.push_back(nullptr);
  char self[] = "/proc/self/exe";
  char* argv[] = {self, nullptr};

  pid_t pid = ::fork();
  if (pid == 0) {
    int fd = ::open(stderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || ::dup2(fd, STDERR_FILENO) < 0) ::_exit(126);
    ::execve(self, argv, envp.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Every line is one whole trace of the child and every trace is there once.
void ExpectAllChildLines(const std::string& text) {
  std::vector<std::vector<int>> seen(kThreads, std::vector<int>(kLines, 0));
  std::istringstream in(text);
  std::string line;
  int count = 0;
  while (std::getline(in, line)) {
    int t = -1, i = -1;
    ASSERT_EQ(2, std::sscanf(line.c_str(), "trace: thread %d line %d", &t, &i)) << line;
    ASSERT_TRUE(t >= 0 && t < kThreads && i >= 0 && i < kLines) << line;
    ASSERT_EQ("trace: " + Payload(t, i), line);
    ++seen[t][i];
    ++count;
  }
  EXPECT_EQ(kThreads * kLines, count);
  for (auto& thread : seen)
    for (int n : thread) EXPECT_EQ(1, n);
}

struct Captured {
  std::mutex mutex;
  std::vector<std::string> lines;
};

void Capture(const char* line, void* context) {
  auto* captured = static_cast<Captured*>(context);
  std::lock_guard<std::mutex> lock(captured->mutex);
  captured->lines.emplace_back(line);
}

class OrdoLogSink : public ::testing::Test {
 protected:
  void SetUp() override { QENMESG_SetSink(&Capture, &captured_); }
  void TearDown() override { QENMESG_SetSink(nullptr, nullptr); }
  Captured captured_;
};

// Line breaks at the end are dropped, text is never taken as a format, a null
// text is empty, traces follow the mask, and a long text stays whole.
TEST_F(OrdoLogSink, LinesAreWholeAndTracesFollowTheMask) {
  EXPECT_FALSE(QENMESG_CheckTrace(0x100, 0x4));
  EXPECT_TRUE(QENMESG_CheckTrace(0x40, 0x44));
  QENMESG_Trace(0x100, 0x4, "never %s\n", "shown");
  QENMESG_Trace(0, 0xFFFFFFFF, "never\n");
  std::string big(100000, 'x');
  QENMESG_Trace(0x14, 0x10, "<%s|%d>\n", big.c_str(), 7);
  QENMESG_Log("two\nlines\n\n");
  QENMESG_Log("100% literal, not a format %s");
  QENMESG_Log(nullptr);
  QENMESG_AddMessageFF(0, nullptr, 1, 2);
  QENMESG_AddMessageFF(0, "huge", 1e300, -1e300);
  ASSERT_EQ(6u, captured_.lines.size());
  EXPECT_EQ("trace: <" + big + "|7>", captured_.lines[0]);
  EXPECT_EQ("log: two\nlines", captured_.lines[1]);
  EXPECT_EQ("log: 100% literal, not a format %s", captured_.lines[2]);
  EXPECT_EQ("log: ", captured_.lines[3]);
  EXPECT_EQ("time: : 1.000 s total, 2.000 s user", captured_.lines[4]);
  EXPECT_EQ(0u, captured_.lines[5].rfind("time: huge: 1000000", 0));
}

TEST_F(OrdoLogSink, ThreadsGiveWholeLines) {
  WriteLinesFromThreads();
  std::string joined;
  for (auto& line : captured_.lines) joined += line + "\n";
  ExpectAllChildLines(joined);
}

// A sink that logs must neither deadlock nor recurse into itself.
void Reentrant(const char* line, void* context) {
  auto* count = static_cast<int*>(context);
  ++*count;
  QENMESG_Log("from inside the sink");
  if (std::strstr(line, "last") != nullptr) QENMESG_SetSink(nullptr, nullptr);
}

TEST(OrdoLog, SinkMayLogAndRemoveItself) {
  int calls = 0;
  QENMESG_SetSink(&Reentrant, &calls);
  QENMESG_Log("first");
  QENMESG_Log("last");
  QENMESG_Log("after the sink is gone");
  QENMESG_SetSink(nullptr, nullptr);
  EXPECT_EQ(2, calls);
}

TEST(OrdoLogDestination, FileIsAppendedWithWholeLines) {
  std::string log = TempPath("file.log");
  std::string err = TempPath("file.err");
  { std::ofstream(log) << "trace: thread 0 line 0 " << std::string(200, 'a') << "\n"; }
  ASSERT_EQ(0, RunChild(log.c_str(), err));
  std::string text = ReadFile(log);
  // The line written before is kept, so the child's copy of it is the second.
  std::string first = "trace: " + Payload(0, 0) + "\n";
  ASSERT_EQ(0u, text.rfind(first, 0));
  ExpectAllChildLines(text.substr(first.size()));
  EXPECT_EQ("", ReadFile(err));
  ::unlink(log.c_str());
  ::unlink(err.c_str());
}

TEST(OrdoLogDestination, StandardErrorByDefaultAndOff) {
  std::string err = TempPath("default.err");
  ASSERT_EQ(0, RunChild(nullptr, err));
  ExpectAllChildLines(ReadFile(err));

  ASSERT_EQ(0, RunChild("off", err));
  EXPECT_EQ("", ReadFile(err));
  ASSERT_EQ(0, RunChild("OFF", err));
  EXPECT_EQ("", ReadFile(err));
  ::unlink(err.c_str());
}

TEST(OrdoLogDestination, UnopenableFileFallsBackToStandardError) {
  std::string err = TempPath("fallback.err");
  ASSERT_EQ(0, RunChild("/nonexistent-dir/x/log", err));
  std::string text = ReadFile(err);
  std::string note = text.substr(0, text.find('\n') + 1);
  EXPECT_NE(std::string::npos,
            note.find("log: cannot open QENMESG_LOG file \"/nonexistent-dir/x/log\""))
      << note;
  EXPECT_NE(std::string::npos, note.find(std::strerror(ENOENT))) << note;
  ExpectAllChildLines(text.substr(note.size()));
  ::unlink(err.c_str());
}

}  // namespace
