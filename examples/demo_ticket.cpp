// The road of an image ticket: filled level by level as a reader would, each
// level packed and read back, then written as text and listed.
#include <vyrax/vyrax.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "demo.h"

namespace demo {

namespace {

// Packs the ticket as a store would and rebuilds it by its class name.
bool PackedAndBack(const VYR_TImageTicket& ticket) {
  QEN_TMemoryStream packed;
  QEN_TDataStream writer(packed);
  writer << ticket;
  writer.Flush();
  QEN_TMemoryStream source(packed.Data(), packed.Length(), packed.Length());
  QEN_TDataStream reader(source);
  std::unique_ptr<QEN_IInterface> rebuilt(reader.Extract(true));
  const VYR_TImageTicket* copy = rebuilt ? rebuilt->DynamicCast<VYR_TImageTicket>() : nullptr;
  bool equal = copy != nullptr && *copy == ticket;
  std::printf("  level %-14s %5u packed in %4u bytes, read back %s\n",
              VYR_Enum2String(ticket.FillLevel()).c_str(), ticket.FillLevel(), packed.Length(),
              equal ? "equal" : "DIFFERENT");
  return equal;
}

}  // namespace

bool TicketRoad() {
  std::printf("== ticket ==\n");
  VYR_TImageTicket ticket;
  VYR_TTicketWriter writer(ticket);
  writer.SetCreatorId("demo reader");
  bool ok = PackedAndBack(ticket);

  // Each step fills the fields of a level, then raises the level.
  writer.AssignFile(QEN_TURL("file:///jobs/2024/cover.tif"), QEN_TTime::FromSeconds(1708036934),
                    48213504);
  writer.SetImagePosition(0);
  writer.SetFillLevel(VYR_FillFileAssigned);
  ok = PackedAndBack(ticket) && ok;

  writer.SetFileFormat("TIFF");
  writer.SetFileFormatVersion("6.0");
  writer.SetFillLevel(VYR_FillFileType);
  ok = PackedAndBack(ticket) && ok;

  writer.SetImageProcessor("TiffReader");
  writer.SetFillLevel(VYR_FillImageProcessor);
  ok = PackedAndBack(ticket) && ok;

  writer.SetImageType(VYR_TypeImage);
  writer.SetImageSubtype(VYR_SubtypeCT);
  writer.SetMeasurementUnits(VYR_Inch);
  writer.SetVResolution(300);
  writer.SetHResolution(300);
  // A landscape page stored turned by a quarter.
  writer.SetVRealSize(8.5);
  writer.SetHRealSize(11);
  writer.SetNrRows(2550);
  writer.SetNrColumns(3300);
  writer.SetMarginTop(0.125);
  writer.SetMarginLeft(0.25);
  writer.SetMarginBottom(0.125);
  writer.SetMarginRight(0.25);
  writer.SetChannelEncoding(VYR_Cmyk);
  writer.SetAlphaPlane(VYR_AlphaNone);
  writer.SetNrInks(4);
  writer.SetRotation(VYR_Rot90);
  writer.SetNrPages(1);
  writer.SetRelatedIndex(static_cast<unsigned>(VYR_TImageTicket::sInvalidValue));
  writer.SetFillLevel(VYR_FillBasicInfo);
  ok = PackedAndBack(ticket) && ok;

  writer.ExtendedInfo()["BitsPerPlane"] = static_cast<unsigned char>(8);
  writer.ExtendedInfo()["Compression"] = "LZW";
  writer.SetFillLevel(VYR_FillExtendedInfo);
  ok = PackedAndBack(ticket) && ok;

  writer.ExternalRefs();  // no other files needed
  writer.SetFillLevel(VYR_FillFullInfo);
  ok = PackedAndBack(ticket) && ok;

  std::printf("stored %g x %g in, unrotated %g x %g in\n", ticket.HRealSize(), ticket.VRealSize(),
              ticket.HRealSizeNoRot(), ticket.VRealSizeNoRot());

  QEN_TMemoryStream text;
  QEN_THumanReadableStream textWriter(text);
  ticket.WriteTo(textWriter);
  std::printf("text form:\n%.*s\n", static_cast<int>(text.Length()),
              reinterpret_cast<const char*>(text.Data()));
  QEN_TMemoryStream textSource(text.Data(), text.Length(), text.Length());
  QEN_THumanReadableStream textReader(textSource);
  VYR_TImageTicket readBack;
  readBack.ReadFrom(textReader);
  std::printf("read from text: %s\n", readBack == ticket ? "equal" : "DIFFERENT");
  ok = (readBack == ticket || Fail("ticket read from text differs")) && ok;

  std::printf("listing:\n");
  ticket.PrintOn(std::cout);
  std::cout.flush();
  return ok || Fail("a ticket read back differs");
}

}  // namespace demo
