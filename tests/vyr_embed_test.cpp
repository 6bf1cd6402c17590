// "embed" URLs: their parameters and round trips, buffers opened on them,
// and the file information of files and ranges.

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using namespace buffertest;

class EmbedTest : public test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__> {
 protected:
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
// ... and nested ranges count from the outer one.
TEST_F(EmbedTest, StoredTextRealSizeAndNestedRanges) {
  const QEN_TURL file("file:///data/jobs/c.tif");
  const QEN_TURL embedded = VYR_EmbeddedFile(file, 1000, 2048, 0, 2.5, 3.0);
  EXPECT_STREQ(embedded.AsString().c_str(),
               "embed:///data/jobs/c.tif?embed.position_low=2048l&embed.position_high=0l"
               "&embed.length=1000l&embed.realsize_v=2.500000&embed.realsize_h=3.000000");
  double v = -1, h = -1;
  EXPECT_TRUE(VYR_Embedded2Size(embedded, v, h) && v == 2.5 && h == 3.0);
  // Only both sizes 0 leave them out, and one alone is no size.
  QEN_TURL none = VYR_EmbeddedFile(file, 1000, 2048, 0, 0.0, 0.0);
  EXPECT_EQ(Param(none, "embed.realsize_v"), "<missing>");
  EXPECT_EQ(Param(VYR_EmbeddedFile(file, 1000, 2048, 0, 0.0, 3.0), "embed.realsize_v"), "0.000000");
  none.SetParam(QEN_TString("embed.realsize_v"), QEN_TString("1.0"));
  EXPECT_FALSE(VYR_Embedded2Size(none, v, h));
  // Any protocol is accepted as the container; size 0 is written as well.
  EXPECT_EQ(Param(VYR_EmbeddedFile(QEN_TURL("http://a/b"), 0, 1, 2, 0.0, 0.0), "embed.length"),
            "0l");
  // Nested ranges count from the outer one.
  const QEN_TURL& outer = embedded;
  const QEN_TURL inner = VYR_EmbeddedFile(outer, 900, 100, 0, 0.0, 0.0);
  EXPECT_EQ(Param(inner, "embed.position_low"), "2148l");
  EXPECT_EQ(Param(inner, "embed.length"), "900l");
  EXPECT_THROW(VYR_EmbeddedFile(outer, 901, 100, 0, 0.0, 0.0), VYR_EEmbedRegionTooLarge);
  EXPECT_THROW(VYR_EmbeddedFile(outer, 1, 0, 1, 0.0, 0.0), VYR_EEmbedRegionTooLarge);
  // Size 0 keeps the outer length, even past the outer end.
  EXPECT_EQ(Param(VYR_EmbeddedFile(outer, 0, 100, 0, 0.0, 0.0), "embed.length"), "1000l");
  // An outer length of 0 has no end to pass.
  const QEN_TURL open = VYR_EmbeddedFile(file, 0, 10, 0, 0.0, 0.0);
  EXPECT_NO_THROW(VYR_EmbeddedFile(open, 0xFFFFFFFFu, 5, 3, 0.0, 0.0));
  // The positions add on 64 bits: a carry passes into the high half.
  const QEN_TURL carried =
      VYR_EmbeddedFile(VYR_EmbeddedFile(file, 0, 0xFFFFFF00u, 0, 0.0, 0.0), 0, 0x200, 0, 0.0, 0.0);
  EXPECT_EQ(Param(carried, "embed.position_low"), "256l");
  EXPECT_EQ(Param(carried, "embed.position_high"), "1l");
}

TEST_F(EmbedTest, TagsRoundTripsAndNumbers) {
  const QEN_TURL container("file:///data/c.tif?password=secret");
  const QEN_TURL embedded = VYR_EmbeddedFile(container, 1000, 2048, 0, 0.0, 0.0);
  EXPECT_TRUE(VYR_Embedded2Tag(embedded) == VYR_TTag(2048u, 0u, 1000u, 0u));
  QEN_TString password;
  EXPECT_TRUE(VYR_ExtractPassword(embedded, password) && password == "secret");  // it survives

  const QEN_TURL original = VYR_Embedded2Original(embedded);
  EXPECT_FALSE(VYR_ExtractPassword(original, password));
  EXPECT_TRUE(original == QEN_TURL("file:///data/c.tif"));
  // A tag's high size is not used.
  EXPECT_EQ(Param(VYR_EmbeddedFile(original, VYR_TTag(1u, 2u, 3u, 4u)), "embed.length"), "3l");
  // Places with characters that need escaping come back the same.
  const QEN_TURL odd = QEN_TURL::LocalToURL(QEN_TString("/tmp/a b%/c#d.tif"));
  EXPECT_TRUE(VYR_Embedded2Original(VYR_EmbeddedFile(odd, 5, 6, 0, 0.0, 0.0)) == odd);
  // Another protocol turns into a "file" URL of the same place.
  EXPECT_STREQ(VYR_Embedded2Original(QEN_TURL("http://host/x")).Protocol().c_str(), "file");

  EXPECT_THROW(VYR_Embedded2Tag(container), VYR_ENotEmbeddedFile);
  // Numbers are read up to the first non-digit.
  const std::pair<const char*, VYR_TTag> rows[] = {
      {"?embed.position_low=12abc&embed.position_high=x&embed.length=", VYR_TTag(12u, 0u, 0u, 0u)},
      {"?embed.position_low=4294967295l&embed.position_high=4294967296"
       "&embed.length=99999999999999999999",
       VYR_TTag(0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0u)},
      {"", VYR_TTag(0u, 0u, 0u, 0u)},  // no parameters at all
  };
  for (const auto& row : rows) {
    const QEN_TURL url(QEN_TString((std::string("embed:///c.tif") + row.first).c_str()));
    EXPECT_TRUE(VYR_Embedded2Tag(url) == row.second) << row.first;
  }
}

TEST_F(EmbedTest, BuffersAndFileInformationOnRangesOfAContainer) {
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
  // The range doesn't limit the view: behind it lies the rest of the file.
  EXPECT_EQ(std::memcmp((*narrow)(20, 4), &bytes[1025], 4), 0);
  const QEN_TURL toTheEnd = VYR_EmbeddedFile(file, 0, 1000, 0, 0.0, 0.0);
  EXPECT_EQ(Owned(VYR_IBuffer::Create(toTheEnd, 0, 0, 0))->Size(), 4000u);
  // Nested ranges open where they lie.
  const QEN_TURL nested = VYR_EmbeddedFile(range, 100, 50, 0, 0.0, 0.0);
  EXPECT_EQ(BytesOf(VYR_TBuffer(nested, VYR_TTag(0u, 0u, 0u, 0u))), part(1050, 100));

  // The range confines its readers: positions at or past its length find
  // nothing, sizes stop at its end, and positions that wrap are refused.
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

  // The file information of the file and of ranges of it.
  const QEN_TFileInfo plain = VYR_GetFileInfo(file);
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
  EXPECT_THROW(VYR_GetFileInfo(VYR_EmbeddedFile(FileUrl("missing"), 1, 0, 0, 0.0, 0.0)),
               QEN_EFileException);
}

}  // namespace
