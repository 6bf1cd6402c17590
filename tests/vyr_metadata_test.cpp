// The metadata front: key normalisation, objects as values, GetAll with its
// raw-bytes fallback and copies, over both stores; time
// stamps and archive data; and the choice of backend by the environment (in
// fresh child processes, since it is made once per process).
#include <cstdlib>

#include "metadata_test_support.h"

namespace {

using metadatatest::BytesOf;
using metadatatest::Keys;
using metadatatest::SetModificationTime;
using metadatatest::Store;
using metadatatest::UrlOf;
using metadatatest::ValueOf;
using metadatatest::WriteFile;

class MetadataTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__()); }
  void SetUp() override {
    ASSERT_TRUE(mDir.Ok());
    mData = metadatatest::WriteFile(mDir.File("page1.tif"), "image bytes");
  }

  metadatatest::TempDir mDir;
  std::string mData;
};

// Runs only the tests of `filter` of this binary in a fresh process, with
// VYR_EMULATE_METADATA set to `emulate` (null: unset) and `name` to `value`;
// the child's exit status.
int RunAlone(const std::string& filter, const char* emulate, const char* name,
             const std::string& value) {
  const pid_t child = ::fork();
  if (child == 0) {
    emulate ? setenv("VYR_EMULATE_METADATA", emulate, 1) : unsetenv("VYR_EMULATE_METADATA");
    setenv(name, value.c_str(), 1);
    execl("/proc/self/exe", "vyr_metadata_test", ("--gtest_filter=" + filter).c_str(),
          static_cast<char*>(nullptr));
    ::_exit(127);
  }
  return metadatatest::Wait(child);
}

// The contract of the front, over each store. The store is chosen once per
// process from the environment: the side-car store is the default, and the
// attribute store's cases run in a fresh process of this binary that runs
// only the case, with the variable set.
const char kAttributes[] = "attributes";
const char kContractChild[] = "VYR_METADATA_CONTRACT_CHILD";

class MetadataContract : public MetadataTest, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    MetadataTest::SetUp();
    if (!Attributes() || std::getenv(kContractChild) != nullptr) {
      const std::unique_ptr<VYR_IMetadata> probe(VYR_IMetadata::CreateAccessObject(UrlOf(mData)));
      ASSERT_STREQ(Attributes() ? "VYR_TEA" : "VYR_TFileMetadata", probe->ClassName());
      return;
    }
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    EXPECT_EQ(0, RunAlone(std::string(test->test_suite_name()) + "." + test->name(), "off",
                          kContractChild, "1"))
        << "the case failed on the attribute store";
    mRanInChild = true;
  }
  bool Attributes() const { return GetParam() == std::string(kAttributes); }
  // Whether the case ran in its own process, and the body has nothing left to do here.
  bool mRanInChild = false;
};

INSTANTIATE_TEST_SUITE_P(Stores, MetadataContract, ::testing::Values("side-car", kAttributes),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param) == kAttributes ? "Attributes" : "SideCar";
                         });

