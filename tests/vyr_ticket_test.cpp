// The ticket as a value: defaults, the unrotated view, copying with a mask,
// assignment, comparison, Wipe, the accessors that refuse, the class frame
// and the flat dictionary; its dependencies, flags and format code; and the
// ticket held against real files and processes: validity and readiness.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyrax/vyr_reference.h>

#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using TicketTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;
using test_support::Golden;

// The named levels, and some that are not, for walks over "every level".
const unsigned kNamedLevels[] = {VYR_FillEmpty,          VYR_FillFileAssigned, VYR_FillFileType,
                                 VYR_FillImageProcessor, VYR_FillBasicInfo,    VYR_FillExtendedInfo,
                                 VYR_FillFullInfo};
const unsigned kOddLevels[] = {0x2, 0x8, 0x80, 0x100, 0x200, 31, 0x7FFF, 0xFFFFFFFFu};

// Fills the groups of `level` and sets the level. The references are real
// VYR_TReference objects, or QEN_TURL stand-ins where a stored form must
// not depend on another class's layout.
inline void Fill(VYR_TImageTicket& ticket, unsigned level, bool realReferences = true) {
  VYR_TTicketWriter writer(ticket);
  writer.SetCreatorId("vyrax tests");
  if (level & 0x1) {
    writer.AssignFile(QEN_TURL("file:///jobs/2024/brochure%20cover.tif"),
                      QEN_TTime(1708036934123456LL), 5000000123ULL);
    writer.SetImagePosition(2);
  }
  if (level & 0x2) {
    writer.SetFileFormat("TIFF");
    writer.SetFileFormatVersion("6.0");
  }
  if (level & 0x4) writer.SetImageProcessor("TiffReader");
  if (level & 0x8) {
    writer.SetImageType(VYR_TypeImage);
    writer.SetImageSubtype(VYR_SubtypeCT);
    writer.SetMeasurementUnits(VYR_Inch);
    writer.SetVResolution(300.0);
    writer.SetHResolution(150.5);
    writer.SetVRealSize(11.0);
    writer.SetHRealSize(8.25);
    writer.SetNrRows(3300);
    writer.SetNrColumns(1242);
    writer.SetMarginTop(0.125);
    writer.SetMarginLeft(0.25);
    writer.SetMarginBottom(0.375);
    writer.SetMarginRight(0.5);
    writer.SetChannelEncoding(VYR_Cmyk);
    writer.SetAlphaPlane(VYR_AlphaPremultiplied);
    writer.SetNrInks(4);
    writer.SetRotation(VYR_Rot270);
    writer.SetNrPages(3);
    writer.SetRelatedIndex(1);
  }
  if (level & 0x340) {
    QEN_TDict& info = writer.ExtendedInfo();
    info["BitsPerPlane"] = static_cast<unsigned char>(8);
    info["Compression"] = "LZW";
    info["Gamma"] = 2.2;
  }
  if (level & 0x80) {
    QEN_TList& refs = writer.ExternalRefs();
    if (realReferences) {
      refs.AddAtTail(
          QEN_TAny(VYR_TReference(QEN_TURL("file:///jobs/2024/logo.eps"), VYR_MM, 10.0, 20.0,
                                  "logo.eps", "application/postscript", "EPS", 1, -1)));
      refs.AddAtTail(
          QEN_TAny(VYR_TReference(QEN_TURL("file:///jobs/2024/cyan.tif"), VYR_Inch, 0.0, 0.0)));
    } else {
      refs.AddAtTail(QEN_TAny(QEN_TURL("file:///jobs/2024/logo.eps")));
      refs.AddAtTail(QEN_TAny(QEN_TURL("file:///jobs/2024/cyan.tif")));
    }
  }
  writer.SetFillLevel(level);
}

inline VYR_TImageTicket Sample(unsigned level, bool realReferences = true) {
  VYR_TImageTicket ticket;
  Fill(ticket, level, realReferences);
  return ticket;
}

// --- Proxies ----------------------------------------------------------------------

// A level-15 ticket of the sample file at an image position, of a type and
// related to another image of the file.
inline VYR_TImageTicket Image(unsigned char position, VYR_TImageType type, int related) {
  VYR_TImageTicket ticket = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter writer(ticket);
  writer.SetImagePosition(position);
  writer.SetImageType(type);
  writer.SetRelatedIndex(static_cast<unsigned>(related));
  return ticket;
}

