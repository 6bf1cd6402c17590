// The readiness test of the platform layer: can this file be opened now
// with nobody else holding it? A file that another process is still
// copying or writing is not ready.
//
// On POSIX (vyr_platform_posix_readiness.cpp) the file is opened for
// reading, and then:
//   1. an exclusive lock is tried without waiting. It fails while a
//      process that uses this library holds the file (a file buffer keeps a
//      shared lock, a side-car writer an exclusive one).
//   2. a write lease is asked for (fcntl F_SETLEASE, F_WRLCK). The kernel
//      grants one only while no other open file of any process refers to
//      the file, so it also sees writers that know nothing of this
//      library. The lease is given up at once by closing the descriptor.
//   3. where the kernel refuses leases (a file of another owner without
//      CAP_LEASE, network file systems, leases switched off), the file
//      counts as held while its status changed within the last
//      kQuietSeconds: a copy in progress changes it with every write.
// docs/tickets.md tells what this answers where.
#ifndef VYR_PLATFORM_READINESS_H
#define VYR_PLATFORM_READINESS_H

#include "vyrax/vyr_api.h"

namespace vyr {
namespace platform {

enum class Exclusive {
  kAlone,   // nobody else has the file open, as far as the system tells
  kHeld,    // another open of the file exists, or it was written just now
  kFailed,  // it can't be opened: missing, no access, not a regular file
};

// How long a file must have been left alone where leases are refused.
constexpr unsigned kQuietSeconds = 2;

// Tests the file at `path`; `error` is the errno of a kFailed answer.
VYR_LOCAL Exclusive TestExclusive(const char* path, int& error);

}  // namespace platform
}  // namespace vyr

#endif
