// The packable handle that owns one buffer.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include <qen/qen_stream.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"

QEN_DEFINE_VALUE(VYR_TBuffer, QEN_TObject, QEN_IPackable, VYR_IBuffer)

namespace {

// Sizes up to this are allocated at once when unpacking; beyond it the bytes
// are allocated as they arrive, so that a forged size can't claim more
// memory than the stream holds.
constexpr unsigned int kTrustedUnpackSize = 1u << 20;

VYR_IBuffer const* DuplicateOf(VYR_IBuffer const* buffer) {
  return buffer != nullptr ? buffer->Duplicate(false) : nullptr;
}

// Reads `size` bytes into memory that grows as they arrive.
void* UnpackGrowing(QEN_IUnpacking& in, unsigned int size) {
  std::size_t capacity = kTrustedUnpackSize;
  unsigned char* bytes = static_cast<unsigned char*>(
      vyr::AllocateBytes(static_cast<unsigned int>(capacity), VYR_SOURCE_NAME, __LINE__));
  std::size_t have = 0;
  try {
    while (have < size) {
      if (have == capacity) {
        capacity = capacity * 2 < size ? capacity * 2 : size;
        void* grown = std::realloc(bytes, capacity);
        if (grown == nullptr) {
          const int error = errno != 0 ? errno : ENOMEM;
          VYR_THROW(VYR_EBufferNotEnoughMemory, "VYR_EBufferNotEnoughMemory",
                    vyr::SystemError(error));
        }
        bytes = static_cast<unsigned char*>(grown);
      }
      const std::size_t chunk = (size - have < capacity - have) ? size - have : capacity - have;
      in.GetBytes(bytes + have, static_cast<unsigned int>(chunk));
      have += chunk;
    }
  } catch (...) {
    std::free(bytes);
    throw;
  }
  return bytes;
}

}  // namespace

VYR_TBuffer::VYR_TBuffer() : mHeld(nullptr) {}

VYR_TBuffer::VYR_TBuffer(VYR_IBuffer const* buffer) : mHeld(buffer) {}

VYR_TBuffer::VYR_TBuffer(VYR_IBuffer const& buffer) : mHeld(buffer.Duplicate(false)) {}

VYR_TBuffer::VYR_TBuffer(VYR_TBuffer const& other)
    : VYR_IBuffer(), QEN_IPackable(), QEN_TObject(), mHeld(DuplicateOf(other.mHeld)) {}

VYR_TBuffer::VYR_TBuffer(VYR_IBuffer const& buffer, unsigned int offset, unsigned int size)
    : mHeld(buffer.Slice(offset, size, false)) {}

VYR_TBuffer::VYR_TBuffer(unsigned int size, void const* data, bool copy)
    : mHeld(VYR_IBuffer::Create(size, data, copy)) {}

VYR_TBuffer::VYR_TBuffer(QEN_TString const& name, VYR_TTag const& tag)
    : mHeld(VYR_IBuffer::Create(name, tag)) {}

VYR_TBuffer::VYR_TBuffer(QEN_TString const& name, unsigned int positionLow,
                         unsigned int positionHigh, unsigned int size)
    : mHeld(VYR_IBuffer::Create(name, positionLow, positionHigh, size)) {}

VYR_TBuffer::VYR_TBuffer(QEN_TURL const& url, VYR_TTag const& tag)
    : mHeld(VYR_IBuffer::Create(url, tag)) {}

VYR_TBuffer::VYR_TBuffer(QEN_TURL const& url, unsigned int positionLow, unsigned int positionHigh,
                         unsigned int size)
    : mHeld(VYR_IBuffer::Create(url, positionLow, positionHigh, size)) {}

VYR_TBuffer::~VYR_TBuffer() {
  delete mHeld;
  mHeld = nullptr;
}

VYR_IBuffer const* VYR_TBuffer::operator=(VYR_IBuffer const* buffer) {
  // Taking over what is already held must not delete it first.
  if (buffer != mHeld) {
    delete mHeld;
    mHeld = buffer;
  }
  return buffer;
}

