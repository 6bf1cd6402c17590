// The classes the fuzz targets may meet in their input, registered before
// the first input so that Extract can build them by name.
#ifndef VYRAX_FUZZ_CLASSES_H
#define VYRAX_FUZZ_CLASSES_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

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

// The bare binary and text forms of a value, as the fuzz targets compare them.
template <class T>
std::string Packed(const T& value) {
  QEN_TMemoryStream memory;
  QEN_TDataStream out(memory);
  value.QEN_Pack(out);
  out.Flush();
  return std::string(reinterpret_cast<const char*>(memory.Data()), memory.Length());
}

template <class T>
std::string Written(const T& value) {
  QEN_TMemoryStream memory;
  QEN_THumanReadableStream out(memory);
  value.WriteTo(out);
  return std::string(reinterpret_cast<const char*>(memory.Data()), memory.Length());
}

// Reads a T from arbitrary bytes in one of four ways, chosen by the first
// byte: into a T from the binary form, into a T from the text form, or by
// Extract from either; what was read goes to `check`. The stream's failure
// is the only exception that may come out; anything else ends the fuzzer.
template <class T, class Check>
int ReadFourWays(const std::uint8_t* data, std::size_t size, Check check) {
  if (size < 1 || size > 1 << 20) return 0;
  const unsigned mode = data[0] % 4;
  std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
  QEN_TMemoryStream bytes(&input[0], static_cast<unsigned>(input.size()),
                          static_cast<unsigned>(input.size()));
  try {
    if (mode == 0 || mode == 1) {
      T value;
      if (mode == 0) {
        QEN_TDataStream in(bytes);
        value.QEN_Unpack(in);
      } else {
        QEN_THumanReadableStream in(bytes);
        value.ReadFrom(in);
      }
      check(value);
    } else if (mode == 2) {
      QEN_TDataStream in(bytes);
      std::unique_ptr<QEN_IPackable> object(in.Extract(true));
      if (T* value = object->DynamicCast<T>()) check(*value);
    } else {
      QEN_THumanReadableStream in(bytes);
      std::unique_ptr<QEN_IHumanReadable> object(in.Extract());
      if (T* value = object->DynamicCast<T>()) check(*value);
    }
  } catch (const QEN_EStreamException&) {
  }
  return 0;
}

#endif
