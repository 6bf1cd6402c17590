// The metadata front object.
#define VYR_SOURCE_NAME "Private/Source/vyr_metadata"

#include "vyrax/vyr_metadata.h"

#include <qen/qen_stream.h>
#include <qen/qen_sync.h>

#include <cstdlib>
#include <cwctype>
#include <memory>
#include <new>

#include "core/vyr_throw.h"
#include "core/vyr_trace.h"
#include "core/vyr_version_stamp.h"
#include "metadata/vyr_sidecar_metadata.h"
#include "metadata/vyr_xattr_metadata.h"
#include "vyr_system.h"
#include "vyrax/vyr_exceptions.h"

VYR_VERSION_STAMP()

// ---------------------------------------------------------------------------
// The interfaces and the choice of backend.

QEN_DEFINE_INTERFACE(VYR_IRelocatable)
QEN_DEFINE_INTERFACE(VYR_IMetadata)

namespace {

// Guards the one reading of the environment; lives for the process.
QEN_TRWLock& OptionLock() {
  static QEN_TRWLock lock;
  return lock;
}

bool SaysNo(const char* value) {
  QEN_TString text = QEN_TString(value).ToUpper();
  return text == "N" || text == "NO" || text == "OFF";
}

// Whether metadata goes to side-car files: settled at the first call of the
// process. Only "N", "NO" and "OFF" choose the extended attributes.
bool MetadataEmulated() {
  static bool settled = false;
  static bool emulated = true;
  QEN_TWriteGuard guard(OptionLock());
  if (!settled) {
    if (const char* value = vyr::sys::Environment("VYR_EMULATE_METADATA")) {
      VYR_TRACE(vyr::kTraceLoader, "VYR_EMULATE_METADATA: %s\n", value);
      if (SaysNo(value)) emulated = false;
    }
    settled = true;
  }
  return emulated;
}

}  // namespace

VYR_IMetadata* VYR_IMetadata::CreateAccessObject(QEN_TURL const& file) {
  VYR_IMetadata* access = nullptr;
  try {
    if (MetadataEmulated())
      access = new (std::nothrow) VYR_TFileMetadata(file);
    else
      access = new (std::nothrow) VYR_TEA(file);
    if (access == nullptr) return nullptr;
    access->Rescan();
  } catch (...) {
    delete access;
    return nullptr;
  }
  return access;
}

// ---------------------------------------------------------------------------
// The front.

QEN_DEFINE_OBJECT(VYR_TMetadata, QEN_TObject, VYR_IMetadata)

bool VYR_TMetadata::QEN_Initialize() {
  VYR_TRACE(vyr::kTraceLifeCycle, "QEN_Initialize of VYR_TMetadata\n");
  OptionLock();
  return true;
}

VYR_TMetadata::VYR_TMetadata() : mAccess(nullptr) {}

VYR_TMetadata::VYR_TMetadata(QEN_TURL const& file)
    : mAccess(VYR_IMetadata::CreateAccessObject(file)) {
  if (mAccess == nullptr)
    VYR_THROW(VYR_EMetadataFileDoesNotExist, "Cannot access metadata for %s", file.AsString());
}

VYR_TMetadata::VYR_TMetadata(VYR_TMetadata const& other)
    : VYR_IMetadata(other), QEN_TObject(other), mAccess(nullptr) {
  // A copy of a front without a store is another one without.
  if (other.mAccess == nullptr) return;
  mAccess = VYR_IMetadata::CreateAccessObject(other.File());
  if (mAccess == nullptr)
    VYR_THROW(VYR_EMetadataFileDoesNotExist, "Cannot access metadata for %s",
              other.File().AsString());
}

VYR_TMetadata& VYR_TMetadata::operator=(VYR_TMetadata const& other) {
  // The new store is read before the old one goes, so a failure leaves this
  // object as it was.
  VYR_IMetadata* access = nullptr;
  if (other.mAccess != nullptr) {
    access = VYR_IMetadata::CreateAccessObject(other.File());
    if (access == nullptr)
      VYR_THROW(VYR_EMetadataFileDoesNotExist, "Cannot access metadata for %s",
                other.File().AsString());
  }
  delete mAccess;
  mAccess = access;
  return *this;
}

VYR_TMetadata::~VYR_TMetadata() { delete mAccess; }

VYR_IMetadata& VYR_TMetadata::Access() const {
  if (mAccess == nullptr) VYR_THROW(VYR_EMetadataInternal, "The metadata object has no store");
  return *mAccess;
}

