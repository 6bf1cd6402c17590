// A FullInfo ticket with ten ExtendedInfo entries through its two stored
// forms, each beside its floor: the same fields copied by hand into a byte
// vector and back into a new ticket.
#include <benchmark/benchmark.h>
#include <vyrax/vyr_reference.h>
#include <vyrax/vyrax.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_samples.h"

namespace {

using bench::FullTicket;
using bench::PackAndExtract;
using bench::Started;

void BM_TicketPackExtract(benchmark::State& state) {
  Started();
  VYR_TImageTicket ticket = FullTicket();
  for (auto _ : state) PackAndExtract(ticket);
}
BENCHMARK(BM_TicketPackExtract);

void BM_TicketWriteRead(benchmark::State& state) {
  Started();
  VYR_TImageTicket ticket = FullTicket();
  for (auto _ : state) {
    QEN_TMemoryStream memory;
    QEN_THumanReadableStream out(memory);
    ticket.WriteTo(out);
    QEN_TMemoryStream source(memory.Data(), memory.Length(), memory.Length());
    QEN_THumanReadableStream in(source);
    VYR_TImageTicket copy;
    copy.ReadFrom(in);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(BM_TicketWriteRead);

// The floor: the same numbers, texts and entries appended to a byte vector
// and taken back out into a new ticket through the writer, with nothing of
// a stream: no class names, no variants, no checks.
class Bytes {
 public:
  template <class T>
  void Put(const T& value) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&value);
    mData.insert(mData.end(), p, p + sizeof value);
  }
  void PutText(const QEN_TString& text) {
    unsigned length = text.Length();
    Put(length);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text.Chars().data());
    mData.insert(mData.end(), p, p + 2 * length);
  }
  template <class T>
  T Get() {
    T value;
    std::memcpy(&value, &mData[mAt], sizeof value);
    mAt += sizeof value;
    return value;
  }
  QEN_TString GetText() {
    unsigned length = Get<unsigned>();
    QEN_TString text(reinterpret_cast<const QEN_TUniChar*>(&mData[mAt]), length);
    mAt += 2 * length;
    return text;
  }

 private:
  std::vector<unsigned char> mData;
  size_t mAt = 0;
};

void BM_TicketFloor(benchmark::State& state) {
  Started();
  const VYR_TImageTicket ticket = FullTicket();
  const VYR_TReference& reference = *ticket.ExternalRefs()[0u].DynamicCast<VYR_TReference>();
  for (auto _ : state) {
    Bytes bytes;
    bytes.Put(ticket.FillLevel());
    bytes.Put(static_cast<unsigned>(ticket.Internal("version")));
    bytes.PutText(ticket.CreatorId());
    bytes.PutText(reference.File().AsString());
    bytes.Put(static_cast<unsigned>(reference.Units()));
    bytes.Put(reference.VOffset());
    bytes.Put(reference.HOffset());
    for (QEN_TConstIterator at(ticket.ExtendedInfo()); !at.IsDone(); at++) {
      bytes.PutText(*at.Key().DynamicCast<QEN_TString>());
      bytes.Put(static_cast<unsigned>(at.Value()));
    }
    bytes.Put(ticket.NrPages());
    bytes.Put(ticket.RelatedIndex());
    bytes.Put(static_cast<unsigned>(ticket.ImageType()));
    bytes.Put(static_cast<unsigned>(ticket.ImageSubtype()));
    bytes.Put(static_cast<unsigned>(ticket.MeasurementUnits()));
    bytes.Put(ticket.VResolution());
    bytes.Put(ticket.HResolution());
    bytes.Put(ticket.VRealSize());
    bytes.Put(ticket.HRealSize());
    bytes.Put(ticket.NrRows());
    bytes.Put(ticket.NrColumns());
    bytes.Put(ticket.MarginTop());
    bytes.Put(ticket.MarginLeft());
    bytes.Put(ticket.MarginBottom());
    bytes.Put(ticket.MarginRight());
    bytes.Put(static_cast<unsigned>(ticket.ChannelEncoding()));
    bytes.Put(static_cast<unsigned>(ticket.AlphaPlane()));
    bytes.Put(ticket.NrInks());
    bytes.Put(static_cast<unsigned>(ticket.Rotation()));
    bytes.PutText(ticket.ImageProcessor());
    bytes.PutText(ticket.FileFormat());
    bytes.PutText(ticket.FileFormatVersion());
    bytes.Put(ticket.ImagePosition());
    bytes.PutText(ticket.File().AsString());
    bytes.Put(ticket.FileTimeStamp().AsMicros());
    bytes.Put(ticket.FileSize());

    VYR_TImageTicket copy;
    VYR_TTicketWriter writer(copy);
    unsigned level = bytes.Get<unsigned>();
    writer.Internal("version") = bytes.Get<unsigned>();
    writer.SetCreatorId(bytes.GetText());
    QEN_TURL url(bytes.GetText());
    VYR_TMUnits units = static_cast<VYR_TMUnits>(bytes.Get<unsigned>());
    double v = bytes.Get<double>();
    double h = bytes.Get<double>();
    writer.ExternalRefs().AddAtTail(QEN_TAny(VYR_TReference(url, units, v, h)));
    for (int i = 0; i < 10; ++i) {
      QEN_TString key = bytes.GetText();
      writer.ExtendedInfo()[key] = bytes.Get<unsigned>();
    }
    writer.SetNrPages(bytes.Get<int>());
    writer.SetRelatedIndex(bytes.Get<int>());
    writer.SetImageType(static_cast<VYR_TImageType>(bytes.Get<unsigned>()));
    writer.SetImageSubtype(static_cast<VYR_TImageSubtype>(bytes.Get<unsigned>()));
    writer.SetMeasurementUnits(static_cast<VYR_TMUnits>(bytes.Get<unsigned>()));
    writer.SetVResolution(bytes.Get<double>());
    writer.SetHResolution(bytes.Get<double>());
    writer.SetVRealSize(bytes.Get<double>());
    writer.SetHRealSize(bytes.Get<double>());
    writer.SetNrRows(bytes.Get<unsigned>());
    writer.SetNrColumns(bytes.Get<unsigned>());
    writer.SetMarginTop(bytes.Get<double>());
    writer.SetMarginLeft(bytes.Get<double>());
    writer.SetMarginBottom(bytes.Get<double>());
    writer.SetMarginRight(bytes.Get<double>());
    writer.SetChannelEncoding(static_cast<VYR_TChannelEnc>(bytes.Get<unsigned>()));
    writer.SetAlphaPlane(static_cast<VYR_TAlphaPlane>(bytes.Get<unsigned>()));
    writer.SetNrInks(bytes.Get<unsigned short>());
    writer.SetRotation(static_cast<VYR_TImageRotation>(bytes.Get<unsigned>()));
    writer.SetImageProcessor(bytes.GetText());
    writer.SetFileFormat(bytes.GetText());
    writer.SetFileFormatVersion(bytes.GetText());
    writer.SetImagePosition(bytes.Get<unsigned char>());
    QEN_TURL file(bytes.GetText());
    QEN_TTime stamp(bytes.Get<long long>());
    writer.AssignFile(file, stamp, bytes.Get<unsigned long long>());
    writer.SetFillLevel(level);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(BM_TicketFloor);

}  // namespace
