// The base of all buffers: the sharing ring, the reservation, and the
// operations that every implementation shares.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include <qen/qen_sync.h>

#include <cstring>
#include <memory>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"
#include "platform/vyr_platform.h"

QEN_DEFINE_OBJECT(VYR_TBuffPriv, QEN_TObject, VYR_IBuffer)

namespace vyr {

QEN_TRWLock& RingLock() {
  // Never destroyed: a buffer held by a static object may die after the
  // statics of this unit.
  static QEN_TRWLock* const lock = new QEN_TRWLock();
  return *lock;
}

unsigned char const* AllBytes(VYR_IBuffer const& buffer) {
  const void* first = buffer.Buffer();
  // Only a partial file view has bytes that can't all be reached by address;
  // asking for its end throws.
  if (!buffer.IsValid() && buffer.Size() > 0) buffer.Buffer(buffer.Size());
  return static_cast<unsigned char const*>(first);
}

void* AllocateBytes(unsigned int size, const char* sourceName, unsigned line) {
  int error = 0;
  void* bytes = platform::Allocate(size, error);
  if (bytes == nullptr)
    ThrowException<VYR_EBufferNotEnoughMemory>(line, sourceName, "VYR_EBufferNotEnoughMemory",
                                               SystemError(error));
  return bytes;
}

}  // namespace vyr

namespace {

[[noreturn]] void ThrowRegionTooLarge(unsigned int offset, unsigned int size) {
  VYR_THROW(VYR_EBufferRegionTooLarge, QEN_TString(),
            QEN_TString::Format("offset = %u, size = %u", offset, size));
}

}  // namespace

VYR_TBuffPriv::VYR_TBuffPriv() : mData(nullptr), mReservation(nullptr), mSize(0), mLink(this) {}

VYR_TBuffPriv::VYR_TBuffPriv(void const* data, unsigned int size)
    : mData(static_cast<unsigned char*>(const_cast<void*>(data))),
      mReservation(nullptr),
      mSize(size),
      mLink(this) {}

VYR_TBuffPriv::VYR_TBuffPriv(VYR_TBuffPriv const& other)
    : VYR_IBuffer(),
      QEN_TObject(),
      mData(static_cast<unsigned char*>(const_cast<void*>(other.Buffer()))),
      mReservation(nullptr),
      mSize(other.Size()),
      mLink(this) {
  other.Link(this);
}

VYR_TBuffPriv::~VYR_TBuffPriv() {
  // An implementation that releases bytes has left the ring already; for the
  // others this is where they leave it.
  Unlink();
  FreeReservation();
}

namespace {
// The links are plain pointers read and written with atomic operations.
VYR_TBuffPriv* LoadLink(VYR_TBuffPriv* const& link, int order) {
  return __atomic_load_n(&link, order);
}
void StoreLink(VYR_TBuffPriv*& link, VYR_TBuffPriv* value, int order) {
  __atomic_store_n(&link, value, order);
}
}  // namespace

void VYR_TBuffPriv::Link(VYR_TBuffPriv* other) const {
  if (other == nullptr) VYR_THROW(VYR_EBufferCannotLink);
  QEN_TWriteGuard guard(vyr::RingLock());
  StoreLink(other->mLink, LoadLink(mLink, __ATOMIC_RELAXED), __ATOMIC_RELAXED);
  StoreLink(mLink, other, __ATOMIC_RELEASE);
}

bool VYR_TBuffPriv::Unlink() {
  if (LoadLink(mLink, __ATOMIC_ACQUIRE) == this) return true;
  QEN_TWriteGuard guard(vyr::RingLock());
  VYR_TBuffPriv* const next = LoadLink(mLink, __ATOMIC_RELAXED);
  // The others may have left while this one waited for the lock.
  if (next == this) return true;
  VYR_TBuffPriv* before = next;
  while (LoadLink(before->mLink, __ATOMIC_RELAXED) != this)
    before = LoadLink(before->mLink, __ATOMIC_RELAXED);
  // Release: what this member did with the bytes happens before the last
  // member, which reads its own link without the lock, frees them.
  StoreLink(before->mLink, next, __ATOMIC_RELEASE);
  StoreLink(mLink, this, __ATOMIC_RELAXED);
  return false;
}

