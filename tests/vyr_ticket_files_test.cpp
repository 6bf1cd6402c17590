// The ticket held against real files and processes: validity, binding to a
// file, and readiness while another process writes the file or what it needs.
#include <chrono>
#include <thread>

#include "metadata_test_support.h"
#include "ticket_test_support.h"

namespace {

using buffertest::TempDir;
using metadatatest::LockHolder;
using metadatatest::SetModificationTime;
using metadatatest::UrlOf;

std::string NewFile(const TempDir& dir, const std::string& name) {
  return buffertest::WriteFile(dir.File(name), buffertest::Pattern(5000));
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

// IsImageReady asked by a process of another user, to whom the kernel
// refuses leases on these files: 1 ready, 0 not ready, -1 no answer.
int ReadyToAnotherUser(const VYR_TImageTicket& ticket) {
  const int status = metadatatest::Wait(metadatatest::Spawn([&] {
    if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) return 2;
    return ticket.IsImageReady() ? 0 : 1;
  }));
  return status == 0 || status == 1 ? 1 - status : -1;
}

}  // namespace

TEST_F(TicketTest, ValidWhileTheFileKeepsItsVersionAndTimeStamp) {
  TempDir dir;
  const std::string path = NewFile(dir, "cover.tif");
  ASSERT_TRUE(SetModificationTime(path, 1708036934, 123456000));
  VYR_TImageTicket ticket = BoundTo(UrlOf(path));
  EXPECT_EQ(ticket.FileTimeStamp().AsMicros(), 1708036934123456LL);
  EXPECT_TRUE(ticket.IsTicketValid());
  // A microsecond later is another file.
  ASSERT_TRUE(SetModificationTime(path, 1708036934, 123457000));
  EXPECT_FALSE(ticket.IsTicketValid());
  ASSERT_TRUE(SetModificationTime(path, 1708036934, 123456000));
  VYR_TTicketWriter(ticket).Internal().Remove("version");
  EXPECT_FALSE(ticket.IsTicketValid());
  EXPECT_TRUE(VYR_TImageTicket().IsTicketValid());  // no file: the version alone

  // The proxy's SmartID is the file's, unless the ticket names one.
  VYR_TImageTicket named = BoundTo(UrlOf(path));
  EXPECT_EQ(VYR_TImageProxy(named).SmartID(), QEN_TFileInfo(UrlOf(path), true).SmartID());
  VYR_TTicketWriter(named).ExtendedInfo()["SmartID"] = 77u;
  EXPECT_EQ(VYR_TImageProxy(named).SmartID(), 77u);

  // An embedded image is held against its container.
  VYR_TImageTicket embedded = BoundTo(VYR_EmbeddedFile(UrlOf(path), 4, 2, 0, 0, 0));
  EXPECT_TRUE(embedded.IsTicketValid());
  ASSERT_TRUE(SetModificationTime(path, 1, 0));
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
    EXPECT_TRUE(ticket.FileSize() == row.second &&
                ticket.FileTimeStamp() == info.ModificationTime())
        << row.first.AsString().c_str();
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
  for (const std::string& held : {image, logo}) {
    {
      LockHolder writer(held, LockHolder::kWriting);
      ASSERT_TRUE(writer.Held());
      EXPECT_FALSE(ticket.IsImageReady()) << held;
      EXPECT_EQ(embedded.IsImageReady(), held != image);  // tested on its container
    }
    EXPECT_TRUE(ticket.IsImageReady()) << held;
  }
  // A missing file, a folder, references not filled in.
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
  LockHolder reader(dir.File("cover.tif"), LockHolder::kShared);  // a reader of this library
  ASSERT_TRUE(reader.Held());
  EXPECT_EQ(ReadyToAnotherUser(ticket), 0);
}
