// The vocabularies: every value and text, and every matching rule of the
// text-to-value functions with its own default.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <cmath>
#include <functional>
#include <initializer_list>
#include <thread>
#include <utility>
#include <vector>

#include "stream_test_support.h"

namespace {

::testing::Environment* const kStart = ::testing::AddGlobalTestEnvironment(
    new test_support::LibraryEnvironment<__QEN_INITIALIZATION_FUNCTION_VYRAX__>);

// Values beyond the named ones, which have a text of their own.
const unsigned kOutside[] = {99u, 0x80000000u, 0xFFFFFFFFu};

typedef std::initializer_list<std::pair<const char*, unsigned>> ParseRows;

template <class Result>
void ExpectParses(Result (*parse)(const QEN_TString&), ParseRows rows) {
  for (const auto& row : rows)
    EXPECT_EQ(static_cast<unsigned>(parse(QEN_TString(row.first))), row.second)
        << "text \"" << row.first << '"';
}

// Runs first, so that several threads race for the first use of the
// look-up tables (meaningful under the thread sanitizer).
TEST(Vocabularies, FirstUseFromSeveralThreads) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(8, 0);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &wrong] {
      for (int i = 0; i < 200; ++i) {
        wrong[t] += VYR_String2ChannelEnc(QEN_TString("Cmyk")) != VYR_Cmyk;
        wrong[t] += VYR_String2AlphaPlane(QEN_TString("alphaone")) != VYR_AlphaOne;
        wrong[t] += VYR_String2ImageRotation(QEN_TString("Rot90")) != VYR_Rot90;
        wrong[t] += VYR_String2ImageType(QEN_TString("icon")) != VYR_TypeIcon;
        wrong[t] += VYR_String2FillLevel(QEN_TString("BasicInfo")) != 15u;
        VYR_TBufferAccess access;
        wrong[t] += VYR_String2Enum(QEN_TString("ReadWrite"), access) != VYR_ReadWrite;
        wrong[t] += VYR_String2Inks(QEN_TString("Blue")) != VYR_InkBlue;
        wrong[t] += VYR_String2Units(QEN_TString("mil")) != VYR_Mil;
        wrong[t] += VYR_String2DefInkTypes(QEN_TString("display")) != VYR_DisplayInks;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int count : wrong) EXPECT_EQ(count, 0);
}

// A vocabulary's texts in value order, its text for values outside it, and
// its parse rows: text and expected value.
template <class Enum>
void ExpectTexts(std::initializer_list<const char*> texts, const char* other) {
  unsigned value = 0;
  for (const char* text : texts) {
    EXPECT_STREQ(VYR_Enum2String(static_cast<Enum>(value)).c_str(), text) << "value " << value;
    ++value;
  }
  for (unsigned outside : kOutside)
    EXPECT_STREQ(VYR_Enum2String(static_cast<Enum>(outside)).c_str(), other) << outside;
}

const std::initializer_list<const char*> kChannelTexts = {
    "UnknownChannelEncoding", "Bitmap", "Colored", "IndexedRgb", "IndexedCmyk", "NamedIndexed",
    "Intensity", "Grayscale", "NamedIntensity", "Multitone", "Rgb", "Cmyk", "Labcolor", "YCbCr",
    "Hsv", "Multichannel", "NamedMultichannel", "YCbCrK"};

TEST(Vocabularies, ChannelEncoding) {
  ExpectTexts<VYR_TChannelEnc>(kChannelTexts, "UnknownChannelEncoding");
  // A preview encoding has the same texts.
  ExpectTexts<VYR_TInkPreviewEnc>(kChannelTexts, "UnknownChannelEncoding");
  // Dictionary with the input folded: every text reads back, in any case.
  unsigned value = 0;
  for (const char* name : kChannelTexts) {
    QEN_TString text(name);
    const unsigned expected = value++;
    if (expected == 0) continue;
    EXPECT_EQ(VYR_String2ChannelEnc(text), expected) << name;
    EXPECT_EQ(VYR_String2ChannelEnc(text.ToLower()), expected) << name;
    EXPECT_EQ(VYR_String2ChannelEnc(text.ToUpper()), expected) << name;
  }
  ExpectParses(VYR_String2ChannelEnc,
               {{"", 0}, {"UnknownChannelEncoding", 0}, {"rgb ", 0}, {"Lab", 0}});
  // Only the preview encodings are keys of the preview vocabulary.
  ExpectParses(VYR_String2InkPreviewEnc, {{"hsv", 14}, {"RGB", 10}, {"Cmyk", 11},
                                          {"LABCOLOR", 12}, {"Grayscale", 0}, {"ycbcr", 0},
                                          {"IndexedRgb", 0}, {"", 0}});
}

