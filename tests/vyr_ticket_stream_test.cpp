// The stored forms of tickets and proxies: both binary versions and the text
// form, old tickets, golden files, and damaged or hostile input.
#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ticket_test_support.h"

namespace {

using test_support::Golden;

// The named levels, and some that are not, for walks over "every level".
const unsigned kNamedLevels[] = {VYR_FillEmpty,          VYR_FillFileAssigned, VYR_FillFileType,
                                 VYR_FillImageProcessor, VYR_FillBasicInfo,    VYR_FillExtendedInfo,
                                 VYR_FillFullInfo};
const unsigned kOddLevels[] = {0x2, 0x8, 0x80, 0x100, 0x200, 31, 0x7FFF, 0xFFFFFFFFu};

using test_support::As;
using test_support::Bytes;
using test_support::Extract;
using test_support::Pack;
using test_support::PackContent;
using test_support::ReadInto;
using test_support::UnpackContent;
using test_support::Write;

std::string AsString(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }
Bytes AsBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

// A ticket's bare binary form written item by item, independent of
// QEN_Pack: `stored` is the level value in the stream and `groups` the
// level whose groups follow.
Bytes HandPacked(unsigned stored, unsigned version, unsigned groups) {
  return test_support::PackedContent([&](QEN_TDataStream& out) {
    QEN_TDict internal;
    internal["version"] = version;
    out << QEN_TAny(stored) << internal << QEN_TString("old creator");
    if (groups & 0x80) out << false;
    if (groups & 0x340) out << false;
    if (groups & 0x8) {
      out << 1 << -1 << QEN_TAny(3u) << QEN_TAny(1u) << QEN_TAny(3u);
      out << 300.0 << 300.0 << 11.0 << 8.5 << 3300u << 2550u;
      out << 0.0 << 0.0 << 0.0 << 0.0 << QEN_TAny(11u) << QEN_TAny(0u);
      out << static_cast<unsigned short>(4) << QEN_TAny(0u);
    }
    if (groups & 0x4) out << QEN_TString("OldReader");
    if (groups & 0x2) out << QEN_TString("TIFF") << QEN_TString("5.0");
    if (groups & 0x1) {
      out << static_cast<unsigned char>(0) << QEN_TURL("file:///old.tif") << QEN_TTime(1000000)
          << 1234ULL;
    }
  });
}

// Framed by its class name, as a ticket stands in a proxy's list.
std::string Framed(const QEN_IHumanReadable& object) {
  return test_support::Written([&](QEN_THumanReadableStream& out) { out.WriteObject(object); });
}

// `object` packs to the golden file <name>.bin and, framed as it stands in a
// proxy's list, writes <name>.txt; both read back into an equal T.
template <class T>
void ExpectGolden(const std::string& name, const T& object) {
  const std::string bin = Golden(name + ".bin", AsString(Pack(object)));
  EXPECT_EQ(AsString(Pack(object)), bin);
  EXPECT_TRUE(As<T>(Extract(AsBytes(bin))) == object);
  const std::string text = Golden(name + ".txt", Framed(object));
  EXPECT_EQ(Framed(object), text);
  EXPECT_TRUE(As<T>(test_support::ExtractAllText(text).at(0)) == object);
}

// The text of a level-15 sample with one line replaced.
std::string WithLine(const std::string& text, const std::string& prefix, const std::string& line) {
  std::istringstream in(text);
  std::string result, current;
  bool first = true;
  while (std::getline(in, current)) {
    if (!first) result += '\n';
    first = false;
    result += current.compare(0, prefix.size(), prefix) == 0 ? line : current;
  }
  return result;
}

}  // namespace

// --- Stored forms: binary ------------------------------------------------------------------

