// Byte streams, the binary stream and the text stream.
#include "qen/qen_stream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_file.h"
#include "qen/qen_string.h"
#include "stream_test_support.h"

namespace {

// A small value with a binary and a one-line text form, written the way
// every class of the library writes them: "3 : 4".
class TestPoint : public QEN_TObject,
                  public virtual QEN_IPackable,
                  public virtual QEN_IHumanReadable {
  QEN_VALUE_FRAME(TestPoint)
 public:
  static int sLive;
  TestPoint(int x = 0, unsigned y = 0) : x(x), y(y) { ++sLive; }
  TestPoint(const TestPoint& other) : QEN_TObject(other), x(other.x), y(other.y) { ++sLive; }
  ~TestPoint() override { --sLive; }
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
int TestPoint::sLive = 0;
QEN_DEFINE_VALUE(TestPoint, QEN_TObject, QEN_IPackable, QEN_IHumanReadable)

// A chain of nested objects, read back through Extract at every level.
class TestNest : public QEN_TObject,
                 public virtual QEN_IPackable,
                 public virtual QEN_IHumanReadable {
  QEN_VALUE_FRAME(TestNest)
 public:
  static int sLive;
  TestNest() { ++sLive; }
  TestNest(const TestNest& other) : QEN_TObject(other), value(other.value) {
    if (other.child) child.reset(new TestNest(*other.child));
    ++sLive;
  }
  ~TestNest() override { --sLive; }
  bool operator==(const TestNest& o) const {
    return value == o.value && (child ? o.child && *child == *o.child : !o.child);
  }
  static std::unique_ptr<TestNest> Chain(unsigned depth) {
    std::unique_ptr<TestNest> top(new TestNest);
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
  std::unique_ptr<TestNest> child;

 private:
  // What Extract built must be a TestNest; anything else is deleted.
  template <class Read, class Fail>
  static TestNest* Adopt(Read* read, Fail fail) {
    TestNest* nest = static_cast<TestNest*>(read->DynamicCast("TestNest"));
    if (nest == nullptr) delete read, fail();
    return nest;
  }
};
int TestNest::sLive = 0;
QEN_DEFINE_VALUE(TestNest, QEN_TObject, QEN_IPackable, QEN_IHumanReadable)

// Registered, buildable, but neither packable nor readable.
class TestPlain : public QEN_TObject {
  QEN_OBJECT_FRAME(TestPlain)
};
QEN_DEFINE_OBJECT(TestPlain, QEN_TObject)

class StreamTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_qentypes__());
    TestPoint::QEN_ClassObject();
    TestNest::QEN_ClassObject();
    TestPlain::QEN_ClassObject();
  }
  void TearDown() override {
    EXPECT_EQ(TestPoint::sLive, 0) << "an object leaked";
    EXPECT_EQ(TestNest::sLive, 0) << "an object leaked";
  }
};

std::string Bytes(const QEN_TMemoryStream& m) { return test_support::Contents(m); }

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
  EXPECT_EQ(m.Read(got, 10), 0u);
  m.SetSize(10);
  EXPECT_EQ(m.Position(), 10u) << "the read position stays within the length";
  m.SetSize(20);
  EXPECT_EQ(m.Data()[15], 0) << "growing fills with zeros";
  EXPECT_THROW(m.SetPosition(21), QEN_EStreamException);

  char block[8] = "abc";
  QEN_TMemoryStream fixed(block, sizeof block, 3);
  fixed.Write("defgh", 5);
  EXPECT_EQ(std::string(block, 8), "abcdefgh");
  std::string message = FailureOf([&] { fixed.Write("i", 1); });
  EXPECT_NE(message.find("full"), std::string::npos) << message;
  EXPECT_EQ(fixed.Length(), 8u) << "a refused write changes nothing";
  EXPECT_THROW(QEN_TMemoryStream(block, 4, 5), QEN_EStreamException);
}

// Grows by doubling into blocks of its own, until told to refuse.
std::vector<std::unique_ptr<unsigned char[]>> gGrown;
int gGrowCalls = 0;
bool gGrowRefuses = false;
void* GrowBlock(QEN_TMemoryStream& stream, unsigned& capacity) {
  ++gGrowCalls;
  if (gGrowRefuses) return nullptr;
  gGrown.emplace_back(new unsigned char[capacity *= 2]);
  std::memcpy(gGrown.back().get(), stream.Data(), stream.Length());
  return gGrown.back().get();
}

