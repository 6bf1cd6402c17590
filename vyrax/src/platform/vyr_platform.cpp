// The library's own part of the platform layer, over the verbs of the
// system layer. See vyr_platform.h.
#include "platform/vyr_platform.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace vyr {
namespace platform {
namespace {

bool IsHeldError(int error) { return error == EWOULDBLOCK || error == EAGAIN; }

int Descriptor(Handle file) { return static_cast<int>(file); }

}  // namespace

OpenResult OpenShared(const char* path, Handle& file, int& error) {
  file = kInvalidHandle;
  // Non-blocking, so that opening a FIFO does not wait for a writer; for a
  // regular file the flag changes nothing.
  const int fd = sys::Open(path, sys::kRead | sys::kNonBlocking);
  if (fd < 0) {
    error = errno;
    return OpenResult::kFailed;
  }
  if (!sys::Lock(fd, sys::LockKind::kShared)) {
    error = errno;
    // A file system without locks is read without the lock.
    if (error != ENOLCK && error != EOPNOTSUPP && error != EINVAL) {
      sys::Close(fd);
      return IsHeldError(error) ? OpenResult::kHeld : OpenResult::kFailed;
    }
  }
  file = fd;
  return OpenResult::kOpened;
}

void CloseFile(Handle file) {
  if (file != kInvalidHandle) sys::Close(Descriptor(file));
}

bool Identify(Handle file, FileIdentity& identity, int& error) {
  sys::FileStatus status;
  if (!sys::StatusOf(Descriptor(file), status)) {
    error = errno;
    return false;
  }
  // Only regular files have bytes that a mapping shows.
  if (status.kind != sys::Kind::kFile) {
    error = status.kind == sys::Kind::kFolder ? EISDIR : ENODEV;
    return false;
  }
  identity.device = status.device;
  identity.inode = status.inode;
  identity.size = status.size;
  identity.modifiedSeconds = status.modifiedSeconds;
  identity.modifiedNanoseconds = status.modifiedNanoseconds;
  return true;
}

void* MapFile(Handle file, unsigned long long fileSize, unsigned long long offset,
              unsigned long long length, Handle& view, int& error) {
  view = kInvalidHandle;
  const unsigned long long rest = offset < fileSize ? fileSize - offset : 0;
  if (length == 0) length = rest;
  if (rest == 0 || length > rest || length > static_cast<unsigned long long>(SIZE_MAX)) {
    error = EINVAL;
    return nullptr;
  }
  void* address = sys::MapRange(Descriptor(file), offset, static_cast<std::size_t>(length));
  if (address == nullptr) {
    error = errno;
    return nullptr;
  }
  GuardedView* guard = GuardView(address, static_cast<std::size_t>(length));
  if (guard != nullptr) view = reinterpret_cast<Handle>(guard);
  return address;
}

void UnmapFile(void* address, std::size_t length, Handle view) {
  if (address == nullptr) return;
  // The guard lets go first: the address range may be handed out again.
  if (view != kInvalidHandle) ReleaseView(reinterpret_cast<GuardedView*>(view));
  sys::Unmap(address, length);
}

bool ViewDamaged(Handle view) {
  return view != kInvalidHandle && IsDamaged(reinterpret_cast<GuardedView const*>(view));
}

bool ReadAt(Handle file, void* into, std::size_t size, unsigned long long offset, std::size_t& got,
            int& error) {
  got = 0;
  const long long n = sys::ReadAt(Descriptor(file), into, size, offset);
  if (n < 0) {
    error = errno;
    return false;
  }
  got = static_cast<std::size_t>(n);
  return true;
}

void* Allocate(std::size_t size, int& error) {
  if (sys::Faulted(VYR_PlatformAllocate)) {
    error = errno;
    return nullptr;
  }
  // malloc(0) may give null, and an empty buffer still has an address.
  void* memory = std::malloc(size > 0 ? size : 1);
  if (memory == nullptr) error = errno != 0 ? errno : ENOMEM;
  return memory;
}

void* AllocateZeroed(std::size_t size, bool& mapped, int& error) {
  mapped = false;
  if (sys::Faulted(VYR_PlatformAllocate)) {
    error = errno;
    return nullptr;
  }
  // Below this a system call costs more than clearing the bytes.
  constexpr std::size_t kMapFrom = 256 * 1024;
  if (size < kMapFrom) {
    void* memory = std::calloc(size > 0 ? size : 1, 1);
    if (memory == nullptr) error = errno != 0 ? errno : ENOMEM;
    return memory;
  }
  void* memory = sys::MapZeroed(size);
  if (memory == nullptr) {
    error = errno;
    return nullptr;
  }
  mapped = true;
  return memory;
}

void ReleaseZeroed(void* memory, std::size_t size, bool mapped) {
  if (mapped)
    sys::Unmap(memory, size);
  else
    std::free(memory);
}

void SleepMilliseconds(unsigned milliseconds) {
  sys::SleepMicroseconds(static_cast<unsigned long long>(milliseconds) * 1000ull);
}

unsigned AllocationGranularity() { return sys::PageSize(); }

}  // namespace platform
}  // namespace vyr
