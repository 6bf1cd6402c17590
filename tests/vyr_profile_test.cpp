// Trace groups switched by the debug flag word, and the profile's reports.
#include <cstdio>
#include <ctime>

#include "buffer_test_support.h"
#include "core/vyr_trace.h"

namespace {

using buffertest::LogCapture;

// Starts the library with the log captured: no line of the start-up is a
// trace at the initial flag.
class StartLibrary : public ::testing::Environment {
 public:
  void SetUp() override {
    LogCapture startUp;
    ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
    for (const std::string& line : startUp.With("trace: ")) ADD_FAILURE() << "traced: " << line;
  }
};
::testing::Environment* const kStart = ::testing::AddGlobalTestEnvironment(new StartLibrary);

// The log lines of a test, taken as it goes; the debug flag word is
// restored at its end.
class Tracing : public ::testing::Test {
 protected:
  ~Tracing() override { VYR_TProfile::RemoveProfileFlag(~0u); }
  // The lines the log got since the last look.
  std::vector<std::string> Take() {
    std::vector<std::string> lines = mLog.With();
    lines.erase(lines.begin(), lines.begin() + static_cast<long>(mTaken));
    mTaken += lines.size();
    return lines;
  }
  // The one line since the last look, read as a profile report
  // "time: <text>: <total> s total, <user> s user"; false if it is none.
  bool OneReport(const std::string& text, double* total, double* user) {
    const std::vector<std::string> lines = Take();
    const std::string head = "time: " + text + ": ";
    EXPECT_EQ(lines.size(), 1u);
    return lines.size() == 1 && lines[0].compare(0, head.size(), head) == 0 &&
           std::sscanf(lines[0].c_str() + head.size(), "%lf s total, %lf s user", total, user) == 2;
  }
  LogCapture mLog;
  size_t mTaken = 0;
};

const unsigned kGroups[] = {vyr::kTraceLifeCycle, vyr::kTraceLoader, vyr::kTraceStamps};

void TraceEveryGroup() {
  for (unsigned mask : kGroups) VYR_TRACE(mask, "group %u\n", mask);
}

// Nothing is traced at the initial flag; each mask switches its group only,
// and the word is read at each trace.
TEST_F(Tracing, EachMaskSwitchesItsGroupOnly) {
  TraceEveryGroup();
  for (unsigned mask : kGroups) EXPECT_FALSE(vyr::TraceOn(mask)) << mask;
  EXPECT_TRUE(Take().empty());
  for (unsigned on : kGroups) {
    VYR_DebugFlag = on | 0x100;
    TraceEveryGroup();
    EXPECT_EQ(Take(), std::vector<std::string>{"trace: group " + std::to_string(on)});
    for (unsigned mask : kGroups) EXPECT_EQ(vyr::TraceOn(mask), mask == on) << on << " " << mask;
  }
}

void BurnProcessorTime(double seconds) {
  const std::clock_t start = std::clock();
  volatile unsigned long sink = 0;
  while (static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC < seconds) sink = sink + 1;
}

TEST_F(Tracing, ProfileWritesWhileItsMaskIsOnAndCountsFromTheLastRestart) {
  ASSERT_NE(VYR_TProfile::sProfile, nullptr);
  VYR_TProfile::Now(1, "off");
  EXPECT_TRUE(Take().empty());
  VYR_TProfile::Restart();
  BurnProcessorTime(0.2);
  VYR_TProfile::AddProfileFlag(1);
  VYR_TProfile::Now(1, "burnt");
  VYR_TProfile::Now(2, "not this one");
  double total = -1, user = -1;
  ASSERT_TRUE(OneReport("burnt", &total, &user));
  EXPECT_GE(total, 0.19);
  EXPECT_TRUE(user >= 0.0 && user <= total + 0.001) << user;
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
  EXPECT_TRUE(total < 0.1 && user < 0.1) << total << " " << user;
}

}  // namespace