TEST(Vocabularies, TextsOfEveryOtherEnumeration) {
  ExpectTexts<VYR_TAlphaPlane>(
      {"AlphaNone", "AlphaNormal", "AlphaPremultiplied", "AlphaOne", "AlphaUnknown"},
      "UndefinedAlphaPlane");
  ExpectTexts<VYR_TBufferAccess>({"ReadOnly", "ReadWrite", "CopyOnWrite", "InvalidAccess"},
                                 "InvalidAccess");
  ExpectTexts<VYR_TCanFlag>({"invalid", "none", "limited", "full"}, "invalid");
  ExpectTexts<VYR_TDefInkTypes>({"", "process", "display", "designer"}, "");
  ExpectTexts<VYR_TImageRotation>({"NotRotated", "Rot90", "Rot180", "Rot270", "Mirrored",
                                   "MirRot90", "MirRot180", "MirRot270"},
                                  "UnknownRotation");
  ExpectTexts<VYR_TImageSubtype>({"UnknownSubtype", "CT", "LP", "LW", "HC", "FP"},
                                 "UndefinedImageSubtype");
  ExpectTexts<VYR_TImageType>(
      {"UnknownType", "Preview", "Icon", "Image", "Internal", "Production"}, "UndefinedImageType");
  ExpectTexts<VYR_TInks>(
      {"unknownink", "cyan", "magenta", "yellow", "black", "red", "green", "blue"}, "undefinedink");
  ExpectTexts<VYR_TInterleavedType>(
      {"UnknownInterleaved", "PixelInterleaved", "LineInterleaved", "PlaneInterleaved"},
      "UnknownInterleaved");
  ExpectTexts<VYR_TKnotType>({"KnotNop", "KnotMoveTo", "KnotClose", "KnotLinkLineTo",
                              "KnotNormLineTo", "KnotLinkCurveTo", "KnotNormCurveTo"},
                             "KnotNop");
  ExpectTexts<VYR_TMUnits>({"Pixel", "MM", "CM", "Inch", "Mil"}, "UnknownUnits");
  ExpectTexts<VYR_TVerifyStatus>({"KeyUnknown", "KeyDifferent", "KeyEqual"}, "KeyInvalid");
}