TEST_F(TicketTest, RoundTripsInBothFormsAtEveryLevel) {
  std::vector<unsigned> levels(std::begin(kNamedLevels), std::end(kNamedLevels));
  levels.insert(levels.end(), std::begin(kOddLevels), std::end(kOddLevels));
  for (unsigned level : levels) {
    SCOPED_TRACE("level " + std::to_string(level));
    VYR_TImageTicket original = Sample(level);
    VYR_TTicketWriter(original).Internal("Acquire") = "limited";
    VYR_TImageTicket bare, read;
    UnpackContent(PackContent(original), bare);
    EXPECT_TRUE(bare == original);
    std::unique_ptr<QEN_IInterface> rebuilt = Extract(Pack(original));
    EXPECT_TRUE(As<VYR_TImageTicket>(rebuilt) == original);
    EXPECT_TRUE(As<VYR_TImageTicket>(rebuilt).QEN_IsIdent(original));
    ReadInto(read, Write(original));
    EXPECT_TRUE(read == original) << Write(original);
    // Framed, as in a proxy's list, and rebuilt by class name.
    EXPECT_TRUE(As<VYR_TImageTicket>(test_support::ExtractAllText(Framed(original)).at(0)) ==
                original);
  }
}

TEST_F(TicketTest, UnpackReplacesObjectsAndKeepsFieldsOutsideTheLevel) {
  VYR_TImageTicket target = Sample(VYR_FillFullInfo);
  UnpackContent(PackContent(Sample(VYR_FillExtendedInfo & ~0x340u)), target);
  EXPECT_EQ(target.FillLevel(), 0x3Fu);
  EXPECT_FALSE(target.HasExtendedInfo());
  EXPECT_FALSE(target.HasExternalRefs());

  // Level 127 with no ExtendedInfo: a false flag and a null pointer back.
  VYR_TImageTicket noInfo;
  VYR_TTicketWriter(noInfo).SetFillLevel(VYR_FillExtendedInfo);
  VYR_TImageTicket read = Sample(VYR_FillFullInfo);
  UnpackContent(PackContent(noInfo), read);
  EXPECT_FALSE(read.HasExtendedInfo());
  // FullInfo without either object: "NULL" in place of each in the text.
  VYR_TImageTicket bare = Sample(VYR_FillBasicInfo), fromText = Sample(VYR_FillFullInfo);
  VYR_TTicketWriter(bare).SetFillLevel(VYR_FillFullInfo);
  ReadInto(fromText, Write(bare));
  EXPECT_TRUE(fromText == bare && !fromText.HasExtendedInfo() && !fromText.HasExternalRefs());
  // The groups below were read; the references' bit was not, and they went.
  EXPECT_FALSE(read.HasExternalRefs());
  EXPECT_EQ(read.NrPages(), -1);

  VYR_TImageTicket fileOnly = Sample(VYR_FillFullInfo);
  UnpackContent(PackContent(Sample(VYR_FillFileAssigned)), fileOnly);
  EXPECT_EQ(fileOnly.FileFormat(), "TIFF");
  // The text reader, too, leaves the objects of levels it did not read.
  VYR_TImageTicket target2 = Sample(VYR_FillFullInfo);
  ReadInto(target2, Write(Sample(VYR_FillBasicInfo)));
  EXPECT_EQ(target2.FillLevel(), 15u);
  EXPECT_TRUE(target2.HasExtendedInfo() && target2.HasExternalRefs());
}

