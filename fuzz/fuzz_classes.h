// The classes the fuzz targets may meet in their input, registered before
// the first input so that Extract can build them by name.
#ifndef VYRAX_FUZZ_CLASSES_H
#define VYRAX_FUZZ_CLASSES_H

#include <cstdlib>

#include "qen/qen.h"

inline void RegisterFuzzClasses() {
  if (!__QEN_INITIALIZATION_FUNCTION_qentypes__()) std::abort();
  // Registered at start-up already; touched here so that a class left out
  // of the start-up list is still reached.
  QEN_TString::QEN_ClassObject();
  QEN_TURL::QEN_ClassObject();
  QEN_TAny::QEN_ClassObject();
  QEN_TDict::QEN_ClassObject();
  QEN_TList::QEN_ClassObject();
  QEN_TArray::QEN_ClassObject();
  QEN_TTree::QEN_ClassObject();
  QEN_TTime::QEN_ClassObject();
  QEN_TInterval::QEN_ClassObject();
  QEN_TDataBlock::QEN_ClassObject();
  QEN_TFileInfo::QEN_ClassObject();
  QEN_EException::QEN_ClassObject();
  QEN_EStreamException::QEN_ClassObject();
  QEN_ESyntaxError::QEN_ClassObject();
  QEN_EUnknownClass::QEN_ClassObject();
  QEN_EFileException::QEN_ClassObject();
  QEN_ETreeException::QEN_ClassObject();
  QEN_EAnyConversion::QEN_ClassObject();
  QEN_EIndexOutOfRange::QEN_ClassObject();
}

#endif
