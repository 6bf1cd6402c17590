// The ticket as a value: defaults, the unrotated view, copying with a mask,
// assignment, comparison, Wipe, the accessors that refuse, the class frame
// and the flat dictionary; its dependencies, flags and format code; and the
// ticket held against real files and processes: validity and readiness.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "buffer_test_support.h"
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

// --- Dependencies and the related-image link --------------------------------------------

namespace {

// The URLs (or with details, the dictionaries' "URL") in the list, as text.
std::vector<std::string> Urls(const QEN_TList& list) {
  std::vector<std::string> urls;
  for (const QEN_TListKey* key = list.KeyAtHead(); key != nullptr; key = key->Next()) {
    const QEN_TAny& value = key->Value();
    const QEN_TDict* details = value.DynamicCast<QEN_TDict>();
    const QEN_TURL* url = (details ? (*details)["URL"] : value).DynamicCast<QEN_TURL>();
    urls.push_back(url ? url->AsString().c_str() : "?");
  }
  return urls;
}

const char kOwn[] = "file:///jobs/2024/brochure%20cover.tif";

}  // namespace

TEST_F(TicketTest, DependenciesListTheOtherFilesOnce) {
  VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);
  VYR_TTicketWriter writer(ticket);
  QEN_TList& refs = writer.ExternalRefs();
  const QEN_TURL own(kOwn);
  // Its own file, and a range inside its own file, are no dependencies.
  refs.AddAtTail(QEN_TAny(VYR_TReference(own, VYR_Inch, 0, 0)));
  refs.AddAtTail(QEN_TAny(VYR_TReference(VYR_EmbeddedFile(own, 10, 20, 0, 0, 0), VYR_Inch, 0, 0)));
  // A range in another file counts as that file.
  VYR_TReference fonts(
      VYR_EmbeddedFile(QEN_TURL("file:///jobs/2024/fonts.bin?password=x"), 5, 0, 0, 0, 0),
      VYR_Inch, 0, 0);
  fonts.AddStampInfo("2024-02-15T22:42:14Z", "5000", "");
  refs.AddAtTail(QEN_TAny(fonts));
  QEN_TArray separations(4);
  separations[0] = VYR_TReference(QEN_TURL("file:///jobs/2024/cover.C.tif"), VYR_Inch, 0, 0);
  separations[1] = QEN_TURL("file:///jobs/2024/cover.M.tif");
  separations[2] = 42u;  // skipped
  separations[3] = QEN_TURL(own);
  writer.ExtendedInfo()["Separations"] = separations;

  QEN_TList list;
  list.AddAtTail(QEN_TAny("kept"));
  EXPECT_TRUE(ticket.Dependencies(list, false, false));
  EXPECT_EQ(Urls(list), (std::vector<std::string>{"?", "file:///jobs/2024/logo.eps",
                                                  "file:///jobs/2024/cyan.tif",
                                                  "file:///jobs/2024/fonts.bin",
                                                  "file:///jobs/2024/cover.C.tif",
                                                  "file:///jobs/2024/cover.M.tif"}));

  // Details say what the reference knows, and leave out what it doesn't.
  QEN_TList detailed;
  EXPECT_TRUE(ticket.Dependencies(detailed, false, true));
  auto keys = [&](unsigned index) {
    std::string names;
    for (QEN_TConstIterator at(*detailed[index].DynamicCast<QEN_TDict>()); !at.IsDone(); ++at)
      names += std::string(at.Key().DynamicCast<QEN_TString>()->c_str()) + "|";
    return names;
  };
  EXPECT_EQ(keys(0), "URL|MIME|Ext|Count|PageNr|");
  EXPECT_EQ(keys(1), "URL|MIME|Ext|");  // no count, page or stamps
  EXPECT_EQ(keys(2), "URL|MIME|Ext|ModificationTime|FileSize|");  // no hash
  EXPECT_EQ(keys(4), "URL|");  // a plain URL
  const QEN_TDict& logo = *detailed[0].DynamicCast<QEN_TDict>();
  EXPECT_EQ(logo["MIME"], QEN_TAny("application/postscript"));
  EXPECT_EQ(logo["PageNr"], QEN_TAny(1));

  // Below the level of references nothing is looked at.
  VYR_TImageTicket extended = Sample(VYR_FillExtendedInfo);
  VYR_TTicketWriter(extended).ExtendedInfo()["Separations"] = 1u;
  EXPECT_FALSE(extended.Dependencies(list, true, true));
  EXPECT_EQ(list.Entries(), 6u);
  VYR_TImageTicket bare = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(bare).SetFillLevel(VYR_FillFullInfo);
  EXPECT_TRUE(bare.Dependencies(list, false, false));
  EXPECT_EQ(list.Entries(), 6u);
}

