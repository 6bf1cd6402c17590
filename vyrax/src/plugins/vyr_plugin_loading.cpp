// Plug-in loading: the table of plug-ins in the configuration, the loading
// of a module for one provider and creator, and the table of what is
// registered.
#define VYR_SOURCE_NAME "Private/Source/vyr_dynamic_loader"

#include <ordonotes/ordonotes.h>
#include <qen/qen_dynamic.h>

#include <memory>
#include <string>

#include "core/vyr_throw.h"
#include "core/vyr_trace.h"
#include "platform/vyr_platform.h"
#include "plugins/vyr_dynamic_loader-priv.h"
#include "vyrax/vyr_cfswrap.h"
#include "vyrax/vyr_dynamic_loader.h"
#include "vyrax/vyr_utils.h"

namespace vyr {

namespace {

// What lies behind the last `separator`, unless that stands at position 0.
QEN_TString Behind(QEN_TString const& text, char separator) {
  const int at = text.Find(separator, -1, true);
  return at > 0 ? text.Substring(at + 1) : text;
}

}  // namespace

QEN_TString ModuleTag(QEN_TString const& shareable) {
  QEN_TString tag = Behind(Behind(shareable.ToUpper(), '\\'), '/');
  const int dot = tag.Find('.', -1, true);
  if (dot > 0) tag.Truncate(static_cast<unsigned>(dot));
  return tag;
}

}  // namespace vyr

namespace {

// The name of the start-up entry that a plug-in may export: the library's
// own form, with the module's tag.
QEN_TString EntryName(QEN_TString const& tag) {
  return QEN_TString("__QEN_INITIALIZATION_FUNCTION_") + tag + "__";
}

}  // namespace

void VYR_TDynamicLoader::LoadPluginByName(QEN_TString const& provider, QEN_TString const& plugin) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TDynamicLoader::LoadPluginByName(%s,%s\n", provider.c_str(),
            plugin.c_str());
  QEN_TString shareable;
  {
    QEN_TReadGuard hold(vyr::LoaderLock());
    // By its key, like every other look-up of a provider: a provider
    // registered as "a/b" is stored as "a\\b".
    if (!providers.HasKey(LoaderKey(provider)))
      VYR_THROW(VYR_EDynamicLoaderNoSuchProvider, "Unregistered provider %s", provider);
    QEN_TAny table;
    try {
      table = VYR_CfsWrap().Get(QEN_TString(sCfsName));
    } catch (const QEN_ETreeException&) {
      // No table in the configuration: the failure below says so.
    }
    const QEN_TDict* plugins = table.DynamicCast<QEN_TDict>();
    if (plugins == nullptr)
      VYR_THROW(VYR_EDynamicLoaderNoSuchPlugin,
                "Cannot find provider %s in CFS - plugins dictionary in CFS does not exist",
                provider);
    const QEN_TAny* entry = plugins->Lookup(LoaderKey(provider));
    if (entry == nullptr)
      VYR_THROW(VYR_EDynamicLoaderNoSuchPlugin,
                "Cannot find provider %s in CFS - matching entry not found", provider);
    const QEN_TDict* creators = entry->DynamicCast<QEN_TDict>();
    if (creators == nullptr)
      VYR_THROW(VYR_EDynamicLoaderNoSuchPlugin,
                "Cannot find provider %s in CFS - matching entry is not dictionary", provider);
    const QEN_TAny* module = creators->Lookup(LoaderKey(plugin));
    if (module == nullptr)
      VYR_THROW(VYR_EDynamicLoaderNoSuchPlugin,
                "Cannot find provider %s in plugin %s - entry does not exist", provider, plugin);
    const QEN_TString* name = module->DynamicCast<QEN_TString>();
    if (name == nullptr)
      VYR_THROW(VYR_EDynamicLoaderNoSuchPlugin,
                "Cannot find provider %s in plugin %s - entry is not QEN_TString", provider,
                plugin);
    shareable = *name;
  }
  LoadPlugin(shareable);
}

