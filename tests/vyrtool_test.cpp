// vyrtool, run as a child process on real files, as an operator runs it.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <utime.h>

#include <nlohmann/json.hpp>
#include <random>

#include "buffer_test_support.h"
#include "stream_test_support.h"

namespace {

::testing::Environment* const kStart = ::testing::AddGlobalTestEnvironment(
    new test_support::LibraryEnvironment<__QEN_INITIALIZATION_FUNCTION_VYRAX__>);

struct Result {
  int code;
  std::string out, err;
};

void WriteAll(const std::string& path, const std::string& bytes) {
  buffertest::WriteFile(path, bytes);
}

// Moves the modification time of a file far into the future.
void Later(const std::string& path) {
  const struct utimbuf later = {2000000000, 2000000000};
  ASSERT_EQ(::utime(path.c_str(), &later), 0);
}

class VyrtoolTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(mDir.Ok()); }
  std::string Path(const std::string& name) const { return mDir.File(name); }

  // Runs the built tool with `args` (quoted for the shell by the caller).
  Result Run(const std::string& args, const std::string& environment = "") const {
    const std::string out = Path(".out"), err = Path(".err");
    const std::string command = "cd '" + mDir.Path() + "' && " + environment +
                                " '" VYRAX_BINARY_DIR "/bin/vyrtool' " + args + " >'" + out +
                                "' 2>'" + err + "'";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, test_support::ReadFile(out),
            test_support::ReadFile(err)};
  }
  // Writes the stored form of `ticket` to the file `name`.
  void WriteTicket(const std::string& name, const VYR_TImageTicket& ticket) const {
    const test_support::Bytes packed = test_support::Pack(ticket);
    WriteAll(Path(name), std::string(packed.begin(), packed.end()));
  }

  buffertest::TempDir mDir;
};

TEST_F(VyrtoolTest, MetaOnBothBackends) {
  for (const char* backend : {"sidecar", "xattr"}) {
    SCOPED_TRACE(backend);
    const std::string meta = std::string("meta --backend ") + backend + " ";
    WriteAll(Path("page.tif"), "pixels");
    WriteAll(Path("raw.bin"), std::string("\x00\x01\xFF", 3));
    ASSERT_EQ(Run(meta + "set page.tif note 'first note'").code, 0);
    ASSERT_EQ(Run(meta + "set page.tif dict 'QEN_TDict { \"a\" = 1; \"b\" = \"two\"; }'").code, 0);
    ASSERT_EQ(Run(meta + "set page.tif raw @raw.bin").code, 0);
    EXPECT_EQ(Run(meta + "get page.tif note").out, "first note\n");
    EXPECT_EQ(nlohmann::json::parse(Run("--json " + meta + "get page.tif dict").out),
              nlohmann::json({{"a", 1}, {"b", "two"}}));
    EXPECT_EQ(Run(meta + "get page.tif raw").out, "0001ff\n");

    // A stamp matches until the file changes.
    ASSERT_EQ(Run(meta + "stamp page.tif note").code, 0);
    EXPECT_EQ(Run(meta + "verify page.tif").code, 0);
    Later(Path("page.tif"));
    EXPECT_EQ(Run(meta + "verify page.tif").code, 1);
    ASSERT_EQ(Run(meta + "rm page.tif note").code, 0);
    EXPECT_EQ(Run(meta + "get page.tif note").code, 1);

    // A walk over a folder tree reaches every file, not the hidden ones.
    ::mkdir(Path("sub").c_str(), 0755);
    WriteAll(Path("sub/a.tif"), "a");
    ASSERT_EQ(Run(meta + "stamp -r sub note").code, 0);
    Result walk = Run(meta + "verify -r .");
    EXPECT_EQ(walk.code, 1);  // page.tif has a stale stamp
    EXPECT_EQ(walk.out, "./page.tif\tNOTE\tstale\n./sub/a.tif\tNOTE\tmatches\n");
    std::system(("rm -rf '" + mDir.Path() + "'/* '" + mDir.Path() + "'/.metadata").c_str());
  }
}

TEST_F(VyrtoolTest, ShowAndConvertAStoredTicket) {
  VYR_TImageTicket ticket;
  VYR_TTicketWriter writer(ticket);
  writer.AssignFile(QEN_TURL(QEN_TString("file:///jobs/brochure.tif")), QEN_TTime(1000000), 42);
  writer.SetFileFormat(QEN_TString("TIFF"));
  writer.SetFillLevel(VYR_FillFileType);
  WriteTicket("a.ticket", ticket);
  Result shown = Run("--json show a.ticket");
  ASSERT_EQ(shown.code, 0) << shown.err;
  EXPECT_NE(nlohmann::json::parse(shown.out).dump().find("TIFF"), std::string::npos) << shown.out;

  // Binary to text and back gives the same bytes.
  ASSERT_EQ(Run("convert --to text a.ticket a.txt").code, 0);
  ASSERT_EQ(Run("convert --to binary a.txt b.ticket").code, 0);
  EXPECT_EQ(test_support::ReadFile(Path("b.ticket")), test_support::ReadFile(Path("a.ticket")));
}