TEST_F(StreamTest, MemoryStreamGrowsThroughItsCallback) {
  unsigned char block[4] = {1, 2};
  QEN_TMemoryStream m(block, sizeof block, 2, &GrowBlock);
  for (unsigned char i = 3; i <= 100; ++i) m.Write(&i, 1);
  EXPECT_GT(gGrowCalls, 1);
  EXPECT_LT(gGrowCalls, 10) << "the callback's larger capacity is kept";
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
    StreamTest::TearDown();
  }
  QEN_TString Path(const char* name) const { return QEN_TString((mDir + "/" + name).c_str()); }
  std::string mDir;
};

// Small and large runs through the file's buffer, and a data stream on top.
TEST_F(FileTest, WritesAndReadsSmallAndLargeRuns) {
  std::vector<unsigned char> big(200000);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 7);
  {
    QEN_TFile file(Path("a.bin"), QEN_TFile::WriteOnly);
    file.Write("head", 4);
    file.Write(big.data(), static_cast<unsigned>(big.size()));
    for (int i = 0; i < 1000; ++i) file.Write("t", 1);
    QEN_TDataStream out(file);
    out << TestPoint(-3, 4) << 2.5;
    EXPECT_TRUE(out.Flush());
  }
  QEN_TFile file(Path("a.bin"), QEN_TFile::ReadOnly);
  char head[4];
  ASSERT_EQ(file.Read(head, 4), 4u);
  EXPECT_EQ(std::string(head, 4), "head");
  std::vector<unsigned char> back(big.size());
  ASSERT_EQ(file.Read(back.data(), 100), 100u);
  ASSERT_EQ(file.Read(back.data() + 100, static_cast<unsigned>(back.size() - 100)),
            back.size() - 100);
  EXPECT_EQ(back, big);
  std::vector<char> tail(1000);
  EXPECT_EQ(file.Read(tail.data(), 1000), 1000u);
  QEN_TDataStream in(file);
  std::unique_ptr<QEN_IPackable> read(in.Extract());
  EXPECT_TRUE(read->QEN_IsIdent(TestPoint(-3, 4)));
  double d = 0;
  in >> d;
  EXPECT_EQ(d, 2.5);
  EXPECT_EQ(file.Available(), 0u);
}

TEST_F(FileTest, ReadWriteWritesWhereReadingStopped) {
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
}

TEST_F(FileTest, FailuresNameThePathAndTheSystemsReason) {
  std::string message =
      FailureOf<QEN_EFileException>([&] { QEN_TFile(Path("missing"), QEN_TFile::ReadOnly); });
  EXPECT_NE(message.find(mDir + "/missing"), std::string::npos) << message;
  EXPECT_NE(message.find(std::strerror(ENOENT)), std::string::npos) << message;
  EXPECT_THROW(QEN_TFile(QEN_TString(mDir.c_str()), QEN_TFile::ReadOnly), QEN_EFileException);
  EXPECT_THROW(QEN_TFile(Path("x"), 7), QEN_EFileException);
  QEN_TFile created(Path("missing2"), QEN_TFile::ReadWrite);
  QEN_TFile reader(Path("missing2"), QEN_TFile::ReadOnly);
  reader.Write("x", 1);
  EXPECT_THROW(reader.Flush(), QEN_EFileException) << "the write fails when it reaches the file";
}

// ---------------------------------------------------------------------------
// Binary stream

