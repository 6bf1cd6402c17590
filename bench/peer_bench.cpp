// The binary stream of this library beside the serialisation libraries a
// client would pick instead, in one binary and one run: cereal's binary
// archive and Boost.Serialization's binary archive, each with class identity
// (a polymorphic pointer, rebuilt from its registered name) and without (a
// plain value), and a hand-written floor that copies the same fields into a
// byte vector and back. Every case packs and unpacks into a new object.
//
//   tag     a VYR_TTag: four 32-bit words
//   dict    a QEN_TDict of 100 string keys ("key0" to "key99") to int32
//   ticket  a FullInfo ticket with ten ExtendedInfo entries and a reference
//
// After the usual Google Benchmark output it prints one table per case with
// time, packed size and each one's ratio to cereal.
#include <benchmark/benchmark.h>
#include <vyrax/vyr_reference.h>
#include <vyrax/vyrax.h>

#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/base_object.hpp>
#include <boost/serialization/export.hpp>
#include <boost/serialization/map.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>
#include <cereal/archives/binary.hpp>
#include <cereal/types/map.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/polymorphic.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

#include "bench_samples.h"

namespace peer {

// --- The same data as plain C++ ------------------------------------------------------

struct Tag {
  std::uint32_t position = 16, positionHigh = 0, size = 32, sizeHigh = 0;
};

typedef std::map<std::string, std::int32_t> Dict;

struct Reference {
  std::string url;
  std::uint32_t units = 0;
  double v = 0, h = 0;
};

struct Ticket {
  std::uint32_t fillLevel = 0;
  std::map<std::string, std::uint32_t> internal;
  std::string creatorId;
  std::vector<Reference> refs;
  std::map<std::string, std::uint32_t> extended;
  std::int32_t nrPages = 0, relatedIndex = -1;
  std::uint32_t imageType = 0, imageSubtype = 0, units = 0;
  double vres = 0, hres = 0, vreal = 0, hreal = 0;
  std::uint32_t rows = 0, columns = 0;
  double margins[4] = {0, 0, 0, 0};
  std::uint32_t channelEncoding = 0, alpha = 0;
  std::uint16_t nrInks = 0;
  std::uint32_t rotation = 0;
  std::string processor, format, formatVersion;
  std::uint8_t position = 0;
  std::string file;
  std::int64_t stamp = 0;
  std::uint64_t fileSize = 0;
};

// With class identity: a value behind a polymorphic base, rebuilt by name.
struct Base {
  virtual ~Base() = default;
};
template <class T>
struct Object : Base {
  T value;
};
typedef Object<Tag> TagObject;
typedef Object<Dict> DictObject;
typedef Object<Ticket> TicketObject;

// cereal finds these through the argument's namespace.
template <class A>
void serialize(A& a, Tag& t) {
  a(t.position, t.positionHigh, t.size, t.sizeHigh);
}
template <class A>
void serialize(A& a, Reference& r) {
  a(r.url, r.units, r.v, r.h);
}
template <class A>
void serialize(A& a, Ticket& t) {
  a(t.fillLevel, t.internal, t.creatorId, t.refs, t.extended, t.nrPages, t.relatedIndex,
    t.imageType, t.imageSubtype, t.units, t.vres, t.hres, t.vreal, t.hreal, t.rows, t.columns,
    t.margins[0], t.margins[1], t.margins[2], t.margins[3], t.channelEncoding, t.alpha, t.nrInks,
    t.rotation, t.processor, t.format, t.formatVersion, t.position, t.file, t.stamp, t.fileSize);
}
template <class A>
void serialize(A&, Base&) {}
template <class A, class T>
void serialize(A& a, Object<T>& o) {
  a(o.value);
}

}  // namespace peer

CEREAL_REGISTER_TYPE(peer::TagObject)
CEREAL_REGISTER_TYPE(peer::DictObject)
CEREAL_REGISTER_TYPE(peer::TicketObject)
CEREAL_REGISTER_POLYMORPHIC_RELATION(peer::Base, peer::TagObject)
CEREAL_REGISTER_POLYMORPHIC_RELATION(peer::Base, peer::DictObject)
CEREAL_REGISTER_POLYMORPHIC_RELATION(peer::Base, peer::TicketObject)