void VYR_TDynamicLoader::LoadPlugin(QEN_TString const& shareable) {
  try {
    VYR_TRACE(vyr::kTraceLoader, "VYR_TDynamicLoader::LoadPlugin(%s)\n", shareable.c_str());
    const QEN_TString tag = vyr::ModuleTag(shareable);
    QEN_TWriteGuard hold(vyr::LoaderLock());
    // Looked at under the lock, so that of two threads loading one module
    // at the same time only one loads it.
    if (shareables.HasKey(shareable))
      VYR_THROW(VYR_EDynamicLoaderAlreadyLoaded, "Shareable %s already loaded", shareable);
    std::unique_ptr<QEN_TDynamicObject> module(vyr::platform::LoadModule(shareable, tag));
    // Registration is the plug-in's own doing: from its static initialisers,
    // run by the load, or from its start-up entry, run here. Either way on
    // this thread, under the lock it takes again.
    typedef bool (*StartFunction)();
    StartFunction start = reinterpret_cast<StartFunction>(module->Symbol(EntryName(tag)));
    if (start != nullptr && !start())
      VYR_THROW(VYR_EDynamicLoaderInternal, "The start-up entry of plugin %s failed", shareable);
    lastPlugin = module.release();
    shareables[shareable] = static_cast<const void*>(lastPlugin);
  } catch (const QEN_ECouldNotLoadDynamicObject& failure) {
    QENMESG_Log((QEN_TString("VYRAX: Cannot load plugin ") + shareable + "\n" +
                 VYR_Exception2String(failure) + "\n")
                    .c_str());
  } catch (...) {
    QENMESG_Log((QEN_TString("VYRAX: Cannot initialize plugin(") + shareable + ")\n").c_str());
  }
}

QEN_TDict VYR_TDynamicLoader::PluginsFromCfs(QEN_TString const& provider) const {
  try {
    const QEN_TAny table = VYR_CfsWrap().Get(QEN_TString(sCfsName));
    const QEN_TDict* plugins = table.DynamicCast<QEN_TDict>();
    if (plugins == nullptr) return QEN_TDict();
    if (provider.Empty()) return *plugins;
    const QEN_TAny* entry = plugins->Lookup(provider);
    const QEN_TDict* creators = entry != nullptr ? entry->DynamicCast<QEN_TDict>() : nullptr;
    return creators != nullptr ? *creators : QEN_TDict();
  } catch (...) {
    return QEN_TDict();
  }
}

QEN_TDict& VYR_TDynamicLoader::PluginDB(QEN_TDict& db, QEN_TString const& shareable) const {
  QEN_TReadGuard hold(vyr::LoaderLock());
  for (QEN_TConstIterator provider(providers); !provider.IsDone(); ++provider) {
    const QEN_IHashable* key = provider.Key().DynamicCast<QEN_IHashable>();
    QEN_TAny& entry = db[*key];
    if (entry == QEN_TAny::Illegal()) entry = QEN_TDict();
    QEN_TDict* known = entry.DynamicCast<QEN_TDict>();
    const QEN_TDict* creators = provider.Value().DynamicCast<QEN_TDict>();
    // An entry of another kind, put there by the caller, stays as it is.
    if (known == nullptr || creators == nullptr) continue;
    for (QEN_TConstIterator creator(*creators); !creator.IsDone(); ++creator) {
      const QEN_IHashable* name = creator.Key().DynamicCast<QEN_IHashable>();
      QEN_TAny& value = (*known)[*name];
      if (value != QEN_TAny::Illegal()) continue;
      if (!shareable.Empty()) {
        value = shareable;
        continue;
      }
      const QEN_TString* registered = creator.Value().DynamicCast<QEN_TString>();
      if (registered != nullptr)
        value = *registered;
      else
        value = QEN_TAny::Illegal();
    }
  }
  return db;
}