TEST_F(TicketTest, RelativeReferencesMakeTheAnswerFalse) {
  VYR_TImageTicket ticket = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter writer(ticket);
  writer.SetFillLevel(VYR_FillFullInfo);
  writer.ExternalRefs().AddAtTail(
      QEN_TAny(VYR_TReference(QEN_TURL("links/logo.eps"), VYR_Inch, 0, 0, "links/logo.eps")));
  QEN_TList list;
  EXPECT_FALSE(ticket.Dependencies(list, false, false));
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_FALSE(ticket.Dependencies(list, true, false));
  EXPECT_EQ(Urls(list), std::vector<std::string>{"file:///jobs/2024/links/logo.eps"});
  // A plain URL without protocol is never resolved.
  QEN_TArray separations(1);
  separations[0] = QEN_TURL("cover.K.tif");
  writer.ExternalRefs().Clear();
  writer.ExtendedInfo()["Separations"] = separations;
  list.Clear();
  EXPECT_FALSE(ticket.Dependencies(list, true, true));
  EXPECT_TRUE(list.IsEmpty());
}

TEST_F(TicketTest, AnyFailureInsideDependenciesIsOneExceptionAndKeepsWhatWasListed) {
  typedef void (*Spoil)(VYR_TTicketWriter&);
  const Spoil spoilers[] = {
      [](VYR_TTicketWriter& w) { w.ExternalRefs().AddAtTail(QEN_TAny(QEN_TURL("file:///x"))); },
      [](VYR_TTicketWriter& w) { w.ExtendedInfo()["Separations"] = QEN_TList(); },
      [](VYR_TTicketWriter& w) { w.ExtendedInfo()["Separations"] = "file:///x"; },
  };
  for (Spoil spoil : spoilers) {
    VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);
    VYR_TTicketWriter writer(ticket);
    spoil(writer);
    QEN_TList list;
    try {
      ticket.Dependencies(list, false, false);
      ADD_FAILURE() << "no exception";
    } catch (const VYR_EImageTicketCannotGetDependencies& e) {
      EXPECT_EQ(e.QEN_Message(), "VYR_EImageTicketCannotGetDependencies");
    }
    EXPECT_EQ(list.Entries(), 2u);  // the two references of the sample
  }
}

