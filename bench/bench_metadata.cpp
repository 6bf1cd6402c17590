// Metadata: one committed SetKeyValue of a 1 KiB value, a Rescan and a
// GetKeyValue, on a store of 1, 100 and 1000 keys of 1 KiB, for the side-car
// backend, the extended-attribute backend and the floor that writes and
// reads the same bytes with setxattr(2) and getxattr(2) directly. And the
// side-car commit alone (lock, read the store again, merge, write, flush,
// rename) against the floor of writing the same bytes durably by hand: a
// temporary file, fdatasync(2), rename(2).
//
// The backend is chosen once per process from VYR_EMULATE_METADATA, so each
// case runs in a worker: this program started again with the variable set
// and the worker's settings in VYR_BENCH_METADATA_WORKER. The worker times
// each operation itself and hands the time back through a pipe; the rows use
// those times (manual time), so the pipe does not count.
//
// The "tmpfs" rows put the data file in /dev/shm, which keeps 1000 attributes
// of 1 KiB, so all three stand on the same file system; the "disk" rows show
// the machine's disk, where the side-car write waits for the flush and ext4
// keeps only about 4 KiB of attributes per file (so only a store of 1 key).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

const char kWorkerVariable[] = "VYR_BENCH_METADATA_WORKER";
constexpr int kCommandFd = 3;
constexpr int kAnswerFd = 4;
constexpr unsigned kValueSize = 1024;

enum class Backend {
  kSideCar = 's',
  kAttributes = 'a',
  kFloor = 'f',
  // A committed SetKeyValue alone on the side-car backend, and its floor:
  // the same bytes written durably by hand.
  kCommit = 'c',
  kCommitFloor = 'd'
};

std::string KeyOf(unsigned number) {
  std::string key = "KEY_";
  for (int digit = 0; digit < 4; ++digit, number /= 26) key += static_cast<char>('A' + number % 26);
  return key;
}

// --- The worker ---------------------------------------------------------------

