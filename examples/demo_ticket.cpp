// The road of an image ticket: filled level by level as a reader would, each
// level packed and read back, then written as text and listed; then a
// ticket bound to a real file, checked for validity and readiness while
// another process writes the file, and a proxy of an image and its preview.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
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
  unsigned length = 0;
  std::unique_ptr<QEN_IInterface> rebuilt(PackedAndRebuilt(ticket, length));
  const VYR_TImageTicket* copy = rebuilt ? rebuilt->DynamicCast<VYR_TImageTicket>() : nullptr;
  bool equal = copy != nullptr && *copy == ticket;
  std::printf("  level %-14s %5u packed in %4u bytes, read back %s\n",
              VYR_Enum2String(ticket.FillLevel()).c_str(), ticket.FillLevel(), length,
              equal ? "equal" : "DIFFERENT");
  return equal;
}

// A file in a folder of its own, removed at the end.
class ScratchFile : public ScratchFolder {
 public:
  ScratchFile() : ScratchFolder("vyrax-demo-ticket", "cover.tif") {
    if (Path().empty()) return;
    int fd = open(Path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    mWritten = fd >= 0 && write(fd, "II*\0 image bytes", 16) == 16;
    if (fd >= 0) close(fd);
  }
  bool Written() const { return mWritten; }

 private:
  bool mWritten = false;
};

// Another process, a copy in progress that knows nothing of this library,
// holding the file open for writing until Finish.
class Copier {
 public:
  explicit Copier(const std::string& path) {
    int started[2];
    if (pipe(started) != 0 || pipe(mFinish) != 0) return;
    mPid = fork();
    if (mPid == 0) {
      close(started[0]);
      close(mFinish[1]);  // else the read below never sees the end
      int fd = open(path.c_str(), O_WRONLY | O_APPEND);
      char c = fd >= 0 ? 'y' : 'n';
      if (write(started[1], &c, 1) == 1) (void)read(mFinish[0], &c, 1);
      _exit(0);
    }
    close(started[1]);
    close(mFinish[0]);
    char c = 'n';
    if (read(started[0], &c, 1) != 1) c = 'n';
    close(started[0]);
  }
  void Finish() {
    close(mFinish[1]);
    int status = 0;
    if (mPid > 0) waitpid(mPid, &status, 0);
  }

 private:
  pid_t mPid = -1;
  int mFinish[2] = {-1, -1};
};

// A proxy filled the way a reader of the file fills one.
class ReaderProxy : public VYR_TImageProxy {
 public:
  using VYR_TImageProxy::VYR_TImageProxy;
  void Add(const VYR_TImageTicket& ticket) { Tickets().AddAtTail(QEN_TAny(ticket)); }
};

bool FileChecks(const VYR_TImageTicket& described) {
  std::printf("== ticket and its file ==\n");
  ScratchFile file;
  if (!file.Written()) return Fail("no scratch file");
  VYR_TImageTicket ticket(described);
  VYR_TTicketWriter writer(ticket);
  writer.SetFile(QEN_TURL::LocalToURL(file.Path().c_str()));
  writer.ExternalRefs().Clear();
  std::printf("bound to %s, %llu bytes\n", ticket.File().AsString().c_str(), ticket.FileSize());
  bool ok = ticket.IsTicketValid() || Fail("a fresh ticket is not valid");
  std::printf("valid: %s, ready: %s\n", ticket.IsTicketValid() ? "yes" : "no",
              ticket.IsImageReady() ? "yes" : "no");
  ok = (ticket.IsImageReady() || Fail("an idle file is not ready")) && ok;

  Copier copier(file.Path());
  const bool readyWhileCopying = ticket.IsImageReady();
  std::printf("another process writes the file: ready %s\n", readyWhileCopying ? "yes" : "no");
  copier.Finish();
  const bool readyAfter = ticket.IsImageReady();
  std::printf("the writer is done: ready %s\n", readyAfter ? "yes" : "no");
  ok = (!readyWhileCopying || Fail("ready while another process writes it")) && ok;
  ok = (readyAfter || Fail("not ready after the writer finished")) && ok;

  struct timespec later[2] = {{1000000000, 0}, {1000000000, 0}};
  utimensat(AT_FDCWD, file.Path().c_str(), later, 0);
  std::printf("file touched: valid %s\n", ticket.IsTicketValid() ? "yes" : "no");
  ok = (!ticket.IsTicketValid() || Fail("valid after the file changed")) && ok;
  std::printf("format code %u, rippable %s\n", ticket.MusCode(),
              ticket.IsRippable() ? "yes" : "no");

  std::printf("== proxy ==\n");
  VYR_TImageTicket preview(ticket);
  VYR_TTicketWriter previewWriter(preview);
  previewWriter.SetImagePosition(1);
  previewWriter.SetImageType(VYR_TypePreview);
  previewWriter.SetRelatedIndex(0u);
  previewWriter.SetNrRows(255);
  previewWriter.SetNrColumns(330);
  ReaderProxy reader(ticket);
  reader.Add(preview);
  VYR_TImageProxy proxy(reader);
  std::printf("%u tickets of %s, selected %u\n", proxy.Entries(), proxy.File().FileName().c_str(),
              proxy.IndexOfSelected());
  for (QEN_TConstIterator at = proxy.Previews(proxy.Selected(), false); !at.IsDone(); ++at) {
    const VYR_TImageTicket& found = *at.Value().DynamicCast<VYR_TImageTicket>();
    std::printf("  preview at position %u: %u x %u pixels\n", found.ImagePosition(),
                found.NrColumns(), found.NrRows());
  }
  proxy.Select(static_cast<unsigned char>(1));
  unsigned length = 0;
  std::unique_ptr<QEN_IInterface> rebuilt(PackedAndRebuilt(proxy, length));
  const VYR_TImageProxy* copy = rebuilt ? rebuilt->DynamicCast<VYR_TImageProxy>() : nullptr;
  const bool same = copy != nullptr && *copy == proxy;
  std::printf("packed in %u bytes, read back %s, selected %u (%s)\n", length,
              same ? "equal" : "DIFFERENT", copy ? copy->IndexOfSelected() : 0u,
              copy ? VYR_Enum2String(copy->Selected().ImageType()).c_str() : "-");
  return (same || Fail("proxy read back differs")) && ok;
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
  ok = ok || Fail("a ticket read back differs");
  return FileChecks(ticket) && ok;
}

}  // namespace demo
