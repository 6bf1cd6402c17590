// The vocabularies against their golden file, their first use from several
// threads, and the functions beside them.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <cmath>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "stream_test_support.h"

namespace {

::testing::Environment* const kStart = ::testing::AddGlobalTestEnvironment(
    new test_support::LibraryEnvironment<__QEN_INITIALIZATION_FUNCTION_VYRAX__>);

// Each vocabulary by its name in the golden file: its writer, and its reader
// (null where it has none).
struct Vocabulary {
  const char* name;
  std::string (*write)(unsigned);
  unsigned (*read)(const QEN_TString&);
};

template <class Enum>
std::string Write(unsigned value) {
  return VYR_Enum2String(static_cast<Enum>(value)).c_str();
}
template <class Enum, Enum (*Parse)(const QEN_TString&)>
unsigned Read(const QEN_TString& text) {
  return static_cast<unsigned>(Parse(text));
}

const Vocabulary kVocabularies[] = {
    {"ChannelEnc", Write<VYR_TChannelEnc>, Read<VYR_TChannelEnc, VYR_String2ChannelEnc>},
    {"InkPreviewEnc", Write<VYR_TInkPreviewEnc>,
     Read<VYR_TInkPreviewEnc, VYR_String2InkPreviewEnc>},
    {"AlphaPlane", Write<VYR_TAlphaPlane>, Read<VYR_TAlphaPlane, VYR_String2AlphaPlane>},
    {"BufferAccess", Write<VYR_TBufferAccess>,
     [](const QEN_TString& text) {
       // Read in place, into the variable it is given.
       VYR_TBufferAccess access = VYR_CopyOnWrite;
       return &VYR_String2Enum(text, access) == &access ? static_cast<unsigned>(access) : 99u;
     }},
    {"CanFlag", Write<VYR_TCanFlag>, Read<VYR_TCanFlag, VYR_String2CanFlag>},
    {"DefInkTypes", Write<VYR_TDefInkTypes>, Read<VYR_TDefInkTypes, VYR_String2DefInkTypes>},
    {"ImageRotation", Write<VYR_TImageRotation>,
     Read<VYR_TImageRotation, VYR_String2ImageRotation>},
    {"ImageSubtype", Write<VYR_TImageSubtype>, nullptr},
    {"ImageType", Write<VYR_TImageType>, Read<VYR_TImageType, VYR_String2ImageType>},
    {"Inks", Write<VYR_TInks>, Read<VYR_TInks, VYR_String2Inks>},
    {"InterleavedType", Write<VYR_TInterleavedType>,
     Read<VYR_TInterleavedType, VYR_String2InterleavedType>},
    {"KnotType", Write<VYR_TKnotType>, Read<VYR_TKnotType, VYR_String2KnotType>},
    {"Units", Write<VYR_TMUnits>, Read<VYR_TMUnits, VYR_String2Units>},
    {"VerifyStatus", Write<VYR_TVerifyStatus>, Read<VYR_TVerifyStatus, VYR_String2VerifyStatus>},
    {"FillLevel", [](unsigned level) { return std::string(VYR_Enum2String(level).c_str()); },
     [](const QEN_TString& text) { return VYR_String2FillLevel(text); }},
};

// The words of a line; a word in double quotes may hold blanks or be empty.
std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream in(line);
  for (std::string word; in >> std::ws && !in.eof();) {
    if (in.peek() == '"') {
      in.get();
      std::getline(in, word, '"');
    } else {
      in >> word;
    }
    words.push_back(word);
  }
  return words;
}

// Checks one line of the golden file; false when the line is not understood.
bool Check(const std::vector<std::string>& w, unsigned number) {
  const Vocabulary* vocabulary = nullptr;
  for (const Vocabulary& v : kVocabularies)
    if (w.size() == 4 && w[1] == v.name) vocabulary = &v;
  if (vocabulary == nullptr) return false;
  if (w[0] == "text") {
    EXPECT_EQ(vocabulary->write(std::stoul(w[2], nullptr, 0)), w[3]) << "line " << number;
  } else if (w[0] == "read" && vocabulary->read != nullptr) {
    EXPECT_EQ(vocabulary->read(QEN_TString(w[2].c_str())), std::stoul(w[3], nullptr, 0))
        << "line " << number;
  } else {
    return false;
  }
  return true;
}

