// Configuration, plug-ins and inks. The process-wide configuration is
// decided once per process, so every case that reaches it runs in a child
// process of its own, with real files and the real service module and
// plug-ins that the project builds.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../modules/samples/sample_plugins.h"
#include "buffer_test_support.h"
#include "platform/vyr_platform.h"
#include "stream_test_support.h"

namespace {

using ConfigTest = test_support::LibraryTest<__QEN_INITIALIZATION_FUNCTION_VYRAX__>;

// The failed checks of a child process, told on standard error; the count
// is its exit code.
struct Checks {
  int failed = 0;
  void operator()(bool ok, const std::string& what) {
    if (ok) return;
    ++failed;
    std::fprintf(stderr, "check failed: %s\n", what.c_str());
  }
};

template <class Body>
int InChild(Body body) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    Checks check;
    try {
      body(check);
    } catch (const QEN_EException& e) {
      check(false, std::string("exception: ") + VYR_Exception2String(e).c_str());
    }
    std::fflush(nullptr);
    _exit(check.failed);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

void WriteBinary(const std::string& path, const QEN_IPackable& object) {
  QEN_TFile file(QEN_TString(path), QEN_TFile::WriteOnly);
  QEN_TDataStream stream(file);
  stream << object;
  stream.Flush();
}

void WriteText(const std::string& path, const QEN_IHumanReadable& object) {
  QEN_TFile file(QEN_TString(path), QEN_TFile::WriteOnly);
  QEN_THumanReadableStream stream(file);
  stream.WriteObject(object) << cr;
  file.Flush();
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

// Log lines of the child, through the log's sink.
std::vector<std::string> gLines;
std::mutex gLinesLock;
void Collect(const char* line, void*) {
  std::lock_guard<std::mutex> hold(gLinesLock);
  gLines.push_back(line);
}
size_t LinesWith(const std::string& text) {
  std::lock_guard<std::mutex> hold(gLinesLock);
  size_t found = 0;
  for (const std::string& line : gLines) found += line.find(text) != std::string::npos;
  return found;
}

std::string Describe(VYR_TDynamicLoader::Function creator) {
  return reinterpret_cast<VYR_TSampleReaderCreator>(creator)();
}

}  // namespace

// --- Where the configuration comes from ----------------------------------------

TEST_F(ConfigTest, EachSourceInTurnGivesItsConfigurationOrAnEmptyOne) {
  buffertest::TempDir folder;
  WriteText(folder.File("tree.txt"), Marked("text file"));
  WriteBinary(folder.File("tree.bin"), Marked("binary file"));
  WriteBinary(folder.File("list.bin"), QEN_TList());
  WriteText(folder.File("plugins.txt"), SampleTable());
  WriteText(folder.File("site.tree"), Marked("service"));
  std::FILE* garbage = std::fopen(folder.File("garbage").c_str(), "wb");
  std::fputs("QEN_TTree { \"a\" = ", garbage);
  std::fclose(garbage);

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
      {"@plugins.txt", nullptr, false, "", false},
      // Files that can't be used turn to the service.
      {"@list.bin", nullptr, false, "service", false},
      {"@garbage", nullptr, false, "service", false},
      {"@missing", nullptr, false, "service", false},
      {"*", nullptr, false, "service", true},
      {nullptr, "", false, "service", true},
      // Without the service, an empty configuration and no exception.
      {"@missing", nullptr, true, "", false},
      {"*", nullptr, true, "", true},
      {nullptr, "yes", true, "", true},
  };
  for (const Row& row : rows) {
    const std::string name = row.useCfs == nullptr ? "(unset)" : row.useCfs;
    int failures = InChild([&](Checks& check) {
      setenv("VYR_CFS_FILE", folder.File("site.tree").c_str(), 1);
      if (row.useCfs != nullptr)
        setenv("VYR_USE_CFS",
               row.useCfs[0] == '@' ? folder.File(row.useCfs + 1).c_str() : row.useCfs, 1);
      if (row.qenServer != nullptr) setenv("QEN_SERVER", row.qenServer, 1);
      if (row.serviceMissing) VYR_PlatformInjectFault(VYR_PlatformLoadModule, ENOENT, 100);
      check(VYR_IsServer() == row.isServer, "VYR_IsServer");
      VYR_ICfs& cfs = VYR_CfsWrap();
      check(&VYR_CfsWrap() == &cfs, "one object");
      check(Source(cfs) == row.source, "source " + Source(cfs));
      if (std::string(row.source).empty() && std::strcmp(name.c_str(), "@plugins.txt") != 0)
        check(cfs.KeysAt("/").IsEmpty(), "empty configuration");
    });
    EXPECT_EQ(failures, 0) << "VYR_USE_CFS " << name;
  }
}

