// The verbs of the operating system that the base types and the library
// use, and nothing else: every system call of either goes through here.
// Compiled into a small static library that both link privately, with
// hidden visibility, so neither exports any of it.
//
// A verb that can fail gives back false (or -1, or null) and leaves the
// system's error number in errno, as a system call would. Each such verb
// first asks the fault hook (below) whether it is to fail now; that check
// is the one place an injected error number is set. A call interrupted by
// a signal is made again, in one helper, by every verb.
//
// Descriptors are the system's: an int, -1 for none. State that must be
// single per process (the guard of mapped views against SIGBUS, leases) is
// not here but in the library's own part of the layer.
#ifndef VYR_SYSTEM_H
#define VYR_SYSTEM_H

#include <cstddef>
#include <ctime>
#include <string>

// --- Test hook ----------------------------------------------------------------
//
// Every verb that can fail has one kind here. The test-only hook library
// (tests/platform_faults.cpp) defines vyr_platform_take_fault; the layer
// looks it up once by name, and where it is missing (every process but a
// test) the check costs one load of a null pointer. The next `count` calls
// of `call`, after letting `skip` calls through, fail with the error number
// `error`. A count of 0 withdraws the fault. Faults are process-wide; a test
// sets them on one thread while no other thread uses the layer, and clears
// them after.
enum VYR_TPlatformCall : unsigned {
  VYR_PlatformOpen,             // open a file or folder
  VYR_PlatformStatus,           // the status of a file: kind, identity, size, times
  VYR_PlatformMap,              // map a range of a file, or fresh zero pages
  VYR_PlatformRead,             // read, at an offset or at the position
  VYR_PlatformAllocate,         // heap memory for buffers (the library's part)
  VYR_PlatformWrite,            // write, at an offset or at the position
  VYR_PlatformSeek,             // move the position of a descriptor
  VYR_PlatformSync,             // flush a file's bytes to the disk
  VYR_PlatformClose,            // close a descriptor (a late write error shows here)
  VYR_PlatformLock,             // a shared or exclusive lock on an open file
  VYR_PlatformLease,            // a write lease (the library's part)
  VYR_PlatformReplace,          // rename a file over another, atomically
  VYR_PlatformRemove,           // remove a file
  VYR_PlatformMakeFolder,       // make a folder
  VYR_PlatformCanWrite,         // whether this process may write a file
  VYR_PlatformListAttributes,   // the names of a file's extended attributes
  VYR_PlatformGetAttribute,     // the value of one extended attribute
  VYR_PlatformSetAttribute,     // set one extended attribute
  VYR_PlatformRemoveAttribute,  // remove one extended attribute
  VYR_PlatformLoadModule,       // load a shared module
  VYR_PlatformFindSymbol,       // find a symbol in a module
  VYR_PlatformEnvironment,      // read an environment variable (as unset)
  VYR_PlatformTime,             // the time now, and its breakdown
  VYR_PlatformHostName,         // the name of this machine
  VYR_PlatformVolume,           // the file system a file lies on
  VYR_PlatformProcessTimes,     // the processor time of this process
  VYR_PlatformCurrentFolder,    // the working folder
  VYR_PlatformCallKinds
};

#define VYR_FAULT_HOOK_API __attribute__((visibility("default")))
VYR_FAULT_HOOK_API void VYR_PlatformInjectFault(VYR_TPlatformCall call, int error, unsigned count,
                                                unsigned skip = 0);
// Withdraws every injected fault.
VYR_FAULT_HOOK_API void VYR_PlatformClearFaults();
extern "C" VYR_FAULT_HOOK_API int vyr_platform_take_fault(unsigned call, int* error);

