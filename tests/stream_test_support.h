// What the tests of stored forms share: an object through the binary and the
// text stream and back, the golden files, a packing stream that notes its
// calls, and the start-up of a library before the tests. It needs only the
// base types, so that their own tests can use it as well.
#ifndef VYRAX_TESTS_STREAM_TEST_SUPPORT_H
#define VYRAX_TESTS_STREAM_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qen/qen_object.h"
#include "qen/qen_stream.h"

namespace test_support {

// What a binary stream wrote.
typedef std::vector<unsigned char> Bytes;

// --- Start-up ---------------------------------------------------------------------

// A fixture whose suite runs the library's start-up `Start` before its first test.
template <bool (*Start)()>
class LibraryTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(Start()); }
};

// The same start-up once for the whole program, for files of plain TESTs.
template <bool (*Start)()>
class LibraryEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_TRUE(Start()); }
};

// --- Binary stream ----------------------------------------------------------------

// The bytes that `pack` writes to a binary stream.
template <class Packer>
Bytes Packed(Packer pack) {
  QEN_TMemoryStream memory;
  QEN_TDataStream stream(memory);
  pack(stream);
  stream.Flush();
  return Bytes(memory.Data(), memory.Data() + memory.Length());
}

// The object with its class identification in front, as Extract reads it.
inline Bytes Pack(const QEN_IPackable& object) {
  return Packed([&](QEN_TDataStream& stream) { stream << object; });
}

// The mark in front of what a binary stream writes.
inline Bytes StreamMark() { return Bytes{0xB5, QEN_TDataStream::sVersion}; }

// The same without the stream's mark: items that UnpackContent reads.
template <class Packer>
Bytes PackedContent(Packer pack) {
  Bytes bytes = Packed(pack);
  if (bytes.size() >= 2) bytes.erase(bytes.begin(), bytes.begin() + 2);
  return bytes;
}

// The object's own items only (its QEN_Pack), without the stream's mark and
// the class identification.
inline Bytes PackContent(const QEN_IPackable& object) {
  return PackedContent([&](QEN_TDataStream& stream) { object.QEN_Pack(stream); });
}

// A binary stream over its own copy of `bytes`.
struct DataReader {
  explicit DataReader(const Bytes& bytes) : in(stream) {
    stream.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
  }
  QEN_TMemoryStream stream;
  QEN_TDataStream in;
};

// The object at the start of the bytes, built by the class named there.
inline std::unique_ptr<QEN_IInterface> Extract(const Bytes& bytes) {
  DataReader reader(bytes);
  return std::unique_ptr<QEN_IInterface>(reader.in.Extract(true));
}

// Every object in the bytes, each built by the class named in front of it.
inline std::vector<std::unique_ptr<QEN_IInterface>> ExtractAll(const Bytes& bytes) {
  DataReader reader(bytes);
  std::vector<std::unique_ptr<QEN_IInterface>> objects;
  while (reader.stream.Available() > 0) objects.emplace_back(reader.in.Extract(true));
  return objects;
}

// A new T filled by the binary stream's >>, which wants T's class in the bytes.
template <class T>
T Unpack(const Bytes& bytes) {
  DataReader reader(bytes);
  T object;
  reader.in >> object;
  return object;
}

// Fills `object` from its own items (its QEN_Unpack), the reverse of PackContent.
inline void UnpackContent(const Bytes& bytes, QEN_IPackable& object) {
  Bytes marked = StreamMark();
  marked.insert(marked.end(), bytes.begin(), bytes.end());
  DataReader reader(marked);
  object.QEN_Unpack(reader.in);
}

// --- Text stream ------------------------------------------------------------------

// The bytes in `memory`, as a string.
inline std::string Contents(const QEN_TMemoryStream& memory) {
  return std::string(reinterpret_cast<const char*>(memory.Data()), memory.Length());
}

// The text that `write` writes to a text stream.
template <class Writer>
std::string Written(Writer write) {
  QEN_TMemoryStream memory;
  QEN_THumanReadableStream stream(memory);
  write(stream);
  return Contents(memory);
}

// The object's text form (its WriteTo), without the frame.
inline std::string Write(const QEN_IHumanReadable& object) {
  return Written([&](QEN_THumanReadableStream& stream) { object.WriteTo(stream); });
}

