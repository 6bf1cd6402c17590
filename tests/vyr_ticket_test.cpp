// The ticket as a value: the unrotated view, copying with a mask,
// assignment, comparison, Wipe, the accessors that refuse and the flat
// dictionary; its dependencies, flags and format code; and the proxy that
// gathers the tickets of one file.
#include <gtest/gtest.h>

#include <limits>
#include <thread>
#include <vector>

#include "ticket_test_support.h"

namespace {

using test_support::Golden;

unsigned Version(const VYR_TImageTicket& ticket) {
  return static_cast<unsigned>(ticket.Internal("version"));
}

// Which groups of a ticket hold the sample's values, as one text, so that a
// table row reads at a glance: F file, T type, P processor, B basic, E
// extended info, R references.
std::string Groups(const VYR_TImageTicket& ticket) {
  std::string groups;
  if (ticket.FileSize() == 5000000123ULL && ticket.ImagePosition() == 2) groups += 'F';
  if (ticket.FileFormat() == "TIFF" && ticket.FileFormatVersion() == "6.0") groups += 'T';
  if (ticket.ImageProcessor() == "TiffReader") groups += 'P';
  if (ticket.NrRows() == 3300 && ticket.Rotation() == VYR_Rot270) groups += 'B';
  if (ticket.HasExtendedInfo()) groups += 'E';
  if (ticket.HasExternalRefs()) groups += 'R';
  return groups;
}

// The files a list holds (each a URL, or a dictionary with one), as text.
std::string Urls(const QEN_TList& list) {
  std::string urls;
  for (const QEN_TListKey* key = list.KeyAtHead(); key != nullptr; key = key->Next()) {
    const QEN_TDict* details = key->Value().DynamicCast<QEN_TDict>();
    const QEN_TURL* url = (details ? (*details)["URL"] : key->Value()).DynamicCast<QEN_TURL>();
    urls += url ? QEN_TString(url->FileName()).c_str() + std::string(" ") : "? ";
  }
  return urls;
}

// The image positions of the tickets an iterator walks, forward.
std::vector<int> Positions(QEN_TConstIterator at) {
  std::vector<int> positions;
  for (; !at.IsDone(); ++at)
    positions.push_back(at.Value().DynamicCast<VYR_TImageTicket>()->ImagePosition());
  return positions;
}

}  // namespace

TEST_F(TicketTest, UnrotatedViewFollowsTheRotationTable) {
  // Which stored margin shows as the top, left, bottom and right one (1 top,
  // 2 left, 3 bottom, 4 right); values outside the enumeration, as 8, count
  // as NotRotated.
  const struct {
    unsigned rotation;
    int top, left, bottom, right;
    bool swapsAxes;
  } rows[] = {{0, 1, 2, 3, 4, false}, {1, 2, 3, 4, 1, true},  {2, 3, 4, 1, 2, false},
              {3, 4, 1, 2, 3, true},  {4, 1, 4, 3, 2, false}, {5, 4, 3, 2, 1, true},
              {6, 3, 2, 1, 4, false}, {7, 2, 1, 4, 3, true},  {8, 1, 2, 3, 4, false}};
  VYR_TImageTicket ticket = Sample(VYR_FillBasicInfo);
  const double margins[] = {0, 0.125, 0.25, 0.375, 0.5};
  for (const auto& row : rows) {
    SCOPED_TRACE("rotation " + std::to_string(row.rotation));
    VYR_TTicketWriter(ticket).SetRotation(static_cast<VYR_TImageRotation>(row.rotation));
    EXPECT_EQ((std::vector<double>{ticket.MarginTopNoRot(), ticket.MarginLeftNoRot(),
                                   ticket.MarginBottomNoRot(), ticket.MarginRightNoRot()}),
              (std::vector<double>{margins[row.top], margins[row.left], margins[row.bottom],
                                   margins[row.right]}));
    EXPECT_EQ((std::vector<double>{ticket.VResolutionNoRot(), ticket.HResolutionNoRot(),
                                   ticket.VRealSizeNoRot(), ticket.HRealSizeNoRot()}),
              row.swapsAxes ? (std::vector<double>{150.5, 300, 8.25, 11})
                            : (std::vector<double>{300, 150.5, 11, 8.25}));
    // The stored values stay as they are.
    EXPECT_TRUE(ticket.MarginTop() == 0.125 && ticket.HResolution() == 150.5);
  }
}

