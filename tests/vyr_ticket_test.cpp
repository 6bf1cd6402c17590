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

// --- Dependencies, the link, format codes, ripping ---------------------------------------

namespace {

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

std::string Keys(const QEN_TAny& dict) {
  std::string keys;
  for (QEN_TConstIterator at(*dict.DynamicCast<QEN_TDict>()); !at.IsDone(); ++at)
    keys += std::string(at.Key().DynamicCast<QEN_TString>()->c_str()) + " ";
  return keys;
}

}  // namespace

TEST_F(TicketTest, DependenciesListOtherFilesByTheirContainers) {
  VYR_TImageTicket ticket = Sample(VYR_FillFullInfo);  // logo.eps, cyan.tif
  VYR_TTicketWriter writer(ticket);
  const QEN_TURL own("file:///jobs/2024/brochure%20cover.tif");
  // The own file, and a range inside it, are no dependencies; a range of
  // another file is that file.
  writer.ExternalRefs().AddAtTail(QEN_TAny(VYR_TReference(own, VYR_Inch, 0, 0)));
  writer.ExternalRefs().AddAtTail(
      QEN_TAny(VYR_TReference(VYR_EmbeddedFile(own, 10, 20, 0, 0, 0), VYR_Inch, 0, 0)));
  VYR_TReference fonts(VYR_EmbeddedFile(QEN_TURL("file:///jobs/fonts.bin?password=x"), 5, 0, 0, 0, 0),
                       VYR_Inch, 0, 0);
  fonts.AddStampInfo("2024-02-15T22:42:14Z", "5000", "");
  writer.ExternalRefs().AddAtTail(QEN_TAny(fonts));
  QEN_TArray separations(4);
  separations[0] = VYR_TReference(QEN_TURL("file:///jobs/C.tif"), VYR_Inch, 0, 0);
  separations[1] = QEN_TURL("file:///jobs/M.tif");
  separations[2] = 42u;  // skipped
  separations[3] = own;
  writer.ExtendedInfo()["Separations"] = separations;

  QEN_TList list;
  list.AddAtTail(QEN_TAny("kept"));
  EXPECT_TRUE(ticket.Dependencies(list, false, false));
  EXPECT_EQ(Urls(list), "? logo.eps cyan.tif fonts.bin C.tif M.tif ");
  // Details hold what the reference knows: no count, page or stamp it lacks.
  QEN_TList details;
  EXPECT_TRUE(ticket.Dependencies(details, false, true));
  EXPECT_EQ(Keys(details[0]), "URL MIME Ext Count PageNr ");
  EXPECT_EQ(Keys(details[1]), "URL MIME Ext ");
  EXPECT_EQ(Keys(details[2]), "URL MIME Ext ModificationTime FileSize ");
  EXPECT_EQ(Keys(details[4]), "URL ");  // a plain URL

  // Relative references make the answer false; resolved only on request.
  writer.ExternalRefs().Clear();
  writer.ExternalRefs().AddAtTail(
      QEN_TAny(VYR_TReference(QEN_TURL("links/logo.eps"), VYR_Inch, 0, 0, "links/logo.eps")));
  separations[0] = QEN_TURL("K.tif");  // a plain one never is
  writer.ExtendedInfo()["Separations"] = separations;
  list.Clear();
  EXPECT_FALSE(ticket.Dependencies(list, false, false));
  EXPECT_EQ(Urls(list), "M.tif ");
  list.Clear();
  EXPECT_FALSE(ticket.Dependencies(list, true, false));
  EXPECT_EQ(Urls(list), "logo.eps M.tif ");
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
  EXPECT_EQ(writer.SetRelatedIndex(), 0xFFFFFFFFu);  // no link: -1
  VYR_TFtdLink link = {3, nullptr, VYR_TypePreview};
  writer.SetFtdLink(&link);
  writer.SetFtdLink(nullptr);  // keeps the link
  EXPECT_EQ(writer.SetRelatedIndex(), 3u);
  EXPECT_EQ(writer.FtdImageType(), VYR_TypePreview);
  // A pointer means nothing to another process: no stored form takes it.
  EXPECT_THROW(PackObject(ticket), QEN_EStreamException);
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
  writer.SetFileFormat("jfif");  // names are exact
  EXPECT_EQ(ticket.MusCode(), 0);
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
    if (row.acquire) {
      EXPECT_EQ(rip.SetCanAcquire(row.acquire), row.acquire);
    }
    EXPECT_EQ(rip.IsRippable(), row.rippable) << &row - rows;
    EXPECT_TRUE(VYR_TImageTicket(rip, VYR_FillBasicInfo).IsRippable());
  }
  writer.Wipe();  // ExtendedInfo goes
  writer.SetChannelEncoding(VYR_Cmyk);
  writer.SetFillLevel(VYR_FillExtendedInfo);
  EXPECT_THROW(ticket.IsRippable(), VYR_EImageTicketNoExtendedInfo);
}

