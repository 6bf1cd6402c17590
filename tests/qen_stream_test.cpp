// Byte streams, the binary stream and the text stream.
#include "qen/qen_stream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_file.h"
#include "qen/qen_string.h"
#include "qen/qen_url.h"
#include "stream_test_support.h"

namespace {

// A small value with a binary and a one-line text form, written the way
// every class of the library writes them: "3 : 4".
class TestPoint : public QEN_TObject,
                  public virtual QEN_IPackable,
                  public virtual QEN_IHumanReadable {
  QEN_VALUE_FRAME(TestPoint)
 public:
  TestPoint(int x = 0, unsigned y = 0) : x(x), y(y) {}
  bool operator==(const TestPoint& o) const { return x == o.x && y == o.y; }

  void QEN_Pack(QEN_IPacking& out) const override {
    out.PackBeginClass("TestPoint") << x << y;
    out.PackEndClass("TestPoint");
  }
  void QEN_Unpack(QEN_IUnpacking& in) override {
    in.UnpackBeginClass("TestPoint") >> &x >> &y;
    in.UnpackEndClass("TestPoint");
  }
  bool WriteTo(QEN_THumanReadableStream& out) const override {
    out << x << " : " << y;
    return false;
  }
  bool ReadFrom(QEN_THumanReadableStream& in) override {
    QEN_TUniChar c;
    in >> &x;
    in.SkipWhiteSpace();
    in.ReadChar(c);
    if (c != ':') in.SyntaxError();
    in >> &y;
    return false;
  }

  int x;
  unsigned y;
};
QEN_DEFINE_VALUE(TestPoint, QEN_TObject, QEN_IPackable, QEN_IHumanReadable)

// A chain of nested objects, read back through Extract at every level. What a
// failed read leaves half-built must be deleted: the sanitizer builds see leaks.
class TestNest : public QEN_TObject,
                 public virtual QEN_IPackable,
                 public virtual QEN_IHumanReadable {
  QEN_VALUE_FRAME(TestNest)
 public:
  bool operator==(const TestNest& o) const {
    return value == o.value && (child ? o.child && *child == *o.child : !o.child);
  }
  static std::shared_ptr<TestNest> Chain(unsigned depth) {
    std::shared_ptr<TestNest> top(new TestNest);
    TestNest* last = top.get();
    for (unsigned i = 1; i < depth; ++i) {
      last->child.reset(new TestNest);
      last = last->child.get();
      last->value = static_cast<int>(i);
    }
    return top;
  }

  void QEN_Pack(QEN_IPacking& out) const override {
    out << value << static_cast<bool>(child);
    if (child) out << *child;
  }
  void QEN_Unpack(QEN_IUnpacking& in) override {
    bool hasChild = false;
    in >> &value >> &hasChild;
    child.reset();
    if (hasChild)
      child.reset(Adopt(in.Extract(), [] { QEN_THROW(QEN_EStreamException, "expected a nest"); }));
  }
  bool QEN_HRMultiLine() const override { return true; }
  bool WriteTo(QEN_THumanReadableStream& out) const override {
    out << value << cr;
    if (child)
      out.WriteObject(*child);
    else
      out << "-";
    return false;
  }
  bool ReadFrom(QEN_THumanReadableStream& in) override {
    in >> &value;
    in.SkipWhiteSpace();
    QEN_TUniChar c;
    child.reset();
    if (in.PeekChar(c) && c == '-')
      in.ReadChar(c);
    else
      child.reset(Adopt(in.Extract(), [&] { in.SyntaxError("expected a TestNest"); }));
    return false;
  }

  int value = 0;
  std::shared_ptr<TestNest> child;  // shared by copies: no test changes one

 private:
  // What Extract built must be a TestNest; anything else is deleted.
  template <class Read, class Fail>
  static TestNest* Adopt(Read* read, Fail fail) {
    TestNest* nest = static_cast<TestNest*>(read->DynamicCast("TestNest"));
    if (nest == nullptr) delete read, fail();
    return nest;
  }
};
QEN_DEFINE_VALUE(TestNest, QEN_TObject, QEN_IPackable, QEN_IHumanReadable)

class StreamTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_qentypes__());
    TestPoint::QEN_ClassObject();
    TestNest::QEN_ClassObject();
  }
};

