// The tag: construction, binary and text forms.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <memory>
#include <string>
#include <vector>

#include "stream_test_support.h"

namespace {

using test_support::Extract;
using test_support::Golden;
using test_support::Pack;
using TagTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

std::string Write(const VYR_TTag& tag) { return test_support::Write(tag); }
VYR_TTag Read(const std::string& text) { return test_support::Read<VYR_TTag>(text); }

}  // namespace

TEST_F(TagTest, ConstructionSplitsSixtyFourBitValues) {
  VYR_TTag tag(0x100000002ULL, 0x300000004ULL);
  EXPECT_EQ(tag.Position(), 2u);
  EXPECT_EQ(tag.PositionHigh(), 1u);
  EXPECT_EQ(tag.Size(), 4u);
  EXPECT_EQ(tag.SizeHigh(), 3u);
  EXPECT_EQ(VYR_TTag(16ULL, 32ULL), VYR_TTag(16, 0, 32, 0));
}

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

TEST_F(TagTest, PackedFormIsPinned) {
  std::vector<unsigned char> packed = Pack(VYR_TTag(16ULL, 32ULL));
  std::vector<unsigned char> golden = Golden("vyr_tag.bin", packed);
  EXPECT_EQ(packed, golden);
  std::unique_ptr<QEN_IInterface> rebuilt = Extract(golden);
  ASSERT_NE(rebuilt, nullptr);
  EXPECT_EQ(*rebuilt->DynamicCast<VYR_TTag>(), VYR_TTag(16ULL, 32ULL));
}

TEST_F(TagTest, TruncatedPackedTagIsAnExceptionAtEveryLength) {
  std::vector<unsigned char> packed = Pack(VYR_TTag(1, 2, 3, 4));
  for (size_t length = 0; length < packed.size(); ++length) {
    std::vector<unsigned char> cut(packed.begin(), packed.begin() + length);
    EXPECT_THROW(Extract(cut), QEN_EException) << "length " << length;
  }
}

TEST_F(TagTest, TextFormReadsBack) {
  EXPECT_EQ(Write(VYR_TTag(16ULL, 32ULL)), "16 : 0, 32 : 0");
  VYR_TTag largest(0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu);
  EXPECT_EQ(Write(largest), "4294967295 : 4294967295, 4294967295 : 4294967295");
  EXPECT_EQ(Read(Write(largest)), largest);
  EXPECT_EQ(Read("16 : 0, 32 : 0"), VYR_TTag(16ULL, 32ULL));
  EXPECT_EQ(Read("7:1,\n  9 :\t2"), VYR_TTag(7, 1, 9, 2));
}

TEST_F(TagTest, TextThatDoesNotFitIsASyntaxError) {
  // White space before the comma is not allowed; before the colons it is.
  EXPECT_THROW(Read("1 : 2 3 : 4"), QEN_ESyntaxError);
  EXPECT_THROW(Read("1 : 2 , 3 : 4"), QEN_ESyntaxError);
  EXPECT_THROW(Read("1 ; 2, 3 : 4"), QEN_ESyntaxError);
  EXPECT_THROW(Read("1 : 2, 3 : "), QEN_ESyntaxError);
  EXPECT_THROW(Read("1 : 2, x : 4"), QEN_ESyntaxError);
  EXPECT_THROW(Read("4294967296 : 0, 0 : 0"), QEN_ESyntaxError);
  try {
    Read("1 : 2 3 : 4");
  } catch (const QEN_ESyntaxError& e) {
    EXPECT_NE(std::string(e.QEN_Message().c_str()).find("line 1"), std::string::npos)
        << e.QEN_Message().c_str();
  }
}

TEST_F(TagTest, FramedTextIsRebuiltByExtract) {
  QEN_TMemoryStream memory;
  QEN_THumanReadableStream writer(memory);
  writer.WriteObject(VYR_TTag(3, 4, 5, 6));
  QEN_TMemoryStream source(memory.Data(), memory.Length(), memory.Length());
  QEN_THumanReadableStream reader(source);
  std::unique_ptr<QEN_IInterface> rebuilt(reader.Extract());
  ASSERT_NE(rebuilt, nullptr);
  EXPECT_EQ(*rebuilt->DynamicCast<VYR_TTag>(), VYR_TTag(3, 4, 5, 6));
}