TEST_F(ConfigTest, APluginTableFileStandsAtTheLoadersPath) {
  buffertest::TempDir folder;
  WriteBinary(folder.File("plugins.bin"), SampleTable());
  EXPECT_EQ(InChild([&](Checks& check) {
              setenv("VYR_USE_CFS", folder.File("plugins.bin").c_str(), 1);
              // The table goes in through the configuration's own door, which
              // the initialising thread enters a second time.
              QEN_TAny table = VYR_CfsWrap().Get(VYR_TDynamicLoader::sCfsName);
              check(table == QEN_TAny(SampleTable()), "table at sCfsName");
              check(VYR_CfsWrap().KeysAt("/Resources/Modules/VYR").Entries() == 1, "one key");
            }),
            0);
}

// --- The local tree ------------------------------------------------------------

TEST_F(ConfigTest, LocalTreeReadsWritesAndListsByPath) {
  VYR_TCfsWrap cfs(Marked("local"));
  VYR_ICfs& face = cfs;
  EXPECT_EQ(face["/Resources/Shared/Depth"], QEN_TAny(3u));
  EXPECT_EQ(face.Expand("Resources/Shared/Depth"), QEN_TAny(3u));
  // A missing path has no keys, but no value either.
  EXPECT_TRUE(face.KeysAt("/No/Such").IsEmpty());
  EXPECT_TRUE(face.KeysAt("/Source").IsEmpty());
  EXPECT_THROW(face["/No"], QEN_ETreeException);

  face.SetAt("/A/B/C", QEN_TAny(1u)).BranchAt("/A/D").SetAt("/A/D/E", QEN_TAny("e"));
  QEN_TList keys = face.KeysAt("/A");
  ASSERT_EQ(keys.Entries(), 2u);
  EXPECT_EQ(keys[0u], QEN_TAny("B"));
  EXPECT_EQ(keys[1u], QEN_TAny("D"));
  face.Delete("/A/B");
  EXPECT_THROW(face.Get("/A/B/C"), QEN_ETreeException);
  EXPECT_EQ(face.Get("/A/D/E"), QEN_TAny("e"));
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
}

TEST_F(ConfigTest, TreeFileConstructorReadsTheTextForm) {
  buffertest::TempDir folder;
  WriteText(folder.File("tree.txt"), Marked("text file"));
  VYR_TCfsWrap cfs(QEN_TString(folder.File("tree.txt")));
  EXPECT_EQ(Source(cfs), "text file");
  EXPECT_THROW(VYR_TCfsWrap(QEN_TString(folder.File("missing"))), QEN_EFileException);
  WriteBinary(folder.File("tree.bin"), Marked("binary"));
  EXPECT_THROW(VYR_TCfsWrap(QEN_TString(folder.File("tree.bin"))), QEN_EStreamException);
}

// --- The registry ----------------------------------------------------------------

TEST_F(ConfigTest, RegistryKeepsProvidersAndCreatorsUnderTheirKeys) {
  VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
  auto f = reinterpret_cast<VYR_TDynamicLoader::Function>(&std::abort);
  auto g = reinterpret_cast<VYR_TDynamicLoader::Function>(&std::exit);
  loader.RegisterCreator("test/registry", "c/1", f);
  EXPECT_EQ(loader.Creator("test/registry", "c/1"), f);
  EXPECT_EQ(loader.Creator("test\\registry", "c\\1"), f);
  EXPECT_NO_THROW(loader["test\\registry"]);
  EXPECT_THROW(loader["test/registry"], VYR_EDynamicLoaderNoSuchProvider);
  // The first function of a creator stays (and the log says so).
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
  EXPECT_THROW(VYR_TDynamicLoader copy(loader), VYR_EDynamicLoaderInternal);
}

TEST_F(ConfigTest, PluginDBEntersEachCreatorWithTheFirstShareable) {
  VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
  auto f = reinterpret_cast<VYR_TDynamicLoader::Function>(&std::abort);
  loader.RegisterCreator("test/db", "one", f);
  QEN_TDict db;
  loader.PluginDB(db, "first.so");
  loader.RegisterCreator("test/db", "two", f);
  loader.PluginDB(db, "second.so");
  const QEN_TDict* entry = db["test\\db"].DynamicCast<QEN_TDict>();
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ((*entry)["one"], QEN_TAny("first.so"));
  EXPECT_EQ((*entry)["two"], QEN_TAny("second.so"));
  // Function pointers are no module names.
  QEN_TDict bare;
  loader.PluginDB(bare, "");
  EXPECT_EQ((*bare["test\\db"].DynamicCast<QEN_TDict>())["one"], QEN_TAny::Illegal());
}

