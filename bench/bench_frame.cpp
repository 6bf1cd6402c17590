// The class frame and the binary stream, each beside its floor: a hand-written
// copy of the same fields into a byte vector and back, and the language's own
// dynamic_cast.
#include <benchmark/benchmark.h>
#include <vyrax/vyrax.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_samples.h"

namespace {

using bench::PackAndExtract;
using bench::Started;

void BM_TagPackExtract(benchmark::State& state) {
  Started();
  VYR_TTag tag(0x100000002ULL, 0x300000004ULL);
  for (auto _ : state) PackAndExtract(tag);
}
BENCHMARK(BM_TagPackExtract);

// The floor: the four words into a byte vector and back into a new tag.
void BM_TagFloor(benchmark::State& state) {
  VYR_TTag tag(0x100000002ULL, 0x300000004ULL);
  for (auto _ : state) {
    std::vector<unsigned char> bytes(16);
    unsigned words[4] = {tag.Position(), tag.PositionHigh(), tag.Size(), tag.SizeHigh()};
    std::memcpy(bytes.data(), words, sizeof words);
    unsigned back[4];
    std::memcpy(back, bytes.data(), sizeof back);
    std::unique_ptr<VYR_TTag> copy(new VYR_TTag(back[0], back[1], back[2], back[3]));
    benchmark::DoNotOptimize(copy.get());
  }
}
BENCHMARK(BM_TagFloor);

QEN_TDict HundredEntries() {
  QEN_TDict dict;
  for (unsigned i = 0; i < 100; ++i)
    dict.Add(QEN_TString(("key" + std::to_string(i)).c_str()), QEN_TAny(i));
  return dict;
}

void BM_DictPackExtract(benchmark::State& state) {
  Started();
  QEN_TDict dict = HundredEntries();
  for (auto _ : state) PackAndExtract(dict);
}
BENCHMARK(BM_DictPackExtract);

// The floor: the same strings and numbers through a byte vector into a
// std::vector of pairs.
void BM_DictFloor(benchmark::State& state) {
  std::vector<std::pair<std::string, unsigned>> entries;
  for (unsigned i = 0; i < 100; ++i) entries.emplace_back("key" + std::to_string(i), i);
  for (auto _ : state) {
    std::vector<unsigned char> bytes;
    for (const auto& entry : entries) {
      unsigned length = static_cast<unsigned>(entry.first.size());
      const unsigned char* p = reinterpret_cast<const unsigned char*>(&length);
      bytes.insert(bytes.end(), p, p + 4);
      bytes.insert(bytes.end(), entry.first.begin(), entry.first.end());
      p = reinterpret_cast<const unsigned char*>(&entry.second);
      bytes.insert(bytes.end(), p, p + 4);
    }
    std::vector<std::pair<std::string, unsigned>> back;
    size_t at = 0;
    while (at < bytes.size()) {
      unsigned length, value;
      std::memcpy(&length, &bytes[at], 4);
      std::string key(reinterpret_cast<const char*>(&bytes[at + 4]), length);
      std::memcpy(&value, &bytes[at + 4 + length], 4);
      back.emplace_back(std::move(key), value);
      at += 8 + length;
    }
    benchmark::DoNotOptimize(back.data());
  }
}
BENCHMARK(BM_DictFloor);

// Three levels of class bases above the object: QEN_ESyntaxError ->
// QEN_EStreamException -> QEN_EException, whose interfaces hold the target.
void BM_DynamicCastByName(benchmark::State& state) {
  Started();
  QEN_ESyntaxError error;
  QEN_IInterface* object = &static_cast<QEN_IPackable&>(error);
  for (auto _ : state) {
    void* printable = object->DynamicCast("QEN_IPrintable");
    benchmark::DoNotOptimize(printable);
  }
}
BENCHMARK(BM_DynamicCastByName);

void BM_DynamicCastLanguage(benchmark::State& state) {
  QEN_ESyntaxError error;
  QEN_IInterface* object = &static_cast<QEN_IPackable&>(error);
  for (auto _ : state) {
    QEN_IPrintable* printable = dynamic_cast<QEN_IPrintable*>(object);
    benchmark::DoNotOptimize(printable);
  }
}
BENCHMARK(BM_DynamicCastLanguage);

}  // namespace
