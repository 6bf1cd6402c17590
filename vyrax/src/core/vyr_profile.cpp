// The process-time profile and the debug flag word.
#include "core/vyr_version_stamp.h"

VYR_VERSION_STAMP()

#include <ordonotes/ordonotes.h>

#include "vyr_system.h"
#include "vyrax/vyr_profile.h"
#include "vyrax/vyr_startup.h"

unsigned int VYR_DebugFlag = 0x100;

unsigned int VYR_TProfile::sFlags = 0;
// Made at load, so that the first report counts from there.
VYR_TProfile* VYR_TProfile::sProfile = new VYR_TProfile;

namespace {

VYR_TSingletonGuard<VYR_TProfile> gProfileGuard(&VYR_TProfile::sProfile);

// Processor time counts in units of 100 ns.
constexpr double kUnitsPerSecond = 10000000.0;

// The system ("kernel") and user time of this process so far.
void ProcessTimes(unsigned long long* kernel, unsigned long long* user) {
  // Microseconds from the system, 10 units each.
  vyr::sys::ProcessTimes(*kernel, *user);
  *kernel *= 10;
  *user *= 10;
}

double Seconds(unsigned long long now, unsigned long long start) {
  return static_cast<double>(static_cast<long long>(now - start)) / kUnitsPerSecond;
}

}  // namespace

void VYR_DisableProgressMessages(bool) {}

VYR_TProfile::VYR_TProfile() : process(vyr::sys::ProcessId()) { Start(); }

VYR_TProfile::VYR_TProfile(const VYR_TProfile& other) = default;
VYR_TProfile& VYR_TProfile::operator=(const VYR_TProfile& other) = default;
VYR_TProfile::~VYR_TProfile() = default;

void VYR_TProfile::Start() { ProcessTimes(&startKernel, &startUser); }

void VYR_TProfile::Restart() {
  if (sProfile != nullptr) sProfile->Start();
}

void VYR_TProfile::AddProfileFlag(unsigned mask) { sFlags |= mask; }

void VYR_TProfile::RemoveProfileFlag(unsigned mask) { sFlags &= ~mask; }

void VYR_TProfile::Now(unsigned mask, const char* text) {
  if ((sFlags & mask) != 0 && sProfile != nullptr) sProfile->Now(text);
}

void VYR_TProfile::Now(const char* text) {
  unsigned long long kernel = 0;
  unsigned long long user = 0;
  ProcessTimes(&kernel, &user);
  const double userSeconds = Seconds(user, startUser);
  const double totalSeconds = Seconds(kernel + user, startKernel + startUser);
  QENMESG_AddMessageFF(0, text != nullptr ? text : "", totalSeconds, userSeconds);
}
