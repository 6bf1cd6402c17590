// Time stamps and archive data of the metadata front, on the side-car
// backend, with the data file's modification time moved by utimensat; and
// relocatable objects of a small class of this test.
#include "metadata_test_support.h"

namespace {

using metadatatest::SetModificationTime;
using metadatatest::Store;
using metadatatest::UrlOf;
using metadatatest::ValueOf;
using metadatatest::WriteFile;

// An object that refers to a file by its URL text and follows it when the
// file moves, unless told that it cannot or it refuses.
class Placement : public QEN_TObject,
                  public virtual QEN_IPackable,
                  public virtual VYR_IRelocatable {
  QEN_VALUE_FRAME(Placement)

 public:
  Placement() = default;
  Placement(const QEN_TString& file, bool canRelocate, bool refuses = false)
      : mFile(file), mCanRelocate(canRelocate), mRefuses(refuses) {}
  bool operator==(const Placement& o) const {
    return mFile == o.mFile && mCanRelocate == o.mCanRelocate && mRefuses == o.mRefuses;
  }
  bool Relocate(QEN_TURL const& from, QEN_TURL const& to) override {
    if (mRefuses) return false;
    if (mFile == from.AsString()) mFile = to.AsString();
    return true;
  }
  bool CanRelocate() const override { return mCanRelocate; }

  void QEN_Pack(QEN_IPacking& out) const override { out << mFile << mCanRelocate << mRefuses; }
  void QEN_Unpack(QEN_IUnpacking& in) override { in >> mFile >> mCanRelocate >> mRefuses; }

  QEN_TString mFile;
  bool mCanRelocate = true;
  bool mRefuses = false;
};

QEN_DEFINE_VALUE(Placement, QEN_TObject, QEN_IPackable, VYR_IRelocatable)

// A front that notes the calls of its hook.
class Recording : public VYR_TMetadata {
 public:
  explicit Recording(const QEN_TURL& file) : VYR_TMetadata(file) {}
  unsigned posts = 0;

 protected:
  void PostSetArchiveData(QEN_TDict const&, QEN_TURL const&, QEN_TURL const&) override { ++posts; }
};

constexpr long long kSecond = 1700000000;

class TimestampTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
    // Extract finds the class by name once it is registered.
    ASSERT_NE(nullptr, Placement::QEN_ClassObject());
  }
  void SetUp() override {
    ASSERT_TRUE(mDir.Ok());
    mData = WriteFile(mDir.File("page1.tif"), "image bytes");
    ASSERT_TRUE(SetModificationTime(mData, kSecond, 250000000));
  }
  // The stored stamps, as a dictionary; empty when there are none.
  QEN_TDict StoredStamps() {
    VYR_TMetadata reader(UrlOf(mData));
    std::unique_ptr<QEN_IPackable> object(reader.GetKeyObject("TIMESTAMP"));
    const QEN_TDict* stamps = object ? object->DynamicCast<QEN_TDict>() : nullptr;
    return stamps != nullptr ? *stamps : QEN_TDict();
  }

  metadatatest::TempDir mDir;
  std::string mData;
};

QEN_TTime TimeOf(const QEN_TDict& stamps) {
  const QEN_TAny* time = stamps.Lookup("_FILE_");
  const QEN_TTime* value = time != nullptr ? time->DynamicCast<QEN_TTime>() : nullptr;
  return value != nullptr ? *value : QEN_TTime();
}

TEST_F(TimestampTest, AStampGoesStaleWhenTheFileChanges) {
  VYR_TMetadata metadata(UrlOf(mData));
  // Asking stores nothing.
  EXPECT_EQ(VYR_KeyUnknown, metadata.VerifyTimestamp("A"));
  EXPECT_FALSE(metadata.HasAnyKey());

  EXPECT_TRUE(metadata.SetTimestamp("A"));
  EXPECT_EQ(VYR_KeyEqual, metadata.VerifyTimestamp("A"));
  // Stamp keys are taken as given, not normalised.
  EXPECT_EQ(VYR_KeyUnknown, metadata.VerifyTimestamp("a"));
  EXPECT_EQ(QEN_TTime::FromSeconds(kSecond, 250000), TimeOf(StoredStamps()));

  ASSERT_TRUE(SetModificationTime(mData, kSecond + 60, 500000000));
  EXPECT_EQ(VYR_KeyDifferent, metadata.VerifyTimestamp("A"));
  EXPECT_EQ(VYR_KeyUnknown, metadata.VerifyTimestamp("B"));
  // The stale entries reach the store only with the next stamp.
  std::unique_ptr<QEN_TDict> listed(metadata.ListTimestamps());
  EXPECT_FALSE(listed->Lookup("A")->AsBool());
  EXPECT_TRUE(StoredStamps().Lookup("A")->AsBool());

  EXPECT_TRUE(metadata.SetTimestamp("B"));
  QEN_TDict stored = StoredStamps();
  EXPECT_EQ(3u, stored.Entries());
  EXPECT_EQ(QEN_TTime::FromSeconds(kSecond + 60, 500000), TimeOf(stored));
  EXPECT_FALSE(stored.Lookup("A")->AsBool());
  EXPECT_TRUE(stored.Lookup("B")->AsBool());

  // A data file that is gone cannot be stamped.
  VYR_TMetadata gone(UrlOf(mDir.File("gone.tif")));
  EXPECT_THROW(gone.SetTimestamp("A"), QEN_EFileException);
  EXPECT_THROW(gone.VerifyTimestamp("A"), QEN_EFileException);
}

