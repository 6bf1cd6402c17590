// "embed" URLs: their parameters and round trips, buffers opened on them,
// and the file information of files and ranges.

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using namespace buffertest;

class EmbedTest : public test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__> {
 protected:
  void SetUp() override { ASSERT_FALSE(mDir.Path().empty()); }
  static std::string Param(const QEN_TURL& url, const char* key) {
    QEN_TString value;
    return url.GetParam(key, value) ? value.c_str() : "<missing>";
  }
  QEN_TURL FileUrl(const std::string& name) const {
    return QEN_TURL::LocalToURL(QEN_TString(mDir.File(name).c_str()));
  }
  TempDir mDir;
};

// The text of an "embed" URL is stored in tickets: it is pinned here.
TEST_F(EmbedTest, StoredTextIsPinned) {
  const QEN_TURL file("file:///data/jobs/c.tif");
  const QEN_TURL embedded = VYR_EmbeddedFile(file, 1000, 2048, 0, 2.5, 3.0);
  EXPECT_STREQ(embedded.AsString().c_str(),
               "embed:///data/jobs/c.tif?embed.position_low=2048l&embed.position_high=0l"
               "&embed.length=1000l&embed.realsize_v=2.500000&embed.realsize_h=3.000000");
  EXPECT_TRUE(QEN_TURL(embedded.AsString()) == embedded);
  EXPECT_EQ(embedded.PathString(), file.PathString());
  // Only both sizes 0 leave them out.
  EXPECT_EQ(Param(VYR_EmbeddedFile(file, 1000, 2048, 0, 0.0, 0.0), "embed.realsize_v"),
            "<missing>");
  EXPECT_EQ(Param(VYR_EmbeddedFile(file, 1000, 2048, 0, 0.0, 3.0), "embed.realsize_v"), "0.000000");
  // Any protocol is accepted as the container; size 0 is written as well.
  const QEN_TURL web = VYR_EmbeddedFile(QEN_TURL("http://host/a"), 0, 1, 2, 0.0, 0.0);
  EXPECT_STREQ(web.Protocol().c_str(), "embed");
  EXPECT_EQ(Param(web, "embed.length"), "0l");
  EXPECT_EQ(Param(web, "embed.position_high"), "2l");
}

TEST_F(EmbedTest, RealSizeNeedsBothValues) {
  const QEN_TURL file("file:///c.tif");
  double v = -1, h = -1;
  EXPECT_TRUE(VYR_Embedded2Size(VYR_EmbeddedFile(file, 1, 2, 0, 2.5, 3.0), v, h));
  EXPECT_DOUBLE_EQ(v, 2.5);
  EXPECT_DOUBLE_EQ(h, 3.0);
  QEN_TURL onlyOne = VYR_EmbeddedFile(file, 1, 2, 0, 0.0, 0.0);
  EXPECT_FALSE(VYR_Embedded2Size(file, v, h));
  onlyOne.SetParam(QEN_TString("embed.realsize_v"), QEN_TString("1.0"));
  EXPECT_FALSE(VYR_Embedded2Size(onlyOne, v, h));
}

TEST_F(EmbedTest, NestedRangesCountFromTheOuterOne) {
  const QEN_TURL outer = VYR_EmbeddedFile(QEN_TURL("file:///c.tif"), 1000, 2048, 0, 0.0, 0.0);
  const QEN_TURL inner = VYR_EmbeddedFile(outer, 900, 100, 0, 0.0, 0.0);
  EXPECT_EQ(Param(inner, "embed.position_low"), "2148l");
  EXPECT_EQ(Param(inner, "embed.length"), "900l");
  try {
    VYR_EmbeddedFile(outer, 901, 100, 0, 0.0, 0.0);
    FAIL() << "no exception";
  } catch (const VYR_EEmbedRegionTooLarge& failure) {
    EXPECT_STREQ(failure.QEN_ExceptionFile().c_str(), "Private/Source/vyr_utils");
    // The data is the URL as far as it was made: old protocol, new numbers.
    const QEN_IPackable* data = failure.QEN_Data().Object();
    const QEN_TURL* made =
        data != nullptr ? static_cast<const QEN_TURL*>(data->DynamicCast("QEN_TURL")) : nullptr;
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(Param(*made, "embed.position_low"), "2148l");
  }
  EXPECT_THROW(VYR_EmbeddedFile(outer, 1, 0, 1, 0.0, 0.0), VYR_EEmbedRegionTooLarge);
  // Size 0 keeps the outer length, even past the outer end.
  const QEN_TURL moved = VYR_EmbeddedFile(outer, 0, 100, 0, 0.0, 0.0);
  EXPECT_EQ(Param(moved, "embed.position_low"), "2148l");
  EXPECT_EQ(Param(moved, "embed.length"), "1000l");
  // An outer length of 0 has no end to pass.
  const QEN_TURL open = VYR_EmbeddedFile(QEN_TURL("file:///c.tif"), 0, 10, 0, 0.0, 0.0);
  EXPECT_NO_THROW(VYR_EmbeddedFile(open, 0xFFFFFFFFu, 5, 3, 0.0, 0.0));
  // The positions add on 64 bits: a carry passes into the high half.
  const QEN_TURL high = VYR_EmbeddedFile(QEN_TURL("file:///c.tif"), 0, 0xFFFFFF00u, 0, 0.0, 0.0);
  const QEN_TURL carried = VYR_EmbeddedFile(high, 0, 0x200, 0, 0.0, 0.0);
  EXPECT_EQ(Param(carried, "embed.position_low"), "256l");
  EXPECT_EQ(Param(carried, "embed.position_high"), "1l");
}