std::string Bytes(const QEN_TMemoryStream& m) {
  return std::string(reinterpret_cast<const char*>(m.Data()), m.Length());
}

using test_support::DataReader;
using test_support::FailureOf;

// ---------------------------------------------------------------------------
// Memory stream

TEST_F(StreamTest, MemoryStreamReadsBackAndFixedMemoryRefusesToOverflow) {
  QEN_TMemoryStream m;
  std::string text(5000, 'x');
  m.Write(text.data(), 5000);
  char got[3000];
  EXPECT_EQ(m.Read(got, 3000), 3000u);
  EXPECT_EQ(m.Read(got, 3000), 2000u);
  m.SetSize(10);
  EXPECT_EQ(m.Position(), 10u) << "the read position stays within the length";
  m.SetSize(20);
  EXPECT_EQ(m.Data()[15], 0) << "growing fills with zeros";
  EXPECT_THROW(m.SetPosition(21), QEN_EStreamException);

  char block[8] = "abc";
  QEN_TMemoryStream fixed(block, sizeof block, 3);
  fixed.Write("defgh", 5);
  EXPECT_EQ(std::string(block, 8), "abcdefgh");
  EXPECT_THROW(fixed.Write("i", 1), QEN_EStreamException);
  EXPECT_EQ(fixed.Length(), 8u) << "a refused write changes nothing";
}

// Grows by doubling into blocks of its own, until told to refuse.
std::vector<std::unique_ptr<unsigned char[]>> gGrown;
bool gGrowRefuses = false;
void* GrowBlock(QEN_TMemoryStream& stream, unsigned& capacity) {
  if (gGrowRefuses) return nullptr;
  gGrown.emplace_back(new unsigned char[capacity *= 2]);
  std::memcpy(gGrown.back().get(), stream.Data(), stream.Length());
  return gGrown.back().get();
}

TEST_F(StreamTest, MemoryStreamGrowsThroughItsCallback) {
  unsigned char block[4] = {1, 2};
  QEN_TMemoryStream m(block, sizeof block, 2, &GrowBlock);
  for (unsigned char i = 3; i <= 100; ++i) m.Write(&i, 1);
  EXPECT_LT(gGrown.size(), 10u) << "the callback's larger capacity is kept";
  ASSERT_EQ(m.Length(), 100u);
  for (unsigned i = 0; i < 100; ++i) ASSERT_EQ(m.Data()[i], i + 1);
  gGrowRefuses = true;
  std::vector<unsigned char> big(m.Capacity(), 0);
  EXPECT_THROW(m.Write(big.data(), static_cast<unsigned>(big.size())), QEN_EStreamException);
  EXPECT_EQ(m.Length(), 100u);
}

// ---------------------------------------------------------------------------
// Files

class FileTest : public StreamTest {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/qen_stream_testXXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    mDir = pattern;
  }
  void TearDown() override {
    std::string command = "rm -rf '" + mDir + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
  }
  QEN_TString Path(const char* name) const { return QEN_TString((mDir + "/" + name).c_str()); }
  std::string mDir;
};

// Small and large runs through the file's buffer. (The golden files are read
// through a data stream on a file.)
TEST_F(FileTest, WritesAndReadsSmallAndLargeRuns) {
  std::vector<unsigned char> big(200000);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 7);
  {
    QEN_TFile file(Path("a.bin"), QEN_TFile::WriteOnly);
    for (int i = 0; i < 100; ++i) file.Write(&big[i], 1);
    file.Write(big.data() + 100, static_cast<unsigned>(big.size() - 100));
  }
  QEN_TFile file(Path("a.bin"), QEN_TFile::ReadOnly);
  std::vector<unsigned char> back(big.size());
  ASSERT_EQ(file.Read(back.data(), 100), 100u);
  ASSERT_EQ(file.Read(back.data() + 100, static_cast<unsigned>(back.size() - 100)),
            back.size() - 100);
  EXPECT_EQ(back, big);
  EXPECT_EQ(file.Available(), 0u);
}