TEST_F(TicketTest, RelatedImageLinkIsAPointerTheTicketDoesNotOwn) {
  VYR_TImageTicket ticket = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter writer(ticket);
  EXPECT_FALSE(writer.ValidFtdLink());
  EXPECT_EQ(writer.FtdRelatedIndex(), -1);
  EXPECT_EQ(writer.FtdImageType(), VYR_UnknownType);
  EXPECT_EQ(writer.SetRelatedIndex(), 0xFFFFFFFFu);
  EXPECT_EQ(ticket.RelatedIndex(), -1);
  writer.RemoveFtdLink();

  VYR_TImageProxy other;
  VYR_TFtdLink link = {3, &other, VYR_TypePreview};
  writer.SetFtdLink(&link);
  writer.SetFtdLink(nullptr);  // keeps the link
  EXPECT_EQ(writer.GetFtdLink(), &link);
  EXPECT_EQ(writer.FtdRelatedProxy(), &other);
  EXPECT_EQ(writer.FtdImageType(), VYR_TypePreview);
  EXPECT_EQ(writer.SetRelatedIndex(), 3u);
  EXPECT_EQ(ticket.RelatedIndex(), 3);
  // A copy shares the structure.
  VYR_TImageTicket copy(ticket);
  link.RelatedIndex = 5;
  EXPECT_EQ(VYR_TTicketWriter(copy).FtdRelatedIndex(), 5);
  // A pointer means nothing in another process: no stored form takes it.
  EXPECT_THROW(PackObject(ticket), QEN_EStreamException);
  writer.RemoveFtdLink();
  EXPECT_FALSE(writer.ValidFtdLink());
  // A value of another kind under the key is no link.
  writer.Internal("ftd link") = 7u;
  EXPECT_EQ(writer.GetFtdLink(), nullptr);
}

// --- Flags, format codes, ripping --------------------------------------------------------

TEST_F(TicketTest, FormatCodeTableIsBuiltOnceFromTwoThreads) {
  // Each test runs in a process of its own, so this is the table's first use.
  VYR_TImageTicket jpeg = Sample(VYR_FillExtendedInfo);
  VYR_TTicketWriter(jpeg).SetFileFormat("JFIF");
  unsigned short codes[2] = {0, 0};
  std::thread one([&] { codes[0] = jpeg.MusCode(); });
  std::thread two([&] { codes[1] = jpeg.MusCode(); });
  one.join();
  two.join();
  EXPECT_EQ(codes[0], 5);
  EXPECT_EQ(codes[1], 5);

  struct Row {
    unsigned level;
    const char* format;
    int override;  // "MUScode" in ExtendedInfo, -1 for none
    unsigned short code;
  };
  const Row rows[] = {
      {VYR_FillBasicInfo, "TIFF_IT", -1, 0}, {VYR_FillExtendedInfo, "TIFF_IT", -1, 1},
      {VYR_FillExtendedInfo, "TIFF_IT", 7, 7}, {0x40, "ZRL", -1, 12619},
      {0x100, "ZRL", -1, 0},                  {VYR_FillFullInfo, "tiff", -1, 0},
      {VYR_FillFullInfo, "PICT", 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.format) + " at " + std::to_string(row.level));
    VYR_TImageTicket ticket = Sample(row.level);
    VYR_TTicketWriter writer(ticket);
    writer.SetFileFormat(row.format);
    if (row.override >= 0) writer.ExtendedInfo()["MUScode"] = static_cast<unsigned>(row.override);
    EXPECT_EQ(ticket.MusCode(), row.code);
  }
  VYR_TTicketWriter(jpeg).ExtendedInfo()["MUScode"] = 70000u;
  EXPECT_THROW(jpeg.MusCode(), QEN_EAnyConversion);
}

TEST_F(TicketTest, FlagsAreStoredAsTheirText) {
  VYR_TImageTicket ticket;
  EXPECT_EQ(ticket.SetCanAcquire(VYR_CanLimited), VYR_CanLimited);
  EXPECT_EQ(std::as_const(ticket).Internal("Acquire"), QEN_TAny("limited"));
  EXPECT_EQ(ticket.SetCanODL(static_cast<VYR_TCanFlag>(9)), static_cast<VYR_TCanFlag>(9));
  EXPECT_EQ(std::as_const(ticket).Internal("ODL"), QEN_TAny("invalid"));
  EXPECT_EQ(ticket.CanODL(), VYR_CanInvalid);
  EXPECT_EQ(ticket.CanAcquire(), VYR_CanLimited);
}

