// The small values: the tag, the knot, the reference and the ink; their
// equality, their binary and text forms, and the reference's facts in its
// URL and the resolution of its original text.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "stream_test_support.h"

namespace {

using test_support::Bytes;
using test_support::Extract;
using test_support::ExtractAll;
using test_support::Pack;
using test_support::Read;
using test_support::Write;
using ValueTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;
using TagTest = ValueTest;
using KnotTest = ValueTest;
using ReferenceTest = ValueTest;
using InkTest = ValueTest;

// Reads into `knot` and gives back what the read left in the text.
std::string ReadKnotInto(VYR_TKnot& knot, const std::string& text) {
  test_support::TextReader reader(text);
  knot.ReadFrom(reader.in);
  QEN_TString rest;
  reader.in.ReadUntil(rest, QEN_TString(""));
  return rest.c_str();
}

VYR_TKnot ReadKnot(const std::string& text) {
  VYR_TKnot knot;
  ReadKnotInto(knot, text);
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

QEN_TURL Url(const char* text) { return QEN_TURL(QEN_TString(text)); }

// One reference with every fact that a reference can carry.
VYR_TReference FullReference() {
  VYR_TReference reference(Url("file:///jobs/Bild%C3%A9%20neu.tif"), VYR_MM, 12.5, -3.25,
                           QEN_TString("../links/Bild\xC3\xA9 neu.tif"), QEN_TString("image/tiff"),
                           QEN_TString("TIFF"), 2, 7);
  reference.AddStampInfo("2024-02-15T22:42:14Z", "1048576", "d41d8cd98f00b204e9800998ecf8427e");
  reference.AddCADRegistration(270, 10.125, -0.5);
  return reference;
}

}  // namespace

// --- The tag --------------------------------------------------------------------

TEST_F(TagTest, EmptinessIsTheReverseOfTheUsualSense) {
  EXPECT_TRUE(VYR_TTag());
  EXPECT_TRUE(VYR_TTag(0, 0, 0, 0));
  EXPECT_TRUE(VYR_TTag(0ULL, 0ULL));
  EXPECT_EQ(VYR_TTag(), VYR_TTag(0ULL, 0ULL));
  VYR_TTag onlySizeHigh(0, 0, 0, 1);
  EXPECT_FALSE(onlySizeHigh);
  EXPECT_NE(onlySizeHigh, VYR_TTag());
  EXPECT_FALSE(onlySizeHigh == VYR_TTag());
}

TEST_F(TagTest, PackedFormIsPinnedAndEveryCutFails) {
  // 64-bit values split into their halves.
  EXPECT_EQ(VYR_TTag(0x100000002ULL, 0x300000004ULL), VYR_TTag(2, 1, 4, 3));
  test_support::ExpectPinnedPacked("vyr_tag.bin", std::vector<VYR_TTag>{VYR_TTag(16ULL, 32ULL)});
  EXPECT_THROW(Extract(test_support::Bytes()), QEN_EException);
}

TEST_F(TagTest, TextFormReadsBackAndWhatDoesNotFitIsASyntaxError) {
  VYR_TTag largest(0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu);
  EXPECT_EQ(Write(largest), "4294967295 : 4294967295, 4294967295 : 4294967295");
  EXPECT_EQ(Read<VYR_TTag>(Write(largest)), largest);
  EXPECT_EQ(Read<VYR_TTag>("7:1,\n  9 :\t2"), VYR_TTag(7, 1, 9, 2));
  // White space before the comma is not allowed; before the colons it is.
  for (const char* text : {"1 : 2 3 : 4", "1 : 2 , 3 : 4", "1 ; 2, 3 : 4",
                           "1 : 2, 3 : ", "1 : 2, x : 4", "4294967296 : 0, 0 : 0"})
    EXPECT_THROW(Read<VYR_TTag>(text), QEN_ESyntaxError) << text;
  // Framed, and rebuilt by its class name.
  const auto rebuilt = test_support::ExtractAllText("VYR_TTag { 3 : 4, 5 : 6 }");
  ASSERT_EQ(rebuilt.size(), 1u);
  EXPECT_EQ(*rebuilt[0]->DynamicCast<VYR_TTag>(), VYR_TTag(3, 4, 5, 6));
}

// --- The knot -------------------------------------------------------------------

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
  const auto object = Extract(Pack(extreme));
  const VYR_TKnot& read = test_support::As<VYR_TKnot>(object);
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
    EXPECT_EQ(ReadKnot(Write(knot)), expected) << Write(knot);
  }
  // Unused pairs keep what the object held before the read.
  VYR_TKnot target(VYR_KnotNormCurveTo, 10, 20, 30, 40, 50, 60);
  EXPECT_EQ(ReadKnotInto(target, Write(VYR_TKnot(VYR_KnotMoveTo, 1, 2, 3, 4, 5, 6))), "");
  EXPECT_EQ(target, VYR_TKnot(VYR_KnotMoveTo, 1, 2, 30, 40, 50, 60));
  // An unknown type word gives KnotNop and ends the read, without error.
  EXPECT_EQ(ReadKnotInto(target, "knotmoveto 7, 8"), " 7, 8");
  EXPECT_EQ(target, VYR_TKnot(VYR_KnotNop, 1, 2, 30, 40, 50, 60));
  EXPECT_EQ(ReadKnotInto(target, ""), "");
  // White space may follow a comma, and a number may come in any form.
  EXPECT_EQ(ReadKnot("KnotLinkCurveTo 1,\n2,\t3, 4,5, -6e-1"),
            VYR_TKnot(VYR_KnotLinkCurveTo, 1, 2, 3, 4, 5, -0.6));
  for (const char* text :
       {"KnotMoveTo 1 2", "KnotMoveTo 1 , 2", "KnotMoveTo 1; 2", "KnotMoveTo 1,", "KnotMoveTo",
        "KnotMoveTo x, 2", "KnotNormCurveTo 1, 2, 3, 4, 5", "KnotNormCurveTo 1, 2, 3, 4, 5 6"})
    EXPECT_THROW(ReadKnot(text), QEN_ESyntaxError) << text;
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

