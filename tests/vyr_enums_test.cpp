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

typedef std::initializer_list<std::pair<unsigned, const char*>> TextRows;
typedef std::initializer_list<std::pair<const char*, unsigned>> ParseRows;

// Every value of the table gives its text; values outside it give `other`.
template <class Enum>
void ExpectTexts(TextRows rows, const char* other) {
  for (const auto& row : rows)
    EXPECT_STREQ(VYR_Enum2String(static_cast<Enum>(row.first)).c_str(), row.second)
        << "value " << row.first;
  for (unsigned value : kOutside)
    EXPECT_STREQ(VYR_Enum2String(static_cast<Enum>(value)).c_str(), other) << "value " << value;
}

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

TEST(Vocabularies, ChannelEncoding) {
  TextRows rows = {{0, "UnknownChannelEncoding"},
                   {1, "Bitmap"},
                   {2, "Colored"},
                   {3, "IndexedRgb"},
                   {4, "IndexedCmyk"},
                   {5, "NamedIndexed"},
                   {6, "Intensity"},
                   {7, "Grayscale"},
                   {8, "NamedIntensity"},
                   {9, "Multitone"},
                   {10, "Rgb"},
                   {11, "Cmyk"},
                   {12, "Labcolor"},
                   {13, "YCbCr"},
                   {14, "Hsv"},
                   {15, "Multichannel"},
                   {16, "NamedMultichannel"},
                   {17, "YCbCrK"}};
  ExpectTexts<VYR_TChannelEnc>(rows, "UnknownChannelEncoding");
  // A preview encoding has the same texts.
  ExpectTexts<VYR_TInkPreviewEnc>(rows, "UnknownChannelEncoding");
  // Dictionary with the input folded: every text reads back, in any case.
  for (const auto& row : rows) {
    if (row.first == 0) continue;
    QEN_TString text(row.second);
    EXPECT_EQ(VYR_String2ChannelEnc(text), row.first) << row.second;
    EXPECT_EQ(VYR_String2ChannelEnc(text.ToLower()), row.first) << row.second;
    EXPECT_EQ(VYR_String2ChannelEnc(text.ToUpper()), row.first) << row.second;
  }
  ExpectParses(VYR_String2ChannelEnc, {{"RGB", 10},
                                       {"Rgb", 10},
                                       {"rgb", 10},
                                       {"", 0},
                                       {"UnknownChannelEncoding", 0},
                                       {"rgb ", 0},
                                       {"Lab", 0}});
}

TEST(Vocabularies, InkPreviewEncodingKeepsOnlyPreviewEncodings) {
  ExpectParses(VYR_String2InkPreviewEnc, {{"hsv", 14},
                                          {"RGB", 10},
                                          {"Cmyk", 11},
                                          {"LABCOLOR", 12},
                                          {"Grayscale", 0},
                                          {"ycbcr", 0},
                                          {"IndexedRgb", 0},
                                          {"", 0}});
}

TEST(Vocabularies, AlphaPlane) {
  ExpectTexts<VYR_TAlphaPlane>({{0, "AlphaNone"},
                                {1, "AlphaNormal"},
                                {2, "AlphaPremultiplied"},
                                {3, "AlphaOne"},
                                {4, "AlphaUnknown"}},
                               "UndefinedAlphaPlane");
  // The key of 4 is not its text; unknown texts give 4 by default.
  ExpectParses(VYR_String2AlphaPlane, {{"alphanone", 0},
                                       {"AlphaNormal", 1},
                                       {"ALPHAPREMULTIPLIED", 2},
                                       {"alphaone", 3},
                                       {"unknownalpha", 4},
                                       {"AlphaUnknown", 4},
                                       {"", 4},
                                       {"UndefinedAlphaPlane", 4}});
}

