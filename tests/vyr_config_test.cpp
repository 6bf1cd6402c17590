// Configuration, plug-ins and inks. The process-wide configuration is
// decided once per process, so every case that reaches it runs in a child
// process of its own, with real files and the real service module and
// plug-ins that the project builds.
#include <dlfcn.h>
#include <sys/wait.h>

#include <thread>

#include "../modules/samples/sample_plugins.h"
#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

using ConfigTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

// Runs `body` in a child process; 0 when its checks all passed. The child's
// failures are told on its output as they happen.
template <class Body>
int InChild(Body body) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    try {
      body();
    } catch (const QEN_EException& e) {
      ADD_FAILURE() << "exception: " << VYR_Exception2String(e).c_str();
    }
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

void WriteText(const std::string& path, const QEN_IHumanReadable& object) {
  auto frame = [&](QEN_THumanReadableStream& stream) { stream.WriteObject(object) << cr; };
  buffertest::WriteFile(path, test_support::Written(frame));
}

// A tree that says where it comes from under "/Source".
QEN_TTree Marked(const char* source) {
  QEN_TTree tree;
  tree.Value("/Source") = source;
  tree.Value("/Resources/Shared/Depth") = 3u;
  return tree;
}

// The table of plug-ins of the sample provider: the TIFF reader by its
// name, the PNG reader by its file name, and a module that doesn't exist.
QEN_TDict SampleTable() {
  QEN_TDict creators;
  creators["tiff"] = "vyr_sample_tiff";
  creators["tif"] = "vyr_sample_tiff";
  creators["png"] = "vyr_sample_png.so";
  creators["gif"] = "vyr_sample_gif";
  creators["bmp"] = 7u;
  QEN_TDict table;
  table[VYR_TDynamicLoader::LoaderKey(VYR_SAMPLE_PROVIDER)] = creators;
  return table;
}

std::string Source(VYR_ICfs& cfs) {
  try {
    const QEN_TAny value = cfs.Get("/Source");
    const QEN_TString* text = value.DynamicCast<QEN_TString>();
    return text != nullptr ? text->c_str() : "?";
  } catch (const QEN_ETreeException&) {
    return "";
  }
}

std::string Describe(VYR_TDynamicLoader::Function creator) {
  return reinterpret_cast<VYR_TSampleReaderCreator>(creator)();
}

}  // namespace

// --- Where the configuration comes from ----------------------------------------

TEST_F(ConfigTest, EachSourceInTurnGivesItsConfigurationOrAnEmptyOne) {
  buffertest::TempDir folder;
  WriteText(folder.File("tree.txt"), Marked("text file"));
  buffertest::WriteFile(folder.File("tree.bin"), test_support::Pack(Marked("binary file")));
  buffertest::WriteFile(folder.File("list.bin"), test_support::Pack(QEN_TList()));
  WriteText(folder.File("site.tree"), Marked("service"));
  buffertest::WriteFile(folder.File("garbage"), std::string("QEN_TTree { \"a\" = "));

  struct Row {
    const char* useCfs;  // null: unset; a leading '@' stands for the folder
    const char* qenServer;
    bool serviceMissing;
    const char* source;  // "" for an empty configuration
    bool isServer;
  } rows[] = {
      {nullptr, nullptr, false, "", false},
      {"@tree.txt", nullptr, false, "text file", false},
      {"@tree.bin", "1", false, "binary file", false},
      // Files that can't be used turn to the service.
      {"@list.bin", nullptr, false, "service", false},
      {"@garbage", nullptr, false, "service", false},
      {"@missing", nullptr, false, "service", false},
      {"*", nullptr, false, "service", true},
      {nullptr, "", false, "service", true},
      // Without the service, an empty configuration and no exception.
      {"@missing", nullptr, true, "", false},
      {"*", nullptr, true, "", true},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(0, InChild([&] {
                setenv("VYR_CFS_FILE", folder.File("site.tree").c_str(), 1);
                if (row.useCfs != nullptr)
                  setenv("VYR_USE_CFS",
                         row.useCfs[0] == '@' ? folder.File(row.useCfs + 1).c_str() : row.useCfs,
                         1);
                if (row.qenServer != nullptr) setenv("QEN_SERVER", row.qenServer, 1);
                if (row.serviceMissing)
                  VYR_PlatformInjectFault(VYR_PlatformLoadModule, ENOENT, 100);
                EXPECT_EQ(VYR_IsServer(), row.isServer);
                VYR_ICfs& cfs = VYR_CfsWrap();
                EXPECT_EQ(&VYR_CfsWrap(), &cfs);
                EXPECT_EQ(Source(cfs), row.source);
                if (std::string(row.source).empty()) {
                  EXPECT_TRUE(cfs.KeysAt("/").IsEmpty());
                }
              }))
        << "VYR_USE_CFS " << (row.useCfs == nullptr ? "(unset)" : row.useCfs);
  }
}

