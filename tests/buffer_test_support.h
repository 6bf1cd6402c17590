// What the buffer tests share: temporary folders and files, a look at the
// process's mappings, the log lines, and the system error inside a failure.
#ifndef VYRAX_TESTS_BUFFER_TEST_SUPPORT_H
#define VYRAX_TESTS_BUFFER_TEST_SUPPORT_H

#include <fcntl.h>
#include <ftw.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <ordonotes/ordonotes.h>
#include <vyrax/vyrax.h>

#include "vyr_platform.h"

namespace buffertest {

// A folder under /tmp, removed with everything in it at the end.
class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/vyrax-buffer-XXXXXX";
    const char* made = mkdtemp(pattern);
    if (made == nullptr) return;
    char resolved[PATH_MAX];
    // /proc/self/maps shows the resolved path.
    mPath = realpath(made, resolved) != nullptr ? resolved : made;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    if (!mPath.empty())
      nftw(mPath.c_str(), [](const char* path, const struct stat*, int, struct FTW*) { return ::remove(path); },
           16, FTW_DEPTH | FTW_PHYS);
  }
  const std::string& Path() const { return mPath; }
  std::string File(const std::string& name) const { return mPath + "/" + name; }

 private:
  std::string mPath;
};

// Bytes that differ from their neighbours, so a wrong offset shows.
inline std::vector<unsigned char> Pattern(size_t size, unsigned seed = 7) {
  std::vector<unsigned char> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>((i * 131 + seed + (i >> 8)) & 0xFF);
  return bytes;
}

inline std::string WriteFile(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

inline std::string WriteFile(const std::string& path, const std::string& text) {
  return WriteFile(path, std::vector<unsigned char>(text.begin(), text.end()));
}

// The number of mappings of `path` that the process has now.
inline unsigned MappingsOf(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  unsigned count = 0;
  std::string line;
  while (std::getline(maps, line)) {
    if (line.size() >= path.size() && line.compare(line.size() - path.size(), path.size(), path) == 0)
      ++count;
  }
  return count;
}

// Open file descriptors of the process.
inline unsigned OpenDescriptors() {
  unsigned count = 0;
  for (int fd = 0; fd < 1024; ++fd)
    if (fcntl(fd, F_GETFD) != -1) ++count;
  return count;
}

// The log lines written while it lives.
class LogCapture {
 public:
  LogCapture() { QENMESG_SetSink(&LogCapture::Take, this); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() { QENMESG_SetSink(nullptr, nullptr); }

  std::vector<std::string> Lines() {
    std::lock_guard<std::mutex> guard(mMutex);
    return mLines;
  }

 private:
  static void Take(const char* line, void* context) {
    LogCapture* self = static_cast<LogCapture*>(context);
    std::lock_guard<std::mutex> guard(self->mMutex);
    self->mLines.push_back(line);
  }
  std::mutex mMutex;
  std::vector<std::string> mLines;
};

// The system error that a failure carries as its data, or null.
inline const VYR_ESystemError* SystemErrorIn(const QEN_EException& failure) {
  const QEN_IPackable* data = failure.QEN_Data().Object();
  if (data == nullptr) return nullptr;
  return static_cast<const VYR_ESystemError*>(data->DynamicCast("VYR_ESystemError"));
}

// Element `index` of an exception's data array.
inline const QEN_TAny& DataItem(const QEN_EException& failure, unsigned index) {
  const QEN_IPackable* data = failure.QEN_Data().Object();
  const QEN_TArray* array =
      data != nullptr ? static_cast<const QEN_TArray*>(data->DynamicCast("QEN_TArray")) : nullptr;
  static const QEN_TAny nothing;
  if (array == nullptr || index >= array->Size()) return nothing;
  return (*array)[index];
}

inline std::string TextOf(const QEN_TAny& value) {
  const QEN_IPackable* object = value.Object();
  const QEN_TString* text =
      object != nullptr ? static_cast<const QEN_TString*>(object->DynamicCast("QEN_TString")) : nullptr;
  return text != nullptr ? text->c_str() : std::string();
}

// Withdraws injected faults and restores the public statics on the way out.
class PlatformGuard {
 public:
  PlatformGuard()
      : mDelay(VYR_TFileBuffer::sRetryDelay),
        mRetries(VYR_TFileBuffer::sNrOfRetries),
        mBlock(VYR_TFileBuffer::sAllocationBlock) {}
  PlatformGuard(const PlatformGuard&) = delete;
  PlatformGuard& operator=(const PlatformGuard&) = delete;
  ~PlatformGuard() {
    VYR_PlatformClearFaults();
    VYR_TFileBuffer::sRetryDelay = mDelay;
    VYR_TFileBuffer::sNrOfRetries = mRetries;
    VYR_TFileBuffer::sAllocationBlock = mBlock;
  }

 private:
  unsigned mDelay;
  unsigned mRetries;
  unsigned mBlock;
};

inline std::vector<unsigned char> BytesOf(const VYR_IBuffer& buffer) {
  const unsigned char* first = static_cast<const unsigned char*>(buffer.Buffer());
  return std::vector<unsigned char>(first, first + buffer.Size());
}

}  // namespace buffertest

#endif