namespace vyr {
namespace sys {

// Whether a fault makes this call of `call` fail now; sets errno when so.
bool Faulted(VYR_TPlatformCall call);

// --- Files ----------------------------------------------------------------------

// How to open. Every descriptor is closed on exec and never becomes a
// controlling terminal.
enum OpenFlags : unsigned {
  kRead = 0,
  kWrite = 1u << 0,
  kReadWrite = 1u << 1,
  kCreate = 1u << 2,
  kTruncate = 1u << 3,
  kExclusive = 1u << 4,    // with kCreate: fail when the name exists
  kNoFollow = 1u << 5,     // a link at the name itself is refused (ELOOP)
  kFolder = 1u << 6,       // only a folder (ENOTDIR otherwise)
  kNonBlocking = 1u << 7,  // a FIFO does not wait for its other end
};
constexpr int kHere = -100;  // a folder descriptor meaning the working folder

// Opens `name`, relative to `folder` when it is not absolute; -1 on failure.
int Open(const char* name, unsigned flags, int folder = kHere);
// Closes `fd`; false when a late error of a write shows here.
bool Close(int fd);
// Makes the descriptor wait again (drops kNonBlocking).
bool SetBlocking(int fd);

enum class Kind { kFile, kFolder, kFifo, kSocket, kLink, kOther };

struct FileStatus {
  Kind kind = Kind::kOther;
  unsigned long long device = 0;
  unsigned long long inode = 0;
  unsigned long long size = 0;
  long long modifiedSeconds = 0;
  long modifiedNanoseconds = 0;
  long long changedSeconds = 0;  // the status itself
};

bool StatusOf(int fd, FileStatus& status);
// The status of what stands at `name`; with `follow` false a link is
// itself.
bool StatusAt(const char* name, FileStatus& status, bool follow = true, int folder = kHere);

// Reads up to `size` bytes at the descriptor's position; -1 on failure.
long long Read(int fd, void* into, std::size_t size);
// Reads up to `size` bytes from `offset`, as many as there are: fewer only
// at the end of the file; -1 on failure.
long long ReadAt(int fd, void* into, std::size_t size, unsigned long long offset);
// Writes all `size` bytes at the position; `done` tells how many went
// before a failure.
bool Write(int fd, const void* data, std::size_t size, std::size_t& done);
bool WriteAt(int fd, const void* data, std::size_t size, unsigned long long offset);
// Moves the position by `delta` bytes from where it is.
bool SeekBy(int fd, long long delta);
// The bytes reach the disk (`dataOnly`: not necessarily the times).
bool Sync(int fd, bool dataOnly = false);

enum class LockKind { kShared, kExclusive };
// Without waiting: EWOULDBLOCK while another open file holds a conflicting
// lock. The lock belongs to the open file and goes with its last close.
bool Lock(int fd, LockKind kind);

// Renames `from` over `to` in one step: readers see the one or the other.
// A link is moved itself, never what it points to.
bool Replace(const char* from, const char* to, int folder = kHere);
bool Remove(const char* name, int folder = kHere);
bool MakeFolder(const char* path);
// Whether this process may write the file, by its effective identity.
bool CanWrite(const char* path);
// The working folder; empty on failure.
std::string CurrentFolder();

// --- Mapping --------------------------------------------------------------------

// Maps `length` bytes of the file from `offset` (a multiple of PageSize()),
// read-only and shared; null on failure.
void* MapRange(int fd, unsigned long long offset, std::size_t length);
// Fresh zero pages to read and write, which cost no memory until written.
void* MapZeroed(std::size_t length);
void Unmap(void* address, std::size_t length);
unsigned PageSize();

// --- Extended attributes ---------------------------------------------------------
//
// Names are the system's full names ("user.KEY").

// All names of the file's attributes, each ended by a NUL.
bool ListAttributes(int fd, std::string& names);
// The value of `name` into `into`: its length, or -1 (ENODATA: none such).
long long GetAttribute(int fd, const char* name, void* into, std::size_t size);
// The same for a path, without opening it.
long long GetAttributeAt(const char* path, const char* name, void* into, std::size_t size);
bool SetAttribute(int fd, const char* name, const void* value, std::size_t size);
// Removing one that is not there fails with ENODATA.
bool RemoveAttribute(int fd, const char* name);

// --- Modules --------------------------------------------------------------------

// Loads the module, all its symbols resolved now; with `keep` it stays
// loaded until the process ends. Null on failure, with the loader's reason
// in `why`.
void* LoadModule(const char* name, bool keep, std::string& why);
void* FindSymbol(void* module, const char* name);
void CloseModule(void* module);
// The file of the module that holds `address`; empty when unknown.
std::string ModuleFileOf(const void* address);

// --- The process and the machine ------------------------------------------------

// The value of an environment variable; null when it is not set.
const char* Environment(const char* name);
// The time now, since 1970 in UTC.
bool Now(std::timespec& now);
// A clock that only goes forward, in microseconds.
long long MonotonicMicroseconds();
// The breakdown of a time in UTC.
bool UtcParts(long long seconds, std::tm& parts);
void SleepMicroseconds(unsigned long long microseconds);
int ProcessId();
// The processor time of this process so far, in microseconds.
bool ProcessTimes(unsigned long long& system, unsigned long long& user);
// The name of this machine; with `canonical` as its name service knows it.
bool HostName(std::string& name);
bool CanonicalHostName(const std::string& host, std::string& name);

struct VolumeStatus {
  unsigned long magic = 0;  // the file system's type number
  unsigned long long freeBytes = 0;
  unsigned long long totalBytes = 0;
};
bool VolumeOf(const char* path, VolumeStatus& volume);

}  // namespace sys
}  // namespace vyr

#endif
