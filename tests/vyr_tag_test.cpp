// The tag: construction, binary and text forms.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <memory>
#include <string>
#include <vector>

#include "stream_test_support.h"

namespace {

using test_support::Extract;
using TagTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

std::string Write(const VYR_TTag& tag) { return test_support::Write(tag); }
VYR_TTag Read(const std::string& text) { return test_support::Read<VYR_TTag>(text); }

}  // namespace

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
  EXPECT_EQ(Read(Write(largest)), largest);
  EXPECT_EQ(Read("7:1,\n  9 :\t2"), VYR_TTag(7, 1, 9, 2));
  // White space before the comma is not allowed; before the colons it is.
  for (const char* text : {"1 : 2 3 : 4", "1 : 2 , 3 : 4", "1 ; 2, 3 : 4",
                           "1 : 2, 3 : ", "1 : 2, x : 4", "4294967296 : 0, 0 : 0"})
    EXPECT_THROW(Read(text), QEN_ESyntaxError) << text;
  // Framed, and rebuilt by its class name.
  const auto rebuilt = test_support::ExtractAllText("VYR_TTag { 3 : 4, 5 : 6 }");
  ASSERT_EQ(rebuilt.size(), 1u);
  EXPECT_EQ(*rebuilt[0]->DynamicCast<VYR_TTag>(), VYR_TTag(3, 4, 5, 6));
}