TEST(NormalizeKey, KeepsUpperCaseLettersAndUnderscoresUpTo256Characters) {
  const QEN_TUniChar withNull[] = {u'a', u'b', 0, u'c', u'd'};
  // Above ASCII, in the C locale: U+0141 ends in 0x41 ('A'), U+0161 in 0x61
  // ('a', not upper case), U+00E9 is above 0x7F.
  const QEN_TUniChar above[] = {0x0141, 0x0161, 0x00E9, u'x'};
  std::string longKey(300, 'k');
  longKey[255] = 'z';
  longKey[256] = 'y';
  const struct {
    QEN_TString key;
    std::string normalized;
  } cases[] = {
      {"Print size 1", "PRINT_SIZE__"},
      {"0-9.!", "_____"},
      {QEN_TString(withNull, 5), "AB"},
      {QEN_TString(above, 4), "A__X"},
      {longKey.c_str(), std::string(255, 'K') + "Z"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.normalized, VYR_TMetadata::NormalizeKey(c.key).c_str()) << c.normalized;
}

TEST_P(MetadataContract, NormalisedKeysObjectsAndRawBytesComeBack) {
  if (mRanInChild) return;
  VYR_TMetadata metadata(UrlOf(mData));
  ASSERT_TRUE(Store(metadata, "a1", "one"));
  ASSERT_TRUE(Store(metadata, "a2", "two"));
  EXPECT_EQ("two", ValueOf(metadata, "a1"));
  EXPECT_TRUE(metadata.RemoveKey("A_"));
  EXPECT_EQ("<none>", ValueOf(metadata, "a2"));
  ASSERT_TRUE(metadata.SetKeyValue("greeting", VYR_TBuffer(5, "hello", true), true));
  EXPECT_EQ("hello", ValueOf(metadata, "GREETING"));
  VYR_TTag tag(0x100000002ULL, 0x300000004ULL);
  ASSERT_TRUE(metadata.SetKeyObject("tag", tag, true));
  ASSERT_TRUE(Store(metadata, "raw", std::string("\x01\x02no object", 11)));
  EXPECT_EQ((std::vector<std::string>{"GREETING", "TAG", "RAW"}), Keys(metadata.GetAllKeys()));

  // A second object reads them from the file.
  std::unique_ptr<QEN_IPackable> gotTag(VYR_TMetadata(UrlOf(mData)).GetKeyObject("Tag"));
  EXPECT_TRUE(gotTag && gotTag->QEN_IsIdent(tag));
  // Bytes that are no packed object throw when read as one, and arrive as
  // they are in GetAll, which goes on with the next key.
  EXPECT_THROW(std::unique_ptr<QEN_IPackable>(metadata.GetKeyObject("raw")), QEN_EException);
  QEN_TDict all = metadata.GetAll();
  EXPECT_EQ(3u, all.Entries());
  ASSERT_TRUE(all.Lookup("TAG") != nullptr && all.Lookup("RAW") != nullptr);
  EXPECT_TRUE(all.Lookup("TAG")->Object() && all.Lookup("TAG")->Object()->QEN_IsIdent(tag));
  const VYR_TBuffer* buffer = all.Lookup("RAW")->DynamicCast<VYR_TBuffer>();
  ASSERT_NE(nullptr, buffer);
  // The raw bytes are a copy: they outlive a new reading of the store.
  metadata.Rescan();
  EXPECT_EQ(std::string("\x01\x02no object", 11), BytesOf(buffer));

  EXPECT_TRUE(metadata.RemoveAll());
  EXPECT_FALSE(metadata.HasAnyKey());
  EXPECT_FALSE(metadatatest::Exists(mDir.File(".metadata/.page1.tif.info")));
}

TEST_P(MetadataContract, CopiesAreIndependentViewsOfTheSameStore) {
  if (mRanInChild) return;
  auto original = std::make_unique<VYR_TMetadata>(UrlOf(mData));
  ASSERT_TRUE(Store(*original, "kept", "before copy"));
  original->Rescan();
  Store(*original, "memory", "not committed", false);

  // A copy reads the store afresh: what was not committed is not there.
  auto copy = std::make_unique<VYR_TMetadata>(*original);
  EXPECT_EQ("before copy", ValueOf(*copy, "kept"));
  EXPECT_EQ("<none>", ValueOf(*copy, "memory"));
  ASSERT_TRUE(Store(*copy, "added", "by the copy"));
  original->Rescan();
  EXPECT_EQ("by the copy", ValueOf(*original, "added"));
  EXPECT_EQ("<none>", ValueOf(*original, "memory"));  // a new reading drops what was not committed
  // Destroyed in either order.
  original.reset();
  EXPECT_EQ("by the copy", ValueOf(*copy, "added"));

  // Assignment moves the target to the other's file; self-assignment is harmless.
  VYR_TMetadata other(UrlOf(metadatatest::WriteFile(mDir.File("other.tif"), "x")));
  ASSERT_TRUE(Store(other, "other", "value"));
  VYR_TMetadata target(UrlOf(mData));
  target = other;
  target = target;
  EXPECT_EQ("value", ValueOf(target, "other"));
  // A front without a store only throws, until it is given one.
  VYR_TMetadata empty;
  EXPECT_THROW(Store(empty, "k", "v"), VYR_EMetadataInternal);
  EXPECT_THROW(VYR_TMetadata(empty).GetAllKeys(), VYR_EMetadataInternal);
  empty = target;
  EXPECT_EQ("value", ValueOf(empty, "other"));
}

// --- Time stamps and archive data -----------------------------------------------------
//
// On the side-car store, with the data file's modification time moved by
// utimensat; and relocatable objects of a small class of this test.

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
  bool operator==(const Placement& o) const { return mFile == o.mFile; }
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

constexpr long long kSecond = 1700000000;

class TimestampTest : public MetadataTest {
 protected:
  static void SetUpTestSuite() {
    MetadataTest::SetUpTestSuite();
    // Extract finds the class by name once it is registered.
    ASSERT_NE(nullptr, Placement::QEN_ClassObject());
  }
  void SetUp() override {
    MetadataTest::SetUp();
    ASSERT_TRUE(SetModificationTime(mData, kSecond, 250000000));
  }
  // The stored stamps, as a dictionary; empty when there are none.
  QEN_TDict StoredStamps() {
    VYR_TMetadata reader(UrlOf(mData));
    std::unique_ptr<QEN_IPackable> object(reader.GetKeyObject("TIMESTAMP"));
    const QEN_TDict* stamps = object ? object->DynamicCast<QEN_TDict>() : nullptr;
    return stamps != nullptr ? *stamps : QEN_TDict();
  }
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

  ASSERT_TRUE(SetModificationTime(mData, kSecond + 60, 500000000));
  EXPECT_EQ(VYR_KeyDifferent, metadata.VerifyTimestamp("A"));
  // The stale entries reach the store only with the next stamp.
  EXPECT_TRUE(StoredStamps().Lookup("A")->AsBool());
  EXPECT_TRUE(metadata.SetTimestamp("B"));
  QEN_TDict stored = StoredStamps();
  EXPECT_EQ(3u, stored.Entries());
  EXPECT_EQ(QEN_TTime::FromSeconds(kSecond + 60, 500000), TimeOf(stored));
  EXPECT_TRUE(!stored.Lookup("A")->AsBool() && stored.Lookup("B")->AsBool());

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
  } cases[] = {{0, kSecond, 123456000, VYR_KeyEqual},
               {0, kSecond + 1, 123456000, VYR_KeyDifferent},
               {654321000, kSecond, 0, VYR_KeyEqual},
               {654321000, kSecond, 654322000, VYR_KeyDifferent}};
  VYR_TMetadata metadata(UrlOf(mData));
  for (const auto& c : cases) {
    ASSERT_TRUE(metadata.RemoveAll());
    ASSERT_TRUE(SetModificationTime(mData, kSecond, c.stampedNs));
    ASSERT_TRUE(metadata.SetTimestamp("A"));
    ASSERT_TRUE(SetModificationTime(mData, c.checkedSecond, c.checkedNs));
    EXPECT_EQ(c.status, metadata.VerifyTimestamp("A")) << c.stampedNs << " " << c.checkedNs;
  }
}

