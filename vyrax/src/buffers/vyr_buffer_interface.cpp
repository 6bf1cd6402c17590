// The buffer interface: its non-virtual members and its factories.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include <exception>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"

QEN_DEFINE_INTERFACE(VYR_IBuffer)

void const* VYR_IBuffer::Buffer(unsigned int offset, unsigned int size) const {
  if (!IsValid()) return nullptr;
  if (static_cast<unsigned long long>(offset) + size > Size()) return nullptr;
  return Buffer(offset);
}

VYR_IBuffer const* VYR_IBuffer::Create(QEN_TString const& name, unsigned int positionLow,
                                       unsigned int positionHigh, unsigned int size) {
  if (name.Find("://") < 0)
    return VYR_TFileBuffer::OpenByPath(name, positionLow, positionHigh, size);
  // Whatever goes wrong on the URL route, the name is tried as a path. When
  // that fails too, a URL of a protocol this library knows reports its own
  // failure, the real cause; any other name reports the path's.
  std::exception_ptr urlFailure;
  try {
    const QEN_TURL url(name);
    try {
      return Create(url, positionLow, positionHigh, size);
    } catch (VYR_EBufferUnknownProtocol const&) {
    } catch (...) {
      urlFailure = std::current_exception();
    }
  } catch (...) {
  }
  try {
    return VYR_TFileBuffer::OpenByPath(name, positionLow, positionHigh, size);
  } catch (...) {
    if (urlFailure) std::rethrow_exception(urlFailure);
    throw;
  }
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
  if (protocol == "file")
    return VYR_TFileBuffer::OpenByPath(url.LocalPath(), positionLow, positionHigh, size);
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
  return slice != nullptr ? slice->Extend() : nullptr;
}
