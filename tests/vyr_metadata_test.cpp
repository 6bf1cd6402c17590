// The metadata front: key normalisation, objects as values, GetAll with its
// raw-bytes fallback, copies, the class frame, and the choice of backend by
// the environment (in fresh child processes, since it is made once per
// process). The store behind it here is the default side-car backend.
#include <cstdlib>

#include "metadata_test_support.h"

namespace {

using metadatatest::BytesOf;
using metadatatest::Keys;
using metadatatest::Owned;
using metadatatest::ReadFile;
using metadatatest::Store;
using metadatatest::UrlOf;
using metadatatest::ValueOf;

std::string Normalized(const QEN_TString& key) { return VYR_TMetadata::NormalizeKey(key).c_str(); }

class MetadataTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__()); }
  void SetUp() override {
    ASSERT_TRUE(mDir.Ok());
    mData = metadatatest::WriteFile(mDir.File("page1.tif"), "image bytes");
  }
  std::string SideCar() const { return metadatatest::SideCarOf(mDir.Path(), "page1.tif"); }

  metadatatest::TempDir mDir;
  std::string mData;
};

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
      {"aBc", "ABC"},
      {"0-9.!", "_____"},
      {"", ""},
      {VYR_TMetadata::NormalizeKey("Print size 1"), "PRINT_SIZE__"},
      {QEN_TString(withNull, 5), "AB"},
      {QEN_TString(above, 4), "A__X"},
      {longKey.c_str(), std::string(255, 'K') + "Z"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.normalized, Normalized(c.key)) << c.normalized;
}

TEST_F(MetadataTest, KeysThatNormaliseAlikeReachTheSameValue) {
  VYR_TMetadata metadata(UrlOf(mData));
  ASSERT_TRUE(Store(metadata, "abc", "first"));
  EXPECT_EQ("first", ValueOf(metadata, "aBc"));
  ASSERT_TRUE(Store(metadata, "a1", "one"));
  ASSERT_TRUE(Store(metadata, "a2", "two"));
  EXPECT_EQ("two", ValueOf(metadata, "a1"));
  EXPECT_EQ((std::vector<std::string>{"ABC", "A_"}), Keys(metadata.GetAllKeys()));
  ASSERT_TRUE(Store(metadata, std::string(300, 'q').c_str(), "long"));
  EXPECT_EQ("long", ValueOf(metadata, std::string(256, 'Q').c_str()));
  EXPECT_TRUE(metadata.RemoveKey("Abc"));
  EXPECT_EQ("<none>", ValueOf(metadata, "abc"));
  ASSERT_TRUE(metadata.SetKeyValue("greeting", VYR_TBuffer(5, "hello", true), true));
  EXPECT_EQ("hello", ValueOf(metadata, "GREETING"));
}