TEST_F(TimestampTest, StampsOfAnotherFormCountAsNoneUntilTheNextStamp) {
  VYR_TMetadata metadata(UrlOf(mData));
  QEN_TDict noTime;
  noTime.Add(QEN_TString("A"), QEN_TAny(true));
  for (const QEN_TAny& stamps : {QEN_TAny(VYR_TTag(1ULL, 2ULL)), QEN_TAny(noTime)}) {
    ASSERT_TRUE(metadata.SetKeyObject("TIMESTAMP", *stamps.Object(), true));
    EXPECT_EQ(VYR_KeyUnknown, metadata.VerifyTimestamp("A"));
  }
  // Bytes that are no packed object at all.
  ASSERT_TRUE(Store(metadata, "TIMESTAMP", "\x05 not a packed object"));
  EXPECT_EQ(VYR_KeyUnknown, metadata.VerifyTimestamp("A"));
  EXPECT_TRUE(metadata.SetTimestamp("B"));
  EXPECT_EQ(2u, StoredStamps().Entries());
}

// --- Archive data, with relocatable objects ------------------------------------

TEST_F(TimestampTest, ArchiveDataDropsWhatCannotFollowTheFileAndIsRestampedOnTheNext) {
  VYR_TMetadata metadata(UrlOf(mData));
  const QEN_TString where = UrlOf(mData).AsString();
  for (const char* key : {"stale", "fresh", "unstamped"})
    ASSERT_TRUE(metadata.SetKeyObject(key, Placement(where, true), true));
  ASSERT_TRUE(metadata.SetKeyObject("stuck", Placement(where, false), true));
  ASSERT_TRUE(metadata.SetKeyObject("tag", VYR_TTag(1ULL, 2ULL), true));
  ASSERT_TRUE(Store(metadata, "raw", "abc"));
  ASSERT_TRUE(metadata.SetTimestamp("STALE"));
  ASSERT_TRUE(SetModificationTime(mData, kSecond + 5, 0));
  ASSERT_TRUE(metadata.SetTimestamp("FRESH"));

  QEN_TDict archive = metadata.GetArchiveData();
  for (const char* kept : {"FRESH", "UNSTAMPED", "TAG", "TIMESTAMP"})
    EXPECT_NE(nullptr, archive.Lookup(kept)) << kept;
  ASSERT_NE(nullptr, archive.Lookup("RAW"));
  EXPECT_NE(nullptr, archive.Lookup("RAW")->DynamicCast<VYR_TBuffer>());
  EXPECT_EQ(5u, archive.Entries());

  // Set on another file, it replaces what was there; the objects follow the
  // file, and the stamps are the new file's.
  const std::string newData = WriteFile(mDir.File("page2.tif"), "moved");
  ASSERT_TRUE(SetModificationTime(newData, kSecond + 100, 0));
  const QEN_TURL to = UrlOf(newData);
  VYR_TMetadata target(to);
  ASSERT_TRUE(Store(target, "LEFTOVER", "goes"));
  EXPECT_TRUE(target.SetArchiveData(archive, UrlOf(mData), to));
  EXPECT_EQ(QEN_TTime::FromSeconds(kSecond + 100, 0),
            TimeOf(*archive.Lookup("TIMESTAMP")->DynamicCast<QEN_TDict>()));
  VYR_TMetadata reader(to);
  EXPECT_EQ("<none>", ValueOf(reader, "LEFTOVER"));
  EXPECT_EQ("abc", ValueOf(reader, "RAW"));
  std::unique_ptr<QEN_IPackable> place(reader.GetKeyObject("FRESH"));
  ASSERT_NE(nullptr, place);
  EXPECT_EQ(to.AsString(), place->DynamicCast<Placement>()->mFile);
  EXPECT_EQ(VYR_KeyEqual, reader.VerifyTimestamp("FRESH"));
  EXPECT_EQ(VYR_KeyUnknown, reader.VerifyTimestamp("STALE"));

  // It stops at the first object that refuses to follow.
  QEN_TDict refused;
  refused.Add(QEN_TString("FIRST"), QEN_TAny(VYR_TTag(1ULL, 1ULL)));
  refused.Add(QEN_TString("REFUSES"), QEN_TAny(Placement(where, true, true)));
  refused.Add(QEN_TString("LAST"), QEN_TAny(VYR_TTag(2ULL, 2ULL)));
  EXPECT_FALSE(target.SetArchiveData(refused, UrlOf(mData), to));
  EXPECT_EQ((std::vector<std::string>{"FIRST"}), Keys(VYR_TMetadata(to).GetAllKeys()));
}

