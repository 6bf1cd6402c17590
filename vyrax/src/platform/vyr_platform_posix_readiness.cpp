// The readiness test on POSIX systems; see vyr_platform_readiness.h.
#include <fcntl.h>
#include <signal.h>

#include <cerrno>
#include <ctime>

#include "platform/vyr_platform_readiness.h"
#include "vyr_system.h"

namespace vyr {
namespace platform {
namespace {

// Closes the descriptor on every way out; closing also gives up the lease
// and the lock.
class Descriptor {
 public:
  explicit Descriptor(int fd) : mFd(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { sys::Close(mFd); }
  int get() const { return mFd; }

 private:
  int mFd;
};

bool IsHeldError(int error) { return error == EWOULDBLOCK || error == EAGAIN; }

// The system has no lock of that kind for this file: a file system without
// locks, or NFS, where an exclusive lock needs a file open for writing.
bool NoLockHere(int error) {
  return error == ENOLCK || error == EOPNOTSUPP || error == EINVAL || error == EBADF;
}

// Whether the file's status changed within the quiet period (or lies in the
// future, a clock of another machine).
bool ChangedJustNow(const sys::FileStatus& status) {
  std::timespec now;
  if (!sys::Now(now)) return true;
  return status.changedSeconds + static_cast<long long>(kQuietSeconds) > now.tv_sec;
}

// A write lease: granted only while no other open file of any process
// refers to the file. Another process that opens the file while the lease
// stands breaks it, and the kernel then signals this process: SIGIO by
// default, whose default action ends the process. SIGURG is ignored unless
// the host handles it, and a handler of SIGURG expects stray ones. Without
// the signal set, no lease is taken. Leases are this library's alone, one
// state for the process, so the call is here and not in the system layer.
bool TakeWriteLease(int fd) {
  if (sys::Faulted(VYR_PlatformLease)) return false;
  return ::fcntl(fd, F_SETSIG, SIGURG) == 0 && ::fcntl(fd, F_SETLEASE, F_WRLCK) == 0;
}

}  // namespace

Exclusive TestExclusive(const char* path, int& error) {
  error = 0;
  // Non-blocking: a FIFO does not wait for a writer, and a lease that
  // another process holds refuses the open instead of stalling it.
  const int fd = sys::Open(path, sys::kRead | sys::kNonBlocking);
  if (fd < 0) {
    error = errno;
    return IsHeldError(error) ? Exclusive::kHeld : Exclusive::kFailed;
  }
  Descriptor file(fd);

  sys::FileStatus status;
  if (!sys::StatusOf(fd, status)) {
    error = errno;
    return Exclusive::kFailed;
  }
  if (status.kind != sys::Kind::kFile) {
    error = status.kind == sys::Kind::kFolder ? EISDIR : ENODEV;
    return Exclusive::kFailed;
  }

  if (!sys::Lock(fd, sys::LockKind::kExclusive)) {
    if (IsHeldError(errno)) return Exclusive::kHeld;
    if (!NoLockHere(errno)) {
      error = errno;
      return Exclusive::kFailed;
    }
  }

  if (TakeWriteLease(fd)) return Exclusive::kAlone;
  if (IsHeldError(errno)) return Exclusive::kHeld;
  // No lease here: the most the system tells is whether the file is still
  // being written.
  return ChangedJustNow(status) ? Exclusive::kHeld : Exclusive::kAlone;
}

}  // namespace platform
}  // namespace vyr
