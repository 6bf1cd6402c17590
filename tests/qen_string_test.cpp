// QEN_TString: conversions, the cached views under threads, positions that
// clip, case folding, and both stored forms.
#include "qen/qen_string.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <thread>
#include <vector>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "stream_test_support.h"

namespace {

std::vector<unsigned char> Packed(const QEN_TString& s) { return test_support::PackContent(s); }

QEN_TString Unpacked(const std::vector<unsigned char>& bytes) {
  QEN_TString s("not yet read");
  test_support::UnpackContent(bytes, s);
  return s;
}

TEST(StringConversion, Utf8AndWideRoundTrip) {
  // Two-, three- and four-byte characters; the last one is a surrogate pair.
  const char* utf8 =
      "Gr\xC3\xBC\xC3\x9F"
      "e \xE2\x82\xAC \xF0\x9F\x98\x80";
  QEN_TString s(utf8);
  EXPECT_EQ(s.Length(), 10u);  // 16-bit units, the emoji counts two
  EXPECT_STREQ(s.c_str(), utf8);
  const wchar_t* wide = L"Gr\u00FC\u00DFe \u20AC \U0001F600";
  EXPECT_STREQ(s.wc_str(), wide);
  EXPECT_EQ(QEN_TString(wide), s);

  const QEN_TUniChar units[] = {u'a', 0xD83D, 0xDE00, 0};
  EXPECT_EQ(QEN_TString(units, 3), QEN_TString("a\xF0\x9F\x98\x80"));
  // A length past the terminating zero stops at the zero.
  EXPECT_EQ(QEN_TString("ab", 100), QEN_TString("ab"));
  EXPECT_TRUE(QEN_TString(static_cast<const char*>(nullptr)).Empty());
}

TEST(StringConversion, InvalidInputBecomesReplacementCharacters) {
  struct Case {
    const char* bytes;
    std::u16string expected;
  } cases[] = {
      {"a\x80z", u"a\uFFFDz"},                                // lone continuation byte
      {"a\xC0\x80z", u"a\uFFFD\uFFFDz"},                      // overlong NUL
      {"a\xED\xA0\x80z", u"a\uFFFD\uFFFD\uFFFDz"},            // encoded surrogate
      {"a\xF5\x80\x80\x80z", u"a\uFFFD\uFFFD\uFFFD\uFFFDz"},  // past U+10FFFF
      {"\xE2\x82\x41\xE2\x82", u"\uFFFDA\uFFFD"},             // cut off by ASCII, and by the end
  };
  for (const Case& c : cases) EXPECT_EQ(QEN_TString(c.bytes).Chars(), c.expected) << c.bytes;
  // Wide text that is no character: a surrogate code and one past the range.
  const wchar_t bad[] = {L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000), 0};
  EXPECT_EQ(QEN_TString(bad).Chars(), u"a\uFFFD\uFFFD");
  // A lone surrogate held in the string comes out as U+FFFD in both views.
  QEN_TString lone(std::u16string(u"x") + char16_t(0xDC00));
  EXPECT_STREQ(lone.c_str(), "x\xEF\xBF\xBD");
  EXPECT_EQ(lone.wc_str()[1], static_cast<wchar_t>(0xFFFD));
}

TEST(StringViews, ManyThreadsReadOneConstString) {
  // Every thread asks for the views of the same fresh string at once; all
  // must get one and the same buffer with the right text.
  for (int round = 0; round < 50; ++round) {
    const QEN_TString s(QEN_TString::Format("round %d \xC3\xA9\xE2\x82\xAC", round));
    const std::string expected = "round " + std::to_string(round) + " \xC3\xA9\xE2\x82\xAC";
    constexpr int kThreads = 8;
    std::vector<const char*> narrow(kThreads);
    std::vector<const wchar_t*> wide(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        narrow[t] = s.c_str();
        wide[t] = s.wc_str();
      });
    }
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) {
      EXPECT_EQ(narrow[t], narrow[0]);
      EXPECT_EQ(wide[t], wide[0]);
    }
    EXPECT_EQ(expected, narrow[0]);
  }
}

// Positions out of range clip or find nothing instead of failing.
TEST(StringPositions, SubstringAndFind) {
  QEN_TString s("abcdef");
  EXPECT_EQ(s.Substring(-2, -1), QEN_TString("ef"));
  EXPECT_EQ(s.Substring(-100, -1), s);
  EXPECT_EQ(s.Substring(100, -1), QEN_TString());
  EXPECT_EQ(s.Substring(4, 100), QEN_TString("ef"));
  s = "a/b/c.dll";
  EXPECT_EQ(s.Find('/', 2), 3);
  EXPECT_EQ(s.Find('/', -1, true), 3);
  EXPECT_LT(s.Find("/", 100), 0);
  EXPECT_LT(QEN_TString().Find('/', -1, true), 0);
  EXPECT_LT(s.Find("c.dllx"), 0);
  EXPECT_EQ(QEN_TString("\xC3\xA9t\xC3\xA9").Find("t\xC3\xA9"), 1);  // positions count characters
}