TEST_F(FileTest, ReadWriteWritesWhereReadingStoppedAndFailuresAreFileExceptions) {
  QEN_TFile(Path("b.txt"), QEN_TFile::WriteOnly).Write("0123456789", 10);
  {
    QEN_TFile file(Path("b.txt"), QEN_TFile::ReadWrite);
    char got[3];
    ASSERT_EQ(file.Read(got, 3), 3u);
    file.Write("abc", 3);
    ASSERT_EQ(file.Read(got, 2), 2u);
    EXPECT_EQ(std::string(got, 2), "67");
  }
  char all[16];
  ASSERT_EQ(QEN_TFile(Path("b.txt"), QEN_TFile::ReadOnly).Read(all, 16), 10u);
  EXPECT_EQ(std::string(all, 10), "012abc6789");
  EXPECT_THROW(QEN_TFile(Path("missing"), QEN_TFile::ReadOnly), QEN_EFileException);
  EXPECT_THROW(QEN_TFile(QEN_TString(mDir.c_str()), QEN_TFile::ReadOnly), QEN_EFileException);
  QEN_TFile created(Path("missing2"), QEN_TFile::ReadWrite);
  QEN_TFile reader(Path("missing2"), QEN_TFile::ReadOnly);
  reader.Write("x", 1);
  EXPECT_THROW(reader.Flush(), QEN_EFileException) << "the write fails when it reaches the file";
}

// ---------------------------------------------------------------------------
// Binary stream

TEST_F(StreamTest, BeginAndEndClassAreChecked) {
  QEN_TMemoryStream m;
  QEN_TDataStream s(m);
  s.PackBeginClass("Alpha").PackEndClass("Alpha").PackBeginClass("Alpha");
  // The name once, then its number.
  EXPECT_EQ(Bytes(m), std::string("\xB5\x02{\x81\x05"
                                  "Alpha}\x00{\x00",
                                  14));
  s.UnpackBeginClass("Alpha");
  s.UnpackEndClass("Alpha");
  EXPECT_THROW(s.UnpackBeginClass("Beta"), QEN_EStreamException);

  QEN_TMemoryStream m2;
  QEN_TDataStream s2(m2);
  s2.PackBeginClass("Alpha");
  EXPECT_THROW(s2.UnpackEndClass("Alpha"), QEN_EStreamException) << "a begin is not an end";
  for (const std::string& bad : {std::string(), std::string(256, 'a'), std::string("two words")})
    EXPECT_THROW(s2.PackBeginClass(bad.c_str()), QEN_EStreamException) << bad;
}

TEST_F(StreamTest, ExtractBuildsTheNamedClassAndGetObjectRequiresIt) {
  QEN_TMemoryStream m;
  QEN_TDataStream s(m);
  s << TestPoint(7, 8) << TestPoint(1, 2) << TestPoint(3, 4);
  // The class is named once and numbered after: the other two points take a
  // byte for their class.
  EXPECT_EQ(m.Length(), 2u + 11 + 3 * 12 + 2);
  std::unique_ptr<QEN_IPackable> read(s.Extract());
  EXPECT_TRUE(read->QEN_IsIdent(TestPoint(7, 8)));
  TestPoint p;
  s >> p;
  EXPECT_EQ(p, TestPoint(1, 2));
  EXPECT_THROW(s >> *TestNest::Chain(1), QEN_EStreamException);

  // What another data stream appended starts with its own mark and numbers;
  // one reader reads on across it.
  QEN_TMemoryStream joined;
  QEN_TDataStream(joined) << TestPoint(1, 2);
  QEN_TDataStream(joined) << TestNest() << TestPoint(5, 6);
  QEN_TDataStream in(joined);
  std::unique_ptr<QEN_IPackable> first(in.Extract()), second(in.Extract()), third(in.Extract());
  EXPECT_TRUE(first->QEN_IsIdent(TestPoint(1, 2)) && second->QEN_IsIdent(TestNest()) &&
              third->QEN_IsIdent(TestPoint(5, 6)));
}

