// The debug flag word that switches traces, and the process-time profile.
#ifndef VYR_PROFILE_H
#define VYR_PROFILE_H

#include "vyrax/vyr_api.h"

// The trace groups that are switched on. A host writes it directly; it is
// read at every trace, so a change counts from the next one. Bits:
//   0x4  life cycle and checks
//   0x10 loader and configuration
//   0x40 metadata stamps
// The initial 0x100 switches none of them.
extern VYR_API unsigned int VYR_DebugFlag;

// Kept for callers; progress messages are not written by this library, so
// there is nothing to switch off.
VYR_API void VYR_DisableProgressMessages(bool disable);

// Measures the processor time of the process and reports it as a log
// message. One process-wide instance, sProfile, is made when the library is
// loaded (so times count from then) and deleted at exit.
class VYR_API VYR_TProfile {
 public:
  // The current process, its times counting from now.
  VYR_TProfile();
  VYR_TProfile(const VYR_TProfile& other);
  VYR_TProfile& operator=(const VYR_TProfile& other);
  virtual ~VYR_TProfile();

  // Counts sProfile's times from now again.
  static void Restart();
  // Switches profile groups on or off. Not thread-safe: one thread sets them.
  static void AddProfileFlag(unsigned mask);
  static void RemoveProfileFlag(unsigned mask);
  // sProfile->Now(text) when a group of `mask` is on; otherwise nothing.
  static void Now(unsigned mask, const char* text);
  // Reports the seconds of processor time since the start: total (user and
  // system) and user, through the log's timing message.
  void Now(const char* text);

  static VYR_TProfile* sProfile;
  // The profile groups that are on; none at load.
  static unsigned int sFlags;

 private:
  void Start();

  int process = 0;                     // the process measured: this one
  unsigned long long startKernel = 0;  // system time at the start, in 100 ns
  unsigned long long startUser = 0;    // user time at the start, in 100 ns
};

#endif