TEST_F(TicketTest, CopyWithMaskTakesTheGroupsOfTheMaskedLevel) {
  struct Row {
    unsigned mask;
    unsigned level;
    const char* groups;
  };
  // Each of the three bits of ExtendedInfo brings it alone.
  const Row rows[] = {{0, 0, ""},
                      {VYR_FillFileAssigned, 1, "F"},
                      {VYR_FillBasicInfo, 15, "FTPB"},
                      {VYR_FillExtendedInfo, 127, "FTPBE"},
                      {VYR_FillFullInfo, 0x6FFF, "FTPBER"},
                      {0x40, 0x40, "E"},
                      {0x200, 0x200, "E"},
                      {0x10 | 0x20, 0x30, ""}};
  VYR_TImageTicket full = Sample(VYR_FillFullInfo);
  VYR_TTicketWriter(full).Internal("Acquire") = "full";
  for (const Row& row : rows) {
    SCOPED_TRACE("mask " + std::to_string(row.mask));
    VYR_TImageTicket copy(full, row.mask);
    EXPECT_EQ(copy.FillLevel(), row.level);
    EXPECT_EQ(Groups(copy), row.groups);
    // Internal and CreatorId come along whatever the mask; the objects are
    // copies, not shared.
    EXPECT_TRUE(copy.CanAcquire() == VYR_CanFull && copy.CreatorId() == "vyrax tests");
    EXPECT_TRUE(!copy.HasExtendedInfo() ||
                &std::as_const(copy).ExtendedInfo() != &std::as_const(full).ExtendedInfo());

    VYR_TImageTicket source(full);
    VYR_TImageTicket moved(std::move(source), row.mask);
    // An object whose bit was not selected stays with the source.
    EXPECT_EQ(source.HasExtendedInfo(), (row.level & 0x340) == 0);
    EXPECT_EQ(source.HasExternalRefs(), (row.level & 0x80) == 0);
  }
}

TEST_F(TicketTest, AssignmentTakesTheLevelAndKeepsFieldsOutsideIt) {
  VYR_TImageTicket target = Sample(VYR_FillFullInfo);
  VYR_TImageTicket source;
  VYR_TTicketWriter writer(source);
  writer.AssignFile(QEN_TURL("file:///other.tif"), QEN_TTime(7), 42);
  writer.SetFillLevel(VYR_FillFileAssigned);
  target = source;
  EXPECT_EQ(target.File(), QEN_TURL("file:///other.tif"));
  // Fields outside the level keep what the target held; its objects go.
  EXPECT_EQ(target.NrRows(), 3300u);
  EXPECT_FALSE(target.HasExtendedInfo() || target.HasExternalRefs());
  VYR_TImageTicket& self = target;
  target = self;
  EXPECT_EQ(target.File(), QEN_TURL("file:///other.tif"));

  VYR_TImageTicket full = Sample(VYR_FillFullInfo);
  const QEN_TDict* info = &std::as_const(full).ExtendedInfo();
  target = std::move(full);
  EXPECT_EQ(target, Sample(VYR_FillFullInfo));
  // The objects are taken over, not copied.
  EXPECT_EQ(&std::as_const(target).ExtendedInfo(), info);
  EXPECT_FALSE(full.HasExtendedInfo());

  // An Internal without "version" gets it back; so does the copy of an
  // empty ticket, which starts its bookkeeping afresh. A non-empty ticket
  // keeps its own version, old or not.
  VYR_TImageTicket bare;
  VYR_TTicketWriter(bare).Internal() = QEN_TDict();
  target = bare;
  EXPECT_EQ(Version(target), 11014u);
  VYR_TTicketWriter(bare).Internal("version") = 8500u;
  EXPECT_EQ(Version(VYR_TImageTicket(bare)), 11014u);
  VYR_TImageTicket old = Sample(VYR_FillFileAssigned);
  VYR_TTicketWriter(old).Internal("version") = 8500u;
  EXPECT_EQ(Version(VYR_TImageTicket(old, 0)), 8500u);
}