TEST_F(StreamTest, BoolMustBeZeroOrOne) {
  QEN_TMemoryStream m;
  m.Write("\x02", 1);
  QEN_TDataStream in(m);
  bool value;
  std::string message = FailureOf<QEN_EStreamException>([&] { in >> value; });
  EXPECT_NE(message.find("bool"), std::string::npos) << message;
  EXPECT_NE(message.find("offset 0"), std::string::npos) << message;
}

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
  std::string message = FailureOf<QEN_EStreamException>([&] { s.UnpackBeginClass("Beta"); });
  EXPECT_NE(message.find("\"Alpha\""), std::string::npos) << message;
  EXPECT_NE(message.find("\"Beta\""), std::string::npos) << message;
  EXPECT_NE(message.find("offset 12"), std::string::npos) << message;

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
  EXPECT_EQ(Bytes(m).substr(0, 13), "\xB5\x02\x81\x09TestPoint");
  EXPECT_EQ(m.Length(), 2u + 11 + 3 * 12 + 2);
  std::unique_ptr<QEN_IPackable> read(s.Extract());
  ASSERT_NE(read, nullptr);
  EXPECT_STREQ(read->ClassName(), "TestPoint");
  EXPECT_TRUE(read->QEN_IsIdent(TestPoint(7, 8)));
  TestPoint p;
  s >> p;
  EXPECT_EQ(p, TestPoint(1, 2));
  TestNest nest;
  std::string message = FailureOf<QEN_EStreamException>([&] { s >> nest; });
  EXPECT_NE(message.find("\"TestNest\""), std::string::npos) << message;
  EXPECT_NE(message.find("\"TestPoint\""), std::string::npos) << message;

  // What another data stream appended starts with its own mark and numbers;
  // one reader reads on across it.
  QEN_TMemoryStream joined;
  QEN_TDataStream(joined) << TestPoint(1, 2);
  QEN_TDataStream(joined) << TestNest() << TestPoint(5, 6);
  QEN_TDataStream in(joined);
  std::unique_ptr<QEN_IPackable> first(in.Extract()), second(in.Extract()), third(in.Extract());
  EXPECT_TRUE(first->QEN_IsIdent(TestPoint(1, 2)));
  EXPECT_TRUE(second->QEN_IsIdent(TestNest()));
  EXPECT_TRUE(third->QEN_IsIdent(TestPoint(5, 6)));
}

TEST_F(StreamTest, ExtractRefusesWhatItCannotBuild) {
  auto extract = [](const std::string& bytes) {
    QEN_TMemoryStream m;
    m.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
    QEN_TDataStream s(m);
    std::unique_ptr<QEN_IPackable> read(s.Extract());
  };
  // Both versions: the first names the class at every object, the second
  // (behind its mark) once, then by number.
  const std::string mark = "\xB5\x02";
  std::string message =
      FailureOf<QEN_EUnknownClass>([&] { extract(std::string("O\x07NoSuchX", 9)); });
  EXPECT_NE(message.find("NoSuchX"), std::string::npos) << message;
  EXPECT_NE(message.find("offset 0"), std::string::npos) << message;
  message = FailureOf<QEN_EUnknownClass>([&] { extract(mark + "\x81\x07NoSuchX"); });
  EXPECT_NE(message.find("\"NoSuchX\" at offset 2"), std::string::npos) << message;
  const std::pair<std::string, const char*> cases[] = {
      {"O\x0DQEN_IPackable", "factory"},
      {"O\x09TestPlain", "not packable"},
      {"X", "0x58"},
      {std::string("O\x00", 2), "empty class name"},
      {"O\x03"
       "a-b",
       "offset 3"},
      {mark + "\x81\x0DQEN_IPackable", "factory"},
      {mark + "\x81\x03"
              "a-b",
       "offset 5"},
      {mark + "\x05", "class number 5 at offset 2 was never named"},
      {mark + std::string("\x80\x00\x01", 3), "class number 256"},
      {mark + "\x82", "0x82"},
      {"\xB5\x03", "unknown format version 3 at offset 1"},
      {mark + "\x81\x08TestNest" + std::string("\0\0\0\0\x01", 5) + mark,
       "format mark inside an object at offset 17"}};
  for (const auto& c : cases) {
    message = FailureOf<QEN_EStreamException>([&] { extract(c.first); });
    EXPECT_NE(message.find(c.second), std::string::npos) << message;
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
  message = FailureOf<QEN_EStreamException>([&] { s >> back; });
  EXPECT_NE(message.find("\"QEN_TList\" at offset"), std::string::npos) << message;
}

TEST_F(StreamTest, TruncatedInputThrowsAtEveryLength) {
  QEN_TMemoryStream full;
  QEN_TDataStream out(full);
  std::unique_ptr<TestNest> nest = TestNest::Chain(3);
  out << *nest << TestPoint(-1, 2);
  // The current version, two objects; the first version, a dictionary.
  const std::pair<std::string, unsigned> streams[] = {
      {Bytes(full), 2}, {test_support::ReadFile(VYRAX_TEST_DATA_DIR "/golden/v1/dict.bin"), 1}};
  for (const auto& stream : streams) {
    const std::string& bytes = stream.first;
    ASSERT_FALSE(bytes.empty());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      QEN_TMemoryStream m;
      m.Write(bytes.data(), static_cast<unsigned>(length));
      QEN_TDataStream in(m);
      std::string message = FailureOf<QEN_EStreamException>([&] {
        for (unsigned i = 0; i < stream.second; ++i) std::unique_ptr<QEN_IPackable>(in.Extract());
      });
      EXPECT_NE(message.find("offset"), std::string::npos) << length << ": " << message;
    }
  }
  // Half-built objects were deleted on the way out (checked in TearDown).
}

