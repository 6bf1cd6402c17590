// Metadata kept in extended attributes of the file.
#define VYR_SOURCE_NAME "Private/Source/vyr_ntfs_metadata"

#include "metadata/vyr_xattr_metadata.h"

#include <qen/qen_file.h>

#include <cerrno>
#include <cstring>

#include "core/vyr_throw.h"
#include "core/vyr_trace.h"
#include "core/vyr_version_stamp.h"
#include "platform/vyr_platform.h"

VYR_VERSION_STAMP()

using vyr::platform::kInvalidHandle;

QEN_DEFINE_OBJECT(VYR_TEA, QEN_TObject, VYR_IMetadata)

namespace {

const char kUserPrefix[] = "user.";
constexpr std::size_t kUserPrefixLength = sizeof kUserPrefix - 1;
// A key has at most 255 bytes; a value is refused above 65,024 bytes.
constexpr std::size_t kMaxKeyLength = 255;
constexpr unsigned kMaxValueLength = 65024;
// The largest value the system keeps in one attribute.
constexpr std::size_t kMaxSystemValue = 65536;

// Whether a key is a metadata key: one or more of "A" to "Z" and "_", which
// is exactly what key normalisation leaves as it is. Every other attribute
// belongs to other programs and is left alone.
bool IsKey(const char* key) {
  if (*key == '\0') return false;
  for (; *key != '\0'; ++key)
    if (!((*key >= 'A' && *key <= 'Z') || *key == '_')) return false;
  return true;
}

int Descriptor(std::intptr_t handle) { return static_cast<int>(handle); }

}  // namespace

VYR_TEA::VYR_TEA(QEN_TURL const& file)
    : mFile(file), mHandle(kInvalidHandle), mReadOnly(true), mListed(false) {
  const QEN_TString path = mFile.LocalPath();
  if (!Open(path)) {
    // Not thrown here: the object stays closed and the first Rescan throws.
    VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TEA::VYR_TEA() Cannot open file (%s): %s", path.c_str(),
              vyr::SystemErrorText(errno).c_str());
  }
}

VYR_TEA::~VYR_TEA() { Close(); }

void VYR_TEA::ThrowNoAccess() const {
  VYR_THROW(VYR_EMetadataFileDoesNotExist, "Cannot access metadata for %s", mFile.AsString());
}

void VYR_TEA::Forget() {
  mKeys.clear();
  mListed = false;
}

bool VYR_TEA::Open(QEN_TString const& path) {
  // Non-blocking, so that a FIFO does not wait for a writer.
  const int fd = vyr::sys::Open(path.c_str(), vyr::sys::kRead | vyr::sys::kNonBlocking);
  mHandle = fd >= 0 ? fd : kInvalidHandle;
  return fd >= 0;
}

void VYR_TEA::Close() {
  vyr::platform::CloseFile(mHandle);
  mHandle = kInvalidHandle;
}

void VYR_TEA::Rescan() {
  if (mHandle == kInvalidHandle) ThrowNoAccess();
  Forget();
}

bool VYR_TEA::ListKeys(std::vector<std::string>& keys) {
  keys.clear();
  std::string names;
  const bool listed = vyr::sys::ListAttributes(Descriptor(mHandle), names);
  VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TEA: the list of attributes (%u bytes) returned $%x\n",
            static_cast<unsigned>(names.size()), listed ? 0u : static_cast<unsigned>(errno));
  for (std::size_t at = 0; listed && at < names.size();) {
    const char* name = names.c_str() + at;
    const std::size_t length = std::strlen(name);
    at += length + 1;
    if (std::strncmp(name, kUserPrefix, kUserPrefixLength) == 0 &&
        length - kUserPrefixLength <= kMaxKeyLength && IsKey(name + kUserPrefixLength))
      keys.emplace_back(name + kUserPrefixLength);
  }
  return listed;
}

VYR_IBuffer const* VYR_TEA::GetKeyValue(QEN_TString const& key) {
  Rescan();
  // A name that is no key is nobody's value here.
  if (!IsKey(key.c_str())) ThrowNoAccess();
  const std::string name = kUserPrefix + std::string(key.c_str());
  // Room for the largest value there can be, read in one call.
  mValue.resize(kMaxSystemValue);
  const long long got =
      vyr::sys::GetAttribute(Descriptor(mHandle), name.c_str(), mValue.data(), mValue.size());
  VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TEA: the read of \"%s\" (%lld bytes) returned $%x\n",
            key.c_str(), got, got >= 0 ? 0u : static_cast<unsigned>(errno));
  if (got < 0) ThrowNoAccess();
  return VYR_IBuffer::CreateRef(static_cast<unsigned>(got), mValue.data());
}

