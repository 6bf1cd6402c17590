// The side-car stores of the metadata backend: files replaced whole by
// renaming, writers taking turns by a lock file. See vyr_platform.h for the
// protocol of writers.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "platform/vyr_platform.h"

namespace vyr {
namespace platform {
namespace {

int Descriptor(Handle file) { return static_cast<int>(file); }

bool IsMissingError(int error) { return error == ENOENT || error == ENOTDIR; }

bool IsHeldError(int error) { return error == EWOULDBLOCK || error == EAGAIN; }

// A file system without locks: the store is used without them.
bool NoLocksHere(int error) { return error == ENOLCK || error == EOPNOTSUPP || error == EINVAL; }

// What a temporary file of a store has behind the store's name.
const char kNewInfix[] = ".new-";

// Opens the lock file of a store to take the writer lock on it.
int OpenLockFile(int dir, const std::string& lockName) {
  // Read-write: an exclusive lock over NFS needs a file open for writing.
  const unsigned flags = sys::kCreate | sys::kNoFollow | sys::kNonBlocking;
  int fd = sys::Open(lockName.c_str(), sys::kReadWrite | flags, dir);
  // Another user's lock file may be closed to this one for writing; a
  // local file system locks a file opened for reading just as well.
  if (fd < 0 && errno == EACCES)
    fd = sys::Open(lockName.c_str(), sys::kRead | sys::kNoFollow | sys::kNonBlocking, dir);
  return fd;
}

// Takes the writer lock on the open lock file `fd`: kOpened with the lock,
// kHeld while another writer has it, kFailed (and `fd` closed) otherwise.
OpenResult LockLockFile(int fd, sys::FileStatus& held, int& error) {
  const bool stated = sys::StatusOf(fd, held);
  if (!stated || held.kind != sys::Kind::kFile) {
    error = stated ? EINVAL : errno;
    sys::Close(fd);
    return OpenResult::kFailed;
  }
  // A file system without locks is written without the lock.
  if (sys::Lock(fd, sys::LockKind::kExclusive) || NoLocksHere(errno)) return OpenResult::kOpened;
  error = errno;
  sys::Close(fd);
  return IsHeldError(error) ? OpenResult::kHeld : OpenResult::kFailed;
}

}  // namespace

FolderResult OpenStoreFolder(const char* path, bool create, Handle& folder, int& error) {
  folder = kInvalidHandle;
  for (int attempt = 0; attempt < 2; ++attempt) {
    const int fd = sys::Open(path, sys::kRead | sys::kFolder | sys::kNoFollow);
    if (fd >= 0) {
      folder = fd;
      return FolderResult::kOpened;
    }
    error = errno;
    // A link, or something else than a folder, at the name itself: refused.
    // ENOTDIR may also mean that a folder above is missing, which the
    // status of the name tells.
    sys::FileStatus status;
    if (error == ELOOP || error == ENOTDIR)
      return sys::StatusAt(path, status, false) ? FolderResult::kRefused : FolderResult::kMissing;
    if (error != ENOENT) return FolderResult::kFailed;
    if (!create || attempt > 0) return FolderResult::kMissing;
    // Made here, or by another writer at the same time; opened again either
    // way, without trusting what is at the name now.
    if (!sys::MakeFolder(path) && errno != EEXIST) {
      error = errno;
      return IsMissingError(error) ? FolderResult::kMissing : FolderResult::kFailed;
    }
  }
  return FolderResult::kFailed;
}

StoreRead ReadStore(Handle folder, const char* name, unsigned long long limit,
                    std::vector<unsigned char>& bytes, int& error) {
  bytes.clear();
  // Non-blocking, so that a FIFO at the name does not wait for a writer.
  const int fd =
      sys::Open(name, sys::kRead | sys::kNoFollow | sys::kNonBlocking, Descriptor(folder));
  if (fd < 0) {
    error = errno;
    if (error == ENOENT) return StoreRead::kAbsent;
    return error == ELOOP ? StoreRead::kForeign : StoreRead::kFailed;
  }
  struct Closer {
    int fd;
    ~Closer() { sys::Close(fd); }
  } closer{fd};
  // A file system without locks is read without the lock.
  if (!sys::Lock(fd, sys::LockKind::kShared) && !NoLocksHere(errno)) {
    error = errno;
    return IsHeldError(error) ? StoreRead::kHeld : StoreRead::kFailed;
  }
  sys::FileStatus status;
  if (!sys::StatusOf(fd, status)) {
    error = errno;
    return StoreRead::kFailed;
  }
  const bool regular = status.kind == sys::Kind::kFile;
  if (!regular || status.size > limit) {
    error = regular ? EFBIG : EINVAL;
    return StoreRead::kForeign;
  }
  if (status.size == 0) return StoreRead::kAbsent;
  try {
    bytes.resize(static_cast<std::size_t>(status.size));
  } catch (...) {
    error = ENOMEM;
    return StoreRead::kFailed;
  }
  // The file may shrink or grow while it is read (a writer that ignores the
  // lock): what counts is exactly the size it had, or the read fails.
  const long long got = sys::ReadAt(fd, bytes.data(), bytes.size(), 0);
  if (got != static_cast<long long>(bytes.size())) {
    error = got < 0 ? errno : EIO;
    bytes.clear();
    return StoreRead::kFailed;
  }
  return StoreRead::kRead;
}

OpenResult LockStore(Handle folder, const char* name, unsigned waitMilliseconds, Handle& lock,
                     int& error) {
  lock = kInvalidHandle;
  const std::string lockName = std::string(name) + ".lock";
  const int dir = Descriptor(folder);
  const long long deadline =
      sys::MonotonicMicroseconds() + static_cast<long long>(waitMilliseconds) * 1000;
  // The pause between two looks at a held lock: short at first, as a writer
  // holds it for one read and one write only.
  unsigned pauseMicroseconds = 200;
  bool removedLink = false;
  for (;;) {
    const int fd = OpenLockFile(dir, lockName);
    if (fd < 0) {
      error = errno;
      // A link planted at the lock's name is removed, never followed; the
      // writer then makes its own lock file.
      if (error == ELOOP && !removedLink && sys::Remove(lockName.c_str(), dir)) {
        removedLink = true;
        continue;
      }
      return OpenResult::kFailed;
    }
    sys::FileStatus held;
    const OpenResult locked = LockLockFile(fd, held, error);
    if (locked == OpenResult::kFailed) return locked;
    if (locked == OpenResult::kHeld) {
      if (sys::MonotonicMicroseconds() >= deadline) {
        error = EWOULDBLOCK;
        return OpenResult::kHeld;
      }
      sys::SleepMicroseconds(pauseMicroseconds);
      pauseMicroseconds = std::min(pauseMicroseconds * 2, 10000u);
      continue;
    }
    // The lock is only good while its file is still the one at the name: the
    // writer that removed the store removed the lock file too, while holding
    // it, and a lock on that file is seen by nobody else.
    sys::FileStatus named;
    if (sys::StatusAt(lockName.c_str(), named, false, dir) && held.device == named.device &&
        held.inode == named.inode) {
      lock = fd;
      return OpenResult::kOpened;
    }
    sys::Close(fd);
  }
}

void UnlockStore(Handle folder, const char* name, Handle lock, bool removeLock) {
  if (removeLock) sys::Remove((std::string(name) + ".lock").c_str(), Descriptor(folder));
  sys::Close(Descriptor(lock));
}

bool WriteStore(Handle folder, const char* name, Handle lock, const void* data, std::size_t size,
                int& error) {
  static std::atomic<unsigned> sCounter{0};
  const int dir = Descriptor(folder);
  std::string fresh;
  int fd = -1;
  // A name of this process and this call, created exclusively: no file of
  // anybody else is opened, whatever stands in the folder. The name is noted
  // in the lock file before the file is made, for the next writer to clear
  // away should this one die at any point before the rename. Not flushed:
  // after a crash of the machine a leftover may stay, harmless.
  for (int attempt = 0; fd < 0 && attempt < 16; ++attempt) {
    fresh = std::string(name) + kNewInfix + std::to_string(sys::ProcessId()) + "-" +
            std::to_string(sCounter.fetch_add(1, std::memory_order_relaxed));
    if (lock != kInvalidHandle) {
      const std::string note = fresh + "\n";
      sys::WriteAt(Descriptor(lock), note.data(), note.size(), 0);
    }
    fd = sys::Open(fresh.c_str(), sys::kWrite | sys::kCreate | sys::kExclusive | sys::kNoFollow,
                   dir);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    error = errno;
    return false;
  }
  std::size_t written = 0;
  bool ok = sys::Write(fd, data, size, written);
  // The bytes reach the disk before the name does, so that not even a crash
  // of the machine leaves a torn store behind the name.
  ok = ok && sys::Sync(fd, true);
  if (!ok) error = errno;
  // NFS reports a failed write back at the latest here.
  if (!sys::Close(fd) && ok) {
    error = errno;
    ok = false;
  }
  if (ok && !sys::Replace(fresh.c_str(), name, dir)) {
    error = errno;
    ok = false;
  }
  if (!ok) sys::Remove(fresh.c_str(), dir);
  return ok;
}

bool RemoveStore(Handle folder, const char* name, int& error) {
  if (sys::Remove(name, Descriptor(folder)) || errno == ENOENT) return true;
  error = errno;
  return false;
}

bool SetStoreAside(Handle folder, const char* name, std::string& aside, int& error) {
  static std::atomic<unsigned> sCounter{0};
  std::timespec now{};
  std::tm parts{};
  char stamp[32] = "0";
  if (sys::Now(now) && sys::UtcParts(now.tv_sec, parts))
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &parts);
  aside = std::string(name) + ".unreadable-" + stamp + "-" + std::to_string(sys::ProcessId()) +
          "-" + std::to_string(sCounter.fetch_add(1, std::memory_order_relaxed));
  // Renaming moves a link itself, never what it points to.
  if (sys::Replace(name, aside.c_str(), Descriptor(folder))) return true;
  error = errno;
  return false;
}

void RemoveLeftovers(Handle folder, const char* name, Handle lock) {
  // The lock file holds the name of the last writer's temporary file, ended
  // by a line end. Only a name of this store's temporary files is removed,
  // whatever else somebody wrote there.
  char noted[256];
  const long long length = sys::ReadAt(Descriptor(lock), noted, sizeof noted - 1, 0);
  if (length <= 0) return;
  noted[length] = '\0';
  char* const end = std::strchr(noted, '\n');
  if (end == nullptr) return;
  *end = '\0';
  const std::string prefix = std::string(name) + kNewInfix;
  if (std::strncmp(noted, prefix.c_str(), prefix.size()) != 0 || std::strchr(noted, '/') != nullptr)
    return;
  sys::Remove(noted, Descriptor(folder));
}

}  // namespace platform
}  // namespace vyr