TEST_F(TicketTest, RippableByLevelEncodingBitsProcessorAndFlag) {
  struct Row {
    unsigned level;
    VYR_TChannelEnc encoding;
    int bits;  // "BitsPerPlane", -1 for none
    const char* processor;
    VYR_TCanFlag acquire;
    bool rippable;
  };
  const Row rows[] = {
      {VYR_FillBasicInfo, VYR_Rgb, 16, "", VYR_CanNone, true},
      {VYR_FillExtendedInfo, VYR_Cmyk, 16, "TiffReader", VYR_CanFull, false},
      {VYR_FillExtendedInfo, VYR_Cmyk, -1, "TiffReader", VYR_CanInvalid, true},
      {VYR_FillExtendedInfo, VYR_Bitmap, 1, "TiffReader", VYR_CanLimited, true},
      {VYR_FillExtendedInfo, VYR_Rgb, 8, "TiffReader", VYR_CanFull, false},
      {VYR_FillExtendedInfo, VYR_Grayscale, 8, "TiffReader", VYR_CanNone, false},
      {VYR_FillExtendedInfo, VYR_Grayscale, 8, "", VYR_CanFull, false},
      {VYR_FillFullInfo, VYR_NamedMultichannel, 8, "TiffReader", VYR_CanFull, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    VYR_TImageTicket ticket = Sample(row.level);
    VYR_TTicketWriter writer(ticket);
    writer.SetChannelEncoding(row.encoding);
    writer.SetImageProcessor(row.processor);
    if (row.level & 0x40) writer.ExtendedInfo().Remove("BitsPerPlane");
    if (row.bits >= 0) writer.ExtendedInfo()["BitsPerPlane"] = static_cast<unsigned>(row.bits);
    if (row.acquire != VYR_CanInvalid) ticket.SetCanAcquire(row.acquire);
    EXPECT_EQ(ticket.IsRippable(), row.rippable);
  }
  VYR_TImageTicket noInfo = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(noInfo).SetFillLevel(VYR_FillExtendedInfo);
  EXPECT_THROW(noInfo.IsRippable(), VYR_EImageTicketNoExtendedInfo);
}

// --- Validity and readiness against real files -------------------------------------------

namespace {

using buffertest::TempDir;

QEN_TURL UrlOf(const std::string& path) { return QEN_TURL::LocalToURL(path.c_str()); }

std::string NewFile(const TempDir& dir, const std::string& name, size_t size = 5000) {
  return buffertest::WriteFile(dir.File(name), buffertest::Pattern(size));
}

// Sets the modification time of the file, to the microsecond.
void Touch(const std::string& path, long long micros) {
  struct timespec times[2];
  times[0].tv_sec = times[1].tv_sec = micros / 1000000;
  times[0].tv_nsec = times[1].tv_nsec = (micros % 1000000) * 1000;
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

// A FullInfo ticket bound to the file, with references to `others`.
VYR_TImageTicket BoundTo(const QEN_TURL& url, const std::vector<std::string>& others = {}) {
  VYR_TImageTicket ticket = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter writer(ticket);
  writer.SetFile(url);
  writer.ExternalRefs();
  for (const std::string& other : others)
    writer.ExternalRefs().AddAtTail(QEN_TAny(VYR_TReference(UrlOf(other), VYR_Inch, 0, 0)));
  writer.SetFillLevel(VYR_FillFullInfo);
  return ticket;
}

// Another process, which knows nothing of this library, holding the file
// open (for writing unless `lockShared`, which takes a shared flock as a
// reader of this library does) until Release.
class Holder {
 public:
  explicit Holder(const std::string& path, bool lockShared = false) {
    int ready[2], release[2];
    if (pipe(ready) != 0 || pipe(release) != 0) return;
    mPid = fork();
    if (mPid == 0) {
      close(ready[0]);
      close(release[1]);
      int fd = open(path.c_str(), lockShared ? O_RDONLY : O_WRONLY | O_APPEND);
      char c = fd >= 0 && (!lockShared || flock(fd, LOCK_SH) == 0) ? 'y' : 'n';
      if (write(ready[1], &c, 1) == 1) (void)read(release[0], &c, 1);  // until closed
      _exit(0);
    }
    close(ready[1]);
    close(release[0]);
    char c = 'n';
    mHolding = read(ready[0], &c, 1) == 1 && c == 'y';
    close(ready[0]);
    mRelease = release[1];
  }
  ~Holder() { Release(); }
  bool Holding() const { return mHolding; }
  void Release() {
    if (mRelease < 0) return;
    close(mRelease);
    mRelease = -1;
    int status = 0;
    waitpid(mPid, &status, 0);
  }

 private:
  pid_t mPid = -1;
  int mRelease = -1;
  bool mHolding = false;
};

// IsImageReady asked by a process of another user, to whom the kernel
// refuses leases on these files: 1 ready, 0 not ready, -1 no answer.
int ReadyToAnotherUser(const VYR_TImageTicket& ticket) {
  pid_t pid = fork();
  if (pid == 0) {
    if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) _exit(2);
    _exit(ticket.IsImageReady() ? 0 : 1);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status) == 0 ? 1 : WEXITSTATUS(status) == 1 ? 0 : -1;
}

}  // namespace

TEST_F(TicketTest, ValidWhileTheFileKeepsItsVersionAndTimeStamp) {
  TempDir dir;
  const std::string path = NewFile(dir, "cover.tif");
  Touch(path, 1708036934123456LL);
  VYR_TImageTicket ticket = BoundTo(UrlOf(path));
  EXPECT_EQ(ticket.FileTimeStamp().AsMicros(), 1708036934123456LL);
  EXPECT_EQ(ticket.FileSize(), 5000u);
  EXPECT_TRUE(ticket.IsTicketValid());
  // A microsecond either way is another file; the size plays no part.
  Touch(path, 1708036934123457LL);
  EXPECT_FALSE(ticket.IsTicketValid());
  Touch(path, 1708036934123455LL);
  EXPECT_FALSE(ticket.IsTicketValid());
  buffertest::WriteFile(path, buffertest::Pattern(10));
  Touch(path, 1708036934123456LL);
  EXPECT_TRUE(ticket.IsTicketValid());

  // Any version but this library's own, and none at all, is invalid.
  for (unsigned version : {11013u, 11015u, 9000u}) {
    VYR_TImageTicket other(ticket);
    VYR_TTicketWriter(other).Internal("version") = version;
    EXPECT_FALSE(other.IsTicketValid()) << version;
  }
  VYR_TImageTicket noVersion(ticket);
  VYR_TTicketWriter(noVersion).Internal().Remove("version");
  EXPECT_FALSE(noVersion.IsTicketValid());
  // Without a file only the version counts.
  EXPECT_TRUE(VYR_TImageTicket().IsTicketValid());

  // An embedded image is held against its container's time stamp.
  VYR_TImageTicket embedded = BoundTo(VYR_EmbeddedFile(UrlOf(path), 4, 2, 0, 0, 0));
  EXPECT_EQ(embedded.FileSize(), 4u);
  EXPECT_TRUE(embedded.IsTicketValid());
  Touch(path, 1000000);
  EXPECT_FALSE(embedded.IsTicketValid());
  // A file that is gone is the file system's failure, not an answer.
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_THROW(ticket.IsTicketValid(), QEN_EException);
}

TEST_F(TicketTest, BindingToAFileWithTheCallersFacts) {
  TempDir dir;
  const std::string path = NewFile(dir, "container.bin", 5000);
  const QEN_TURL container = UrlOf(path);
  const QEN_TFileInfo info(container, true);
  QEN_TFileInfo bigger(info);
  bigger.SetSize(18446744073709549568.0);  // above 2^63 converts whole
  struct Row {
    QEN_TURL url;
    const QEN_TFileInfo* info;
    unsigned long long size;
  };
  const Row rows[] = {
      {container, &bigger, 18446744073709549568ULL},
      {VYR_EmbeddedFile(container, 1000, 10, 0, 0, 0), &bigger, 1000},
      {VYR_EmbeddedFile(container, 0, 1000, 0, 0, 0), &bigger, 4000},  // the rest of the file
      {VYR_EmbeddedFile(container, 0, 1000, 1, 0, 0), &info, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.url.AsString().c_str());
    VYR_TImageTicket ticket;
    VYR_TTicketWriter writer(ticket);
    EXPECT_EQ(writer.SetFile(row.url, *row.info), row.url);
    EXPECT_EQ(ticket.FileSize(), row.size);
    EXPECT_EQ(ticket.FileTimeStamp(), info.ModificationTime());
    EXPECT_EQ(ticket.FillLevel(), 0u);
  }
  VYR_TImageTicket ticket = Sample(VYR_FillFileAssigned);
  EXPECT_THROW(VYR_TTicketWriter(ticket).SetFile(QEN_TURL("http://host/a.tif"), info),
               VYR_EImageTicketUnsupprotedFileFormat);
  EXPECT_EQ(ticket, Sample(VYR_FillFileAssigned));
}

TEST_F(TicketTest, NotReadyWhileAnotherProcessWritesTheFileOrWhatItNeeds) {
  TempDir dir;
  const std::string image = NewFile(dir, "cover.tif");
  const std::string logo = NewFile(dir, "logo.eps");
  const VYR_TImageTicket ticket = BoundTo(UrlOf(image), {logo});
  EXPECT_TRUE(ticket.IsImageReady());

  for (const std::string& held : {image, logo}) {
    SCOPED_TRACE(held);
    Holder writer(held);
    ASSERT_TRUE(writer.Holding());
    EXPECT_FALSE(ticket.IsImageReady());
    writer.Release();
    EXPECT_TRUE(ticket.IsImageReady());
  }
  // An embedded image is tested on its container.
  const VYR_TImageTicket embedded = BoundTo(VYR_EmbeddedFile(UrlOf(image), 100, 0, 0, 0, 0));
  {
    Holder writer(image);
    EXPECT_FALSE(embedded.IsImageReady());
  }
  EXPECT_TRUE(embedded.IsImageReady());

  // No protocol, a missing file, a folder, references not filled in: not ready.
  EXPECT_FALSE(VYR_TImageTicket().IsImageReady());
  EXPECT_FALSE(BoundTo(UrlOf(image), {dir.File("missing.eps")}).IsImageReady());
  VYR_TImageTicket folder(ticket);
  VYR_TTicketWriter(folder).AssignFile(UrlOf(dir.Path()), QEN_TTime(), 0);
  EXPECT_FALSE(folder.IsImageReady());
  VYR_TImageTicket extended(ticket, VYR_FillExtendedInfo);
  EXPECT_FALSE(extended.IsImageReady());
}

TEST_F(TicketTest, AnotherUsersFilesAreReadyOnceLeftAlone) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to ask as another user";
  TempDir dir;
  ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
  const std::string image = NewFile(dir, "cover.tif");
  const VYR_TImageTicket ticket = BoundTo(UrlOf(image));
  // Just written: the system can't tell whether the writer is done.
  EXPECT_EQ(ReadyToAnotherUser(ticket), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  EXPECT_EQ(ReadyToAnotherUser(ticket), 1);
  {
    Holder reader(image, true);  // as a reader of this library
    ASSERT_TRUE(reader.Holding());
    EXPECT_EQ(ReadyToAnotherUser(ticket), 0);
  }
}

// --- The image proxy ------------------------------------------------------------------------

namespace {

// The image positions of the tickets an iterator walks, forward.
std::vector<int> Positions(QEN_TConstIterator at) {
  std::vector<int> positions;
  for (; !at.IsDone(); ++at)
    positions.push_back(at.Value().DynamicCast<VYR_TImageTicket>()->ImagePosition());
  return positions;
}

}  // namespace

TEST_F(TicketTest, ProxySelectionStaysOnItsTicketAndLeavesAsAnIndex) {
  VYR_TImageProxy empty;
  EXPECT_EQ(empty.Entries(), 0u);
  EXPECT_EQ(empty.IndexOfSelected(), 0u);
  EXPECT_EQ(empty.KeyOfSelected(), nullptr);
  EXPECT_EQ(empty.SmartID(), 0u);
  EXPECT_EQ(empty.Select(0u), nullptr);
  EXPECT_THROW(empty.Selected(), VYR_EImageProxyEmpty);
  EXPECT_THROW(static_cast<VYR_TImageTicket>(empty), VYR_EImageProxyEmpty);

  const VYR_TImageTicket image = Image(0, VYR_TypeImage, -1);
  const VYR_TImageProxy single(image);
  EXPECT_EQ(single.File(), image.File());
  EXPECT_EQ(single.IndexOfSelected(), 0u);
  EXPECT_EQ(single.Selected(), image);

  // No selection: the first ticket stands in, and the index is Entries().
  ProxyBuilder proxy(image);
  QEN_TListKey* second = proxy.Add(Image(1, VYR_TypePreview, 0));
  proxy.Select(static_cast<const QEN_TListKey*>(nullptr));
  EXPECT_EQ(proxy.Selected().ImagePosition(), 0);
  EXPECT_EQ(proxy.KeyOfSelected(), proxy.List().KeyAtHead());
  EXPECT_EQ(proxy.IndexOfSelected(), 2u);
  // ... which a copy, and a stored form, keep as no selection.
  EXPECT_EQ(VYR_TImageProxy(proxy).IndexOfSelected(), 2u);

  // By position: only tickets of the proxy's own file count.
  EXPECT_EQ(proxy.Select(static_cast<unsigned char>(5)), nullptr);
  EXPECT_EQ(proxy.Selected().ImagePosition(), 0);
  VYR_TImageTicket elsewhere = Image(1, VYR_TypeImage, -1);
  VYR_TTicketWriter(elsewhere).AssignFile(QEN_TURL("file:///other.tif"), QEN_TTime(), 0);
  proxy.List().AddAtHead(QEN_TAny(elsewhere));
  EXPECT_EQ(proxy.Select(static_cast<unsigned char>(1)), second);
  EXPECT_EQ(proxy.IndexOfSelected(), 2u);
  // The key stays on its ticket as the list changes.
  proxy.List().Remove(proxy.List().KeyAtHead());
  EXPECT_EQ(proxy.IndexOfSelected(), 1u);
  EXPECT_EQ(proxy.Selected().ImagePosition(), 1);

  // A copy selects its own element at the same index and compares equal.
  VYR_TImageProxy copy(proxy);
  EXPECT_EQ(copy.IndexOfSelected(), 1u);
  EXPECT_NE(copy.KeyOfSelected(), proxy.KeyOfSelected());
  EXPECT_TRUE(copy == proxy);
  copy.Select(0u);
  EXPECT_TRUE(copy != proxy);
  VYR_TImageProxy assigned;
  assigned = proxy;
  EXPECT_EQ(assigned.KeyOfSelected(), std::as_const(assigned).Tickets().KeyAtIndex(1));
  // A key of another list is at no index of this one.
  copy.Select(proxy.KeyOfSelected());
  EXPECT_EQ(copy.IndexOfSelected(), 0u);
  EXPECT_EQ(copy[proxy.KeyOfSelected()].ImagePosition(), 1);

  // Moving takes the selection along and leaves none behind.
  const QEN_TListKey* key = proxy.KeyOfSelected();
  VYR_TImageProxy moved(std::move(proxy));
  EXPECT_EQ(moved.KeyOfSelected(), key);
  EXPECT_EQ(proxy.IndexOfSelected(), 0u);
  assigned = std::move(moved);
  EXPECT_EQ(assigned.KeyOfSelected(), key);
  EXPECT_EQ(static_cast<VYR_TImageTicket>(assigned).ImagePosition(), 1);

  EXPECT_FALSE(assigned.CanRelocate());
  EXPECT_FALSE(assigned.Relocate(assigned.File(), QEN_TURL("file:///moved.tif")));
  EXPECT_EQ(assigned.File(), image.File());
  EXPECT_THROW(assigned[7u], QEN_EIndexOutOfRange);
}

TEST_F(TicketTest, ProxyWalksByTypeAndFindsPreviews) {
  VYR_TImageProxy proxy = FourTickets();
  EXPECT_EQ(Positions(QEN_TConstIterator(proxy)), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(Positions(proxy.Lookup(VYR_TypePreview)), (std::vector<int>{1, 3}));
  EXPECT_TRUE(proxy.Lookup(VYR_TypeInternal).IsDone());

  // A preview belongs to an image by its RelatedIndex; all of the wanted
  // type come along.
  const VYR_TImageTicket image = proxy[0];
  EXPECT_EQ(Positions(proxy.Previews(image, false)), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(Positions(proxy.Previews(image, true)), (std::vector<int>{1, 2}));
  EXPECT_TRUE(proxy.Previews(Image(9, VYR_TypeImage, -1), false).IsDone());
  EXPECT_TRUE(VYR_TImageProxy().Previews(image, false).IsDone());

  // Backward from the last position stops at the first ticket that passes.
  QEN_TConstIterator icons = proxy.Previews(image, true);
  icons.Last();
  EXPECT_EQ(icons.Value().DynamicCast<VYR_TImageTicket>()->ImagePosition(), 2);
  --icons;
  EXPECT_EQ(icons.Value().DynamicCast<VYR_TImageTicket>()->ImagePosition(), 1);
  // A copy of the cursor moves on its own.
  QEN_TConstIterator other(icons);
  --icons;
  EXPECT_TRUE(icons.IsBeforeFirst());
  EXPECT_EQ(other.Value().DynamicCast<VYR_TImageTicket>()->ImagePosition(), 1);
  // An iterator over nothing is done at once.
  EXPECT_TRUE(std::unique_ptr<QEN_IIterationInfo>(VYR_TIPIterator().CreateIterationInfo())->IsDone());
}

TEST_F(TicketTest, ProxySmartIdPrefersTheTicketsKeyToTheFile) {
  TempDir dir;
  const std::string path = NewFile(dir, "cover.tif");
  VYR_TImageTicket ticket = BoundTo(UrlOf(path));
  EXPECT_EQ(VYR_TImageProxy(ticket).SmartID(), QEN_TFileInfo(UrlOf(path), true).SmartID());
  VYR_TTicketWriter(ticket).ExtendedInfo()["SmartID"] = 77u;
  EXPECT_EQ(VYR_TImageProxy(ticket).SmartID(), 77u);
  VYR_TTicketWriter(ticket).ExtendedInfo()["SmartID"] = "77";
  EXPECT_THROW(VYR_TImageProxy(ticket).SmartID(), QEN_EAnyConversion);
}

TEST_F(TicketTest, ProxyRefusesAnElementThatHoldsNoTicket) {
  ProxyBuilder proxy(Image(0, VYR_TypeImage, -1));
  proxy.List().AddAtHead(QEN_TAny(3u));
  proxy.Select(0u);
  EXPECT_THROW(proxy.Selected(), VYR_EImageProxyInternal);
  EXPECT_THROW(proxy.Select(static_cast<unsigned char>(0)), VYR_EImageProxyInternal);
  // A walk by type passes over it.
  EXPECT_EQ(Positions(proxy.Lookup(VYR_TypeImage)), std::vector<int>{0});
}