QEN_TString VYR_TMetadata::NormalizeKey(QEN_TString const& key) {
  constexpr unsigned kMaxKeyLength = 256;
  std::u16string normalized;
  const std::u16string& chars = key.Chars();
  for (unsigned i = 0; i < chars.size() && i < kMaxKeyLength && chars[i] != 0; ++i) {
    // The upper case of the character, cut to its low byte and widened again
    // with its sign: only what lands on A to Z stays.
    const wint_t upper = std::towupper(static_cast<wint_t>(chars[i]));
    const char16_t narrowed =
        static_cast<char16_t>(static_cast<short>(static_cast<signed char>(upper & 0xFF)));
    normalized += std::iswupper(static_cast<wint_t>(narrowed)) ? narrowed : u'_';
  }
  return QEN_TString(std::move(normalized));
}

QEN_TURL const& VYR_TMetadata::File() const { return Access().File(); }

void VYR_TMetadata::Rescan() { Access().Rescan(); }

bool VYR_TMetadata::Copy(QEN_TURL const& target) { return Access().Copy(target); }

bool VYR_TMetadata::Rename(QEN_TURL const& target) { return Access().Rename(target); }

QEN_TList VYR_TMetadata::GetAllKeys() { return Access().GetAllKeys(); }

VYR_IBuffer const* VYR_TMetadata::GetKeyValue(QEN_TString const& key) {
  return Access().GetKeyValue(NormalizeKey(key));
}

bool VYR_TMetadata::SetKeyValue(QEN_TString const& key, unsigned int size, void const* data,
                                bool commit) {
  return Access().SetKeyValue(NormalizeKey(key), size, data, commit);
}

bool VYR_TMetadata::SetKeyValue(QEN_TString const& key, VYR_IBuffer const& value, bool commit) {
  return Access().SetKeyValue(NormalizeKey(key), value.Size(), value.Buffer(), commit);
}

bool VYR_TMetadata::RemoveKey(QEN_TString const& key) {
  return Access().RemoveKey(NormalizeKey(key));
}

// The store's own answer is not asked: the list of keys is.
bool VYR_TMetadata::HasAnyKey() { return !Access().GetAllKeys().IsEmpty(); }

bool VYR_TMetadata::RemoveAll() {
  QEN_TList keys = Access().GetAllKeys();
  for (QEN_TListKey* key = keys.KeyAtHead(); key != nullptr; key = key->Next()) {
    if (const QEN_TString* name = key->Value().DynamicCast<QEN_TString>()) RemoveKey(*name);
  }
  return true;
}

bool VYR_TMetadata::SetKeyObject(QEN_TString const& key, QEN_IPackable const& object, bool commit) {
  QEN_TMemoryStream memory;
  QEN_TDataStream stream(memory);
  stream << object;
  stream.Flush();
  return SetKeyValue(key, memory.Length(), memory.Data(), commit);
}

QEN_IPackable* VYR_TMetadata::GetKeyObject(QEN_TString const& key) {
  std::unique_ptr<VYR_IBuffer const> value(GetKeyValue(key));
  if (value == nullptr) return nullptr;
  QEN_TMemoryStream memory(const_cast<void*>(value->Buffer()), value->Size(), value->Size());
  QEN_TDataStream stream(memory);
  return stream.Extract(true);
}

QEN_TDict VYR_TMetadata::GetAll() {
  QEN_TDict all;
  QEN_TList keys = Access().GetAllKeys();
  for (QEN_TListKey* entry = keys.KeyAtHead(); entry != nullptr; entry = entry->Next()) {
    const QEN_TString* key = entry->Value().DynamicCast<QEN_TString>();
    if (key == nullptr) continue;
    try {
      QEN_TAny value;
      value = GetKeyObject(*key);
      if (!value.IsNothing()) all.Add(*key, std::move(value));
    } catch (...) {
      // Bytes that are no packed object arrive as they are. They are copied:
      // the backend's buffer points into a cache that the next read frees.
      std::unique_ptr<VYR_IBuffer const> raw(GetKeyValue(*key));
      if (raw != nullptr) all.Add(*key, QEN_TAny(VYR_TBuffer(raw->Duplicate(true))));
    }
  }
  return all;
}

void VYR_TMetadata::PostSetArchiveData(QEN_TDict const&, QEN_TURL const&, QEN_TURL const&) {}