// --- The reference ----------------------------------------------------------------

TEST_F(ReferenceTest, ConstructorsAddTheirParametersToThoseOfTheUrl) {
  int orientation = 5;
  EXPECT_FALSE(VYR_TReference().GetCADRegistration(&orientation, nullptr, nullptr));
  EXPECT_EQ(orientation, 5);
  QEN_TURL url = Url("file:///jobs/a.tif?keep=1");
  // Without an original text the URL's text stands in; absent numbers are -1.
  VYR_TReference plain(url, VYR_CM, 1.0, 2.0);
  EXPECT_EQ(plain.Original(), QEN_TString("file:///jobs/a.tif?keep=1"));
  EXPECT_EQ(plain.PageNr(), -1);
  VYR_TReference full(url, VYR_CM, 1.0, 2.0, QEN_TString("a.tif"), QEN_TString("image/tiff"),
                      QEN_TString("TIFF"), 4, 9);
  EXPECT_EQ(full.File().Param("keep"), QEN_TString("1"));
  EXPECT_TRUE(full.Original() == "a.tif" && full.ExtType() == "TIFF" && full.Count() == 9);
  // -1 stores an empty number, which reads as 0.
  VYR_TReference unset(Url("file:///a.tif"), VYR_Inch, 0, 0, QEN_TString("a.tif"),
                       QEN_TString("image/tiff"), QEN_TString("TIFF"), -1, -1);
  QEN_TString value("x");
  ASSERT_TRUE(unset.File().GetParam("iPageNr", value));
  EXPECT_TRUE(value.Empty());
  EXPECT_EQ(unset.PageNr(), 0);
}

TEST_F(ReferenceTest, NarrowConstructorBuildsAndPercentCodesTheWholeQuery) {
  // The URL's own parameters are replaced, not kept.
  VYR_TReference reference(Url("file:///jobs/a.tif?keep=1"), VYR_Pixel, 0, 0,
                           "dir/Bild\xC3\xA9 1+2%.tif", "image/tiff", "*-._~", -1, 3);
  EXPECT_EQ(reference.File().Query(),
            QEN_TString("iOriginalRef=dir%2FBild%C3%A9%201%2B2%25.tif&iMIMEType=image%2Ftiff"
                        "&iExtType=*-._%7E&iPageNr=&iCount=3"));
  EXPECT_FALSE(reference.File().HasParam("keep"));
  EXPECT_EQ(reference.Original(), QEN_TString("dir/Bild\xC3\xA9 1+2%.tif"));
  EXPECT_EQ(reference.Count(), 3);

  VYR_TReference other(Url("file:///a.tif"), VYR_Pixel, 0, 0, nullptr, "", nullptr, -7, -1);
  EXPECT_EQ(other.File().Query(),
            QEN_TString("iOriginalRef=&iMIMEType=&iExtType=&iPageNr=-7&iCount="));
  EXPECT_EQ(other.PageNr(), -7);
}

