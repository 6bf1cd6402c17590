// The reference: facts in URL parameters, resolution of the original text,
// binary and text forms.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "stream_test_support.h"

namespace {

using test_support::Bytes;
using test_support::ExtractAll;
using test_support::Pack;
using ReferenceTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

std::string Write(const VYR_TReference& reference) { return test_support::Write(reference); }
VYR_TReference Read(const std::string& text) { return test_support::Read<VYR_TReference>(text); }

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
    EXPECT_EQ(Read(Write(one)), one) << Write(one);
  }
  // The unit word is read whatever its case.
  const std::pair<const char*, VYR_TMUnits> units[] = {{"\"file:///a\" inch 1,2", VYR_Inch},
                                                       {"\"file:///a\"\tmM\n1, 2", VYR_MM},
                                                       {"\"file:///a\" PIXEL 1, 2", VYR_Pixel},
                                                       {"\"file:///a\" Mil 1, 2", VYR_Mil}};
  for (const auto& row : units) EXPECT_EQ(Read(row.first).Units(), row.second) << row.first;
  VYR_TReference read = Read("\"file:///a\" cm -1e3, \n 2.5");
  EXPECT_EQ(read.VOffset(), -1000.0);
  EXPECT_EQ(read.HOffset(), 2.5);
  EXPECT_EQ(read.File(), Url("file:///a"));
}

TEST_F(ReferenceTest, TextThatDoesNotFitIsASyntaxError) {
  for (const char* text :
       {"\"file:///a\" Inches 1, 2", "\"file:///a\" 1, 2", "\"file:///a\" Inch 1 2",
        "\"file:///a\" Inch 1 , 2", "\"file:///a\" Inch 1,", "\"file:///a\" Inch", "\"file:///a\"",
        "file:///a Inch 1, 2"})
    EXPECT_THROW(Read(text), QEN_ESyntaxError) << text;
  // A unit outside the named ones writes a word that doesn't read back.
  VYR_TReference odd(Url("file:///a"), static_cast<VYR_TMUnits>(9), 0, 0);
  EXPECT_THROW(Read(Write(odd)), QEN_ESyntaxError);
}

TEST_F(ReferenceTest, FramedTextIsPinnedAndRebuiltByExtract) {
  test_support::ExpectPinnedText("vyr_reference.txt",
                                 std::vector<VYR_TReference>{FullReference(), VYR_TReference()});
}
