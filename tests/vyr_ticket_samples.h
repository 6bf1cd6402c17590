// Tickets for the ticket tests: one per level, every field of a filled group
// set to a value that differs from its default, and the stream helpers.
#ifndef VYR_TICKET_SAMPLES_H
#define VYR_TICKET_SAMPLES_H

#include <vyrax/vyr_reference.h>
#include <vyrax/vyrax.h>

#include <string>

#include "stream_test_support.h"

namespace ticket_samples {

// The named levels, and some that are not, for walks over "every level".
const unsigned kNamedLevels[] = {VYR_FillEmpty,          VYR_FillFileAssigned, VYR_FillFileType,
                                 VYR_FillImageProcessor, VYR_FillBasicInfo,    VYR_FillExtendedInfo,
                                 VYR_FillFullInfo};
const unsigned kOddLevels[] = {0x2, 0x8, 0x80, 0x100, 0x200, 31, 0x7FFF, 0xFFFFFFFFu};

// Fills the groups of `level` and sets the level. The references are real
// VYR_TReference objects, or QEN_TURL stand-ins where a stored form must
// not depend on another class's layout.
inline void Fill(VYR_TImageTicket& ticket, unsigned level, bool realReferences = true) {
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
    QEN_TList& refs = writer.ExternalRefs();
    if (realReferences) {
      refs.AddAtTail(
          QEN_TAny(VYR_TReference(QEN_TURL("file:///jobs/2024/logo.eps"), VYR_MM, 10.0, 20.0,
                                  "logo.eps", "application/postscript", "EPS", 1, -1)));
      refs.AddAtTail(
          QEN_TAny(VYR_TReference(QEN_TURL("file:///jobs/2024/cyan.tif"), VYR_Inch, 0.0, 0.0)));
    } else {
      refs.AddAtTail(QEN_TAny(QEN_TURL("file:///jobs/2024/logo.eps")));
      refs.AddAtTail(QEN_TAny(QEN_TURL("file:///jobs/2024/cyan.tif")));
    }
  }
  writer.SetFillLevel(level);
}

inline VYR_TImageTicket Sample(unsigned level, bool realReferences = true) {
  VYR_TImageTicket ticket;
  Fill(ticket, level, realReferences);
  return ticket;
}

// --- Proxies ----------------------------------------------------------------------

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
class ProxyBuilder : public VYR_TImageProxy {
 public:
  using VYR_TImageProxy::VYR_TImageProxy;
  QEN_TListKey* Add(const VYR_TImageTicket& ticket) { return Tickets().AddAtTail(QEN_TAny(ticket)); }
  QEN_TList& List() { return Tickets(); }
};

// The tickets of one file: 0 the image, 1 its preview, 2 its icon, and 3 a
// preview of an image that is not in the file; the first one selected.
inline VYR_TImageProxy FourTickets() {
  ProxyBuilder proxy(Image(0, VYR_TypeImage, -1));
  proxy.Add(Image(1, VYR_TypePreview, 0));
  proxy.Add(Image(2, VYR_TypeIcon, 0));
  proxy.Add(Image(3, VYR_TypePreview, 7));
  return proxy;
}

// --- Streams --------------------------------------------------------------------

using test_support::Bytes;
using test_support::Extract;

// The ticket's own items, without the class identification in front.
inline Bytes PackBare(const VYR_TImageTicket& ticket) { return test_support::PackContent(ticket); }

inline void UnpackBare(const Bytes& bytes, VYR_TImageTicket& ticket) {
  test_support::UnpackContent(bytes, ticket);
}

// With the class identification: what a proxy or a metadata store holds.
inline Bytes PackObject(const QEN_IPackable& object) { return test_support::Pack(object); }

inline std::string WriteText(const VYR_TImageTicket& ticket) { return test_support::Write(ticket); }

inline void ReadText(const std::string& text, VYR_TImageTicket& ticket) {
  test_support::ReadInto(ticket, text);
}

}  // namespace ticket_samples

#endif
