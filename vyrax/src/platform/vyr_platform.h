// What the library needs of the operating system beyond the verbs of the
// system layer (vyr_system.h, shared with the base types): the pieces that
// several units use, and the state that must be single in the process (the
// guard of mapped views, leases), which lives in this library only.
//
// Every call that can fail gives back whether it worked and leaves the
// system's own error number (errno) in `error`; the text for it comes from
// vyr::SystemErrorText. A file held by another process is a distinct answer
// of OpenShared: the one that opening loops retry on.
//
//   - a file is opened for reading and then locked shared, without waiting.
//     An exclusive lock of somebody else is the "held" answer. The lock
//     stays for as long as the file is open, so writers that take the
//     exclusive lock wait while the file is mapped.
//   - a file is known by its identity: device, inode, size and modification
//     time, all from one status of the open file.
//   - a view maps a range of the open file read-only, at a page-aligned
//     offset, watched by the guard (vyr_platform_posix_guard.cpp): a file
//     truncated under a view raises SIGBUS on the lost pages, and the guard
//     puts zero pages in their place and marks the view as damaged instead
//     of letting the process die.
#ifndef VYR_PLATFORM_H
#define VYR_PLATFORM_H

#include <cstddef>
#include <cstdint>

#include "vyr_system.h"
#include "vyrax/vyr_api.h"

namespace vyr {
namespace platform {

// A file descriptor, or the address of a guarded view; all bits set for
// none.
typedef std::intptr_t Handle;
constexpr Handle kInvalidHandle = -1;

enum class OpenResult {
  kOpened,
  kHeld,    // another process holds the file; worth trying again
  kFailed,  // anything else: missing, no access, ...
};

// Opens an existing file for reading, shared with other readers.
VYR_LOCAL OpenResult OpenShared(const char* path, Handle& file, int& error);
VYR_LOCAL void CloseFile(Handle file);

// What tells one file from another, and one state of a file from a later one.
struct FileIdentity {
  unsigned long long device = 0;
  unsigned long long inode = 0;
  unsigned long long size = 0;
  long long modifiedSeconds = 0;
  long modifiedNanoseconds = 0;

  bool operator==(FileIdentity const& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           modifiedSeconds == other.modifiedSeconds &&
           modifiedNanoseconds == other.modifiedNanoseconds;
  }
};

// The identity of an open regular file; anything else fails (EISDIR for a
// folder, ENODEV otherwise).
VYR_LOCAL bool Identify(Handle file, FileIdentity& identity, int& error);

// Maps `length` bytes of the file from `offset` (a multiple of
// AllocationGranularity()); length 0 means to the end of a file of
// `fileSize` bytes. A view that starts at or reaches behind the end is
// refused. Null on failure; `view` is what UnmapFile and ViewDamaged take.
VYR_LOCAL void* MapFile(Handle file, unsigned long long fileSize, unsigned long long offset,
                        unsigned long long length, Handle& view, int& error);
VYR_LOCAL void UnmapFile(void* address, std::size_t length, Handle view);
// Whether the file shrank under the view and some of its pages now show
// zeros instead of the file's bytes. Once true, always true.
VYR_LOCAL bool ViewDamaged(Handle view);

// Reads up to `size` bytes from `offset`; `got` is what arrived, fewer only at
// the end of the file.
VYR_LOCAL bool ReadAt(Handle file, void* into, std::size_t size, unsigned long long offset,
                      std::size_t& got, int& error);

// Heap memory for buffers, released with free(). Never null for size 0.
VYR_LOCAL void* Allocate(std::size_t size, int& error);
// Memory of zeros for buffers. A large block is a mapping of fresh pages
// (`mapped` true), which costs no memory until it is written; a small one
// comes from the heap. Released with ReleaseZeroed.
VYR_LOCAL void* AllocateZeroed(std::size_t size, bool& mapped, int& error);
VYR_LOCAL void ReleaseZeroed(void* memory, std::size_t size, bool mapped);

VYR_LOCAL void SleepMilliseconds(unsigned milliseconds);
// The alignment a view's start needs: the page size.
VYR_LOCAL unsigned AllocationGranularity();

// The guard of views against SIGBUS (vyr_platform_posix_guard.cpp). A view
// handed to GuardView is watched until ReleaseView; null when the guard is
// off (the environment variable VYR_MAPPING_GUARD is "off").
struct GuardedView;
VYR_LOCAL GuardedView* GuardView(void* view, std::size_t length);
VYR_LOCAL void ReleaseView(GuardedView* view);
VYR_LOCAL bool IsDamaged(GuardedView const* view);

}  // namespace platform
}  // namespace vyr