TEST_F(TicketTest, EqualityStopsAtTheNamedLevels) {
  typedef void (*Change)(VYR_TTicketWriter&);
  struct Row {
    unsigned level;
    const char* what;
    Change change;
    bool equal;
  };
  const Row rows[] = {
      {0, "creator", [](VYR_TTicketWriter& w) { w.SetCreatorId("x"); }, false},
      {0, "file", [](VYR_TTicketWriter& w) { w.SetFileSize(1); }, true},
      {1, "file", [](VYR_TTicketWriter& w) { w.SetFileSize(1); }, false},
      {3, "format", [](VYR_TTicketWriter& w) { w.SetFileFormatVersion("7"); }, false},
      {7, "processor", [](VYR_TTicketWriter& w) { w.SetImageProcessor("x"); }, false},
      {15, "related", [](VYR_TTicketWriter& w) { w.SetRelatedIndex(7); }, false},
      {15, "extended", [](VYR_TTicketWriter& w) { w.ExtendedInfo()["x"] = 1u; }, true},
      // Above level 15 matching ExtendedInfo settle it, else the references.
      // At 127 neither ticket has references, so those match.
      {127, "extended", [](VYR_TTicketWriter& w) { w.ExtendedInfo()["x"] = 1u; }, true},
      {0x6FFF, "references", [](VYR_TTicketWriter& w) { w.ExternalRefs().Clear(); }, true},
      {0x6FFF, "both",
       [](VYR_TTicketWriter& w) {
         w.ExtendedInfo().Clear();
         w.ExternalRefs().Clear();
       },
       false},
      // Levels that aren't named compare every group.
      {0x80, "basic", [](VYR_TTicketWriter& w) { w.SetNrRows(1); }, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("level " + std::to_string(row.level) + ", " + row.what);
    VYR_TImageTicket one = Sample(row.level);
    VYR_TImageTicket two = Sample(row.level);
    VYR_TTicketWriter writer(two);
    row.change(writer);
    EXPECT_EQ(one == two, row.equal);
    EXPECT_EQ(two == one, row.equal);
  }
}

TEST_F(TicketTest, EqualityAboveBasicInfoWithAMissingObjectAndOfDoubles) {
  VYR_TImageTicket full = Sample(VYR_FillFullInfo);
  VYR_TImageTicket noInfo = Sample(0x6FFF & ~0x340u);
  VYR_TTicketWriter(noInfo).SetFillLevel(VYR_FillFullInfo);
  // Only one side has ExtendedInfo: compared without touching the missing
  // one, and the equal references decide.
  EXPECT_TRUE(full == noInfo && noInfo == full);
  // With the references different as well, the tickets differ.
  VYR_TImageTicket otherRefs(noInfo);
  VYR_TTicketWriter(otherRefs).ExternalRefs().Clear();
  EXPECT_FALSE(full == otherRefs || otherRefs == full);
  // Present but empty is not the same as absent.
  VYR_TImageTicket emptyInfo(otherRefs);
  VYR_TTicketWriter(emptyInfo).ExtendedInfo();
  VYR_TImageTicket absentInfo(otherRefs);
  VYR_TTicketWriter(absentInfo).ExternalRefs().AddAtTail(QEN_TAny(1u));
  EXPECT_FALSE(emptyInfo == absentInfo);

  // Doubles compare as doubles: NaN differs from itself, -0 equals 0.
  VYR_TImageTicket nan = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(nan).SetVResolution(std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(nan == nan);
  VYR_TImageTicket zero = Sample(VYR_FillBasicInfo);
  VYR_TImageTicket negativeZero = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(zero).SetMarginTop(0.0);
  VYR_TTicketWriter(negativeZero).SetMarginTop(-0.0);
  EXPECT_TRUE(zero == negativeZero);
}

TEST_F(TicketTest, WipeGoesBackToFileAssigned) {
  VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);
  VYR_TTicketWriter writer(ticket);
  writer.Internal("Acquire") = "full";
  writer.Internal("version") = 8500u;
  writer.Wipe();
  EXPECT_EQ(ticket.FillLevel(), 1u);
  EXPECT_EQ(Groups(ticket), "F");
  EXPECT_EQ(ticket.FileTimeStamp().AsMicros(), 1708036934123456LL);
  EXPECT_TRUE(Version(ticket) == 11014u && ticket.CanAcquire() == VYR_CanFull);

  // An Empty ticket loses its objects and nothing else.
  VYR_TImageTicket empty;
  VYR_TTicketWriter emptyWriter(empty);
  emptyWriter.ExtendedInfo()["x"] = 1u;
  emptyWriter.Internal("version") = 8500u;
  emptyWriter.SetNrRows(5);
  emptyWriter.Wipe();
  EXPECT_FALSE(empty.HasExtendedInfo());
  EXPECT_TRUE(Version(empty) == 8500u && empty.NrRows() == 5u);
}

TEST_F(TicketTest, ExtendedInfoAndReferencesRefuseWhenAbsent) {
  const VYR_TImageTicket empty;
  EXPECT_THROW(empty["key"], VYR_EImageTicketNoExtendedInfo);
  EXPECT_THROW(empty.ExternalRefs(), VYR_EImageTicketNoExternalRefs);
  EXPECT_THROW(Sample(VYR_FillFullInfo)["Missing"], VYR_EImageTicketKeyNotFound);
}

TEST_F(TicketTest, DictionaryHoldsEveryFieldUnderBlankKeysInOrder) {
  VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);
  VYR_TTicketWriter writer(ticket);
  writer.Internal("Acquire") = "full";
  writer.Internal("private") = 1u;
  // The stored, rotated values, each of its own kind; the extended info's
  // entries at the top; no unrotated values and no private internal ones.
  const std::string text = test_support::Write(QEN_TDict(ticket));
  EXPECT_EQ(text, Golden("ticket_full_info_dict.txt", text));
}