TEST_F(StreamTest, NestingIsBounded) {
  std::unique_ptr<TestNest> chain = TestNest::Chain(QEN_TDataStream::sMaxDepth);
  QEN_TMemoryStream m;
  QEN_TDataStream s(m);
  s << *chain;
  std::unique_ptr<QEN_IPackable> read(s.Extract());
  EXPECT_TRUE(read->QEN_IsIdent(*chain));
  chain = TestNest::Chain(QEN_TDataStream::sMaxDepth + 1);
  EXPECT_THROW(s << *chain, QEN_EStreamException) << "what can't be read isn't written";

  // A hand-made stream one level too deep.
  QEN_TMemoryStream deep;
  for (unsigned i = 0; i <= QEN_TDataStream::sMaxDepth; ++i)
    deep.Write("O\x08TestNest\0\0\0\0\x01", 15);
  QEN_TDataStream in(deep);
  std::string message = FailureOf<QEN_EStreamException>([&] { delete in.Extract(); });
  EXPECT_NE(message.find("nested deeper than 64"), std::string::npos) << message;
}

// ---------------------------------------------------------------------------
// Text stream

std::string Text(std::function<void(QEN_THumanReadableStream&)> write) {
  return test_support::Written(write);
}

typedef test_support::TextReader Reader;

std::u16string CharsOf(const std::string& utf8) {
  Reader r(utf8);
  std::u16string out;
  QEN_TUniChar c;
  while (!r.in.AtEnd()) out += *r.in.ReadChar(c);
  return out;
}

TEST_F(StreamTest, NumbersReadBackExactlyAndInRangeOnly) {
  const std::string written = Text([](auto& o) {
    o << 0.1 << ' ' << 1.0 / 3 << ' ' << -0.0 << ' ' << 1e300 << ' '
      << -std::numeric_limits<double>::infinity() << ' ' << std::numeric_limits<double>::quiet_NaN()
      << ' ' << 4294967295u << ' ' << -2147483647 - 1 << ' ' << ~0ull << ' '
      << static_cast<unsigned short>(65535) << ' ' << static_cast<unsigned char>(255) << ' '
      << (-9223372036854775807LL - 1);
  });
  EXPECT_EQ(written,
            "0.1 0.33333333333333331 -0 1e+300 -inf nan 4294967295 -2147483648 "
            "18446744073709551615 65535 255 -9223372036854775808");
  Reader r("# comment\n\t" + written);
  double skip, inf, nan;
  unsigned u;
  int i;
  unsigned long long l;
  unsigned short w;
  unsigned char b;
  long long ll;
  r.in >> skip >> skip >> skip >> skip >> inf >> nan >> u >> i >> l >> w >> b >> ll;
  EXPECT_EQ(inf, -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(nan));
  EXPECT_EQ(u, 4294967295u);
  EXPECT_EQ(i, std::numeric_limits<int>::min());
  EXPECT_EQ(l, ~0ull);
  EXPECT_EQ(w, 65535);
  EXPECT_EQ(b, 255);
  EXPECT_EQ(ll, std::numeric_limits<long long>::min());
  EXPECT_TRUE(r.in.AtEnd());
  for (double d :
       {2.0 / 3, 1e-310, 123456789.123456789, std::numeric_limits<double>::max(), -0.0, 5e-324}) {
    Reader one(Text([d](auto& o) { o << d; }));
    double back;
    one.in >> back;
    EXPECT_EQ(std::memcmp(&back, &d, sizeof d), 0) << d;
  }

  auto failure = [](const std::string& text, auto target) {
    return FailureOf<QEN_ESyntaxError>([&] {
      Reader r(text);
      auto value = target;
      r.in >> value;
    });
  };
  const std::pair<std::string, std::string> found[] = {
      {failure("4294967296", 0u), "out of range"},
      {failure("256", static_cast<unsigned char>(0)), "out of range"},
      {failure("-1", 0u), "out of range"},
      {failure("1e999", 0.0), "out of range"},
      {failure("  x", 0u), "line 1, column 3: expected an unsigned 32, found 'x'"},
      {failure("1.5x", 0.0), "\"1.5x\""},
      {failure("-", 0), "expected a signed 32"}};
  for (const auto& f : found) EXPECT_NE(f.first.find(f.second), std::string::npos) << f.first;
}

