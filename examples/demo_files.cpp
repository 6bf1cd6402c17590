// Files the demo leaves behind for vyrtool to look at: a page with a note
// and a stamp in its metadata, and the page's ticket, stored.
#include <vyrax/vyrax.h>

#include <cstdio>
#include <memory>
#include <string>

#include "demo.h"

namespace demo {

bool KeepFiles(const std::string& folder) {
  std::printf("== files for vyrtool, in %s ==\n", folder.c_str());
  const std::string path = folder + "/page.tif";
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return Fail("the page cannot be written");
  std::fputs("II*\0 pixels of the page", file);
  std::fclose(file);
  const QEN_TURL page = QEN_TURL::LocalToURL(QEN_TString(path.c_str()));

  VYR_TMetadata metadata(page);
  if (!metadata.SetKeyObject(QEN_TString("note"), QEN_TString("proofed by the demo"), true))
    return Fail("the note was not stored");
  if (!metadata.SetTimestamp(VYR_TMetadata::NormalizeKey(QEN_TString("note"))))
    return Fail("the note's stamp was not stored");

  const QEN_TFileInfo info(page, true);
  VYR_TImageTicket ticket;
  VYR_TTicketWriter writer(ticket);
  writer.AssignFile(page, info.ModificationTime(), static_cast<unsigned long long>(info.Size()));
  writer.SetFileFormat(QEN_TString("TIFF"));
  writer.ExternalRefs();  // needs no other file
  writer.SetFillLevel(VYR_FillFileType | 0x80);
  QEN_TFile stored(QEN_TString((folder + "/page.ticket").c_str()), QEN_TFile::WriteOnly);
  QEN_TDataStream out(stored);
  out << ticket;
  out.Flush();
  std::printf("wrote page.tif with a stamped note, and page.ticket\n");
  return true;
}

}  // namespace demo