// --- Dependencies, the link, format codes, ripping ---------------------------------------

TEST_F(TicketTest, DependenciesListOtherFilesByTheirContainers) {
  VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);  // logo.eps, cyan.tif
  VYR_TTicketWriter writer(ticket);
  const QEN_TURL own("file:///jobs/2024/brochure%20cover.tif");
  // The own file, and a range inside it, are no dependencies; a range of
  // another file is that file.
  writer.ExternalRefs().AddAtTail(
      QEN_TAny(VYR_TReference(VYR_EmbeddedFile(own, 10, 20, 0, 0, 0), VYR_Inch, 0, 0)));
  const QEN_TURL fonts =
      VYR_EmbeddedFile(QEN_TURL("file:///jobs/fonts.bin?password=x"), 5, 0, 0, 0, 0);
  writer.ExternalRefs().AddAtTail(QEN_TAny(VYR_TReference(fonts, VYR_Inch, 0, 0)));
  QEN_TArray separations(3);
  separations[0] = QEN_TURL("file:///jobs/M.tif");
  separations[1] = 42u;  // skipped
  separations[2] = own;
  writer.ExtendedInfo()["Separations"] = separations;

  QEN_TList list;
  list.AddAtTail(QEN_TAny("kept"));
  EXPECT_TRUE(ticket.Dependencies(list, false, false));
  EXPECT_EQ(Urls(list), "? logo.eps cyan.tif fonts.bin M.tif ");
  // With details, each a dictionary with the URL.
  QEN_TList details;
  EXPECT_TRUE(ticket.Dependencies(details, false, true));
  EXPECT_EQ(Urls(details), "logo.eps cyan.tif fonts.bin M.tif ");

  // Relative references make the answer false; resolved only on request.
  writer.ExternalRefs().Clear();
  writer.ExternalRefs().AddAtTail(
      QEN_TAny(VYR_TReference(QEN_TURL("links/logo.eps"), VYR_Inch, 0, 0, "links/logo.eps")));
  separations[1] = QEN_TURL("K.tif");  // a plain one never is
  writer.ExtendedInfo()["Separations"] = separations;
  list.Clear();
  EXPECT_FALSE(ticket.Dependencies(list, false, false));
  EXPECT_EQ(Urls(list), "M.tif ");
  list.Clear();
  EXPECT_FALSE(ticket.Dependencies(list, true, false));
  EXPECT_EQ(std::as_const(list)[0], QEN_TAny(QEN_TURL("file:///jobs/2024/links/logo.eps")));

  // Below the level of references nothing is looked at.
  writer.SetFillLevel(VYR_FillExtendedInfo);
  EXPECT_FALSE(ticket.Dependencies(list, true, true));
  EXPECT_EQ(list.Entries(), 2u);
}