// Boost finds these in its own namespace.
namespace boost {
namespace serialization {
template <class A>
void serialize(A& a, peer::Tag& t, unsigned) {
  a& t.position& t.positionHigh& t.size& t.sizeHigh;
}
template <class A>
void serialize(A& a, peer::Reference& r, unsigned) {
  a& r.url& r.units& r.v& r.h;
}
template <class A>
void serialize(A& a, peer::Ticket& t, unsigned) {
  a& t.fillLevel& t.internal& t.creatorId& t.refs& t.extended& t.nrPages& t.relatedIndex;
  a& t.imageType& t.imageSubtype& t.units& t.vres& t.hres& t.vreal& t.hreal& t.rows& t.columns;
  a& t.margins[0] & t.margins[1] & t.margins[2] & t.margins[3];
  a& t.channelEncoding& t.alpha& t.nrInks& t.rotation& t.processor& t.format& t.formatVersion;
  a& t.position& t.file& t.stamp& t.fileSize;
}
template <class A>
void serialize(A&, peer::Base&, unsigned) {}
template <class A, class T>
void serialize(A& a, peer::Object<T>& o, unsigned) {
  a& base_object<peer::Base>(o);
  a& o.value;
}
}  // namespace serialization
}  // namespace boost

BOOST_CLASS_EXPORT_GUID(peer::TagObject, "TagObject")
BOOST_CLASS_EXPORT_GUID(peer::DictObject, "DictObject")
BOOST_CLASS_EXPORT_GUID(peer::TicketObject, "TicketObject")

namespace {

using bench::Started;

// --- The cases in this library ---------------------------------------------------------

using bench::FullTicket;

QEN_TDict HundredEntries() {
  QEN_TDict dict;
  for (int i = 0; i < 100; ++i) dict[("key" + std::to_string(i)).c_str()] = i * 7919;
  return dict;
}

// The same data for the peers.
peer::Dict PeerDict() {
  peer::Dict dict;
  for (int i = 0; i < 100; ++i) dict["key" + std::to_string(i)] = i * 7919;
  return dict;
}

peer::Ticket PeerTicket() {
  peer::Ticket t;
  t.fillLevel = VYR_FillFullInfo;
  t.internal["version"] = 11014;
  t.creatorId = "bench";
  t.refs.push_back(peer::Reference{"file:///jobs/2024/logo.eps", VYR_MM, 10.0, 20.0});
  for (unsigned i = 0; i < 10; ++i) t.extended["key" + std::to_string(i)] = i * 1000u;
  t.nrPages = 1;
  t.imageType = VYR_TypeImage;
  t.units = VYR_Inch;
  t.vres = t.hres = 300;
  t.vreal = 11;
  t.hreal = 8.5;
  t.rows = 3300;
  t.columns = 2550;
  t.channelEncoding = VYR_Cmyk;
  t.nrInks = 4;
  t.processor = "TiffReader";
  t.format = "TIFF";
  t.formatVersion = "6.0";
  t.position = 1;
  t.file = "file:///jobs/2024/brochure.tif";
  t.stamp = 1708036934123456LL;
  t.fileSize = 5000000123ULL;
  return t;
}

// --- Round trips ---------------------------------------------------------------------

void Report(benchmark::State& state, std::size_t bytes) {
  state.counters["bytes"] = static_cast<double>(bytes);
}

void Vyrax(benchmark::State& state, const QEN_IPackable& object) {
  Started();
  std::size_t size = 0;
  for (auto _ : state) size = bench::PackAndExtract(object);
  Report(state, size);
}

// A growing byte buffer for the peers' output streams, and a view to read
// it back: no copy between the two, as with the memory streams above.
class Sink : public std::streambuf {
 public:
  std::string bytes;

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    bytes.append(s, static_cast<std::size_t>(n));
    return n;
  }
  int_type overflow(int_type c) override {
    if (c != traits_type::eof()) bytes.push_back(static_cast<char>(c));
    return c;
  }
};

class Source : public std::streambuf {
 public:
  explicit Source(std::string& bytes) { setg(&bytes[0], &bytes[0], &bytes[0] + bytes.size()); }
};