// A proxy filled the way a reader of files fills one: through Tickets().
class ProxyBuilder : public VYR_TImageProxy {
 public:
  using VYR_TImageProxy::VYR_TImageProxy;
  QEN_TListKey* Add(const VYR_TImageTicket& ticket) {
    return Tickets().AddAtTail(QEN_TAny(ticket));
  }
  QEN_TList& List() { return Tickets(); }
};

// The tickets of one file: 0 the image, 1 its preview, 2 its icon, and 3 a
// preview of an image that is not in the file; the first one selected.
inline VYR_TImageProxy FourTickets() {
  ProxyBuilder proxy(Image(0, VYR_TypeImage, -1));
  proxy.Add(Image(1, VYR_TypePreview, 0));
  proxy.Add(Image(2, VYR_TypeIcon, 0));
  proxy.Add(Image(3, VYR_TypePreview, 7));
  return proxy;
}

// --- Streams --------------------------------------------------------------------

using test_support::Bytes;
using test_support::Extract;

// The ticket's own items, without the class identification in front.
inline Bytes PackBare(const VYR_TImageTicket& ticket) { return test_support::PackContent(ticket); }

inline void UnpackBare(const Bytes& bytes, VYR_TImageTicket& ticket) {
  test_support::UnpackContent(bytes, ticket);
}

// With the class identification: what a proxy or a metadata store holds.
inline Bytes PackObject(const QEN_IPackable& object) { return test_support::Pack(object); }

inline std::string WriteText(const VYR_TImageTicket& ticket) { return test_support::Write(ticket); }

