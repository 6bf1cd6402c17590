// The exception family: the tree, throwing, packing and rebuilding, and the
// text for a person.
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "stream_test_support.h"

#define VYR_SOURCE_NAME "Private/Source/vyr_typedefs"
#include "core/vyr_throw.h"

namespace {

::testing::Environment* const kStart = ::testing::AddGlobalTestEnvironment(
    new test_support::LibraryEnvironment<__QEN_INITIALIZATION_FUNCTION_VYRAX__>);

std::string Text(const QEN_EException& e, bool noNested = false, unsigned indent = 0) {
  return VYR_Exception2String(e, noNested, indent).c_str();
}

// An exception as data: the one way of throwing, caught at once.
template <class X, class... Args>
X Thrown(const char* format, const Args&... args) {
  try {
    VYR_THROW(X, format, args...);
  } catch (const X& e) {
    return e;
  }
  ADD_FAILURE() << "nothing thrown";
  return X();
}

using test_support::Extract;
using test_support::Pack;

// What the handler of Root sees of the exception that `raise` throws: its
// class, text, file and line; "" when it doesn't reach that handler.
template <class Root>
std::string CaughtAs(const std::function<void()>& raise) {
  try {
    raise();
  } catch (const Root& e) {
    return std::string(e.ClassName()) + "|" + Text(e) + "|" + e.QEN_ExceptionFile().c_str() + "|" +
           std::to_string(e.QEN_ExceptionLine());
  } catch (...) {
  }
  return "";
}

// --- The family ------------------------------------------------------------------

// X is registered under its parent; thrown the one way, it reaches the
// parent's handler with its text, file and line, and so does the exception
// rebuilt from its packed form, in which the parent's name frames its own.
template <class X, class Parent>
void ExpectAMemberOfTheFamily(const char* name, const char* parent) {
  SCOPED_TRACE(name);
  const QEN_TClass* c = QEN_TClass::Find(name);
  ASSERT_TRUE(c != nullptr && c->parent != nullptr);
  EXPECT_STREQ(c->parent->name, parent);
  const unsigned line = __LINE__ + 1;
  auto raise = [] { VYR_THROW(X, "Item %u of %s", 3u, "the list"); };
  const std::string direct = CaughtAs<Parent>(raise);
  EXPECT_EQ(direct, std::string(name) + "|Item 3 of the list|Private/Source/vyr_typedefs|" +
                        std::to_string(line));
  std::unique_ptr<QEN_IInterface> rebuilt;
  try {
    raise();
  } catch (const QEN_IPackable& e) {
    rebuilt = Extract(Pack(e));  // built again by its class name
  }
  const QEN_IThrowable* throwable =
      rebuilt ? static_cast<const QEN_IThrowable*>(rebuilt->DynamicCast("QEN_IThrowable"))
              : nullptr;
  ASSERT_NE(throwable, nullptr);
  EXPECT_EQ(CaughtAs<Parent>([throwable] { throwable->QEN_Throw(); }), direct);
  const test_support::Bytes packed = Pack(X());
  const std::string bytes(packed.begin(), packed.end());
  EXPECT_NE(bytes.find(parent, bytes.find(name) + std::strlen(name)), std::string::npos);
}

// Every class of the family's one list, the ones only modules throw included.
TEST(ExceptionFamily, EveryMemberIsThrownCaughtAndRebuiltUnderItsParent) {
#define VYR_EXCEPTION(X, P) ExpectAMemberOfTheFamily<X, P>(#X, #P);
#include "vyrax/vyr_exception_list.h"
#undef VYR_EXCEPTION
  // The frames nest: the class, its parent, the parent's parent.
  const test_support::Bytes packed = Pack(VYR_EWrongInkName());
  const std::string bytes(packed.begin(), packed.end());
  const size_t own = bytes.find("VYR_EWrongInkName"), root = bytes.find("VYR_EVYRAX");
  EXPECT_TRUE(own < root && root < bytes.find("QEN_EException", root));
}

TEST(Throwing, DataIsNothingOneValueOrAnArrayAndAnEmptyMessageTheClassName) {
  EXPECT_TRUE(Thrown<VYR_EBufferEmptyFile>("A fixed text").QEN_Data().IsNothing());
  const VYR_EBufferEmptyFile one = Thrown<VYR_EBufferEmptyFile>("%d", 5);
  EXPECT_EQ(one.QEN_Data().AsInt32(), 5);
  const VYR_EBufferEmptyFile several =
      Thrown<VYR_EBufferEmptyFile>("%s %g %llu", QEN_TString("a"), 2.5, 1ull << 40);
  const QEN_TArray* array = several.QEN_Data().DynamicCast<QEN_TArray>();
  ASSERT_TRUE(array != nullptr && array->Size() == 3u);
  EXPECT_EQ(Text(several), "a 2.5 1099511627776");
  try {
    VYR_THROW(VYR_EImageProxyEmpty);
  } catch (const VYR_EImageProxy& e) {
    EXPECT_STREQ(e.QEN_Message().c_str(), "VYR_EImageProxyEmpty");
  }
  EXPECT_STREQ(Thrown<VYR_EImageProxyEmpty>("").QEN_Message().c_str(), "VYR_EImageProxyEmpty");
}

TEST(Throwing, IsAlwaysAsTheMostDerivedClass) {
  const VYR_EBufferCannotLink built("Seen through its root");
  const QEN_EException& asRoot = built;
  EXPECT_EQ(CaughtAs<VYR_EBufferCannotLink>(
                [&asRoot] { vyr::RaiseException(asRoot, 12, "Private/Source/vyr_buffer"); }),
            "VYR_EBufferCannotLink|" + Text(built) + "|Private/Source/vyr_buffer|12");
}

TEST(Throwing, SystemErrorsCarryNumberTextAndFile) {
  const std::string noEntry = "System error nr. " + std::to_string(ENOENT) + " " + strerror(ENOENT);
  EXPECT_EQ(Text(vyr::SystemError(ENOENT)), noEntry);
  EXPECT_EQ(Text(vyr::SystemError(ENOENT, "/data/a.tif")), noEntry + " on /data/a.tif");
  errno = ENOTDIR;
  EXPECT_EQ(Text(vyr::LastSystemError(QEN_TString("/x"))),
            Text(vyr::SystemError(ENOTDIR, QEN_TString("/x"))));
  const unsigned line = __LINE__ + 1;
  auto raise = [] { VYR_THROW_SYSTEM_ERROR(ENOSPC, QEN_TString("/data/b.tif")); };
  EXPECT_EQ(CaughtAs<VYR_EVYRAX>(raise),
            "VYR_ESystemError|" + Text(vyr::SystemError(ENOSPC, "/data/b.tif")) +
                "|Private/Source/vyr_typedefs|" + std::to_string(line));
}

// --- Text ------------------------------------------------------------------------

TEST(ExceptionText, WithoutData) {
  EXPECT_EQ(Text(VYR_EBufferEmptyFile()), "Exception of class VYR_EBufferEmptyFile");
  // Without data the message isn't a format: a '%' stays; one line break at
  // the end goes.
  EXPECT_EQ(Text(VYR_EBufferEmptyFile("100% %d\n")),
            "Exception of class VYR_EBufferEmptyFile with message \"100% %d\"");
}

struct FormatCase {
  const char* format;
  QEN_TAny data;
  const char* expected;
};

QEN_TAny Values(std::initializer_list<QEN_TAny> values) {
  QEN_TArray array(static_cast<unsigned>(values.size()));
  unsigned i = 0;
  for (const QEN_TAny& value : values) array[i++] = value;
  return QEN_TAny(std::move(array));
}

TEST(ExceptionText, FormatWalk) {
  const FormatCase cases[] = {
      {"100%% of %d", QEN_TAny(5), "100% of 5"},
      // A width or precision doesn't change the kind of value taken.
      {"[%5.1f|%03d|%-4s|%.2s]",
       Values({QEN_TAny(2), QEN_TAny(7.9), QEN_TAny("ab"), QEN_TAny("xyz")}),
       "[  2.0|007|ab  |xy]"},
      {"%d of 100%", QEN_TAny(5), "5 of 100%"},
      {"%d then %n and %d", Values({QEN_TAny(1), QEN_TAny(2), QEN_TAny(3)}), "1 then %n and %d"},
      {"%*.*f|%s", Values({QEN_TAny(8), QEN_TAny(2), QEN_TAny(3.14159), QEN_TAny("x")}),
       "    3.14|x"},
      // Numbers convert to the kind the conversion takes.
      {"%d %g", Values({QEN_TAny(2.75), QEN_TAny(3u)}), "2 3"},
      // One line break at the end of a text goes.
      {"<%s>", QEN_TAny("line\n\n"), "<line\n>"},
      {"<%s>", QEN_TAny(QEN_TURL(QEN_TString("file:///data/a%20b.tif"))),
       "<file:///data/a%20b.tif>"},
      // Hostile: a '$' position, a flag the C library would read as another
      // conversion, and a width beyond any sense are copied unchanged.
      {"%2$s %1$s", Values({QEN_TAny("a"), QEN_TAny("b")}), "%2$s %1$s"},
      {"%999999999d", QEN_TAny(1), "%999999999d"},
      {"%.999999999f", QEN_TAny(1.0), "%.999999999f"},
      {"%ls|%Lf", Values({QEN_TAny("w"), QEN_TAny(0.5)}), "w|0.500000"},
      // The forms of older modules, and characters and texts as UTF-8 from
      // any code point, counted in characters for width and precision.
      {"%I64d|%I64u|%I64x|%I32d|%Id",
       Values({QEN_TAny(-(1LL << 40)), QEN_TAny(~0ULL), QEN_TAny(1ULL << 36), QEN_TAny(-7),
               QEN_TAny(1LL << 33)}),
       "-1099511627776|18446744073709551615|1000000000|-7|8589934592"},
      {"<%C|%lc|%3lc|%-3C>",
       Values({QEN_TAny(0xE9), QEN_TAny(0x1F600), QEN_TAny(0x20AC), QEN_TAny(0x41)}),
       "<\xC3\xA9|\xF0\x9F\x98\x80|  \xE2\x82\xAC|A  >"},
      {"<%lc|%C>", Values({QEN_TAny(0xD800), QEN_TAny(0x110000)}), "<\xEF\xBF\xBD|\xEF\xBF\xBD>"},
      {"before <%.2ls|%4S> after", Values({QEN_TAny("\xC3\xA9t\xC3\xA9"), QEN_TAny("\xC3\xA9")}),
       "before <\xC3\xA9t|   \xC3\xA9> after"},
  };
  for (const FormatCase& c : cases)
    EXPECT_EQ(Text(VYR_EBufferInternal(c.format, c.data)), c.expected) << c.format;
  // A width taken from the data is bounded too.
  VYR_EBufferInternal wide("%*d", Values({QEN_TAny(2000000000), QEN_TAny(1)}));
  EXPECT_LE(Text(wide).size(), 70000u);
}

// Every conversion the walk shares with the C library gives the C library's
// text, with the value at the size the conversion names.
TEST(ExceptionText, ConversionsMatchTheCLibrary) {
  typedef std::function<int(char*, std::size_t, const char*)> CFormat;
  auto with = [](auto value) -> CFormat {
    return [value](char* b, std::size_t n, const char* f) { return std::snprintf(b, n, f, value); };
  };
  const double d = -1234.56789;
  const long long big = -(1LL << 40) - 3;
  const unsigned long long huge = ~0ULL - 5;
  const struct {
    QEN_TAny value;
    CFormat c;
    std::vector<const char*> formats;
  } groups[] = {
      {QEN_TAny(d), with(d), {"%f", "%le", "%G", "%a", "%+012.3f", "%-12.1e|", "%#.0f", "% .9g"}},
      {QEN_TAny(-42), with(-42), {"%i", "%+5d", "%-5d|", "%05d", "%.4d", "%hd", "%hhd"}},
      {QEN_TAny(4000000000u), with(4000000000u), {"%u", "%o", "%X", "%#x", "%hu", "%hhx"}},
      {QEN_TAny(big), with(big), {"%lld", "%ld", "%jd", "%zd", "%td", "%qd"}},
      {QEN_TAny(huge), with(huge), {"%llu", "%lx", "%zu", "%lo"}},
      {QEN_TAny('Q'), with('Q'), {"%c", "%-3c|"}},
      {QEN_TAny("text"), with("text"), {"%s", "%-6s|", "%6.3s"}},
  };
  for (const auto& group : groups) {
    for (const char* format : group.formats) {
      char expected[256];
      ASSERT_GE(group.c(expected, sizeof expected, format), 0) << format;
      EXPECT_EQ(Text(VYR_EBufferInternal(format, group.value)), expected) << format;
    }
  }
}

TEST(ExceptionText, WhatCannotBeFormattedFallsBackToThePrintOfTheException) {
  const FormatCase cases[] = {
      {"%s", QEN_TAny(5), nullptr},         // text from a number
      {"%d", QEN_TAny("five"), nullptr},    // number from a text
      {"%d and %d", QEN_TAny(5), nullptr},  // too few values
      {"%*d", QEN_TAny(5), nullptr},        // no value behind the width
  };
  for (const FormatCase& c : cases) {
    VYR_EBufferInternal e(c.format, c.data);
    e.__PREPARE_FOR_THROW__(9, "Private/Source/vyr_buffer");
    const std::string expected =
        VYR_Any2String(QEN_TAny(static_cast<const QEN_IPackable&>(e))).c_str();
    EXPECT_EQ(Text(e), expected) << c.format;
    EXPECT_NE(expected.find("VYR_EBufferInternal"), std::string::npos) << expected;
  }
}

TEST(ExceptionText, WrappedExceptionsComeFirstAndIndented) {
  // Three levels: the middle text has two lines, and with indent 2 the
  // second of them moves in; the first line never does. Left out, the
  // wrapped one is just the single value of the message.
  const VYR_EAssertFailed inner("inner");
  const VYR_EMetadataInternal middle("middle %s", QEN_TAny(inner));
  const VYR_ECfsWrap top("top", QEN_TAny(middle));
  EXPECT_EQ(Text(top),
            "Exception of class VYR_EAssertFailed with message \"inner\"\n"
            "Exception of class VYR_EMetadataInternal with message \"middle %s\"\n"
            "Exception of class VYR_ECfsWrap with message \"top\"");
  EXPECT_EQ(Text(top, false, 2),
            "Exception of class VYR_EAssertFailed with message \"inner\"\n"
            "  Exception of class VYR_EMetadataInternal with message \"middle %s\"\n"
            "Exception of class VYR_ECfsWrap with message \"top\"");
  EXPECT_EQ(Text(top, true, 2), "top");
  const VYR_EBufferCannotOpenFile outer("Cannot open the file", QEN_TAny(vyr::SystemError(ENOENT)));
  EXPECT_EQ(Text(outer, true), "Cannot open the file");
  // Rebuilt from a stream, the wrapped exception keeps its class and text.
  const std::unique_ptr<QEN_IInterface> rebuilt = Extract(Pack(top));
  ASSERT_NE(rebuilt, nullptr);
  EXPECT_EQ(Text(*static_cast<const QEN_EException*>(rebuilt->DynamicCast("QEN_EException"))),
            Text(top));
}

TEST(ExceptionText, AnyToStringIsThePrintUpToTheFirstZero) {
  for (const QEN_TAny& value : {QEN_TAny(42u), QEN_TAny(2.5), QEN_TAny("text"),
                                QEN_TAny(VYR_EWrongInkName("x %d", QEN_TAny(1)))}) {
    std::ostringstream print;
    value.PrintOn(print);
    EXPECT_EQ(std::string(VYR_Any2String(value).c_str()), print.str());
  }
  std::u16string withZero = u"before";
  withZero.push_back(u'\0');
  EXPECT_STREQ(VYR_Any2String(QEN_TAny(QEN_TString(withZero + u"after"))).c_str(), "before");
}

}  // namespace