template <class T>
void Cereal(benchmark::State& state, const T& value) {
  std::size_t size = 0;
  for (auto _ : state) {
    Sink sink;
    {
      std::ostream os(&sink);
      cereal::BinaryOutputArchive out(os);
      out(value);
    }
    Source source(sink.bytes);
    std::istream is(&source);
    cereal::BinaryInputArchive in(is);
    T copy;
    in(copy);
    benchmark::DoNotOptimize(&copy);
    size = sink.bytes.size();
  }
  Report(state, size);
}

template <class T>
void CerealIdentity(benchmark::State& state, const T& value) {
  std::size_t size = 0;
  std::unique_ptr<peer::Base> object(new peer::Object<T>);
  static_cast<peer::Object<T>&>(*object).value = value;
  for (auto _ : state) {
    Sink sink;
    {
      std::ostream os(&sink);
      cereal::BinaryOutputArchive out(os);
      out(object);
    }
    Source source(sink.bytes);
    std::istream is(&source);
    cereal::BinaryInputArchive in(is);
    std::unique_ptr<peer::Base> copy;
    in(copy);
    benchmark::DoNotOptimize(copy.get());
    size = sink.bytes.size();
  }
  Report(state, size);
}

template <class T>
void Boost(benchmark::State& state, const T& value) {
  std::size_t size = 0;
  for (auto _ : state) {
    Sink sink;
    {
      boost::archive::binary_oarchive out(sink);
      out << value;
    }
    Source source(sink.bytes);
    boost::archive::binary_iarchive in(source);
    T copy;
    in >> copy;
    benchmark::DoNotOptimize(&copy);
    size = sink.bytes.size();
  }
  Report(state, size);
}

template <class T>
void BoostIdentity(benchmark::State& state, const T& value) {
  std::size_t size = 0;
  peer::Object<T> held;
  held.value = value;
  const peer::Base* object = &held;
  for (auto _ : state) {
    Sink sink;
    {
      boost::archive::binary_oarchive out(sink);
      out << object;
    }
    Source source(sink.bytes);
    boost::archive::binary_iarchive in(source);
    peer::Base* copy = nullptr;
    in >> copy;
    benchmark::DoNotOptimize(copy);
    delete copy;
    size = sink.bytes.size();
  }
  Report(state, size);
}

// --- The floor: the fields by hand ----------------------------------------------------

class Bytes {
 public:
  std::vector<unsigned char> data;
  std::size_t at = 0;

  template <class T>
  void Put(const T& value) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&value);
    data.insert(data.end(), p, p + sizeof value);
  }
  void Put(const std::string& text) {
    Put(static_cast<std::uint32_t>(text.size()));
    data.insert(data.end(), text.begin(), text.end());
  }
  template <class T>
  void Get(T& value) {
    std::memcpy(&value, &data[at], sizeof value);
    at += sizeof value;
  }
  void Get(std::string& text) {
    std::uint32_t size = 0;
    Get(size);
    text.assign(reinterpret_cast<const char*>(&data[at]), size);
    at += size;
  }
  template <class M>
  void PutMap(const M& map) {
    Put(static_cast<std::uint32_t>(map.size()));
    for (const auto& entry : map) Put(entry.first), Put(entry.second);
  }
  template <class M>
  void GetMap(M& map) {
    std::uint32_t n = 0;
    Get(n);
    for (std::uint32_t i = 0; i < n; ++i) {
      std::string key;
      Get(key);
      Get(map[key]);
    }
  }
};

void Fields(Bytes& b, peer::Tag& t, bool put) {
  if (put) return b.Put(t);
  b.Get(t);
}

void Fields(Bytes& b, peer::Dict& d, bool put) {
  if (put) return b.PutMap(d);
  b.GetMap(d);
}

void Fields(Bytes& b, peer::Ticket& t, bool put) {
  auto f = [&](auto& value) { put ? b.Put(value) : b.Get(value); };
  f(t.fillLevel);
  put ? b.PutMap(t.internal) : b.GetMap(t.internal);
  f(t.creatorId);
  std::uint32_t refs = static_cast<std::uint32_t>(t.refs.size());
  f(refs);
  t.refs.resize(refs);
  for (peer::Reference& r : t.refs) f(r.url), f(r.units), f(r.v), f(r.h);
  put ? b.PutMap(t.extended) : b.GetMap(t.extended);
  f(t.nrPages), f(t.relatedIndex), f(t.imageType), f(t.imageSubtype), f(t.units);
  f(t.vres), f(t.hres), f(t.vreal), f(t.hreal), f(t.rows), f(t.columns), f(t.margins);
  f(t.channelEncoding), f(t.alpha), f(t.nrInks), f(t.rotation), f(t.processor), f(t.format);
  f(t.formatVersion), f(t.position), f(t.file), f(t.stamp), f(t.fileSize);
}