TEST_F(TimestampTest, MoveKeepsPlainValuesAndRelocatesAndRestampsObjects) {
  VYR_TMetadata metadata(UrlOf(mData));
  ASSERT_TRUE(metadata.SetKeyObject("tag", VYR_TTag(3ULL, 4ULL), true));
  ASSERT_TRUE(Store(metadata, "raw", "bytes"));
  ASSERT_TRUE(metadata.SetKeyObject("place", Placement(UrlOf(mData).AsString(), true), true));
  ASSERT_TRUE(metadata.SetTimestamp("TAG"));
  const QEN_TURL other = UrlOf(mDir.File("elsewhere.tif"));
  EXPECT_TRUE(metadata.Move(UrlOf(mData), other));

  VYR_TMetadata reader(UrlOf(mData));
  EXPECT_EQ("bytes", ValueOf(reader, "raw"));
  EXPECT_EQ(VYR_KeyUnknown, reader.VerifyTimestamp("TAG"));
  std::unique_ptr<QEN_IPackable> place(reader.GetKeyObject("PLACE"));
  ASSERT_NE(nullptr, place);
  EXPECT_EQ(other.AsString(), place->DynamicCast<Placement>()->mFile);
  EXPECT_EQ(VYR_KeyEqual, reader.VerifyTimestamp("PLACE"));
}