TEST_F(TicketTest, OldTicketsStoredTheLevelAsAnOrdinal) {
  struct Row {
    unsigned stored, version, level;
    // Written back byte for byte; a named level of an old ticket goes back
    // as its ordinal.
    bool sameBytes;
  };
  const Row rows[] = {
      {4, 8500, 15, true},  {0, 8500, 0, true},   {1, 8500, 1, true},      {2, 8500, 3, true},
      {3, 8500, 7, true},   {5, 8500, 127, true}, {6, 8999, 0x6FFF, true}, {127, 8500, 127, false},
      {31, 8500, 31, true}, {4, 9000, 4, true},   {4, 11014, 4, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("stored " + std::to_string(row.stored) + ", version " +
                 std::to_string(row.version));
    Bytes bytes = HandPacked(row.stored, row.version, row.level);
    VYR_TImageTicket ticket;
    UnpackContent(bytes, ticket);
    EXPECT_EQ(ticket.FillLevel(), row.level);
    // The version read stays; and the ticket is written back in its own form.
    EXPECT_EQ(static_cast<unsigned>(std::as_const(ticket).Internal("version")), row.version);
    EXPECT_EQ(PackContent(ticket) == bytes, row.sameBytes);
    VYR_TImageTicket again;
    UnpackContent(PackContent(ticket), again);
    EXPECT_TRUE(again == ticket);
  }
  // A level that the old form can't carry is written in today's form rather
  // than so that it reads back as another; in both forms.
  for (unsigned level : {2u, 4u, 5u, 6u}) {
    VYR_TImageTicket odd = Sample(level);
    VYR_TTicketWriter(odd).Internal("version") = 8500u;
    VYR_TImageTicket fromBinary, fromText;
    UnpackContent(PackContent(odd), fromBinary);
    ReadInto(fromText, Write(odd));
    for (const VYR_TImageTicket* read : {&fromBinary, &fromText}) {
      EXPECT_EQ(read->FillLevel(), level);
      EXPECT_EQ(static_cast<unsigned>(std::as_const(*read).Internal("version")), 11014u);
    }
    EXPECT_EQ(static_cast<unsigned>(std::as_const(odd).Internal("version")), 8500u);
  }
  // Without a version, or with one that is no number, the value stands.
  VYR_TImageTicket noVersion = Sample(0x4);
  VYR_TTicketWriter(noVersion).Internal().Remove("version");
  VYR_TImageTicket read;
  UnpackContent(PackContent(noVersion), read);
  EXPECT_EQ(read.FillLevel(), 4u);
  EXPECT_EQ(std::as_const(read).Internal("version"), QEN_TAny::Illegal());
}

TEST_F(TicketTest, GoldenFilesReadBack) {
  const std::pair<const char*, unsigned> rows[] = {{"ticket_empty", VYR_FillEmpty},
                                                   {"ticket_file_assigned", VYR_FillFileAssigned},
                                                   {"ticket_basic_info", VYR_FillBasicInfo},
                                                   {"ticket_full_info", VYR_FillFullInfo}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.first);
    ExpectGolden(row.first, Sample(row.second, false));
  }
  // Written by an old build: version 8500, level ordinal 4.
  std::string old = Golden("ticket_v8500_level4.bin", AsString(HandPacked(4, 8500, 15)));
  EXPECT_EQ(AsString(HandPacked(4, 8500, 15)), old);
  VYR_TImageTicket ticket;
  UnpackContent(AsBytes(old), ticket);
  EXPECT_EQ(ticket.FillLevel(), 15u);
  EXPECT_EQ(ticket.FileFormatVersion(), "5.0");
  EXPECT_EQ(ticket.NrColumns(), 2550u);
  // The same items in the first version of the binary stream.
  test_support::DataReader first(
      AsBytes(test_support::ReadFile(VYRAX_TEST_DATA_DIR "/golden/v1/ticket_v8500_level4.bin")));
  VYR_TImageTicket fromFirst;
  fromFirst.QEN_Unpack(first.in);
  EXPECT_TRUE(fromFirst == ticket);
}

TEST_F(TicketTest, DamagedBinaryIsAnExceptionAtEveryLength) {
  Bytes packed = Pack(Sample(VYR_FillFullInfo));
  for (size_t length = 0; length < packed.size(); ++length) {
    Bytes cut(packed.begin(), packed.begin() + length);
    EXPECT_THROW(Extract(cut), QEN_EStreamException) << "length " << length;
  }
  Bytes bare = PackContent(Sample(VYR_FillFullInfo));
  for (size_t length = 0; length < bare.size(); length += 7) {
    VYR_TImageTicket ticket;
    EXPECT_THROW(UnpackContent(Bytes(bare.begin(), bare.begin() + length), ticket),
                 QEN_EStreamException)
        << "length " << length;
  }
}

