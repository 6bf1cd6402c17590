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

#include "qen/qen_exception.h"
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
    out.PackBeginClass("TestPoint");
    out << x << y;
    out.PackEndClass("TestPoint");
  }
  void QEN_Unpack(QEN_IUnpacking& in) override {
    in.UnpackBeginClass("TestPoint");
    in >> &x >> &y;
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
    if (hasChild) child.reset(Adopt(in.Extract()));
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
    if (in.PeekChar(c) && c == '-') {
      in.ReadChar(c);
      child.reset();
    } else {
      QEN_IHumanReadable* read = in.Extract();
      TestNest* nest = static_cast<TestNest*>(read->DynamicCast("TestNest"));
      if (nest == nullptr) {
        delete read;
        in.SyntaxError("expected a TestNest");
      }
      child.reset(nest);
    }
    return false;
  }

  int value = 0;
  std::unique_ptr<TestNest> child;

 private:
  static TestNest* Adopt(QEN_IPackable* read) {
    TestNest* nest = static_cast<TestNest*>(read->DynamicCast("TestNest"));
    if (nest == nullptr) {
      delete read;
      QEN_THROW(QEN_EStreamException, "expected a TestNest");
    }
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

std::string MessageOf(const QEN_EException& e) { return e.QEN_Message().c_str(); }

// Runs `body` and gives the message of the QEN_EException it throws.
template <class E = QEN_EException, class F>
std::string FailureOf(F body) {
  try {
    body();
  } catch (const E& e) {
    return MessageOf(e);
  }
  ADD_FAILURE() << "nothing thrown";
  return "";
}

// ---------------------------------------------------------------------------
// Memory stream

TEST_F(StreamTest, MemoryStreamAppendsAndReadsBack) {
  QEN_TMemoryStream m;
  std::string text(1000, 'x');
  for (int i = 0; i < 5; ++i) m.Write(text.data(), static_cast<unsigned>(text.size()));
  EXPECT_EQ(m.Length(), 5000u);
  EXPECT_EQ(m.Available(), 5000u);
  char got[3000];
  EXPECT_EQ(m.Read(got, 3000), 3000u);
  EXPECT_EQ(m.Available(), 2000u);
  EXPECT_EQ(m.Read(got, 3000), 2000u);
  EXPECT_EQ(m.Read(got, 10), 0u);

  m.SetSize(10);
  EXPECT_EQ(m.Position(), 10u) << "the read position stays within the length";
  m.SetSize(20);
  EXPECT_EQ(m.Data()[15], 0) << "growing fills with zeros";
  m.Rewind();
  EXPECT_EQ(m.Available(), 20u);
  EXPECT_THROW(m.SetPosition(21), QEN_EStreamException);
}

TEST_F(StreamTest, MemoryStreamOverFixedMemoryRefusesToOverflow) {
  char block[8] = "abc";
  QEN_TMemoryStream m(block, sizeof block, 3);
  EXPECT_EQ(Bytes(m), "abc");
  m.Write("defgh", 5);
  EXPECT_EQ(std::string(block, 8), "abcdefgh");
  std::string message = FailureOf([&] { m.Write("i", 1); });
  EXPECT_NE(message.find("full"), std::string::npos) << message;
  EXPECT_EQ(m.Length(), 8u) << "a refused write changes nothing";
  EXPECT_THROW(QEN_TMemoryStream(block, 4, 5), QEN_EStreamException);
}

struct GrowRecord {
  std::vector<std::unique_ptr<unsigned char[]>> blocks;
  int calls = 0;
  bool refuse = false;
};
GrowRecord* gGrow = nullptr;

void* GrowBlock(QEN_TMemoryStream& stream, unsigned& capacity) {
  ++gGrow->calls;
  if (gGrow->refuse) return nullptr;
  capacity = capacity * 2;
  gGrow->blocks.emplace_back(new unsigned char[capacity]);
  std::memcpy(gGrow->blocks.back().get(), stream.Data(), stream.Length());
  return gGrow->blocks.back().get();
}

TEST_F(StreamTest, MemoryStreamGrowsThroughItsCallback) {
  GrowRecord record;
  gGrow = &record;
  unsigned char block[4] = {1, 2};
  QEN_TMemoryStream m(block, sizeof block, 2, &GrowBlock);
  for (unsigned char i = 3; i <= 100; ++i) m.Write(&i, 1);
  EXPECT_GT(record.calls, 1);
  EXPECT_LT(record.calls, 10) << "the callback's larger capacity is kept";
  ASSERT_EQ(m.Length(), 100u);
  for (unsigned i = 0; i < 100; ++i) ASSERT_EQ(m.Data()[i], i + 1);

  record.refuse = true;
  std::vector<unsigned char> big(m.Capacity(), 0);
  EXPECT_THROW(m.Write(big.data(), static_cast<unsigned>(big.size())), QEN_EStreamException);
  EXPECT_EQ(m.Length(), 100u);
  gGrow = nullptr;
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

TEST_F(FileTest, WritesAndReadsSmallAndLargeRuns) {
  std::vector<unsigned char> big(200000);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 7);
  {
    QEN_TFile file(Path("a.bin"), QEN_TFile::WriteOnly);
    file.Write("head", 4);
    file.Write(big.data(), static_cast<unsigned>(big.size()));
    for (int i = 0; i < 1000; ++i) file.Write("t", 1);
    EXPECT_TRUE(file.Flush());
  }
  QEN_TFile file(Path("a.bin"), QEN_TFile::ReadOnly);
  EXPECT_EQ(file.Available(), 4u + big.size() + 1000u);
  char head[4];
  ASSERT_EQ(file.Read(head, 4), 4u);
  EXPECT_EQ(std::string(head, 4), "head");
  std::vector<unsigned char> back(big.size());
  ASSERT_EQ(file.Read(back.data(), 100), 100u);
  ASSERT_EQ(file.Read(back.data() + 100, static_cast<unsigned>(back.size() - 100)),
            back.size() - 100);
  EXPECT_EQ(back, big);
  std::vector<char> tail(2000);
  EXPECT_EQ(file.Read(tail.data(), 2000), 1000u);
  EXPECT_EQ(file.Available(), 0u);
}

TEST_F(FileTest, ReadWriteWritesWhereReadingStopped) {
  {
    QEN_TFile file(Path("b.txt"), QEN_TFile::WriteOnly);
    file.Write("0123456789", 10);
  }
  {
    QEN_TFile file(Path("b.txt"), QEN_TFile::ReadWrite);
    char got[3];
    ASSERT_EQ(file.Read(got, 3), 3u);
    file.Write("abc", 3);
    EXPECT_EQ(file.Available(), 4u);
    ASSERT_EQ(file.Read(got, 2), 2u);
    EXPECT_EQ(std::string(got, 2), "67");
  }
  QEN_TFile file(Path("b.txt"), QEN_TFile::ReadOnly);
  char all[16];
  ASSERT_EQ(file.Read(all, 16), 10u);
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

TEST_F(FileTest, DataStreamOverAFile) {
  {
    QEN_TFile file(Path("c.bin"), QEN_TFile::WriteOnly);
    QEN_TDataStream out(file);
    out << TestPoint(-3, 4) << 2.5 << QEN_TString("text");
    EXPECT_TRUE(out.Flush());
  }
  QEN_TFile file(Path("c.bin"), QEN_TFile::ReadOnly);
  QEN_TDataStream in(file);
  std::unique_ptr<QEN_IPackable> read(in.Extract());
  EXPECT_TRUE(read->QEN_IsIdent(TestPoint(-3, 4)));
  double d = 0;
  QEN_TString s;
  in >> d >> s;
  EXPECT_EQ(d, 2.5);
  EXPECT_EQ(s, "text");
  EXPECT_EQ(file.Available(), 0u);
}

// ---------------------------------------------------------------------------
// Binary stream

TEST_F(StreamTest, NumbersAreLittleEndianAndFixedWidth) {
  QEN_TMemoryStream m;
  QEN_TDataStream out(m);
  out << static_cast<unsigned char>(0x01) << static_cast<unsigned short>(0x0203) << 0x04050607u
      << 0x08090A0B0C0D0E0Full << -2 << true << 1.0;
  const std::string expected(
      "\x01"
      "\x03\x02"
      "\x07\x06\x05\x04"
      "\x0F\x0E\x0D\x0C\x0B\x0A\x09\x08"
      "\xFE\xFF\xFF\xFF"
      "\x01"
      "\x00\x00\x00\x00\x00\x00\xF0\x3F",
      1 + 2 + 4 + 8 + 4 + 1 + 8);
  EXPECT_EQ(Bytes(m), expected);
}

TEST_F(StreamTest, EveryWidthRoundTripsItsExtremes) {
  QEN_TMemoryStream m;
  QEN_TDataStream s(m);
  const double doubles[] = {0.0,
                            -0.0,
                            0.1,
                            -1e308,
                            std::numeric_limits<double>::denorm_min(),
                            std::numeric_limits<double>::infinity(),
                            -std::numeric_limits<double>::infinity()};
  for (double d : doubles) s << d;
  s << std::numeric_limits<double>::quiet_NaN();
  s << 0u << 0xFFFFFFFFu << 0ull << ~0ull;
  s << static_cast<unsigned short>(0xFFFF) << static_cast<unsigned char>(0xFF);
  s << std::numeric_limits<int>::min() << std::numeric_limits<int>::max() << false << true;
  s.PutBytes("\0\1\2", 3);

  for (double d : doubles) {
    double back;
    s >> back;
    EXPECT_EQ(std::memcmp(&back, &d, sizeof d), 0) << d;
  }
  double nan;
  s >> nan;
  EXPECT_TRUE(std::isnan(nan));
  unsigned u0, u1;
  unsigned long long l0, l1;
  unsigned short w;
  unsigned char b;
  int i0, i1;
  bool f, t;
  s >> u0 >> u1 >> l0 >> l1 >> w >> b >> i0 >> i1 >> f >> t;
  EXPECT_EQ(u0, 0u);
  EXPECT_EQ(u1, 0xFFFFFFFFu);
  EXPECT_EQ(l0, 0u);
  EXPECT_EQ(l1, ~0ull);
  EXPECT_EQ(w, 0xFFFF);
  EXPECT_EQ(b, 0xFF);
  EXPECT_EQ(i0, std::numeric_limits<int>::min());
  EXPECT_EQ(i1, std::numeric_limits<int>::max());
  EXPECT_FALSE(f);
  EXPECT_TRUE(t);
  char bytes[3];
  s.GetBytes(bytes, 3);
  EXPECT_EQ(std::string(bytes, 3), std::string("\0\1\2", 3));
  EXPECT_EQ(m.Available(), 0u);
  EXPECT_THROW(s >> b, QEN_EStreamException);
}

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
  EXPECT_EQ(Bytes(m).substr(0, 7),
            "{\x05"
            "Alpha");
  s.UnpackBeginClass("Alpha");
  s.UnpackEndClass("Alpha");
  std::string message = FailureOf<QEN_EStreamException>([&] { s.UnpackBeginClass("Beta"); });
  EXPECT_NE(message.find("\"Alpha\""), std::string::npos) << message;
  EXPECT_NE(message.find("\"Beta\""), std::string::npos) << message;
  EXPECT_NE(message.find("offset 14"), std::string::npos) << message;

  QEN_TMemoryStream m2;
  QEN_TDataStream s2(m2);
  s2.PackBeginClass("Alpha");
  EXPECT_THROW(s2.UnpackEndClass("Alpha"), QEN_EStreamException) << "a begin is not an end";
  EXPECT_THROW(s2.PackBeginClass(""), QEN_EStreamException);
  EXPECT_THROW(s2.PackBeginClass(std::string(256, 'a').c_str()), QEN_EStreamException);
  EXPECT_THROW(s2.PackBeginClass("two words"), QEN_EStreamException);
}

TEST_F(StreamTest, ExtractBuildsTheClassNamedInTheStream) {
  QEN_TMemoryStream m;
  QEN_TDataStream s(m);
  s << TestPoint(7, 8);
  EXPECT_EQ(Bytes(m).substr(0, 11), "O\x09TestPoint");
  std::unique_ptr<QEN_IPackable> read(s.Extract());
  ASSERT_NE(read, nullptr);
  EXPECT_STREQ(read->ClassName(), "TestPoint");
  EXPECT_TRUE(read->QEN_IsIdent(TestPoint(7, 8)));
}

TEST_F(StreamTest, GetObjectRequiresTheTargetsClass) {
  QEN_TMemoryStream m;
  QEN_TDataStream s(m);
  s << TestPoint(1, 2) << TestPoint(3, 4);
  TestPoint p;
  s >> p;
  EXPECT_EQ(p, TestPoint(1, 2));
  TestNest nest;
  std::string message = FailureOf<QEN_EStreamException>([&] { s >> nest; });
  EXPECT_NE(message.find("\"TestNest\""), std::string::npos) << message;
  EXPECT_NE(message.find("\"TestPoint\""), std::string::npos) << message;
}

TEST_F(StreamTest, ExtractRefusesWhatItCannotBuild) {
  auto extract = [](const std::string& bytes) {
    QEN_TMemoryStream m;
    m.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
    QEN_TDataStream s(m);
    std::unique_ptr<QEN_IPackable> read(s.Extract());
  };
  std::string message =
      FailureOf<QEN_EUnknownClass>([&] { extract(std::string("O\x07NoSuchX", 9)); });
  EXPECT_NE(message.find("NoSuchX"), std::string::npos) << message;
  EXPECT_NE(message.find("offset 0"), std::string::npos) << message;
  message = FailureOf<QEN_EStreamException>([&] { extract("O\x0DQEN_IPackable"); });
  EXPECT_NE(message.find("factory"), std::string::npos) << message;
  message = FailureOf<QEN_EStreamException>([&] { extract("O\x09TestPlain"); });
  EXPECT_NE(message.find("not packable"), std::string::npos) << message;
  message = FailureOf<QEN_EStreamException>([&] { extract("X"); });
  EXPECT_NE(message.find("0x58"), std::string::npos) << message;
  message = FailureOf<QEN_EStreamException>([&] { extract(std::string("O\x00", 2)); });
  EXPECT_NE(message.find("empty class name"), std::string::npos) << message;
  message = FailureOf<QEN_EStreamException>([&] {
    extract(
        "O\x03"
        "a-b");
  });
  EXPECT_NE(message.find("offset 3"), std::string::npos) << message;
}

TEST_F(StreamTest, TruncatedInputThrowsAtEveryLength) {
  QEN_TMemoryStream full;
  QEN_TDataStream out(full);
  std::unique_ptr<TestNest> nest = TestNest::Chain(3);
  out << *nest << TestPoint(-1, 2);
  const std::string bytes = Bytes(full);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    QEN_TMemoryStream m;
    m.Write(bytes.data(), static_cast<unsigned>(length));
    QEN_TDataStream in(m);
    std::string message = FailureOf<QEN_EStreamException>([&] {
      std::unique_ptr<QEN_IPackable> first(in.Extract());
      std::unique_ptr<QEN_IPackable> second(in.Extract());
    });
    EXPECT_NE(message.find("offset"), std::string::npos) << length << ": " << message;
  }
  // Half-built objects were deleted on the way out (checked in TearDown).
}