TEST_F(EmbedTest, TagsAndRoundTrips) {
  const QEN_TURL container("file:///data/c.tif?password=secret");
  const QEN_TURL embedded = VYR_EmbeddedFile(container, 1000, 2048, 0, 0.0, 0.0);
  EXPECT_TRUE(VYR_Embedded2Tag(embedded) == VYR_TTag(2048u, 0u, 1000u, 0u));
  QEN_TString password;
  EXPECT_TRUE(VYR_ExtractPassword(embedded, password));  // it survives
  EXPECT_STREQ(password.c_str(), "secret");

  const QEN_TURL original = VYR_Embedded2Original(embedded);
  EXPECT_STREQ(original.Protocol().c_str(), "file");
  EXPECT_EQ(original.ParamCount(), 0u);
  EXPECT_FALSE(VYR_ExtractPassword(original, password));
  EXPECT_TRUE(original == QEN_TURL("file:///data/c.tif"));
  EXPECT_TRUE(VYR_EmbeddedFile(original, VYR_Embedded2Tag(embedded)) ==
              VYR_EmbeddedFile(QEN_TURL("file:///data/c.tif"), 1000, 2048, 0, 0.0, 0.0));
  // A tag's high size is not used.
  EXPECT_EQ(Param(VYR_EmbeddedFile(original, VYR_TTag(1u, 2u, 3u, 4u)), "embed.length"), "3l");
  // Places with characters that need escaping come back the same.
  const QEN_TURL odd = QEN_TURL::LocalToURL(QEN_TString("/tmp/a b%/c#d.tif"));
  EXPECT_TRUE(VYR_Embedded2Original(VYR_EmbeddedFile(odd, 5, 6, 0, 0.0, 0.0)) == odd);
  // Another protocol turns into a "file" URL of the same place.
  EXPECT_STREQ(VYR_Embedded2Original(QEN_TURL("http://host/x")).Protocol().c_str(), "file");

  EXPECT_THROW(VYR_Embedded2Tag(container), VYR_ENotEmbeddedFile);
}

TEST_F(EmbedTest, NumbersAreReadUpToTheFirstNonDigit) {
  const struct {
    const char *low, *high, *length;
    VYR_TTag tag;
  } rows[] = {
      {"1000", "2", "7", VYR_TTag(1000u, 2u, 7u, 0u)},
      {"12abc", "x", "", VYR_TTag(12u, 0u, 0u, 0u)},
      {"4294967295l", "4294967296", "99999999999999999999",
       VYR_TTag(0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0u)},
      {nullptr, nullptr, nullptr, VYR_TTag(0u, 0u, 0u, 0u)},  // no parameters at all
  };
  for (const auto& row : rows) {
    QEN_TURL url("file:///c.tif");
    url.SetProtocol(QEN_TString("embed"));
    if (row.low != nullptr) {
      url.SetParam(QEN_TString("embed.position_low"), QEN_TString(row.low));
      url.SetParam(QEN_TString("embed.position_high"), QEN_TString(row.high));
      url.SetParam(QEN_TString("embed.length"), QEN_TString(row.length));
    }
    EXPECT_TRUE(VYR_Embedded2Tag(url) == row.tag) << (row.low ? row.low : "none");
  }
}