// Both versions: the first names the class at every object, the second
// (behind its mark) once, then by number.
TEST_F(StreamTest, ExtractRefusesWhatItCannotBuild) {
  const std::string mark = "\xB5\x02";
  const std::string hostile[] = {
      std::string("O\x07NoSuchX", 9),
      mark + "\x81\x0DQEN_IPackable",
      "O\x0BQEN_TRWLock",  // registered, but not packable
      "X",
      std::string("O\x00", 2),
      mark + "\x81\x03a-b",
      mark + "\x05",
      mark + std::string("\x80\x00\x01", 3),
      mark + "\x82",  // a well-known class, with nothing behind it
      mark + "\x8E",  // another, which this process may not know
      mark + "\x95",  // beyond the table of well-known classes
      mark + "\xFF",
      "\xB5\x03",
      mark + "\x81\x08TestNest" + std::string("\0\0\0\0\x02", 5),  // a bool is 0 or 1
      mark + "\x81\x08TestNest" + std::string("\0\0\0\0\x01", 5) + mark};
  for (const std::string& bytes : hostile) {
    DataReader reader(bytes);
    EXPECT_THROW(delete reader.in.Extract(), QEN_EStreamException) << bytes;
  }
  // A reader that admits only some classes refuses the others before it
  // builds them, however deep they stand; objects read by name still read.
  QEN_TMemoryStream m;
  QEN_TDataStream s(m);
  QEN_TDict outer;
  outer["block"] = QEN_TAny(QEN_TDataBlock("ab", 2));
  outer["list"] = QEN_TAny(QEN_TList());
  s << outer;
  static const char* const kBlocks[] = {"QEN_TDataBlock", nullptr};
  s.AdmitOnly(kBlocks);
  QEN_TDict back;
  EXPECT_THROW(s >> back, QEN_EStreamException);
}

TEST_F(StreamTest, TruncatedInputThrowsAtEveryLength) {
  QEN_TMemoryStream full;
  QEN_TDataStream out(full);
  std::shared_ptr<TestNest> nest = TestNest::Chain(3);
  out << *nest << TestPoint(-1, 2);
  // Values that a memory stream reads in place: numbers of every width,
  // texts with a count of one and of two bytes, of 8- and of 16-bit
  // characters, URLs of both lengths, and an object inside a list.
  const std::string longText(100, 'x');
  QEN_TDict values;
  values["u8"] = static_cast<unsigned char>(7);
  values["u16"] = static_cast<unsigned short>(700);
  values["i64"] = -5LL;
  values["yes"] = true;
  values["pi"] = 3.25;
  values["nothing"] = QEN_TAny();
  values["short"] = QEN_TString("abc");
  values["long"] = QEN_TString(longText.c_str());
  values["wide"] = QEN_TString(L"\u20ac");
  values[longText.c_str()] = 1u;
  QEN_TList list;
  list.AddAtTail(QEN_TAny(values));
  const QEN_TURL shortUrl("file:///a/b.tif"), longUrl(("file:///" + longText).c_str());
  QEN_TMemoryStream inPlace;
  QEN_TDataStream valuesOut(inPlace);
  valuesOut << values << list << shortUrl << longUrl;
  {
    DataReader whole(Bytes(inPlace));
    std::unique_ptr<QEN_IInterface> dict(whole.in.Extract()), listBack(whole.in.Extract()),
        url1(whole.in.Extract()), url2(whole.in.Extract());
    EXPECT_TRUE(*dict->DynamicCast<QEN_TDict>() == values);
    EXPECT_TRUE(*listBack->DynamicCast<QEN_TList>() == list);
    EXPECT_TRUE(*url1->DynamicCast<QEN_TURL>() == shortUrl);
    EXPECT_TRUE(*url2->DynamicCast<QEN_TURL>() == longUrl);
  }
  // The current version, two objects and four; the first version, a dictionary.
  const std::pair<std::string, unsigned> streams[] = {
      {Bytes(full), 2},
      {Bytes(inPlace), 4},
      {test_support::ReadFile(VYRAX_TEST_DATA_DIR "/golden/v1/dict.bin"), 1}};
  for (const auto& stream : streams) {
    const std::string& bytes = stream.first;
    ASSERT_FALSE(bytes.empty());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      DataReader cut(bytes.substr(0, length));
      auto readAll = [&] {
        for (unsigned i = 0; i < stream.second; ++i) delete cut.in.Extract();
      };
      EXPECT_THROW(readAll(), QEN_EStreamException) << length;
    }
  }
}

