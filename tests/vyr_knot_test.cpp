// The knot: equality on all fields, binary form, text form by the pairs in
// use, debug print.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "stream_test_support.h"

namespace {

using test_support::Bytes;
using test_support::ExtractAll;
using test_support::ExtractAllText;
using test_support::Golden;
using test_support::RecordingStream;
using KnotTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

Bytes Pack(const std::vector<VYR_TKnot>& knots) {
  return test_support::Packed([&](QEN_TDataStream& stream) {
    for (const VYR_TKnot& knot : knots) stream << knot;
  });
}

std::string Write(const VYR_TKnot& knot) { return test_support::Write(knot); }

// Reads into `knot` and gives back what the read left in the text.
std::string ReadInto(VYR_TKnot& knot, const std::string& text) {
  test_support::TextReader reader(text);
  knot.ReadFrom(reader.in);
  QEN_TString rest;
  reader.in.ReadUntil(rest, QEN_TString(""));
  return rest.c_str();
}

VYR_TKnot Read(const std::string& text) {
  VYR_TKnot knot;
  ReadInto(knot, text);
  return knot;
}

std::string Framed(const std::vector<VYR_TKnot>& knots) {
  return test_support::Written([&](QEN_THumanReadableStream& stream) {
    for (const VYR_TKnot& knot : knots) stream.WriteObject(knot) << cr;
  });
}

const VYR_TKnot& AsKnot(const std::unique_ptr<QEN_IInterface>& object) {
  const VYR_TKnot* knot = object->DynamicCast<VYR_TKnot>();
  if (knot == nullptr) throw std::runtime_error("not a knot");
  return *knot;
}

VYR_TKnotType Type(unsigned value) { return static_cast<VYR_TKnotType>(value); }

// One knot of every type, with all six coordinates set, and one of a type
// outside the named ones.
std::vector<VYR_TKnot> EveryType() {
  std::vector<VYR_TKnot> knots;
  for (unsigned type = 0; type <= 6; ++type)
    knots.emplace_back(Type(type), type + 0.5, -1.25 * type, 1e-7, 3e12, -0.0, 1.0 / 3.0);
  knots.emplace_back(Type(9), 1, 2, 3, 4, 5, 6);
  return knots;
}

}  // namespace

TEST_F(KnotTest, ConstructionAndGetInfoGiveAllSevenFields) {
  VYR_TKnot plain(VYR_KnotClose);
  EXPECT_EQ(plain.Type(), VYR_KnotClose);
  EXPECT_EQ(plain, VYR_TKnot(VYR_KnotClose, 0, 0, 0, 0, 0, 0));
  std::unique_ptr<QEN_IInterface> made(VYR_TKnot::QEN_Create());
  EXPECT_EQ(*made->DynamicCast<VYR_TKnot>(), VYR_TKnot(VYR_KnotNop));

  // A close uses no pair, and still keeps and gives all six.
  VYR_TKnot knot(VYR_KnotClose, 1, 2, 3, 4, 5, 6);
  EXPECT_EQ(knot.V1(), 1.0);
  EXPECT_EQ(knot.H1(), 2.0);
  EXPECT_EQ(knot.V2(), 3.0);
  EXPECT_EQ(knot.H2(), 4.0);
  EXPECT_EQ(knot.V3(), 5.0);
  EXPECT_EQ(knot.H3(), 6.0);
  VYR_TKnotType type = VYR_KnotNop;
  double v[6] = {};
  knot.GetInfo(type, v[0], v[1], v[2], v[3], v[4], v[5]);
  EXPECT_EQ(type, VYR_KnotClose);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(v[i], i + 1.0);
}

