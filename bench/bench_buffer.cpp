// Buffers beside their floors, on files from 4 KiB to 1 GiB (the argument
// is the size in KiB) that sit in the page cache:
//   - opening a whole file through VYR_IBuffer::Create, against the bare
//     open + fstat + mmap + close (and munmap) of the same file, and against
//     reading the whole file into memory;
//   - a second Create of a path that is open already, against the first;
//   - summing every byte through Buffer(), against summing after a read();
//   - Duplicate(false), Slice, a step of a chain of slices and operator()
//     inside the view, per call.
// The files are written once, with real bytes, into a temporary folder that
// is removed at exit.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_samples.h"

namespace {

using bench::Started;

// The test files, made on first use and removed at exit.
class Files {
 public:
  static Files& Get() {
    static Files files;
    return files;
  }
  // The path of a file of `kibibytes` KiB, read once so that it is cached.
  const std::string& Path(long kibibytes) {
    auto found = mPaths.find(kibibytes);
    if (found != mPaths.end()) return found->second;
    const std::string path = mDir + "/file-" + std::to_string(kibibytes) + "KiB.bin";
    std::vector<unsigned char> chunk(1 << 10);
    FILE* out = std::fopen(path.c_str(), "wb");
    for (long i = 0; out != nullptr && i < kibibytes; ++i) {
      for (size_t j = 0; j < chunk.size(); ++j) chunk[j] = static_cast<unsigned char>(j * 7 + i);
      std::fwrite(chunk.data(), 1, chunk.size(), out);
    }
    if (out != nullptr) std::fclose(out);
    const int fd = open(path.c_str(), O_RDONLY);
    while (fd >= 0 && read(fd, chunk.data(), chunk.size()) > 0) {
    }
    if (fd >= 0) close(fd);
    return mPaths[kibibytes] = path;
  }

 private:
  Files() {
    char pattern[] = "/tmp/vyrax-bench-XXXXXX";
    const char* made = mkdtemp(pattern);
    mDir = made != nullptr ? made : "/tmp";
  }
  ~Files() {
    for (const auto& entry : mPaths) std::remove(entry.second.c_str());
    rmdir(mDir.c_str());
  }
  std::string mDir;
  std::map<long, std::string> mPaths;
};

void FileSizes(benchmark::internal::Benchmark* bench) {
  for (long kibibytes : {4L, 64L, 1024L, 16L << 10, 256L << 10, 1L << 20}) bench->Arg(kibibytes);
  bench->Unit(benchmark::kMicrosecond);
}

__attribute__((noinline)) unsigned long long Sum(const unsigned char* bytes, size_t size) {
  unsigned long long sum = 0;
  for (size_t i = 0; i < size; ++i) sum += bytes[i];
  return sum;
}

// --- Opening a whole file ---------------------------------------------------------

void BM_CreateWholeFile(benchmark::State& state) {
  Started();
  const QEN_TString path(Files::Get().Path(state.range(0)).c_str());
  for (auto _ : state) {
    std::unique_ptr<const VYR_IBuffer> buffer(VYR_IBuffer::Create(path, 0, 0, 0));
    benchmark::DoNotOptimize(buffer->Buffer());
  }
}
BENCHMARK(BM_CreateWholeFile)->Apply(FileSizes);

// The floor: the system calls of a mapping and nothing else.
void BM_FloorOpenStatMapClose(benchmark::State& state) {
  const std::string path = Files::Get().Path(state.range(0));
  for (auto _ : state) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    fstat(fd, &info);
    void* view = mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    benchmark::DoNotOptimize(view);
    munmap(view, static_cast<size_t>(info.st_size));
  }
}
BENCHMARK(BM_FloorOpenStatMapClose)->Apply(FileSizes);

void BM_ReadWholeFile(benchmark::State& state) {
  const std::string path = Files::Get().Path(state.range(0));
  for (auto _ : state) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    fstat(fd, &info);
    const size_t size = static_cast<size_t>(info.st_size);
    unsigned char* bytes = static_cast<unsigned char*>(std::malloc(size));
    size_t have = 0;
    while (have < size) {
      const ssize_t got = read(fd, bytes + have, size - have);
      if (got <= 0) break;
      have += static_cast<size_t>(got);
    }
    close(fd);
    benchmark::DoNotOptimize(bytes);
    std::free(bytes);
  }
}
BENCHMARK(BM_ReadWholeFile)->Apply(FileSizes);

