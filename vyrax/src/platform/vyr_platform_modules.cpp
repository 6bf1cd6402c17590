// Finding and loading shared modules: plug-ins and the configuration
// service. See LoadModule in vyr_platform.h for the search.
#include <qen/qen_dynamic.h>
#include <qen/qen_exception.h>

#include <string>
#include <vector>

#include "core/vyr_throw.h"
#include "platform/vyr_platform.h"

namespace vyr {
namespace platform {
namespace {

// The folder of this library, from the loader's record of where it came
// from; empty when it can't be told.
std::string OwnFolder() {
  const std::string path = sys::ModuleFileOf(reinterpret_cast<const void*>(&OwnFolder));
  std::string::size_type slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string Lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

// The file names a module name may stand for, without duplicates.
std::vector<std::string> Spellings(const std::string& name) {
  std::vector<std::string> spellings{name};
  if (name.find(".so") == std::string::npos) {
    for (const std::string& other :
         {name + ".so", "lib" + name + ".so", "lib" + Lower(name) + ".so"}) {
      bool known = false;
      for (const std::string& s : spellings) known = known || s == other;
      if (!known) spellings.push_back(other);
    }
  }
  return spellings;
}

// The folders searched before the system's search, in order.
std::vector<std::string> SearchFolders() {
  std::vector<std::string> folders;
  if (const char* path = sys::Environment("VYR_PLUGIN_PATH")) {
    std::string list = path;
    std::string::size_type start = 0;
    while (start <= list.size()) {
      std::string::size_type end = list.find(':', start);
      if (end == std::string::npos) end = list.size();
      if (end > start) folders.push_back(list.substr(start, end - start));
      start = end + 1;
    }
  }
  const std::string own = OwnFolder();
  if (!own.empty()) {
    folders.push_back(own + "/vyrax/plugins");
    folders.push_back(own);
  }
  return folders;
}

}  // namespace

std::string PluginFolder() {
  const std::string own = OwnFolder();
  return own.empty() ? std::string() : own + "/vyrax/plugins";
}

QEN_TDynamicObject* LoadModule(const QEN_TString& name, const QEN_TString& tag) {
  const std::string given = name.Utf8();
  // A path, or nothing to search with: as it is.
  if (given.find('/') != std::string::npos || given.empty())
    return new QEN_TDynamicObject(name, tag);

  const std::vector<std::string> spellings = Spellings(given);
  for (const std::string& folder : SearchFolders()) {
    for (const std::string& spelling : spellings) {
      const std::string path = folder + "/" + spelling;
      // A file that is there but doesn't load is a failure of its own, not
      // a reason to go on looking: the caller hears why it failed.
      sys::FileStatus status;
      if (sys::StatusAt(path.c_str(), status))
        return new QEN_TDynamicObject(QEN_TString(path), tag);
    }
  }
  // The system's search. The failure reported is that of the name as given.
  for (std::size_t i = 1; i < spellings.size(); ++i) {
    try {
      return new QEN_TDynamicObject(QEN_TString(spellings[i]), tag);
    } catch (const QEN_ECouldNotLoadDynamicObject&) {
    }
  }
  return new QEN_TDynamicObject(name, tag);
}

}  // namespace platform
}  // namespace vyr