TEST_F(TimestampTest, WholeSecondsMatchAnyFractionOfTheSameSecond) {
  // Stamped at one time, checked at another (microseconds, in ns).
  const struct {
    long stampedNs;
    long long checkedSecond;
    long checkedNs;
    VYR_TVerifyStatus status;
  } cases[] = {
      {0, kSecond, 123456000, VYR_KeyEqual},
      {0, kSecond + 1, 123456000, VYR_KeyDifferent},
      {654321000, kSecond, 0, VYR_KeyEqual},
      {654321000, kSecond, 654322000, VYR_KeyDifferent},
  };
  VYR_TMetadata metadata(UrlOf(mData));
  for (const auto& c : cases) {
    ASSERT_TRUE(metadata.RemoveAll());
    ASSERT_TRUE(SetModificationTime(mData, kSecond, c.stampedNs));
    ASSERT_TRUE(metadata.SetTimestamp("A"));
    ASSERT_TRUE(SetModificationTime(mData, c.checkedSecond, c.checkedNs));
    EXPECT_EQ(c.status, metadata.VerifyTimestamp("A")) << c.stampedNs << " " << c.checkedNs;
  }
}

TEST_F(TimestampTest, StampsOfAnotherFormCountAsNone) {
  VYR_TMetadata metadata(UrlOf(mData));
  // Bytes that are no packed object at all: the next stamp repairs them.
  ASSERT_TRUE(Store(metadata, "TIMESTAMP", "\x05 not a packed object"));
  EXPECT_EQ(VYR_KeyUnknown, metadata.VerifyTimestamp("A"));
  EXPECT_TRUE(metadata.SetTimestamp("A"));
  EXPECT_EQ(VYR_KeyEqual, metadata.VerifyTimestamp("A"));
  ASSERT_TRUE(metadata.SetKeyObject("TIMESTAMP", VYR_TTag(1ULL, 2ULL), true));
  EXPECT_EQ(VYR_KeyUnknown, metadata.VerifyTimestamp("A"));
  QEN_TDict noTime;
  noTime.Add(QEN_TString("A"), QEN_TAny(true));
  ASSERT_TRUE(metadata.SetKeyObject("TIMESTAMP", noTime, true));
  EXPECT_EQ(VYR_KeyUnknown, metadata.VerifyTimestamp("A"));
  EXPECT_TRUE(metadata.SetTimestamp("B"));
  EXPECT_EQ(2u, StoredStamps().Entries());
}

// --- Archive data -------------------------------------------------------------------

TEST_F(TimestampTest, ArchiveDataDropsWhatCannotFollowTheFileOrIsStale) {
  VYR_TMetadata metadata(UrlOf(mData));
  const QEN_TString where = UrlOf(mData).AsString();
  ASSERT_TRUE(metadata.SetKeyObject("stale", Placement(where, true), true));
  ASSERT_TRUE(metadata.SetKeyObject("fresh", Placement(where, true), true));
  ASSERT_TRUE(metadata.SetKeyObject("unstamped", Placement(where, true), true));
  ASSERT_TRUE(metadata.SetKeyObject("stuck", Placement(where, false), true));
  ASSERT_TRUE(metadata.SetKeyObject("tag", VYR_TTag(1ULL, 2ULL), true));
  ASSERT_TRUE(Store(metadata, "raw", "raw bytes"));
  ASSERT_TRUE(metadata.SetTimestamp("STALE"));
  ASSERT_TRUE(SetModificationTime(mData, kSecond + 5, 0));
  ASSERT_TRUE(metadata.SetTimestamp("FRESH"));

  QEN_TDict archive = metadata.GetArchiveData();
  for (const char* dropped : {"STALE", "STUCK"}) EXPECT_EQ(nullptr, archive.Lookup(dropped));
  for (const char* kept : {"FRESH", "UNSTAMPED", "TAG", "TIMESTAMP"})
    EXPECT_NE(nullptr, archive.Lookup(kept)) << kept;
  ASSERT_NE(nullptr, archive.Lookup("RAW"));
  EXPECT_NE(nullptr, archive.Lookup("RAW")->DynamicCast<VYR_TBuffer>());
  EXPECT_EQ(5u, archive.Entries());
}

