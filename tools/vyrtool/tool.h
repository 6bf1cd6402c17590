// vyrtool: what the parts of the tool share. Each subcommand family lives in
// its own unit and adds itself to the command line; a subcommand's run
// returns the exit code.
#ifndef VYRTOOL_TOOL_H
#define VYRTOOL_TOOL_H

#include <vyrax/vyrax.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace vyrtool {

// The exit codes.
enum Exit : int {
  kOk = 0,       // done; the answer is "yes"
  kNo = 1,       // done; the answer is "no" (not ready, a stamp that no longer matches)
  kUsage = 2,    // the command line is wrong
  kFailure = 3,  // something failed
};

// A failure reported as one line on standard error: "vyrtool: WHAT: WHY".
class Failure : public std::runtime_error {
 public:
  Failure(const std::string& what, const std::string& why, int code = kFailure)
      : std::runtime_error(what.empty() ? why : what + ": " + why), mCode(code) {}
  int Code() const { return mCode; }

 private:
  int mCode;
};

// The options that every subcommand takes.
struct Options {
  bool json = false;
};
Options& Global();

// Makes `run` the action of `command`; the tool runs it after parsing.
void OnRun(CLI::App* command, std::function<int()> run);
// A group of subcommands `name` of `app`, one of which must be given.
CLI::App* Group(CLI::App& app, const char* name, const char* about);
// A subcommand `name` of `parent` whose action is `run`.
CLI::App* Command(CLI::App& parent, const char* name, const char* about, std::function<int()> run);

void AddMeta(CLI::App& app);
void AddShow(CLI::App& app);
void AddEmbed(CLI::App& app);
void AddTicket(CLI::App& app);
void AddConfig(CLI::App& app);
void AddPlugins(CLI::App& app);

// --- Objects -----------------------------------------------------------------

using Owned = std::unique_ptr<QEN_IInterface>;

// The object stored in a file in its binary or its text form; `text` says
// which it was.
Owned ReadObjectFile(const std::string& path, bool* text = nullptr);
// An object from its framed text form ("QEN_TDict { ... }").
Owned ParseObjectText(const std::string& text);
// Whether `text` looks like an object's framed text form.
bool LooksLikeObjectText(const std::string& text);
std::string TextForm(const QEN_IInterface& object);
std::string BinaryForm(const QEN_IInterface& object);
// The listing of an object (PrintOn), or its text form for one without.
std::string Listing(const QEN_IInterface& object);
nlohmann::json ToJson(const QEN_TAny& value);
nlohmann::json ToJson(const QEN_IInterface& object);

// --- Text and files ------------------------------------------------------------

std::string Utf8(const QEN_TString& text);
std::string Hex(const void* data, std::size_t size);
// A file name as a "file" URL, made absolute.
QEN_TURL FileUrl(const std::string& path);
// A URL given as text, or a path.
QEN_TURL AnyUrl(const std::string& text);
// A text on one line: line breaks become blanks.
std::string OneLine(std::string text);
// The one line that describes a failure of the library.
std::string Describe(const QEN_EException& e);
// Prints `record` as JSON when --json is given, else runs `plain`.
void Emit(const nlohmann::json& record, const std::function<void()>& plain);

}  // namespace vyrtool

#endif
