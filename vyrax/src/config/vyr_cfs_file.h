// Reading a configuration file: one object, a QEN_TTree (the whole
// configuration) or a QEN_TDict (the table of plug-ins alone), in the binary
// form of QEN_TDataStream or the text form of QEN_THumanReadableStream.
//
// Inline, so that the fuzz target of the file readers runs this very code.
#ifndef VYR_CFS_FILE_H
#define VYR_CFS_FILE_H

#include <qen/qen_object.h>
#include <qen/qen_stream.h>
#include <qen/qen_string.h>

namespace vyr {
namespace config {

// The object of the file in the binary form, owned by the caller; null when
// the form holds none. Throws QEN_EFileException when the file can't be
// opened and QEN_EStreamException (or a class under it) for bytes that are
// not the form.
inline QEN_IInterface* ExtractBinary(const QEN_TString& path) {
  QEN_TFile file(path, QEN_TFile::ReadOnly);
  QEN_TDataStream stream(file);
  return stream.Extract(true);
}

// The same for the text form.
inline QEN_IInterface* ExtractText(const QEN_TString& path) {
  QEN_TFile file(path, QEN_TFile::ReadOnly);
  QEN_THumanReadableStream stream(file);
  return stream.Extract();
}

// The binary form, and when that fails or gives nothing, the text form;
// null when neither gives an object. A file is written by people, so any
// failure of a reader only means that the file doesn't hold that form.
inline QEN_IInterface* ReadCfsFile(const QEN_TString& path) {
  QEN_IInterface* object = nullptr;
  try {
    object = ExtractBinary(path);
  } catch (...) {
    object = nullptr;
  }
  if (object != nullptr) return object;
  try {
    return ExtractText(path);
  } catch (...) {
    return nullptr;
  }
}

}  // namespace config
}  // namespace vyr

#endif