TEST_F(StreamTest, NestingIsBounded) {
  std::shared_ptr<TestNest> chain = TestNest::Chain(QEN_TDataStream::sMaxDepth);
  QEN_TMemoryStream m;
  QEN_TDataStream s(m);
  s << *chain;
  std::unique_ptr<QEN_IPackable> read(s.Extract());
  EXPECT_TRUE(read->QEN_IsIdent(*chain));
  chain = TestNest::Chain(QEN_TDataStream::sMaxDepth + 1);
  EXPECT_THROW(s << *chain, QEN_EStreamException) << "what can't be read isn't written";

  // A hand-made stream one level too deep.
  std::string deep;
  for (unsigned i = 0; i <= QEN_TDataStream::sMaxDepth; ++i)
    deep += std::string("O\x08TestNest\0\0\0\0\x01", 15);
  DataReader reader(deep);
  EXPECT_THROW(delete reader.in.Extract(), QEN_EStreamException);
}

// ---------------------------------------------------------------------------
// Text stream

using test_support::Written;

typedef test_support::TextReader Reader;

// The text stream refuses `text` as a T.
template <class T>
void ExpectRefused(const std::string& text) {
  Reader r(text);
  T value{};
  EXPECT_THROW(r.in >> value, QEN_ESyntaxError) << text;
}

// The value written to a text stream and read back, behind a comment.
template <class T>
T TextRoundTrip(T value) {
  Reader r("# comment\n\t" + Written([value](auto& o) { o << value; }));
  T back{};
  r.in >> back;
  return back;
}

TEST_F(StreamTest, NumbersReadBackExactlyAndInRangeOnly) {
  for (double d : {1.0 / 3, 1e-310, std::numeric_limits<double>::max(), -0.0, 5e-324,
                   -std::numeric_limits<double>::infinity()}) {
    double back = TextRoundTrip(d);
    EXPECT_EQ(std::memcmp(&back, &d, sizeof d), 0) << d;
  }
  EXPECT_TRUE(std::isnan(TextRoundTrip(std::numeric_limits<double>::quiet_NaN())));
  EXPECT_EQ(TextRoundTrip(std::numeric_limits<int>::min()), std::numeric_limits<int>::min());
  EXPECT_EQ(TextRoundTrip(~0ull), ~0ull);
  EXPECT_EQ(TextRoundTrip<unsigned char>(255), 255);
  EXPECT_EQ(TextRoundTrip(std::numeric_limits<long long>::min()),
            std::numeric_limits<long long>::min());
  ExpectRefused<unsigned>("4294967296");
  ExpectRefused<unsigned char>("256");
  ExpectRefused<unsigned>("-1");
  ExpectRefused<double>("1e999");
  ExpectRefused<double>("1.5x");
  ExpectRefused<int>("-");
}

// The string's own tests pin the escapes; here, what the stream adds: tokens
// that stay on one line, end where the quote ends, and lone surrogates.
TEST_F(StreamTest, QuotedTextRoundTrips) {
  for (const std::u16string& sample :
       {std::u16string(), std::u16string(u"lines\n\r\ttabs"),
        std::u16string(u"lone \xD800 high and \xDC00 low"), std::u16string(u"# not a comment"),
        std::u16string(u"\0\x01\x1B \"q\" back\\slash", 18)}) {
    std::string text = Written([&](auto& o) { o.WriteQuoted(QEN_TString(sample)); });
    Reader r(text + " \"second\"");
    QEN_TString back, second;
    r.in.ReadQuoted(back).ReadQuoted(second);
    EXPECT_TRUE(back.Chars() == sample) << text;
    EXPECT_EQ(second, "second");
    EXPECT_EQ(text.find('\n'), std::string::npos) << "a quoted token is one line";
  }
  Reader escapes("\"\\u00e9\\u00C9\"");
  QEN_TString back;
  escapes.in.ReadQuoted(back);
  EXPECT_TRUE(back.Chars() == u"\u00E9\u00C9");
  for (const char* bad : {"\n  \"open", "\"a\\qb\"", "\"\\u12G4\"", "\"two\nlines\""}) {
    Reader r(bad);
    EXPECT_THROW(r.in.ReadQuoted(back), QEN_ESyntaxError) << bad;
  }
}

