// The classes the fuzz targets may meet in their input, registered before
// the first input so that Extract can build them by name.
#ifndef VYRAX_FUZZ_CLASSES_H
#define VYRAX_FUZZ_CLASSES_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

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

// A memory stream over the bytes of `text`, which must outlive it.
inline QEN_TMemoryStream Over(std::string& text) {
  return QEN_TMemoryStream(&text[0], static_cast<unsigned>(text.size()),
                           static_cast<unsigned>(text.size()));
}

// Reads `form`, which we wrote in Stream's bare form, into `again`; gives the
// bytes the reader left, or -1 when it refused the form with a stream exception.
inline void ReadBare(QEN_TDataStream& in, QEN_IPackable& value) { value.QEN_Unpack(in); }
inline void ReadBare(QEN_THumanReadableStream& in, QEN_IHumanReadable& value) {
  value.ReadFrom(in);
}
template <class Stream, class T>
long ReadBack(std::string form, T& again) {
  QEN_TMemoryStream memory = Over(form);
  Stream in(memory);
  try {
    ReadBare(in, again);
  } catch (const QEN_EStreamException&) {
    return -1;
  }
  return static_cast<long>(memory.Available());
}

// The bare binary form of `value` must read back whole into a new T that packs
// to the same bytes; that T is given back.
template <class T>
T BinaryReadsBack(const T& value) {
  T again;
  if (ReadBack<QEN_TDataStream>(Packed(value), again) != 0 || Packed(again) != Packed(value))
    std::abort();
  return again;
}

// The text form `first` read into a new T must write the same text again. The
// writer knows names the reader doesn't ("Production", the names of undefined
// values): such a value writes fine and can't be read back.
template <class T>
void TextReadsBack(const std::string& first) {
  T again;
  if (ReadBack<QEN_THumanReadableStream>(first, again) >= 0 && Written(again) != first)
    std::abort();
}

// Extract over arbitrary input, object after object, until the input ends or
// fails with a stream exception. Each object is written again, and what was
// written must read back whole: it was written by us.
inline bool AtEnd(QEN_TDataStream&, QEN_TMemoryStream& bytes) { return bytes.Available() == 0; }
inline bool AtEnd(QEN_THumanReadableStream& in, QEN_TMemoryStream&) {
  in.SkipWhiteSpace();
  return in.AtEnd();
}
inline void WriteOne(QEN_TDataStream& out, const QEN_IPackable& object) { out << object; }
inline void WriteOne(QEN_THumanReadableStream& out, const QEN_IHumanReadable& object) {
  out.WriteObject(object);
}

template <class Stream>
void Rewrite(const std::remove_pointer_t<decltype(std::declval<Stream&>().Extract())>& object) {
  QEN_TMemoryStream written;
  Stream out(written);
  try {
    WriteOne(out, object);
  } catch (const QEN_EException&) {
    return;  // a content that refuses to be written (a raw pointer) is fine
  }
  Stream in(written);
  try {
    std::unique_ptr<std::remove_pointer_t<decltype(in.Extract())>> again(in.Extract());
    if (!AtEnd(in, written)) std::abort();  // read less than was written
  } catch (const QEN_EException&) {
    std::abort();  // written by us, refused by us
  }
}

template <class Stream>
int ExtractEach(const std::uint8_t* data, std::size_t size) {
  if (size > 1 << 20) return 0;
  QEN_TMemoryStream bytes(const_cast<std::uint8_t*>(data), static_cast<unsigned>(size),
                          static_cast<unsigned>(size));
  Stream in(bytes);
  try {
    while (!AtEnd(in, bytes)) {
      std::unique_ptr<std::remove_pointer_t<decltype(in.Extract())>> object(in.Extract());
      Rewrite<Stream>(*object);
    }
  } catch (const QEN_EStreamException&) {
  }
  return 0;
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

// The two entry points of a target that reads a T four ways, after the
// start-up `start` of the library T comes from, and hands each T read to
// `check`.
#define FUZZ_READ_FOUR_WAYS(T, start, check)                                          \
  extern "C" int LLVMFuzzerInitialize(int*, char***) {                                \
    RegisterFuzzClasses();                                                            \
    if (!start()) std::abort();                                                       \
    return 0;                                                                         \
  }                                                                                   \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { \
    return ReadFourWays<T>(data, size, [](T& value) { check(value); });               \
  }

// The two entry points of a target that extracts object after object from a Stream.
#define FUZZ_EXTRACT_EACH(Stream)                                                     \
  extern "C" int LLVMFuzzerInitialize(int*, char***) {                                \
    RegisterFuzzClasses();                                                            \
    return 0;                                                                         \
  }                                                                                   \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { \
    return ExtractEach<Stream>(data, size);                                           \
  }

#endif
