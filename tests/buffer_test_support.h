// What the buffer tests share: temporary folders and files, the log lines,
// the system error inside a failure, and the platform's faults.
#ifndef VYRAX_TESTS_BUFFER_TEST_SUPPORT_H
#define VYRAX_TESTS_BUFFER_TEST_SUPPORT_H

#include <ftw.h>
#include <gtest/gtest.h>
#include <ordonotes/ordonotes.h>
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/vyr_platform.h"

namespace buffertest {

typedef std::unique_ptr<const VYR_IBuffer> Owned;

// A folder, removed with everything in it at the end. /tmp lies on the
// machine's disk; /dev/shm, where there is one, keeps larger attributes.
class TempDir {
 public:
  explicit TempDir(const char* base = "/tmp") {
    std::string pattern = std::string(base) + "/vyrax-test-XXXXXX";
    char resolved[PATH_MAX];
    // /proc/self/maps shows the resolved path.
    if (mkdtemp(&pattern[0]) != nullptr)
      mPath = realpath(pattern.c_str(), resolved) != nullptr ? resolved : pattern;
  }
  ~TempDir() {
    if (!mPath.empty())
      nftw(
          mPath.c_str(),
          [](const char* path, const struct stat*, int, struct FTW*) { return ::remove(path); }, 16,
          FTW_DEPTH | FTW_PHYS);
  }
  bool Ok() const { return !mPath.empty(); }
  const std::string& Path() const { return mPath; }
  std::string File(const std::string& name) const { return mPath + "/" + name; }

 private:
  std::string mPath;
};

// Bytes that differ from their neighbours, so a wrong offset shows.
inline std::vector<unsigned char> Pattern(size_t size, unsigned seed = 7) {
  std::vector<unsigned char> bytes(size);
  for (size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<unsigned char>((i * 131 + seed + (i >> 8)) & 0xFF);
  return bytes;
}

template <class Bytes>
inline std::string WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return path;
}

inline std::vector<unsigned char> BytesOf(const VYR_IBuffer& buffer) {
  const unsigned char* first = static_cast<const unsigned char*>(buffer.Buffer());
  return std::vector<unsigned char>(first, first + buffer.Size());
}

// The log lines written while it lives, and traces of the mask it is given
// (0: none).
class LogCapture {
 public:
  explicit LogCapture(unsigned traceMask = 0) : mSavedFlags(VYR_DebugFlag) {
    QENMESG_SetSink(&LogCapture::Take, this);
    VYR_DebugFlag |= traceMask;
  }
  ~LogCapture() {
    VYR_DebugFlag = mSavedFlags;
    QENMESG_SetSink(nullptr, nullptr);
  }
  // The lines that hold `text`, all of them by default.
  std::vector<std::string> With(const std::string& text = std::string()) {
    std::lock_guard<std::mutex> guard(mMutex);
    std::vector<std::string> found;
    for (const std::string& line : mLines)
      if (line.find(text) != std::string::npos) found.push_back(line);
    return found;
  }
  size_t Count(const std::string& text) { return With(text).size(); }

 private:
  static void Take(const char* line, void* context) {
    LogCapture* self = static_cast<LogCapture*>(context);
    std::lock_guard<std::mutex> guard(self->mMutex);
    self->mLines.push_back(line);
  }
  std::mutex mMutex;
  std::vector<std::string> mLines;
  unsigned mSavedFlags;
};

// The text in an exception's data, or in element `index` of its data array.
inline std::string TextOf(const QEN_TAny& value) {
  const QEN_TString* text = value.DynamicCast<QEN_TString>();
  return text != nullptr ? text->c_str() : std::string();
}
inline const QEN_TAny& DataItem(const QEN_EException& failure, unsigned index) {
  static const QEN_TAny nothing;
  const QEN_TArray* array = failure.QEN_Data().DynamicCast<QEN_TArray>();
  return array != nullptr && index < array->Size() ? (*array)[index] : nothing;
}

// Checks the system error inside a failure: its number, the system's text for
// it and, where given, the name it was about.
inline void ExpectSystemError(const QEN_EException& failure, int code,
                              const std::string& name = std::string()) {
  const VYR_ESystemError* system = failure.QEN_Data().DynamicCast<VYR_ESystemError>();
  ASSERT_NE(system, nullptr);
  EXPECT_EQ(DataItem(*system, 0).AsInt64(), code);
  EXPECT_EQ(TextOf(DataItem(*system, 1)), std::strerror(code));
  EXPECT_TRUE(name.empty() || TextOf(DataItem(*system, 2)) == name) << TextOf(DataItem(*system, 2));
}

// Withdraws injected faults and restores the public statics on the way out.
class PlatformGuard {
 public:
  ~PlatformGuard() {
    VYR_PlatformClearFaults();
    VYR_TFileBuffer::sRetryDelay = mDelay;
    VYR_TFileBuffer::sNrOfRetries = mRetries;
    VYR_TFileBuffer::sAllocationBlock = mBlock;
  }

 private:
  unsigned mDelay = VYR_TFileBuffer::sRetryDelay;
  unsigned mRetries = VYR_TFileBuffer::sNrOfRetries;
  unsigned mBlock = VYR_TFileBuffer::sAllocationBlock;
};

}  // namespace buffertest

#endif