// Good UTF-8 is read by the column test below. A stray continuation, a lead
// byte that never can be one, an overlong form, an encoded surrogate, a code
// point past U+10FFFF; a sequence cut short keeps the byte that cut it, and
// one cut by the end goes.
TEST_F(StreamTest, DecodesUtf8AndReplacesWhatIsInvalid) {
  Reader r("\x80 \xFF \xC0\xAF \xED\xA0\x80 \xF4\x90\x80\x80 \xE2\x82x \xF0\x9F\x98");
  std::u16string chars;
  QEN_TUniChar c;
  while (!r.in.AtEnd()) chars += *r.in.ReadChar(c);
  EXPECT_TRUE(
      chars ==
      u"\uFFFD \uFFFD \uFFFD\uFFFD \uFFFD\uFFFD\uFFFD \uFFFD\uFFFD\uFFFD\uFFFD \uFFFDx \uFFFD");
}

// Where a reader stands shows in its errors: the one place that checks the
// message, since a line and column are what a user of a text file needs.
TEST_F(StreamTest, SyntaxErrorsNameLineAndColumn) {
  Reader r("3 : 4\n\n  5 ; 6");
  TestPoint p;
  r.in >> p;
  EXPECT_EQ(p, TestPoint(3, 4));
  std::string message = FailureOf<QEN_ESyntaxError>([&] { r.in >> p; });
  EXPECT_EQ(message, "syntax error at line 3, column 5: unexpected character ';'");
  EXPECT_EQ(p.x, 5) << "fields read up to the error keep their values";

  // Columns count characters, not bytes; a surrogate pair is one.
  Reader wide("\xC3\xA9\xF0\x9F\x98\x80!");
  QEN_TUniChar c;
  for (int i = 0; i < 3; ++i) wide.in.ReadChar(c);
  EXPECT_EQ(FailureOf<QEN_ESyntaxError>([&] { wide.in.ReadChar(c), wide.in.SyntaxError(); }),
            "syntax error at line 1, column 3: unexpected character '!'");
}

TEST_F(StreamTest, FramedObjectsReadBackThroughExtract) {
  std::shared_ptr<TestNest> nest = TestNest::Chain(3);
  std::string text = Written([&](auto& o) {
    o.WriteObject(TestPoint(-1, 2)) << cr;
    o.WriteObject(*nest);
  });
  Reader r("# two objects\n" + text + "\n");
  std::unique_ptr<QEN_IHumanReadable> point(r.in.Extract());
  std::unique_ptr<QEN_IHumanReadable> chain(r.in.Extract());
  EXPECT_EQ(*static_cast<TestPoint*>(point->DynamicCast("TestPoint")), TestPoint(-1, 2));
  EXPECT_EQ(*static_cast<TestNest*>(chain->DynamicCast("TestNest")), *nest);

  // Filling an existing object: the class name may stand in front, and
  // then it must be this object's.
  Reader named("TestPoint{5:6} { 7 : 8 }");
  TestPoint p;
  p.QEN_ReadFrom(named.in);
  EXPECT_EQ(p, TestPoint(5, 6));
  p.QEN_ReadFrom(named.in);
  EXPECT_EQ(p, TestPoint(7, 8));
  Reader wrong("TestNest { 1 : 2 }");
  EXPECT_THROW(p.QEN_ReadFrom(wrong.in), QEN_ESyntaxError);
}

TEST_F(StreamTest, TextExtractRefusesWhatItCannotBuild) {
  const char* hostile[] = {"\n  NoSuchClass { }", "QEN_IHumanReadable { }", "QEN_TRWLock { }",
                           "  { }", "", "TestPoint { 1 : 2 ", "TestPoint ( 1 : 2 )",
                           // A failure deep inside deletes every object built so far.
                           "TestNest { 1 TestNest { 2 TestNest { x } } }"};
  for (const char* text : hostile) {
    Reader r(text);
    EXPECT_THROW(delete r.in.Extract(), QEN_EException) << text;
  }
}

TEST_F(StreamTest, TextNestingIsBounded) {
  std::string open, close;
  for (unsigned i = 0; i < QEN_THumanReadableStream::sMaxDepth; ++i) {
    open += "TestNest { 0 ";
    close += " }";
  }
  Reader ok(open + "-" + close);
  delete ok.in.Extract();
  Reader bad("TestNest { 0 " + open + "-" + close + " }");
  EXPECT_THROW(delete bad.in.Extract(), QEN_ESyntaxError);
}

}  // namespace