TEST_F(TicketTest, ObjectOfTheWrongClassBehindAFlagIsRefused) {
  typedef void (*Put)(QEN_IPacking&);
  const Put wrong[] = {
      [](QEN_IPacking& out) { out << QEN_TString("not a list"); },
      [](QEN_IPacking& out) { out << QEN_TDict(); },
      // A variant that holds a list is no list the ticket could own.
      [](QEN_IPacking& out) { out << QEN_TAny(QEN_TList()); },
  };
  for (Put put : wrong) {
    QEN_TMemoryStream memory;
    QEN_TDataStream out(memory);
    QEN_TDict internal;
    internal["version"] = 11014u;
    out << QEN_TAny(0x80u) << internal << QEN_TString() << true;
    put(out);
    out.Flush();
    VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);
    EXPECT_THROW(UnpackContent(Bytes(memory.Data(), memory.Data() + memory.Length()), ticket),
                 QEN_EStreamException);
    EXPECT_FALSE(ticket.HasExternalRefs());
    EXPECT_EQ(ticket.FillLevel(), 0x80u);
  }
  // A level variant of another kind is a stream that doesn't fit, in the
  // bare form and through Extract, where the failure names its offset.
  const QEN_TAny levels[] = {QEN_TAny(2.5), QEN_TAny(-(1LL << 40)), QEN_TAny(QEN_TList()),
                             QEN_TAny(QEN_TString("x"))};
  const VYR_TImageTicket empty;
  Bytes header = Pack(empty);
  header.resize(header.size() - PackContent(empty).size());  // the marker and class name
  for (const QEN_TAny& level : levels) {
    QEN_TMemoryStream memory;
    QEN_TDataStream out(memory);
    out << level << QEN_TDict() << QEN_TString();
    out.Flush();
    Bytes bare(memory.Data(), memory.Data() + memory.Length());
    Bytes whole = header;
    whole.insert(whole.end(), bare.begin(), bare.end());
    VYR_TImageTicket ticket;
    EXPECT_THROW(UnpackContent(bare, ticket), QEN_EStreamException);
    EXPECT_NE(test_support::FailureOf<QEN_EStreamException>([&] { Extract(whole); }).find("offset"),
              std::string::npos);
  }
}

// --- Text form --------------------------------------------------------------------

// Lines of the text form changed one at a time: white space around the
// commas, and names that the writer knows and the reader's tables lack.
TEST_F(TicketTest, TextLinesReadOnlyInTheReadersOwnForm) {
  const std::string text = Write(Sample(VYR_FillBasicInfo));
  // Each line stands in for the sample's line that starts with the prefix.
  const std::pair<const char*, const char*> reads[] = {{"RES", "RES 300,150.5"},
                                                       {"RES", "RES   300,    \t 150.5"},
                                                       {"11,", "11,8.25"},
                                                       {"MAR", "MAR 0.125, 0.25 , 0.375\t, 0.5"}};
  const std::pair<const char*, const char*> refused[] = {{"RES", "RES 300 , 150.5"},
                                                         {"11,", "11 ,8.25"},
                                                         {"PIX", "PIX -1, 1242"},
                                                         {"MAR", "MAR 0.125, 0.25, 0.375 0.5"},
                                                         {"Image", "UndefinedImageType"},
                                                         {"Image", "image"},
                                                         {"Cmyk", "YCbCrK"},
                                                         {"AlphaPre", "AlphaUnknown"}};
  for (const auto& row : reads) {
    VYR_TImageTicket ticket;
    ASSERT_NE(WithLine(text, row.first, row.second), text);
    ReadInto(ticket, WithLine(text, row.first, row.second));
    EXPECT_TRUE(ticket == Sample(VYR_FillBasicInfo)) << row.second;
  }
  for (const auto& row : refused) {
    VYR_TImageTicket ticket;
    EXPECT_THROW(ReadInto(ticket, WithLine(text, row.first, row.second)), QEN_ESyntaxError)
        << row.second;
  }
  // The reader's own spelling of an unknown alpha plane.
  VYR_TImageTicket unknownAlpha;
  ReadInto(unknownAlpha, WithLine(text, "AlphaPre", "UnknownAlpha"));
  EXPECT_EQ(unknownAlpha.AlphaPlane(), VYR_AlphaUnknown);

  // A Production image writes fine and fails at its line.
  VYR_TImageTicket production = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(production).SetImageType(VYR_TypeProduction);
  std::string written = Write(production);
  EXPECT_NE(written.find("\nProduction\n"), std::string::npos);
  VYR_TImageTicket read;
  const std::string message =
      test_support::FailureOf<QEN_ESyntaxError>([&] { ReadInto(read, written); });
  EXPECT_NE(message.find("line 6"), std::string::npos) << message;
}