void VYR_TBuffPriv::Reserve(VYR_TBuffPriv* reservation) const {
  VYR_TBuffPriv* const previous = mReservation;
  mReservation = reservation;
  delete previous;
}

VYR_IBuffer const* VYR_TBuffPriv::Duplicate(bool) const { return new VYR_TBuffPriv(*this); }

VYR_IBuffer const* VYR_TBuffPriv::Slice(unsigned int offset, unsigned int size, bool copy) const {
  if (static_cast<unsigned long long>(offset) + size > mSize) VYR_THROW(VYR_EBufferSliceTooLarge);
  if (copy) return new VYR_TMemoryBuffer(Buffer(), size, offset);
  return new VYR_TSliceBuffer(*this, offset, size);
}

void const* VYR_TBuffPriv::Buffer(unsigned int offset) const {
  if (mData == nullptr || offset > mSize) ThrowRegionTooLarge(offset, mSize);
  return mData + offset;
}

void const* VYR_TBuffPriv::Buffer() const {
  if (mData == nullptr) VYR_THROW(VYR_EBufferEmptyBuffer);
  return mData;
}

unsigned int VYR_TBuffPriv::Size() const { return mSize; }

bool VYR_TBuffPriv::IsValid() const { return mData != nullptr && mSize > 0; }

VYR_TBufferAccess VYR_TBuffPriv::BufferAccess() const { return VYR_ReadOnly; }

void const* VYR_TBuffPriv::operator()(unsigned long long offset, unsigned long long size) const {
  const unsigned long long total = Size();
  if (offset > total) VYR_THROW(VYR_EBufferSliceTooLarge);
  if (size == 0) size = total - offset;
  if (size > total - offset) VYR_THROW(VYR_EBufferSliceTooLarge);
  // The previous reservation goes only once the new one exists, so a failure
  // leaves it in place.
  VYR_TBuffPriv* const slice = VYR_TSliceBuffer::Exact(*this, static_cast<unsigned int>(offset),
                                                       static_cast<unsigned int>(size), Size());
  Reserve(slice);
  return slice->Buffer();
}

VYR_IBuffer const* VYR_TBuffPriv::Reserved() const { return mReservation; }

void VYR_TBuffPriv::FreeReservation() const { Reserve(nullptr); }

VYR_IBuffer const* VYR_TBuffPriv::CopyContentFrom(VYR_IBuffer const& source, unsigned int offset,
                                                  unsigned int size) const {
  // Through a slice, so that its limits apply and size 0 means to the end.
  const VYR_TBuffer part(source.Slice(offset, size, false));
  return CopyContentFrom(vyr::AllBytes(part), part.Size());
}

VYR_IBuffer const* VYR_TBuffPriv::CopyContentFrom(VYR_IBuffer const& source) const {
  return CopyContentFrom(vyr::AllBytes(source), source.Size());
}

VYR_IBuffer const* VYR_TBuffPriv::CopyContentFrom(void const* source, unsigned int size) const {
  if (size > Size()) VYR_THROW(VYR_EBufferDestinationTooSmall);
  // Writing into a read-only view would fault; refuse it in order.
  if (BufferAccess() != VYR_ReadWrite)
    VYR_THROW(VYR_EBufferInternal, "CopyContentFrom into a buffer that is not ReadWrite");
  unsigned char* const destination = static_cast<unsigned char*>(const_cast<void*>(Buffer()));
  // The source may be a part of this very buffer.
  if (size > 0) std::memmove(destination, source, size);
  return this;
}