template <class T>
void Floor(benchmark::State& state, const T& value) {
  std::size_t size = 0;
  for (auto _ : state) {
    Bytes bytes;
    Fields(bytes, const_cast<T&>(value), true);
    T copy;
    Fields(bytes, copy, false);
    benchmark::DoNotOptimize(&copy);
    size = bytes.data.size();
  }
  Report(state, size);
}

// --- Registration and the table of ratios -----------------------------------------------

const char* const kLibraries[] = {"vyrax", "cereal", "cereal+id", "boost", "boost+id", "floor"};

template <class T>
void RegisterCase(const std::string& name, std::function<const QEN_IPackable&()> ours,
                  const T& theirs) {
  auto named = [&](const char* library) { return name + "/" + library; };
  benchmark::RegisterBenchmark(named("vyrax").c_str(),
                               [ours](benchmark::State& s) { Vyrax(s, ours()); });
  benchmark::RegisterBenchmark(named("cereal").c_str(),
                               [theirs](benchmark::State& s) { Cereal(s, theirs); });
  benchmark::RegisterBenchmark(named("cereal+id").c_str(),
                               [theirs](benchmark::State& s) { CerealIdentity(s, theirs); });
  benchmark::RegisterBenchmark(named("boost").c_str(),
                               [theirs](benchmark::State& s) { Boost(s, theirs); });
  benchmark::RegisterBenchmark(named("boost+id").c_str(),
                               [theirs](benchmark::State& s) { BoostIdentity(s, theirs); });
  benchmark::RegisterBenchmark(named("floor").c_str(),
                               [theirs](benchmark::State& s) { Floor(s, theirs); });
}

struct Result {
  double ns = 0;
  double bytes = 0;
};

// Keeps each run's time and size beside the usual console output.
class Collector : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, Result> results;

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      Result& r = results[run.benchmark_name()];
      r.ns = run.GetAdjustedRealTime();
      auto bytes = run.counters.find("bytes");
      if (bytes != run.counters.end()) r.bytes = bytes->second;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

void PrintTable(const std::map<std::string, Result>& results, const char* name) {
  auto at = [&](const char* library) {
    auto found = results.find(std::string(name) + "/" + library);
    return found != results.end() ? found->second : Result();
  };
  const Result cereal = at("cereal");
  const Result cerealId = at("cereal+id");
  std::printf("\n%s\n", name);
  std::printf("  %-10s %12s %8s   %-22s %-22s\n", "library", "time (ns)", "bytes",
              "vs cereal: time, size", "vs cereal+id: time, size");
  for (const char* library : kLibraries) {
    const Result r = at(library);
    if (r.ns == 0) continue;
    std::printf("  %-10s %12.0f %8.0f   %6.2f  %6.2f          %6.2f  %6.2f\n", library, r.ns,
                r.bytes, cereal.ns > 0 ? r.ns / cereal.ns : 0,
                cereal.bytes > 0 ? r.bytes / cereal.bytes : 0,
                cerealId.ns > 0 ? r.ns / cerealId.ns : 0,
                cerealId.bytes > 0 ? r.bytes / cerealId.bytes : 0);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Started();
  static const VYR_TTag tag(16ULL, 32ULL);
  static const QEN_TDict dict = HundredEntries();
  static const VYR_TImageTicket ticket = FullTicket();
  RegisterCase(
      "tag", []() -> const QEN_IPackable& { return tag; }, peer::Tag());
  RegisterCase(
      "dict", []() -> const QEN_IPackable& { return dict; }, PeerDict());
  RegisterCase(
      "ticket", []() -> const QEN_IPackable& { return ticket; }, PeerTicket());

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  for (const char* name : {"tag", "dict", "ticket"}) PrintTable(collector.results, name);
  benchmark::Shutdown();
  return 0;
}