TEST(StringCase, CompareConvertAndHash) {
  EXPECT_NE(QEN_TString("Inch").CompareWith(QEN_TString("INCH"), false), 0);
  EXPECT_EQ(QEN_TString("\xC3\x84rger").CompareWith(QEN_TString("\xC3\xA4RGER"), true), 0);  // Ä/ä
  EXPECT_EQ(QEN_TString("\xD0\x9F\xD0\xB8").CompareWith(QEN_TString("\xD0\xBF\xD0\x98"), true),
            0);  // Пи/пИ
  EXPECT_LT(QEN_TString("ab").CompareWith(QEN_TString("ABC"), true), 0);
  EXPECT_EQ(QEN_TString("MiXed \xC3\xA9").ToUpper(), QEN_TString("MIXED \xC3\x89"));
  EXPECT_EQ(QEN_TString("MiXed \xC3\x89").ToLower(), QEN_TString("mixed \xC3\xA9"));
  // The hash agrees with the equality of keys, and both bytes of a unit count.
  QEN_TString a("key"), b(L"key"), c("kez");
  EXPECT_TRUE(a.QEN_Hash() == b.QEN_Hash() && a.QEN_IsEqualKey(b));
  EXPECT_FALSE(a.QEN_IsEqualKey(c));
  EXPECT_NE(QEN_TString(std::u16string(1, char16_t(0x0161))).QEN_Hash(),
            QEN_TString(std::u16string(1, char16_t(0x6101))).QEN_Hash());
}

TEST(StringEditing, JoinReplaceFormat) {
  QEN_TString s("a");
  s += 'b';
  s += L"c";
  s += s;  // appending itself
  EXPECT_EQ(s, QEN_TString("abcabc"));

  EXPECT_EQ(QEN_TString("aaa").ReplaceChars(QEN_TString("aa"), QEN_TString("b"), 0, 0),
            QEN_TString("ba"));
  EXPECT_EQ(QEN_TString("abc").ReplaceChars(QEN_TString(), QEN_TString("x"), 0, 0),
            QEN_TString("abc"));

  EXPECT_EQ(QEN_TString::Format("%ul|%d|%s", 1000u, -3, "\xC3\xA9"),
            QEN_TString("1000l|-3|\xC3\xA9"));
  std::string longText(5000, 'z');
  EXPECT_EQ(QEN_TString::Format("<%s>", longText.c_str()),
            QEN_TString(("<" + longText + ">").c_str()));
  // A conversion the C library refuses (a character the locale can't
  // encode) is marked in place; the literal text and the other conversions
  // stay, whatever their argument types and '*'s.
  EXPECT_EQ(QEN_TString::Format("a %lc b %*d %s %.1f %lld %ls|", static_cast<wint_t>(0xE9), 4, 7,
                                "x", 2.25, -(1LL << 40), L"\u00e9"),
            QEN_TString("a [refused: %lc] b    7 x 2.2 -1099511627776 [refused: %ls]|"));
  // A positional conversion stops the walk: its argument can't be known.
  const char* positional = "%lc %1$d";  // a variable: the compiler would check a literal
  EXPECT_EQ(QEN_TString::Format(positional, static_cast<wint_t>(0xE9)),
            QEN_TString("[refused: %lc] %1$d"));
}

// The first version of the binary form, as files written before hold it.
QEN_TString UnpackedFirstVersion(const std::vector<unsigned char>& bytes) {
  test_support::DataReader reader(bytes);
  QEN_TString s("not yet read");
  s.QEN_Unpack(reader.in);
  return s;
}

TEST(StringStoredForms, BinaryLayoutIsPinnedAndKeepsEveryUnit) {
  // A varint of twice the count, plus one for 16-bit units; then one byte a
  // unit when all are below 0x100, else two, low byte first.
  // (The golden files pin the second.)
  EXPECT_EQ(Packed(QEN_TString("Gr\xC3\xBC")), std::vector<unsigned char>({6, 'G', 'r', 0xFC}));
  // The first version: a 32-bit count and two bytes a unit.
  EXPECT_EQ(UnpackedFirstVersion({2, 0, 0, 0, 'a', 0, 0xAC, 0x20}), QEN_TString("a\xE2\x82\xAC"));

  // Every unit comes back, a zero and a lone surrogate included.
  std::u16string units(u"x\0y", 3);
  units.push_back(0xD800);  // lone surrogate
  units += u"\U0001F600";
  QEN_TString odd{std::u16string(units)};
  EXPECT_EQ(Unpacked(Packed(odd)).Chars(), units);

  // Longer than one chunk of the reader, in both widths.
  for (char16_t unit : {u'q', u'\u20AC'}) {
    QEN_TString big{std::u16string(200000, unit)};
    EXPECT_EQ(Unpacked(Packed(big)), big);
  }
}

TEST(StringStoredForms, TruncatedBinaryThrows) {
  const std::vector<unsigned char> bytes = Packed(QEN_TString("h\xE2\x82\xAC"));
  for (std::size_t length = 0; length < bytes.size(); ++length)
    EXPECT_THROW(Unpacked({bytes.begin(), bytes.begin() + length}), QEN_EStreamException);
  // A count of four thousand million units with nothing behind it fails
  // without first allocating for them, in both versions; so does a count
  // longer than 32 bits.
  EXPECT_THROW(Unpacked({0xFE, 0xFF, 0xFF, 0xFF, 0x1F, 'a'}), QEN_EStreamException);
  EXPECT_THROW(Unpacked({0x80, 0x80, 0x80, 0x80, 0x80, 0x01}), QEN_EStreamException);
  EXPECT_THROW(UnpackedFirstVersion({0xFF, 0xFF, 0xFF, 0xFF, 'a', 0}), QEN_EStreamException);
  EXPECT_THROW(UnpackedFirstVersion({5, 0}), QEN_EStreamException);
}

}  // namespace
