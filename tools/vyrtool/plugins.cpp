// vyrtool plugins: the configured table of plug-ins, loaded pair by pair.
#include <ordonotes/ordonotes.h>

#include <iostream>

#include "tool.h"

namespace vyrtool {

namespace {

std::string gProvider, gCreator;

// The log lines written while `load` runs: why a module did not load.
std::vector<std::string> Logged(const std::function<void()>& load) {
  std::vector<std::string> lines;
  QENMESG_SetSink([](const char* line,
                     void* to) { static_cast<std::vector<std::string>*>(to)->push_back(line); },
                  &lines);
  try {
    load();
  } catch (...) {
    QENMESG_SetSink(nullptr, nullptr);
    throw;
  }
  QENMESG_SetSink(nullptr, nullptr);
  return lines;
}

// Loads one pair as a client would: the module of the table, then the
// creator it registered. The answer says what failed.
nlohmann::json Load(const QEN_TString& provider, const QEN_TString& creator) {
  VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
  nlohmann::json record = {{"provider", Utf8(provider)}, {"creator", Utf8(creator)}};
  const QEN_TDict table = loader.PluginsFromCfs(provider);
  if (const QEN_TAny* module = table.Lookup(creator))
    if (const auto* name = module->DynamicCast<QEN_TString>()) record["module"] = Utf8(*name);
  std::vector<std::string> log;
  try {
    log = Logged([&] {
      try {
        loader.RegisterProvider(provider);
      } catch (const VYR_EDynamicLoaderDoubleProvider&) {
        // Registered before: the table is filled further.
      }
      loader.LoadPluginByName(provider, creator);
    });
    (void)loader.Creator(provider, creator);
    record["loaded"] = true;
  } catch (const QEN_EException& e) {
    record["loaded"] = false;
    record["why"] = log.empty() ? Describe(e) : OneLine(log.back());
  }
  return record;
}

std::string Line(const nlohmann::json& row) {
  std::string line = row["provider"].get<std::string>() + '\t' + row["creator"].get<std::string>() +
                     '\t' + (row.contains("module") ? row["module"].get<std::string>() : "?") +
                     '\t' + (row["loaded"].get<bool>() ? "loaded" : "failed");
  if (row.contains("why")) line += ": " + row["why"].get<std::string>();
  return line;
}

int RunList() {
  nlohmann::json rows = nlohmann::json::array();
  const QEN_TDict table = VYR_TDynamicLoader::sLoader->PluginsFromCfs(QEN_TString());
  bool failed = false;
  for (QEN_TConstIterator provider(table); !provider.IsDone(); ++provider) {
    const auto* providerName = provider.Key().DynamicCast<QEN_TString>();
    const auto* creators = provider.Value().DynamicCast<QEN_TDict>();
    if (providerName == nullptr || creators == nullptr) continue;
    for (QEN_TConstIterator creator(*creators); !creator.IsDone(); ++creator) {
      const auto* creatorName = creator.Key().DynamicCast<QEN_TString>();
      if (creatorName == nullptr) continue;
      rows.push_back(Load(*providerName, *creatorName));
      failed = failed || !rows.back()["loaded"].get<bool>();
    }
  }
  Emit(rows, [&] {
    if (rows.empty())
      std::cout << "no plug-ins configured at " << VYR_TDynamicLoader::sCfsName << '\n';
    for (const auto& row : rows) std::cout << Line(row) << '\n';
  });
  return failed ? kNo : kOk;
}

int RunLoad() {
  const nlohmann::json row = Load(QEN_TString(gProvider), QEN_TString(gCreator));
  Emit(row, [&] { std::cout << Line(row) << '\n'; });
  if (!row["loaded"].get<bool>())
    throw Failure(gProvider + "/" + gCreator, row["why"].get<std::string>());
  return kOk;
}

}  // namespace

void AddPlugins(CLI::App& app) {
  CLI::App* plugins = Group(app, "plugins", "The plug-ins of the configuration's table");
  CLI::App* list = plugins->add_subcommand(
      "list", "Every configured pair, loaded one by one (exit 1 when one fails)");
  OnRun(list, RunList);
  CLI::App* load = plugins->add_subcommand("load", "Load the plug-in of one pair");
  load->add_option("PROVIDER", gProvider, "The provider, as the table names it")->required();
  load->add_option("CREATOR", gCreator, "The creator, as the table names it")->required();
  OnRun(load, RunLoad);
}

}  // namespace vyrtool