// --- Plug-ins through the configuration's table ---------------------------------

TEST_F(ConfigTest, PluginsLoadThroughTheTableAndGiveTheirCreators) {
  buffertest::TempDir folder;
  QEN_TTree site;
  site.Value(VYR_TDynamicLoader::sCfsName) = SampleTable();
  QEN_TDict svenska;
  svenska["PROCESS"] = 1u;
  svenska["GUL"] = 3u;
  svenska["SVART"] = 4u;
  QEN_TDict spot;
  spot["SPOT"] = 1u;
  spot["CYAN"] = 1u;
  spot["BAD"] = "not a number";
  QEN_TDict names;
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

  EXPECT_EQ(InChild([&](Checks& check) {
              setenv("VYR_USE_CFS", folder.File("site.tree").c_str(), 1);
              setenv("VYR_PLUGIN_PATH", ("/no/such/folder:" + folder.File("plugins")).c_str(), 1);
              QENMESG_SetSink(&Collect, nullptr);
              VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
              const QEN_TString provider(VYR_SAMPLE_PROVIDER);
              check(loader.PluginsFromCfs("") == SampleTable(), "whole table");
              check(loader.PluginsFromCfs("nobody").IsEmpty(), "unknown provider");
              try {
                loader.LoadPluginByName(provider, "tiff");
                check(false, "unregistered provider loaded");
              } catch (const VYR_EDynamicLoaderNoSuchProvider&) {
              }
              loader.RegisterProvider(provider);
              // Two threads load the same pair at once: one loads the module,
              // the other finds it loaded.
              std::thread first([&] { loader.LoadPluginByName(provider, "tiff"); });
              std::thread second([&] { loader.LoadPluginByName(provider, "tif"); });
              first.join();
              second.join();
              check(LinesWith("VYRAX: Cannot initialize plugin(vyr_sample_tiff)") == 1,
                    "second load refused");
              check(Describe(loader.Creator(provider, "tiff")).find("TIFF") != std::string::npos,
                    "tiff creator");
              check(loader.Creator(provider, "tif") == loader.Creator(provider, "tiff"), "tif");
              loader.LoadPluginByName(provider, "png");
              VYR_TDynamicLoader::Function png = loader.Creator(provider, "png");
              check(Describe(png).find("PNG") != std::string::npos, "png creator");
              Dl_info from;
              check(dladdr(reinterpret_cast<void*>(png), &from) != 0 &&
                        std::string(from.dli_fname).rfind(folder.File("plugins"), 0) == 0,
                    "png from the search path");
              // A module that isn't there: logged, and only a missing creator.
              loader.LoadPluginByName(provider, "gif");
              check(LinesWith("VYRAX: Cannot load plugin vyr_sample_gif") == 1, "gif logged");
              try {
                loader.Creator(provider, "gif");
                check(false, "gif creator");
              } catch (const VYR_EDynamicLoaderNoSuchCreator&) {
              }
              for (const char* wrong : {"jpeg", "bmp"}) {
                try {
                  loader.LoadPluginByName(provider, wrong);
                  check(false, std::string("loaded ") + wrong);
                } catch (const VYR_EDynamicLoaderNoSuchPlugin&) {
                }
              }

              // Ink names of the six languages and of the configuration.
              const std::pair<const char*, unsigned> inks[] = {
                  {"Process Black", 4}, {"", 0},           {"process zwart", 4},
                  {"Spot Cyan", 1},     {"Spot Black", 0}, {"Process Gul", 3},
                  {"BAD", 0},           {"Nero ", 0}};
              for (const auto& ink : inks)
                check(VYR_International2Ink(ink.first) == ink.second,
                      std::string("ink name ") + ink.first);
            }),
            0);
}

TEST_F(ConfigTest, WithoutTableLoadingFailsAndNothingIsListed) {
  EXPECT_EQ(InChild([](Checks& check) {
              VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
              loader.RegisterProvider("empty/provider");
              try {
                loader.LoadPluginByName("empty/provider", "x");
                check(false, "loaded");
              } catch (const VYR_EDynamicLoaderNoSuchPlugin& e) {
                check(std::string(VYR_Exception2String(e).c_str()) ==
                          "Cannot find provider empty/provider in CFS - plugins dictionary in "
                          "CFS does not exist",
                      "message");
              }
              check(loader.PluginsFromCfs("").IsEmpty(), "empty table");
              check(VYR_International2Ink("Process Geel") == VYR_InkYellow, "built-in names");
            }),
            0);
}
