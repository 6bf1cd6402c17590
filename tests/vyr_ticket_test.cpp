// The ticket as a value: defaults, the unrotated view, copying with a mask,
// assignment, comparison, Wipe, the accessors that refuse, the class frame
// and the flat dictionary.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "stream_test_support.h"
#include "vyr_ticket_samples.h"

using namespace ticket_samples;

namespace {

using TicketTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

unsigned Version(const VYR_TImageTicket& ticket) {
  return static_cast<unsigned>(ticket.Internal("version"));
}

// Which groups of a ticket hold the sample's values, as one text, so that a
// table row reads at a glance: F file, T type, P processor, B basic, E
// extended info, R references.
std::string Groups(const VYR_TImageTicket& ticket) {
  std::string groups;
  if (ticket.File() == QEN_TURL("file:///jobs/2024/brochure%20cover.tif") &&
      ticket.FileSize() == 5000000123ULL && ticket.ImagePosition() == 2)
    groups += 'F';
  if (ticket.FileFormat() == "TIFF" && ticket.FileFormatVersion() == "6.0") groups += 'T';
  if (ticket.ImageProcessor() == "TiffReader") groups += 'P';
  if (ticket.NrPages() == 3 && ticket.NrRows() == 3300 && ticket.Rotation() == VYR_Rot270)
    groups += 'B';
  if (ticket.HasExtendedInfo()) groups += 'E';
  if (ticket.HasExternalRefs()) groups += 'R';
  return groups;
}

}  // namespace

TEST_F(TicketTest, DefaultTicketIsEmptyWithTheVersion) {
  VYR_TImageTicket ticket;
  EXPECT_EQ(ticket.FillLevel(), 0u);
  EXPECT_EQ(ticket.NrPages(), VYR_TImageTicket::sInvalidValue);
  EXPECT_EQ(ticket.RelatedIndex(), -1);
  EXPECT_EQ(Groups(ticket), "");
  EXPECT_EQ(Version(ticket), 11014u);
  EXPECT_EQ(std::as_const(ticket).Internal("missing"), QEN_TAny::Illegal());
}