TEST_F(KnotTest, EqualityLooksAtTypeAndAllSixCoordinates) {
  VYR_TKnot close(VYR_KnotClose, 1, 2, 3, 4, 5, 6);
  EXPECT_EQ(close, VYR_TKnot(close));
  EXPECT_NE(close, VYR_TKnot(VYR_KnotClose, 1, 2, 3, 4, 5, 7));
  EXPECT_NE(close, VYR_TKnot(VYR_KnotClose, 1, 2, 3, 4, 0, 6));
  EXPECT_NE(close, VYR_TKnot(VYR_KnotNop, 1, 2, 3, 4, 5, 6));
  EXPECT_NE(close, VYR_TKnot(VYR_KnotClose, 1, 2, 3, -4, 5, 6));
  // Signed zeros are equal numbers; a NaN is equal to nothing, itself included.
  EXPECT_EQ(VYR_TKnot(VYR_KnotMoveTo, 0.0, 0, 0, 0, 0, 0),
            VYR_TKnot(VYR_KnotMoveTo, -0.0, 0, 0, 0, 0, 0));
  double nan = std::numeric_limits<double>::quiet_NaN();
  VYR_TKnot unused(VYR_KnotMoveTo, 0, 0, 0, 0, 0, nan);
  EXPECT_FALSE(unused == unused);
  EXPECT_TRUE(unused != unused);
  EXPECT_FALSE(unused.QEN_IsIdent(unused));

  std::unique_ptr<QEN_IPackable> clone(close.QEN_Clone());
  EXPECT_TRUE(clone->QEN_IsIdent(close));
  EXPECT_FALSE(close.QEN_IsIdent(VYR_TTag()));
  EXPECT_FALSE(close.QEN_IsIdent(VYR_TReference()));
}

TEST_F(KnotTest, PacksTheTypeAndAllSixCoordinatesForEveryType) {
  for (unsigned type : {0u, 2u, 4u, 6u}) {
    RecordingStream recorder;
    VYR_TKnot(Type(type), 1, 2, 3, 4, 5, 6).QEN_Pack(recorder);
    EXPECT_EQ(recorder.calls,
              (std::vector<std::string>{"u32 " + std::to_string(type), "double 1.000000",
                                        "double 2.000000", "double 3.000000", "double 4.000000",
                                        "double 5.000000", "double 6.000000"}));
  }
}

TEST_F(KnotTest, PackAndExtractGiveIdenticalKnotsOfEveryType) {
  std::vector<VYR_TKnot> knots = EveryType();
  knots.emplace_back(VYR_KnotMoveTo, std::numeric_limits<double>::infinity(),
                     -std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::max(),
                     0, 0, 0);
  auto rebuilt = ExtractAll(Pack(knots));
  ASSERT_EQ(rebuilt.size(), knots.size());
  for (size_t i = 0; i < knots.size(); ++i) {
    EXPECT_STREQ(rebuilt[i]->ClassName(), "VYR_TKnot");
    EXPECT_TRUE(AsKnot(rebuilt[i]).QEN_IsIdent(knots[i])) << "knot " << i;
  }
  // A NaN travels too, though it never compares equal.
  VYR_TKnot withNan(VYR_KnotClose, 0, 0, 0, 0, std::nan(""), 0);
  EXPECT_TRUE(std::isnan(AsKnot(ExtractAll(Pack({withNan}))[0]).V3()));
}

TEST_F(KnotTest, PackedFormIsPinned) {
  std::vector<VYR_TKnot> knots = EveryType();
  Bytes packed = Pack(knots);
  std::string golden = Golden("vyr_knot.bin", std::string(packed.begin(), packed.end()));
  EXPECT_EQ(std::string(packed.begin(), packed.end()), golden);
  auto rebuilt = ExtractAll(Bytes(golden.begin(), golden.end()));
  ASSERT_EQ(rebuilt.size(), knots.size());
  for (size_t i = 0; i < knots.size(); ++i) EXPECT_EQ(AsKnot(rebuilt[i]), knots[i]);
}

TEST_F(KnotTest, TruncatedPackedKnotIsAnExceptionAtEveryLength) {
  Bytes packed = Pack({VYR_TKnot(VYR_KnotNormCurveTo, 1, 2, 3, 4, 5, 6)});
  for (size_t length = 1; length < packed.size(); ++length) {
    EXPECT_THROW(ExtractAll(Bytes(packed.begin(), packed.begin() + length)), QEN_EException)
        << "length " << length;
  }
}

