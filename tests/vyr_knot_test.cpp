// The knot: equality on all fields, binary form, text form by the pairs in
// use.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "stream_test_support.h"

namespace {

using test_support::Bytes;
using test_support::ExtractAll;
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

TEST_F(KnotTest, EqualityLooksAtTypeAndAllSixCoordinates) {
  VYR_TKnot close(VYR_KnotClose, 1, 2, 3, 4, 5, 6);
  EXPECT_EQ(close, VYR_TKnot(close));
  // Each of the seven fields changed alone makes a difference.
  for (int field = 0; field < 7; ++field) {
    double v[6] = {1, 2, 3, 4, 5, 6};
    if (field < 6) v[field] = -v[field];
    VYR_TKnot other(field == 6 ? VYR_KnotNop : VYR_KnotClose, v[0], v[1], v[2], v[3], v[4], v[5]);
    EXPECT_NE(close, other) << "field " << field;
  }
  // Signed zeros are equal numbers; a NaN is equal to nothing, itself included.
  EXPECT_EQ(VYR_TKnot(VYR_KnotMoveTo, 0.0, 0, 0, 0, 0, 0),
            VYR_TKnot(VYR_KnotMoveTo, -0.0, 0, 0, 0, 0, 0));
  VYR_TKnot unused(VYR_KnotMoveTo, 0, 0, 0, 0, 0, std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(unused == unused);
  EXPECT_TRUE(unused != unused);
  EXPECT_FALSE(unused.QEN_IsIdent(unused));
  EXPECT_FALSE(close.QEN_IsIdent(VYR_TTag()));
}

TEST_F(KnotTest, PackedFormIsPinnedAndGivesIdenticalKnots) {
  test_support::ExpectPinnedPacked("vyr_knot.bin", EveryType(), 5);
  // Extreme numbers travel too; a NaN as well, though it never compares equal.
  VYR_TKnot extreme(VYR_KnotMoveTo, std::numeric_limits<double>::infinity(),
                    -std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::max(),
                    0, std::nan(""), 0);
  const VYR_TKnot& read = test_support::As<VYR_TKnot>(ExtractAll(Pack({extreme}))[0]);
  EXPECT_TRUE(read.V1() == extreme.V1() && read.H1() == extreme.H1() && read.V2() == extreme.V2());
  EXPECT_TRUE(std::isnan(read.V3()));
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
  // An unknown type word gives KnotNop and ends the read, without error.
  EXPECT_EQ(ReadInto(target, "knotmoveto 7, 8"), " 7, 8");
  EXPECT_EQ(target, VYR_TKnot(VYR_KnotNop, 1, 2, 30, 40, 50, 60));
  EXPECT_EQ(ReadInto(target, ""), "");
  // White space may follow a comma, and a number may come in any form.
  EXPECT_EQ(Read("KnotLinkCurveTo 1,\n2,\t3, 4,5, -6e-1"),
            VYR_TKnot(VYR_KnotLinkCurveTo, 1, 2, 3, 4, 5, -0.6));
  for (const char* text :
       {"KnotMoveTo 1 2", "KnotMoveTo 1 , 2", "KnotMoveTo 1; 2", "KnotMoveTo 1,", "KnotMoveTo",
        "KnotMoveTo x, 2", "KnotNormCurveTo 1, 2, 3, 4, 5", "KnotNormCurveTo 1, 2, 3, 4, 5 6"})
    EXPECT_THROW(Read(text), QEN_ESyntaxError) << text;
}

TEST_F(KnotTest, FramedTextIsPinnedAndRebuiltByExtract) {
  // Every type with only its pairs in use set, so that the text carries all;
  // one outside the named types is written as KnotNop (EveryType, above).
  test_support::ExpectPinnedText(
      "vyr_knot.txt",
      std::vector<VYR_TKnot>{
          VYR_TKnot(VYR_KnotNop),
          VYR_TKnot(VYR_KnotMoveTo, 100.5, 20.25, 0, 0, 0, 0),
          VYR_TKnot(VYR_KnotLinkLineTo, -3, 1e-300, 0, 0, 0, 0),
          VYR_TKnot(VYR_KnotNormLineTo, 0.1, 0.2, 0, 0, 0, 0),
          VYR_TKnot(VYR_KnotLinkCurveTo, 1, 2, 3, 4, 5, 6),
          VYR_TKnot(VYR_KnotNormCurveTo, 1.0 / 3.0, 2.0 / 3.0, -1, -2, 1e15, 123456789.125),
          VYR_TKnot(VYR_KnotClose),
      },
      5);
}
