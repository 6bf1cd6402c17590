// vyrtool meta: a file's metadata through the library's front object, on
// either backend.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

#include "tool.h"

namespace vyrtool {

namespace {

struct MetaOptions {
  std::string backend;
  bool recursive = false;
  std::vector<std::string> args;
  std::string key;
  std::string out;
  bool hex = false;
};

MetaOptions& Meta() {
  static MetaOptions options;
  return options;
}

// The backend is chosen once per process, at the first use of metadata.
void ChooseBackend() {
  if (Meta().backend == "xattr") ::setenv("VYR_EMULATE_METADATA", "Off", 1);
  if (Meta().backend == "sidecar") ::setenv("VYR_EMULATE_METADATA", "Yes", 1);
}

// Regular files under the folder open as `dir`, named from `folder`, in name
// order, without hidden entries (the side-car folders among them). Links are
// never followed: each entry is looked at and each subfolder opened relative
// to its parent's descriptor with O_NOFOLLOW, so a folder swapped for a link
// after it was listed is refused rather than walked. Takes `dir` over.
void Walk(int dir, const std::string& folder, std::vector<std::string>& files, unsigned depth) {
  DIR* listing = ::fdopendir(dir);
  if (listing == nullptr) {
    ::close(dir);
    throw Failure(folder, std::strerror(errno));
  }
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(listing))
    if (entry->d_name[0] != '.') names.push_back(entry->d_name);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const std::string path = folder + "/" + name;
    struct stat info;
    if (::fstatat(dir, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISREG(info.st_mode)) files.push_back(path);
    if (!S_ISDIR(info.st_mode) || depth >= 64) continue;
    const int sub = ::openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (sub >= 0) Walk(sub, path, files, depth + 1);
  }
  ::closedir(listing);
}

std::vector<std::string> Files(const std::vector<std::string>& given) {
  if (!Meta().recursive) return given;
  std::vector<std::string> files;
  for (const std::string& path : given) {
    // A folder named on the command line is taken as given, but not through
    // a link at its last step.
    const int dir = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (dir >= 0) {
      Walk(dir, path, files, 0);
    } else {
      files.push_back(path);
    }
  }
  return files;
}

// Runs `each` on every file, with a progress line on a terminal and a
// summary at the end of a walk. A failure on one file is reported and the
// walk goes on; the exit code is the worst seen.
int ForEachFile(const std::vector<std::string>& given,
                const std::function<int(const std::string&, VYR_TMetadata&)>& each) {
  ChooseBackend();
  const std::vector<std::string> files = Files(given);
  const bool progress = Meta().recursive && ::isatty(2);
  int worst = kOk;
  unsigned failed = 0, no = 0, index = 0;
  for (const std::string& file : files) {
    ++index;
    if (progress)
      std::cerr << "\r\033[K[" << index << "/" << files.size() << "] " << file << std::flush;
    int code;
    try {
      VYR_TMetadata metadata(FileUrl(file));
      code = each(file, metadata);
    } catch (const Failure& e) {
      if (progress) std::cerr << "\r\033[K";
      std::cerr << "vyrtool: " << e.what() << '\n';
      code = e.Code();
    } catch (const QEN_EException& e) {
      if (progress) std::cerr << "\r\033[K";
      std::cerr << "vyrtool: " << file << ": " << Describe(e) << '\n';
      code = kFailure;
    }
    if (code == kFailure) ++failed;
    if (code == kNo) ++no;
    worst = std::max(worst, code);
  }
  if (progress) std::cerr << "\r\033[K";
  if (Meta().recursive)
    std::cerr << "vyrtool: " << files.size() << " files, " << no << " with a \"no\" answer, "
              << failed << " failed\n";
  return worst;
}

std::vector<std::string> Keys(VYR_TMetadata& metadata) {
  std::vector<std::string> keys;
  QEN_TList list = metadata.GetAllKeys();
  for (QEN_TConstIterator at(list); !at.IsDone(); ++at)
    if (const auto* key = at.Value().DynamicCast<QEN_TString>()) keys.push_back(Utf8(*key));
  return keys;
}

int List() {
  nlohmann::json all = nlohmann::json::object();
  int code = ForEachFile(Meta().args, [&](const std::string& file, VYR_TMetadata& metadata) {
    std::vector<std::string> keys = Keys(metadata);
    if (Global().json) {
      all[file] = keys;
    } else {
      for (const std::string& key : keys) std::cout << file << '\t' << key << '\n';
    }
    return kOk;
  });
  if (Global().json) std::cout << all.dump(2) << '\n';
  return code;
}

void WriteFile(const std::string& path, const void* data, std::size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
  out.close();
  if (!out) throw Failure(path, "cannot be written");
}

int Get() {
  if (Meta().args.size() != 2) throw Failure("meta get", "takes FILE KEY", kUsage);
  const std::string file = Meta().args[0], key = Meta().args[1];
  return ForEachFile({file}, [&](const std::string&, VYR_TMetadata& metadata) {
    std::unique_ptr<const VYR_IBuffer> value;
    try {
      // A copy: the backend's buffer lasts only until its next read.
      std::unique_ptr<const VYR_IBuffer> cached(metadata.GetKeyValue(QEN_TString(key)));
      if (cached) value.reset(cached->Duplicate(true));
    } catch (const VYR_EMetadataFileDoesNotExist&) {
      // The extended attributes say "no such key" this way.
    }
    if (!value) throw Failure(file, "no key \"" + key + "\"", kNo);
    if (!Meta().out.empty()) {
      WriteFile(Meta().out, value->Buffer(), value->Size());
      return kOk;
    }
    Owned object;
    if (!Meta().hex) {
      try {
        object.reset(metadata.GetKeyObject(QEN_TString(key)));
      } catch (const QEN_EException&) {
        // Bytes that are no stored object: shown as hex.
      }
    }
    if (const auto* text = object ? object->DynamicCast<QEN_TString>() : nullptr) {
      // A text is printed as it stands.
      Emit(Utf8(*text), [&] { std::cout << Utf8(*text) << '\n'; });
    } else if (object) {
      Emit(ToJson(*object), [&] { std::cout << TextForm(*object); });
    } else {
      const std::string hex = Hex(value->Buffer(), value->Size());
      Emit({{"hex", hex}}, [&] { std::cout << hex << '\n'; });
    }
    return kOk;
  });
}

int Set() {
  if (Meta().args.size() != 3) throw Failure("meta set", "takes FILE KEY VALUE", kUsage);
  const std::string file = Meta().args[0], key = Meta().args[1], value = Meta().args[2];
  return ForEachFile({file}, [&](const std::string&, VYR_TMetadata& metadata) {
    bool done;
    if (!value.empty() && value[0] == '@') {
      // Raw bytes from a file.
      std::ifstream in(value.substr(1), std::ios::binary);
      if (!in) throw Failure(value.substr(1), "cannot be opened");
      const std::string bytes((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
      done = metadata.SetKeyValue(QEN_TString(key), static_cast<unsigned>(bytes.size()),
                                  bytes.data(), true);
    } else if (LooksLikeObjectText(value)) {
      Owned object = ParseObjectText(value);
      const auto* packable = object->DynamicCast<QEN_IPackable>();
      if (packable == nullptr) throw Failure(object->ClassName(), "cannot be stored");
      done = metadata.SetKeyObject(QEN_TString(key), *packable, true);
    } else {
      done = metadata.SetKeyObject(QEN_TString(key), QEN_TString(value), true);
    }
    if (!done) throw Failure(file, "the value of \"" + key + "\" was not stored");
    return kOk;
  });
}

// FILE... KEY: the last argument is the key.
std::pair<std::vector<std::string>, std::string> FilesAndKey(const char* command) {
  if (Meta().args.size() < 2) throw Failure(command, "takes FILE... KEY", kUsage);
  std::vector<std::string> files(Meta().args.begin(), Meta().args.end() - 1);
  return {files, Meta().args.back()};
}

int Remove() {
  const auto [files, key] = FilesAndKey("meta rm");
  return ForEachFile(files, [&](const std::string& file, VYR_TMetadata& metadata) {
    if (!metadata.RemoveKey(QEN_TString(key)))
      throw Failure(file, "no key \"" + key + "\" removed", kNo);
    return kOk;
  });
}

int Stamp() {
  const auto [files, key] = FilesAndKey("meta stamp");
  return ForEachFile(files, [&](const std::string& file, VYR_TMetadata& metadata) {
    const QEN_TString stored = VYR_TMetadata::NormalizeKey(QEN_TString(key));
    bool done;
    try {
      done = metadata.SetTimestamp(stored);
    } catch (const VYR_EMetadataFileDoesNotExist&) {
      // The extended attributes answer a file's first stamp this way, for
      // want of stamps: they are begun here, at the file's time.
      QEN_TDict stamps;
      stamps.Add(QEN_TString("_FILE_"),
                 QEN_TAny(QEN_TFileInfo(FileUrl(file), true).ModificationTime()));
      if (!metadata.SetKeyObject(QEN_TString("TIMESTAMP"), stamps, true)) throw;
      done = metadata.SetTimestamp(stored);
    }
    if (!done) throw Failure(file, "the stamp of \"" + key + "\" was not stored");
    return kOk;
  });
}

const char* StatusName(VYR_TVerifyStatus status) {
  switch (status) {
    case VYR_KeyEqual:
      return "matches";
    case VYR_KeyDifferent:
      return "stale";
    default:
      return "unstamped";
  }
}

int Verify() {
  nlohmann::json all = nlohmann::json::object();
  int code = ForEachFile(Meta().args, [&](const std::string& file, VYR_TMetadata& metadata) {
    std::vector<std::pair<std::string, VYR_TVerifyStatus>> stamps;
    std::unique_ptr<QEN_TDict> list;
    try {
      list.reset(metadata.ListTimestamps());
    } catch (const VYR_EMetadataFileDoesNotExist&) {
      // The extended attributes of a file without stamps answer this way.
      list.reset(new QEN_TDict);
    }
    if (!Meta().key.empty()) {
      const QEN_TAny* stamp =
          list ? list->Lookup(VYR_TMetadata::NormalizeKey(QEN_TString(Meta().key))) : nullptr;
      stamps.emplace_back(Meta().key, stamp == nullptr  ? VYR_KeyUnknown
                                      : stamp->AsBool() ? VYR_KeyEqual
                                                        : VYR_KeyDifferent);
    } else {
      if (!list) throw Failure(file, "the stamps cannot be read");
      for (QEN_TConstIterator at(*list); !at.IsDone(); ++at) {
        const auto* key = at.Key().DynamicCast<QEN_TString>();
        if (key == nullptr || *key == QEN_TString("_FILE_")) continue;
        stamps.emplace_back(Utf8(*key), at.Value().AsBool() ? VYR_KeyEqual : VYR_KeyDifferent);
      }
    }
    int result = kOk;
    for (const auto& [key, status] : stamps) {
      if (status != VYR_KeyEqual) result = kNo;
      if (Global().json) {
        all[file][key] = StatusName(status);
      } else {
        std::cout << file << '\t' << key << '\t' << StatusName(status) << '\n';
      }
    }
    return result;
  });
  if (Global().json) std::cout << all.dump(2) << '\n';
  return code;
}

}  // namespace

void AddMeta(CLI::App& app) {
  CLI::App* meta = Group(app, "meta", "A file's metadata: list, get, set, rm, stamp, verify");
  meta->add_option("--backend", Meta().backend,
                   "sidecar or xattr (default: as VYR_EMULATE_METADATA says)")
      ->check(CLI::IsMember({"sidecar", "xattr"}));
  meta->fallthrough();
  auto files = [](CLI::App* command, const char* what) {
    command->add_option("args", Meta().args, what)->required();
    command->add_flag("-r,--recursive", Meta().recursive, "Walk folders given among the files");
  };

  CLI::App* list = meta->add_subcommand("list", "The keys of each FILE");
  files(list, "FILE...");
  OnRun(list, List);

  CLI::App* get =
      meta->add_subcommand("get", "A stored value: an object in its text form, else hex");
  get->add_option("args", Meta().args, "FILE KEY")->required()->expected(2);
  get->add_option("-o,--output", Meta().out, "Write the raw bytes to this file");
  get->add_flag("--hex", Meta().hex, "Print the raw bytes as hex");
  OnRun(get, Get);

  CLI::App* set = meta->add_subcommand(
      "set", "Store VALUE: text, @FILE for a file's bytes, or an object's text form");
  set->add_option("args", Meta().args, "FILE KEY VALUE")->required()->expected(3);
  OnRun(set, Set);

  CLI::App* rm = meta->add_subcommand("rm", "Remove KEY from each FILE");
  files(rm, "FILE... KEY");
  OnRun(rm, Remove);

  CLI::App* stamp = meta->add_subcommand("stamp", "Mark KEY as matching each FILE as it is now");
  files(stamp, "FILE... KEY");
  OnRun(stamp, Stamp);

  CLI::App* verify = meta->add_subcommand(
      "verify", "Which stamps still match each FILE (exit 1 when one does not)");
  files(verify, "FILE...");
  verify->add_option("-k,--key", Meta().key, "Only this key's stamp");
  OnRun(verify, Verify);
}

}  // namespace vyrtool