TEST_F(ReferenceTest, NumbersAreTakenAsFarAsTheyGo) {
  VYR_TReference reference(Url("file:///a.tif?iPageNr=12abc&iCount=x&iCADOrient=-90z"
                               "&iCADOrgxY=2.5e1mm"),
                           VYR_Inch, 0, 0);
  EXPECT_EQ(reference.PageNr(), 12);
  EXPECT_EQ(reference.Count(), 0);
  int orientation = 0;
  double x = 7.0, y = 7.0;
  ASSERT_TRUE(reference.GetCADRegistration(&orientation, &x, &y));
  EXPECT_EQ(orientation, -90);
  EXPECT_EQ(x, 0.0);  // missing: set to 0.0
  EXPECT_EQ(y, 25.0);
}

TEST_F(ReferenceTest, StampsAndCadRegistrationLiveInTheUrl) {
  VYR_TReference reference(Url("file:///a.tif"), VYR_Inch, 0, 0, QEN_TString("a.tif"));
  reference.AddStampInfo("2024-02-15", "1234", "abcdef");
  EXPECT_EQ(reference.FileSizeStamp(), QEN_TString("1234"));
  reference.AddCADRegistration(90, 1.5, 2.0);
  EXPECT_EQ(reference.File().Param("iCADOrient"), QEN_TString("90"));
  EXPECT_EQ(reference.File().Param("iCADOrgX"), QEN_TString("1.50000"));
  EXPECT_EQ(reference.File().Param("iCADOrgxY"), QEN_TString("2.00000"));
  // A second registration replaces the first; five decimals are kept.
  reference.AddCADRegistration(-180, 1.0 / 3.0, -1e-6);
  int orientation = 0;
  double x = 0, y = 0;
  EXPECT_TRUE(reference.GetCADRegistration(&orientation, &x, &y));
  EXPECT_EQ(orientation, -180);
  EXPECT_EQ(x, 0.33333);
  EXPECT_EQ(reference.File().Param("iCADOrgxY"), QEN_TString("-0.00000"));
  EXPECT_EQ(reference.File().Param("iMD5Hash"), QEN_TString("abcdef"));
  EXPECT_EQ(reference.Original(), QEN_TString("a.tif"));
}

// Resolution of the original text

TEST_F(ReferenceTest, OriginalResolvesTheFourKindsOfText) {
  QEN_TURL base = Url("file:///jobs/job1/page.pdf");
  auto resolve = [&](const char* original) {
    VYR_TReference reference(Url("file:///elsewhere/x.tif"), VYR_Inch, 0, 0, QEN_TString(original));
    return reference.Original(base);
  };
  // "file:///": the hex-decoded text behind "file://", against the folder.
  QEN_TURL absolute = resolve("file:///tmp/a%20b");
  EXPECT_EQ(absolute.Protocol(), QEN_TString("file"));
  EXPECT_EQ(absolute.LocalPath(), QEN_TString("/tmp/a b"));
  // "///" without "file:": from position 2, against the folder.
  EXPECT_EQ(resolve("///Volumes/img.tif").LocalPath(), QEN_TString("/Volumes/img.tif"));
  // "//" with "file:": the URL as it stands.
  QEN_TURL shared = resolve("file://server/share/img%20x.tif");
  EXPECT_EQ(shared.Host(), QEN_TString("server"));
  EXPECT_EQ(shared.FileName(), QEN_TString("img x.tif"));
  EXPECT_EQ(shared, Url("file://server/share/img%20x.tif"));
  // "//" alone: a "file" URL of it.
  QEN_TURL unc = resolve("//server/share/img.tif");
  EXPECT_EQ(unc, Url("file://server/share/img.tif"));
  // "file:" only: the hex-decoded rest, relative to the folder.
  EXPECT_EQ(resolve("file:links/a%20b.tif").LocalPath(), QEN_TString("/jobs/job1/links/a b.tif"));
  EXPECT_EQ(resolve("file:/abs/c%25d.tif").LocalPath(), QEN_TString("/abs/c%d.tif"));
  // Plain text: relative to the folder, with dot segments removed.
  EXPECT_EQ(resolve("links/a.tif").LocalPath(), QEN_TString("/jobs/job1/links/a.tif"));
  EXPECT_EQ(resolve("../shared/a%20b.tif").LocalPath(), QEN_TString("/jobs/shared/a b.tif"));
  EXPECT_EQ(resolve("b.tif").LocalPath(), QEN_TString("/jobs/job1/b.tif"));
}