VYR_TBuffer& VYR_TBuffer::operator=(VYR_TBuffer const& other) {
  if (this == &other) return *this;
  VYR_IBuffer const* const copy = DuplicateOf(other.mHeld);
  delete mHeld;
  mHeld = copy;
  return *this;
}

bool VYR_TBuffer::operator==(VYR_TBuffer const& other) const {
  const unsigned int size = Size();
  if (size != other.Size()) return false;
  if (size == 0) return true;
  unsigned char const* const mine = vyr::AllBytes(Held());
  unsigned char const* const theirs = vyr::AllBytes(other.Held());
  return mine == theirs || std::memcmp(mine, theirs, size) == 0;
}

bool VYR_TBuffer::operator!=(VYR_TBuffer const& other) const { return !(*this == other); }

VYR_IBuffer const& VYR_TBuffer::Held() const {
  if (mHeld == nullptr) VYR_THROW(VYR_EBufferEmptyBuffer);
  return *mHeld;
}

// --- Forwarders ---------------------------------------------------------------------

VYR_IBuffer const* VYR_TBuffer::Duplicate(bool) const { return Held().Duplicate(false); }

VYR_IBuffer const* VYR_TBuffer::Slice(unsigned int offset, unsigned int size, bool copy) const {
  return Held().Slice(offset, size, copy);
}

void const* VYR_TBuffer::Buffer(unsigned int offset) const { return Held().Buffer(offset); }

void const* VYR_TBuffer::Buffer() const { return Held().Buffer(); }

unsigned int VYR_TBuffer::Size() const { return mHeld != nullptr ? mHeld->Size() : 0; }

bool VYR_TBuffer::IsValid() const { return mHeld != nullptr && mHeld->IsValid(); }

VYR_TBufferAccess VYR_TBuffer::BufferAccess() const { return Held().BufferAccess(); }

void const* VYR_TBuffer::operator()(unsigned long long offset, unsigned long long size) const {
  return Held()(offset, size);
}

VYR_IBuffer const* VYR_TBuffer::Reserved() const {
  return mHeld != nullptr ? mHeld->Reserved() : nullptr;
}

void VYR_TBuffer::FreeReservation() const {
  if (mHeld != nullptr) mHeld->FreeReservation();
}

VYR_IBuffer const* VYR_TBuffer::CopyContentFrom(VYR_IBuffer const& source, unsigned int offset,
                                                unsigned int size) const {
  return Held().CopyContentFrom(source, offset, size);
}

VYR_IBuffer const* VYR_TBuffer::CopyContentFrom(VYR_IBuffer const& source) const {
  return Held().CopyContentFrom(source);
}

VYR_IBuffer const* VYR_TBuffer::CopyContentFrom(void const* source, unsigned int size) const {
  return Held().CopyContentFrom(source, size);
}

// --- Binary form: the size, then the bytes ----------------------------------------------

void VYR_TBuffer::QEN_Pack(QEN_IPacking& out) const {
  const unsigned int size = Size();
  out << size;
  if (size > 0) out.PutBytes(vyr::AllBytes(Held()), size);
}

void VYR_TBuffer::QEN_Unpack(QEN_IUnpacking& in) {
  delete mHeld;
  mHeld = nullptr;
  unsigned int size = 0;
  in >> &size;
  if (size <= kTrustedUnpackSize) {
    std::unique_ptr<VYR_TMemoryBuffer> buffer(new VYR_TMemoryBuffer(size, nullptr));
    if (size > 0) in.GetBytes(const_cast<void*>(buffer->Buffer()), size);
    mHeld = buffer.release();
    return;
  }
  void* bytes = UnpackGrowing(in, size);
  try {
    mHeld = new VYR_TMemoryBuffer(size, bytes);
  } catch (...) {
    std::free(bytes);
    throw;
  }
}
