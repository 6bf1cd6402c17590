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
#include <utility>
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

struct Deleter {
  void operator()(QEN_IPackable* object) const { delete static_cast<QEN_IInterface*>(object); }
};
typedef std::unique_ptr<QEN_IPackable, Deleter> Owned;

// Packs the object and builds it again from the bytes by its class name.
Owned Rebuild(const QEN_IPackable& object) {
  test_support::DataReader reader(test_support::Pack(object));
  return Owned(reader.in.Extract(true));
}

template <class Handler>
bool Reaches(const std::function<void()>& raise) {
  try {
    raise();
  } catch (const Handler&) {
    return true;
  } catch (...) {
  }
  return false;
}

// Which handlers a throw reaches, and what the root's handler saw.
struct Catches {
  bool all = false;
  std::string className, text, file;
  unsigned line = 0;
};

template <class Root>
Catches CatchAll(const std::function<void()>& raise) {
  Catches c;
  try {
    raise();
  } catch (const Root& e) {
    c.className = e.ClassName();
    c.text = Text(e);
    c.file = e.QEN_ExceptionFile().c_str();
    c.line = e.QEN_ExceptionLine();
    c.all = true;
  } catch (...) {
  }
  c.all = c.all && Reaches<QEN_TObject>(raise) && Reaches<QEN_IPackable>(raise) &&
          Reaches<QEN_IThrowable>(raise);
  return c;
}

// --- The tree ------------------------------------------------------------------

// The family from its one list: class and parent, one line each.
const std::pair<const char*, const char*> kFamily[] = {
#define VYR_EXCEPTION(X, P) {#X, #P},
#include "vyrax/vyr_exception_list.h"
#undef VYR_EXCEPTION
};

// Every class, the ones only modules throw included, builds by name, sits
// under its parent and comes back whole from a stream.
TEST(ExceptionTree, EveryClassIsRegisteredUnderItsParentAndRebuildsByName) {
  for (const auto& member : kFamily) {
    const char* name = member.first;
    const QEN_TClass* c = QEN_TClass::Find(name);
    ASSERT_NE(c, nullptr) << name;
    ASSERT_NE(c->parent, nullptr) << name;
    EXPECT_STREQ(c->parent->name, member.second) << name;
    EXPECT_FALSE(c->isInterface);
    ASSERT_NE(c->factory, nullptr) << name;
    Owned made(static_cast<QEN_IPackable*>(c->factory()->DynamicCast("QEN_IPackable")));
    ASSERT_NE(made, nullptr) << name;
    EXPECT_STREQ(made->ClassName(), name);
    QEN_EException* e = static_cast<QEN_EException*>(made->DynamicCast("QEN_EException"));
    ASSERT_NE(e, nullptr);
    // A default-constructed exception has its class name as message.
    EXPECT_STREQ(e->QEN_Message().c_str(), name);
    e->QEN_Message() = "Reported by a module: %d";
    e->QEN_Data() = QEN_TAny(7);
    Owned rebuilt = Rebuild(*made);
    ASSERT_NE(rebuilt, nullptr) << name;
    EXPECT_STREQ(rebuilt->ClassName(), name);
    EXPECT_TRUE(rebuilt->QEN_IsIdent(*made)) << name;
    EXPECT_EQ(Text(*static_cast<const QEN_EException*>(rebuilt->DynamicCast("QEN_EException"))),
              "Reported by a module: 7");
  }
}

// Packing is framed by the parent's name at every level.
class FrameRecorder : public QEN_IPacking {
 public:
  std::vector<std::string> frames;
  QEN_IPacking& operator<<(const QEN_IPackable&) override { return *this; }
  QEN_IPacking& operator<<(double) override { return *this; }
  QEN_IPacking& operator<<(bool) override { return *this; }
  QEN_IPacking& operator<<(unsigned long long) override { return *this; }
  QEN_IPacking& operator<<(unsigned) override { return *this; }
  QEN_IPacking& operator<<(unsigned short) override { return *this; }
  QEN_IPacking& operator<<(unsigned char) override { return *this; }
  QEN_IPacking& operator<<(int) override { return *this; }
  QEN_IPacking& PutBytes(const void*, unsigned) override { return *this; }
  QEN_IPacking& PackBeginClass(const char* name) override {
    frames.push_back(std::string("begin ") + name);
    return *this;
  }
  QEN_IPacking& PackEndClass(const char* name) override {
    frames.push_back(std::string("end ") + name);
    return *this;
  }
};

TEST(ExceptionTree, PackingIsFramedByTheParents) {
  FrameRecorder recorder;
  VYR_EWrongInkName().QEN_Pack(recorder);
  EXPECT_EQ(recorder.frames, (std::vector<std::string>{"begin VYR_EVYRAX", "begin QEN_EException",
                                                       "end QEN_EException", "end VYR_EVYRAX"}));
}

