// vyrtool config: what the process-wide configuration says, and where from.
#include <cstdlib>
#include <iostream>

#include "tool.h"

namespace vyrtool {

namespace {

std::string gPath = "/";

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// The decision the library makes at the first use of the configuration,
// told with its reason; a file is looked at as the library looks at it.
nlohmann::json Source() {
  const bool useSet = std::getenv("VYR_USE_CFS") != nullptr;
  const std::string use = Variable("VYR_USE_CFS");
  const bool serverSet = std::getenv("QEN_SERVER") != nullptr;
  nlohmann::json record = {
      {"VYR_USE_CFS", useSet ? nlohmann::json(use) : nullptr},
      {"QEN_SERVER", serverSet ? nlohmann::json(Variable("QEN_SERVER")) : nullptr},
      {"server", VYR_IsServer()}};
  const std::string service =
      "the configuration service VYR_CFS (its file: " +
      (std::getenv("VYR_CFS_FILE") != nullptr ? "VYR_CFS_FILE=" + Variable("VYR_CFS_FILE")
                                              : std::string("the system-wide one")) +
      "), or an empty tree if it cannot be loaded";
  if (!useSet && !serverSet) {
    record["source"] = "empty";
    record["why"] = "neither VYR_USE_CFS nor QEN_SERVER is set";
  } else if (!useSet) {
    record["source"] = "service";
    record["why"] = "QEN_SERVER is set and VYR_USE_CFS is not: " + service;
  } else if (!use.empty() && use[0] == '*') {
    record["source"] = "service";
    record["why"] = "VYR_USE_CFS begins with '*': " + service;
  } else {
    try {
      Owned object = ReadObjectFile(use);
      const bool tree = object->DynamicCast<QEN_TTree>() != nullptr;
      const bool table = object->DynamicCast<QEN_TDict>() != nullptr;
      if (!tree && !table) throw Failure(use, std::string("holds a ") + object->ClassName());
      record["source"] = "file";
      record["why"] = "VYR_USE_CFS names " + use + ", which holds " +
                      (tree ? "a tree" : "the table of plug-ins alone");
    } catch (const Failure& e) {
      record["source"] = "service";
      record["why"] = std::string("VYR_USE_CFS names a file that cannot be used (") + e.what() +
                      "): " + service;
    }
  }
  return record;
}

int RunSource() {
  const nlohmann::json record = Source();
  Emit(record, [&] {
    std::cout << record["source"].get<std::string>() << ": " << record["why"].get<std::string>()
              << '\n';
  });
  return kOk;
}

int RunGet() {
  const QEN_TAny value = VYR_CfsWrap().Get(QEN_TString(gPath));
  Emit(ToJson(value), [&] {
    if (const QEN_IPackable* object = value.Object()) {
      if (const auto* text = object->DynamicCast<QEN_TString>()) {
        std::cout << Utf8(*text) << '\n';
        return;
      }
    }
    QEN_TMemoryStream memory;
    QEN_THumanReadableStream out(memory);
    value.WriteTo(out);
    std::cout << std::string(reinterpret_cast<const char*>(memory.Data()), memory.Length()) << '\n';
  });
  return kOk;
}

int RunKeys() {
  nlohmann::json keys = nlohmann::json::array();
  QEN_TList list = VYR_CfsWrap().KeysAt(QEN_TString(gPath));
  for (QEN_TConstIterator at(list); !at.IsDone(); ++at)
    if (const auto* key = at.Value().DynamicCast<QEN_TString>()) keys.push_back(Utf8(*key));
  Emit(keys, [&] {
    for (const auto& key : keys) std::cout << key.get<std::string>() << '\n';
  });
  return kOk;
}

}  // namespace

void AddConfig(CLI::App& app) {
  CLI::App* config = Group(app, "config", "The process-wide configuration");
  Command(*config, "get", "The value at PATH (\"/\": the whole tree)", RunGet)
      ->add_option("PATH", gPath, "A path such as /Resources/Modules/VYR")
      ->required();
  Command(*config, "keys", "The names under PATH", RunKeys)
      ->add_option("PATH", gPath, "A path; \"/\" for the top");
  Command(*config, "source", "Which source this process uses (VYR_USE_CFS, QEN_SERVER) and why",
          RunSource);
}

}  // namespace vyrtool
