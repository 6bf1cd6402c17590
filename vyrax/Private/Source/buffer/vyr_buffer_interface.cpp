// The buffer interface: its non-virtual members and its factories.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include "vyr_buffer-priv.h"
#include "vyr_throw.h"

QEN_DEFINE_INTERFACE(VYR_IBuffer)

void const* VYR_IBuffer::Buffer(unsigned int offset, unsigned int size) const {
  if (!IsValid()) return nullptr;
  if (static_cast<unsigned long long>(offset) + size > Size()) return nullptr;
  return Buffer(offset);
}

VYR_IBuffer const* VYR_IBuffer::Create(QEN_TString const& name, unsigned int positionLow,
                                       unsigned int positionHigh, unsigned int size) {
  if (name.Find("://") >= 0) {
    // Whatever goes wrong on the URL route, the name is tried as a path.
    try {
      return Create(QEN_TURL(name), positionLow, positionHigh, size);
    } catch (...) {
    }
  }
  return vyr::OpenByPath(name, positionLow, positionHigh, size);
}

VYR_IBuffer const* VYR_IBuffer::Create(QEN_TString const& name, VYR_TTag const& tag) {
  return Create(name, tag.Position(), tag.PositionHigh(), tag.Size());
}

VYR_IBuffer const* VYR_IBuffer::Create(QEN_TURL const& url, unsigned int positionLow,
                                       unsigned int positionHigh, unsigned int size) {
  const QEN_TString& protocol = url.Protocol();
  // A "file" URL names a local file: its path goes straight to the file
  // route and is never read as a URL again, so no text can send the
  // factories around in circles.
  if (protocol == "file") return vyr::OpenByPath(url.LocalPath(), positionLow, positionHigh, size);
  if (protocol == "embed") return vyr::OpenEmbedded(url, positionLow, positionHigh, size);
  if (protocol == "extern") VYR_THROW(VYR_EBufferInternal);
  VYR_THROW(VYR_EBufferUnknownProtocol);
}

VYR_IBuffer const* VYR_IBuffer::Create(QEN_TURL const& url, VYR_TTag const& tag) {
  return Create(url, tag.Position(), tag.PositionHigh(), tag.Size());
}

VYR_IBuffer const* VYR_IBuffer::Create(unsigned int size, void const* data, bool copy) {
  if (data == nullptr) return new VYR_TMemoryBuffer(size, nullptr);
  if (copy) return new VYR_TMemoryBuffer(data, size, 0);
  return new VYR_TMemoryBuffer(size, const_cast<void*>(data));
}

VYR_IBuffer const* VYR_IBuffer::CreateRef(unsigned int size, void* data) {
  return new VYR_TMemoryRef(size, data);
}

VYR_IBuffer const* VYR_IBuffer::ExtendBuffer(VYR_IBuffer const* buffer) {
  // Any number of handles are looked through.
  while (buffer != nullptr && buffer->HasSuperclass("VYR_TBuffer")) {
    const VYR_TBuffer* handle = static_cast<const VYR_TBuffer*>(buffer->DynamicCast("VYR_TBuffer"));
    buffer = handle != nullptr ? handle->mHeld : nullptr;
  }
  if (buffer == nullptr || !buffer->HasSuperclass("VYR_TSliceBuffer")) return nullptr;
  const VYR_TSliceBuffer* slice =
      static_cast<const VYR_TSliceBuffer*>(buffer->DynamicCast("VYR_TSliceBuffer"));
  if (slice == nullptr) return nullptr;
  // Size 0: to the end of the parent, or of what a partial file view reaches.
  return slice->Parent()->Slice(slice->Offset(), 0, false);
}