TEST_F(StreamTest, SkipTreatsCommentsAsWhiteSpace) {
  Reader r("  # a comment\n  \t# another\r\nword, rest");
  QEN_TString skipped, word;
  r.in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  EXPECT_EQ(skipped, "  \n  \t\n") << "comment text is not part of what was skipped";
  r.in.ReadUntil(word, ",");
  EXPECT_EQ(word, "word");
  QEN_TUniChar c;
  EXPECT_EQ(*r.in.ReadChar(c), ',');
  // Without the line break in the set, '#' is text like any other.
  Reader plain(" #x");
  plain.in.Skip(skipped, " ");
  EXPECT_EQ(*plain.in.ReadChar(c), '#');

  Reader end("abc");
  end.in.ReadUntil(word, ";");
  EXPECT_EQ(word, "abc");
  EXPECT_TRUE(end.in.AtEnd());
  std::string message = FailureOf<QEN_ESyntaxError>([&] { end.in.ReadChar(c); });
  EXPECT_EQ(message, "syntax error at line 1, column 4: unexpected end of text");
}

// The string's own tests pin the escapes; here, what the stream adds: tokens
// that stay on one line, end where the quote ends, and lone surrogates.
TEST_F(StreamTest, QuotedTextRoundTrips) {
  for (const std::u16string& sample :
       {std::u16string(), std::u16string(u"lines\n\r\ttabs"),
        std::u16string(u"lone \xD800 high and \xDC00 low"), std::u16string(u"# not a comment"),
        std::u16string(u"\0\x01\x1B \"q\" back\\slash", 18)}) {
    std::string text = Text([&](auto& o) { o.WriteQuoted(QEN_TString(sample)); });
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
}

TEST_F(StreamTest, QuotedTextErrorsSayWhere) {
  auto failure = [](const std::string& text) {
    return FailureOf<QEN_ESyntaxError>([&] {
      Reader r(text);
      QEN_TString s;
      r.in.ReadQuoted(s);
    });
  };
  EXPECT_EQ(failure("\n  \"open"),
            "syntax error at line 2, column 3: quoted text not closed before the end of the text");
  EXPECT_NE(failure("\"a\\qb\"").find("column 4: unknown escape"), std::string::npos);
  EXPECT_NE(failure("\"\\u12G4\"").find("four hex digits"), std::string::npos);
  EXPECT_NE(failure("\"two\nlines\"").find("line 1, column 5: line break"), std::string::npos);
}

TEST_F(StreamTest, DecodesUtf8AndReplacesWhatIsInvalid) {
  EXPECT_TRUE(CharsOf("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80") == u"a\u00E9\u20AC\U0001F600");
  // A stray continuation, a lead byte that never can be one, an overlong
  // form, an encoded surrogate, a code point past U+10FFFF.
  EXPECT_TRUE(CharsOf("\x80 \xFF \xC0\xAF \xED\xA0\x80 \xF4\x90\x80\x80") ==
              u"\uFFFD \uFFFD \uFFFD\uFFFD \uFFFD\uFFFD\uFFFD \uFFFD\uFFFD\uFFFD\uFFFD");
  // A sequence cut short keeps the byte that cut it.
  EXPECT_TRUE(CharsOf("\xE2\x82x") == u"\uFFFDx");
  EXPECT_TRUE(CharsOf("\xF0\x9F\x98") == u"\uFFFD") << "truncated at the end";
}

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
  Reader fresh("x");
  EXPECT_EQ(FailureOf<QEN_ESyntaxError>([&] { fresh.in.SyntaxError("custom"); }),
            "syntax error at line 1, column 1: custom");
}