QEN_TList VYR_TEA::GetAllKeys() {
  QEN_TList keys;
  if (mHandle == kInvalidHandle) ThrowNoAccess();
  if (!HasAnyKey()) return keys;
  // A list that cannot be read looks like no attributes at all; HasAnyKey
  // still asks the file.
  if (!mListed) ListKeys(mKeys);
  mListed = true;
  for (const std::string& key : mKeys) keys.Add(QEN_TAny(QEN_TString(key.c_str())));
  return keys;
}

bool VYR_TEA::HasAnyKey() {
  if (mHandle == kInvalidHandle) return false;
  std::vector<std::string> keys;
  return ListKeys(keys) && !keys.empty();
}

bool VYR_TEA::VolumeKeepsAttributes() const {
  return QEN_TVolumeInfo(mFile.LocalPath()).KeepsUserAttributes();
}

bool VYR_TEA::AskWriteAccess() {
  if (!mReadOnly) return true;
  const QEN_TString path = mFile.LocalPath();
  if (VolumeKeepsAttributes()) {
    VYR_TRACE(vyr::kTraceLifeCycle, "Trying RW access for %s\n", mFile.AsString().c_str());
    Close();
    // The attributes are the file's to change when the file may be written;
    // the descriptor itself is opened to read, which also serves folders.
    if (vyr::sys::CanWrite(path.c_str()) && Open(path)) {
      mReadOnly = false;
    } else {
      const int error = errno;
      Close();
      VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TEA::VYR_TEA() Cannot open file for write (%s): %s",
                path.c_str(), vyr::SystemErrorText(error).c_str());
    }
  } else {
    VYR_TRACE(vyr::kTraceLifeCycle, "Trying to write to RO file %s\n", mFile.AsString().c_str());
    Close();
  }
  return !mReadOnly;
}

bool VYR_TEA::WriteAttribute(QEN_TString const& key, void const* value, unsigned int length) {
  if (mHandle == kInvalidHandle) return true;
  const std::size_t keyLength = std::strlen(key.c_str());
  if (length == 0 && keyLength == 0) return true;
  // A longer key is refused like a longer value, and so is a name that is
  // no key: an attribute of another program is never replaced or removed.
  if (length > kMaxValueLength || keyLength > kMaxKeyLength || !IsKey(key.c_str())) return false;
  const std::string name = kUserPrefix + std::string(key.c_str());
  const int fd = Descriptor(mHandle);
  // An empty value removes the key; removing one that is not there succeeds.
  const bool written = length == 0 ? vyr::sys::RemoveAttribute(fd, name.c_str()) || errno == ENODATA
                                   : vyr::sys::SetAttribute(fd, name.c_str(), value, length);
  const int error = written ? 0 : errno;
  VYR_TRACE(vyr::kTraceLifeCycle, "VYR_TEA: the write of \"%s\" (%u bytes) returned $%x\n",
            key.c_str(), length, static_cast<unsigned>(error));
  if (!written) {
    VYR_TRACE(vyr::kTraceLifeCycle, "Cannot write metadata: %s%s", "",
              vyr::SystemErrorText(error).c_str());
  }
  return written;
}

bool VYR_TEA::SetKeyValue(QEN_TString const& key, unsigned int size, void const* data,
                          bool commit) {
  Forget();
  if (!commit) return true;
  if (!AskWriteAccess() || mHandle == kInvalidHandle || mReadOnly) return false;
  return WriteAttribute(key, data, size);
}

bool VYR_TEA::SetKeyValue(QEN_TString const& key, VYR_IBuffer const& value, bool commit) {
  const bool written = SetKeyValue(key, value.Size(), value.Buffer(), commit);
  return commit && written;
}

bool VYR_TEA::RemoveKey(QEN_TString const& key) {
  // The listing read before would still name the key.
  Forget();
  if (!AskWriteAccess() || mHandle == kInvalidHandle || mReadOnly) return false;
  return WriteAttribute(key, nullptr, 0);
}

bool VYR_TEA::Copy(QEN_TURL const&) { return false; }

bool VYR_TEA::Rename(QEN_TURL const&) { return false; }