TEST(Vocabularies, BufferAccess) {
  ExpectTexts<VYR_TBufferAccess>(
      {{0, "ReadOnly"}, {1, "ReadWrite"}, {2, "CopyOnWrite"}, {3, "InvalidAccess"}},
      "InvalidAccess");
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

TEST(Vocabularies, CanFlag) {
  ExpectTexts<VYR_TCanFlag>({{0, "invalid"}, {1, "none"}, {2, "limited"}, {3, "full"}}, "invalid");
  ExpectParses(VYR_String2CanFlag, {{"none", 1},
                                    {"limited", 2},
                                    {"full", 3},
                                    {"None", 0},
                                    {"FULL", 0},
                                    {"invalid", 0},
                                    {"", 0}});
}

TEST(Vocabularies, DefaultInkTypes) {
  ExpectTexts<VYR_TDefInkTypes>({{0, ""}, {1, "process"}, {2, "display"}, {3, "designer"}}, "");
  ExpectParses(VYR_String2DefInkTypes,
               {{"process", 1}, {"DISPLAY", 2}, {"Designer", 3}, {"", 0}, {"proc", 0}});
}

TEST(Vocabularies, ImageRotation) {
  ExpectTexts<VYR_TImageRotation>({{0, "NotRotated"},
                                   {1, "Rot90"},
                                   {2, "Rot180"},
                                   {3, "Rot270"},
                                   {4, "Mirrored"},
                                   {5, "MirRot90"},
                                   {6, "MirRot180"},
                                   {7, "MirRot270"}},
                                  "UnknownRotation");
  // An unknown text gives NotRotated, not a value for "unknown".
  ExpectParses(VYR_String2ImageRotation, {{"notrotated", 0},
                                          {"ROT90", 1},
                                          {"Rot180", 2},
                                          {"rot270", 3},
                                          {"Mirrored", 4},
                                          {"mirrot90", 5},
                                          {"MIRROT180", 6},
                                          {"MirRot270", 7},
                                          {"UnknownRotation", 0},
                                          {"Rot45", 0}});
}

TEST(Vocabularies, ImageSubtypeHasTextsOnly) {
  ExpectTexts<VYR_TImageSubtype>(
      {{0, "UnknownSubtype"}, {1, "CT"}, {2, "LP"}, {3, "LW"}, {4, "HC"}, {5, "FP"}},
      "UndefinedImageSubtype");
}

TEST(Vocabularies, ImageType) {
  ExpectTexts<VYR_TImageType>({{0, "UnknownType"},
                               {1, "Preview"},
                               {2, "Icon"},
                               {3, "Image"},
                               {4, "Internal"},
                               {5, "Production"}},
                              "UndefinedImageType");
  ExpectParses(VYR_String2ImageType, {{"unknowntype", 0},
                                      {"Preview", 1},
                                      {"ICON", 2},
                                      {"image", 3},
                                      {"Internal", 4},
                                      {"production", 5},
                                      {"UndefinedImageType", 0},
                                      {"", 0}});
}

TEST(Vocabularies, Inks) {
  ExpectTexts<VYR_TInks>({{0, "unknownink"},
                          {1, "cyan"},
                          {2, "magenta"},
                          {3, "yellow"},
                          {4, "black"},
                          {5, "red"},
                          {6, "green"},
                          {7, "blue"}},
                         "undefinedink");
  ExpectParses(VYR_String2Inks, {{"cyan", 1},
                                 {"Magenta", 2},
                                 {"YELLOW", 3},
                                 {"black", 4},
                                 {"Red", 5},
                                 {"green", 6},
                                 {"bLuE", 7},
                                 {"unknownink", 0},
                                 {"undefinedink", 0},
                                 {"", 0}});
}

TEST(Vocabularies, InterleavedType) {
  ExpectTexts<VYR_TInterleavedType>({{0, "UnknownInterleaved"},
                                     {1, "PixelInterleaved"},
                                     {2, "LineInterleaved"},
                                     {3, "PlaneInterleaved"}},
                                    "UnknownInterleaved");
  ExpectParses(VYR_String2InterleavedType, {{"PixelInterleaved", 1},
                                            {"LineInterleaved", 2},
                                            {"PlaneInterleaved", 3},
                                            {"pixelinterleaved", 0},
                                            {"UnknownInterleaved", 0}});
}

TEST(Vocabularies, KnotType) {
  ExpectTexts<VYR_TKnotType>({{0, "KnotNop"},
                              {1, "KnotMoveTo"},
                              {2, "KnotClose"},
                              {3, "KnotLinkLineTo"},
                              {4, "KnotNormLineTo"},
                              {5, "KnotLinkCurveTo"},
                              {6, "KnotNormCurveTo"}},
                             "KnotNop");
  ExpectParses(VYR_String2KnotType, {{"KnotMoveTo", 1},
                                     {"KnotClose", 2},
                                     {"KnotLinkLineTo", 3},
                                     {"KnotNormLineTo", 4},
                                     {"KnotLinkCurveTo", 5},
                                     {"KnotNormCurveTo", 6},
                                     {"KnotNop", 0},
                                     {"knotmoveto", 0}});
}

TEST(Vocabularies, Units) {
  ExpectTexts<VYR_TMUnits>({{0, "Pixel"}, {1, "MM"}, {2, "CM"}, {3, "Inch"}, {4, "Mil"}},
                           "UnknownUnits");
  // Pixel is no key: it is the default.
  ExpectParses(VYR_String2Units, {{"MM", 1},
                                  {"mm", 1},
                                  {"cm", 2},
                                  {"inch", 3},
                                  {"INCH", 3},
                                  {"Mil", 4},
                                  {"Pixel", 0},
                                  {"UnknownUnits", 0},
                                  {"", 0}});
}

TEST(Vocabularies, VerifyStatus) {
  ExpectTexts<VYR_TVerifyStatus>({{0, "KeyUnknown"}, {1, "KeyDifferent"}, {2, "KeyEqual"}},
                                 "KeyInvalid");
  ExpectParses(VYR_String2VerifyStatus, {{"KeyDifferent", 1},
                                         {"KeyEqual", 2},
                                         {"KeyUnknown", 0},
                                         {"keyequal", 0},
                                         {"KeyInvalid", 0}});
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