TEST_F(ReferenceTest, OriginalWithoutOriginalTextResolvesTheUrlItself) {
  VYR_TReference reference(Url("file:///data/x%20y.tif"), VYR_Inch, 0, 0);
  EXPECT_EQ(reference.Original(), QEN_TString("file:///data/x%20y.tif"));
  EXPECT_EQ(reference.Original(Url("file:///jobs/page.pdf")).LocalPath(),
            QEN_TString("/data/x y.tif"));
  // Neither a reference nor a base: the folder of nothing, and no exception.
  EXPECT_NO_THROW(VYR_TReference().Original(QEN_TURL()));
  EXPECT_NO_THROW(
      VYR_TReference(QEN_TURL(), VYR_Inch, 0, 0, QEN_TString("%%//\xFF///")).Original(Url("x")));
}

// Equality

TEST_F(ReferenceTest, EqualityLooksAtEveryField) {
  VYR_TReference reference = FullReference();
  EXPECT_TRUE(VYR_TReference(reference).QEN_IsIdent(reference));

  QEN_TURL url = Url("file:///a.tif");
  VYR_TReference base(url, VYR_MM, 1.0, 2.0);
  for (const VYR_TReference& other :
       {VYR_TReference(url, VYR_CM, 1.0, 2.0), VYR_TReference(url, VYR_MM, 1.5, 2.0),
        VYR_TReference(url, VYR_MM, 1.0, 2.5), VYR_TReference(Url("file:///b.tif"), VYR_MM, 1, 2),
        VYR_TReference(url, VYR_MM, 1.0, 2.0, QEN_TString("a.tif"))})
    EXPECT_NE(base, other) << Write(other);
  double nan = std::numeric_limits<double>::quiet_NaN();
  VYR_TReference notANumber(url, VYR_MM, nan, 2.0);
  EXPECT_FALSE(notANumber == notANumber);
  EXPECT_FALSE(notANumber.QEN_IsIdent(notANumber));

  // The URL compares its parameters, so stamps alone make a difference.
  VYR_TReference stamped(base);
  stamped.AddStampInfo("t", "1", "h");
  EXPECT_NE(stamped, base);
  // The URL takes its parameters as a set, but without an original text the
  // URL's text stands in for it, and there the order counts.
  EXPECT_EQ(VYR_TReference(Url("file:///a.tif?a=1&b=2"), VYR_MM, 0, 0, QEN_TString("a.tif")),
            VYR_TReference(Url("file:///a.tif?b=2&a=1"), VYR_MM, 0, 0, QEN_TString("a.tif")));
  EXPECT_NE(VYR_TReference(Url("file:///a.tif?a=1&b=2"), VYR_MM, 0, 0),
            VYR_TReference(Url("file:///a.tif?b=2&a=1"), VYR_MM, 0, 0));

  EXPECT_FALSE(reference.QEN_IsIdent(VYR_TTag(1, 2, 3, 4)));
}

// Binary form

