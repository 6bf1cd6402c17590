// The process-wide configuration: a tree of values addressed by paths such
// as "/Resources/Modules/VYR/DynamicLoading", parted by '/'.
//
// VYR_CfsWrap() gives the one configuration object of the process. Where it
// comes from is decided once, at its first call, by two environment
// variables (docs/configuration.md):
//
//   VYR_USE_CFS  a file name      the tree (or plug-in table) in that file,
//                                 binary or text form; if the file can't be
//                                 used, the configuration service
//                "*"              the configuration service module "VYR_CFS"
//   QEN_SERVER   set              the service, when VYR_USE_CFS is unset
//   neither                       an empty configuration
//
// When the service module can't be loaded either, the process works with an
// empty configuration: the decision itself never fails.
#ifndef VYR_CFSWRAP_H
#define VYR_CFSWRAP_H

#include <qen/qen_any.h>
#include <qen/qen_containers.h>
#include <qen/qen_object.h>
#include <qen/qen_string.h>
#include <qen/qen_url.h>

#include "vyrax/vyr_api.h"

// What a configuration offers. A path that is not there makes Get, Expand
// and operator[] throw QEN_ETreeException.
class VYR_API VYR_ICfs : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(VYR_ICfs)

 public:
  // The value at `path`; "/" gives the whole tree.
  virtual QEN_TAny Get(QEN_TString const& path) = 0;
  // The value at `path`, expanded. A local tree has nothing to expand.
  virtual QEN_TAny Expand(QEN_TString const& path) = 0;
  // The same as Get.
  virtual QEN_TAny operator[](QEN_TString const& path) = 0;
  // The names under `path` ("/" for the top), each a QEN_TString; empty for
  // a path that is not there or holds no branch.
  virtual QEN_TList KeysAt(QEN_TString const& path) = 0;
  // Stores `value` at `path`, making the branches on the way.
  virtual VYR_ICfs& SetAt(QEN_TString const& path, QEN_TAny const& value) = 0;
  // Makes an empty branch at `path`.
  virtual VYR_ICfs& BranchAt(QEN_TString const& path) = 0;
  // Removes what is at `path`.
  virtual VYR_ICfs& Delete(QEN_TString const& path) = 0;
  // Where a resource of a program lies: the "RootDirectory" of the location
  // that "Resources/<program>/Resources/<resource>" names, or, when the
  // location has none, "file://<host>/<location>". An empty program is the
  // default program; an empty resource throws VYR_ECfsWrap.
  virtual QEN_TURL ResourceRoot(QEN_TString const& resource, QEN_TString const& program) = 0;

  VYR_INTERFACE_SPECIALS(VYR_ICfs)
};

// A configuration held in memory: a local tree, filled from a file or left
// empty. Changes stay in memory; nothing is written back. The tree has no
// lock: one thread changes it while no other reads it.
class VYR_API VYR_TCfsWrap : public QEN_TObject, public virtual VYR_ICfs {
  QEN_OBJECT_FRAME(VYR_TCfsWrap)

 public:
  // An empty tree.
  VYR_TCfsWrap();
  // A copy of `src`.
  explicit VYR_TCfsWrap(QEN_TTree const& src);
  VYR_TCfsWrap(VYR_TCfsWrap const& other);
  // The tree in the text form, read from the file; throws QEN_EFileException
  // when it can't be opened and QEN_EStreamException for a text that is no
  // tree.
  explicit VYR_TCfsWrap(QEN_TString const& filename);
  ~VYR_TCfsWrap() override;

  QEN_TAny Get(QEN_TString const& path) override;
  QEN_TAny Expand(QEN_TString const& path) override;
  QEN_TAny operator[](QEN_TString const& path) override;
  QEN_TList KeysAt(QEN_TString const& path) override;
  VYR_ICfs& SetAt(QEN_TString const& path, QEN_TAny const& value) override;
  VYR_ICfs& BranchAt(QEN_TString const& path) override;
  VYR_ICfs& Delete(QEN_TString const& path) override;
  QEN_TURL ResourceRoot(QEN_TString const& resource, QEN_TString const& program) override;

  // Traces and builds the configuration lock.
  static bool QEN_Initialize();

 private:
  VYR_TCfsWrap& operator=(VYR_TCfsWrap const&) = delete;

  QEN_TTree mTree;
};

// The configuration of the process, made at the first call; never null, and
// never deleted. Safe from any thread.
VYR_API VYR_ICfs& VYR_CfsWrap();

// Whether the process runs against the configuration service: VYR_USE_CFS
// begins with '*', or, with it unset, QEN_SERVER is set. Reads the two
// variables only; the configuration is not made.
VYR_API bool VYR_IsServer();

#endif