TEST_F(MetadataTest, ObjectsComeBackAndGetAllGivesRawBytesAsBuffers) {
  VYR_TMetadata metadata(UrlOf(mData));
  VYR_TTag tag(0x100000002ULL, 0x300000004ULL);
  QEN_TDict dict;
  dict.Add(QEN_TString("name"), QEN_TAny("value"));
  dict.Add(QEN_TString("tag"), QEN_TAny(tag));
  ASSERT_TRUE(metadata.SetKeyObject("tag", tag, true));
  ASSERT_TRUE(metadata.SetKeyObject("dict", dict, true));
  ASSERT_TRUE(Store(metadata, "raw", std::string("\x01\x02no object", 11)));
  ASSERT_TRUE(Store(metadata, "empty", ""));

  // A second object reads them from the file.
  VYR_TMetadata reader(UrlOf(mData));
  std::unique_ptr<QEN_IPackable> gotTag(reader.GetKeyObject("TAG"));
  std::unique_ptr<QEN_IPackable> gotDict(reader.GetKeyObject("Dict"));
  ASSERT_TRUE(gotTag && gotDict);
  EXPECT_STREQ("VYR_TTag", gotTag->ClassName());
  EXPECT_TRUE(gotTag->QEN_IsIdent(tag));
  EXPECT_TRUE(gotDict->QEN_IsIdent(dict));
  EXPECT_EQ(nullptr, reader.GetKeyObject("absent"));
  // Bytes that are no packed object throw when read as one, and arrive as
  // they are in GetAll, which goes on with the next key.
  EXPECT_THROW(std::unique_ptr<QEN_IPackable>(metadata.GetKeyObject("raw")), QEN_EException);
  QEN_TDict all = metadata.GetAll();
  EXPECT_EQ(4u, all.Entries());
  const QEN_TAny* tagInAll = all.Lookup("TAG");
  ASSERT_NE(nullptr, tagInAll);
  EXPECT_TRUE(tagInAll->Object() != nullptr && tagInAll->Object()->QEN_IsIdent(tag));
  ASSERT_NE(nullptr, all.Lookup("RAW"));
  const VYR_TBuffer* buffer = all.Lookup("RAW")->DynamicCast<VYR_TBuffer>();
  ASSERT_NE(nullptr, buffer);
  ASSERT_NE(nullptr, all.Lookup("EMPTY"));
  ASSERT_NE(nullptr, all.Lookup("EMPTY")->DynamicCast<VYR_TBuffer>());
  EXPECT_EQ(0u, all.Lookup("EMPTY")->DynamicCast<VYR_TBuffer>()->Size());
  // The raw bytes are a copy: they outlive a new reading of the store.
  metadata.Rescan();
  EXPECT_EQ(std::string("\x01\x02no object", 11), BytesOf(buffer));

  EXPECT_TRUE(metadata.RemoveAll());
  EXPECT_FALSE(metadata.HasAnyKey());
  EXPECT_FALSE(metadatatest::Exists(SideCar()));
  EXPECT_TRUE(metadata.RemoveAll());
  EXPECT_TRUE(metadata.GetAll().IsEmpty());

  // A file that does not even exist has an empty store.
  VYR_TMetadata missing(UrlOf(mDir.File("not-there.tif")));
  EXPECT_FALSE(missing.HasAnyKey());
  EXPECT_EQ(nullptr, Owned(missing.GetKeyValue("any")));
}

TEST_F(MetadataTest, CopiesAreIndependentViewsOfTheSameStore) {
  auto original = std::make_unique<VYR_TMetadata>(UrlOf(mData));
  ASSERT_TRUE(Store(*original, "kept", "before copy"));
  original->Rescan();
  EXPECT_FALSE(Store(*original, "memory", "not committed", false));

  // A copy reads the store afresh: what was not committed is not there.
  auto copy = std::make_unique<VYR_TMetadata>(*original);
  EXPECT_EQ("before copy", ValueOf(*copy, "kept"));
  EXPECT_EQ("<none>", ValueOf(*copy, "memory"));
  EXPECT_EQ("not committed", ValueOf(*original, "memory"));

  ASSERT_TRUE(Store(*copy, "added", "by the copy"));
  EXPECT_EQ("<none>", ValueOf(*original, "added"));
  original->Rescan();
  EXPECT_EQ("by the copy", ValueOf(*original, "added"));

  // Destroyed in either order.
  original.reset();
  EXPECT_EQ("by the copy", ValueOf(*copy, "added"));

  // Assignment moves the target to the other's file; self-assignment is harmless.
  const std::string otherData = metadatatest::WriteFile(mDir.File("other.tif"), "x");
  VYR_TMetadata other(UrlOf(otherData));
  ASSERT_TRUE(Store(other, "other", "value"));
  VYR_TMetadata target(UrlOf(mData));
  target = other;
  target = target;
  EXPECT_TRUE(target.File() == UrlOf(otherData));
  EXPECT_EQ("value", ValueOf(target, "other"));
}

