// The extended-attribute backend on real files: values cross-checked with
// getfattr and setfattr, the limits of names and values against what the
// file systems here keep (ext4 about 4 KiB per file, tmpfs much more), a
// file system without user attributes, and failures of the system.
#include <cstdlib>

#include "metadata_test_support.h"
#include "vyr_system.h"

namespace {

using metadatatest::Keys;
using metadatatest::Lines;
using metadatatest::Owned;
using metadatatest::Store;
using metadatatest::UrlOf;
using metadatatest::ValueOf;
using metadatatest::WriteFile;

// This process keeps its metadata in extended attributes: the choice is
// made at the first use, from the environment.
const bool kAttributesChosen = setenv("VYR_EMULATE_METADATA", "off", 1) == 0;

// The output of getfattr or setfattr with `args` on `path`, or "<failed>".
std::string Attr(const std::string& tool, const std::string& args, const std::string& path) {
  FILE* pipe = ::popen((tool + " " + args + " '" + path + "' 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return "<failed>";
  std::string out;
  char chunk[4096];
  size_t got;
  while ((got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) out.append(chunk, got);
  return ::pclose(pipe) == 0 ? out : "<failed>";
}

std::vector<std::string> Sorted(const QEN_TList& list) {
  std::vector<std::string> keys = Keys(list);
  std::sort(keys.begin(), keys.end());
  return keys;
}

class XattrTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(kAttributesChosen);
    ASSERT_TRUE(__QEN_INITIALIZATION_FUNCTION_VYRAX__());
  }
  void SetUp() override {
    ASSERT_TRUE(mDir.Ok());
    mData = WriteFile(mDir.File("page1.tif"), "image bytes");
  }
  std::unique_ptr<VYR_IMetadata> Open(const std::string& data) {
    return std::unique_ptr<VYR_IMetadata>(VYR_IMetadata::CreateAccessObject(UrlOf(data)));
  }

  metadatatest::TempDir mDir;
  std::string mData;
};

TEST_F(XattrTest, ValuesAreTheFilesOwnUserAttributesAsOutsideToolsSeeThem) {
  if (std::system("command -v getfattr >/dev/null && command -v setfattr >/dev/null") != 0)
    GTEST_SKIP() << "getfattr and setfattr (package attr) are not installed";
  VYR_TMetadata metadata(UrlOf(mData));
  ASSERT_TRUE(Store(metadata, "greeting", "hello"));
  EXPECT_EQ("hello", Attr("getfattr", "--only-values -n user.GREETING", mData));

  // Written by the tool under a key's name, read by the library.
  ASSERT_NE("<failed>", Attr("setfattr", "-n user.BINARY -v 0x0001ff", mData));
  EXPECT_EQ(std::string("\x00\x01\xff", 3), ValueOf(metadata, "binary"));
  // Attributes of other programs are not keys: never listed, read, moved or
  // removed, and nothing of the front throws on them.
  ASSERT_NE("<failed>", Attr("setfattr", "-n user.xdg.origin.url -v x", mData));
  ASSERT_NE("<failed>", Attr("setfattr", "-n user.outside -v tool", mData));
  EXPECT_EQ((std::vector<std::string>{"BINARY", "GREETING"}), Sorted(metadata.GetAllKeys()));
  EXPECT_EQ(2u, metadata.GetArchiveData().Entries());
  EXPECT_TRUE(metadata.Move(UrlOf(mData), UrlOf(mData)));
  ASSERT_TRUE(Store(metadata, "OUTSIDE", "mine"));

  // The list comes from the block read before, until a write or removal
  // drops it, also one that stores nothing.
  EXPECT_EQ(3u, Keys(metadata.GetAllKeys()).size());
  ASSERT_NE("<failed>", Attr("setfattr", "-n user.SECOND -v 2", mData));
  EXPECT_EQ(3u, Keys(metadata.GetAllKeys()).size());
  EXPECT_TRUE(Store(metadata, "THIRD", "3", false));
  EXPECT_EQ(4u, Keys(metadata.GetAllKeys()).size());
  EXPECT_TRUE(metadata.RemoveKey("second"));
  EXPECT_EQ((std::vector<std::string>{"BINARY", "GREETING", "OUTSIDE"}),
            Sorted(metadata.GetAllKeys()));

  EXPECT_TRUE(metadata.RemoveAll());
  EXPECT_EQ("x", Attr("getfattr", "--only-values -n user.xdg.origin.url", mData));
  EXPECT_EQ("tool", Attr("getfattr", "--only-values -n user.outside", mData));
}

TEST_F(XattrTest, AMissingFileHasNoStoreAndAnAbsentKeyThrows) {
  EXPECT_EQ(nullptr, Open(mDir.File("missing.tif")));
  EXPECT_THROW(VYR_TMetadata(UrlOf(mDir.File("missing.tif"))), VYR_EMetadataFileDoesNotExist);

  VYR_TMetadata metadata(UrlOf(mData));
  EXPECT_THROW(Owned(metadata.GetKeyValue("absent")), VYR_EMetadataFileDoesNotExist);
  EXPECT_THROW(std::unique_ptr<QEN_IPackable>(metadata.GetKeyObject("absent")),
               VYR_EMetadataFileDoesNotExist);
  // Removing an absent key is the file system's answer: nothing to do.
  EXPECT_TRUE(metadata.RemoveKey("absent"));
  // Without stamps the look-up of "TIMESTAMP" throws, as any absent key.
  EXPECT_THROW(metadata.SetTimestamp("A"), VYR_EMetadataFileDoesNotExist);
  EXPECT_THROW(metadata.VerifyTimestamp("A"), VYR_EMetadataFileDoesNotExist);
}

TEST_F(XattrTest, NamesAndValuesBeyondTheLimitsAndSystemFailuresAreFalseResults) {
  VYR_TMetadata metadata(UrlOf(mData));
  // After normalisation a key has up to 256 characters; a name has 255
  // bytes at most, and the system counts the "user." prefix in.
  EXPECT_FALSE(Store(metadata, std::string(300, 'k').c_str(), "v"));
  EXPECT_FALSE(Store(metadata, std::string(255, 'k').c_str(), "v"));
  EXPECT_TRUE(Store(metadata, std::string(250, 'k').c_str(), "v"));

  // ext4 keeps about 4 KiB of attributes per file: the refusal is a false
  // result, never an exception.
  Lines quiet(0x4);
  EXPECT_FALSE(Store(metadata, "BIG", std::string(8000, 'b')));
  EXPECT_TRUE(metadata.HasAnyKey());

  // So is a failure of the system; a list that can't be read is no key, a
  // value that can't be read an absent key.
  ASSERT_TRUE(Store(metadata, "KEPT", "value"));
  VYR_PlatformInjectFault(VYR_PlatformSetAttribute, EIO, 1);
  EXPECT_FALSE(Store(metadata, "OTHER", "x"));
  VYR_PlatformInjectFault(VYR_PlatformRemoveAttribute, EIO, 1);
  EXPECT_FALSE(metadata.RemoveKey("KEPT"));
  VYR_PlatformInjectFault(VYR_PlatformListAttributes, EIO, 2);
  EXPECT_FALSE(metadata.HasAnyKey());
  EXPECT_TRUE(Keys(metadata.GetAllKeys()).empty());
  VYR_PlatformInjectFault(VYR_PlatformGetAttribute, EIO, 1);
  EXPECT_EQ("<none>", ValueOf(metadata, "KEPT"));
  EXPECT_EQ("value", ValueOf(metadata, "KEPT"));
}

TEST_F(XattrTest, TheLargestValueGoesToTheFileSystemAndOneByteMoreDoesNot) {
  metadatatest::TempDir memory("/dev/shm");
  if (!memory.Ok() || !QEN_TVolumeInfo(memory.Path().c_str()).KeepsUserAttributes())
    GTEST_SKIP() << "no memory file system with user attributes";
  VYR_TMetadata metadata(UrlOf(WriteFile(memory.File("big.tif"), "x")));
  Lines quiet(0x4);
  const std::string largest(65024, 'L');
  ASSERT_TRUE(Store(metadata, "LARGEST", largest));
  EXPECT_EQ(largest, ValueOf(metadata, "LARGEST"));
  EXPECT_FALSE(Store(metadata, "TOOLARGE", std::string(65025, 'T')));

  // Many keys come back in one list.
  for (unsigned i = 0; i < 200; ++i) {
    const std::string key = "K" + std::string(1, 'A' + i % 26) + std::string(1, 'A' + i / 26);
    ASSERT_TRUE(Store(metadata, key.c_str(), key));
  }
  EXPECT_EQ(201u, Keys(metadata.GetAllKeys()).size());
  EXPECT_EQ("KBA", ValueOf(metadata, "KBA"));
}

TEST_F(XattrTest, AFileSystemWithoutUserAttributesReadsEmptyAndClosesOnWrite) {
  const std::string path = "/proc/version";
  if (QEN_TVolumeInfo(path.c_str()).KeepsUserAttributes())
    GTEST_SKIP() << path << " keeps user attributes here";
  auto metadata = Open(path);
  ASSERT_NE(nullptr, metadata);
  EXPECT_FALSE(metadata->HasAnyKey());

  Lines quiet(0x4);
  EXPECT_FALSE(Store(*metadata, "KEY", "value"));
  // Closed now: every read throws, and nothing can be removed.
  EXPECT_THROW(metadata->Rescan(), VYR_EMetadataFileDoesNotExist);
  EXPECT_THROW(Owned(metadata->GetKeyValue("KEY")), VYR_EMetadataFileDoesNotExist);
  EXPECT_FALSE(metadata->RemoveKey("KEY"));
}

}  // namespace
