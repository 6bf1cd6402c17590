// What the tests of stored forms share: an object through the binary and the
// text stream and back, the golden files and the forms pinned by them,
// and the start-up of a library before the tests. It needs only the
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

#include "qen/qen_exception.h"
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

// The message of the E that `body` throws; a failed check and "" if it throws none.
template <class E = QEN_EException, class F>
std::string FailureOf(F body) {
  try {
    body();
  } catch (const E& e) {
    return e.QEN_Message().c_str();
  }
  ADD_FAILURE() << "nothing thrown";
  return "";
}

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

// A stream `in` of kind S over its own copy of the bytes or the text it is given.
template <class S>
struct Reader {
  explicit Reader(const Bytes& bytes) : Reader(bytes.data(), bytes.size()) {}
  explicit Reader(const std::string& text) : Reader(text.data(), text.size()) {}
  Reader(const void* data, size_t size) : in(stream) {
    stream.Write(data, static_cast<unsigned>(size));
  }
  QEN_TMemoryStream stream;
  S in;
};
typedef Reader<QEN_TDataStream> DataReader;
typedef Reader<QEN_THumanReadableStream> TextReader;

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

// The T that `object` is; if it is none, a failed check and a T of nothing.
template <class T>
const T& As(const std::unique_ptr<QEN_IInterface>& object) {
  static const T none;
  const T* typed = object ? object->template DynamicCast<T>() : nullptr;
  EXPECT_NE(typed, nullptr);
  return typed != nullptr ? *typed : none;
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
  Bytes marked{0xB5, QEN_TDataStream::sVersion};  // the mark in front of what a stream writes
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

// --- Pinned forms -----------------------------------------------------------------

// Each of `read` is a T identical to the object at its place in `objects`.
template <class T>
void ExpectIdentical(const std::string& name,
                     const std::vector<std::unique_ptr<QEN_IInterface>>& read,
                     const std::vector<T>& objects) {
  ASSERT_EQ(read.size(), objects.size()) << name;
  for (size_t i = 0; i < objects.size(); ++i) {
    const T* object = read[i]->template DynamicCast<T>();
    EXPECT_TRUE(object != nullptr && object->QEN_IsIdent(objects[i])) << name << " " << i;
  }
}

// The packed form of `objects` is the golden file `name`, and it reads back,
// each object built by its class name, into objects identical to them. Every
// cut of the packed form of objects[cut] fails with an exception.
template <class T>
void ExpectPinnedPacked(const std::string& name, const std::vector<T>& objects, size_t cut = 0) {
  const Bytes packed = Packed([&](QEN_TDataStream& stream) {
    for (const T& object : objects) stream << object;
  });
  const Bytes golden = Golden(name, packed);
  EXPECT_EQ(packed, golden) << name;
  ExpectIdentical(name, ExtractAll(golden), objects);
  const Bytes one = Pack(objects.at(cut));
  for (size_t length = 1; length < one.size(); ++length)
    EXPECT_THROW(ExtractAll(Bytes(one.begin(), one.begin() + length)), QEN_EException)
        << name << " cut at " << length;
}

// The same for the framed text form, one object a line.
template <class T>
void ExpectPinnedText(const std::string& name, const std::vector<T>& objects, size_t cut = 0) {
  auto framed = [](const std::vector<T>& some) {
    return Written([&](QEN_THumanReadableStream& stream) {
      for (const T& object : some) stream.WriteObject(object) << cr;
    });
  };
  const std::string text = framed(objects);
  const std::string golden = Golden(name, text);
  EXPECT_EQ(text, golden) << name;
  ExpectIdentical(name, ExtractAllText(golden), objects);
  const std::string one = framed({objects.at(cut)});
  for (size_t length = 1; length + 1 < one.size(); ++length)
    EXPECT_THROW(ExtractAllText(one.substr(0, length)), QEN_EException)
        << name << " cut at " << length;
}

}  // namespace test_support

#endif