// --- Throwing and rebuilding, per subsystem root ----------------------------------

template <class Leaf, class Root>
struct Subsystem {
  typedef Leaf LeafType;
  typedef Root RootType;
};

template <class T>
class SubsystemRoot : public ::testing::Test {};

typedef ::testing::Types<Subsystem<VYR_EWrongInkName, VYR_EVYRAX>,
                         Subsystem<VYR_EVYRAX, VYR_EVYRAX>,
                         Subsystem<VYR_EAssertFailed, VYR_EAssertFailed>,
                         Subsystem<VYR_EBufferSliceTooLarge, VYR_EBuffer>,
                         Subsystem<VYR_EMetadataFileDoesNotExist, VYR_EMetadataException>,
                         Subsystem<VYR_EImageTicketKeyNotFound, VYR_EImageTicket>,
                         Subsystem<VYR_EImageProxyEmpty, VYR_EImageProxy>,
                         Subsystem<VYR_EDynamicLoaderNoSuchPlugin, VYR_EDynamicLoader>,
                         Subsystem<VYR_ECfsWrap, VYR_ECfsWrap>>
    Subsystems;
TYPED_TEST_SUITE(SubsystemRoot, Subsystems);

TYPED_TEST(SubsystemRoot, IsCaughtTheSameWayBeforeAndAfterARoundTrip) {
  typedef typename TypeParam::LeafType Leaf;
  typedef typename TypeParam::RootType Root;
  const unsigned throwLine = __LINE__ + 1;
  auto raise = [] { VYR_THROW(Leaf, "Item %u of %s", 3u, "the list"); };
  const Catches direct = CatchAll<Root>(raise);
  EXPECT_TRUE(direct.all);
  EXPECT_EQ(direct.className, Leaf::QEN_ClassName());
  EXPECT_EQ(direct.text, "Item 3 of the list");
  EXPECT_EQ(direct.file, "Private/Source/vyr_typedefs");
  EXPECT_EQ(direct.line, throwLine);

  Owned rebuilt;
  try {
    raise();
  } catch (const QEN_IPackable& e) {
    rebuilt = Rebuild(e);
  }
  ASSERT_NE(rebuilt, nullptr);
  const QEN_IThrowable* throwable =
      static_cast<const QEN_IThrowable*>(rebuilt->DynamicCast("QEN_IThrowable"));
  ASSERT_NE(throwable, nullptr);
  const Catches again = CatchAll<Root>([throwable] { throwable->QEN_Throw(); });
  EXPECT_TRUE(again.all);
  EXPECT_EQ(again.className, direct.className);
  EXPECT_EQ(again.text, direct.text);
  EXPECT_EQ(again.file, direct.file);
  EXPECT_EQ(again.line, direct.line);
}

TEST(Throwing, DataIsNothingOneValueOrAnArray) {
  const VYR_EBufferEmptyFile none = Thrown<VYR_EBufferEmptyFile>("A fixed text");
  EXPECT_TRUE(none.QEN_Data().IsNothing());
  EXPECT_STREQ(none.QEN_Message().c_str(), "A fixed text");

  const VYR_EBufferEmptyFile one = Thrown<VYR_EBufferEmptyFile>("%d", 5);
  EXPECT_EQ(one.QEN_Data().DynamicCast("QEN_TArray"), nullptr);
  EXPECT_EQ(one.QEN_Data().AsInt32(), 5);

  const VYR_EBufferEmptyFile several =
      Thrown<VYR_EBufferEmptyFile>("%s %g %llu", QEN_TString("a"), 2.5, 1ull << 40);
  const QEN_TArray* array =
      static_cast<const QEN_TArray*>(several.QEN_Data().DynamicCast("QEN_TArray"));
  ASSERT_NE(array, nullptr);
  ASSERT_EQ(array->Size(), 3u);
  EXPECT_EQ((*array)[1].AsDouble(), 2.5);
  EXPECT_EQ((*array)[2].AsUInt64(), 1ull << 40);
  EXPECT_EQ(Text(several), "a 2.5 1099511627776");
}

TEST(Throwing, AnEmptyMessageBecomesTheClassName) {
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
  const Catches c = CatchAll<VYR_EBufferCannotLink>(
      [&asRoot] { vyr::RaiseException(asRoot, 12, "Private/Source/vyr_buffer"); });
  EXPECT_TRUE(c.all);
  EXPECT_EQ(c.line, 12u);
  EXPECT_EQ(c.file, "Private/Source/vyr_buffer");
}