TEST_F(VyrtoolTest, TicketCheckSaysWhy) {
  WriteAll(Path("page.tif"), "pixels");
  const QEN_TURL page = QEN_TURL::LocalToURL(QEN_TString(Path("page.tif")));
  VYR_TImageTicket ticket;
  VYR_TTicketWriter writer(ticket);
  writer.AssignFile(page, QEN_TFileInfo(page, true).ModificationTime(), 6);
  writer.ExternalRefs();  // an empty list: the ticket needs no other file
  writer.SetFillLevel(VYR_FillFileAssigned | 0x80);
  WriteTicket("page.ticket", ticket);

  Result fine = Run("--json ticket check page.ticket");
  ASSERT_EQ(fine.code, 0) << fine.out << fine.err;
  EXPECT_EQ(nlohmann::json::parse(fine.out)["ready"], true);
  // Another process still writing the file: not ready.
  const int writing = ::open(Path("page.tif").c_str(), O_WRONLY);
  EXPECT_EQ(Run("ticket check page.ticket").code, 1);
  ::close(writing);
  Later(Path("page.tif"));
  EXPECT_EQ(nlohmann::json::parse(Run("--json ticket check page.ticket").out)["valid"], false);
}

TEST_F(VyrtoolTest, CatWritesARangeOfARealContainer) {
  std::string bytes(300000, '\0');
  std::mt19937 random(7);
  for (char& c : bytes) c = static_cast<char>(random());
  WriteAll(Path("container.bin"), bytes);
  Result made = Run("embed make container.bin 70000 123457");
  ASSERT_EQ(made.code, 0) << made.err;
  const std::string url = made.out.substr(0, made.out.size() - 1);
  Result range = Run("cat '" + url + "'");
  ASSERT_EQ(range.code, 0) << range.err;
  EXPECT_TRUE(range.out == bytes.substr(70000, 123457));
  EXPECT_TRUE(Run("cat container.bin").out == bytes);
}

TEST_F(VyrtoolTest, ConfigurationAndPlugInsOfATable) {
  WriteAll(Path("site.tree"),
           "QEN_TTree { \"Resources\" { \"Modules\" { \"VYR\" {\n"
           "  \"DynamicLoading\" = QEN_TDict { \"Vyrax\\\\SampleReaders\" = QEN_TDict {\n"
           "    \"tiff\" = \"vyr_sample_tiff\"; \"gif\" = \"vyr_sample_none\"; }; };\n"
           "} } } }\n");
  const std::string env = "VYR_USE_CFS='" + Path("site.tree") + "'";
  EXPECT_EQ(Run("config keys /Resources/Modules/VYR", env).out, "DynamicLoading\n");

  // One pair loads, the other names a module that is not there.
  Result list = Run("--json plugins list", env);
  EXPECT_EQ(list.code, 1) << list.err;
  const nlohmann::json rows = nlohmann::json::parse(list.out);
  ASSERT_EQ(rows.size(), 2u) << list.out;
  EXPECT_EQ(rows[0]["loaded"], true);
  EXPECT_EQ(rows[1]["loaded"], false);
  EXPECT_EQ(Run("plugins load 'Vyrax\\SampleReaders' tiff", env).code, 0);
  EXPECT_EQ(Run("plugins load 'Vyrax\\SampleReaders' gif", env).code, 3);
}

TEST_F(VyrtoolTest, BadArgumentsAndFailuresAreOneLine) {
  WriteAll(Path("junk.ticket"), "not a stored object");
  const std::pair<const char*, int> rows[] = {{"", 2},
                                              {"frobnicate", 2},
                                              {"meta get onlyfile", 2},
                                              {"convert --to xml a b", 2},
                                              {"embed make f notanumber 3", 2},
                                              {"show missing.ticket", 3},
                                              {"show junk.ticket", 3},
                                              {"embed info file:///x.tif", 3}};
  for (const auto& row : rows) {
    Result result = Run(row.first);
    EXPECT_EQ(result.code, row.second) << row.first << ": " << result.err;
    EXPECT_EQ(result.err.rfind("vyrtool: ", 0), 0u) << row.first << ": " << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
}

}  // namespace