TEST_F(KnotTest, TextFormShowsThePairsInUse) {
  EXPECT_EQ(Write(VYR_TKnot(VYR_KnotNop, 1, 2, 3, 4, 5, 6)), "KnotNop");
  EXPECT_EQ(Write(VYR_TKnot(VYR_KnotClose, 1, 2, 3, 4, 5, 6)), "KnotClose");
  EXPECT_EQ(Write(VYR_TKnot(VYR_KnotMoveTo, 1.5, -2, 3, 4, 5, 6)), "KnotMoveTo 1.5, -2");
  EXPECT_EQ(Write(VYR_TKnot(VYR_KnotLinkLineTo, 0.1, 1e20, 3, 4, 5, 6)),
            "KnotLinkLineTo 0.1, 1e+20");
  EXPECT_EQ(Write(VYR_TKnot(VYR_KnotNormLineTo, 7, 8, 3, 4, 5, 6)), "KnotNormLineTo 7, 8");
  EXPECT_EQ(Write(VYR_TKnot(VYR_KnotLinkCurveTo, 1, 2, 3, 4, 5, 6)),
            "KnotLinkCurveTo 1, 2, 3, 4, 5, 6");
  EXPECT_EQ(Write(VYR_TKnot(VYR_KnotNormCurveTo, -1, -2, -3, -4, -5, -6)),
            "KnotNormCurveTo -1, -2, -3, -4, -5, -6");
  // A type outside the named ones is written as KnotNop.
  EXPECT_EQ(Write(VYR_TKnot(Type(7), 1, 2, 3, 4, 5, 6)), "KnotNop");
  EXPECT_FALSE(VYR_TKnot().QEN_HRMultiLine());
}

TEST_F(KnotTest, TextFormReadsBackTheTypeAndThePairsInUse) {
  // Into a knot of zeros: the type and the pairs in use arrive, the rest
  // stays zero.
  for (const VYR_TKnot& knot : EveryType()) {
    unsigned type = knot.Type();
    unsigned pairs = type == 1 || type == 3 || type == 4 ? 1 : type == 5 || type == 6 ? 3 : 0;
    double in[6], out[6];
    VYR_TKnotType ignored;
    knot.GetInfo(ignored, in[0], in[1], in[2], in[3], in[4], in[5]);
    for (unsigned i = 0; i < 6; ++i) out[i] = i < 2 * pairs ? in[i] : 0.0;
    VYR_TKnot expected(Type(type <= 6 ? type : 0), out[0], out[1], out[2], out[3], out[4], out[5]);
    EXPECT_EQ(Read(Write(knot)), expected) << Write(knot);
  }
  // Unused pairs keep what the object held before the read.
  VYR_TKnot target(VYR_KnotNormCurveTo, 10, 20, 30, 40, 50, 60);
  EXPECT_EQ(ReadInto(target, Write(VYR_TKnot(VYR_KnotMoveTo, 1, 2, 3, 4, 5, 6))), "");
  EXPECT_EQ(target, VYR_TKnot(VYR_KnotMoveTo, 1, 2, 30, 40, 50, 60));
  EXPECT_EQ(ReadInto(target, "KnotClose"), "");
  EXPECT_EQ(target, VYR_TKnot(VYR_KnotClose, 1, 2, 30, 40, 50, 60));
  // White space may follow a comma, and a number may come in any form.
  EXPECT_EQ(Read("KnotLinkCurveTo 1,\n2,\t3, 4,5, -6e-1"),
            VYR_TKnot(VYR_KnotLinkCurveTo, 1, 2, 3, 4, 5, -0.6));
}