inline void ReadText(const std::string& text, VYR_TImageTicket& ticket) {
  test_support::ReadInto(ticket, text);
}

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
      {0, 1, 2, 3, 4, false},
      {1, 2, 3, 4, 1, true},
      {2, 3, 4, 1, 2, false},
      {3, 4, 1, 2, 3, true},
      {4, 1, 4, 3, 2, false},
      {5, 4, 3, 2, 1, true},
      {6, 3, 2, 1, 4, false},
      {7, 2, 1, 4, 3, true},
      // Values outside the enumeration count as NotRotated.
      {8, 1, 2, 3, 4, false},
      {0xFFFFFFFFu, 1, 2, 3, 4, false},
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
    EXPECT_EQ(std::vector<double>(axes, axes + 4), row.swapsAxes
                                                       ? (std::vector<double>{72, 300, 8.5, 11})
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
      {0, 0, ""},
      {VYR_FillFileAssigned, 1, "F"},
      {VYR_FillFileType, 3, "FT"},
      {VYR_FillImageProcessor, 7, "FTP"},
      {VYR_FillBasicInfo, 15, "FTPB"},
      {VYR_FillExtendedInfo, 127, "FTPBE"},
      {VYR_FillFullInfo, 0x6FFF, "FTPBER"},
      {0xFFFFFFFFu, 0x6FFF, "FTPBER"},
      {0x8, 0x8, "B"},
      {0x80, 0x80, "R"},
      // Each of the three bits of ExtendedInfo brings it alone.
      {0x40, 0x40, "E"},
      {0x100, 0x100, "E"},
      {0x200, 0x200, "E"},
      {0x10 | 0x20, 0x30, ""},
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

TEST_F(TicketTest, FactoryCloneAndMove) {
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
  // The stored, rotated values, each of its own kind; the extended info's
  // entries at the top; no unrotated values and no private internal ones.
  const std::string text = test_support::Write(QEN_TDict(ticket));
  EXPECT_EQ(text, Golden("ticket_full_info_dict.txt", text));
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
  VYR_TReference fonts(
      VYR_EmbeddedFile(QEN_TURL("file:///jobs/fonts.bin?password=x"), 5, 0, 0, 0, 0), VYR_Inch, 0,
      0);
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
  writer.SetFileFormat("jfif");                                         // names are exact
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

// --- Stored forms -----------------------------------------------------------------

namespace {

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

std::string Listing(const VYR_TImageTicket& ticket) {
  std::ostringstream out;
  ticket.PrintOn(out);
  return out.str();
}

// Framed by its class name, as a ticket stands in a proxy's list.
std::string Framed(const QEN_IHumanReadable& object) {
  return test_support::Written([&](QEN_THumanReadableStream& out) { out.WriteObject(object); });
}

// The ticket that `object` is, or a failed assertion.
const VYR_TImageTicket& AsTicket(const std::unique_ptr<QEN_IInterface>& object) {
  static const VYR_TImageTicket none;
  const VYR_TImageTicket* ticket = object ? object->DynamicCast<VYR_TImageTicket>() : nullptr;
  EXPECT_NE(ticket, nullptr);
  return ticket ? *ticket : none;
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
    UnpackBare(PackBare(original), bare);
    EXPECT_TRUE(bare == original);
    std::unique_ptr<QEN_IInterface> rebuilt = Extract(PackObject(original));
    EXPECT_TRUE(AsTicket(rebuilt) == original);
    EXPECT_TRUE(AsTicket(rebuilt).QEN_IsIdent(original));
    ReadText(WriteText(original), read);
    EXPECT_TRUE(read == original) << WriteText(original);
    // Framed, as in a proxy's list, and rebuilt by class name.
    EXPECT_TRUE(AsTicket(test_support::ExtractAllText(Framed(original)).at(0)) == original);
  }
}

TEST_F(TicketTest, UnpackReplacesObjectsAndKeepsFieldsOutsideTheLevel) {
  VYR_TImageTicket target = Sample(VYR_FillFullInfo);
  UnpackBare(PackBare(Sample(VYR_FillExtendedInfo & ~0x340u)), target);
  EXPECT_EQ(target.FillLevel(), 0x3Fu);
  EXPECT_FALSE(target.HasExtendedInfo());
  EXPECT_FALSE(target.HasExternalRefs());

  // Level 127 with no ExtendedInfo: a false flag and a null pointer back.
  VYR_TImageTicket noInfo;
  VYR_TTicketWriter(noInfo).SetFillLevel(VYR_FillExtendedInfo);
  VYR_TImageTicket read = Sample(VYR_FillFullInfo);
  UnpackBare(PackBare(noInfo), read);
  EXPECT_FALSE(read.HasExtendedInfo());
  // The groups below were read; the references' bit was not, and they went.
  EXPECT_FALSE(read.HasExternalRefs());
  EXPECT_EQ(read.NrPages(), -1);

  VYR_TImageTicket fileOnly = Sample(VYR_FillFullInfo);
  UnpackBare(PackBare(Sample(VYR_FillFileAssigned)), fileOnly);
  EXPECT_EQ(fileOnly.FileFormat(), "TIFF");
  // The text reader, too, leaves the objects of levels it did not read.
  VYR_TImageTicket target2 = Sample(VYR_FillFullInfo);
  ReadText(WriteText(Sample(VYR_FillBasicInfo)), target2);
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
    UnpackBare(bytes, ticket);
    EXPECT_EQ(ticket.FillLevel(), row.level);
    // The version read stays; and the ticket is written back in its own form.
    EXPECT_EQ(static_cast<unsigned>(std::as_const(ticket).Internal("version")), row.version);
    EXPECT_EQ(PackBare(ticket) == bytes, row.sameBytes);
    VYR_TImageTicket again;
    UnpackBare(PackBare(ticket), again);
    EXPECT_TRUE(again == ticket);
  }
  // A level that the old form can't carry is written in today's form rather
  // than so that it reads back as another; in both forms.
  for (unsigned level : {2u, 4u, 5u, 6u}) {
    VYR_TImageTicket odd = Sample(level);
    VYR_TTicketWriter(odd).Internal("version") = 8500u;
    VYR_TImageTicket fromBinary, fromText;
    UnpackBare(PackBare(odd), fromBinary);
    ReadText(WriteText(odd), fromText);
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
  UnpackBare(PackBare(noVersion), read);
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
    VYR_TImageTicket ticket = Sample(row.second, false);
    std::string bin = Golden(std::string(row.first) + ".bin", AsString(PackObject(ticket)));
    EXPECT_EQ(AsString(PackObject(ticket)), bin);
    EXPECT_TRUE(AsTicket(Extract(AsBytes(bin))) == ticket);
    // The framed text form, as the ticket stands in a proxy's list.
    std::string text = Golden(std::string(row.first) + ".txt", Framed(ticket));
    EXPECT_EQ(Framed(ticket), text);
    EXPECT_TRUE(AsTicket(test_support::ExtractAllText(text).at(0)) == ticket);
  }
  // Written by an old build: version 8500, level ordinal 4.
  std::string old = Golden("ticket_v8500_level4.bin", AsString(HandPacked(4, 8500, 15)));
  EXPECT_EQ(AsString(HandPacked(4, 8500, 15)), old);
  VYR_TImageTicket ticket;
  UnpackBare(AsBytes(old), ticket);
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
  Bytes packed = PackObject(Sample(VYR_FillFullInfo));
  for (size_t length = 0; length < packed.size(); ++length) {
    Bytes cut(packed.begin(), packed.begin() + length);
    EXPECT_THROW(Extract(cut), QEN_EStreamException) << "length " << length;
  }
  Bytes bare = PackBare(Sample(VYR_FillFullInfo));
  for (size_t length = 0; length < bare.size(); length += 7) {
    VYR_TImageTicket ticket;
    EXPECT_THROW(UnpackBare(Bytes(bare.begin(), bare.begin() + length), ticket),
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
    EXPECT_THROW(UnpackBare(Bytes(memory.Data(), memory.Data() + memory.Length()), ticket),
                 QEN_EStreamException);
    EXPECT_FALSE(ticket.HasExternalRefs());
    EXPECT_EQ(ticket.FillLevel(), 0x80u);
  }
  // A level variant of another kind is a stream that doesn't fit, in the
  // bare form and through Extract, where the failure names its offset.
  const QEN_TAny levels[] = {QEN_TAny(2.5), QEN_TAny(-(1LL << 40)), QEN_TAny(QEN_TList()),
                             QEN_TAny(QEN_TString("x"))};
  const VYR_TImageTicket empty;
  Bytes header = PackObject(empty);
  header.resize(header.size() - PackBare(empty).size());  // the marker and class name
  for (const QEN_TAny& level : levels) {
    QEN_TMemoryStream memory;
    QEN_TDataStream out(memory);
    out << level << QEN_TDict() << QEN_TString();
    out.Flush();
    Bytes bare(memory.Data(), memory.Data() + memory.Length());
    Bytes whole = header;
    whole.insert(whole.end(), bare.begin(), bare.end());
    VYR_TImageTicket ticket;
    EXPECT_THROW(UnpackBare(bare, ticket), QEN_EStreamException);
    try {
      Extract(whole);
      ADD_FAILURE() << "read";
    } catch (const QEN_EStreamException& e) {
      EXPECT_NE(std::string(e.QEN_Message().c_str()).find("offset"), std::string::npos);
    }
  }
}

// --- Text form --------------------------------------------------------------------

TEST_F(TicketTest, TextOfAFullInfoTicketWithoutItsObjects) {
  // A FullInfo ticket without its two objects says so on lines 4 and 5.
  VYR_TImageTicket bare = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(bare).SetFillLevel(VYR_FillFullInfo);
  std::string text = WriteText(bare);
  EXPECT_EQ(text.substr(0, text.find("3\n1\n")),
            "28671\nQEN_TDict { \"version\" = 11014; }\n\"vyrax tests\"\nNULL\nNULL\n");
  VYR_TImageTicket read = Sample(VYR_FillFullInfo);
  ReadText(text, read);
  EXPECT_FALSE(read.HasExtendedInfo());
  EXPECT_FALSE(read.HasExternalRefs());
  EXPECT_TRUE(read == bare);
}

TEST_F(TicketTest, WhiteSpaceAroundTheCommas) {
  const std::string text = WriteText(Sample(VYR_FillBasicInfo));
  struct Row {
    const char* prefix;
    const char* line;
    bool reads;
  };
  const Row rows[] = {
      {"RES", "RES 300,150.5", true},
      {"RES", "RES   300,    \t 150.5", true},
      {"RES", "RES 300 , 150.5", false},
      {"RES", "RES 300; 150.5", false},
      {"RES", "RESOLUTION 300, 150.5", false},
      {"11,", "11,8.25", true},
      {"11,", "11 ,8.25", false},
      {"PIX", "PIX 3300,1242", true},
      {"PIX", "PIX 3300 ,1242", false},
      {"PIX", "PIX -1, 1242", false},
      {"MAR", "MAR 0.125,0.25,0.375,0.5", true},
      {"MAR", "MAR 0.125, 0.25 , 0.375\t, 0.5", true},
      {"MAR", "MAR 0.125 , 0.25, 0.375, 0.5", false},
      {"MAR", "MAR 0.125, 0.25, 0.375 0.5", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    VYR_TImageTicket ticket;
    std::string changed = WithLine(text, row.prefix, row.line);
    ASSERT_NE(changed, text);
    if (row.reads) {
      ReadText(changed, ticket);
      EXPECT_TRUE(ticket == Sample(VYR_FillBasicInfo));
    } else {
      EXPECT_THROW(ReadText(changed, ticket), QEN_ESyntaxError);
    }
  }
}

TEST_F(TicketTest, ReaderKnowsItsOwnNamesOnly) {
  const std::string text = WriteText(Sample(VYR_FillBasicInfo));
  struct Row {
    const char* prefix;
    const char* line;
  };
  // Written names the reader's tables lack, and names of undefined values.
  const Row rows[] = {{"Image", "Production"},      {"Image", "UndefinedImageType"},
                      {"Image", "image"},           {"CT", "UndefinedImageSubtype"},
                      {"Inch", "UnknownUnits"},     {"Cmyk", "YCbCrK"},
                      {"AlphaPre", "AlphaUnknown"}, {"AlphaPre", "UndefinedAlphaPlane"},
                      {"Rot270", "UnknownRotation"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    VYR_TImageTicket ticket;
    EXPECT_THROW(ReadText(WithLine(text, row.prefix, row.line), ticket), QEN_ESyntaxError);
  }
  // The reader's own spelling of an unknown alpha plane.
  VYR_TImageTicket unknownAlpha;
  ReadText(WithLine(text, "AlphaPre", "UnknownAlpha"), unknownAlpha);
  EXPECT_EQ(unknownAlpha.AlphaPlane(), VYR_AlphaUnknown);

  // A Production image writes fine and fails at its line.
  VYR_TImageTicket production = Sample(VYR_FillBasicInfo);
  VYR_TTicketWriter(production).SetImageType(VYR_TypeProduction);
  std::string written = WriteText(production);
  EXPECT_NE(written.find("\nProduction\n"), std::string::npos);
  VYR_TImageTicket read;
  try {
    ReadText(written, read);
    FAIL() << "no exception";
  } catch (const QEN_ESyntaxError& e) {
    EXPECT_NE(std::string(e.QEN_Message().c_str()).find("line 6"), std::string::npos)
        << e.QEN_Message().c_str();
  }
}

TEST_F(TicketTest, TextOfOldTicketsConvertsTheLevel) {
  // Version 8000, level 5 in the text: an ExtendedInfo ticket.
  VYR_TImageTicket ticket;
  std::string text = WriteText(Sample(VYR_FillExtendedInfo));
  text = "5" + text.substr(text.find('\n'));
  text.replace(text.find("11014"), 5, "8000");
  ReadText(text, ticket);
  EXPECT_EQ(ticket.FillLevel(), 127u);
  EXPECT_TRUE(ticket.HasExtendedInfo());
  // Written back in the same form.
  EXPECT_EQ(WriteText(ticket), text);
}

TEST_F(TicketTest, DamagedTextIsASyntaxErrorOrAShorterTicket) {
  const std::string text = WriteText(Sample(VYR_FillFullInfo));
  for (size_t length = 0; length < text.size(); ++length) {
    VYR_TImageTicket ticket;
    try {
      ReadText(text.substr(0, length), ticket);
      // Only a cut inside the last number can still read.
      EXPECT_GT(length, text.rfind('\n')) << "length " << length;
    } catch (const QEN_EException&) {
    }
  }
  VYR_TImageTicket ticket;
  EXPECT_THROW(ReadText("28671\nQEN_TDict {}\n\"\"\n* QEN_TString { \"x\" }\n", ticket),
               QEN_ESyntaxError);
  EXPECT_THROW(ReadText("128\nQEN_TDict {}\n\"\"\n+ QEN_TDict {}\n", ticket), QEN_ESyntaxError);
  EXPECT_THROW(ReadText("128\nQEN_TDict {}\n\"\"\n* NoSuchClass {}\n", ticket), QEN_EException);
}

// --- Listing ----------------------------------------------------------------------

TEST_F(TicketTest, ListingShowsOnlyTheLevelsGroups) {
  VYR_TImageTicket processor = Sample(VYR_FillImageProcessor);
  VYR_TTicketWriter(processor).ExtendedInfo()["x"] = 1u;
  std::string listing = Listing(processor);
  EXPECT_NE(listing.find("ImageProcessor: TiffReader"), std::string::npos);
  EXPECT_EQ(listing.find("ImageType"), std::string::npos);
  EXPECT_EQ(listing.find("ExtendedInfo"), std::string::npos);

  VYR_TImageTicket extended;
  VYR_TTicketWriter writer(extended);
  writer.ExtendedInfo()["Name"] = "plate";
  writer.ExtendedInfo()["Bits"] = static_cast<unsigned char>(8);
  writer.ExternalRefs().AddAtTail(QEN_TAny(static_cast<unsigned char>(7)));
  writer.SetFillLevel(0x40 | 0x80);
  listing = Listing(extended);
  std::string block = listing.substr(listing.find("  ExtendedInfo: DICT"));
  EXPECT_EQ(block,
            "  ExtendedInfo: DICT\n  {\n    [Name] = plate\n    [Bits] = 8\n  }\n"
            "  ExternalRefs: LIST\n  {\n7\n  }\n}\n");
}

// --- The proxy's forms ------------------------------------------------------------------

namespace {

const VYR_TImageProxy& AsProxy(const std::unique_ptr<QEN_IInterface>& object) {
  static const VYR_TImageProxy none;
  const VYR_TImageProxy* proxy = object ? object->DynamicCast<VYR_TImageProxy>() : nullptr;
  EXPECT_NE(proxy, nullptr);
  return proxy ? *proxy : none;
}

}  // namespace

TEST_F(TicketTest, ProxyGoldenFilesKeepTheSelectionAsAnIndex) {
  VYR_TImageProxy selected = FourTickets(), unselected = FourTickets(), empty;
  selected.Select(2u);
  unselected.Select(static_cast<const QEN_TListKey*>(nullptr));
  const std::pair<const char*, const VYR_TImageProxy*> rows[] = {
      {"proxy_empty", &empty}, {"proxy_selected", &selected}, {"proxy_unselected", &unselected}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.first);
    const VYR_TImageProxy& proxy = *row.second;
    std::string bin = Golden(std::string(row.first) + ".bin", AsString(PackObject(proxy)));
    EXPECT_EQ(AsString(PackObject(proxy)), bin);
    const auto fromBytes = Extract(AsBytes(bin));
    EXPECT_TRUE(AsProxy(fromBytes) == proxy);  // the index takes part
    std::string text = Golden(std::string(row.first) + ".txt", Framed(proxy));
    EXPECT_EQ(Framed(proxy), text);
    EXPECT_TRUE(AsProxy(test_support::ExtractAllText(text).at(0)) == proxy);
  }
}

TEST_F(TicketTest, DamagedProxyIsAnExceptionAndLeavesTheProxyWhole) {
  const VYR_TImageProxy proxy = FourTickets();
  Bytes packed = PackObject(proxy);
  for (size_t length = 0; length < packed.size(); ++length)
    EXPECT_THROW(Extract(Bytes(packed.begin(), packed.begin() + length)), QEN_EStreamException)
        << "length " << length;
  VYR_TImageProxy target = FourTickets();
  const std::string text = test_support::Write(proxy);
  // Whole up to the index, and no shorter.
  for (size_t length = 0; length + 1 < text.size(); length += 5)
    EXPECT_THROW(test_support::ReadInto(target, text.substr(0, length)), QEN_EStreamException)
        << "length " << length;
  // A list of something else than tickets is no proxy, in either form.
  ProxyBuilder stray(Image(0, VYR_TypeImage, -1));
  stray.List().AddAtTail(QEN_TAny(QEN_TURL("file:///not/a/ticket.tif")));
  EXPECT_THROW(test_support::UnpackContent(test_support::PackContent(stray), target),
               QEN_EStreamException);
  EXPECT_THROW(test_support::ReadInto(target, test_support::Write(stray)), QEN_ESyntaxError);
  EXPECT_TRUE(target == proxy);
}