TEST_F(TicketTest, AnyFailureInsideDependenciesIsOneExceptionAndKeepsWhatWasListed) {
  typedef void (*Spoil)(VYR_TTicketWriter&);
  const Spoil spoilers[] = {
      [](VYR_TTicketWriter& w) { w.ExternalRefs().AddAtTail(QEN_TAny(QEN_TURL("file:///x"))); },
      [](VYR_TTicketWriter& w) { w.ExtendedInfo()["Separations"] = QEN_TList(); },
  };
  for (Spoil spoil : spoilers) {
    VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);
    VYR_TTicketWriter writer(ticket);
    spoil(writer);
    QEN_TList list;
    EXPECT_THROW(ticket.Dependencies(list, false, false), VYR_EImageTicketCannotGetDependencies);
    EXPECT_EQ(list.Entries(), 2u);  // the sample's two references
  }
}

TEST_F(TicketTest, RelatedImageLinkIsAPointerTheTicketDoesNotOwn) {
  VYR_TImageTicket ticket = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter writer(ticket);
  VYR_TFtdLink link = {3, nullptr, VYR_TypePreview};
  writer.SetFtdLink(&link);
  writer.SetFtdLink(nullptr);  // keeps the link
  EXPECT_EQ(writer.SetRelatedIndex(), 3u);
  // A pointer means nothing to another process: no stored form takes it.
  EXPECT_THROW(test_support::Pack(ticket), QEN_EStreamException);
  writer.Internal("ftd link") = 7u;  // no pointer, no link
  EXPECT_FALSE(writer.ValidFtdLink());
}

TEST_F(TicketTest, FormatCodesAndRipping) {
  // Each test runs in a process of its own: this is the table's first use.
  VYR_TImageTicket ticket = Sample(VYR_FillExtendedInfo);
  VYR_TTicketWriter writer(ticket);
  writer.SetFileFormat("JFIF");
  unsigned short codes[2] = {0, 0};
  std::thread one([&] { codes[0] = ticket.MusCode(); });
  std::thread two([&] { codes[1] = ticket.MusCode(); });
  one.join();
  two.join();
  EXPECT_TRUE(codes[0] == 5 && codes[1] == 5);
  EXPECT_EQ(VYR_TImageTicket(ticket, VYR_FillBasicInfo).MusCode(), 0);  // below the bit 0x40
  writer.ExtendedInfo()["MUScode"] = 7u;  // the reader's own code wins
  EXPECT_EQ(ticket.MusCode(), 7);
  writer.ExtendedInfo()["MUScode"] = 70000u;
  EXPECT_THROW(ticket.MusCode(), QEN_EAnyConversion);

  // Level 127 and up: encoding, BitsPerPlane (1 or 8), processor, and an
  // "Acquire" flag other than "none" decide.
  const struct {
    VYR_TChannelEnc encoding;
    unsigned bits;  // 0 for none
    const char* processor;
    VYR_TCanFlag acquire;
    bool rippable;
  } rows[] = {{VYR_Cmyk, 16, "Reader", VYR_CanFull, false},
              {VYR_Cmyk, 0, "Reader", VYR_CanInvalid, true},
              {VYR_Bitmap, 1, "Reader", static_cast<VYR_TCanFlag>(9), true},
              {VYR_Rgb, 8, "Reader", VYR_CanFull, false},
              {VYR_Grayscale, 8, "Reader", VYR_CanNone, false},
              {VYR_Grayscale, 8, "", VYR_CanFull, false}};
  for (const auto& row : rows) {
    VYR_TImageTicket rip = Sample(VYR_FillFullInfo);
    VYR_TTicketWriter ripWriter(rip);
    ripWriter.SetChannelEncoding(row.encoding);
    ripWriter.SetImageProcessor(row.processor);
    ripWriter.ExtendedInfo().Remove("BitsPerPlane");
    if (row.bits) ripWriter.ExtendedInfo()["BitsPerPlane"] = row.bits;
    if (row.acquire) rip.SetCanAcquire(row.acquire);
    EXPECT_EQ(rip.IsRippable(), row.rippable) << &row - rows;
    EXPECT_TRUE(VYR_TImageTicket(rip, VYR_FillBasicInfo).IsRippable());
  }
  writer.Wipe();  // ExtendedInfo goes
  writer.SetChannelEncoding(VYR_Cmyk);
  writer.SetFillLevel(VYR_FillExtendedInfo);
  EXPECT_THROW(ticket.IsRippable(), VYR_EImageTicketNoExtendedInfo);
}