// Runs first, and from several threads at once, so that they race for the
// first use of the look-up tables (meaningful under the thread sanitizer).
TEST(Vocabularies, WriteAndReadAsTheGoldenFileSaysFromSeveralThreads) {
  std::ifstream golden(VYRAX_TEST_DATA_DIR "/vocabularies.txt");
  std::vector<std::vector<std::string>> lines;
  for (std::string line; std::getline(golden, line);)
    lines.push_back(line.empty() || line[0] == '#' ? std::vector<std::string>() : Words(line));
  ASSERT_GT(lines.size(), 300u);
  std::vector<std::thread> threads;
  std::vector<unsigned> understood(4, 0);
  for (unsigned& count : understood)
    threads.emplace_back([&lines, &count] {
      for (unsigned i = 0; i < lines.size(); ++i)
        if (!lines[i].empty()) count += Check(lines[i], i + 1) ? 1 : 0;
    });
  for (std::thread& thread : threads) thread.join();
  // Every line is understood, and every vocabulary is in the file.
  std::set<std::string> seen;
  unsigned rows = 0;
  for (const std::vector<std::string>& w : lines)
    if (!w.empty() && ++rows) seen.insert(w[0] + " " + w[1]);
  for (unsigned count : understood) EXPECT_EQ(count, rows);
  for (const Vocabulary& v : kVocabularies) {
    EXPECT_TRUE(seen.count(std::string("text ") + v.name)) << v.name;
    EXPECT_EQ(v.read != nullptr, seen.count(std::string("read ") + v.name) == 1) << v.name;
  }
}

TEST(Vocabularies, IndexedEncodings) {
  for (unsigned value = 0; value <= 18; ++value) {
    const VYR_TChannelEnc encoding = static_cast<VYR_TChannelEnc>(value);
    const bool indexed = value == 3 || value == 4 || value == 5;
    EXPECT_EQ(VYR_IsIndexedEncoding(encoding), indexed) << value;
    const unsigned expected = value == 3 ? 10 : value == 4 ? 11 : value == 5 ? 16 : value;
    EXPECT_EQ(static_cast<unsigned>(VYR_IndexedEncoding2True(encoding)), expected) << value;
  }
  EXPECT_EQ(static_cast<unsigned>(VYR_IndexedEncoding2True(static_cast<VYR_TChannelEnc>(1000))),
            1000u);
}

TEST(Vocabularies, SizeToSize) {
  EXPECT_DOUBLE_EQ(VYR_Size2Size(1.0, VYR_Inch, VYR_MM, 0.0), 25.4);
  EXPECT_DOUBLE_EQ(VYR_Size2Size(25.4, VYR_MM, VYR_Inch, 0.0), 1.0);
  EXPECT_DOUBLE_EQ(VYR_Size2Size(1.0, VYR_Inch, VYR_Pixel, 300.0), 300.0);
  EXPECT_DOUBLE_EQ(VYR_Size2Size(600.0, VYR_Pixel, VYR_CM, 300.0), 2.0 * 2.54);
  EXPECT_DOUBLE_EQ(VYR_Size2Size(1.0, VYR_Mil, VYR_Inch, 0.0), 0.001);
  // Equal units give the value whatever the resolution.
  EXPECT_EQ(VYR_Size2Size(5.0, VYR_CM, VYR_CM, 0.0), 5.0);
  EXPECT_EQ(VYR_Size2Size(5.0, VYR_Pixel, VYR_Pixel, 0.0), 5.0);
  // The order of operations is to / from * value.
  EXPECT_EQ(VYR_Size2Size(3.0, VYR_CM, VYR_MM, 0.0), 25.4 / 2.54 * 3.0);
  // Pixels at resolution 0 divide by zero.
  EXPECT_TRUE(std::isinf(VYR_Size2Size(10.0, VYR_Pixel, VYR_MM, 0.0)));
}

}  // namespace
