// Trace groups switched by the debug flag word, and the profile's reports.
#include <gtest/gtest.h>
#include <ordonotes/ordonotes.h>
#include <time.h>
#include <vyrax/vyrax.h>

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "core/vyr_trace.h"

namespace {

// Every line the log writes while a test looks, and those of start-up.
class Lines {
 public:
  static void Sink(const char* line, void* self) {
    Lines* lines = static_cast<Lines*>(self);
    std::lock_guard<std::mutex> lock(lines->mMutex);
    lines->mLines.emplace_back(line);
  }
  std::vector<std::string> Take() {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::string> taken;
    taken.swap(mLines);
    return taken;
  }

 private:
  std::mutex mMutex;
  std::vector<std::string> mLines;
};

Lines gLines;
std::vector<std::string> gStartUpLines;
const unsigned kFlagAtLoad = VYR_DebugFlag;

class StartLibrary : public ::testing::Environment {
 public:
  void SetUp() override {
    QENMESG_SetSink(&Lines::Sink, &gLines);
    ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
    gStartUpLines = gLines.Take();
  }
  void TearDown() override { QENMESG_SetSink(nullptr, nullptr); }
};
::testing::Environment* const kStart = ::testing::AddGlobalTestEnvironment(new StartLibrary);

class Tracing : public ::testing::Test {
 protected:
  void SetUp() override {
    gLines.Take();
    VYR_DebugFlag = kFlagAtLoad;
    VYR_TProfile::RemoveProfileFlag(~0u);
  }
  void TearDown() override {
    VYR_DebugFlag = kFlagAtLoad;
    VYR_TProfile::RemoveProfileFlag(~0u);
  }
};

const unsigned kGroups[] = {vyr::kTraceLifeCycle, vyr::kTraceLoader, vyr::kTraceStamps};

void TraceEveryGroup() {
  for (unsigned mask : kGroups) VYR_TRACE(mask, "group %u\n", mask);
}

TEST_F(Tracing, NothingIsTracedAtTheInitialFlag) {
  for (const std::string& line : gStartUpLines)
    EXPECT_NE(line.rfind("trace: ", 0), 0u) << "start-up traced: " << line;
  TraceEveryGroup();
  for (unsigned mask : kGroups) EXPECT_FALSE(vyr::TraceOn(mask)) << mask;
  EXPECT_TRUE(gLines.Take().empty());
}

TEST_F(Tracing, EachMaskSwitchesItsGroupOnly) {
  for (unsigned on : kGroups) {
    VYR_DebugFlag = on | 0x100;
    TraceEveryGroup();
    EXPECT_EQ(gLines.Take(), std::vector<std::string>{"trace: group " + std::to_string(on)});
    for (unsigned mask : kGroups) EXPECT_EQ(vyr::TraceOn(mask), mask == on) << on << " " << mask;
  }
  // The word is read at each trace: a change counts at once.
  VYR_DebugFlag = vyr::kTraceLifeCycle | vyr::kTraceStamps;
  TraceEveryGroup();
  EXPECT_EQ(gLines.Take().size(), 2u);
  VYR_DebugFlag = 0;
  TraceEveryGroup();
  EXPECT_TRUE(gLines.Take().empty());
}

// The one line the log got since the last look, read as a profile report
// "time: <text>: <total> s total, <user> s user"; false if it is none.
bool OneReport(const std::string& text, double* total, double* user) {
  const std::vector<std::string> lines = gLines.Take();
  const std::string head = "time: " + text + ": ";
  EXPECT_EQ(lines.size(), 1u);
  if (lines.size() != 1 || lines[0].compare(0, head.size(), head) != 0) return false;
  return std::sscanf(lines[0].c_str() + head.size(), "%lf s total, %lf s user", total, user) == 2;
}

void BurnProcessorTime(double seconds) {
  timespec start{};
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &start);
  volatile unsigned long sink = 0;
  do {
    for (int i = 0; i < 100000; ++i) sink = sink + static_cast<unsigned long>(i);
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  } while ((now.tv_sec - start.tv_sec) + (now.tv_nsec - start.tv_nsec) / 1e9 < seconds);
}

TEST_F(Tracing, ProfileWritesWhileItsMaskIsOnAndCountsFromTheLastRestart) {
  ASSERT_NE(VYR_TProfile::sProfile, nullptr);
  VYR_TProfile::Now(1, "off");
  EXPECT_TRUE(gLines.Take().empty());

  VYR_TProfile::Restart();
  BurnProcessorTime(0.2);
  VYR_TProfile::AddProfileFlag(1);
  VYR_TProfile::Now(1, "burnt");
  VYR_TProfile::Now(2, "not this one");
  double total = -1;
  double user = -1;
  ASSERT_TRUE(OneReport("burnt", &total, &user));
  EXPECT_GE(total, 0.19);
  EXPECT_GE(user, 0.0);
  EXPECT_LE(user, total + 0.001);

  // A copy counts from the same start; the instance's Now needs no flag.
  VYR_TProfile copy(*VYR_TProfile::sProfile);
  VYR_TProfile::RemoveProfileFlag(1);
  VYR_TProfile::Now(1, "off again");
  copy.Now("copy");
  ASSERT_TRUE(OneReport("copy", &total, &user));
  EXPECT_GE(total, 0.19);

  VYR_TProfile::Restart();
  VYR_TProfile::AddProfileFlag(1);
  VYR_TProfile::Now(1, "restarted");
  ASSERT_TRUE(OneReport("restarted", &total, &user));
  EXPECT_LT(total, 0.1);
  EXPECT_LT(user, 0.1);
}

}  // namespace
