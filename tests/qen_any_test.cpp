// The variant: what it answers to, conversions, ownership, and its binary and
// text forms.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qen/qen.h"
#include "stream_test_support.h"

namespace {

using test_support::Bytes;
using test_support::Pack;
using AnyTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_qentypes__>;

QEN_TAny UnpackAny(const Bytes& bytes) {
  QEN_TAny any;
  test_support::DataReader(bytes).in >> any;
  return any;
}
std::string Text(const QEN_TAny& any) { return test_support::Write(any); }
QEN_TAny FromText(const std::string& text) { return test_support::Read<QEN_TAny>(text); }

// None of the texts reads as a variant.
void ExpectRefused(std::initializer_list<const char*> texts) {
  for (const char* text : texts) EXPECT_THROW(FromText(text), QEN_EStreamException) << text;
}

void SomeFunction() {}

TEST_F(AnyTest, AnObjectSpeaksForTheVariant) {
  QEN_TAny any(QEN_TString("inside"));
  EXPECT_TRUE(any.HasSuperclass("QEN_TAny"));
  EXPECT_TRUE(any.HasInterface("QEN_IHashable")) << "an interface of the content";
  // A number answers to the name of its width.
  QEN_TAny small(static_cast<unsigned char>(7));
  EXPECT_EQ(*static_cast<const unsigned char*>(small.DynamicCast("QEN_TUInt8")), 7);
  EXPECT_EQ(small.DynamicCast("QEN_TUInt32"), nullptr);

  // An exception goes in by copy and comes back by name, as throwing does.
  QEN_TAny holder(QEN_EStreamException(QEN_TString("message")));
  EXPECT_TRUE(holder.HasSuperclass("QEN_EStreamException"));
}

TEST_F(AnyTest, ConversionsCheckTheRange) {
  // A double is truncated when it fits.
  EXPECT_EQ(static_cast<unsigned>(QEN_TAny(-0.5)), 0u);
  EXPECT_EQ(QEN_TAny(-9223372036854775808.0).AsInt64(), std::numeric_limits<long long>::min());
  EXPECT_EQ(QEN_TAny(-2147483648ll).AsInt32(), std::numeric_limits<int>::min());

  EXPECT_THROW(static_cast<unsigned char>(QEN_TAny(256u)), QEN_EAnyConversion);
  EXPECT_THROW(static_cast<unsigned>(QEN_TAny(-1.0)), QEN_EAnyConversion);
  EXPECT_THROW(QEN_TAny(18446744073709551616.0).AsUInt64(), QEN_EAnyConversion);
  EXPECT_THROW(QEN_TAny(std::nan("")).AsUInt64(), QEN_EAnyConversion);
  EXPECT_THROW(QEN_TAny(9223372036854775808ull).AsInt64(), QEN_EAnyConversion);
  EXPECT_THROW(QEN_TAny(-2147483649ll).AsInt32(), QEN_EAnyConversion);
  // What is no number does not convert to one.
  EXPECT_THROW(static_cast<unsigned>(QEN_TAny("12")), QEN_EAnyConversion);
  EXPECT_THROW(static_cast<bool>(QEN_TAny()), QEN_EAnyConversion);
}

TEST_F(AnyTest, PointersComeBackByTheMatchingConversionAndAreNotPacked) {
  int target = 0;
  QEN_TAny pointer, function;
  pointer = static_cast<const void*>(&target);
  function = &SomeFunction;
  EXPECT_EQ(static_cast<const void*>(pointer), &target);
  EXPECT_EQ(static_cast<QEN_TAny::Function>(function), &SomeFunction);
  EXPECT_THROW(static_cast<QEN_TAny::Function>(pointer), QEN_EAnyConversion);
  EXPECT_THROW(static_cast<const void*>(function), QEN_EAnyConversion);
  // Nothing is the null pointer, so a missing entry reads as no function.
  EXPECT_EQ(static_cast<QEN_TAny::Function>(QEN_TAny()), nullptr);

  EXPECT_THROW(Pack(pointer), QEN_EStreamException);
  EXPECT_THROW(Pack(function), QEN_EStreamException);
  EXPECT_THROW(Text(function), QEN_EStreamException);
}

TEST_F(AnyTest, EqualityIsKindAndValue) {
  EXPECT_TRUE(QEN_TAny() == QEN_TAny::Illegal());
  EXPECT_FALSE(QEN_TAny(static_cast<unsigned char>(5)) == QEN_TAny(5u)) << "kinds differ";
  EXPECT_FALSE(QEN_TAny(std::nan("")) == QEN_TAny(std::nan("")));
  // A bare object compares with a variant that holds an equal one.
  EXPECT_TRUE(QEN_TAny("a").QEN_IsIdent(QEN_TString("a")));
}

TEST_F(AnyTest, OwnershipOfTheContent) {
  QEN_TAny original("one");
  QEN_TAny copy(original);
  *static_cast<QEN_TString*>(copy.DynamicCast("QEN_TString")) = QEN_TString("two");
  EXPECT_TRUE(original == QEN_TAny("one")) << "copies own their objects";
  // Assigning the variant's own content to it keeps it intact.
  original = *original.Object();
  original = original;
  EXPECT_TRUE(original == QEN_TAny("one"));
  QEN_TAny moved(std::move(copy));
  EXPECT_TRUE(copy.IsNothing());
  EXPECT_TRUE(moved == QEN_TAny("two"));

  // An owned object is taken over, not copied, and given up again.
  QEN_TAny any;
  QEN_TString* text = new QEN_TString("owned");
  any = static_cast<QEN_IPackable*>(text);
  any = static_cast<QEN_IPackable*>(text);  // the same pointer again: nothing happens
  std::unique_ptr<QEN_IPackable> back(any.Release());
  EXPECT_EQ(static_cast<void*>(back.get()), static_cast<QEN_IPackable*>(text));

  // A variant given as an object is not nested.
  QEN_TAny inner(static_cast<unsigned short>(9));
  EXPECT_EQ(QEN_TAny(static_cast<const QEN_IPackable&>(inner)).GetKind(), QEN_TAny::kUInt16);
  QEN_TAny owner;
  owner = static_cast<QEN_IPackable*>(new QEN_TAny("x"));
  EXPECT_TRUE(owner == QEN_TAny("x"));
}

TEST_F(AnyTest, UnpackRefusesWhatNoWriterMakes) {
  Bytes good = Pack(QEN_TAny(7u));
  std::size_t codeAt = good.size() - 5;  // the kind, in front of the four bytes

  for (unsigned char code : {static_cast<unsigned char>(QEN_TAny::kPointer),
                             static_cast<unsigned char>(QEN_TAny::kFunction),
                             static_cast<unsigned char>(12), static_cast<unsigned char>(255)}) {
    Bytes bad = good;
    bad[codeAt] = code;
    EXPECT_THROW(UnpackAny(bad), QEN_EStreamException) << "code " << int(code);
  }
  // Cut anywhere: a stream exception, never a crash.
  for (std::size_t length = 0; length < good.size(); ++length)
    EXPECT_THROW(UnpackAny(Bytes(good.begin(), good.begin() + length)), QEN_EStreamException);

  // An object kind must be followed by an object of a known class: here
  // the text's class (one byte, in front of its count and three bytes) is
  // named instead, by a name nobody registered.
  Bytes unknown = Pack(QEN_TAny("abc"));
  const std::string name = "\x81\x0BQEN_TXtring";
  unknown.erase(unknown.end() - 5);
  unknown.insert(unknown.end() - 4, name.begin(), name.end());
  EXPECT_THROW(UnpackAny(unknown), QEN_EStreamException);
  for (unsigned char& byte : unknown)
    if (byte == 'X') byte = 'S';
  EXPECT_NO_THROW(UnpackAny(unknown)) << "the same bytes with the registered name read";
}

TEST_F(AnyTest, TextIsForgivingWhereItCostsNothingAndRefusesWhatDoesNotFit) {
  EXPECT_TRUE(FromText("  # a comment\n 42") == QEN_TAny(42u));
  EXPECT_TRUE(FromText("-7") == QEN_TAny(-7)) << "an unsuffixed negative is a signed 32";
  EXPECT_TRUE(FromText(Text(QEN_TAny(2.0))) == QEN_TAny(2.0)) << "a whole double stays a double";
  EXPECT_TRUE(std::isnan(FromText("nan").AsDouble()));
  EXPECT_TRUE(FromText("-9223372036854775808i64") ==
              QEN_TAny(std::numeric_limits<long long>::min()));
  ExpectRefused({"300u8", "-1u8", "65536u16", "4294967296", "-2147483649", "5u7"});
  ExpectRefused({"18446744073709551616u64", "9223372036854775808i64", "", "1e", "e5"});
  ExpectRefused({"1.2.3", "--1", "+3", "maybe", "True", "\"open", "@"});
}

}  // namespace
