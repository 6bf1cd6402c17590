// The readiness test on POSIX systems; see vyr_platform_readiness.h.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "platform/vyr_platform_readiness.h"

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
  ~Descriptor() {
    if (mFd >= 0) ::close(mFd);
  }
  int get() const { return mFd; }

 private:
  int mFd;
};

bool IsHeldError(int error) { return error == EWOULDBLOCK || error == EAGAIN; }

// The system has no lock of that kind for this file: a file system without
// flock, or NFS, where an exclusive lock needs a file open for writing.
bool NoLockHere(int error) {
  return error == ENOLCK || error == EOPNOTSUPP || error == EINVAL || error == EBADF;
}

// Whether the file's status changed within the quiet period (or lies in the
// future, a clock of another machine).
bool ChangedJustNow(const struct stat& info) {
  struct timespec now;
  if (::clock_gettime(CLOCK_REALTIME, &now) != 0) return true;
  return info.st_ctim.tv_sec + static_cast<long long>(kQuietSeconds) > now.tv_sec;
}

}  // namespace

Exclusive TestExclusive(const char* path, int& error) {
  error = 0;
  // Non-blocking: a FIFO does not wait for a writer, and a lease that
  // another process holds refuses the open instead of stalling it.
  int fd;
  do {
    fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    error = errno;
    return IsHeldError(error) ? Exclusive::kHeld : Exclusive::kFailed;
  }
  Descriptor file(fd);

  struct stat info;
  if (::fstat(fd, &info) != 0) {
    error = errno;
    return Exclusive::kFailed;
  }
  if (!S_ISREG(info.st_mode)) {
    error = S_ISDIR(info.st_mode) ? EISDIR : ENODEV;
    return Exclusive::kFailed;
  }

  int locked;
  do {
    locked = ::flock(fd, LOCK_EX | LOCK_NB);
  } while (locked != 0 && errno == EINTR);
  if (locked != 0) {
    if (IsHeldError(errno)) return Exclusive::kHeld;
    if (!NoLockHere(errno)) {
      error = errno;
      return Exclusive::kFailed;
    }
  }

  // Another process that opens the file while the lease stands breaks it,
  // and the kernel then signals this process: SIGIO by default, whose
  // default action ends the process. SIGURG is ignored unless the host
  // handles it, and a handler of SIGURG expects stray ones. Without the
  // signal set, no lease is taken.
  if (::fcntl(fd, F_SETSIG, SIGURG) == 0) {
    if (::fcntl(fd, F_SETLEASE, F_WRLCK) == 0) return Exclusive::kAlone;
    if (IsHeldError(errno)) return Exclusive::kHeld;
  }
  // No lease here: the most the system tells is whether the file is still
  // being written.
  return ChangedJustNow(info) ? Exclusive::kHeld : Exclusive::kAlone;
}

}  // namespace platform
}  // namespace vyr