// --- The image proxy ------------------------------------------------------------------------

TEST_F(TicketTest, ProxySelectionStaysOnItsTicketAndLeavesAsAnIndex) {
  EXPECT_THROW(static_cast<VYR_TImageTicket>(VYR_TImageProxy()), VYR_EImageProxyEmpty);

  // No selection: the first ticket stands in, and the index is Entries(),
  // which a copy keeps.
  ProxyBuilder proxy(Image(0, VYR_TypeImage, -1));
  QEN_TListKey* second = proxy.List().AddAtTail(QEN_TAny(Image(1, VYR_TypePreview, 0)));
  proxy.Select(static_cast<const QEN_TListKey*>(nullptr));
  EXPECT_EQ(proxy.Selected().ImagePosition(), 0);
  EXPECT_EQ(VYR_TImageProxy(proxy).IndexOfSelected(), 2u);

  // By position, among tickets of the proxy's own file only.
  VYR_TImageTicket elsewhere = Image(1, VYR_TypeImage, -1);
  VYR_TTicketWriter(elsewhere).AssignFile(QEN_TURL("file:///other.tif"), QEN_TTime(), 0);
  proxy.List().AddAtHead(QEN_TAny(elsewhere));
  EXPECT_EQ(proxy.Select(static_cast<unsigned char>(1)), second);
  // The key stays on its ticket as the list changes.
  proxy.List().Remove(proxy.List().KeyAtHead());
  EXPECT_EQ(proxy.IndexOfSelected(), 1u);

  // A copy selects its own element at the same index and compares equal.
  VYR_TImageProxy copy(proxy);
  EXPECT_NE(copy.KeyOfSelected(), proxy.KeyOfSelected());
  EXPECT_TRUE(copy == proxy);
  copy = proxy;
  EXPECT_EQ(copy.KeyOfSelected(), std::as_const(copy).Tickets().KeyAtIndex(1));
  // A key of another list is at no index of this one.
  copy.Select(proxy.KeyOfSelected());
  EXPECT_EQ(copy.IndexOfSelected(), 0u);

  // Moving takes the selection along and leaves none behind.
  const QEN_TListKey* key = proxy.KeyOfSelected();
  VYR_TImageProxy moved(std::move(proxy));
  EXPECT_EQ(proxy.IndexOfSelected(), 0u);
  copy = std::move(moved);
  EXPECT_EQ(copy.KeyOfSelected(), key);
}

TEST_F(TicketTest, ProxyWalksByTypeAndFindsPreviews) {
  VYR_TImageProxy proxy = FourTickets();
  EXPECT_EQ(Positions(proxy.Lookup(VYR_TypePreview)), (std::vector<int>{1, 3}));
  // A preview belongs to an image by its RelatedIndex; all of the wanted
  // type come along.
  const VYR_TImageTicket image = proxy[0];
  EXPECT_EQ(Positions(proxy.Previews(image, false)), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(Positions(proxy.Previews(image, true)), (std::vector<int>{1, 2}));
  EXPECT_TRUE(proxy.Previews(Image(9, VYR_TypeImage, -1), false).IsDone());

  // Backward from the last position stops at the first ticket that passes.
  QEN_TConstIterator icons = proxy.Previews(image, true);
  icons.Last();
  --icons;
  EXPECT_EQ(icons.Value().DynamicCast<VYR_TImageTicket>()->ImagePosition(), 1);
  --icons;
  EXPECT_TRUE(icons.IsBeforeFirst());

  // An element that holds no ticket is passed over by walks and refused by
  // everything else.
  ProxyBuilder stray(image);
  stray.List().AddAtHead(QEN_TAny(3u));
  stray.Select(0u);
  EXPECT_EQ(Positions(stray.Lookup(VYR_TypeImage)), std::vector<int>{0});
  EXPECT_THROW(stray.Selected(), VYR_EImageProxyInternal);
}