TEST_F(ConfigTest, APluginTableFileStandsAtTheLoadersPath) {
  buffertest::TempDir folder;
  buffertest::WriteFile(folder.File("plugins.bin"), test_support::Pack(SampleTable()));
  EXPECT_EQ(0, InChild([&] {
              setenv("VYR_USE_CFS", folder.File("plugins.bin").c_str(), 1);
              // The table goes in through the configuration's own door, which
              // the initialising thread enters a second time.
              EXPECT_EQ(VYR_CfsWrap().Get(VYR_TDynamicLoader::sCfsName), QEN_TAny(SampleTable()));
              EXPECT_EQ(VYR_CfsWrap().KeysAt("/Resources/Modules/VYR").Entries(), 1u);
            }));
}

// --- The local tree ------------------------------------------------------------

TEST_F(ConfigTest, LocalTreeReadsWritesAndListsByPath) {
  VYR_TCfsWrap cfs(Marked("local"));
  VYR_ICfs& face = cfs;
  EXPECT_EQ(face.Expand("Resources/Shared/Depth"), QEN_TAny(3u));
  // A missing path has no keys, but no value either.
  EXPECT_TRUE(face.KeysAt("/No/Such").IsEmpty());
  EXPECT_THROW(face["/No"], QEN_ETreeException);

  face.SetAt("/A/B/C", QEN_TAny(1u)).BranchAt("/A/D").SetAt("/A/D/E", QEN_TAny("e"));
  QEN_TList keys = face.KeysAt("/A");
  ASSERT_EQ(keys.Entries(), 2u);
  EXPECT_EQ(keys[1u], QEN_TAny("D"));
  face.Delete("/A/B");
  EXPECT_THROW(face.Get("/A/B/C"), QEN_ETreeException);
  // A copy is a tree of its own.
  VYR_TCfsWrap copy(cfs);
  copy.Delete("/A");
  EXPECT_EQ(face.Get("/A/D/E"), QEN_TAny("e"));
}

TEST_F(ConfigTest, ResourceRootGoesThroughTheLocationOrFallsBackToThisHost) {
  VYR_TCfsWrap cfs;
  cfs.SetAt("Resources/qen_prog_tarnhub_v232/Resources/Fonts", QEN_TAny("Shared"));
  cfs.SetAt("Resources/Editor/Resources/Fonts", QEN_TAny("Local"));
  cfs.SetAt("Resources/Shared/RootDirectory", QEN_TURL("file://server/fonts"));
  EXPECT_EQ(cfs.ResourceRoot("Fonts", "").AsString(), QEN_TURL("file://server/fonts").AsString());
  // A location without a root of its own lies on this host, in lower case.
  const QEN_TString host = QEN_TSocket::HostName(false).ToLower();
  EXPECT_EQ(cfs.ResourceRoot("Fonts", "Editor").AsString(),
            QEN_TURL(QEN_TString("file://") + host + "/Local").AsString());
  EXPECT_THROW(cfs.ResourceRoot("", "Editor"), VYR_ECfsWrap);
  // A resource the program doesn't name is the caller's failure.
  EXPECT_THROW(cfs.ResourceRoot("Images", "Editor"), QEN_ETreeException);

  // A tree file is read in the text form only.
  buffertest::TempDir folder;
  WriteText(folder.File("tree.txt"), Marked("text file"));
  EXPECT_EQ(Source(*std::make_unique<VYR_TCfsWrap>(QEN_TString(folder.File("tree.txt")))),
            "text file");
  EXPECT_THROW(VYR_TCfsWrap(QEN_TString(folder.File("missing"))), QEN_EFileException);
  buffertest::WriteFile(folder.File("tree.bin"), test_support::Pack(Marked("binary")));
  EXPECT_THROW(VYR_TCfsWrap(QEN_TString(folder.File("tree.bin"))), QEN_EStreamException);
}

// --- The registry ----------------------------------------------------------------

TEST_F(ConfigTest, RegistryKeepsProvidersAndCreatorsUnderTheirKeys) {
  VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
  auto f = reinterpret_cast<VYR_TDynamicLoader::Function>(&std::abort);
  auto g = reinterpret_cast<VYR_TDynamicLoader::Function>(&std::exit);
  loader.RegisterCreator("test/registry", "c/1", f);
  EXPECT_EQ(loader.Creator("test\\registry", "c\\1"), f);
  EXPECT_THROW(loader["test/registry"], VYR_EDynamicLoaderNoSuchProvider);
  // The first function of a creator stays.
  buffertest::LogCapture quiet;
  loader.RegisterCreator("test/registry", "c/1", g);
  EXPECT_EQ(loader.Creator("test/registry", "c/1"), f);
  EXPECT_THROW(loader.Creator("test/registry", "c2"), VYR_EDynamicLoaderNoSuchCreator);
  // Case counts; a provider made by its creator can't be registered again,
  // and the lock is free after that failure.
  EXPECT_THROW(loader.Creator("TEST/registry", "c/1"), VYR_EDynamicLoaderNoSuchProvider);
  EXPECT_THROW(loader.RegisterProvider("test/registry"), VYR_EDynamicLoaderDoubleProvider);
  EXPECT_NO_THROW(loader.RegisterProvider("test/other"));
  EXPECT_THROW(std::unique_ptr<QEN_IInterface>(VYR_TDynamicLoader::QEN_Create()),
               VYR_EDynamicLoaderDoubleInstance);

  // The plug-in table enters each creator with the first shareable; function
  // pointers are no module names.
  QEN_TDict db, bare;
  loader.PluginDB(db, "first.so");
  loader.RegisterCreator("test/registry", "two", f);
  loader.PluginDB(db, "second.so");
  loader.PluginDB(bare, "");
  const QEN_TDict* entry = db["test\\registry"].DynamicCast<QEN_TDict>();
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ((*entry)["c\\1"], QEN_TAny("first.so"));
  EXPECT_EQ((*entry)["two"], QEN_TAny("second.so"));
  EXPECT_EQ((*bare["test\\registry"].DynamicCast<QEN_TDict>())["two"], QEN_TAny::Illegal());
}

