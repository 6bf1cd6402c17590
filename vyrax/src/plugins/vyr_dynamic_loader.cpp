// The registry of providers and creators. Plug-in loading, the other half of
// the loader, is in plugins/.
#define VYR_SOURCE_NAME "Private/Source/vyr_dynamic_loader"

#include "core/vyr_version_stamp.h"

VYR_VERSION_STAMP()

#include <ordonotes/ordonotes.h>

#include "core/vyr_throw.h"
#include "core/vyr_trace.h"
#include "plugins/vyr_dynamic_loader-priv.h"
#include "vyrax/vyr_dynamic_loader.h"
#include "vyrax/vyr_exceptions.h"
#include "vyrax/vyr_startup.h"

// ---------------------------------------------------------------------------
// VYR_TDynamicLoader

QEN_DEFINE_OBJECT(VYR_TDynamicLoader, QEN_TObject)

VYR_TDynamicLoader* VYR_TDynamicLoader::sLoader = nullptr;
char const* const VYR_TDynamicLoader::sCfsName = "/Resources/Modules/VYR/DynamicLoading";

namespace {

VYR_TSingletonGuard<VYR_TDynamicLoader> gLoaderGuard(&VYR_TDynamicLoader::sLoader);

// The creators of a registered provider; the caller holds the lock.
QEN_TDict& CreatorsOf(QEN_TDict& providers, QEN_TString const& provider) {
  QEN_TAny* entry = providers.Lookup(provider);
  QEN_TDict* creators = entry != nullptr ? entry->DynamicCast<QEN_TDict>() : nullptr;
  if (creators == nullptr)
    VYR_THROW(VYR_EDynamicLoaderNoSuchProvider, "Unregistered provider %s", provider);
  return *creators;
}

}  // namespace

namespace vyr {

QEN_TRWLock& LoaderLock() {
  static QEN_TRWLock* const lock = new QEN_TRWLock;
  return *lock;
}

}  // namespace vyr

bool VYR_TDynamicLoader::QEN_Initialize() {
  VYR_TRACE(vyr::kTraceLifeCycle, "QEN_Initialize of VYR_TDynamicLoader\n");
  vyr::LoaderLock();
  // A start-up repeated after a failure finds the loader made.
  if (sLoader == nullptr) sLoader = new VYR_TDynamicLoader;
  return true;
}

QEN_TString VYR_TDynamicLoader::LoaderKey(QEN_TString const& name) {
  return name.ReplaceChars(QEN_TString("/"), QEN_TString("\\"), 0, 0);
}

VYR_TDynamicLoader::VYR_TDynamicLoader() {
  VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TDynamicLoader::VYR_TDynamicLoader(this=%p)\n",
            static_cast<void*>(this));
  if (sLoader != nullptr) VYR_THROW(VYR_EDynamicLoaderDoubleInstance);
}

VYR_TDynamicLoader::VYR_TDynamicLoader(VYR_TDynamicLoader const& other)
    : QEN_IInterface(other), QEN_TObject(other) {
  ::vyr::ThrowException<VYR_EDynamicLoaderInternal>(__LINE__, "vyr_dynamic_loader");
}

VYR_TDynamicLoader::~VYR_TDynamicLoader() {
  VYR_TRACE(vyr::kTraceLifeCycle, "Desctructor of VYR_TDynamicLoader(this=%p)\n",
            static_cast<void*>(this));
  QEN_TWriteGuard hold(vyr::LoaderLock());
  // The creators go before the modules that hold their code.
  providers.Clear();
  for (QEN_TIterator it(shareables); !it.IsDone(); ++it) {
    QEN_TDynamicObject* module =
        static_cast<QEN_TDynamicObject*>(const_cast<void*>(it.Value().AsPointer()));
    if (module == lastPlugin) lastPlugin = nullptr;
    delete module;
  }
  shareables.Clear();
  delete lastPlugin;
  lastPlugin = nullptr;
}

void VYR_TDynamicLoader::RegisterProvider(QEN_TString const& provider) {
  QEN_TWriteGuard hold(vyr::LoaderLock());
  VYR_TRACE(vyr::kTraceLoader, "VYR_TDynamicLoader::RegisterProvider(%s)\n", provider.c_str());
  const QEN_TString key = LoaderKey(provider);
  if (providers.HasKey(key))
    VYR_THROW(VYR_EDynamicLoaderDoubleProvider, "Provider %s already registered", provider);
  providers[key] = QEN_TDict();
}

void VYR_TDynamicLoader::RegisterCreator(QEN_TString const& provider, QEN_TString const& creator,
                                         void (*function)()) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TDynamicLoader::RegisterCreator(%s,%s)\n", provider.c_str(),
            creator.c_str());
  const QEN_TString providerKey = LoaderKey(provider);
  const QEN_TString creatorKey = LoaderKey(creator);
  QEN_TWriteGuard hold(vyr::LoaderLock());
  if (!providers.HasKey(providerKey)) RegisterProvider(providerKey);
  QEN_TDict& creators = (*this)(providerKey);
  if (!creators.HasKey(creatorKey)) {
    creators[creatorKey] = function;
    return;
  }
  QENMESG_Log(QEN_TString::Format("VYRAX: Double creator (%s)\n", creatorKey.c_str()).c_str());
}

VYR_TDynamicLoader::Function VYR_TDynamicLoader::Creator(QEN_TString const& provider,
                                                         QEN_TString const& creator) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TDynamicLoader::Creator(%s,%s\n", provider.c_str(),
            creator.c_str());
  const QEN_TString providerKey = LoaderKey(provider);
  const QEN_TString creatorKey = LoaderKey(creator);
  // The table is read under the lock too: a plug-in that another thread
  // loads meanwhile may be adding to it.
  QEN_TReadGuard hold(vyr::LoaderLock());
  const QEN_TDict& creators = (*this)[providerKey];
  const QEN_TAny* function = creators.Lookup(creatorKey);
  if (function == nullptr || *function == QEN_TAny::Illegal())
    VYR_THROW(VYR_EDynamicLoaderNoSuchCreator, "Cannot find creator %s for provider %s", creator,
              provider);
  return function->AsFunction();
}

QEN_TDict const& VYR_TDynamicLoader::operator[](QEN_TString const& provider) {
  QEN_TReadGuard hold(vyr::LoaderLock());
  return CreatorsOf(providers, provider);
}

QEN_TDict& VYR_TDynamicLoader::operator()(QEN_TString const& provider) {
  QEN_TWriteGuard hold(vyr::LoaderLock());
  return CreatorsOf(providers, provider);
}
