// The vocabularies against their golden file, their first use from several
// threads, and the functions beside them.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <cmath>
#include <fstream>
#include <iomanip>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// A vocabulary's writer, and its reader (null where it has none).
struct Vocabulary {
  std::string (*write)(unsigned);
  unsigned (*read)(const QEN_TString&);
};

template <class Enum>
std::string Write(unsigned value) {
  return VYR_Enum2String(static_cast<Enum>(value)).c_str();
}
// The usual vocabulary: written by VYR_Enum2String, read by `Parse`.
template <class Enum, Enum (*Parse)(const QEN_TString&)>
Vocabulary Usual() {
  return {Write<Enum>, [](const QEN_TString& text) { return static_cast<unsigned>(Parse(text)); }};
}

// Read in place, into the variable it is given.
VYR_TBufferAccess ReadAccess(const QEN_TString& text) {
  VYR_TBufferAccess access = VYR_CopyOnWrite;
  return &VYR_String2Enum(text, access) == &access ? access : static_cast<VYR_TBufferAccess>(99);
}

// The usual vocabulary: VYR_T<Name>, written by VYR_Enum2String and read
// by VYR_String2<Name>.
#define USUAL(Name) {#Name, Usual<VYR_T##Name, VYR_String2##Name>()},

// Each vocabulary by its name in the golden file.
const std::map<std::string, Vocabulary> kVocabularies = {
    // clang-format off
    USUAL(ChannelEnc) USUAL(InkPreviewEnc) USUAL(AlphaPlane) USUAL(CanFlag) USUAL(DefInkTypes)
    USUAL(ImageRotation) USUAL(ImageType) USUAL(Inks) USUAL(InterleavedType) USUAL(KnotType)
    USUAL(VerifyStatus)
    // clang-format on
    {"Units", Usual<VYR_TMUnits, VYR_String2Units>()},
    {"ImageSubtype", {Write<VYR_TImageSubtype>, nullptr}},
    {"BufferAccess", Usual<VYR_TBufferAccess, ReadAccess>()},
    {"FillLevel", {Write<unsigned>, VYR_String2FillLevel}},
};

// Whether the library writes or reads as one line of the golden file says
// (a word in double quotes may hold blanks or be empty).
bool Holds(const std::string& line) {
  std::istringstream in(line);
  std::string kind, name, from, to;
  in >> kind >> name >> std::quoted(from) >> std::quoted(to);
  if (kVocabularies.count(name) == 0 || !(in >> std::ws).eof()) return false;
  const Vocabulary& v = kVocabularies.at(name);
  if (kind == "text") return v.write(std::stoul(from, nullptr, 0)) == to;
  return kind == "read" && v.read != nullptr &&
         v.read(QEN_TString(from.c_str())) == std::stoul(to, nullptr, 0);
}

// Runs first, and from several threads at once, so that they race for the
// first use of the look-up tables (meaningful under the thread sanitizer).
TEST(Vocabularies, AsTheGoldenFileSaysFromSeveralThreadsAndTheFunctionsBeside) {
  std::ifstream golden(VYRAX_TEST_DATA_DIR "/vocabularies.txt");
  std::vector<std::string> lines;
  for (std::string line; std::getline(golden, line);)
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  ASSERT_GT(lines.size(), 300u);
  std::vector<std::vector<std::string>> failed(4);
  std::vector<std::thread> threads;
  for (std::vector<std::string>& mine : failed)
    threads.emplace_back([&lines, &mine] {
      for (const std::string& line : lines)
        if (!Holds(line)) mine.push_back(line);
    });
  for (std::thread& thread : threads) thread.join();
  for (const std::vector<std::string>& mine : failed) EXPECT_EQ(mine, std::vector<std::string>());
  // The functions beside them: indexed encodings and sizes.
  for (unsigned value = 0; value <= 18; ++value) {
    const unsigned expected = value == 3 ? 10 : value == 4 ? 11 : value == 5 ? 16 : value;
    EXPECT_EQ(VYR_IsIndexedEncoding(VYR_TChannelEnc(value)), expected != value) << value;
    EXPECT_EQ(unsigned(VYR_IndexedEncoding2True(VYR_TChannelEnc(value))), expected) << value;
  }
  EXPECT_DOUBLE_EQ(VYR_Size2Size(1.0, VYR_Inch, VYR_MM, 0.0), 25.4);
  EXPECT_DOUBLE_EQ(VYR_Size2Size(600.0, VYR_Pixel, VYR_CM, 300.0), 2.0 * 2.54);
  // Equal units give the value whatever the resolution; pixels at
  // resolution 0 divide by zero.
  EXPECT_EQ(VYR_Size2Size(5.0, VYR_Pixel, VYR_Pixel, 0.0), 5.0);
  EXPECT_TRUE(std::isinf(VYR_Size2Size(10.0, VYR_Pixel, VYR_MM, 0.0)));
}

}  // namespace