TEST_F(EmbedTest, BuffersOnRangesOfAContainer) {
  const std::vector<unsigned char> bytes = Pattern(5000);
  WriteFile(mDir.File("container.bin"), bytes);
  const QEN_TURL file = FileUrl("container.bin");
  auto part = [&](size_t from, size_t count) {
    return std::vector<unsigned char>(bytes.begin() + from, bytes.begin() + from + count);
  };
  const QEN_TURL range = VYR_EmbeddedFile(file, 1000, 1000, 0, 0.0, 0.0);
  EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::Create(range, 0, 0, 0))), part(1000, 1000));
  EXPECT_EQ(Owned(VYR_IBuffer::Create(range, 0, 0, 5000))->Size(), 1000u);  // can't be widened
  Owned narrow(VYR_IBuffer::Create(range, 5, 0, 10));
  EXPECT_EQ(BytesOf(*narrow), part(1005, 10));
  EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::Create(range.AsString(), VYR_TTag(5u, 0u, 10u, 0u)))),
            part(1005, 10));
  // The range doesn't limit the view: behind it lies the rest of the file.
  EXPECT_EQ(std::memcmp((*narrow)(20, 4), &bytes[1025], 4), 0);
  const QEN_TURL toTheEnd = VYR_EmbeddedFile(file, 0, 1000, 0, 0.0, 0.0);
  EXPECT_EQ(Owned(VYR_IBuffer::Create(toTheEnd, 0, 0, 0))->Size(), 4000u);
  // Nested ranges open where they lie.
  const QEN_TURL nested = VYR_EmbeddedFile(range, 100, 50, 0, 0.0, 0.0);
  EXPECT_EQ(BytesOf(VYR_TBuffer(nested, VYR_TTag(0u, 0u, 0u, 0u))), part(1050, 100));

  // The range confines its readers: positions at or past its length find
  // nothing, sizes stop at its end, and positions that wrap are refused.
  EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::Create(range, 950, 0, 0))), part(1950, 50));
  EXPECT_EQ(BytesOf(*Owned(VYR_IBuffer::Create(range, 950, 0, 100))), part(1950, 50));
  QEN_TURL wrapping = range;
  wrapping.SetParam(QEN_TString("embed.position_high"), QEN_TString("4294967295l"));
  wrapping.SetParam(QEN_TString("embed.length"), QEN_TString("0l"));
  const struct {
    const QEN_TURL* url;
    unsigned low, high;
  } outside[] = {
      {&range, 1000, 0}, {&range, 0, 1}, {&wrapping, 0, 1}, {&wrapping, 0xFFFFFFFFu, 0xFFFFFFFFu}};
  for (const auto& row : outside)
    EXPECT_THROW(Owned(VYR_IBuffer::Create(*row.url, row.low, row.high, 0)),
                 VYR_EBufferSliceStartsAfterEnd)
        << row.low;

  const QEN_TURL behind = VYR_EmbeddedFile(file, 10, 6000, 0, 0.0, 0.0);
  EXPECT_THROW(Owned(VYR_IBuffer::Create(behind, 0, 0, 0)), VYR_EBufferSliceStartsAfterEnd);
  const QEN_TURL missing = VYR_EmbeddedFile(FileUrl("missing"), 10, 0, 0, 0.0, 0.0);
  EXPECT_THROW(Owned(VYR_IBuffer::Create(missing, 0, 0, 0)), VYR_EBufferCannotOpenFile);
}

TEST_F(EmbedTest, FileInformationOfFilesAndRanges) {
  WriteFile(mDir.File("info.bin"), Pattern(5000));
  const QEN_TURL file = FileUrl("info.bin");
  const QEN_TFileInfo plain = VYR_GetFileInfo(file);
  EXPECT_EQ(plain.Size(), 5000.0);
  EXPECT_TRUE(VYR_GetFileInfo(VYR_EmbeddedFile(file, 0, 1000, 0, 0.0, 0.0)).ModificationTime() ==
              plain.ModificationTime());
  // The rest of the file, a length inside it, and ranges past its end.
  const struct {
    unsigned length, low, high;
    double size;
  } rows[] = {{0, 1000, 0, 4000.0}, {300, 1000, 0, 300.0}, {0, 1000, 1, 0.0}, {0, 6000, 0, 0.0}};
  for (const auto& row : rows)
    EXPECT_EQ(
        VYR_GetFileInfo(VYR_EmbeddedFile(file, row.length, row.low, row.high, 0.0, 0.0)).Size(),
        row.size);

  EXPECT_THROW(VYR_GetFileInfo(QEN_TURL("http://host/x")), VYR_EUnsupportedProtocol);
  // The base library's own failure passes through unchanged.
  EXPECT_THROW(VYR_GetFileInfo(FileUrl("missing")), QEN_EFileException);
  EXPECT_THROW(VYR_GetFileInfo(VYR_EmbeddedFile(FileUrl("missing"), 1, 0, 0, 0.0, 0.0)),
               QEN_EFileException);
}

}  // namespace
