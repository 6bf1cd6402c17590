// What the ticket tests share: a sample ticket filled to any level, and
// the tickets of one file gathered in a proxy.
#ifndef VYRAX_TESTS_TICKET_TEST_SUPPORT_H
#define VYRAX_TESTS_TICKET_TEST_SUPPORT_H

#include <vyrax/vyr_reference.h>
#include <vyrax/vyrax.h>

#include "stream_test_support.h"

using TicketTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

// A ticket with the groups of `level` filled and the level set. The
// references are real VYR_TReference objects, or QEN_TURL stand-ins where a
// stored form must not depend on another class's layout.
inline VYR_TImageTicket Sample(unsigned level, bool realReferences = true) {
  VYR_TImageTicket ticket;
  VYR_TTicketWriter writer(ticket);
  writer.SetCreatorId("vyrax tests");
  if (level & 0x1) {
    writer.AssignFile(QEN_TURL("file:///jobs/2024/brochure%20cover.tif"),
                      QEN_TTime(1708036934123456LL), 5000000123ULL);
    writer.SetImagePosition(2);
  }
  if (level & 0x2) {
    writer.SetFileFormat("TIFF");
    writer.SetFileFormatVersion("6.0");
  }
  if (level & 0x4) writer.SetImageProcessor("TiffReader");
  if (level & 0x8) {
    writer.SetImageType(VYR_TypeImage);
    writer.SetImageSubtype(VYR_SubtypeCT);
    writer.SetMeasurementUnits(VYR_Inch);
    writer.SetVResolution(300.0);
    writer.SetHResolution(150.5);
    writer.SetVRealSize(11.0);
    writer.SetHRealSize(8.25);
    writer.SetNrRows(3300);
    writer.SetNrColumns(1242);
    writer.SetMarginTop(0.125);
    writer.SetMarginLeft(0.25);
    writer.SetMarginBottom(0.375);
    writer.SetMarginRight(0.5);
    writer.SetChannelEncoding(VYR_Cmyk);
    writer.SetAlphaPlane(VYR_AlphaPremultiplied);
    writer.SetNrInks(4);
    writer.SetRotation(VYR_Rot270);
    writer.SetNrPages(3);
    writer.SetRelatedIndex(1);
  }
  if (level & 0x340) {
    QEN_TDict& info = writer.ExtendedInfo();
    info["BitsPerPlane"] = static_cast<unsigned char>(8);
    info["Compression"] = "LZW";
    info["Gamma"] = 2.2;
  }
  if (level & 0x80) {
    const QEN_TURL logo("file:///jobs/2024/logo.eps"), cyan("file:///jobs/2024/cyan.tif");
    writer.ExternalRefs().AddAtTail(
        realReferences ? QEN_TAny(VYR_TReference(logo, VYR_MM, 10.0, 20.0, "logo.eps",
                                                 "application/postscript", "EPS", 1, -1))
                       : QEN_TAny(logo));
    writer.ExternalRefs().AddAtTail(
        realReferences ? QEN_TAny(VYR_TReference(cyan, VYR_Inch, 0.0, 0.0)) : QEN_TAny(cyan));
  }
  writer.SetFillLevel(level);
  return ticket;
}

// A level-15 ticket of the sample file at an image position, of a type and
// related to another image of the file.
inline VYR_TImageTicket Image(unsigned char position, VYR_TImageType type, int related) {
  VYR_TImageTicket ticket = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter writer(ticket);
  writer.SetImagePosition(position);
  writer.SetImageType(type);
  writer.SetRelatedIndex(static_cast<unsigned>(related));
  return ticket;
}

// A proxy filled the way a reader of files fills one: through Tickets().
struct ProxyBuilder : VYR_TImageProxy {
  using VYR_TImageProxy::VYR_TImageProxy;
  QEN_TList& List() { return Tickets(); }
};

// The tickets of one file: 0 the image, 1 its preview, 2 its icon, and 3 a
// preview of an image that is not in the file; the first one selected.
inline VYR_TImageProxy FourTickets() {
  ProxyBuilder proxy(Image(0, VYR_TypeImage, -1));
  proxy.List().AddAtTail(QEN_TAny(Image(1, VYR_TypePreview, 0)));
  proxy.List().AddAtTail(QEN_TAny(Image(2, VYR_TypeIcon, 0)));
  proxy.List().AddAtTail(QEN_TAny(Image(3, VYR_TypePreview, 7)));
  return proxy;
}

#endif