// A path that is open already: one open and one close, no new mapping.
void BM_CreateSecondOpen(benchmark::State& state) {
  Started();
  const QEN_TString path(Files::Get().Path(state.range(0)).c_str());
  std::unique_ptr<const VYR_IBuffer> keeper(VYR_IBuffer::Create(path, 0, 0, 0));
  for (auto _ : state) {
    std::unique_ptr<const VYR_IBuffer> buffer(VYR_IBuffer::Create(path, 0, 0, 0));
    benchmark::DoNotOptimize(buffer->Buffer());
  }
}
BENCHMARK(BM_CreateSecondOpen)->Apply(FileSizes);

// --- Summing every byte --------------------------------------------------------------

void BM_SumThroughBuffer(benchmark::State& state) {
  Started();
  const QEN_TString path(Files::Get().Path(state.range(0)).c_str());
  for (auto _ : state) {
    std::unique_ptr<const VYR_IBuffer> buffer(VYR_IBuffer::Create(path, 0, 0, 0));
    benchmark::DoNotOptimize(
        Sum(static_cast<const unsigned char*>(buffer->Buffer()), buffer->Size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0) * (1 << 10));
}
BENCHMARK(BM_SumThroughBuffer)->Apply(FileSizes);

// Read into memory that is there already: the read's best case.
void BM_SumThroughRead(benchmark::State& state) {
  const std::string path = Files::Get().Path(state.range(0));
  const size_t size = static_cast<size_t>(state.range(0)) << 10;
  std::vector<unsigned char> memory(size);
  for (auto _ : state) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    size_t have = 0;
    while (have < size) {
      const ssize_t got = read(fd, memory.data() + have, size - have);
      if (got <= 0) break;
      have += static_cast<size_t>(got);
    }
    close(fd);
    benchmark::DoNotOptimize(Sum(memory.data(), have));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0) * (1 << 10));
}
BENCHMARK(BM_SumThroughRead)->Apply(FileSizes);

// --- The small operations, per call -----------------------------------------------------

void BM_DuplicateShared(benchmark::State& state) {
  Started();
  const QEN_TString path(Files::Get().Path(1024).c_str());
  std::unique_ptr<const VYR_IBuffer> file(VYR_IBuffer::Create(path, 0, 0, 0));
  for (auto _ : state) {
    std::unique_ptr<const VYR_IBuffer> twin(file->Duplicate(false));
    benchmark::DoNotOptimize(twin.get());
  }
}
BENCHMARK(BM_DuplicateShared);

void BM_Slice(benchmark::State& state) {
  Started();
  const QEN_TString path(Files::Get().Path(1024).c_str());
  std::unique_ptr<const VYR_IBuffer> file(VYR_IBuffer::Create(path, 0, 0, 0));
  unsigned offset = 0;
  for (auto _ : state) {
    std::unique_ptr<const VYR_IBuffer> slice(file->Slice(offset, 4096, false));
    benchmark::DoNotOptimize(slice->Buffer());
    offset = (offset + 4096) & ((1u << 20) - 8192);
  }
}
BENCHMARK(BM_Slice);

// A slice of the previous slice, which then goes: the cost of a step does
// not grow with the length of the chain.
void BM_SliceOfSliceChain(benchmark::State& state) {
  Started();
  const QEN_TString path(Files::Get().Path(1024).c_str());
  std::unique_ptr<const VYR_IBuffer> file(VYR_IBuffer::Create(path, 0, 0, 0));
  const VYR_IBuffer* current = file->Slice(0, 0, false);
  for (auto _ : state) {
    if (current->Size() < 2) {
      delete current;
      current = file->Slice(0, 0, false);
    }
    const VYR_IBuffer* next = current->Slice(1, 0, false);
    delete current;
    current = next;
    benchmark::DoNotOptimize(current->Buffer());
  }
  delete current;
}
BENCHMARK(BM_SliceOfSliceChain);

void BM_OperatorInsideView(benchmark::State& state) {
  Started();
  const QEN_TString path(Files::Get().Path(1024).c_str());
  std::unique_ptr<const VYR_IBuffer> file(VYR_IBuffer::Create(path, 0, 0, 0));
  unsigned long long offset = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize((*file)(offset, 4096));
    offset = (offset + 4096) & ((1u << 20) - 8192);
  }
}
BENCHMARK(BM_OperatorInsideView);

// The language's own floor for the small operations: one heap object made
// and deleted.
void BM_FloorNewDelete(benchmark::State& state) {
  for (auto _ : state) {
    std::unique_ptr<VYR_TTag> tag(new VYR_TTag(1u, 2u, 3u, 4u));
    benchmark::DoNotOptimize(tag.get());
  }
}
BENCHMARK(BM_FloorNewDelete);

}  // namespace