// --- Plug-ins through the configuration's table ---------------------------------

TEST_F(ConfigTest, PluginsLoadThroughTheTableAndGiveTheirCreators) {
  buffertest::TempDir folder;
  QEN_TTree site;
  site.Value(VYR_TDynamicLoader::sCfsName) = SampleTable();
  QEN_TDict svenska, spot, names;
  svenska["PROCESS"] = 1u;
  svenska["GUL"] = 3u;
  spot["SPOT"] = 1u;
  spot["CYAN"] = 1u;
  spot["BAD"] = "not a number";
  names["SVENSKA"] = svenska;
  names["SPOTS"] = spot;
  names["BROKEN"] = 5u;
  site.Value("/Resources/Modules/VYR/InternationalInkNames") = names;
  WriteText(folder.File("site.tree"), site);
  // The PNG reader only in a folder of the search path.
  std::system(("mkdir " + folder.File("plugins") +
               " && cp " VYRAX_BINARY_DIR "/lib/vyrax/plugins/vyr_sample_png.so " +
               folder.File("plugins"))
                  .c_str());

  EXPECT_EQ(
      0, InChild([&] {
        setenv("VYR_USE_CFS", folder.File("site.tree").c_str(), 1);
        setenv("VYR_PLUGIN_PATH", ("/no/such/folder:" + folder.File("plugins")).c_str(), 1);
        buffertest::LogCapture lines;
        VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
        const QEN_TString provider(VYR_SAMPLE_PROVIDER);
        EXPECT_TRUE(loader.PluginsFromCfs("") == SampleTable());
        EXPECT_TRUE(loader.PluginsFromCfs("nobody").IsEmpty());
        EXPECT_THROW(loader.LoadPluginByName(provider, "tiff"), VYR_EDynamicLoaderNoSuchProvider);
        loader.RegisterProvider(provider);
        // Two threads load the same pair at once: one loads the module,
        // the other finds it loaded.
        std::thread first([&] { loader.LoadPluginByName(provider, "tiff"); });
        std::thread second([&] { loader.LoadPluginByName(provider, "tif"); });
        first.join();
        second.join();
        EXPECT_EQ(lines.Count("VYRAX: Cannot initialize plugin(vyr_sample_tiff)"), 1u);
        EXPECT_NE(Describe(loader.Creator(provider, "tiff")).find("TIFF"), std::string::npos);
        EXPECT_EQ(loader.Creator(provider, "tif"), loader.Creator(provider, "tiff"));
        loader.LoadPluginByName(provider, "png");
        VYR_TDynamicLoader::Function png = loader.Creator(provider, "png");
        EXPECT_NE(Describe(png).find("PNG"), std::string::npos);
        Dl_info from;
        EXPECT_TRUE(dladdr(reinterpret_cast<void*>(png), &from) != 0 &&
                    std::string(from.dli_fname).rfind(folder.File("plugins"), 0) == 0)
            << "png from the search path";
        // A module that isn't there: only a missing creator.
        loader.LoadPluginByName(provider, "gif");
        EXPECT_THROW(loader.Creator(provider, "gif"), VYR_EDynamicLoaderNoSuchCreator);
        for (const char* wrong : {"jpeg", "bmp"})
          EXPECT_THROW(loader.LoadPluginByName(provider, wrong), VYR_EDynamicLoaderNoSuchPlugin);

        // Ink names of the six languages and of the configuration.
        const std::pair<const char*, unsigned> inks[] = {{"Process Black", 4}, {"", 0},
                                                         {"process zwart", 4}, {"Spot Cyan", 1},
                                                         {"Spot Black", 0},    {"Process Gul", 3},
                                                         {"BAD", 0},           {"Nero ", 0}};
        for (const auto& ink : inks)
          EXPECT_EQ(VYR_International2Ink(ink.first), ink.second) << ink.first;
      }));
}

TEST_F(ConfigTest, WithoutTableLoadingFailsAndNothingIsListed) {
  EXPECT_EQ(0, InChild([] {
              VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
              loader.RegisterProvider("empty/provider");
              EXPECT_THROW(loader.LoadPluginByName("empty/provider", "x"),
                           VYR_EDynamicLoaderNoSuchPlugin);
              EXPECT_TRUE(loader.PluginsFromCfs("").IsEmpty());
              EXPECT_EQ(VYR_International2Ink("Process Geel"), VYR_InkYellow);
            }));
}