// A text stream over its own copy of `text`.
struct TextReader {
  explicit TextReader(const std::string& text) : in(stream) {
    stream.Write(text.data(), static_cast<unsigned>(text.size()));
  }
  QEN_TMemoryStream stream;
  QEN_THumanReadableStream in;
};

// Fills `object` from its text form (its ReadFrom).
inline void ReadInto(QEN_IHumanReadable& object, const std::string& text) {
  TextReader reader(text);
  object.ReadFrom(reader.in);
}

// A new T read from its text form.
template <class T>
T Read(const std::string& text) {
  T object;
  ReadInto(object, text);
  return object;
}

// Every framed object in the text, each built by the class name in its frame.
inline std::vector<std::unique_ptr<QEN_IInterface>> ExtractAllText(const std::string& text) {
  TextReader reader(text);
  std::vector<std::unique_ptr<QEN_IInterface>> objects;
  for (;;) {
    reader.in.SkipWhiteSpace();
    if (reader.in.AtEnd()) break;
    QEN_IHumanReadable* object = reader.in.Extract();
    objects.emplace_back(object);
  }
  return objects;
}

// --- Golden files -----------------------------------------------------------------

// The whole file, or nothing where it can't be read.
inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// The golden file tests/data/golden/`name`; rewritten first from `current`
// when VYRAX_REGENERATE_GOLDEN is set, so that a deliberate change of a
// stored form shows in the diff. A missing file fails the test.
inline std::string Golden(const std::string& name, const std::string& current) {
  std::string path = std::string(VYRAX_TEST_DATA_DIR) + "/golden/" + name;
  if (std::getenv("VYRAX_REGENERATE_GOLDEN") != nullptr)
    std::ofstream(path, std::ios::binary)
        .write(current.data(), static_cast<std::streamsize>(current.size()));
  if (!std::ifstream(path, std::ios::binary)) ADD_FAILURE() << "missing golden file " << path;
  return ReadFile(path);
}

// The same for packed bytes.
inline Bytes Golden(const std::string& name, const Bytes& current) {
  std::string golden = Golden(name, std::string(current.begin(), current.end()));
  return Bytes(golden.begin(), golden.end());
}

// --- Packing calls ----------------------------------------------------------------

// Notes each call that a class makes on a packing stream. kValues notes an
// object as "object <class>" and a double or unsigned with its value
// ("double 1.500000", "u32 4"); kKinds notes an object by its class name
// alone, so that a QEN_TAny shows the kind of number it holds, and every
// number by its kind. The other calls are noted by kind in both.
class RecordingStream : public QEN_IPacking {
 public:
  enum Detail { kValues, kKinds };
  explicit RecordingStream(Detail detail = kValues) : mDetail(detail) {}

  std::vector<std::string> calls;
  QEN_IPacking& operator<<(const QEN_IPackable& o) override {
    return Note(mDetail == kValues ? std::string("object ") + o.ClassName() : o.ClassName());
  }
  QEN_IPacking& operator<<(double v) override { return Note("double", std::to_string(v)); }
  QEN_IPacking& operator<<(bool) override { return Note("bool"); }
  QEN_IPacking& operator<<(unsigned long long) override { return Note("u64"); }
  QEN_IPacking& operator<<(unsigned v) override { return Note("u32", std::to_string(v)); }
  QEN_IPacking& operator<<(unsigned short) override { return Note("u16"); }
  QEN_IPacking& operator<<(unsigned char) override { return Note("u8"); }
  QEN_IPacking& operator<<(int) override { return Note("i32"); }
  QEN_IPacking& PutBytes(const void*, unsigned) override { return Note("bytes"); }
  QEN_IPacking& PackBeginClass(const char*) override { return Note("begin"); }
  QEN_IPacking& PackEndClass(const char*) override { return Note("end"); }

 private:
  QEN_IPacking& Note(std::string call) {
    calls.push_back(std::move(call));
    return *this;
  }
  QEN_IPacking& Note(const char* kind, const std::string& value) {
    return Note(mDetail == kValues ? kind + (" " + value) : kind);
  }
  Detail mDetail;
};

}  // namespace test_support

#endif
