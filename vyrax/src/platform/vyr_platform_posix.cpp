// The platform layer on POSIX systems. See vyr_platform.h for the mapping of
// the library's needs onto the system calls.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <mutex>
#include <new>

#include "platform/vyr_platform.h"

namespace vyr {
namespace platform {
namespace {

bool IsHeldError(int error) { return error == EWOULDBLOCK || error == EAGAIN; }

// What a mapping object is here: the size of the file it was made for, and
// its one view.
struct MappingRecord {
  int file;
  unsigned long long covered;
  void* view;
  std::size_t viewLength;
  GuardedView* guard;
};

MappingRecord* RecordOf(Handle mapping) { return reinterpret_cast<MappingRecord*>(mapping); }

}  // namespace

// Whether this call is to fail. The faults live in the test-only hook
// library; this library exports nothing to set them, and where the hook
// library is not loaded (every process but a test) the check is one load of
// a null pointer.
bool Injected(VYR_TPlatformCall call, int& error) {
  using Take = int (*)(unsigned, int*);
  static const Take take = reinterpret_cast<Take>(::dlsym(RTLD_DEFAULT, kFaultHookSymbol));
  return take != nullptr && take(call, &error) != 0;
}

OpenResult OpenShared(const char* path, Handle& file, int& error) {
  file = kInvalidHandle;
  if (Injected(VYR_PlatformOpen, error))
    return IsHeldError(error) ? OpenResult::kHeld : OpenResult::kFailed;
  // Non-blocking, so that opening a FIFO does not wait for a writer; for a
  // regular file the flag changes nothing.
  int fd;
  do {
    fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    error = errno;
    return OpenResult::kFailed;
  }
  int locked;
  do {
    locked = ::flock(fd, LOCK_SH | LOCK_NB);
  } while (locked != 0 && errno == EINTR);
  if (locked != 0) {
    error = errno;
    // A file system without flock support is read without the lock.
    if (error != ENOLCK && error != EOPNOTSUPP && error != EINVAL) {
      ::close(fd);
      return IsHeldError(error) ? OpenResult::kHeld : OpenResult::kFailed;
    }
  }
  file = fd;
  return OpenResult::kOpened;
}

void CloseFile(Handle file) {
  if (file != kInvalidHandle) ::close(static_cast<int>(file));
}

bool Identify(Handle file, FileIdentity& identity, int& error) {
  if (Injected(VYR_PlatformFileSize, error)) return false;
  struct stat info;
  if (::fstat(static_cast<int>(file), &info) != 0) {
    error = errno;
    return false;
  }
  // Only regular files have bytes that a mapping shows.
  if (!S_ISREG(info.st_mode)) {
    error = S_ISDIR(info.st_mode) ? EISDIR : ENODEV;
    return false;
  }
  identity.device = static_cast<unsigned long long>(info.st_dev);
  identity.inode = static_cast<unsigned long long>(info.st_ino);
  identity.size = static_cast<unsigned long long>(info.st_size);
  identity.modifiedSeconds = static_cast<long long>(info.st_mtim.tv_sec);
  identity.modifiedNanoseconds = static_cast<long>(info.st_mtim.tv_nsec);
  return true;
}

bool FileSize(Handle file, unsigned long long& size, int& error) {
  FileIdentity identity;
  if (!Identify(file, identity, error)) return false;
  size = identity.size;
  return true;
}

bool CreateMapping(Handle file, unsigned long long size, Handle& mapping, int& error) {
  mapping = kInvalidHandle;
  if (Injected(VYR_PlatformCreateMapping, error)) return false;
  MappingRecord* record =
      new (std::nothrow) MappingRecord{static_cast<int>(file), size, nullptr, 0, nullptr};
  if (record == nullptr) {
    error = ENOMEM;
    return false;
  }
  mapping = reinterpret_cast<Handle>(record);
  return true;
}

void CloseMapping(Handle mapping) {
  if (mapping != kInvalidHandle) delete RecordOf(mapping);
}

void* MapView(Handle mapping, unsigned long long offset, unsigned long long length, int& error) {
  if (Injected(VYR_PlatformMapView, error)) return nullptr;
  MappingRecord* record = RecordOf(mapping);
  if (record->view != nullptr || offset >= record->covered ||
      offset > static_cast<unsigned long long>(std::numeric_limits<off_t>::max())) {
    error = EINVAL;
    return nullptr;
  }
  const unsigned long long rest = record->covered - offset;
  if (length == 0) length = rest;
  if (length > rest || length > static_cast<unsigned long long>(SIZE_MAX)) {
    error = EINVAL;
    return nullptr;
  }
  void* view = ::mmap(nullptr, static_cast<std::size_t>(length), PROT_READ, MAP_SHARED,
                      record->file, static_cast<off_t>(offset));
  if (view == MAP_FAILED) {
    error = errno;
    return nullptr;
  }
  record->view = view;
  record->viewLength = static_cast<std::size_t>(length);
  record->guard = GuardView(view, record->viewLength);
  return view;
}

void UnmapView(Handle mapping, void* view) {
  if (mapping == kInvalidHandle || view == nullptr) return;
  MappingRecord* record = RecordOf(mapping);
  if (record->view != view) return;
  // The guard lets go first: the address range may be handed out again.
  ReleaseView(record->guard);
  record->guard = nullptr;
  ::munmap(view, record->viewLength);
  record->view = nullptr;
  record->viewLength = 0;
}

bool ViewDamaged(Handle mapping) {
  return mapping != kInvalidHandle && IsDamaged(RecordOf(mapping)->guard);
}

bool ReadAt(Handle file, void* into, std::size_t size, unsigned long long offset, std::size_t& got,
            int& error) {
  got = 0;
  if (Injected(VYR_PlatformRead, error)) return false;
  if (offset > static_cast<unsigned long long>(std::numeric_limits<off_t>::max())) {
    error = EINVAL;
    return false;
  }
  unsigned char* out = static_cast<unsigned char*>(into);
  while (got < size) {
    const unsigned long long at = offset + got;
    if (at > static_cast<unsigned long long>(std::numeric_limits<off_t>::max())) break;
    const ssize_t n =
        ::pread(static_cast<int>(file), out + got, size - got, static_cast<off_t>(at));
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      return false;
    }
    if (n == 0) break;  // the end of the file
    got += static_cast<std::size_t>(n);
  }
  return true;
}

void* Allocate(std::size_t size, int& error) {
  if (Injected(VYR_PlatformAllocate, error)) return nullptr;
  // malloc(0) may give null, and an empty buffer still has an address.
  void* memory = std::malloc(size > 0 ? size : 1);
  if (memory == nullptr) error = errno != 0 ? errno : ENOMEM;
  return memory;
}

void* AllocateZeroed(std::size_t size, bool& mapped, int& error) {
  mapped = false;
  if (Injected(VYR_PlatformAllocate, error)) return nullptr;
  // Below this a system call costs more than clearing the bytes.
  constexpr std::size_t kMapFrom = 256 * 1024;
  if (size < kMapFrom) {
    void* memory = std::calloc(size > 0 ? size : 1, 1);
    if (memory == nullptr) error = errno != 0 ? errno : ENOMEM;
    return memory;
  }
  void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) {
    error = errno;
    return nullptr;
  }
  mapped = true;
  return memory;
}

void ReleaseZeroed(void* memory, std::size_t size, bool mapped) {
  if (mapped)
    ::munmap(memory, size);
  else
    std::free(memory);
}

void SleepMilliseconds(unsigned milliseconds) {
  struct timespec wait;
  wait.tv_sec = milliseconds / 1000;
  wait.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
  while (::nanosleep(&wait, &wait) != 0 && errno == EINTR) {
  }
}

unsigned AllocationGranularity() {
  const long page = ::sysconf(_SC_PAGESIZE);
  return page > 0 ? static_cast<unsigned>(page) : 4096u;
}

}  // namespace platform
}  // namespace vyr