// Each text-to-value function with its own rule and default.
TEST(Vocabularies, ParsingRulesAndDefaults) {
  // Case-ignoring. The key of AlphaUnknown is not its text; it is the default.
  ExpectParses(VYR_String2AlphaPlane,
               {{"alphanone", 0}, {"AlphaNormal", 1}, {"ALPHAPREMULTIPLIED", 2}, {"alphaone", 3},
                {"unknownalpha", 4}, {"AlphaUnknown", 4}, {"", 4}, {"UndefinedAlphaPlane", 4}});
  // Exact.
  ExpectParses(VYR_String2CanFlag, {{"none", 1}, {"limited", 2}, {"full", 3}, {"None", 0},
                                    {"FULL", 0}, {"invalid", 0}, {"", 0}});
  ExpectParses(VYR_String2DefInkTypes,
               {{"process", 1}, {"DISPLAY", 2}, {"Designer", 3}, {"", 0}, {"proc", 0}});
  // An unknown rotation gives NotRotated, not a value for "unknown".
  ExpectParses(VYR_String2ImageRotation,
               {{"notrotated", 0}, {"ROT90", 1}, {"Rot180", 2}, {"rot270", 3}, {"Mirrored", 4},
                {"mirrot90", 5}, {"MIRROT180", 6}, {"MirRot270", 7}, {"UnknownRotation", 0},
                {"Rot45", 0}});
  ExpectParses(VYR_String2ImageType,
               {{"unknowntype", 0}, {"Preview", 1}, {"ICON", 2}, {"image", 3}, {"Internal", 4},
                {"production", 5}, {"UndefinedImageType", 0}, {"", 0}});
  ExpectParses(VYR_String2Inks, {{"cyan", 1}, {"Magenta", 2}, {"YELLOW", 3}, {"black", 4},
                                 {"Red", 5}, {"green", 6}, {"bLuE", 7}, {"unknownink", 0},
                                 {"undefinedink", 0}, {"", 0}});
  ExpectParses(VYR_String2InterleavedType,
               {{"PixelInterleaved", 1}, {"LineInterleaved", 2}, {"PlaneInterleaved", 3},
                {"pixelinterleaved", 0}, {"UnknownInterleaved", 0}});
  ExpectParses(VYR_String2KnotType,
               {{"KnotMoveTo", 1}, {"KnotClose", 2}, {"KnotLinkLineTo", 3}, {"KnotNormLineTo", 4},
                {"KnotLinkCurveTo", 5}, {"KnotNormCurveTo", 6}, {"KnotNop", 0},
                {"knotmoveto", 0}});
  // Pixel is no key: it is the default.
  ExpectParses(VYR_String2Units, {{"MM", 1}, {"mm", 1}, {"cm", 2}, {"inch", 3}, {"INCH", 3},
                                  {"Mil", 4}, {"Pixel", 0}, {"UnknownUnits", 0}, {"", 0}});
  ExpectParses(VYR_String2VerifyStatus, {{"KeyDifferent", 1}, {"KeyEqual", 2}, {"KeyUnknown", 0},
                                         {"keyequal", 0}, {"KeyInvalid", 0}});
  // The buffer access is read in place, exactly, into the given variable.
  const std::pair<const char*, VYR_TBufferAccess> rows[] = {
      {"ReadOnly", VYR_ReadOnly},       {"ReadWrite", VYR_ReadWrite},
      {"CopyOnWrite", VYR_CopyOnWrite}, {"InvalidAccess", VYR_InvalidAccess},
      {"readonly", VYR_InvalidAccess},  {"READWRITE", VYR_InvalidAccess},
      {"", VYR_InvalidAccess}};
  for (const auto& row : rows) {
    VYR_TBufferAccess access = VYR_CopyOnWrite;
    VYR_TBufferAccess& result = VYR_String2Enum(QEN_TString(row.first), access);
    EXPECT_EQ(&result, &access);
    EXPECT_EQ(access, row.second) << row.first;
  }
}

TEST(Vocabularies, FillLevel) {
  const std::pair<unsigned, const char*> rows[] = {
      {0, "Empty"},      {1, "FileAssigned"},   {3, "FileType"},     {7, "ImageProcessor"},
      {15, "BasicInfo"}, {127, "ExtendedInfo"}, {0x6FFF, "FullInfo"}};
  for (const auto& row : rows) {
    EXPECT_STREQ(VYR_Enum2String(row.first).c_str(), row.second);
    EXPECT_EQ(VYR_String2FillLevel(QEN_TString(row.second)), row.first);
    EXPECT_EQ(VYR_String2FillLevel(QEN_TString(row.second).ToLower()), row.first);
  }
  // Bit sets between the named levels have no name.
  for (unsigned level : {2u, 31u, 0x7FFFu, 0xFFFFFFFFu})
    EXPECT_STREQ(VYR_Enum2String(level).c_str(), "UnknownFillLevel") << level;
  ExpectParses(VYR_String2FillLevel, {{"FULLINFO", 0x6FFF}, {"UnknownFillLevel", 0}, {"", 0}});
  EXPECT_EQ(VYR_FillFullInfo, 28671u);
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