TEST_F(ReferenceTest, PackedFormIsPinnedAndRebuiltIdenticalInEveryUnit) {
  test_support::ExpectPinnedPacked("vyr_reference.bin",
                                   std::vector<VYR_TReference>{FullReference(), VYR_TReference()});
  // Every unit, and one outside the named ones, travels unchanged.
  for (unsigned unit : {0u, 1u, 2u, 3u, 4u, 0xFFFFFFFFu}) {
    VYR_TReference reference(FullReference().File(), static_cast<VYR_TMUnits>(unit), -1e300, 0.1);
    EXPECT_TRUE(
        test_support::As<VYR_TReference>(ExtractAll(Pack(reference)).at(0)).QEN_IsIdent(reference))
        << unit;
  }
  // Any single damaged byte either still reads or fails cleanly.
  const Bytes packed = Pack(FullReference());
  for (size_t at = 0; at < packed.size(); ++at) {
    Bytes damaged = packed;
    damaged[at] ^= 0x80;
    try {
      ExtractAll(damaged);
    } catch (const QEN_EException&) {
    }
  }
}

// Text form

TEST_F(ReferenceTest, TextFormIsTheQuotedUrlThenUnitAndOffsets) {
  VYR_TReference reference(Url("file:///jobs/a%20b.tif?iPageNr=2"), VYR_CM, 1.5, -0.25);
  EXPECT_EQ(Write(reference), "\"file:///jobs/a%20b.tif?iPageNr=2\"\nCM 1.5, -0.25");
  EXPECT_EQ(Write(VYR_TReference()), "\"\"\nInch 0, 0");
  EXPECT_TRUE(reference.QEN_HRMultiLine());
  for (unsigned unit = 0; unit <= 4; ++unit) {
    const VYR_TMUnits units = static_cast<VYR_TMUnits>(unit);
    VYR_TReference one(FullReference().File(), units, 0.1, -123456.789e-3);
    EXPECT_EQ(Read<VYR_TReference>(Write(one)), one) << Write(one);
  }
  // The unit word is read whatever its case.
  const std::pair<const char*, VYR_TMUnits> units[] = {{"\"file:///a\" inch 1,2", VYR_Inch},
                                                       {"\"file:///a\"\tmM\n1, 2", VYR_MM},
                                                       {"\"file:///a\" PIXEL 1, 2", VYR_Pixel},
                                                       {"\"file:///a\" Mil 1, 2", VYR_Mil}};
  for (const auto& row : units)
    EXPECT_EQ(Read<VYR_TReference>(row.first).Units(), row.second) << row.first;
  VYR_TReference read = Read<VYR_TReference>("\"file:///a\" cm -1e3, \n 2.5");
  EXPECT_EQ(read.VOffset(), -1000.0);
  EXPECT_EQ(read.HOffset(), 2.5);
  EXPECT_EQ(read.File(), Url("file:///a"));
}

TEST_F(ReferenceTest, TextThatDoesNotFitIsASyntaxError) {
  for (const char* text :
       {"\"file:///a\" Inches 1, 2", "\"file:///a\" 1, 2", "\"file:///a\" Inch 1 2",
        "\"file:///a\" Inch 1 , 2", "\"file:///a\" Inch 1,", "\"file:///a\" Inch", "\"file:///a\"",
        "file:///a Inch 1, 2"})
    EXPECT_THROW(Read<VYR_TReference>(text), QEN_ESyntaxError) << text;
  // A unit outside the named ones writes a word that doesn't read back.
  VYR_TReference odd(Url("file:///a"), static_cast<VYR_TMUnits>(9), 0, 0);
  EXPECT_THROW(Read<VYR_TReference>(Write(odd)), QEN_ESyntaxError);
}

TEST_F(ReferenceTest, FramedTextIsPinnedAndRebuiltByExtract) {
  test_support::ExpectPinnedText("vyr_reference.txt",
                                 std::vector<VYR_TReference>{FullReference(), VYR_TReference()});
}

// --- The ink ----------------------------------------------------------------------