TEST_F(TimestampTest, SetArchiveDataReplacesTheStoreAndRestampsMovedObjects) {
  const std::string newData = WriteFile(mDir.File("page2.tif"), "moved");
  ASSERT_TRUE(SetModificationTime(newData, kSecond + 100, 0));
  const QEN_TURL from = UrlOf(mData);
  const QEN_TURL to = UrlOf(newData);

  QEN_TDict data;
  data.Add(QEN_TString("PLACE"), QEN_TAny(Placement(from.AsString(), true)));
  data.Add(QEN_TString("RAW"), QEN_TAny(VYR_TBuffer(3, "abc", true)));
  data.Add(QEN_TString("TAG"), QEN_TAny(VYR_TTag(5ULL, 6ULL)));
  QEN_TDict oldStamps;
  oldStamps.Add(QEN_TString("_FILE_"), QEN_TAny(QEN_TTime::FromSeconds(1, 0)));
  oldStamps.Add(QEN_TString("OLD"), QEN_TAny(true));
  data.Add(QEN_TString("TIMESTAMP"), QEN_TAny(oldStamps));

  Recording target(to);
  ASSERT_TRUE(Store(target, "LEFTOVER", "goes"));
  EXPECT_TRUE(target.SetArchiveData(data, from, to));
  EXPECT_EQ(1u, target.posts);

  // The caller's stamps got the file's time; the store's stamps are new.
  const QEN_TDict* callerStamps = data.Lookup("TIMESTAMP")->DynamicCast<QEN_TDict>();
  ASSERT_NE(nullptr, callerStamps);
  EXPECT_EQ(QEN_TTime::FromSeconds(kSecond + 100, 0), TimeOf(*callerStamps));

  VYR_TMetadata reader(to);
  EXPECT_EQ("<none>", ValueOf(reader, "LEFTOVER"));
  EXPECT_EQ("abc", ValueOf(reader, "RAW"));
  std::unique_ptr<QEN_IPackable> place(reader.GetKeyObject("PLACE"));
  ASSERT_NE(nullptr, place);
  EXPECT_EQ(to.AsString(), place->DynamicCast<Placement>()->mFile);
  std::unique_ptr<QEN_IPackable> tag(reader.GetKeyObject("TAG"));
  EXPECT_TRUE(tag && tag->QEN_IsIdent(VYR_TTag(5ULL, 6ULL)));
  EXPECT_EQ(VYR_KeyEqual, reader.VerifyTimestamp("PLACE"));
  EXPECT_EQ(VYR_KeyUnknown, reader.VerifyTimestamp("OLD"));
  EXPECT_EQ(VYR_KeyUnknown, reader.VerifyTimestamp("TAG"));
}

TEST_F(TimestampTest, SetArchiveDataStopsAtTheFirstFailure) {
  const QEN_TURL here = UrlOf(mData);
  QEN_TDict data;
  data.Add(QEN_TString("FIRST"), QEN_TAny(VYR_TTag(1ULL, 1ULL)));
  data.Add(QEN_TString("REFUSES"), QEN_TAny(Placement(here.AsString(), true, true)));
  data.Add(QEN_TString("LAST"), QEN_TAny(VYR_TTag(2ULL, 2ULL)));
  Recording metadata(here);
  ASSERT_TRUE(Store(metadata, "OLD", "old"));
  EXPECT_FALSE(metadata.SetArchiveData(data, here, here));
  EXPECT_EQ(1u, metadata.posts);
  VYR_TMetadata reader(here);
  EXPECT_EQ((std::vector<std::string>{"FIRST"}), metadatatest::Keys(reader.GetAllKeys()));
}

TEST_F(TimestampTest, MoveKeepsPlainValuesAndDropsTheOldStamps) {
  VYR_TMetadata metadata(UrlOf(mData));
  ASSERT_TRUE(metadata.SetKeyObject("tag", VYR_TTag(3ULL, 4ULL), true));
  ASSERT_TRUE(Store(metadata, "raw", "bytes"));
  ASSERT_TRUE(metadata.SetTimestamp("TAG"));
  const QEN_TURL other = UrlOf(mDir.File("elsewhere.tif"));
  EXPECT_TRUE(metadata.Move(UrlOf(mData), other));

  VYR_TMetadata reader(UrlOf(mData));
  EXPECT_EQ((std::vector<std::string>{"TAG", "RAW"}), metadatatest::Keys(reader.GetAllKeys()));
  EXPECT_EQ("bytes", ValueOf(reader, "raw"));

  // A relocatable object follows the move and is stamped for the file.
  ASSERT_TRUE(metadata.SetKeyObject("place", Placement(UrlOf(mData).AsString(), true), true));
  ASSERT_TRUE(metadata.Move(UrlOf(mData), other));
  reader.Rescan();
  std::unique_ptr<QEN_IPackable> place(reader.GetKeyObject("PLACE"));
  ASSERT_NE(nullptr, place);
  EXPECT_EQ(other.AsString(), place->DynamicCast<Placement>()->mFile);
  EXPECT_EQ(VYR_KeyEqual, reader.VerifyTimestamp("PLACE"));
}

}  // namespace