TEST_F(TicketTest, UnrotatedViewFollowsTheRotationTable) {
  struct Row {
    unsigned rotation;
    double top, left, bottom, right;
    bool swapsAxes;
  };
  // Stored margins top 1, left 2, bottom 3, right 4.
  const Row rows[] = {
      {0, 1, 2, 3, 4, false}, {1, 2, 3, 4, 1, true}, {2, 3, 4, 1, 2, false}, {3, 4, 1, 2, 3, true},
      {4, 1, 4, 3, 2, false}, {5, 4, 3, 2, 1, true}, {6, 3, 2, 1, 4, false}, {7, 2, 1, 4, 3, true},
      // Values outside the enumeration count as NotRotated.
      {8, 1, 2, 3, 4, false}, {0xFFFFFFFFu, 1, 2, 3, 4, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("rotation " + std::to_string(row.rotation));
    VYR_TImageTicket ticket;
    VYR_TTicketWriter writer(ticket);
    writer.SetRotation(static_cast<VYR_TImageRotation>(row.rotation));
    writer.SetMarginTop(1);
    writer.SetMarginLeft(2);
    writer.SetMarginBottom(3);
    writer.SetMarginRight(4);
    writer.SetVResolution(300);
    writer.SetHResolution(72);
    writer.SetVRealSize(11);
    writer.SetHRealSize(8.5);
    const double margins[] = {ticket.MarginTopNoRot(), ticket.MarginLeftNoRot(),
                              ticket.MarginBottomNoRot(), ticket.MarginRightNoRot()};
    EXPECT_EQ(std::vector<double>(margins, margins + 4),
              (std::vector<double>{row.top, row.left, row.bottom, row.right}));
    const double axes[] = {ticket.VResolutionNoRot(), ticket.HResolutionNoRot(),
                           ticket.VRealSizeNoRot(), ticket.HRealSizeNoRot()};
    EXPECT_EQ(std::vector<double>(axes, axes + 4),
              row.swapsAxes ? (std::vector<double>{72, 300, 8.5, 11})
                            : (std::vector<double>{300, 72, 11, 8.5}));
    // The stored values stay as they are.
    EXPECT_TRUE(ticket.MarginTop() == 1 && ticket.HResolution() == 72);
  }
}

TEST_F(TicketTest, CopyWithMaskTakesTheGroupsOfTheMaskedLevel) {
  struct Row {
    unsigned mask;
    unsigned level;
    const char* groups;
  };
  const Row rows[] = {
      {0, 0, ""}, {VYR_FillFileAssigned, 1, "F"}, {VYR_FillFileType, 3, "FT"},
      {VYR_FillImageProcessor, 7, "FTP"}, {VYR_FillBasicInfo, 15, "FTPB"},
      {VYR_FillExtendedInfo, 127, "FTPBE"}, {VYR_FillFullInfo, 0x6FFF, "FTPBER"},
      {0xFFFFFFFFu, 0x6FFF, "FTPBER"}, {0x8, 0x8, "B"}, {0x80, 0x80, "R"},
      // Each of the three bits of ExtendedInfo brings it alone.
      {0x40, 0x40, "E"}, {0x100, 0x100, "E"}, {0x200, 0x200, "E"}, {0x10 | 0x20, 0x30, ""},
  };
  VYR_TImageTicket full = Sample(VYR_FillFullInfo);
  VYR_TTicketWriter(full).Internal("Acquire") = "full";
  for (const Row& row : rows) {
    SCOPED_TRACE("mask " + std::to_string(row.mask));
    VYR_TImageTicket copy(full, row.mask);
    EXPECT_EQ(copy.FillLevel(), row.level);
    EXPECT_EQ(Groups(copy), row.groups);
    // Internal and CreatorId come along whatever the mask.
    EXPECT_EQ(copy.CanAcquire(), VYR_CanFull);
    EXPECT_EQ(copy.CreatorId(), "vyrax tests");
    if (!(row.level & 0x8)) {
      EXPECT_EQ(copy.NrPages(), -1);
    }
    // The objects are copies, not shared.
    if (copy.HasExtendedInfo()) {
      EXPECT_NE(&std::as_const(copy).ExtendedInfo(), &std::as_const(full).ExtendedInfo());
    }

    VYR_TImageTicket source(full);
    VYR_TImageTicket moved(std::move(source), row.mask);
    EXPECT_EQ(moved.FillLevel(), row.level);
    EXPECT_EQ(Groups(moved), row.groups);
    // An object whose bit was not selected stays with the source.
    EXPECT_EQ(source.HasExtendedInfo(), (row.level & 0x340) == 0);
    EXPECT_EQ(source.HasExternalRefs(), (row.level & 0x80) == 0);
  }
}

TEST_F(TicketTest, CopyOfAnEmptyTicketStartsItsBookkeepingAfresh) {
  VYR_TImageTicket empty;
  VYR_TTicketWriter writer(empty);
  writer.Internal("Acquire") = "limited";
  writer.Internal("version") = 8500u;
  writer.SetCreatorId("creator");
  VYR_TImageTicket copy(empty);
  EXPECT_EQ(copy.FillLevel(), 0u);
  EXPECT_EQ(copy.CanAcquire(), VYR_CanInvalid);
  EXPECT_EQ(Version(copy), 11014u);
  EXPECT_EQ(copy.CreatorId(), "creator");

  // A non-empty ticket keeps its own version, old or not.
  VYR_TImageTicket old = Sample(VYR_FillFileAssigned);
  VYR_TTicketWriter(old).Internal("version") = 8500u;
  EXPECT_EQ(Version(VYR_TImageTicket(old)), 8500u);
  EXPECT_EQ(Version(VYR_TImageTicket(old, 0)), 8500u);
}

TEST_F(TicketTest, AssignmentTakesTheLevelAndKeepsFieldsOutsideIt) {
  VYR_TImageTicket target = Sample(VYR_FillFullInfo);
  VYR_TImageTicket source;
  VYR_TTicketWriter writer(source);
  writer.AssignFile(QEN_TURL("file:///other.tif"), QEN_TTime(7), 42);
  writer.SetCreatorId("other");
  writer.SetFillLevel(VYR_FillFileAssigned);

  target = source;
  EXPECT_EQ(target.FillLevel(), 1u);
  EXPECT_EQ(target.File(), QEN_TURL("file:///other.tif"));
  EXPECT_EQ(target.CreatorId(), "other");
  // Fields outside the level keep what the target held; its objects go.
  EXPECT_EQ(target.FileFormat(), "TIFF");
  EXPECT_EQ(target.NrRows(), 3300u);
  EXPECT_FALSE(target.HasExtendedInfo());
  EXPECT_FALSE(target.HasExternalRefs());

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

  // An Internal without "version" gets it back.
  VYR_TImageTicket bare;
  VYR_TTicketWriter(bare).Internal() = QEN_TDict();
  target = bare;
  EXPECT_EQ(Version(target), 11014u);
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
      {0, "internal", [](VYR_TTicketWriter& w) { w.Internal("ODL") = "none"; }, false},
      {0, "file", [](VYR_TTicketWriter& w) { w.SetFileSize(1); }, true},
      {1, "file", [](VYR_TTicketWriter& w) { w.SetFileSize(1); }, false},
      {1, "position", [](VYR_TTicketWriter& w) { w.SetImagePosition(9); }, false},
      {1, "format", [](VYR_TTicketWriter& w) { w.SetFileFormat("PSD"); }, true},
      {3, "format", [](VYR_TTicketWriter& w) { w.SetFileFormatVersion("7"); }, false},
      {3, "processor", [](VYR_TTicketWriter& w) { w.SetImageProcessor("x"); }, true},
      {7, "processor", [](VYR_TTicketWriter& w) { w.SetImageProcessor("x"); }, false},
      {7, "basic", [](VYR_TTicketWriter& w) { w.SetNrRows(1); }, true},
      {15, "rows", [](VYR_TTicketWriter& w) { w.SetNrRows(1); }, false},
      {15, "margin", [](VYR_TTicketWriter& w) { w.SetMarginBottom(9); }, false},
      {15, "related", [](VYR_TTicketWriter& w) { w.SetRelatedIndex(7); }, false},
      {15, "image type", [](VYR_TTicketWriter& w) { w.SetImageType(VYR_TypeIcon); }, true},
      {15, "subtype", [](VYR_TTicketWriter& w) { w.SetImageSubtype(VYR_SubtypeFP); }, true},
      {15, "extended", [](VYR_TTicketWriter& w) { w.ExtendedInfo()["x"] = 1u; }, true},
      {127, "image type", [](VYR_TTicketWriter& w) { w.SetImageType(VYR_TypeIcon); }, true},
      // Above level 15 matching ExtendedInfo settle it, else the references.
      // At 127 neither ticket has references, so those match.
      {127, "extended", [](VYR_TTicketWriter& w) { w.ExtendedInfo()["x"] = 1u; }, true},
      {0x6FFF, "references", [](VYR_TTicketWriter& w) { w.ExternalRefs().Clear(); }, true},
      {0x6FFF, "extended", [](VYR_TTicketWriter& w) { w.ExtendedInfo().Clear(); }, true},
      {0x6FFF, "both",
       [](VYR_TTicketWriter& w) {
         w.ExtendedInfo().Clear();
         w.ExternalRefs().Clear();
       },
       false},
      // Levels that aren't named compare every group.
      {0x2, "file", [](VYR_TTicketWriter& w) { w.SetFileSize(1); }, false},
      {0x80, "basic", [](VYR_TTicketWriter& w) { w.SetNrRows(1); }, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("level " + std::to_string(row.level) + ", " + row.what);
    VYR_TImageTicket one = Sample(row.level);
    VYR_TImageTicket two = Sample(row.level);
    ASSERT_TRUE(one == two);
    VYR_TTicketWriter writer(two);
    row.change(writer);
    EXPECT_EQ(one == two, row.equal);
    EXPECT_EQ(one != two, !row.equal);
    EXPECT_EQ(two == one, row.equal);
  }
}

TEST_F(TicketTest, EqualityAboveBasicInfoWithAMissingObject) {
  VYR_TImageTicket full = Sample(VYR_FillFullInfo);
  VYR_TImageTicket noInfo;
  Fill(noInfo, 0x6FFF & ~0x340u);
  VYR_TTicketWriter(noInfo).SetFillLevel(VYR_FillFullInfo);
  ASSERT_FALSE(noInfo.HasExtendedInfo());
  ASSERT_TRUE(noInfo.HasExternalRefs());
  // Only one side has ExtendedInfo: compared without touching the missing
  // one, and the equal references decide.
  EXPECT_TRUE(full == noInfo);
  EXPECT_TRUE(noInfo == full);
  // With the references different as well, the tickets differ.
  VYR_TImageTicket otherRefs(noInfo);
  VYR_TTicketWriter(otherRefs).ExternalRefs().Clear();
  EXPECT_FALSE(full == otherRefs);
  EXPECT_FALSE(otherRefs == full);
  // Present but empty is not the same as absent.
  VYR_TImageTicket emptyInfo(otherRefs);
  VYR_TTicketWriter(emptyInfo).ExtendedInfo();
  VYR_TImageTicket absentInfo(otherRefs);
  VYR_TTicketWriter(absentInfo).ExternalRefs().AddAtTail(QEN_TAny(1u));
  EXPECT_FALSE(emptyInfo == absentInfo);
  EXPECT_TRUE(VYR_TImageTicket(emptyInfo) == emptyInfo);
}

TEST_F(TicketTest, DoublesCompareAsDoubles) {
  VYR_TImageTicket ticket = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(ticket).SetVResolution(std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(ticket == ticket);
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
  EXPECT_EQ(ticket.NrPages(), -1);
  EXPECT_EQ(ticket.RelatedIndex(), -1);
  EXPECT_TRUE(ticket.FileFormat().Empty());
  EXPECT_EQ(Version(ticket), 11014u);
  EXPECT_EQ(ticket.CanAcquire(), VYR_CanFull);
  EXPECT_EQ(ticket.CreatorId(), "vyrax tests");

  // An Empty ticket loses its objects and nothing else.
  VYR_TImageTicket empty;
  VYR_TTicketWriter emptyWriter(empty);
  emptyWriter.ExtendedInfo()["x"] = 1u;
  emptyWriter.Internal("version") = 8500u;
  emptyWriter.SetNrRows(5);
  emptyWriter.Wipe();
  EXPECT_EQ(empty.FillLevel(), 0u);
  EXPECT_FALSE(empty.HasExtendedInfo());
  EXPECT_EQ(Version(empty), 8500u);
  EXPECT_EQ(empty.NrRows(), 5u);
}

TEST_F(TicketTest, ExtendedInfoAndReferencesRefuseWhenAbsent) {
  const VYR_TImageTicket empty;
  try {
    empty.ExtendedInfo();
    FAIL() << "no exception";
  } catch (const VYR_EImageTicketNoExtendedInfo& e) {
    EXPECT_EQ(e.QEN_Message(), "VYR_EImageTicketNoExtendedInfo");
    EXPECT_EQ(e.QEN_ExceptionFile(), "Private/Source/vyr_image_ticket");
  }
  EXPECT_THROW(empty["key"], VYR_EImageTicketNoExtendedInfo);
  EXPECT_THROW(empty.ExternalRefs(), VYR_EImageTicketNoExternalRefs);
  const VYR_TImageTicket full = Sample(VYR_FillFullInfo);
  EXPECT_TRUE(full.HasKey("Compression"));
  EXPECT_FALSE(full.HasKey("compression"));
  EXPECT_EQ(full["Compression"], QEN_TAny("LZW"));
  try {
    full["Missing"];
    FAIL() << "no exception";
  } catch (const VYR_EImageTicketKeyNotFound& e) {
    EXPECT_EQ(e.QEN_Message(), "Missing key : \"%s\"");
    EXPECT_EQ(e.QEN_Data(), QEN_TAny(QEN_TString("Missing")));
    EXPECT_EQ(VYR_Exception2String(e), "Missing key : \"Missing\"");
  }
}

TEST_F(TicketTest, PresentEmptyReferenceListIsReturnedButNotCounted) {
  VYR_TImageTicket ticket;
  VYR_TTicketWriter(ticket).ExternalRefs();
  const VYR_TImageTicket& view = ticket;
  EXPECT_FALSE(view.HasExternalRefs());
  EXPECT_EQ(view.ExternalRefs().Entries(), 0u);
  // The filling side's accessors create once and then hand out the same.
  VYR_TTicketWriter writer(ticket);
  EXPECT_EQ(&writer.ExternalRefs(), &view.ExternalRefs());
  EXPECT_EQ(&writer.ExtendedInfo(), &writer.ExtendedInfo());
}

TEST_F(TicketTest, ClassFrame) {
  const QEN_TClass* cls = VYR_TImageTicket::QEN_ClassObject();
  ASSERT_NE(cls, nullptr);
  EXPECT_EQ(QEN_TClass::Find("VYR_TImageTicket"), cls);
  std::vector<std::string> interfaces;
  for (const QEN_TClass* i : cls->Interfaces()) interfaces.push_back(i->name);
  EXPECT_EQ(interfaces,
            (std::vector<std::string>{"QEN_IPackable", "QEN_IPrintable", "QEN_IHumanReadable"}));
  EXPECT_EQ(VYR_TImageTicket::QEN_ParentClass(), QEN_TObject::QEN_ClassObject());
  std::unique_ptr<QEN_IInterface> made(VYR_TImageTicket::QEN_Create());
  const VYR_TImageTicket* fresh = made->DynamicCast<VYR_TImageTicket>();
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(*fresh, VYR_TImageTicket());

  VYR_TImageTicket full = Sample(VYR_FillFullInfo);
  std::unique_ptr<QEN_IInterface> clone(full.QEN_Clone());
  EXPECT_TRUE(full.QEN_IsIdent(*clone->DynamicCast<QEN_IPackable>()));
  EXPECT_FALSE(full.QEN_IsIdent(QEN_TString("VYR_TImageTicket")));
  EXPECT_FALSE(full.QEN_IsIdent(VYR_TImageTicket()));

  std::unique_ptr<QEN_IInterface> moved(full.QEN_Move());
  const VYR_TImageTicket* taken = moved->DynamicCast<VYR_TImageTicket>();
  EXPECT_EQ(*taken, Sample(VYR_FillFullInfo));
  EXPECT_FALSE(full.HasExtendedInfo());
  EXPECT_FALSE(full.HasExternalRefs());
}

TEST_F(TicketTest, DictionaryHoldsEveryFieldUnderBlankKeysInOrder) {
  VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);
  VYR_TTicketWriter writer(ticket);
  writer.Internal("Acquire") = "full";
  writer.Internal("private") = 1u;
  QEN_TDict dict = ticket;

  std::string keys;
  for (QEN_TConstIterator at(dict); !at.IsDone(); at++)
    keys += static_cast<const QEN_TString*>(at.Key().DynamicCast("QEN_TString"))->c_str() +
            std::string("|");
  EXPECT_EQ(keys,
            " Version| CanAcquire| CanODL| FillLevel| CreatorId| File| FileTimeStamp| FileSize|"
            " ImagePosition| FileFormat| FileFormatVersion| ImageProcessor| ImageType|"
            " ImageSubtype| MeasurementUnits| VResolution| HResolution| VRealSize| HRealSize|"
            " NrRows| NrColumns| MarginTop| MarginLeft| MarginRight| MarginBottom|"
            " ImageRotation| ChannelEncoding| AlphaPLane| NrInks| NrPages| RelatedIndex|"
            "BitsPerPlane|Compression|Gamma| ExternalRefs|");
  EXPECT_EQ(dict[" Version"], QEN_TAny(11014u));
  EXPECT_EQ(dict[" CanAcquire"], QEN_TAny("full"));
  EXPECT_EQ(dict[" CanODL"], QEN_TAny("invalid"));
  EXPECT_EQ(dict[" FillLevel"], QEN_TAny("FullInfo"));
  EXPECT_EQ(dict[" FileSize"], QEN_TAny(5000000123ULL));
  EXPECT_EQ(dict[" ImagePosition"], QEN_TAny(static_cast<unsigned char>(2)));
  EXPECT_EQ(dict[" ImageType"], QEN_TAny("Image"));
  EXPECT_EQ(dict[" AlphaPLane"], QEN_TAny("AlphaPremultiplied"));
  EXPECT_EQ(dict[" NrInks"], QEN_TAny(static_cast<unsigned short>(4)));
  EXPECT_EQ(dict[" NrPages"], QEN_TAny(3u));
  EXPECT_EQ(dict[" RelatedIndex"], QEN_TAny(1));
  // The stored, rotated values; no unrotated ones.
  EXPECT_EQ(dict[" MarginTop"], QEN_TAny(0.125));
  EXPECT_EQ(dict[" File"], QEN_TAny(QEN_TURL("file:///jobs/2024/brochure%20cover.tif")));
  EXPECT_EQ(dict[" ExternalRefs"], QEN_TAny(std::as_const(ticket).ExternalRefs()));
}

TEST_F(TicketTest, DictionaryEdges) {
  VYR_TImageTicket odd;
  VYR_TTicketWriter writer(odd);
  writer.SetFillLevel(31);
  QEN_TDict dict = odd;
  EXPECT_EQ(dict[" FillLevel"], QEN_TAny("UnknownFillLevel"));
  EXPECT_EQ(dict[" CanAcquire"], QEN_TAny("invalid"));
  // The bits of -1 as an unsigned number.
  EXPECT_EQ(dict[" NrPages"], QEN_TAny(0xFFFFFFFFu));
  EXPECT_FALSE(dict.HasKey(" ExternalRefs"));
  writer.ExternalRefs();
  QEN_TDict withList = odd;
  ASSERT_TRUE(withList.HasKey(" ExternalRefs"));
  EXPECT_EQ(withList[" ExternalRefs"], QEN_TAny(QEN_TList()));

  // A flag that is not text reads as unset.
  writer.Internal("ODL") = 3u;
  EXPECT_EQ(odd.CanODL(), VYR_CanInvalid);
  writer.Internal("ODL") = "limited";
  EXPECT_EQ(odd.CanODL(), VYR_CanLimited);
}