TEST_F(StreamTest, FramedObjectsReadBackThroughExtract) {
  std::unique_ptr<TestNest> nest = TestNest::Chain(3);
  std::string text = Text([&](auto& o) {
    o.WriteObject(TestPoint(-1, 2)) << cr;
    o.WriteObject(*nest);
  });
  EXPECT_EQ(text,
            "TestPoint { -1 : 2 }\n"
            "TestNest {\n  0\n  TestNest {\n    1\n    TestNest {\n      2\n      -\n"
            "    }\n  }\n}");
  Reader r("# two objects\n" + text + "\n");
  std::unique_ptr<QEN_IHumanReadable> point(r.in.Extract());
  std::unique_ptr<QEN_IHumanReadable> chain(r.in.Extract());
  EXPECT_EQ(*static_cast<TestPoint*>(point->DynamicCast("TestPoint")), TestPoint(-1, 2));
  EXPECT_EQ(*static_cast<TestNest*>(chain->DynamicCast("TestNest")), *nest);
  r.in.SkipWhiteSpace();
  EXPECT_TRUE(r.in.AtEnd());

  // Filling an existing object: the class name may stand in front, and
  // then it must be this object's.
  Reader named("TestPoint{5:6} { 7 : 8 }");
  TestPoint p;
  p.QEN_ReadFrom(named.in);
  EXPECT_EQ(p, TestPoint(5, 6));
  p.QEN_ReadFrom(named.in);
  EXPECT_EQ(p, TestPoint(7, 8));
  Reader wrong("TestNest { 1 : 2 }");
  EXPECT_EQ(FailureOf<QEN_ESyntaxError>([&] { p.QEN_ReadFrom(wrong.in); }),
            "syntax error at line 1, column 8: expected class TestPoint, found TestNest");
}

TEST_F(StreamTest, TextExtractRefusesWhatItCannotBuild) {
  auto failure = [](const std::string& text) {
    return FailureOf([&] {
      Reader r(text);
      std::unique_ptr<QEN_IHumanReadable> read(r.in.Extract());
    });
  };
  EXPECT_EQ(FailureOf<QEN_EUnknownClass>([] {
              Reader r("\n  NoSuchClass { }");
              delete r.in.Extract();
            }),
            "unknown class \"NoSuchClass\" at line 2, column 3");
  EXPECT_NE(failure("QEN_IHumanReadable { }").find("no factory"), std::string::npos);
  EXPECT_NE(failure("TestPlain { }").find("no text form"), std::string::npos);
  const std::pair<const char*, const char*> cases[] = {
      {"  { }", "line 1, column 3: expected a class name, found '{'"},
      {"", "line 1, column 1: expected a class name, found the end of the text"},
      {"TestPoint { 1 : 2 ", "line 1, column 19: unexpected end of text"},
      {"TestPoint ( 1 : 2 )", "line 1, column 11: expected '{'"},
      // A failure deep inside deletes every object built so far (TearDown).
      {"TestNest { 1 TestNest { 2 TestNest { x } } }",
       "line 1, column 38: expected a signed 32, found 'x'"}};
  for (const auto& c : cases)
    EXPECT_EQ(failure(c.first), std::string("syntax error at ") + c.second);
}

TEST_F(StreamTest, TextNestingIsBounded) {
  auto nested = [](unsigned depth) {
    std::string text;
    for (unsigned i = 0; i < depth; ++i) text += "TestNest { 0 ";
    text += "-";
    for (unsigned i = 0; i < depth; ++i) text += " }";
    return text;
  };
  Reader ok(nested(QEN_THumanReadableStream::sMaxDepth));
  delete ok.in.Extract();
  Reader bad(nested(QEN_THumanReadableStream::sMaxDepth + 1));
  std::string message = FailureOf<QEN_ESyntaxError>([&] { delete bad.in.Extract(); });
  EXPECT_NE(message.find("nested deeper than 64"), std::string::npos) << message;
}

}  // namespace
