// vyrtool: the command line for the library's data. See `vyrtool --help`.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>

#include "tool.h"

namespace vyrtool {

namespace {

std::map<const CLI::App*, std::function<int()>>& Runs() {
  static std::map<const CLI::App*, std::function<int()>> runs;
  return runs;
}

// The deepest subcommand that was given.
const CLI::App* Chosen(const CLI::App& app) {
  for (const CLI::App* sub : app.get_subcommands())
    if (sub->parsed()) return Chosen(*sub);
  return &app;
}

}  // namespace

std::string OneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

Options& Global() {
  static Options options;
  return options;
}

void OnRun(CLI::App* command, std::function<int()> run) { Runs()[command] = std::move(run); }

CLI::App* Group(CLI::App& app, const char* name, const char* about) {
  CLI::App* group = app.add_subcommand(name, about);
  group->require_subcommand(1);
  return group;
}

CLI::App* Command(CLI::App& parent, const char* name, const char* about, std::function<int()> run) {
  CLI::App* command = parent.add_subcommand(name, about);
  OnRun(command, std::move(run));
  return command;
}

std::string Utf8(const QEN_TString& text) { return text.Utf8(); }

std::string Hex(const void* data, std::size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(size * 2);
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 0xF];
  }
  return out;
}

QEN_TURL FileUrl(const std::string& path) {
  std::string absolute = path;
  if (absolute.empty() || absolute[0] != '/') {
    char here[4096];
    if (::getcwd(here, sizeof here) == nullptr) throw Failure(path, std::strerror(errno));
    absolute = std::string(here) + "/" + path;
  }
  return QEN_TURL::LocalToURL(QEN_TString(absolute));
}

QEN_TURL AnyUrl(const std::string& text) {
  if (text.find("://") != std::string::npos) return QEN_TURL(QEN_TString(text));
  return FileUrl(text);
}

std::string Describe(const QEN_EException& e) {
  return OneLine(VYR_Exception2String(e, false, 0).Utf8());
}

void Emit(const nlohmann::json& record, const std::function<void()>& plain) {
  if (Global().json) {
    std::cout << record.dump(2) << '\n';
  } else {
    plain();
  }
}

}  // namespace vyrtool

int main(int argc, char** argv) {
  using namespace vyrtool;
  CLI::App app{
      "vyrtool: look at, script and repair what the vyrax library stores: metadata, tickets,\n"
      "stored objects, embedded ranges, the configuration and plug-ins.\n"
      "Exit codes: 0 done, 1 a \"no\" answer (not ready, a stale stamp), 2 usage, 3 failure.",
      "vyrtool"};
  app.set_version_flag("--version", std::string("vyrtool ") + std::to_string(VYRAX_VERSION_MAJOR) +
                                        "." + std::to_string(VYRAX_VERSION_BUILD));
  app.add_flag("--json", Global().json, "Print records as JSON")->configurable(false);
  app.require_subcommand(1);
  app.fallthrough();
  AddMeta(app);
  AddShow(app);
  AddEmbed(app);
  AddTicket(app);
  AddConfig(app);
  AddPlugins(app);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "vyrtool: " << OneLine(e.what()) << " (see vyrtool --help)\n";
    return kUsage;
  }

  // The library's classes are registered before anything is read by name.
  if (!__QEN_INITIALIZATION_FUNCTION_VYRAX__()) {
    std::cerr << "vyrtool: the vyrax library did not start (see its log)\n";
    return kFailure;
  }
  const auto run = Runs().find(Chosen(app));
  if (run == Runs().end()) {
    std::cerr << "vyrtool: " << Chosen(app)->get_name() << " needs a subcommand (see --help)\n";
    return kUsage;
  }
  try {
    return run->second();
  } catch (const Failure& e) {
    std::cerr << "vyrtool: " << OneLine(e.what()) << '\n';
    return e.Code();
  } catch (const QEN_EException& e) {
    std::cerr << "vyrtool: " << Describe(e) << '\n';
    return kFailure;
  } catch (const std::exception& e) {
    std::cerr << "vyrtool: " << OneLine(e.what()) << '\n';
    return kFailure;
  }
}