TEST_F(KnotTest, UnknownTypeWordIsKnotNopAndEndsTheRead) {
  VYR_TKnot target(VYR_KnotMoveTo, 1, 2, 3, 4, 5, 6);
  EXPECT_EQ(ReadInto(target, "knotmoveto 7, 8"), " 7, 8");
  EXPECT_EQ(target, VYR_TKnot(VYR_KnotNop, 1, 2, 3, 4, 5, 6));
  EXPECT_EQ(ReadInto(target, ""), "");
  EXPECT_EQ(target.Type(), VYR_KnotNop);
}

TEST_F(KnotTest, WrongSeparatorIsASyntaxError) {
  EXPECT_THROW(Read("KnotMoveTo 1 2"), QEN_ESyntaxError);
  EXPECT_THROW(Read("KnotMoveTo 1 , 2"), QEN_ESyntaxError);
  EXPECT_THROW(Read("KnotMoveTo 1; 2"), QEN_ESyntaxError);
  EXPECT_THROW(Read("KnotMoveTo 1,"), QEN_ESyntaxError);
  EXPECT_THROW(Read("KnotMoveTo"), QEN_ESyntaxError);
  EXPECT_THROW(Read("KnotMoveTo x, 2"), QEN_ESyntaxError);
  EXPECT_THROW(Read("KnotNormCurveTo 1, 2, 3, 4, 5"), QEN_ESyntaxError);
  EXPECT_THROW(Read("KnotNormCurveTo 1, 2, 3, 4, 5 6"), QEN_ESyntaxError);
}

TEST_F(KnotTest, FramedTextIsPinnedAndRebuiltByExtract) {
  // Every type with only its pairs in use set, so that the text carries all.
  std::vector<VYR_TKnot> knots = {
      VYR_TKnot(VYR_KnotNop),
      VYR_TKnot(VYR_KnotMoveTo, 100.5, 20.25, 0, 0, 0, 0),
      VYR_TKnot(VYR_KnotLinkLineTo, -3, 1e-300, 0, 0, 0, 0),
      VYR_TKnot(VYR_KnotNormLineTo, 0.1, 0.2, 0, 0, 0, 0),
      VYR_TKnot(VYR_KnotLinkCurveTo, 1, 2, 3, 4, 5, 6),
      VYR_TKnot(VYR_KnotNormCurveTo, 1.0 / 3.0, 2.0 / 3.0, -1, -2, 1e15, 123456789.125),
      VYR_TKnot(VYR_KnotClose),
  };
  std::string text = Framed(knots);
  std::string golden = Golden("vyr_knot.txt", text);
  EXPECT_EQ(text, golden);
  auto rebuilt = ExtractAllText(golden);
  ASSERT_EQ(rebuilt.size(), knots.size());
  for (size_t i = 0; i < knots.size(); ++i) EXPECT_EQ(AsKnot(rebuilt[i]), knots[i]) << i;
  // Cut anywhere, a framed knot fails with an exception of the base library.
  std::string curve = Framed({knots[5]});
  for (size_t length = 1; length + 1 < curve.size(); ++length) {
    EXPECT_THROW(ExtractAllText(curve.substr(0, length)), QEN_EException) << "length " << length;
  }
}

TEST_F(KnotTest, DebugPrintIsOneLine) {
  auto print = [](const VYR_TKnot& knot) {
    std::ostringstream out;
    knot.PrintOn(out);
    return out.str();
  };
  EXPECT_EQ(print(VYR_TKnot(VYR_KnotClose, 1, 2, 3, 4, 5, 6)), "VYR_TKnot { KnotClose }");
  EXPECT_EQ(print(VYR_TKnot(VYR_KnotMoveTo, 1.5, -2, 3, 4, 5, 6)),
            "VYR_TKnot { KnotMoveTo v1: 1.5 h1: -2 }");
  EXPECT_EQ(print(VYR_TKnot(VYR_KnotNormCurveTo, 1, 2, 3, 4, 5, 6)),
            "VYR_TKnot { KnotNormCurveTo v1: 1 h1: 2 v2: 3 h2: 4 v3: 5 h3: 6 }");
}