// --- Validity and readiness against real files -------------------------------------------

namespace {

using buffertest::TempDir;

QEN_TURL UrlOf(const std::string& path) { return QEN_TURL::LocalToURL(path.c_str()); }

std::string NewFile(const TempDir& dir, const std::string& name) {
  return buffertest::WriteFile(dir.File(name), buffertest::Pattern(5000));
}

void Touch(const std::string& path, long long micros) {
  struct timespec times[2] = {{micros / 1000000, (micros % 1000000) * 1000},
                              {micros / 1000000, (micros % 1000000) * 1000}};
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
// open for writing (or, with `lockShared`, for reading under a shared
// flock, as a reader of this library does) until it goes.
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
  ~Holder() {
    close(mRelease);
    waitpid(mPid, nullptr, 0);
  }
  bool Holding() const { return mHolding; }

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
  return WEXITSTATUS(status) < 2 ? 1 - WEXITSTATUS(status) : -1;
}

}  // namespace

TEST_F(TicketTest, ValidWhileTheFileKeepsItsVersionAndTimeStamp) {
  TempDir dir;
  const std::string path = NewFile(dir, "cover.tif");
  Touch(path, 1708036934123456LL);
  VYR_TImageTicket ticket = BoundTo(UrlOf(path));
  EXPECT_EQ(ticket.FileTimeStamp().AsMicros(), 1708036934123456LL);
  EXPECT_TRUE(ticket.IsTicketValid());
  // A microsecond either way is another file; the size plays no part.
  Touch(path, 1708036934123457LL);
  EXPECT_FALSE(ticket.IsTicketValid());
  buffertest::WriteFile(path, buffertest::Pattern(10));
  Touch(path, 1708036934123456LL);
  EXPECT_TRUE(ticket.IsTicketValid());
  for (unsigned version : {11013u, 11015u}) {
    VYR_TImageTicket other(ticket);
    VYR_TTicketWriter(other).Internal("version") = version;
    EXPECT_FALSE(other.IsTicketValid()) << version;
  }
  VYR_TTicketWriter(ticket).Internal().Remove("version");
  EXPECT_FALSE(ticket.IsTicketValid());
  EXPECT_TRUE(VYR_TImageTicket().IsTicketValid());  // no file: the version alone

  // The proxy's SmartID is the file's, unless the ticket names one.
  VYR_TImageTicket named = BoundTo(UrlOf(path));
  EXPECT_EQ(VYR_TImageProxy(named).SmartID(), QEN_TFileInfo(UrlOf(path), true).SmartID());
  VYR_TTicketWriter(named).ExtendedInfo()["SmartID"] = 77u;
  EXPECT_EQ(VYR_TImageProxy(named).SmartID(), 77u);
  VYR_TTicketWriter(named).ExtendedInfo()["SmartID"] = "77";
  EXPECT_THROW(VYR_TImageProxy(named).SmartID(), QEN_EAnyConversion);

  // An embedded image is held against its container.
  VYR_TImageTicket embedded = BoundTo(VYR_EmbeddedFile(UrlOf(path), 4, 2, 0, 0, 0));
  EXPECT_TRUE(embedded.IsTicketValid());
  Touch(path, 1000000);
  EXPECT_FALSE(embedded.IsTicketValid());
  // A file that is gone is the file system's failure, not an answer.
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_THROW(embedded.IsTicketValid(), QEN_EException);
}