TEST_F(TicketTest, TextOfOldTicketsConvertsTheLevel) {
  // Version 8000, level 5 in the text: an ExtendedInfo ticket.
  VYR_TImageTicket ticket;
  std::string text = Write(Sample(VYR_FillExtendedInfo));
  text = "5" + text.substr(text.find('\n'));
  text.replace(text.find("11014"), 5, "8000");
  ReadInto(ticket, text);
  EXPECT_EQ(ticket.FillLevel(), 127u);
  EXPECT_TRUE(ticket.HasExtendedInfo());
  // Written back in the same form.
  EXPECT_EQ(Write(ticket), text);
}

TEST_F(TicketTest, DamagedTextIsASyntaxErrorOrAShorterTicket) {
  const std::string text = Write(Sample(VYR_FillFullInfo));
  for (size_t length = 0; length < text.size(); ++length) {
    VYR_TImageTicket ticket;
    try {
      ReadInto(ticket, text.substr(0, length));
      // Only a cut inside the last number can still read.
      EXPECT_GT(length, text.rfind('\n')) << "length " << length;
    } catch (const QEN_EException&) {
    }
  }
  VYR_TImageTicket ticket;
  EXPECT_THROW(ReadInto(ticket, "28671\nQEN_TDict {}\n\"\"\n* QEN_TString { \"x\" }\n"),
               QEN_ESyntaxError);
  EXPECT_THROW(ReadInto(ticket, "128\nQEN_TDict {}\n\"\"\n+ QEN_TDict {}\n"), QEN_ESyntaxError);
  EXPECT_THROW(ReadInto(ticket, "128\nQEN_TDict {}\n\"\"\n* NoSuchClass {}\n"), QEN_EException);
}

// --- The proxy's forms ------------------------------------------------------------------

TEST_F(TicketTest, ProxyGoldenFilesKeepTheSelectionAsAnIndex) {
  VYR_TImageProxy selected = FourTickets(), unselected = FourTickets(), empty;
  selected.Select(2u);
  unselected.Select(static_cast<const QEN_TListKey*>(nullptr));
  const std::pair<const char*, const VYR_TImageProxy*> rows[] = {
      {"proxy_empty", &empty}, {"proxy_selected", &selected}, {"proxy_unselected", &unselected}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.first);
    ExpectGolden(row.first, *row.second);  // == takes the index into account
  }
}

TEST_F(TicketTest, DamagedProxyIsAnExceptionAndLeavesTheProxyWhole) {
  const VYR_TImageProxy proxy = FourTickets();
  Bytes packed = Pack(proxy);
  for (size_t length = 0; length < packed.size(); ++length)
    EXPECT_THROW(Extract(Bytes(packed.begin(), packed.begin() + length)), QEN_EStreamException)
        << "length " << length;
  VYR_TImageProxy target = FourTickets();
  const std::string text = Write(proxy);
  // Whole up to the index, and no shorter.
  for (size_t length = 0; length + 1 < text.size(); length += 5)
    EXPECT_THROW(ReadInto(target, text.substr(0, length)), QEN_EStreamException)
        << "length " << length;
  // A list of something else than tickets is no proxy, in either form.
  ProxyBuilder stray(Image(0, VYR_TypeImage, -1));
  stray.List().AddAtTail(QEN_TAny(QEN_TURL("file:///not/a/ticket.tif")));
  EXPECT_THROW(UnpackContent(PackContent(stray), target), QEN_EStreamException);
  EXPECT_THROW(ReadInto(target, Write(stray)), QEN_ESyntaxError);
  EXPECT_TRUE(target == proxy);
}
