// Slices: a part of another buffer, kept alive by the slice's own duplicate
// of it.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include <memory>

#include "buffers/vyr_buffer-priv.h"
#include "core/vyr_throw.h"
#include "platform/vyr_platform.h"

QEN_DEFINE_OBJECT(VYR_TSliceBuffer, VYR_TBuffPriv, VYR_IBuffer)

namespace {

// The first byte of the slice, once the range is known to lie within `limit`.
// The owner's Buffer() comes first: an owner without bytes is reported as
// such whatever the range.
unsigned char const* StartOf(VYR_IBuffer const& owner, unsigned int offset, unsigned int size,
                             unsigned int limit) {
  unsigned char const* first = static_cast<unsigned char const*>(owner.Buffer());
  if (static_cast<unsigned long long>(offset) + size > limit) VYR_THROW(VYR_EBufferSliceTooLarge);
  return first + offset;
}

}  // namespace

VYR_TSliceBuffer::VYR_TSliceBuffer(VYR_IBuffer const& parent, unsigned int offset,
                                   unsigned int size)
    : VYR_TSliceBuffer(
          nullptr,
          // Size 0 asks for the rest; an offset past the end
          // makes this wrap, and the range test refuses it.
          StartOf(parent, offset, size != 0 ? size : parent.Size() - offset, parent.Size()),
          size != 0 ? size : parent.Size() - offset, offset, kOwnersEnd, -1) {
  mParent = parent.Duplicate(false);
}

VYR_TSliceBuffer::VYR_TSliceBuffer(VYR_IBuffer const* owner, unsigned char const* data,
                                   unsigned int size, unsigned int offset,
                                   unsigned long long cutFromEnd, std::intptr_t mapping)
    : VYR_TBuffPriv(data, size),
      mParent(owner),
      mOffset(offset),
      mCutFromEnd(cutFromEnd),
      mMapping(mapping) {}

VYR_TSliceBuffer::VYR_TSliceBuffer(VYR_TSliceBuffer const& other)
    : VYR_IBuffer(),
      VYR_TBuffPriv(other.mData, other.mSize),
      mParent(other.mParent->Duplicate(false)),
      mOffset(other.mOffset),
      mCutFromEnd(other.mCutFromEnd),
      mMapping(other.mMapping) {}

VYR_TSliceBuffer::~VYR_TSliceBuffer() { delete mParent; }

VYR_TSliceBuffer* VYR_TSliceBuffer::Exact(VYR_IBuffer const& owner, unsigned int offset,
                                          unsigned int size, unsigned int limit,
                                          std::intptr_t mapping) {
  return Cut(owner, StartOf(owner, offset, size, limit), size, offset, kOwnersEnd, mapping);
}

VYR_TSliceBuffer* VYR_TSliceBuffer::Cut(VYR_IBuffer const& owner, unsigned char const* data,
                                        unsigned int size, unsigned int offset,
                                        unsigned long long cutFromEnd, std::intptr_t mapping) {
  // The owner's duplicate belongs to the slice once the slice exists.
  std::unique_ptr<VYR_IBuffer const> duplicate(owner.Duplicate(false));
  VYR_TSliceBuffer* slice =
      new VYR_TSliceBuffer(duplicate.get(), data, size, offset, cutFromEnd, mapping);
  duplicate.release();
  return slice;
}

VYR_IBuffer const* VYR_TSliceBuffer::Duplicate(bool copy) const {
  if (copy) return new VYR_TMemoryBuffer(mData, mSize, 0);
  return new VYR_TSliceBuffer(*this);
}

VYR_IBuffer const* VYR_TSliceBuffer::Slice(unsigned int offset, unsigned int size,
                                           bool copy) const {
  if (static_cast<unsigned long long>(offset) + size > mSize) VYR_THROW(VYR_EBufferSliceTooLarge);
  if (copy) return new VYR_TMemoryBuffer(Buffer(), size, offset);
  // A slice of the owner, not of this slice: chains stay one level deep.
  if (size == 0) size = mSize - offset;
  return Cut(*mParent, mData + offset, size, mOffset + offset, mOffset + mSize, mMapping);
}

VYR_IBuffer const* VYR_TSliceBuffer::Extend() const {
  // Size 0: to the end of the owner, or of what a partial file view reaches.
  if (mCutFromEnd == kOwnersEnd) return mParent->Slice(mOffset, 0, false);
  return Cut(*mParent, mData, static_cast<unsigned int>(mCutFromEnd - mOffset), mOffset,
             mCutFromEnd, mMapping);
}

bool VYR_TSliceBuffer::IsValid() const {
  return VYR_TBuffPriv::IsValid() && !vyr::platform::ViewDamaged(mMapping);
}

VYR_TBufferAccess VYR_TSliceBuffer::BufferAccess() const { return mParent->BufferAccess(); }

void const* VYR_TSliceBuffer::operator()(unsigned long long offset, unsigned long long size) const {
  // Counted from the slice's start, limited by the owner's end. An offset
  // so large that the sum wraps can't lie in any owner.
  const unsigned long long inParent = offset + mOffset;
  if (inParent < offset) VYR_THROW(VYR_EBufferSliceTooLarge);
  return (*mParent)(inParent, size);
}

VYR_IBuffer const* VYR_TSliceBuffer::Reserved() const { return mParent->Reserved(); }

void VYR_TSliceBuffer::FreeReservation() const { mParent->FreeReservation(); }
