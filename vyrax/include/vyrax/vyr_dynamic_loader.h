// The registry of providers and creators, and the loading of the plug-ins
// that fill it.
//
// A provider is a name, and within it each creator name stands for a bare
// function pointer; what the function does and which signature it really
// has is a matter between the plug-in and its clients. Names are keys after
// the loader key rule: each '/' becomes '\', case stays.
//
// A plug-in is a shared module named in the configuration's table of
// plug-ins (sCfsName): provider key to a dictionary from creator key to the
// module's name or path. LoadPluginByName loads the module for one pair;
// while it is loaded, on the loading thread, the plug-in registers its
// creators with sLoader->RegisterCreator, either from its start-up entry
// `bool __QEN_INITIALIZATION_FUNCTION_<TAG>__()` (TAG: the module's name in
// upper case, without folder and extension), which the loader calls when the
// module has one, or from its own static initialisers. How a module name
// without a folder is found is told in docs/configuration.md.
//
// Thread-safe: one lock guards the tables; its write side may be taken
// again by the thread that holds it, so a plug-in registers while it is
// being loaded.
#ifndef VYR_DYNAMIC_LOADER_H
#define VYR_DYNAMIC_LOADER_H

#include <qen/qen_containers.h>
#include <qen/qen_dynamic.h>
#include <qen/qen_object.h>
#include <qen/qen_string.h>

#include "vyrax/vyr_api.h"

class VYR_API VYR_TDynamicLoader : public QEN_TObject {
  QEN_OBJECT_FRAME(VYR_TDynamicLoader)

 public:
  typedef void (*Function)();

  // The one loader, made by the library's start-up; deleted at exit, and
  // with it every loaded plug-in.
  static VYR_TDynamicLoader* sLoader;
  // "/Resources/Modules/VYR/DynamicLoading": the configuration path of the
  // table of plug-ins.
  static char const* const sCfsName;

  // Throws VYR_EDynamicLoaderDoubleInstance once sLoader is set: a client
  // reaches the loader through sLoader only.
  VYR_TDynamicLoader();
  // Throws VYR_EDynamicLoaderInternal: there is one loader.
  VYR_TDynamicLoader(VYR_TDynamicLoader const& other);
  ~VYR_TDynamicLoader() override;

  // Traces, makes the loader lock and the one loader.
  static bool QEN_Initialize();
  // The name with each '/' replaced by '\'.
  static QEN_TString LoaderKey(QEN_TString const& name);

  // An empty table for the provider; VYR_EDynamicLoaderDoubleProvider when
  // it has one.
  void RegisterProvider(QEN_TString const& provider);
  // Stores the function, making the provider if need be. A creator that is
  // there already keeps its first function; the second is logged and
  // dropped.
  void RegisterCreator(QEN_TString const& provider, QEN_TString const& creator, void (*function)());
  // The stored function; VYR_EDynamicLoaderNoSuchProvider or
  // VYR_EDynamicLoaderNoSuchCreator when there is none. It stays valid as
  // long as its plug-in is loaded: until the process ends.
  void (*Creator(QEN_TString const& provider, QEN_TString const& creator))();
  // The creators of the provider, under its key as stored (LoaderKey is the
  // caller's business); VYR_EDynamicLoaderNoSuchProvider when unknown. The
  // reference is valid until the next registration.
  QEN_TDict const& operator[](QEN_TString const& provider);

  // Loads the module that the table of plug-ins names for the pair. The
  // provider must be registered. A table or entry that is missing or of the
  // wrong type throws VYR_EDynamicLoaderNoSuchPlugin; a module that can't be
  // loaded is logged, and shows to the caller only as a missing creator.
  void LoadPluginByName(QEN_TString const& provider, QEN_TString const& plugin);
  // A copy of the table of plug-ins, or of one provider's entry (the
  // provider as given); empty when there is none. Never throws.
  QEN_TDict PluginsFromCfs(QEN_TString const& provider) const;
  // Enters every registered creator into `db`, in the form of the table of
  // plug-ins, with `shareable` as its module (with an empty one, the value
  // registered as text, or nothing). Entries already in `db` stay.
  QEN_TDict& PluginDB(QEN_TDict& db, QEN_TString const& shareable) const;

 private:
  VYR_TDynamicLoader& operator=(VYR_TDynamicLoader const&) = delete;
  // The creators of the provider, to change.
  QEN_TDict& operator()(QEN_TString const& provider);
  // Loads the module, once per name; logs instead of throwing.
  void LoadPlugin(QEN_TString const& shareable);

  // Module name to its loaded QEN_TDynamicObject, held as a pointer.
  QEN_TDict shareables;
  // Provider key to a dictionary from creator key to function.
  QEN_TDict providers;
  // The object of the last load; one of those in `shareables`.
  QEN_TDynamicObject* lastPlugin = nullptr;
};

#endif
