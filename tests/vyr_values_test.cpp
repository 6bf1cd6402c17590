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

using namespace test_support;
using ValueTest = LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

// Reads into `knot` and gives back what the read left in the text.
std::string ReadKnotInto(VYR_TKnot& knot, const std::string& text) {
  TextReader reader(text);
  knot.ReadFrom(reader.in);
  QEN_TString rest;
  reader.in.ReadUntil(rest, QEN_TString(""));
  return rest.c_str();
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

TEST_F(ValueTest, TagEmptinessStoredFormsAndSyntax) {
  // Emptiness is the reverse of the usual sense.
  EXPECT_TRUE(VYR_TTag());
  EXPECT_EQ(VYR_TTag(), VYR_TTag(0ULL, 0ULL));
  EXPECT_FALSE(VYR_TTag(0, 0, 0, 1));  // only the high size set
  EXPECT_NE(VYR_TTag(0, 0, 0, 1), VYR_TTag());
  // Its stored forms are pinned, and what does not fit is a syntax error.
  // 64-bit values split into their halves.
  EXPECT_EQ(VYR_TTag(0x100000002ULL, 0x300000004ULL), VYR_TTag(2, 1, 4, 3));
  ExpectPinnedPacked("vyr_tag.bin", std::vector<VYR_TTag>{VYR_TTag(16ULL, 32ULL)});
  VYR_TTag largest(0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu);
  EXPECT_EQ(Write(largest), "4294967295 : 4294967295, 4294967295 : 4294967295");
  EXPECT_EQ(Read<VYR_TTag>(Write(largest)), largest);
  EXPECT_EQ(Read<VYR_TTag>("7:1,\n  9 :\t2"), VYR_TTag(7, 1, 9, 2));
  // White space before the comma is not allowed; before the colons it is.
  for (const char* text : {"1 : 2 3 : 4", "1 : 2 , 3 : 4", "1 ; 2, 3 : 4",
                           "1 : 2, 3 : ", "1 : 2, x : 4", "4294967296 : 0, 0 : 0"})
    EXPECT_THROW(Read<VYR_TTag>(text), QEN_ESyntaxError) << text;
  // Framed, and rebuilt by its class name.
  const auto rebuilt = ExtractAllText("VYR_TTag { 3 : 4, 5 : 6 }");
  ASSERT_EQ(rebuilt.size(), 1u);
  EXPECT_EQ(*rebuilt[0]->DynamicCast<VYR_TTag>(), VYR_TTag(3, 4, 5, 6));
}

// --- The knot -------------------------------------------------------------------

TEST_F(ValueTest, KnotEqualityLooksAtTypeAndAllSixCoordinates) {
  VYR_TKnot close(VYR_KnotClose, 1, 2, 3, 4, 5, 6);
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
  EXPECT_FALSE(unused.QEN_IsIdent(unused));
  EXPECT_FALSE(close.QEN_IsIdent(VYR_TTag()));
}

TEST_F(ValueTest, KnotPackedFormIsPinnedAndGivesIdenticalKnots) {
  ExpectPinnedPacked("vyr_knot.bin", EveryType(), 5);
}

TEST_F(ValueTest, KnotTextFormReadsBackTheTypeAndThePairsInUse) {
  // Only the pairs in use are written (the golden text has them); a type
  // outside the named ones is written as KnotNop.
  EXPECT_EQ(Write(VYR_TKnot(Type(9), 1, 2, 3, 4, 5, 6)), Write(VYR_TKnot(VYR_KnotNop)));
  // Unused pairs keep what the object held before the read.
  VYR_TKnot target(VYR_KnotNormCurveTo, 10, 20, 30, 40, 50, 60);
  EXPECT_EQ(ReadKnotInto(target, Write(VYR_TKnot(VYR_KnotMoveTo, 1, 2, 3, 4, 5, 6))), "");
  EXPECT_EQ(target, VYR_TKnot(VYR_KnotMoveTo, 1, 2, 30, 40, 50, 60));
  // An unknown type word gives KnotNop and ends the read, without error.
  EXPECT_EQ(ReadKnotInto(target, "knotmoveto 7, 8"), " 7, 8");
  EXPECT_EQ(target, VYR_TKnot(VYR_KnotNop, 1, 2, 30, 40, 50, 60));
  // White space may follow a comma, and a number may come in any form.
  EXPECT_EQ(Read<VYR_TKnot>("KnotLinkCurveTo 1,\n2,\t3, 4,5, -6e-1"),
            VYR_TKnot(VYR_KnotLinkCurveTo, 1, 2, 3, 4, 5, -0.6));
  for (const char* text :
       {"KnotMoveTo 1 2", "KnotMoveTo 1 , 2", "KnotMoveTo 1; 2", "KnotMoveTo 1,", "KnotMoveTo",
        "KnotMoveTo x, 2", "KnotNormCurveTo 1, 2, 3, 4, 5", "KnotNormCurveTo 1, 2, 3, 4, 5 6"})
    EXPECT_THROW(Read<VYR_TKnot>(text), QEN_ESyntaxError) << text;
}

TEST_F(ValueTest, KnotFramedTextIsPinnedAndRebuiltByExtract) {
  // Every type with only its pairs in use set, so that the text carries all;
  // one outside the named types is written as KnotNop (EveryType, above).
  ExpectPinnedText(
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

TEST_F(ValueTest, ReferenceConstructorsAndTheNumbersInTheUrl) {
  // The constructors add their parameters to those of the URL.
  int orientation = 5;
  EXPECT_FALSE(VYR_TReference().GetCADRegistration(&orientation, nullptr, nullptr));
  EXPECT_EQ(orientation, 5);
  QEN_TURL url = Url("file:///jobs/a.tif?keep=1");
  // Without an original text the URL's text stands in.
  EXPECT_EQ(VYR_TReference(url, VYR_CM, 1.0, 2.0).Original(),
            QEN_TString("file:///jobs/a.tif?keep=1"));
  VYR_TReference full(url, VYR_CM, 1.0, 2.0, QEN_TString("a.tif"), QEN_TString("image/tiff"),
                      QEN_TString("TIFF"), 4, 9);
  EXPECT_EQ(full.File().Param("keep"), QEN_TString("1"));
  // The narrow constructor builds and percent-codes the whole query: the
  // URL's own parameters are replaced, not kept.
  VYR_TReference reference(Url("file:///jobs/a.tif?keep=1"), VYR_Pixel, 0, 0,
                           "dir/Bild\xC3\xA9 1+2%.tif", "image/tiff", "*-._~", -1, 3);
  EXPECT_EQ(reference.File().Query(),
            QEN_TString("iOriginalRef=dir%2FBild%C3%A9%201%2B2%25.tif&iMIMEType=image%2Ftiff"
                        "&iExtType=*-._%7E&iPageNr=&iCount=3"));
  EXPECT_FALSE(reference.File().HasParam("keep"));

  VYR_TReference other(Url("file:///a.tif"), VYR_Pixel, 0, 0, nullptr, "", nullptr, -7, -1);
  EXPECT_EQ(other.File().Query(),
            QEN_TString("iOriginalRef=&iMIMEType=&iExtType=&iPageNr=-7&iCount="));
  // Numbers are taken as far as they go.
  VYR_TReference parsed(Url("file:///a.tif?iPageNr=12abc&iCount=x&iCADOrient=-90z"
                            "&iCADOrgxY=2.5e1mm"),
                        VYR_Inch, 0, 0);
  EXPECT_EQ(parsed.PageNr(), 12);
  EXPECT_EQ(parsed.Count(), 0);
  double x = 7.0, y = 7.0;
  ASSERT_TRUE(parsed.GetCADRegistration(&orientation, &x, &y));
  EXPECT_EQ(orientation, -90);
  EXPECT_EQ(x, 0.0);  // missing: set to 0.0
  EXPECT_EQ(y, 25.0);
}

TEST_F(ValueTest, ReferenceStampsAndCadRegistrationLiveInTheUrl) {
  VYR_TReference reference(Url("file:///a.tif"), VYR_Inch, 0, 0, QEN_TString("a.tif"));
  reference.AddStampInfo("2024-02-15", "1234", "abcdef");
  reference.AddCADRegistration(90, 1.5, 2.0);
  // A second registration replaces the first; five decimals are kept (the
  // golden text pins the names and the form of the parameters).
  reference.AddCADRegistration(-180, 1.0 / 3.0, -1e-6);
  int orientation = 0;
  double x = 0, y = 0;
  EXPECT_TRUE(reference.GetCADRegistration(&orientation, &x, &y));
  EXPECT_EQ(orientation, -180);
  EXPECT_EQ(x, 0.33333);
  EXPECT_EQ(reference.File().Param("iCADOrgxY"), QEN_TString("-0.00000"));
  EXPECT_EQ(reference.FileSizeStamp(), QEN_TString("1234"));
}

TEST_F(ValueTest, ReferenceOriginalResolvesTheFourKindsOfText) {
  QEN_TURL base = Url("file:///jobs/job1/page.pdf");
  auto resolve = [&](const char* original) {
    VYR_TReference reference(Url("file:///elsewhere/x.tif"), VYR_Inch, 0, 0, QEN_TString(original));
    return reference.Original(base);
  };
  // "file:///" takes the hex-decoded text behind "file://", "///" without
  // "file:" the text from position 2, "file:" only the hex-decoded rest, and
  // plain text is relative to the folder, with dot segments removed.
  const std::pair<const char*, const char*> paths[] = {
      {"file:///tmp/a%20b", "/tmp/a b"},
      {"///Volumes/img.tif", "/Volumes/img.tif"},
      {"file:links/a%20b.tif", "/jobs/job1/links/a b.tif"},
      {"file:/abs/c%25d.tif", "/abs/c%d.tif"},
      {"links/a.tif", "/jobs/job1/links/a.tif"},
      {"../shared/a%20b.tif", "/jobs/shared/a b.tif"},
  };
  for (const auto& row : paths)
    EXPECT_EQ(resolve(row.first).LocalPath(), QEN_TString(row.second)) << row.first;
  // "//" with "file:": the URL as it stands; "//" alone: a "file" URL of it.
  EXPECT_EQ(resolve("file://server/share/img%20x.tif"), Url("file://server/share/img%20x.tif"));
  EXPECT_EQ(resolve("//server/share/img.tif"), Url("file://server/share/img.tif"));
  // Without an original text the URL itself is resolved.
  VYR_TReference reference(Url("file:///data/x%20y.tif"), VYR_Inch, 0, 0);
  EXPECT_EQ(reference.Original(Url("file:///jobs/page.pdf")).LocalPath(),
            QEN_TString("/data/x y.tif"));
  // Neither a reference nor a base: the folder of nothing, and no exception.
  EXPECT_NO_THROW(VYR_TReference().Original(QEN_TURL()));
  EXPECT_NO_THROW(
      VYR_TReference(QEN_TURL(), VYR_Inch, 0, 0, QEN_TString("%%//\xFF///")).Original(Url("x")));
}

TEST_F(ValueTest, ReferenceEqualityLooksAtEveryField) {
  QEN_TURL url = Url("file:///a.tif");
  VYR_TReference base(url, VYR_MM, 1.0, 2.0);
  for (const VYR_TReference& other :
       {VYR_TReference(url, VYR_CM, 1.0, 2.0), VYR_TReference(url, VYR_MM, 1.5, 2.0),
        VYR_TReference(url, VYR_MM, 1.0, 2.5), VYR_TReference(Url("file:///b.tif"), VYR_MM, 1, 2),
        VYR_TReference(url, VYR_MM, 1.0, 2.0, QEN_TString("a.tif"))})
    EXPECT_NE(base, other) << Write(other);
  VYR_TReference notANumber(url, VYR_MM, std::numeric_limits<double>::quiet_NaN(), 2.0);
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
  EXPECT_FALSE(FullReference().QEN_IsIdent(VYR_TTag(1, 2, 3, 4)));
}

TEST_F(ValueTest, ReferencePackedFormIsPinnedAndRebuiltIdenticalInEveryUnit) {
  ExpectPinnedPacked("vyr_reference.bin",
                     std::vector<VYR_TReference>{FullReference(), VYR_TReference()});
  // Every unit, and one outside the named ones, travels unchanged.
  for (unsigned unit : {0u, 1u, 2u, 3u, 4u, 0xFFFFFFFFu}) {
    VYR_TReference reference(FullReference().File(), static_cast<VYR_TMUnits>(unit), -1e300, 0.1);
    EXPECT_TRUE(As<VYR_TReference>(ExtractAll(Pack(reference)).at(0)).QEN_IsIdent(reference))
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

TEST_F(ValueTest, ReferenceTextFormIsTheQuotedUrlThenUnitAndOffsets) {
  VYR_TReference reference(Url("file:///jobs/a%20b.tif?iPageNr=2"), VYR_CM, 1.5, -0.25);
  EXPECT_EQ(Write(reference), "\"file:///jobs/a%20b.tif?iPageNr=2\"\nCM 1.5, -0.25");
  for (unsigned unit = 0; unit <= 4; ++unit) {
    VYR_TReference one(FullReference().File(), static_cast<VYR_TMUnits>(unit), 0.1, -123.456789);
    EXPECT_EQ(Read<VYR_TReference>(Write(one)), one) << Write(one);
  }
  // The unit word is read whatever its case, and white space may be any.
  EXPECT_EQ(Read<VYR_TReference>("\"file:///a\"\tmM\n1, 2").Units(), VYR_MM);
  EXPECT_EQ(Read<VYR_TReference>("\"file:///a\" PIXEL 1, 2").Units(), VYR_Pixel);
  VYR_TReference read = Read<VYR_TReference>("\"file:///a\" cm -1e3, \n 2.5");
  EXPECT_EQ(read.VOffset(), -1000.0);
  EXPECT_EQ(read.HOffset(), 2.5);
  EXPECT_EQ(read.File(), Url("file:///a"));
}

TEST_F(ValueTest, ReferenceTextThatDoesNotFitIsASyntaxError) {
  for (const char* text :
       {"\"file:///a\" Inches 1, 2", "\"file:///a\" 1, 2", "\"file:///a\" Inch 1 2",
        "\"file:///a\" Inch 1 , 2", "\"file:///a\" Inch 1,", "\"file:///a\" Inch", "\"file:///a\"",
        "file:///a Inch 1, 2"})
    EXPECT_THROW(Read<VYR_TReference>(text), QEN_ESyntaxError) << text;
  // A unit outside the named ones writes a word that doesn't read back.
  VYR_TReference odd(Url("file:///a"), static_cast<VYR_TMUnits>(9), 0, 0);
  EXPECT_THROW(Read<VYR_TReference>(Write(odd)), QEN_ESyntaxError);
  // The framed text is pinned and rebuilt by Extract.
  ExpectPinnedText("vyr_reference.txt",
                   std::vector<VYR_TReference>{FullReference(), VYR_TReference()});
}

// --- The ink ----------------------------------------------------------------------

TEST_F(ValueTest, InkNamesAndTypesAreCheckedAndGetTheirPreviews) {
  const VYR_TInk black("Black", "process"), green("Green", "Display");
  EXPECT_STREQ(black.InkName().c_str(), "black");
  EXPECT_EQ(black.InkPreviewEnc(), VYR_PreviewCmyk);
  EXPECT_EQ(std::vector<double>(black.InkPreview(), black.InkPreview() + 4),
            (std::vector<double>{0, 0, 0, 1}));
  EXPECT_STREQ(green.InkName().c_str(), "green");
  EXPECT_EQ(green.InkPreviewEnc(), VYR_PreviewRgb);
  EXPECT_EQ(std::vector<double>(green.InkPreview(), green.InkPreview() + 3),
            (std::vector<double>{0, 1, 0}));
  const VYR_TInk pantone("Pantone 185", "designer");
  EXPECT_STREQ(pantone.InkName().c_str(), "Pantone 185");
  EXPECT_EQ(pantone.InkPreview(), nullptr);
  EXPECT_THROW(VYR_TInk("red", "process"), VYR_EWrongInkName);
  EXPECT_THROW(VYR_TInk("cyan", "display"), VYR_EWrongInkName);
  EXPECT_THROW(VYR_TInk(static_cast<VYR_TInks>(8)), VYR_EWrongInkName);
}

TEST_F(ValueTest, InkPreviewChecksKeepOrDropThePreview) {
  VYR_TInk ink("Spot", "designer", 0.1, 0.2, 0.3, VYR_PreviewRgb);
  EXPECT_THROW(ink.SetInkPreview(0, 0, 1.5, VYR_PreviewRgb), VYR_EIllegalRGBInkPreviewValues);
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

TEST_F(ValueTest, InkStoredFormsArePinnedAndSurviveEveryCut) {
  const std::vector<VYR_TInk> inks = {
      VYR_TInk(VYR_InkMagenta),
      VYR_TInk(VYR_InkRed),
      VYR_TInk("Pantone \"185\" C", "designer"),
      VYR_TInk("Lack", "spot", 0.25, 0.5, 0.75, VYR_PreviewHsv),
      VYR_TInk("Gold", "spot", 0.1, 0.2, 0.3, 0.4),
  };
  ExpectPinnedPacked("vyr_ink.bin", inks, 4);
  ExpectPinnedText("vyr_ink.txt", inks, 4);
  // An encoding that is no preview encoding reads back as none, without numbers.
  std::unique_ptr<QEN_IInterface> made(VYR_TInk::QEN_Create());
  VYR_TInk& gray = *made->DynamicCast<VYR_TInk>();
  ReadInto(gray, "\"k\" \"spot\" \"Grayscale\"");
  EXPECT_EQ(gray.InkPreviewEnc(), VYR_PreviewNone);
}