TEST(Throwing, SystemErrorsCarryNumberTextAndFile) {
  const VYR_ESystemError shortForm = vyr::SystemError(ENOENT);
  EXPECT_EQ(Text(shortForm), std::string("System error nr. ") + std::to_string(ENOENT) + " " +
                                 std::strerror(ENOENT));
  const VYR_ESystemError longForm = vyr::SystemError(EACCES, "/data/a.tif");
  EXPECT_EQ(Text(longForm), std::string("System error nr. ") + std::to_string(EACCES) + " " +
                                std::strerror(EACCES) + " on /data/a.tif");
  errno = ENOTDIR;
  EXPECT_EQ(Text(vyr::LastSystemError(QEN_TString("/x"))),
            Text(vyr::SystemError(ENOTDIR, QEN_TString("/x"))));
  try {
    VYR_THROW_SYSTEM_ERROR(ENOSPC, QEN_TString("/data/b.tif"));
  } catch (const VYR_EVYRAX& e) {
    EXPECT_STREQ(e.ClassName(), "VYR_ESystemError");
    EXPECT_STREQ(e.QEN_ExceptionFile().c_str(), "Private/Source/vyr_typedefs");
  }
}

// --- Text ------------------------------------------------------------------------

TEST(ExceptionText, WithoutData) {
  EXPECT_EQ(Text(VYR_EBufferEmptyFile()), "Exception of class VYR_EBufferEmptyFile");
  EXPECT_EQ(Text(VYR_EBufferEmptyFile("VYR_EBufferEmptyFile")),
            "Exception of class VYR_EBufferEmptyFile");
  EXPECT_EQ(Text(VYR_EBufferEmptyFile("The file is empty\n")),
            "Exception of class VYR_EBufferEmptyFile with message \"The file is empty\"");
  // Without data the message isn't a format: a '%' stays.
  EXPECT_EQ(Text(VYR_EBufferEmptyFile("100% %d")),
            "Exception of class VYR_EBufferEmptyFile with message \"100% %d\"");
  // The class name compares with case.
  EXPECT_EQ(Text(VYR_EBufferEmptyFile("vyr_ebufferemptyfile")),
            "Exception of class VYR_EBufferEmptyFile with message \"vyr_ebufferemptyfile\"");
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
      {"Wrong ink name %s for the given ink type", QEN_TAny("Spot"),
       "Wrong ink name Spot for the given ink type"},
      {"100%% of %d", QEN_TAny(5), "100% of 5"},
      {"%%%d%%", QEN_TAny(5), "%5%"},
      // A width or precision doesn't change the kind of value taken.
      {"[%5.1f|%03d|%-4s|%.2s]",
       Values({QEN_TAny(2), QEN_TAny(7.9), QEN_TAny("ab"), QEN_TAny("xyz")}),
       "[  2.0|007|ab  |xy]"},
      {"%d of 100%", QEN_TAny(5), "5 of 100%"},
      {"%d then %p and %d", Values({QEN_TAny(1), QEN_TAny(2), QEN_TAny(3)}), "1 then %p and %d"},
      {"%d then %n and %d", Values({QEN_TAny(1), QEN_TAny(2), QEN_TAny(3)}), "1 then %n and %d"},
      {"%*d|", Values({QEN_TAny(5), QEN_TAny(42)}), "   42|"},
      {"%*.*f|%s", Values({QEN_TAny(8), QEN_TAny(2), QEN_TAny(3.14159), QEN_TAny("x")}),
       "    3.14|x"},
      {"%-*d|", Values({QEN_TAny(4), QEN_TAny(1)}), "1   |"},
      {"%d %i", Values({QEN_TAny(-5), QEN_TAny(-6LL)}), "-5 -6"},
      // Numbers convert to the kind the conversion takes.
      {"%d %g", Values({QEN_TAny(2.75), QEN_TAny(3u)}), "2 3"},
      // One line break at the end of a text goes.
      {"<%s>", QEN_TAny("line\n\n"), "<line\n>"},
      {"<%S>", QEN_TAny("wide \xC3\xA9"), "<wide \xC3\xA9>"},
      {"<%s>", QEN_TAny(QEN_TURL(QEN_TString("file:///data/a%20b.tif"))),
       "<file:///data/a%20b.tif>"},
      {"no conversion at all", QEN_TAny(1), "no conversion at all"},
      {"%", QEN_TAny(1), "%"},
      {"%5", QEN_TAny(1), "%5"},
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
  for (const FormatCase& c : cases) {
    VYR_EBufferInternal e(c.format, c.data);
    EXPECT_EQ(Text(e), c.expected) << "format \"" << c.format << '"';
  }
  (void)Text(VYR_EBufferInternal("100% sure %d", QEN_TAny(1)));
  // A width taken from the data is bounded too.
  VYR_EBufferInternal wide("%*d", Values({QEN_TAny(2000000000), QEN_TAny(1)}));
  EXPECT_LE(Text(wide).size(), 70000u);
}