// --- Metadata: side-car files and extended attributes -------------------------
//
// The calls of the two metadata backends, implemented in
// vyr_platform_stores.cpp.
//
// A job folder is shared with other users and machines, so nothing here
// follows a link it did not make. The ".metadata" folder is opened once per
// operation without following a link and must be a folder; every file in it
// is opened, created, renamed and removed relative to that descriptor, again
// without following a link.
//
// A side-car file is replaced whole, never written in place: the bytes go to
// a temporary file of a name nobody else uses ("<name>.new-<pid>-<n>",
// created exclusively), are flushed to the disk, and that file is renamed
// over <name>. A reader therefore sees the old store or the new one, and a
// writer that dies leaves the old one. Writers of one store take turns by an
// exclusive lock on "<name>.lock", a file opened for reading and writing
// (which network file systems need for an exclusive lock) that stays while
// the store exists. Such locks belong to the open file, so the threads of
// one process take turns by it as processes do. Readers lock the store
// itself, shared, without waiting; no writer locks a store, so readers and
// writers never wait for each other.
#include <string>
#include <vector>

namespace vyr {
namespace platform {

enum class FolderResult {
  kOpened,
  kMissing,  // no such folder (or no folder above it)
  kRefused,  // a link, or something else than a folder
  kFailed,   // anything else: no access, out of descriptors, ...
};

// Opens the folder `path` (made first when `create` is set and it is
// missing), never through a link.
VYR_LOCAL FolderResult OpenStoreFolder(const char* path, bool create, Handle& folder, int& error);

enum class StoreRead {
  kRead,     // `bytes` holds the whole file
  kAbsent,   // no file, or an empty one
  kForeign,  // a link, not a regular file, or larger than the limit: not a store
  kHeld,     // another process holds the file exclusively; worth trying again
  kFailed,   // could not be read now: no access, out of descriptors, I/O error
};

// Reads the file `name` of `folder`, shared-locked, when it has at most
// `limit` bytes.
VYR_LOCAL StoreRead ReadStore(Handle folder, const char* name, unsigned long long limit,
                              std::vector<unsigned char>& bytes, int& error);

// Takes the writer lock of the store `name`, waiting up to `waitMilliseconds`
// for another writer to let go of it: kHeld when it did not in that time.
VYR_LOCAL OpenResult LockStore(Handle folder, const char* name, unsigned waitMilliseconds,
                               Handle& lock, int& error);
// Lets go of the writer lock. With `removeLock` (the store is gone) the lock
// file goes too, while it is still held.
VYR_LOCAL void UnlockStore(Handle folder, const char* name, Handle lock, bool removeLock);

// Under the writer lock: makes `size` bytes the content of `name`.
// The temporary file's name is noted in the lock file first, so that the
// next writer can remove it should this one die before the rename.
VYR_LOCAL bool WriteStore(Handle folder, const char* name, Handle lock, const void* data,
                          std::size_t size, int& error);
// Under the writer lock: removes `name`; one that is not there is no failure.
VYR_LOCAL bool RemoveStore(Handle folder, const char* name, int& error);
// Under the writer lock: renames what stands at `name` (file, link or
// anything else) to a new name that says it could not be read; `aside` is
// that name.
VYR_LOCAL bool SetStoreAside(Handle folder, const char* name, std::string& aside, int& error);
// Under the writer lock: removes the temporary file of a writer of `name`
// that died while writing, as its lock file names it; all others hold the
// lock while theirs exists.
VYR_LOCAL void RemoveLeftovers(Handle folder, const char* name, Handle lock);

}  // namespace platform
}  // namespace vyr

// --- Shared modules ------------------------------------------------------------
//
// Implemented in vyr_platform_modules.cpp.
class QEN_TDynamicObject;
class QEN_TString;

namespace vyr {
namespace platform {

// Loads the shared module `name` and gives it, with `tag`, as an object the
// caller owns; throws QEN_ECouldNotLoadDynamicObject when it can't be
// loaded. A name with a '/' is a path and is loaded as it is. A name without
// one is looked for, in this order, in each folder of the search path
// variable VYR_PLUGIN_PATH (folders parted by ':'), in the plug-in folder
// "vyrax/plugins" beside this library, in this library's own folder, and
// last by the system's own search. In each place the name is tried as it
// is and, when it has no ".so" in it, as "<name>.so", "lib<name>.so" and
// "lib<name in lower case>.so".
VYR_LOCAL QEN_TDynamicObject* LoadModule(const QEN_TString& name, const QEN_TString& tag);

// The folder of the installed plug-ins: "vyrax/plugins" beside this library.
VYR_LOCAL std::string PluginFolder();

}  // namespace platform
}  // namespace vyr

#endif
