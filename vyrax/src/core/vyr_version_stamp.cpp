// Version stamps: the registration of each unit with the version registry.
#include "core/vyr_version_stamp.h"

#include <dlfcn.h>

#include <string>

namespace vyr {

void* OpenVersionModule() {
  // As given, then by its file name, then in the modules folder beside this
  // library. The registry keeps what it was given until the process ends,
  // so it stays mapped until then too (RTLD_NODELETE): its records are not
  // left behind in memory that an unloaded module no longer owns.
  constexpr int kMode = RTLD_NOW | RTLD_NODELETE;
  if (void* module = dlopen("VYR_VER", kMode)) return module;
  if (void* module = dlopen("libvyr_ver.so", kMode)) return module;
  // The modules folder beside this library, where it is installed.
  Dl_info self;
  if (dladdr(reinterpret_cast<void*>(&OpenVersionModule), &self) != 0 &&
      self.dli_fname != nullptr) {
    std::string path = self.dli_fname;
    std::string::size_type slash = path.rfind('/');
    if (slash != std::string::npos) {
      path.replace(slash + 1, std::string::npos, "vyrax/modules/libvyr_ver.so");
      if (void* module = dlopen(path.c_str(), kMode)) return module;
    }
  }
  return nullptr;
}

VersionStamp::VersionStamp(VYR_VersionListHead& head, VYR_VersionRecord& record,
                           VYR_VersionLoader& loader)
    : mLoader(loader) {
  loader.module = OpenVersionModule();
  if (loader.module != nullptr) {
    loader.fnRegister =
        reinterpret_cast<VYR_VersionRegisterFunction>(dlsym(loader.module, "VYR_VersionRegister"));
    loader.fnPrint =
        reinterpret_cast<VYR_VersionPrintFunction>(dlsym(loader.module, "VYR_VersionPrint"));
    loader.fnSorted =
        reinterpret_cast<VYR_VersionSortedFunction>(dlsym(loader.module, "VYR_VersionSorted"));
  }
  // The registry gets the head while it is still empty and reads the record
  // behind it later.
  if (loader.fnRegister != nullptr) loader.fnRegister(&head);
  record.next = head.first;
  head.first = &record;
}

VersionStamp::~VersionStamp() {
  if (mLoader.module != nullptr) dlclose(mLoader.module);
  mLoader.module = nullptr;
}

}  // namespace vyr
