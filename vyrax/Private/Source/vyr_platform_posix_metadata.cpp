// The platform calls of the metadata backends on POSIX systems: side-car
// files replaced by rename(2), and "user." extended attributes. See
// vyr_platform.h for the protocol of writers.
#include <fcntl.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vyr_ea_records.h"
#include "vyr_platform.h"

namespace vyr {
namespace platform {
namespace {

const char kUserPrefix[] = "user.";
constexpr std::size_t kUserPrefixLength = sizeof kUserPrefix - 1;
// The largest value the system keeps in one attribute.
constexpr std::size_t kMaxSystemValue = 65536;
// Attempts at a list that changes while it is read.
constexpr int kListAttempts = 8;

bool IsUserName(const char* name) {
  return std::strncmp(name, kUserPrefix, kUserPrefixLength) == 0;
}

int Descriptor(Handle file) { return static_cast<int>(file); }

// Further attempts at the writer lock after finding that its file was
// replaced while it was being locked.
constexpr int kLockAttempts = 8;

// Takes the writer lock of a side-car file: an exclusive flock(2), without
// waiting, on "<path>.lock", which is created for it. The lock is only good
// while that file is still the one at its name: a writer that opened it just
// before the holder removed it would otherwise hold a lock nobody else sees.
OpenResult LockWriter(const std::string& lockPath, int& fd, int& error) {
  for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
    do {
      fd = ::open(lockPath.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
      error = errno;
      return OpenResult::kFailed;
    }
    int locked;
    do {
      locked = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (locked != 0 && errno == EINTR);
    // A file system without flock(2) is written without the lock.
    if (locked != 0 && errno != ENOLCK && errno != EOPNOTSUPP && errno != EINVAL) {
      error = errno;
      ::close(fd);
      fd = -1;
      return error == EWOULDBLOCK || error == EAGAIN ? OpenResult::kHeld : OpenResult::kFailed;
    }
    struct stat held, named;
    if (::fstat(fd, &held) == 0 && ::stat(lockPath.c_str(), &named) == 0 &&
        held.st_dev == named.st_dev && held.st_ino == named.st_ino)
      return OpenResult::kOpened;
    ::close(fd);
    fd = -1;
  }
  error = EWOULDBLOCK;
  return OpenResult::kHeld;
}

// Lets go of the writer lock; the lock file goes first, while it is held.
void UnlockWriter(const std::string& lockPath, int fd) {
  ::unlink(lockPath.c_str());
  ::close(fd);
}

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

OpenResult ReplaceFile(const char* path, const void* data, std::size_t size, int& error) {
  const std::string lockPath = std::string(path) + ".lock";
  int lock = -1;
  const OpenResult locked = LockWriter(lockPath, lock, error);
  if (locked != OpenResult::kOpened) return locked;
  // The new file is written beside the store under the lock, so nobody else
  // writes it at the same time; what a writer that died left there is cut.
  const std::string fresh = std::string(path) + ".new";
  int fd;
  do {
    fd = ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0666);
  } while (fd < 0 && errno == EINTR);
  bool ok = fd >= 0;
  if (!ok) error = errno;
  ok = ok && WriteAll(fd, static_cast<const unsigned char*>(data), size, error);
  // The bytes reach the disk before the name does, so that not even a crash
  // of the machine leaves a torn store behind the name.
  if (ok && ::fdatasync(fd) != 0) {
    error = errno;
    ok = false;
  }
  if (fd >= 0) ::close(fd);
  if (ok && ::rename(fresh.c_str(), path) != 0) {
    error = errno;
    ok = false;
  }
  if (!ok && fd >= 0) ::unlink(fresh.c_str());
  UnlockWriter(lockPath, lock);
  return ok ? OpenResult::kOpened : OpenResult::kFailed;
}

OpenResult RemoveFile(const char* path, int& error) {
  const std::string lockPath = std::string(path) + ".lock";
  int lock = -1;
  const OpenResult locked = LockWriter(lockPath, lock, error);
  if (locked != OpenResult::kOpened) return locked;
  const bool removed = ::unlink(path) == 0;
  if (!removed) error = errno;
  ::unlink((std::string(path) + ".new").c_str());
  UnlockWriter(lockPath, lock);
  return removed ? OpenResult::kOpened : OpenResult::kFailed;
}

bool MakeFolder(const char* path, int& error) {
  if (::mkdir(path, 0777) == 0) return true;
  error = errno;
  return false;
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
    any = IsUserName(name);
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
    if (!IsUserName(name) || length - kUserPrefixLength > ea::kMaxNameLength) return true;
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
  const int fd = Descriptor(file);
  std::string wanted = std::string(kUserPrefix) + name;
  // The spelling on the file may differ in case; the exact one is tried
  // first, so that only a miss costs the list.
  std::vector<unsigned char> value(kMaxSystemValue);
  ssize_t got = ::fgetxattr(fd, wanted.c_str(), value.data(), value.size());
  if (got < 0 && errno == ENODATA) {
    std::vector<char> names;
    if (!ListNames(fd, names, error)) return false;
    bool found = false;
    ForEachName(names, [&](const char* existing, std::size_t) {
      found = IsUserName(existing) && ::strcasecmp(existing, wanted.c_str()) == 0;
      if (found) wanted = existing;
      return !found;
    });
    if (!found) return true;
    got = ::fgetxattr(fd, wanted.c_str(), value.data(), value.size());
  }
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
  ea::WriteRecord(record, 0, wanted.c_str() + kUserPrefixLength, static_cast<unsigned>(nameLength),
                  value.data(), static_cast<unsigned>(got));
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
  const unsigned valueLength = ea::ValueLength(record);

  // Other spellings of the name go first: one key has one attribute.
  std::vector<char> names;
  if (!ListNames(fd, names, error)) return false;
  bool failed = false;
  ForEachName(names, [&](const char* existing, std::size_t) {
    if (IsUserName(existing) && name != existing && ::strcasecmp(name.c_str(), existing) == 0 &&
        ::fremovexattr(fd, existing) != 0 && errno != ENODATA) {
      error = errno;
      failed = true;
    }
    return !failed;
  });
  if (failed) return false;

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
