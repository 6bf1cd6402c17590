// The stored forms of tickets and proxies: both binary versions and the text
// form, old tickets, golden files, and damaged or hostile input.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "ticket_test_support.h"

namespace {

using namespace test_support;

std::string AsString(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }
Bytes AsBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

// A ticket's bare binary form written item by item, independent of
// QEN_Pack: `stored` is the level value in the stream and `groups` the
// level whose groups follow.
Bytes HandPacked(unsigned stored, unsigned version, unsigned groups) {
  return PackedContent([&](QEN_TDataStream& out) {
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
  return Written([&](QEN_THumanReadableStream& out) { out.WriteObject(object); });
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
  EXPECT_TRUE(As<T>(ExtractAllText(text).at(0)) == object);
}

// The text of a sample with its line that starts with `prefix` replaced.
std::string WithLine(std::string text, const std::string& prefix, const std::string& line) {
  const size_t start = text.find("\n" + prefix) + 1;
  return text.replace(start, text.find('\n', start) - start, line);
}

}  // namespace

// --- Stored forms: binary ------------------------------------------------------------------

TEST_F(TicketTest, RoundTripsInBothFormsAtEveryLevel) {
  // The named levels, and some that are not.
  for (unsigned level : {0u, 1u, 3u, 7u, 15u, 127u, 0x6FFFu, 0x2u, 0x8u, 0x80u, 0x100u, 0x200u, 31u,
                         0x7FFFu, 0xFFFFFFFFu}) {
    SCOPED_TRACE("level " + std::to_string(level));
    VYR_TImageTicket original = Sample(level);
    VYR_TTicketWriter(original).Internal("Acquire") = "limited";
    VYR_TImageTicket read;
    EXPECT_TRUE(As<VYR_TImageTicket>(Extract(Pack(original))) == original);
    ReadInto(read, Write(original));
    EXPECT_TRUE(read == original) << Write(original);
    // Framed, as in a proxy's list, and rebuilt by class name.
    EXPECT_TRUE(As<VYR_TImageTicket>(ExtractAllText(Framed(original)).at(0)) == original);
  }
}

TEST_F(TicketTest, ReadingReplacesObjectsAndKeepsFieldsOutsideTheLevel) {
  VYR_TImageTicket target = Sample(VYR_FillFullInfo);
  UnpackContent(PackContent(Sample(VYR_FillExtendedInfo & ~0x340u)), target);
  EXPECT_EQ(target.FillLevel(), 0x3Fu);
  EXPECT_FALSE(target.HasExtendedInfo() || target.HasExternalRefs());

  // Level 127 with no ExtendedInfo: a false flag and a null pointer back;
  // the references' bit was not read, and they went.
  VYR_TImageTicket noInfo;
  VYR_TTicketWriter(noInfo).SetFillLevel(VYR_FillExtendedInfo);
  VYR_TImageTicket read = Sample(VYR_FillFullInfo);
  UnpackContent(PackContent(noInfo), read);
  EXPECT_FALSE(read.HasExtendedInfo() || read.HasExternalRefs());
  // FullInfo without either object: "NULL" in place of each in the text.
  VYR_TImageTicket bare = Sample(VYR_FillBasicInfo), fromText = Sample(VYR_FillFullInfo);
  VYR_TTicketWriter(bare).SetFillLevel(VYR_FillFullInfo);
  ReadInto(fromText, Write(bare));
  EXPECT_TRUE(fromText == bare && !fromText.HasExtendedInfo() && !fromText.HasExternalRefs());

  // The fields of levels not read stay; the text reader leaves their objects
  // too.
  VYR_TImageTicket fileOnly = Sample(VYR_FillFullInfo), basic = Sample(VYR_FillFullInfo);
  UnpackContent(PackContent(Sample(VYR_FillFileAssigned)), fileOnly);
  EXPECT_EQ(fileOnly.FileFormat(), "TIFF");
  ReadInto(basic, Write(Sample(VYR_FillBasicInfo)));
  EXPECT_TRUE(basic.FillLevel() == 15u && basic.HasExtendedInfo() && basic.HasExternalRefs());
}

TEST_F(TicketTest, OldTicketsStoredTheLevelAsAnOrdinal) {
  // Written back byte for byte, or not: a named level of an old ticket goes
  // back as its ordinal.
  const struct {
    unsigned stored, version, level;
    bool sameBytes;
  } rows[] = {
      {4, 8500, 15, true},  {0, 8500, 0, true},   {1, 8500, 1, true},      {2, 8500, 3, true},
      {3, 8500, 7, true},   {5, 8500, 127, true}, {6, 8999, 0x6FFF, true}, {127, 8500, 127, false},
      {31, 8500, 31, true}, {4, 9000, 4, true},   {4, 11014, 4, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "stored " << row.stored << ", version " << row.version);
    Bytes bytes = HandPacked(row.stored, row.version, row.level);
    VYR_TImageTicket ticket, again;
    UnpackContent(bytes, ticket);
    EXPECT_EQ(ticket.FillLevel(), row.level);
    // The version read stays; and the ticket is written back in its own form.
    EXPECT_EQ(static_cast<unsigned>(std::as_const(ticket).Internal("version")), row.version);
    EXPECT_EQ(PackContent(ticket) == bytes, row.sameBytes);
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
    for (const VYR_TImageTicket* read : {&fromBinary, &fromText})
      EXPECT_TRUE(read->FillLevel() == level &&
                  static_cast<unsigned>(read->Internal("version")) == 11014u);
  }
  // Without a version the value stands.
  VYR_TImageTicket noVersion = Sample(0x4);
  VYR_TTicketWriter(noVersion).Internal().Remove("version");
  VYR_TImageTicket read;
  UnpackContent(PackContent(noVersion), read);
  EXPECT_EQ(read.FillLevel(), 4u);
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
  EXPECT_TRUE(ticket.FillLevel() == 15u && ticket.NrColumns() == 2550u);
  // The same items in the first version of the binary stream.
  DataReader first(AsBytes(ReadFile(VYRAX_TEST_DATA_DIR "/golden/v1/ticket_v8500_level4.bin")));
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
}

TEST_F(TicketTest, HostileBareFormsAreRefused) {
  typedef void (*Put)(QEN_IPacking&);
  const Put hostile[] = {
      // A references flag, and behind it no list the ticket could own, not
      // even a variant that holds one.
      [](QEN_IPacking& out) { out << QEN_TAny(0x80u) << QEN_TDict() << QEN_TString() << true; },
      [](QEN_IPacking& out) {
        out << QEN_TAny(0x80u) << QEN_TDict() << QEN_TString() << true << QEN_TString("x");
      },
      [](QEN_IPacking& out) {
        out << QEN_TAny(0x80u) << QEN_TDict() << QEN_TString() << true << QEN_TDict();
      },
      [](QEN_IPacking& out) {
        out << QEN_TAny(0x80u) << QEN_TDict() << QEN_TString() << true << QEN_TAny(QEN_TList());
      },
      // A level variant of another kind.
      [](QEN_IPacking& out) { out << QEN_TAny(2.5) << QEN_TDict() << QEN_TString(); },
      [](QEN_IPacking& out) { out << QEN_TAny(-(1LL << 40)) << QEN_TDict() << QEN_TString(); },
      [](QEN_IPacking& out) { out << QEN_TAny(QEN_TList()) << QEN_TDict() << QEN_TString(); },
  };
  for (Put put : hostile) {
    VYR_TImageTicket ticket;
    EXPECT_THROW(UnpackContent(PackedContent(put), ticket), QEN_EStreamException);
    EXPECT_FALSE(ticket.HasExternalRefs());
  }
}

// --- Text form --------------------------------------------------------------------

// Lines of the text form changed one at a time: white space around the
// commas, and names that the writer knows and the reader's tables lack.
TEST_F(TicketTest, TextLinesReadOnlyInTheReadersOwnForm) {
  const std::string text = Write(Sample(VYR_FillBasicInfo));
  // Each line stands in for the sample's line that starts with the prefix.
  const std::pair<const char*, const char*> reads[] = {{"RES", "RES   300,    \t 150.5"},
                                                       {"11,", "11,8.25"},
                                                       {"MAR", "MAR 0.125, 0.25 , 0.375\t, 0.5"}};
  const std::pair<const char*, const char*> refused[] = {
      {"RES", "RES 300 , 150.5"}, {"11,", "11 ,8.25"},
      {"PIX", "PIX -1, 1242"},    {"MAR", "MAR 0.125, 0.25, 0.375 0.5"},
      {"Image", "image"},         {"AlphaPre", "AlphaUnknown"}};
  for (const auto& row : reads) {
    VYR_TImageTicket ticket;
    ReadInto(ticket, WithLine(text, row.first, row.second));
    EXPECT_TRUE(ticket == Sample(VYR_FillBasicInfo)) << row.second;
  }
  for (const auto& row : refused) {
    VYR_TImageTicket ticket;
    EXPECT_THROW(ReadInto(ticket, WithLine(text, row.first, row.second)), QEN_ESyntaxError)
        << row.second;
  }
  // A Production image writes fine and fails at its line.
  VYR_TImageTicket production = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(production).SetImageType(VYR_TypeProduction);
  EXPECT_THROW(ReadInto(production, Write(production)), QEN_ESyntaxError);
}

TEST_F(TicketTest, TextOfOldTicketsConvertsTheLevel) {
  // Version 8000, level 5 in the text: an ExtendedInfo ticket.
  VYR_TImageTicket ticket;
  std::string text = Write(Sample(VYR_FillExtendedInfo));
  text = "5" + text.substr(text.find('\n'));
  text.replace(text.find("11014"), 5, "8000");
  ReadInto(ticket, text);
  EXPECT_TRUE(ticket.FillLevel() == 127u && ticket.HasExtendedInfo());
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
