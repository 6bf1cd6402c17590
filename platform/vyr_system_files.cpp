// The system layer on POSIX systems: files, mappings and extended
// attributes. See vyr_system.h.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <limits>

#include "vyr_system-priv.h"
#include "vyr_system.h"

namespace vyr {
namespace sys {
namespace {

// Attempts at a list of attribute names that changes while it is read.
constexpr int kListAttempts = 8;

bool BeyondOffsets(unsigned long long offset) {
  return offset > static_cast<unsigned long long>(std::numeric_limits<off_t>::max());
}

int SystemFlags(unsigned flags) {
  int system = (flags & kReadWrite) ? O_RDWR : (flags & kWrite) ? O_WRONLY : O_RDONLY;
  if (flags & kCreate) system |= O_CREAT;
  if (flags & kTruncate) system |= O_TRUNC;
  if (flags & kExclusive) system |= O_EXCL;
  if (flags & kNoFollow) system |= O_NOFOLLOW;
  if (flags & kFolder) system |= O_DIRECTORY;
  if (flags & kNonBlocking) system |= O_NONBLOCK;
  return system | O_CLOEXEC | O_NOCTTY;
}

void Fill(const struct stat& info, FileStatus& status) {
  const mode_t mode = info.st_mode;
  status.kind = S_ISREG(mode)    ? Kind::kFile
                : S_ISDIR(mode)  ? Kind::kFolder
                : S_ISFIFO(mode) ? Kind::kFifo
                : S_ISSOCK(mode) ? Kind::kSocket
                : S_ISLNK(mode)  ? Kind::kLink
                                 : Kind::kOther;
  status.device = static_cast<unsigned long long>(info.st_dev);
  status.inode = static_cast<unsigned long long>(info.st_ino);
  status.size = static_cast<unsigned long long>(info.st_size);
  status.modifiedSeconds = static_cast<long long>(info.st_mtim.tv_sec);
  status.modifiedNanoseconds = static_cast<long>(info.st_mtim.tv_nsec);
  status.changedSeconds = static_cast<long long>(info.st_ctim.tv_sec);
}

}  // namespace

bool Faulted(VYR_TPlatformCall call) {
  using Take = int (*)(unsigned, int*);
  static const Take take = reinterpret_cast<Take>(::dlsym(RTLD_DEFAULT, "vyr_platform_take_fault"));
  int error = 0;
  if (take == nullptr || take(call, &error) == 0) return false;
  errno = error;
  return true;
}

// --- Files ----------------------------------------------------------------------

int Open(const char* name, unsigned flags, int folder) {
  if (Faulted(VYR_PlatformOpen)) return -1;
  const int system = SystemFlags(flags);
  return Retry(-1, [&] { return ::openat(folder, name, system, 0666); });
}

bool Close(int fd) {
  if (fd < 0) return true;
  if (Faulted(VYR_PlatformClose)) {
    ::close(fd);
    return false;
  }
  // Not made again on EINTR: the descriptor is gone either way.
  return ::close(fd) == 0 || errno == EINTR;
}

bool SetBlocking(int fd) {
  const int flags = ::fcntl(fd, F_GETFL);
  return flags >= 0 && ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

bool StatusOf(int fd, FileStatus& status) {
  if (Faulted(VYR_PlatformStatus)) return false;
  struct stat info;
  if (::fstat(fd, &info) != 0) return false;
  Fill(info, status);
  return true;
}

bool StatusAt(const char* name, FileStatus& status, bool follow, int folder) {
  if (Faulted(VYR_PlatformStatus)) return false;
  struct stat info;
  if (::fstatat(folder, name, &info, follow ? 0 : AT_SYMLINK_NOFOLLOW) != 0) return false;
  Fill(info, status);
  return true;
}

long long Read(int fd, void* into, std::size_t size) {
  if (Faulted(VYR_PlatformRead)) return -1;
  return Retry(-1, [&] { return static_cast<long long>(::read(fd, into, size)); });
}

long long ReadAt(int fd, void* into, std::size_t size, unsigned long long offset) {
  if (Faulted(VYR_PlatformRead)) return -1;
  if (BeyondOffsets(offset)) {
    errno = EINVAL;
    return -1;
  }
  unsigned char* out = static_cast<unsigned char*>(into);
  std::size_t got = 0;
  while (got < size && !BeyondOffsets(offset + got)) {
    const ssize_t n = Retry(
        -1, [&] { return ::pread(fd, out + got, size - got, static_cast<off_t>(offset + got)); });
    if (n < 0) return -1;
    if (n == 0) break;  // the end of the file
    got += static_cast<std::size_t>(n);
  }
  return static_cast<long long>(got);
}

bool Write(int fd, const void* data, std::size_t size, std::size_t& done) {
  done = 0;
  if (Faulted(VYR_PlatformWrite)) return false;
  const unsigned char* in = static_cast<const unsigned char*>(data);
  while (done < size) {
    const ssize_t n = Retry(-1, [&] { return ::write(fd, in + done, size - done); });
    if (n < 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

bool WriteAt(int fd, const void* data, std::size_t size, unsigned long long offset) {
  if (Faulted(VYR_PlatformWrite)) return false;
  const unsigned char* in = static_cast<const unsigned char*>(data);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = Retry(-1, [&] {
      return ::pwrite(fd, in + done, size - done, static_cast<off_t>(offset + done));
    });
    if (n < 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

bool SeekBy(int fd, long long delta) {
  if (Faulted(VYR_PlatformSeek)) return false;
  return ::lseek(fd, static_cast<off_t>(delta), SEEK_CUR) >= 0;
}

bool Sync(int fd, bool dataOnly) {
  if (Faulted(VYR_PlatformSync)) return false;
  return Retry(-1, [&] { return dataOnly ? ::fdatasync(fd) : ::fsync(fd); }) == 0;
}

bool Lock(int fd, LockKind kind) {
  if (Faulted(VYR_PlatformLock)) return false;
  const int operation = (kind == LockKind::kShared ? LOCK_SH : LOCK_EX) | LOCK_NB;
  return Retry(-1, [&] { return ::flock(fd, operation); }) == 0;
}

bool Replace(const char* from, const char* to, int folder) {
  if (Faulted(VYR_PlatformReplace)) return false;
  return ::renameat(folder, from, folder, to) == 0;
}

bool Remove(const char* name, int folder) {
  if (Faulted(VYR_PlatformRemove)) return false;
  return ::unlinkat(folder, name, 0) == 0;
}

bool MakeFolder(const char* path) {
  if (Faulted(VYR_PlatformMakeFolder)) return false;
  return ::mkdir(path, 0777) == 0;
}

bool CanWrite(const char* path) {
  if (Faulted(VYR_PlatformCanWrite)) return false;
  return ::faccessat(AT_FDCWD, path, W_OK, AT_EACCESS) == 0;
}

std::string CurrentFolder() {
  if (Faulted(VYR_PlatformCurrentFolder)) return std::string();
  char* folder = ::getcwd(nullptr, 0);
  if (folder == nullptr) return std::string();
  std::string path(folder);
  std::free(folder);
  return path;
}

// --- Mapping --------------------------------------------------------------------

void* MapRange(int fd, unsigned long long offset, std::size_t length) {
  if (Faulted(VYR_PlatformMap)) return nullptr;
  if (BeyondOffsets(offset)) {
    errno = EINVAL;
    return nullptr;
  }
  void* view = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, fd, static_cast<off_t>(offset));
  return view == MAP_FAILED ? nullptr : view;
}

void* MapZeroed(std::size_t length) {
  if (Faulted(VYR_PlatformMap)) return nullptr;
  void* memory = ::mmap(nullptr, length, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return memory == MAP_FAILED ? nullptr : memory;
}

void Unmap(void* address, std::size_t length) {
  if (address != nullptr) ::munmap(address, length);
}

unsigned PageSize() {
  static const long page = ::sysconf(_SC_PAGESIZE);
  return page > 0 ? static_cast<unsigned>(page) : 4096u;
}

// --- Extended attributes ---------------------------------------------------------

bool ListAttributes(int fd, std::string& names) {
  names.clear();
  if (Faulted(VYR_PlatformListAttributes)) return false;
  for (int attempt = 0; attempt < kListAttempts; ++attempt) {
    const ssize_t needed = ::flistxattr(fd, nullptr, 0);
    if (needed <= 0) return needed == 0;
    names.resize(static_cast<std::size_t>(needed));
    const ssize_t got = ::flistxattr(fd, &names[0], names.size());
    if (got >= 0) {
      names.resize(static_cast<std::size_t>(got));
      return true;
    }
    // The list grew between the two calls.
    if (errno != ERANGE) return false;
  }
  errno = ERANGE;
  return false;
}

long long GetAttribute(int fd, const char* name, void* into, std::size_t size) {
  if (Faulted(VYR_PlatformGetAttribute)) return -1;
  return ::fgetxattr(fd, name, into, size);
}

long long GetAttributeAt(const char* path, const char* name, void* into, std::size_t size) {
  if (Faulted(VYR_PlatformGetAttribute)) return -1;
  return ::getxattr(path, name, into, size);
}

bool SetAttribute(int fd, const char* name, const void* value, std::size_t size) {
  if (Faulted(VYR_PlatformSetAttribute)) return false;
  return ::fsetxattr(fd, name, value, size, 0) == 0;
}

bool RemoveAttribute(int fd, const char* name) {
  if (Faulted(VYR_PlatformRemoveAttribute)) return false;
  return ::fremovexattr(fd, name) == 0;
}

}  // namespace sys
}  // namespace vyr
