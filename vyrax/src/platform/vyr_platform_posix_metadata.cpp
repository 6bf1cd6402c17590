// The platform calls of the metadata backends on POSIX systems: side-car
// files replaced by rename(2), and "user." extended attributes. See
// vyr_platform.h for the protocol of writers.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "platform/vyr_ea_records.h"
#include "platform/vyr_platform.h"

namespace vyr {
namespace platform {
namespace {

const char kUserPrefix[] = "user.";
constexpr std::size_t kUserPrefixLength = sizeof kUserPrefix - 1;
// The largest value the system keeps in one attribute.
constexpr std::size_t kMaxSystemValue = 65536;
// Attempts at a list that changes while it is read.
constexpr int kListAttempts = 8;

// Whether an attribute's full name is "user." and a metadata key: one or
// more of "A" to "Z" and "_", which is exactly what key normalisation leaves
// as it is. Everything else belongs to other programs and is left alone.
bool IsKeyName(const char* name) {
  if (std::strncmp(name, kUserPrefix, kUserPrefixLength) != 0) return false;
  const char* key = name + kUserPrefixLength;
  if (*key == '\0') return false;
  for (; *key != '\0'; ++key)
    if (!((*key >= 'A' && *key <= 'Z') || *key == '_')) return false;
  return true;
}

int Descriptor(Handle file) { return static_cast<int>(file); }

bool IsMissingError(int error) { return error == ENOENT || error == ENOTDIR; }

// What a temporary file of a store has behind the store's name.
const char kNewInfix[] = ".new-";

bool WriteAll(int fd, const unsigned char* data, std::size_t size, int& error) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::write(fd, data + done, size - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// The names of the file's attributes, each null-terminated, of all
// namespaces.
bool ListNames(int fd, std::vector<char>& names, int& error) {
  for (int attempt = 0; attempt < kListAttempts; ++attempt) {
    const ssize_t needed = ::flistxattr(fd, nullptr, 0);
    if (needed < 0) {
      error = errno;
      return false;
    }
    names.resize(static_cast<std::size_t>(needed));
    if (needed == 0) return true;
    const ssize_t got = ::flistxattr(fd, names.data(), names.size());
    if (got >= 0) {
      names.resize(static_cast<std::size_t>(got));
      return true;
    }
    // The list grew between the two calls.
    if (errno != ERANGE) {
      error = errno;
      return false;
    }
  }
  error = ERANGE;
  return false;
}

// Calls `visit` with each name of the list; stops when it gives false.
template <class Visit>
void ForEachName(const std::vector<char>& names, Visit visit) {
  std::size_t at = 0;
  while (at < names.size()) {
    const char* name = names.data() + at;
    const std::size_t length = strnlen(name, names.size() - at);
    if (!visit(name, length)) return;
    at += length + 1;
  }
}

}  // namespace

// --- Side-car files ----------------------------------------------------------------

FolderResult OpenStoreFolder(const char* path, bool create, Handle& folder, int& error) {
  folder = kInvalidHandle;
  for (int attempt = 0; attempt < 2; ++attempt) {
    int fd;
    do {
      fd = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0) {
      folder = fd;
      return FolderResult::kOpened;
    }
    error = errno;
    // A link, or something else than a folder, at the name itself: refused.
    // ENOTDIR may also mean that a folder above is missing, which lstat tells.
    struct stat info;
    if (error == ELOOP || error == ENOTDIR) {
      if (::lstat(path, &info) == 0) return FolderResult::kRefused;
      return FolderResult::kMissing;
    }
    if (error != ENOENT) return FolderResult::kFailed;
    if (!create || attempt > 0) return FolderResult::kMissing;
    // Made here, or by another writer at the same time; opened again either
    // way, without trusting what is at the name now.
    if (::mkdir(path, 0777) != 0 && errno != EEXIST) {
      error = errno;
      return IsMissingError(error) ? FolderResult::kMissing : FolderResult::kFailed;
    }
  }
  return FolderResult::kFailed;
}

StoreRead ReadStore(Handle folder, const char* name, unsigned long long limit,
                    std::vector<unsigned char>& bytes, int& error) {
  bytes.clear();
  int fd;
  // Non-blocking, so that a FIFO at the name does not wait for a writer.
  do {
    fd = ::openat(Descriptor(folder), name,
                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    error = errno;
    if (error == ENOENT) return StoreRead::kAbsent;
    return error == ELOOP ? StoreRead::kForeign : StoreRead::kFailed;
  }
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  int locked;
  do {
    locked = ::flock(fd, LOCK_SH | LOCK_NB);
  } while (locked != 0 && errno == EINTR);
  // A file system without flock(2) is read without the lock.
  if (locked != 0 && errno != ENOLCK && errno != EOPNOTSUPP && errno != EINVAL) {
    error = errno;
    return error == EWOULDBLOCK || error == EAGAIN ? StoreRead::kHeld : StoreRead::kFailed;
  }
  struct stat info;
  if (::fstat(fd, &info) != 0) {
    error = errno;
    return StoreRead::kFailed;
  }
  if (!S_ISREG(info.st_mode) || static_cast<unsigned long long>(info.st_size) > limit) {
    error = S_ISREG(info.st_mode) ? EFBIG : EINVAL;
    return StoreRead::kForeign;
  }
  if (info.st_size == 0) return StoreRead::kAbsent;
  try {
    bytes.resize(static_cast<std::size_t>(info.st_size));
  } catch (...) {
    error = ENOMEM;
    return StoreRead::kFailed;
  }
  // The file may shrink or grow while it is read (a writer that ignores the
  // lock): what counts is exactly the size it had, or the read fails.
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n =
        ::pread(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error = n < 0 ? errno : EIO;
      bytes.clear();
      return StoreRead::kFailed;
    }
    done += static_cast<std::size_t>(n);
  }
  return StoreRead::kRead;
}

OpenResult LockStore(Handle folder, const char* name, unsigned waitMilliseconds, Handle& lock,
                     int& error) {
  lock = kInvalidHandle;
  const std::string lockName = std::string(name) + ".lock";
  const int dir = Descriptor(folder);
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMilliseconds);
  // The pause between two looks at a held lock: short at first, as a writer
  // holds it for one read and one write only.
  unsigned pauseMicroseconds = 200;
  bool removedLink = false;
  for (;;) {
    int fd;
    // Read-write: an exclusive lock over NFS needs a file open for writing.
    do {
      fd = ::openat(dir, lockName.c_str(),
                    O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0666);
    } while (fd < 0 && errno == EINTR);
    // Another user's lock file may be closed to this one for writing; a
    // local file system locks a file opened for reading just as well.
    if (fd < 0 && errno == EACCES) {
      do {
        fd = ::openat(dir, lockName.c_str(),
                      O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
      } while (fd < 0 && errno == EINTR);
    }
    if (fd < 0) {
      error = errno;
      // A link planted at the lock's name is removed, never followed; the
      // writer then makes its own lock file.
      if (error == ELOOP && !removedLink && ::unlinkat(dir, lockName.c_str(), 0) == 0) {
        removedLink = true;
        continue;
      }
      return OpenResult::kFailed;
    }
    struct stat held;
    const bool stated = ::fstat(fd, &held) == 0;
    if (!stated || !S_ISREG(held.st_mode)) {
      error = stated ? EINVAL : errno;
      ::close(fd);
      return OpenResult::kFailed;
    }
    int locked;
    do {
      locked = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (locked != 0 && errno == EINTR);
    // A file system without flock(2) is written without the lock.
    if (locked != 0 && errno != EWOULDBLOCK && errno != EAGAIN && errno != ENOLCK &&
        errno != EOPNOTSUPP && errno != EINVAL) {
      error = errno;
      ::close(fd);
      return OpenResult::kFailed;
    }
    if (locked != 0 && (errno == EWOULDBLOCK || errno == EAGAIN)) {
      ::close(fd);
      if (std::chrono::steady_clock::now() >= deadline) {
        error = EWOULDBLOCK;
        return OpenResult::kHeld;
      }
      ::usleep(pauseMicroseconds);
      pauseMicroseconds = std::min(pauseMicroseconds * 2, 10000u);
      continue;
    }
    // The lock is only good while its file is still the one at the name: the
    // writer that removed the store removed the lock file too, while holding
    // it, and a lock on that file is seen by nobody else.
    struct stat named;
    if (::fstatat(dir, lockName.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        held.st_dev == named.st_dev && held.st_ino == named.st_ino) {
      lock = fd;
      return OpenResult::kOpened;
    }
    ::close(fd);
  }
}

void UnlockStore(Handle folder, const char* name, Handle lock, bool removeLock) {
  if (removeLock) ::unlinkat(Descriptor(folder), (std::string(name) + ".lock").c_str(), 0);
  ::close(Descriptor(lock));
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
    fresh = std::string(name) + kNewInfix + std::to_string(::getpid()) + "-" +
            std::to_string(sCounter.fetch_add(1, std::memory_order_relaxed));
    if (lock != kInvalidHandle) {
      const std::string note = fresh + "\n";
      const ssize_t noted = ::pwrite(Descriptor(lock), note.data(), note.size(), 0);
      (void)noted;
    }
    do {
      fd = ::openat(dir, fresh.c_str(),
                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    error = errno;
    return false;
  }
  bool ok = WriteAll(fd, static_cast<const unsigned char*>(data), size, error);
  // The bytes reach the disk before the name does, so that not even a crash
  // of the machine leaves a torn store behind the name.
  if (ok && ::fdatasync(fd) != 0) {
    error = errno;
    ok = false;
  }
  if (::close(fd) != 0 && ok) {
    // NFS reports a failed write back at the latest here.
    error = errno;
    ok = false;
  }
  if (ok && ::renameat(dir, fresh.c_str(), dir, name) != 0) {
    error = errno;
    ok = false;
  }
  if (!ok) ::unlinkat(dir, fresh.c_str(), 0);
  return ok;
}

bool RemoveStore(Handle folder, const char* name, int& error) {
  if (::unlinkat(Descriptor(folder), name, 0) == 0 || errno == ENOENT) return true;
  error = errno;
  return false;
}

bool SetStoreAside(Handle folder, const char* name, std::string& aside, int& error) {
  static std::atomic<unsigned> sCounter{0};
  const std::time_t now = std::time(nullptr);
  struct tm parts;
  char stamp[32] = "0";
  if (::gmtime_r(&now, &parts) != nullptr)
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &parts);
  aside = std::string(name) + ".unreadable-" + stamp + "-" + std::to_string(::getpid()) + "-" +
          std::to_string(sCounter.fetch_add(1, std::memory_order_relaxed));
  // rename(2) moves a link itself, never what it points to.
  if (::renameat(Descriptor(folder), name, Descriptor(folder), aside.c_str()) == 0) return true;
  error = errno;
  return false;
}

void RemoveLeftovers(Handle folder, const char* name, Handle lock) {
  // The lock file holds the name of the last writer's temporary file, ended
  // by a line end. Only a name of this store's temporary files is removed,
  // whatever else somebody wrote there.
  char noted[256];
  const ssize_t length = ::pread(Descriptor(lock), noted, sizeof noted - 1, 0);
  if (length <= 0) return;
  noted[length] = '\0';
  char* const end = std::strchr(noted, '\n');
  if (end == nullptr) return;
  *end = '\0';
  const std::string prefix = std::string(name) + kNewInfix;
  if (std::strncmp(noted, prefix.c_str(), prefix.size()) != 0 || std::strchr(noted, '/') != nullptr)
    return;
  ::unlinkat(Descriptor(folder), noted, 0);
}

// --- Extended attributes -----------------------------------------------------------

bool OpenForAttributes(const char* path, Handle& file, int& error) {
  file = kInvalidHandle;
  int fd;
  // Non-blocking, so that a FIFO does not wait for a writer.
  do {
    fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    error = errno;
    return false;
  }
  file = fd;
  return true;
}

bool CanWriteAttributes(const char* path, int& error) {
  if (::faccessat(AT_FDCWD, path, W_OK, AT_EACCESS) == 0) return true;
  error = errno;
  return false;
}

bool HasAttributes(Handle file, bool& any, int& error) {
  any = false;
  std::vector<char> names;
  if (!ListNames(Descriptor(file), names, error)) return false;
  ForEachName(names, [&](const char* name, std::size_t) {
    any = IsKeyName(name);
    return !any;
  });
  return true;
}

bool ReadAttributes(Handle file, unsigned char*& block, unsigned& size, int& error) {
  block = nullptr;
  size = 0;
  const int fd = Descriptor(file);
  std::vector<char> names;
  if (!ListNames(fd, names, error)) return false;

  // Each value is read in one call into room for the largest one there can
  // be, and kept until the block is built.
  struct Attribute {
    const char* name;  // without the prefix, inside `names`
    std::size_t nameLength;
    std::size_t valueAt;
    std::size_t valueLength;
  };
  std::vector<Attribute> attributes;
  std::vector<unsigned char> values;
  std::vector<unsigned char> value(kMaxSystemValue);
  bool failed = false;
  ForEachName(names, [&](const char* name, std::size_t length) {
    if (!IsKeyName(name) || length - kUserPrefixLength > ea::kMaxNameLength) return true;
    const ssize_t got = ::fgetxattr(fd, name, value.data(), value.size());
    if (got < 0) {
      // Removed since the list was read: it is not there any more.
      if (errno == ENODATA) return true;
      error = errno;
      failed = true;
      return false;
    }
    // Not representable in a record's 16-bit length.
    if (static_cast<std::size_t>(got) > 0xFFFF) return true;
    attributes.push_back({name + kUserPrefixLength, length - kUserPrefixLength, values.size(),
                          static_cast<std::size_t>(got)});
    values.insert(values.end(), value.begin(), value.begin() + got);
    return true;
  });
  if (failed) return false;
  if (attributes.empty()) return true;

  std::size_t total = 0;
  for (const Attribute& attribute : attributes)
    total += ea::RecordSize(attribute.nameLength, attribute.valueLength);
  if (total > 0xFFFFFFFFu) {
    error = EOVERFLOW;
    return false;
  }
  unsigned char* records = static_cast<unsigned char*>(std::calloc(total, 1));
  if (records == nullptr) {
    error = ENOMEM;
    return false;
  }
  std::size_t at = 0;
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    const Attribute& attribute = attributes[i];
    const std::size_t recordSize = ea::RecordSize(attribute.nameLength, attribute.valueLength);
    const bool last = i + 1 == attributes.size();
    ea::WriteRecord(records + at, last ? 0u : static_cast<unsigned>(recordSize), attribute.name,
                    static_cast<unsigned>(attribute.nameLength), values.data() + attribute.valueAt,
                    static_cast<unsigned>(attribute.valueLength));
    at += recordSize;
  }
  block = records;
  size = static_cast<unsigned>(total);
  return true;
}

bool ReadAttribute(Handle file, const char* name, unsigned char*& block, unsigned& size,
                   int& error) {
  block = nullptr;
  size = 0;
  const std::string wanted = std::string(kUserPrefix) + name;
  // A name that is no key is nobody's value here.
  if (!IsKeyName(wanted.c_str())) return true;
  std::vector<unsigned char> value(kMaxSystemValue);
  const ssize_t got = ::fgetxattr(Descriptor(file), wanted.c_str(), value.data(), value.size());
  if (got < 0) {
    if (errno == ENODATA) return true;
    error = errno;
    return false;
  }
  const std::size_t nameLength = wanted.size() - kUserPrefixLength;
  if (nameLength > ea::kMaxNameLength || static_cast<std::size_t>(got) > 0xFFFF) return true;
  const std::size_t total = ea::RecordSize(nameLength, static_cast<std::size_t>(got));
  unsigned char* record = static_cast<unsigned char*>(std::calloc(total, 1));
  if (record == nullptr) {
    error = ENOMEM;
    return false;
  }
  ea::WriteRecord(record, 0, name, static_cast<unsigned>(nameLength), value.data(),
                  static_cast<unsigned>(got));
  block = record;
  size = static_cast<unsigned>(total);
  return true;
}

bool WriteAttribute(Handle file, const unsigned char* record, unsigned size, int& error) {
  if (record == nullptr || !ea::RecordFits(record, size, 0)) {
    error = EINVAL;
    return false;
  }
  const int fd = Descriptor(file);
  const std::string name = std::string(kUserPrefix) + ea::Name(record);
  // Only keys are written: an attribute of another program is never
  // replaced or removed.
  if (!IsKeyName(name.c_str())) {
    error = EINVAL;
    return false;
  }
  const unsigned valueLength = ea::ValueLength(record);
  if (valueLength == 0) {
    if (::fremovexattr(fd, name.c_str()) == 0 || errno == ENODATA) return true;
    error = errno;
    return false;
  }
  if (::fsetxattr(fd, name.c_str(), ea::Value(record), valueLength, 0) == 0) return true;
  error = errno;
  return false;
}

}  // namespace platform
}  // namespace vyr
