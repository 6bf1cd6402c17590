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
#include <stdexcept>
#include <string>
#include <vector>

#include "qen/qen_exception.h"
#include "qen/qen_object.h"
#include "qen/qen_stream.h"

namespace test_support {

// What a binary stream wrote.
typedef std::vector<unsigned char> Bytes;

// Objects read back, each built by the class that its stored form names.
typedef std::unique_ptr<QEN_IInterface> Object;
typedef std::vector<Object> Objects;

// --- Start-up ---------------------------------------------------------------------

// A fixture whose suite runs the library's start-up `Start` before its first test.
template <bool (*Start)()>
struct LibraryTest : ::testing::Test {
  static void SetUpTestSuite() { ASSERT_TRUE(Start()); }
};

// The same start-up once for the whole program, for files of plain TESTs.
template <bool (*Start)()>
struct LibraryEnvironment : ::testing::Environment {
  void SetUp() override { ASSERT_TRUE(Start()); }
};

// The message of the E that `body` throws; "" if it throws none.
template <class E = QEN_EException, class F>
std::string FailureOf(F body) {
  try {
    body();
  } catch (const E& e) {
    return e.QEN_Message().c_str();
  }
  return "";  // nothing thrown: no message for the caller's check to find
}

// A stream `in` of kind S over its own copy of the bytes or the text it is given.
template <class S>
struct Reader {
  explicit Reader(const Bytes& bytes) : Reader(std::string(bytes.begin(), bytes.end())) {}
  explicit Reader(const std::string& text) : in(stream) {
    stream.Write(text.data(), static_cast<unsigned>(text.size()));
  }
  QEN_TMemoryStream stream;
  S in;
};
typedef Reader<QEN_TDataStream> DataReader;
typedef Reader<QEN_THumanReadableStream> TextReader;

// --- Binary stream ----------------------------------------------------------------

// What `write` writes to a stream of kind S over memory, as bytes or text C.
// (The binary stream writes straight into the memory: nothing to flush.)
template <class S, class C, class Writer>
C WrittenTo(Writer write) {
  QEN_TMemoryStream memory;
  S stream(memory);
  write(stream);
  return C(memory.Data(), memory.Data() + memory.Length());
}

// The bytes that `pack` writes to a binary stream.
template <class Packer>
Bytes Packed(Packer pack) {
  return WrittenTo<QEN_TDataStream, Bytes>(pack);
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

// The object at the start of the bytes, built by the class named there.
inline Object Extract(const Bytes& bytes) { return Object(DataReader(bytes).in.Extract(true)); }

// Whether the reader has another object to give.
inline bool More(DataReader& reader) { return reader.stream.Available() > 0; }
inline bool More(TextReader& reader) { return !reader.in.SkipWhiteSpace().AtEnd(); }

// Every object that a reader of kind R finds in the content.
template <class R, class Content>
Objects ExtractEvery(const Content& content) {
  R reader(content);
  Objects objects;
  while (More(reader)) objects.emplace_back(reader.in.Extract());
  return objects;
}

// Every object in the bytes, or every framed object in the text.
inline Objects ExtractAll(const Bytes& bytes) { return ExtractEvery<DataReader>(bytes); }
inline Objects ExtractAllText(const std::string& text) { return ExtractEvery<TextReader>(text); }

// The T that `object` is; if it is none, an exception that fails the test.
template <class T>
const T& As(const Object& object) {
  const T* typed = object ? object->template DynamicCast<T>() : nullptr;
  if (typed == nullptr) throw std::logic_error(std::string("not a ") + T::QEN_ClassName());
  return *typed;
}

// Fills `object` from its own items (its QEN_Unpack), the reverse of
// PackContent: the items behind the mark that a stream starts with.
inline void UnpackContent(const Bytes& bytes, QEN_IPackable& object) {
  const std::string mark{'\xB5', static_cast<char>(QEN_TDataStream::sVersion)};
  DataReader reader(mark + std::string(bytes.begin(), bytes.end()));
  object.QEN_Unpack(reader.in);
}

// --- Text stream ------------------------------------------------------------------

// The text that `write` writes to a text stream.
template <class Writer>
std::string Written(Writer write) {
  return WrittenTo<QEN_THumanReadableStream, std::string>(write);
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

// --- Golden files -----------------------------------------------------------------

// The whole file as text or bytes, or nothing where it can't be read.
template <class Form = std::string>
Form ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Form(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// The golden file tests/data/golden/`name`, as text or bytes; rewritten first
// from `current` when VYRAX_REGENERATE_GOLDEN is set, so that a deliberate
// change of a stored form shows in the diff. A missing file fails the test.
template <class Form>
Form Golden(const std::string& name, const Form& current) {
  const std::string path = std::string(VYRAX_TEST_DATA_DIR) + "/golden/" + name;
  if (std::getenv("VYRAX_REGENERATE_GOLDEN") != nullptr)
    std::ofstream(path, std::ios::binary) << std::string(current.begin(), current.end());
  if (!std::ifstream(path, std::ios::binary)) ADD_FAILURE() << "missing golden file " << path;
  return ReadFile<Form>(path);
}

// The `form` of `objects` is the golden file `name`, and `extract` reads it
// back into objects identical to them. Every cut of `one`, the form of one of
// them, fails with an exception, but for the last `spare` units, which only end it.
template <class T, class Form>
void ExpectPinned(const std::string& name, const std::vector<T>& objects, const Form& form,
                  const Form& one, size_t spare, Objects (*extract)(const Form&)) {
  EXPECT_EQ(form, Golden(name, form)) << name;
  const Objects read = extract(form);  // what the file holds, where it passed
  ASSERT_EQ(read.size(), objects.size()) << name;
  for (size_t i = 0; i < objects.size(); ++i)
    EXPECT_TRUE(As<T>(read[i]).QEN_IsIdent(objects[i])) << name << " " << i;
  for (size_t length = 1; length + spare < one.size(); ++length)
    EXPECT_THROW(extract(Form(one.begin(), one.begin() + length)), QEN_EException)
        << name << " cut at " << length;
}

// The same for the packed form, the objects one after the other.
template <class T>
void ExpectPinnedPacked(const std::string& name, const std::vector<T>& objects, size_t cut = 0) {
  const Bytes packed = Packed([&](QEN_TDataStream& stream) {
    for (const T& object : objects) stream << object;
  });
  ExpectPinned(name, objects, packed, Pack(objects.at(cut)), 0, ExtractAll);
}

// The same for the framed text form, one object a line.
template <class T>
void ExpectPinnedText(const std::string& name, const std::vector<T>& objects, size_t cut = 0) {
  const std::string text = Written([&](QEN_THumanReadableStream& stream) {
    for (const T& object : objects) stream.WriteObject(object) << cr;
  });
  const std::string one = Written([&](auto& out) { out.WriteObject(objects.at(cut)) << cr; });
  ExpectPinned(name, objects, text, one, 1, ExtractAllText);
}

}  // namespace test_support

#endif
