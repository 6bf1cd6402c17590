// What the benchmarks share: the library started once, one round trip
// through the binary stream, and the full ticket that the ticket benchmarks
// and the peer comparison pack.
#ifndef VYRAX_BENCH_SAMPLES_H
#define VYRAX_BENCH_SAMPLES_H

#include <benchmark/benchmark.h>
#include <vyrax/vyrax.h>

#include <cstddef>
#include <memory>
#include <string>

namespace bench {

inline bool Started() {
  static const bool started = __QEN_INITIALIZATION_FUNCTION_VYRAX__();
  return started;
}

// One round trip: the object packed into a memory stream, then extracted from
// it as a new object. Gives the packed size.
inline std::size_t PackAndExtract(const QEN_IPackable& object) {
  QEN_TMemoryStream memory;
  QEN_TDataStream out(memory);
  out << object;
  QEN_TMemoryStream source(memory.Data(), memory.Length(), memory.Length());
  QEN_TDataStream in(source);
  std::unique_ptr<QEN_IInterface> copy(in.Extract(true));
  benchmark::DoNotOptimize(copy.get());
  return memory.Length();
}

inline VYR_TImageTicket FullTicket() {
  VYR_TImageTicket ticket;
  VYR_TTicketWriter writer(ticket);
  writer.SetCreatorId("bench");
  writer.AssignFile(QEN_TURL("file:///jobs/2024/brochure.tif"), QEN_TTime(1708036934123456LL),
                    5000000123ULL);
  writer.SetImagePosition(1);
  writer.SetFileFormat("TIFF");
  writer.SetFileFormatVersion("6.0");
  writer.SetImageProcessor("TiffReader");
  writer.SetImageType(VYR_TypeImage);
  writer.SetMeasurementUnits(VYR_Inch);
  writer.SetVResolution(300);
  writer.SetHResolution(300);
  writer.SetVRealSize(11);
  writer.SetHRealSize(8.5);
  writer.SetNrRows(3300);
  writer.SetNrColumns(2550);
  writer.SetChannelEncoding(VYR_Cmyk);
  writer.SetNrInks(4);
  writer.SetNrPages(1);
  for (unsigned i = 0; i < 10; ++i)
    writer.ExtendedInfo()[("key" + std::to_string(i)).c_str()] = i * 1000u;
  writer.ExternalRefs().AddAtTail(
      QEN_TAny(VYR_TReference(QEN_TURL("file:///jobs/2024/logo.eps"), VYR_MM, 10.0, 20.0)));
  writer.SetFillLevel(VYR_FillFullInfo);
  return ticket;
}

}  // namespace bench

#endif