TEST_F(TicketTest, BindingToAFileWithTheCallersFacts) {
  TempDir dir;
  const QEN_TURL container = UrlOf(NewFile(dir, "container.bin"));
  QEN_TFileInfo info(container, true);
  info.SetSize(18446744073709549568.0);  // above 2^63 converts whole
  const std::pair<QEN_TURL, unsigned long long> rows[] = {
      {container, 18446744073709549568ULL},
      {VYR_EmbeddedFile(container, 1000, 10, 0, 0, 0), 1000},
      {VYR_EmbeddedFile(container, 0, 1000, 0, 0, 0), 4000},  // the rest of the file
      {VYR_EmbeddedFile(container, 0, 1000, 1, 0, 0), 0},
  };
  for (const auto& row : rows) {
    VYR_TImageTicket ticket;
    EXPECT_EQ(VYR_TTicketWriter(ticket).SetFile(row.first, info), row.first);
    EXPECT_EQ(ticket.FileSize(), row.second) << row.first.AsString().c_str();
    EXPECT_EQ(ticket.FileTimeStamp(), info.ModificationTime());
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
  const VYR_TImageTicket embedded = BoundTo(VYR_EmbeddedFile(UrlOf(image), 100, 0, 0, 0, 0));
  EXPECT_TRUE(ticket.IsImageReady());
  for (const std::string& held : {image, logo}) {
    {
      Holder writer(held);
      ASSERT_TRUE(writer.Holding());
      EXPECT_FALSE(ticket.IsImageReady()) << held;
      EXPECT_EQ(embedded.IsImageReady(), held != image);  // tested on its container
    }
    EXPECT_TRUE(ticket.IsImageReady()) << held;
  }
  // No protocol, a missing file, a folder, references not filled in.
  EXPECT_FALSE(VYR_TImageTicket().IsImageReady());
  EXPECT_FALSE(BoundTo(UrlOf(image), {dir.File("missing.eps")}).IsImageReady());
  VYR_TImageTicket folder(ticket);
  VYR_TTicketWriter(folder).AssignFile(UrlOf(dir.Path()), QEN_TTime(), 0);
  EXPECT_FALSE(folder.IsImageReady());
  EXPECT_FALSE(VYR_TImageTicket(ticket, VYR_FillExtendedInfo).IsImageReady());
}

TEST_F(TicketTest, AnotherUsersFilesAreReadyOnceLeftAlone) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to ask as another user";
  TempDir dir;
  ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
  const VYR_TImageTicket ticket = BoundTo(UrlOf(NewFile(dir, "cover.tif")));
  // Just written: without a lease nothing tells whether the writer is done.
  EXPECT_EQ(ReadyToAnotherUser(ticket), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  EXPECT_EQ(ReadyToAnotherUser(ticket), 1);
  Holder reader(dir.File("cover.tif"), true);  // a reader of this library
  ASSERT_TRUE(reader.Holding());
  EXPECT_EQ(ReadyToAnotherUser(ticket), 0);
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
  EXPECT_TRUE(empty.IndexOfSelected() == 0 && empty.KeyOfSelected() == nullptr);
  EXPECT_THROW(static_cast<VYR_TImageTicket>(empty), VYR_EImageProxyEmpty);

  // No selection: the first ticket stands in, and the index is Entries(),
  // which a copy keeps.
  ProxyBuilder proxy(Image(0, VYR_TypeImage, -1));
  QEN_TListKey* second = proxy.Add(Image(1, VYR_TypePreview, 0));
  proxy.Select(static_cast<const QEN_TListKey*>(nullptr));
  EXPECT_EQ(proxy.Selected().ImagePosition(), 0);
  EXPECT_EQ(proxy.IndexOfSelected(), 2u);
  EXPECT_EQ(VYR_TImageProxy(proxy).IndexOfSelected(), 2u);

  // By position, among tickets of the proxy's own file only.
  EXPECT_EQ(proxy.Select(static_cast<unsigned char>(5)), nullptr);
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
  copy.Select(0u);
  EXPECT_TRUE(copy != proxy);
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
  EXPECT_EQ(static_cast<VYR_TImageTicket>(copy).ImagePosition(), 1);
}

TEST_F(TicketTest, ProxyWalksByTypeAndFindsPreviews) {
  VYR_TImageProxy proxy = FourTickets();
  EXPECT_EQ(Positions(proxy.Lookup(VYR_TypePreview)), (std::vector<int>{1, 3}));
  EXPECT_TRUE(proxy.Lookup(VYR_TypeInternal).IsDone());
  // A preview belongs to an image by its RelatedIndex; all of the wanted
  // type come along.
  const VYR_TImageTicket image = proxy[0];
  EXPECT_EQ(Positions(proxy.Previews(image, false)), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(Positions(proxy.Previews(image, true)), (std::vector<int>{1, 2}));
  EXPECT_TRUE(proxy.Previews(Image(9, VYR_TypeImage, -1), false).IsDone());

  // Backward from the last position stops at the first ticket that passes;
  // a copy of the cursor moves on its own.
  QEN_TConstIterator icons = proxy.Previews(image, true);
  icons.Last();
  --icons;
  QEN_TConstIterator other(icons);
  --icons;
  EXPECT_TRUE(icons.IsBeforeFirst());
  EXPECT_EQ(other.Value().DynamicCast<VYR_TImageTicket>()->ImagePosition(), 1);

  // An element that holds no ticket is passed over by walks and refused by
  // everything else.
  ProxyBuilder stray(image);
  stray.List().AddAtHead(QEN_TAny(3u));
  stray.Select(0u);
  EXPECT_EQ(Positions(stray.Lookup(VYR_TypeImage)), std::vector<int>{0});
  EXPECT_THROW(stray.Selected(), VYR_EImageProxyInternal);
}
