// What the metadata tests share: temporary folders, files and their times,
// the lines of the log and the traces, and child processes.
#ifndef VYRAX_TESTS_METADATA_TEST_SUPPORT_H
#define VYRAX_TESTS_METADATA_TEST_SUPPORT_H

#include <dirent.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace metadatatest {

using buffertest::Owned;
using buffertest::TempDir;
using test_support::ReadFile;

inline std::string WriteFile(const std::string& path, const std::string& bytes) {
  return buffertest::WriteFile(path, bytes);
}

// The inode of a file, or 0 when there is none.
inline ino_t InodeOf(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}
inline bool Exists(const std::string& path) { return InodeOf(path) != 0; }

// The names in a folder, without "." and "..", sorted.
inline std::vector<std::string> Entries(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(folder.c_str())) {
    while (const struct dirent* entry = ::readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

inline QEN_TURL UrlOf(const std::string& path) { return QEN_TURL::LocalToURL(path.c_str()); }

// Sets the modification time of a file, to the nanosecond.
inline bool SetModificationTime(const std::string& path, long long seconds, long nanoseconds) {
  const struct timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), nanoseconds}};
  return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

inline std::string BytesOf(const VYR_IBuffer* buffer) {
  return buffer ? std::string(static_cast<const char*>(buffer->Buffer()), buffer->Size()) : "";
}

// The value of `key` as bytes, or "<none>" (the attribute store throws for
// an absent key).
inline std::string ValueOf(VYR_IMetadata& metadata, const char* key) {
  try {
    Owned value(metadata.GetKeyValue(key));
    return value ? BytesOf(value.get()) : std::string("<none>");
  } catch (const VYR_EMetadataFileDoesNotExist&) {
    return "<none>";
  }
}

inline bool Store(VYR_IMetadata& metadata, const char* key, const std::string& bytes,
                  bool commit = true) {
  return metadata.SetKeyValue(key, static_cast<unsigned>(bytes.size()), bytes.data(), commit);
}

// The keys of a list, in order.
inline std::vector<std::string> Keys(const QEN_TList& list) {
  std::vector<std::string> keys;
  for (const QEN_TListKey* key = list.KeyAtHead(); key != nullptr; key = key->Next()) {
    const QEN_TString* text = key->Value().DynamicCast<QEN_TString>();
    keys.push_back(text != nullptr ? text->c_str() : "<not a string>");
  }
  return keys;
}

typedef buffertest::LogCapture Lines;

// Runs `body` in a child process; its result is the child's exit status.
template <class Body>
pid_t Spawn(Body body) {
  const pid_t child = ::fork();
  if (child == 0) {
    int status = 99;
    try {
      status = body();
    } catch (...) {
    }
    ::_exit(status);
  }
  return child;
}

// The exit status of a child, or -1 when it did not end by itself.
inline int Wait(pid_t child) {
  int status = 0;
  if (::waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A child process, which knows nothing of this library, that holds `path`
// until it is killed: under an exclusive flock, under a shared one as a
// reader of this library does, or open for writing as a copy in progress
// does. Returns once it holds the file.
class LockHolder {
 public:
  enum Hold { kExclusive, kShared, kWriting };
  explicit LockHolder(const std::string& path, Hold how = kExclusive) {
    int ready[2];
    if (::pipe(ready) != 0) return;
    mChild = ::fork();
    if (mChild == 0) {
      ::close(ready[0]);
      const int flags[] = {O_RDWR | O_CREAT, O_RDONLY, O_WRONLY | O_APPEND};
      const int fd = ::open(path.c_str(), flags[how], 0644);
      const bool locked = how == kWriting || ::flock(fd, how == kShared ? LOCK_SH : LOCK_EX) == 0;
      const char ok = fd >= 0 && locked ? 'y' : 'n';
      if (::write(ready[1], &ok, 1) != 1) ::_exit(1);
      for (;;) ::pause();
    }
    ::close(ready[1]);
    char ok = 'n';
    mHeld = mChild > 0 && ::read(ready[0], &ok, 1) == 1 && ok == 'y';
    ::close(ready[0]);
  }
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;
  ~LockHolder() { Release(); }
  bool Held() const { return mHeld; }
  void Release() {
    if (mChild <= 0) return;
    ::kill(mChild, SIGKILL);
    ::waitpid(mChild, nullptr, 0);
    mChild = -1;
  }

 private:
  pid_t mChild = -1;
  bool mHeld = false;
};

}  // namespace metadatatest

#endif
