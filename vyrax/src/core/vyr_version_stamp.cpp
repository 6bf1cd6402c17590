// Version stamps: the registration of each unit with the version registry.
#include "core/vyr_version_stamp.h"

#include <string>

#include "vyr_system.h"

namespace vyr {

void* OpenVersionModule() {
  // As given, then by its file name, then in the modules folder beside this
  // library. The registry keeps what it was given until the process ends,
  // so it stays mapped until then too (RTLD_NODELETE): its records are not
  // left behind in memory that an unloaded module no longer owns.
  std::string why;
  if (void* module = sys::LoadModule("VYR_VER", true, why)) return module;
  if (void* module = sys::LoadModule("libvyr_ver.so", true, why)) return module;
  // The modules folder beside this library, where it is installed.
  std::string path = sys::ModuleFileOf(reinterpret_cast<const void*>(&OpenVersionModule));
  std::string::size_type slash = path.rfind('/');
  if (slash == std::string::npos) return nullptr;
  path.replace(slash + 1, std::string::npos, "vyrax/modules/libvyr_ver.so");
  return sys::LoadModule(path.c_str(), true, why);
}

VersionStamp::VersionStamp(VYR_VersionListHead& head, VYR_VersionRecord& record,
                           VYR_VersionLoader& loader)
    : mLoader(loader) {
  loader.module = OpenVersionModule();
  if (loader.module != nullptr) {
    loader.fnRegister = reinterpret_cast<VYR_VersionRegisterFunction>(
        sys::FindSymbol(loader.module, "VYR_VersionRegister"));
    loader.fnPrint = reinterpret_cast<VYR_VersionPrintFunction>(
        sys::FindSymbol(loader.module, "VYR_VersionPrint"));
    loader.fnSorted = reinterpret_cast<VYR_VersionSortedFunction>(
        sys::FindSymbol(loader.module, "VYR_VersionSorted"));
  }
  // The registry gets the head while it is still empty and reads the record
  // behind it later.
  if (loader.fnRegister != nullptr) loader.fnRegister(&head);
  record.next = head.first;
  head.first = &record;
}

VersionStamp::~VersionStamp() {
  sys::CloseModule(mLoader.module);
  mLoader.module = nullptr;
}

}  // namespace vyr
