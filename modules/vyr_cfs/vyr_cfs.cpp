// The configuration service: one configuration for every process of a site,
// served from a system-wide file.
//
// The file is the one that the environment variable VYR_CFS_FILE names, or
// else VYR_CFS_DEFAULT_FILE, fixed when the module is built (the "vyrax/
// vyr_cfs.tree" file under the installation's configuration folder). It
// holds a QEN_TTree in the text or the binary form, like a file named by
// VYR_USE_CFS; a QEN_TDict in it is the table of plug-ins. A file that is
// missing or unreadable gives an empty configuration and one log line: the
// service always gives a configuration.
#include <ordonotes/ordonotes.h>

#include <cstdlib>
#include <memory>

#include "config/vyr_cfs_file.h"
#include "vyrax/vyr_cfswrap.h"
#include "vyrax/vyr_dynamic_loader.h"

#ifndef VYR_CFS_DEFAULT_FILE
#define VYR_CFS_DEFAULT_FILE "/etc/vyrax/vyr_cfs.tree"
#endif

namespace {

VYR_ICfs* Serve() {
  const char* variable = std::getenv("VYR_CFS_FILE");
  const QEN_TString path(variable != nullptr && *variable != '\0' ? variable
                                                                  : VYR_CFS_DEFAULT_FILE);
  std::unique_ptr<QEN_IInterface> object(vyr::config::ReadCfsFile(path));
  if (object != nullptr) {
    if (const QEN_TTree* tree = object->DynamicCast<QEN_TTree>()) return new VYR_TCfsWrap(*tree);
    if (const QEN_TDict* plugins = object->DynamicCast<QEN_TDict>()) {
      VYR_TCfsWrap* cfs = new VYR_TCfsWrap;
      cfs->SetAt(QEN_TString(VYR_TDynamicLoader::sCfsName), QEN_TAny(*plugins));
      return cfs;
    }
  }
  QENMESG_Log(
      (QEN_TString("VYR_CFS: no configuration in ") + path + ", serving an empty one\n").c_str());
  return new VYR_TCfsWrap;
}

}  // namespace

// The service's one entry: the configuration, made at the first call and
// kept for the life of the process, as the library never deletes it.
extern "C" __attribute__((visibility("default"))) VYR_ICfs* VYR_Cfs() {
  static VYR_ICfs* const cfs = Serve();
  return cfs;
}