TEST_F(MetadataTest, AFrontWithoutStoreOnlyThrowsAndTheClassesAreRegistered) {
  VYR_TMetadata empty;
  EXPECT_THROW(empty.File(), VYR_EMetadataInternal);
  EXPECT_THROW(Store(empty, "k", "v"), VYR_EMetadataInternal);
  VYR_TMetadata copy(empty);
  EXPECT_THROW(copy.GetAllKeys(), VYR_EMetadataInternal);
  // It can be given a store by assignment.
  copy = VYR_TMetadata(UrlOf(mData));
  EXPECT_FALSE(copy.HasAnyKey());
  EXPECT_NE(nullptr, QEN_TClass::Find("VYR_IRelocatable"));
  // The side-car class is in the initialisation list and has no store
  // without a file; the attribute class is made only on first use.
  const QEN_TClass* sideCar = QEN_TClass::Find("VYR_TFileMetadata");
  ASSERT_NE(nullptr, sideCar);
  EXPECT_TRUE(sideCar->Implements("VYR_IMetadata"));
  try {
    std::unique_ptr<QEN_TObject> never(sideCar->factory());
    ADD_FAILURE() << "the factory gave an object";
  } catch (const VYR_EMetadataInternal& e) {
    EXPECT_STREQ("Private/Include/vyr_file_metadata", e.QEN_ExceptionFile().c_str());
  }
  EXPECT_EQ(nullptr, QEN_TClass::Find("VYR_TEA"));
}

// --- The choice of backend ------------------------------------------------------
//
// The environment is read once per process, so each setting is tried in a
// fresh process: this test binary again, running only the probe below.

const char kProbeOut[] = "VYR_METADATA_PROBE_OUT";
const char kProbeFile[] = "VYR_METADATA_PROBE_FILE";

TEST(MetadataBackendProbe, WritesTheChosenBackend) {
  const char* out = std::getenv(kProbeOut);
  const char* file = std::getenv(kProbeFile);
  if (out == nullptr || file == nullptr)
    GTEST_SKIP() << "runs only as a child of TheEnvironmentChoosesTheBackendOncePerProcess";
  ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
  std::unique_ptr<VYR_IMetadata> first(VYR_IMetadata::CreateAccessObject(UrlOf(file)));
  // A change of the environment after the first choice changes nothing.
  setenv("VYR_EMULATE_METADATA", std::getenv("VYR_EMULATE_METADATA") ? "Yes" : "off", 1);
  std::unique_ptr<VYR_IMetadata> second(VYR_IMetadata::CreateAccessObject(UrlOf(file)));
  metadatatest::WriteFile(out, std::string(first ? first->ClassName() : "null") + " " +
                                   (second ? second->ClassName() : "null"));
}

// The backends chosen in a fresh process with the variable set to `value`
// (null: unset).
std::string ChosenWith(const char* value, const std::string& data, const std::string& out) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (value != nullptr)
      setenv("VYR_EMULATE_METADATA", value, 1);
    else
      unsetenv("VYR_EMULATE_METADATA");
    setenv(kProbeOut, out.c_str(), 1);
    setenv(kProbeFile, data.c_str(), 1);
    const int quiet = ::open("/dev/null", O_WRONLY);
    if (quiet >= 0) ::dup2(quiet, STDOUT_FILENO);
    execl("/proc/self/exe", "vyr_metadata_test", "--gtest_filter=MetadataBackendProbe.*",
          static_cast<char*>(nullptr));
    ::_exit(127);
  }
  if (metadatatest::Wait(child) != 0) return "probe failed";
  return ReadFile(out);
}

TEST_F(MetadataTest, TheEnvironmentChoosesTheBackendOncePerProcess) {
  const std::string out = mDir.File("probe.txt");
  const std::string sideCar = "VYR_TFileMetadata VYR_TFileMetadata", ea = "VYR_TEA VYR_TEA";
  const struct {
    const char* value;  // null: unset
    std::string chosen;
  } cases[] = {{nullptr, sideCar}, {"off", ea},   {"No", ea},       {"n", ea},
               {"Yes", sideCar},   {"", sideCar}, {"NONE", sideCar}};
  for (const auto& c : cases)
    EXPECT_EQ(c.chosen, ChosenWith(c.value, mData, out)) << (c.value ? c.value : "unset");
  // The attribute backend cannot read a file that is not there.
  EXPECT_EQ("null null", ChosenWith("OFF", mDir.File("missing.tif"), out));
}

}  // namespace