// --- The choice of backend ------------------------------------------------------
//
// The environment is read once per process, so each setting is tried in a
// fresh process: this test binary again, running only the probe below,
// which ends the process with the choice as its exit status.

const char kProbeFile[] = "VYR_METADATA_PROBE_FILE";
const char* const kChoices[] = {"VYR_TFileMetadata VYR_TFileMetadata", "VYR_TEA VYR_TEA",
                                "null null"};

TEST(MetadataBackendProbe, EndsWithTheChosenBackend) {
  const char* file = std::getenv(kProbeFile);
  if (file == nullptr)
    GTEST_SKIP() << "runs only as a child of TheEnvironmentChoosesTheBackendOncePerProcess";
  ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
  std::unique_ptr<VYR_IMetadata> first(VYR_IMetadata::CreateAccessObject(UrlOf(file)));
  // A change of the environment after the first choice changes nothing.
  setenv("VYR_EMULATE_METADATA", std::getenv("VYR_EMULATE_METADATA") ? "Yes" : "off", 1);
  std::unique_ptr<VYR_IMetadata> second(VYR_IMetadata::CreateAccessObject(UrlOf(file)));
  const std::string chosen = std::string(first ? first->ClassName() : "null") + " " +
                             (second ? second->ClassName() : "null");
  ::_exit(static_cast<int>(std::find(std::begin(kChoices), std::end(kChoices), chosen) -
                           std::begin(kChoices)));
}

TEST_F(MetadataTest, TheEnvironmentChoosesTheBackendOncePerProcess) {
  const struct {
    const char* value;  // null: unset
    int chosen;         // an index into kChoices
  } cases[] = {{nullptr, 0}, {"off", 1}, {"n", 1}, {"Yes", 0}, {"", 0}};
  for (const auto& c : cases)
    EXPECT_EQ(c.chosen, RunAlone("MetadataBackendProbe.*", c.value, kProbeFile, mData))
        << (c.value ? c.value : "unset");
  // The attribute backend cannot read a file that is not there.
  EXPECT_EQ(2, RunAlone("MetadataBackendProbe.*", "OFF", kProbeFile, mDir.File("missing.tif")));
}

}  // namespace
