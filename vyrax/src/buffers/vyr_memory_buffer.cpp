// Buffers over process memory: owned bytes, and references to bytes that
// somebody else keeps.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include <cstdlib>
#include <cstring>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"
#include "platform/vyr_platform.h"

QEN_DEFINE_OBJECT(VYR_TMemoryBuffer, VYR_TBuffPriv, VYR_IBuffer)
QEN_DEFINE_OBJECT(VYR_TMemoryRef, VYR_TBuffPriv, VYR_IBuffer)

namespace {

void* CopyOf(void const* source, unsigned int size, unsigned int offset) {
  void* bytes = vyr::AllocateBytes(size, VYR_SOURCE_NAME, __LINE__);
  if (size > 0) std::memcpy(bytes, static_cast<unsigned char const*>(source) + offset, size);
  return bytes;
}

void* ZeroBytes(unsigned int size, bool& mapped) {
  int error = 0;
  void* bytes = vyr::platform::AllocateZeroed(size, mapped, error);
  if (bytes == nullptr)
    VYR_THROW(VYR_EBufferNotEnoughMemory, "VYR_EBufferNotEnoughMemory", vyr::SystemError(error));
  return bytes;
}

void* Referenced(void* data) {
  if (data == nullptr) VYR_THROW(VYR_EBufferInternal);
  return data;
}

}  // namespace

// --- VYR_TMemoryBuffer ----------------------------------------------------------

VYR_TMemoryBuffer::VYR_TMemoryBuffer(unsigned int size, void* data)
    : VYR_TBuffPriv(data != nullptr ? data : vyr::AllocateBytes(size, VYR_SOURCE_NAME, __LINE__),
                    size) {}

VYR_TMemoryBuffer::VYR_TMemoryBuffer(void const* source, unsigned int size, unsigned int offset)
    : VYR_TBuffPriv(CopyOf(source, size, offset), size) {}

VYR_TMemoryBuffer::VYR_TMemoryBuffer(ZeroedTag, unsigned int size, bool& mapped)
    : VYR_TBuffPriv(ZeroBytes(size, mapped), size), mMapped(mapped) {}

VYR_TMemoryBuffer* VYR_TMemoryBuffer::Zeroed(unsigned int size) {
  bool mapped = false;
  return new VYR_TMemoryBuffer(ZeroedTag(), size, mapped);
}

VYR_TMemoryBuffer::VYR_TMemoryBuffer(VYR_TMemoryBuffer const& other)
    : VYR_IBuffer(), VYR_TBuffPriv(other), mMapped(other.mMapped) {}

VYR_TMemoryBuffer::~VYR_TMemoryBuffer() {
  // Leaving the ring tells, under the ring lock, whether this was the last
  // holder of the bytes.
  if (mData != nullptr && Unlink()) {
    vyr::platform::ReleaseZeroed(mData, mSize, mMapped);
    mData = nullptr;
  }
}

VYR_IBuffer const* VYR_TMemoryBuffer::Duplicate(bool copy) const {
  if (copy) return new VYR_TMemoryBuffer(Buffer(), Size(), 0);
  return new VYR_TMemoryBuffer(*this);
}

// --- VYR_TMemoryRef ---------------------------------------------------------------

VYR_TMemoryRef::VYR_TMemoryRef(unsigned int size, void* data)
    : VYR_TBuffPriv(Referenced(data), size) {}

VYR_TMemoryRef::VYR_TMemoryRef(VYR_TMemoryRef const& other) : VYR_IBuffer(), VYR_TBuffPriv(other) {}

VYR_TMemoryRef::~VYR_TMemoryRef() { mData = nullptr; }

VYR_IBuffer const* VYR_TMemoryRef::Duplicate(bool copy) const {
  if (copy) return new VYR_TMemoryBuffer(Buffer(), Size(), 0);
  // An independent reference, in a ring of its own.
  return new VYR_TMemoryRef(Size(), mData);
}
