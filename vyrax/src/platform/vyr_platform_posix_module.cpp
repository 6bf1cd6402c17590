// Finding and loading shared modules: plug-ins and the configuration
// service. See LoadModule in vyr_platform.h for the search.
#include <dlfcn.h>
#include <qen/qen_dynamic.h>
#include <qen/qen_exception.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/vyr_platform.h"
#include "core/vyr_throw.h"

namespace vyr {
namespace platform {
namespace {

// The folder of this library, from the loader's record of where it came
// from; empty when it can't be told.
std::string OwnFolder() {
  Dl_info self;
  if (dladdr(reinterpret_cast<void*>(&OwnFolder), &self) == 0 || self.dli_fname == nullptr)
    return std::string();
  std::string path = self.dli_fname;
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
  if (const char* path = std::getenv("VYR_PLUGIN_PATH")) {
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
  int error = 0;
  if (Injected(VYR_PlatformLoadModule, error))
    QEN_THROW(QEN_ECouldNotLoadDynamicObject,
              QEN_TString::Format("Cannot load module \"%s\": %s", name.c_str(),
                                  SystemErrorText(error).c_str()));
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
      if (::access(path.c_str(), F_OK) == 0) return new QEN_TDynamicObject(QEN_TString(path), tag);
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