TEST_F(InkTest, InkNamesAndTypesAreCheckedAndGetTheirPreviews) {
  struct Row {
    VYR_TInk ink;
    const char* name;
    VYR_TInkPreviewEnc encoding;
    double preview[4];
  } rows[] = {
      {VYR_TInk("Black", "process"), "black", VYR_PreviewCmyk, {0, 0, 0, 1}},
      {VYR_TInk("Green", "Display"), "green", VYR_PreviewRgb, {0, 1, 0, 0}},
      {VYR_TInk("Pantone 185", "designer"), "Pantone 185", VYR_PreviewNone, {}},
      {VYR_TInk("Varnish", "spot", 0.5, 0.25, 1, VYR_PreviewLabcolor),
       "Varnish",
       VYR_PreviewLabcolor,
       {0.5, 0.25, 1, 0}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(std::string(row.ink.InkName().c_str()), row.name);
    EXPECT_EQ(row.ink.InkPreviewEnc(), row.encoding) << row.name;
    if (row.encoding == VYR_PreviewNone) {
      EXPECT_EQ(row.ink.InkPreview(), nullptr);
      continue;
    }
    for (int i = 0; i < (row.encoding == VYR_PreviewCmyk ? 4 : 3); ++i)
      EXPECT_EQ(row.ink.InkPreview()[i], row.preview[i]) << row.name << " " << i;
  }
  EXPECT_THROW(VYR_TInk("red", "process"), VYR_EWrongInkName);
  EXPECT_THROW(VYR_TInk("cyan", "display"), VYR_EWrongInkName);
  EXPECT_THROW(VYR_TInk(static_cast<VYR_TInks>(8)), VYR_EWrongInkName);
}

TEST_F(InkTest, InkPreviewChecksKeepOrDropThePreview) {
  VYR_TInk ink("Spot", "designer", 0.1, 0.2, 0.3, VYR_PreviewRgb);
  try {
    ink.SetInkPreview(0, 0, 1.5, VYR_PreviewRgb);
    ADD_FAILURE() << "no exception";
  } catch (const VYR_EIllegalRGBInkPreviewValues& e) {
    EXPECT_EQ(std::string(VYR_Exception2String(e).c_str()),
              "RGB preview ink values need to be between 0. and 1. (value 1.5)");
  }
  EXPECT_EQ(ink, VYR_TInk("Spot", "designer", 0.1, 0.2, 0.3, VYR_PreviewRgb));
  EXPECT_THROW(ink.SetInkPreview(-0.5, 0, 0, 2), VYR_EIllegalCMYKInkPreviewValues);
  EXPECT_EQ(ink.InkPreviewEnc(), VYR_PreviewRgb);
  // A four-value encoding given three values leaves no preview at all.
  EXPECT_THROW(ink.SetInkPreview(0, 0, 0, VYR_PreviewCmyk), VYR_EWrongInkPreviewType);
  EXPECT_EQ(ink.InkPreview(), nullptr);
  // Not a number is neither below 0 nor above 1.
  ink.SetInkPreview(std::nan(""), 0, 0, 0);
  EXPECT_EQ(ink.InkPreviewEnc(), VYR_PreviewCmyk);
  // No preview equals any preview, so equality isn't transitive.
  VYR_TInk bare("Spot", "designer");
  VYR_TInk red("Spot", "designer", 1, 0, 0, VYR_PreviewRgb);
  VYR_TInk blue("Spot", "designer", 0, 0, 1, VYR_PreviewRgb);
  EXPECT_TRUE(bare == red && bare == blue);
  EXPECT_TRUE(red != blue);
  EXPECT_NE(red, VYR_TInk("Spot", "designer", 1, 0, 0, VYR_PreviewHsv));
}

TEST_F(InkTest, InkStoredFormsArePinnedAndSurviveEveryCut) {
  const std::vector<VYR_TInk> inks = {
      VYR_TInk(VYR_InkMagenta),
      VYR_TInk(VYR_InkRed),
      VYR_TInk("Pantone \"185\" C", "designer"),
      VYR_TInk("Lack", "spot", 0.25, 0.5, 0.75, VYR_PreviewHsv),
      VYR_TInk("Gold", "spot", 0.1, 0.2, 0.3, 0.4),
  };
  test_support::ExpectPinnedPacked("vyr_ink.bin", inks, 4);
  test_support::ExpectPinnedText("vyr_ink.txt", inks, 4);
  // An encoding that is no preview encoding reads back as none, without numbers.
  std::unique_ptr<QEN_IInterface> made(VYR_TInk::QEN_Create());
  VYR_TInk& gray = *made->DynamicCast<VYR_TInk>();
  test_support::ReadInto(gray, "\"k\" \"spot\" \"Grayscale\"");
  EXPECT_EQ(gray.InkPreviewEnc(), VYR_PreviewNone);
}