// Every conversion the walk shares with the C library gives the C library's
// text, with the value at the size the conversion names.
TEST(ExceptionText, ConversionsMatchTheCLibrary) {
  typedef std::function<int(char*, std::size_t, const char*)> CFormat;
  struct Group {
    QEN_TAny value;
    CFormat c;
    std::vector<const char*> formats;
  };
  const double d = -1234.56789;
  const long long big = -(1LL << 40) - 3;
  const unsigned long long huge = ~0ULL - 5;
  auto with = [](auto value) -> CFormat {
    return [value](char* b, std::size_t n, const char* f) { return std::snprintf(b, n, f, value); };
  };
  const Group groups[] = {
      {QEN_TAny(d),
       with(d),
       {"%f", "%lf", "%le", "%lg", "%lE", "%lG", "%e", "%E", "%g", "%G", "%F", "%a", "%A",
        "%+012.3f", "%-12.1e|", "%#.0f", "% .9g"}},
      {QEN_TAny(d), with(static_cast<long double>(d)), {"%Lf", "%Lg"}},
      {QEN_TAny(-42), with(-42), {"%d", "%i", "%+5d", "%-5d|", "%05d", "%.4d", "%hd", "%hhd"}},
      {QEN_TAny(4000000000u),
       with(4000000000u),
       {"%u", "%o", "%x", "%X", "%#x", "%#o", "%hu", "%hhx"}},
      {QEN_TAny(big), with(big), {"%lld", "%ld", "%jd", "%zd", "%td", "%qd"}},
      {QEN_TAny(huge), with(huge), {"%llu", "%lx", "%zu", "%llX", "%lo"}},
      {QEN_TAny('Q'), with('Q'), {"%c", "%3c|", "%-3c|"}},
      {QEN_TAny("text"), with("text"), {"%s", "%6s|", "%-6s|", "%.2s", "%6.3s"}},
  };
  for (const Group& group : groups) {
    for (const char* format : group.formats) {
      char expected[256];
      ASSERT_GE(group.c(expected, sizeof expected, format), 0) << format;
      EXPECT_EQ(Text(VYR_EBufferInternal(format, group.value)), expected) << format;
    }
  }
}

TEST(ExceptionText, WhatCannotBeFormattedFallsBackToThePrintOfTheException) {
  const FormatCase cases[] = {
      {"%s", QEN_TAny(5), nullptr},            // text from a number
      {"%d", QEN_TAny("five"), nullptr},       // number from a text
      {"%d and %d", QEN_TAny(5), nullptr},     // too few values
      {"%*d", QEN_TAny(5), nullptr},           // no value behind the width
      {"%s", Values({QEN_TAny(1)}), nullptr},  // a number, in an array
      {"%f", QEN_TAny(QEN_TString("x")), nullptr},
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
  const VYR_ESystemError system = vyr::SystemError(ENOENT, "/data/a.tif");
  const std::string systemText = Text(system);
  const VYR_EBufferCannotOpenFile outer("Cannot open the file", QEN_TAny(system));
  EXPECT_EQ(Text(outer), systemText +
                             "\nException of class VYR_EBufferCannotOpenFile with message "
                             "\"Cannot open the file\"");
  // Left out, the wrapped one is just the single value of the message.
  EXPECT_EQ(Text(outer, true), "Cannot open the file");

  // Three levels: the middle text has two lines, and with indent 2 the
  // second of them moves in; the first line never does.
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

  // Rebuilt from a stream, the wrapped exception keeps its class and text.
  Owned rebuilt = Rebuild(top);
  ASSERT_NE(rebuilt, nullptr);
  EXPECT_EQ(Text(*static_cast<const QEN_EException*>(rebuilt->DynamicCast("QEN_EException"))),
            Text(top));
}

TEST(ExceptionText, AnyToStringIsThePrintUpToTheFirstZero) {
  const QEN_TAny values[] = {QEN_TAny(42u), QEN_TAny(-1), QEN_TAny(2.5), QEN_TAny("text"),
                             QEN_TAny(VYR_EWrongInkName("x %d", QEN_TAny(1)))};
  for (const QEN_TAny& value : values) {
    std::ostringstream print;
    value.PrintOn(print);
    EXPECT_EQ(std::string(VYR_Any2String(value).c_str()), print.str());
  }
  std::u16string withZero = u"before";
  withZero.push_back(u'\0');
  withZero += u"after";
  EXPECT_STREQ(VYR_Any2String(QEN_TAny(QEN_TString(withZero))).c_str(), "before");
}

}  // namespace