bool ReadAll(int fd, void* data, size_t size) {
  char* at = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t n = ::read(fd, at, size);
    if (n <= 0) return false;
    at += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool WriteAll(int fd, const void* data, size_t size) {
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd, at, size);
    if (n <= 0) return false;
    at += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// One operation as the case does it; false when it failed.
class Operation {
 public:
  virtual ~Operation() = default;
  virtual bool Run() = 0;
};

class FrontOperation : public Operation {
 public:
  // The side-car store is written once, at its last key; attributes are
  // written one by one.
  FrontOperation(const std::string& data, unsigned keys, bool attributes)
      : mValue(kValueSize, 'v') {
    mMetadata.reset(new VYR_TMetadata(QEN_TURL::LocalToURL(data.c_str())));
    mOk = true;
    for (unsigned i = 0; i < keys; ++i) {
      const bool commit = attributes || i + 1 == keys;
      if (!mMetadata->SetKeyValue(KeyOf(i).c_str(), kValueSize, mValue.data(), commit) && commit)
        mOk = false;
    }
  }
  bool Ok() const { return mOk; }
  bool Commit() {
    mValue[0] = static_cast<char>('a' + (++mRound % 26));
    return mMetadata->SetKeyValue("KEY_AAAA", kValueSize, mValue.data(), true);
  }
  bool Run() override {
    if (!Commit()) return false;
    mMetadata->Rescan();
    std::unique_ptr<const VYR_IBuffer> value(mMetadata->GetKeyValue("KEY_AAAA"));
    return value != nullptr && value->Size() == kValueSize &&
           static_cast<const char*>(value->Buffer())[0] == mValue[0];
  }

 private:
  std::unique_ptr<VYR_TMetadata> mMetadata;
  std::string mValue;
  unsigned mRound = 0;
  bool mOk = false;
};

// Only the commit of one changed value: read the store again under the lock,
// merge, pack, write a temporary file, flush it, rename it.
class CommitOperation : public Operation {
 public:
  CommitOperation(const std::string& data, unsigned keys) : mFront(data, keys, false) {}
  bool Ok() const { return mFront.Ok(); }
  bool Run() override { return mFront.Commit(); }

 private:
  FrontOperation mFront;
};

// The floor of a commit: the bytes of the same store written to a temporary
// file, flushed with fdatasync(2) and renamed over the store.
class CommitFloorOperation : public Operation {
 public:
  CommitFloorOperation(const std::string& data, unsigned keys) {
    const std::string folder = data.substr(0, data.rfind('/'));
    mStore = folder + "/.floor.info";
    mTemporary = mStore + ".new";
    QEN_TDict store;
    const std::string value(kValueSize, 'v');
    for (unsigned i = 0; i < keys; ++i)
      store.Add(QEN_TString(KeyOf(i).c_str()), QEN_TAny(QEN_TDataBlock(value.data(), kValueSize)));
    QEN_TMemoryStream memory;
    QEN_TDataStream stream(memory);
    stream << store;
    stream.Flush();
    mBytes.assign(reinterpret_cast<const char*>(memory.Data()), memory.Length());
  }
  bool Ok() const { return !mBytes.empty(); }
  bool Run() override {
    mBytes[mBytes.size() - 1] = static_cast<char>('a' + (++mRound % 26));
    const int fd = ::open(mTemporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    const bool ok = WriteAll(fd, mBytes.data(), mBytes.size()) && ::fdatasync(fd) == 0;
    return ::close(fd) == 0 && ok && ::rename(mTemporary.c_str(), mStore.c_str()) == 0;
  }

 private:
  std::string mStore, mTemporary, mBytes;
  unsigned mRound = 0;
};

class FloorOperation : public Operation {
 public:
  FloorOperation(const std::string& data, unsigned keys) : mPath(data), mValue(kValueSize, 'v') {
    mOk = true;
    for (unsigned i = 0; i < keys; ++i)
      mOk = mOk && ::setxattr(mPath.c_str(), ("user." + KeyOf(i)).c_str(), mValue.data(),
                              kValueSize, 0) == 0;
  }
  bool Ok() const { return mOk; }
  bool Run() override {
    mValue[0] = static_cast<char>('a' + (++mRound % 26));
    if (::setxattr(mPath.c_str(), "user.KEY_AAAA", mValue.data(), kValueSize, 0) != 0) return false;
    char back[kValueSize];
    return ::getxattr(mPath.c_str(), "user.KEY_AAAA", back, sizeof back) ==
               static_cast<ssize_t>(kValueSize) &&
           back[0] == mValue[0];
  }

 private:
  std::string mPath;
  std::string mValue;
  unsigned mRound = 0;
  bool mOk = false;
};

// Serves the commands of the parent: 'r' runs one operation and answers its
// time in nanoseconds (negative when it failed), anything else ends.
[[noreturn]] void ServeAsWorker(const char* settings) {
  char backend = 0;
  unsigned keys = 0;
  char folder[4096] = {0};
  long long answer = -1;
  if (std::sscanf(settings, "%c:%u:%4095s", &backend, &keys, folder) != 3 ||
      !__QEN_INITIALIZATION_FUNCTION_VYRAX__()) {
    WriteAll(kAnswerFd, &answer, sizeof answer);
    std::_Exit(1);
  }
  const std::string data = std::string(folder) + "/page.tif";
  std::fclose(std::fopen(data.c_str(), "wb"));
  std::unique_ptr<Operation> operation;
  bool ok = false;
  try {
    if (backend == static_cast<char>(Backend::kCommit)) {
      auto commit = std::make_unique<CommitOperation>(data, keys);
      ok = commit->Ok();
      operation = std::move(commit);
    } else if (backend == static_cast<char>(Backend::kCommitFloor)) {
      auto floor = std::make_unique<CommitFloorOperation>(data, keys);
      ok = floor->Ok();
      operation = std::move(floor);
    } else if (backend == static_cast<char>(Backend::kFloor)) {
      auto floor = std::make_unique<FloorOperation>(data, keys);
      ok = floor->Ok();
      operation = std::move(floor);
    } else {
      auto front = std::make_unique<FrontOperation>(
          data, keys, backend == static_cast<char>(Backend::kAttributes));
      ok = front->Ok();
      operation = std::move(front);
    }
  } catch (...) {
    ok = false;
  }
  answer = ok ? 0 : -1;
  WriteAll(kAnswerFd, &answer, sizeof answer);
  char command = 0;
  while (ok && ReadAll(kCommandFd, &command, 1) && command == 'r') {
    const auto start = std::chrono::steady_clock::now();
    const bool done = operation->Run();
    const auto took = std::chrono::steady_clock::now() - start;
    answer = done ? std::chrono::duration_cast<std::chrono::nanoseconds>(took).count() : -1;
    if (!WriteAll(kAnswerFd, &answer, sizeof answer)) break;
  }
  operation.reset();
  std::_Exit(0);
}

// A worker runs before main, so that nothing of the benchmark starts in it.
const bool kIsWorker = [] {
  if (const char* settings = std::getenv(kWorkerVariable)) ServeAsWorker(settings);
  return false;
}();

// --- The parent -----------------------------------------------------------------

class Worker {
 public:
  Worker(Backend backend, unsigned keys, const std::string& folder) {
    char pattern[4096];
    std::snprintf(pattern, sizeof pattern, "%s/vyrax-bench-metadata-XXXXXX", folder.c_str());
    if (mkdtemp(pattern) == nullptr) return;
    mFolder = pattern;
    int commands[2], answers[2];
    if (::pipe(commands) != 0 || ::pipe(answers) != 0) return;
    mChild = ::fork();
    if (mChild == 0) {
      // Out of the way of the two numbers first, then onto them.
      const int command = ::fcntl(commands[0], F_DUPFD, 10);
      const int answer = ::fcntl(answers[1], F_DUPFD, 10);
      ::dup2(command, kCommandFd);
      ::dup2(answer, kAnswerFd);
      const std::string settings =
          std::string(1, static_cast<char>(backend)) + ":" + std::to_string(keys) + ":" + mFolder;
      ::setenv(kWorkerVariable, settings.c_str(), 1);
      ::setenv("VYR_EMULATE_METADATA", backend == Backend::kAttributes ? "off" : "yes", 1);
      ::execl("/proc/self/exe", "vyrax_bench_metadata_worker", static_cast<char*>(nullptr));
      std::_Exit(127);
    }
    ::close(commands[0]);
    ::close(answers[1]);
    mCommands = commands[1];
    mAnswers = answers[0];
    long long ready = -1;
    mOk = mChild > 0 && ReadAll(mAnswers, &ready, sizeof ready) && ready == 0;
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() {
    if (mCommands >= 0) {
      WriteAll(mCommands, "q", 1);
      ::close(mCommands);
    }
    if (mAnswers >= 0) ::close(mAnswers);
    if (mChild > 0) ::waitpid(mChild, nullptr, 0);
    if (!mFolder.empty()) std::system(("rm -rf '" + mFolder + "'").c_str());
  }
  bool Ok() const { return mOk; }
  // The seconds one operation took, or a negative number when it failed.
  double RunOnce() {
    long long nanoseconds = -1;
    if (!WriteAll(mCommands, "r", 1) || !ReadAll(mAnswers, &nanoseconds, sizeof nanoseconds))
      return -1;
    return nanoseconds < 0 ? -1 : static_cast<double>(nanoseconds) * 1e-9;
  }

 private:
  std::string mFolder;
  pid_t mChild = -1;
  int mCommands = -1;
  int mAnswers = -1;
  bool mOk = false;
};

void BM_Metadata(benchmark::State& state, Backend backend, const char* folder) {
  const unsigned keys = static_cast<unsigned>(state.range(0));
  Worker worker(backend, keys, folder);
  if (!worker.Ok()) {
    state.SkipWithError("the store could not be set up here");
    return;
  }
  for (auto _ : state) {
    const double seconds = worker.RunOnce();
    if (seconds < 0) {
      state.SkipWithError("an operation failed");
      break;
    }
    state.SetIterationTime(seconds);
  }
  state.counters["keys"] = keys;
}

BENCHMARK_CAPTURE(BM_Metadata, sidecar_tmpfs, Backend::kSideCar, "/dev/shm")
    ->Arg(1)
    ->Arg(100)
    ->Arg(1000)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Metadata, xattr_tmpfs, Backend::kAttributes, "/dev/shm")
    ->Arg(1)
    ->Arg(100)
    ->Arg(1000)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Metadata, floor_tmpfs, Backend::kFloor, "/dev/shm")
    ->Arg(1)
    ->Arg(100)
    ->Arg(1000)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Metadata, sidecar_disk, Backend::kSideCar, "/tmp")
    ->Arg(1)
    ->Arg(100)
    ->Arg(1000)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Metadata, xattr_disk, Backend::kAttributes, "/tmp")->Arg(1)->UseManualTime();
// The commit against writing the same bytes durably by hand, on the disk.
BENCHMARK_CAPTURE(BM_Metadata, commit_disk, Backend::kCommit, "/tmp")
    ->Arg(1)
    ->Arg(100)
    ->Arg(1000)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Metadata, commit_floor_disk, Backend::kCommitFloor, "/tmp")
    ->Arg(1)
    ->Arg(100)
    ->Arg(1000)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Metadata, floor_disk, Backend::kFloor, "/tmp")->Arg(1)->UseManualTime();

}  // namespace