TEST_F(StreamTest, NestingIsBounded) {
  for (unsigned depth : {QEN_TDataStream::sMaxDepth, QEN_TDataStream::sMaxDepth + 1}) {
    std::unique_ptr<TestNest> chain = TestNest::Chain(depth);
    QEN_TMemoryStream m;
    QEN_TDataStream s(m);
    if (depth > QEN_TDataStream::sMaxDepth) {
      EXPECT_THROW(s << *chain, QEN_EStreamException) << "what can't be read isn't written";
      continue;
    }
    s << *chain;
    std::unique_ptr<QEN_IPackable> read(s.Extract());
    EXPECT_TRUE(read->QEN_IsIdent(*chain));
  }

  // A hand-made stream one level too deep.
  QEN_TMemoryStream m;
  for (unsigned i = 0; i <= QEN_TDataStream::sMaxDepth; ++i) {
    m.Write("O\x08TestNest\0\0\0\0\x01", 15);
  }
  QEN_TDataStream in(m);
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

TEST_F(StreamTest, WritesNumbersThatReadBackExactly) {
  EXPECT_EQ(Text([](auto& o) { o << 0.1 << ' ' << 1.0 / 3 << ' ' << -0.0 << ' ' << 1e300; }),
            "0.1 0.33333333333333331 -0 1e+300");
  EXPECT_EQ(Text([](auto& o) {
              o << std::numeric_limits<double>::infinity() << ' '
                << -std::numeric_limits<double>::infinity() << ' '
                << std::numeric_limits<double>::quiet_NaN();
            }),
            "inf -inf nan");
  EXPECT_EQ(Text([](auto& o) {
              o << 4294967295u << ' ' << -2147483647 - 1 << ' ' << ~0ull << ' '
                << static_cast<unsigned short>(65535) << ' ' << static_cast<unsigned char>(255)
                << ' ' << (-9223372036854775807LL - 1);
            }),
            "4294967295 -2147483648 18446744073709551615 65535 255 -9223372036854775808");

  const double samples[] = {
      0.1,  1.0 / 3, 2.0 / 3, 1e-310, 123456789.123456789, std::numeric_limits<double>::max(),
      -0.0, 5e-324};
  for (double d : samples) {
    Reader r(Text([d](auto& o) { o << d; }));
    double back;
    r.in >> back;
    EXPECT_EQ(std::memcmp(&back, &d, sizeof d), 0) << d;
  }
  Reader r("inf -inf nan");
  double a, b, c;
  r.in >> a >> b >> c;
  EXPECT_EQ(a, std::numeric_limits<double>::infinity());
  EXPECT_EQ(b, -a);
  EXPECT_TRUE(std::isnan(c));
}

TEST_F(StreamTest, ReadsNumbersInRangeOnly) {
  Reader r(" 4294967295\n# comment\n\t-2147483648 18446744073709551615 65535 255 -5");
  unsigned u;
  int i;
  unsigned long long l;
  unsigned short w;
  unsigned char b;
  long long ll;
  r.in >> u >> i >> l >> w >> b >> ll;
  EXPECT_EQ(u, 4294967295u);
  EXPECT_EQ(i, std::numeric_limits<int>::min());
  EXPECT_EQ(l, ~0ull);
  EXPECT_EQ(w, 65535);
  EXPECT_EQ(b, 255);
  EXPECT_EQ(ll, -5);
  EXPECT_TRUE(r.in.AtEnd());

  auto failure = [](const std::string& text, auto target) {
    return FailureOf<QEN_ESyntaxError>([&] {
      Reader r(text);
      auto value = target;
      r.in >> value;
    });
  };
  EXPECT_NE(failure("4294967296", 0u).find("out of range"), std::string::npos);
  EXPECT_NE(failure("256", static_cast<unsigned char>(0)).find("out of range"), std::string::npos);
  EXPECT_NE(failure("-1", 0u).find("out of range"), std::string::npos);
  EXPECT_NE(failure("2147483648", 0).find("out of range"), std::string::npos);
  EXPECT_NE(failure("1e999", 0.0).find("out of range"), std::string::npos);
  EXPECT_NE(failure("  x", 0u).find("line 1, column 3: expected an unsigned 32, found 'x'"),
            std::string::npos);
  EXPECT_NE(failure("1.5x", 0.0).find("\"1.5x\""), std::string::npos);
  EXPECT_NE(failure("", 0.0).find("end of the text"), std::string::npos);
  EXPECT_NE(failure("-", 0).find("expected a signed 32"), std::string::npos);
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

TEST_F(StreamTest, QuotedTextRoundTrips) {
  const std::u16string samples[] = {
      u"",
      u"plain",
      u"\"quoted\" \\ back\\slash",
      u"lines\n\r\ttabs",
      std::u16string(u"nul\0bell\a\x7F", 10),
      u"Gr\u00FC\u00DFe \u20AC \U0001F600",
      u"lone \xD800 high and \xDC00 low",
      u"# not a comment",
  };
  for (const std::u16string& sample : samples) {
    std::string text = Text([&](auto& o) { o.WriteQuoted(QEN_TString(sample)); });
    Reader r(text + " \"second\"");
    QEN_TString back, second;
    r.in.ReadQuoted(back).ReadQuoted(second);
    EXPECT_TRUE(back.Chars() == sample) << text;
    EXPECT_EQ(second, "second");
    EXPECT_EQ(text.find('\n'), std::string::npos) << "a quoted token is one line";
  }
  EXPECT_EQ(Text([](auto& o) { o.WriteQuoted(QEN_TString(u"a\"\\\x01\U0001F600")); }),
            "\"a\\\"\\\\\\u0001\xF0\x9F\x98\x80\"");
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
  EXPECT_EQ(failure("\"a\\qb\""),
            "syntax error at line 1, column 4: unknown escape in quoted text");
  EXPECT_NE(failure("\"\\u12G4\"").find("four hex digits"), std::string::npos);
  EXPECT_NE(failure("\"two\nlines\"").find("line 1, column 5: line break"), std::string::npos);
  EXPECT_EQ(failure("bare"), "syntax error at line 1, column 1: expected '\"', found 'b'");
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
            "TestNest {\n"
            "  0\n"
            "  TestNest {\n"
            "    1\n"
            "    TestNest {\n"
            "      2\n"
            "      -\n"
            "    }\n"
            "  }\n"
            "}");
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
  EXPECT_EQ(failure("  { }"), "syntax error at line 1, column 3: expected a class name, found '{'");
  EXPECT_EQ(failure(""),
            "syntax error at line 1, column 1: expected a class name, found the end of the text");
  EXPECT_EQ(failure("TestPoint { 1 : 2 "),
            "syntax error at line 1, column 19: unexpected end of text");
  EXPECT_EQ(failure("TestPoint ( 1 : 2 )"), "syntax error at line 1, column 11: expected '{'");
  // A failure deep inside deletes every object built so far (TearDown).
  EXPECT_EQ(failure("TestNest { 1 TestNest { 2 TestNest { x } } }"),
            "syntax error at line 1, column 38: expected a signed 32, found 'x'");
}

TEST_F(StreamTest, TextNestingIsBounded) {
  std::string deep;
  for (unsigned i = 0; i < QEN_THumanReadableStream::sMaxDepth; ++i) deep += "TestNest { 0 ";
  std::string tooDeep = deep + "TestNest { 0 ";
  auto close = [](std::string text, unsigned n) {
    text += "-";
    for (unsigned i = 0; i < n; ++i) text += " }";
    return text;
  };
  Reader ok(close(deep, QEN_THumanReadableStream::sMaxDepth));
  delete ok.in.Extract();
  Reader bad(close(tooDeep, QEN_THumanReadableStream::sMaxDepth + 1));
  std::string message = FailureOf<QEN_ESyntaxError>([&] { delete bad.in.Extract(); });
  EXPECT_NE(message.find("nested deeper than 64"), std::string::npos) << message;
}

}  // namespace
