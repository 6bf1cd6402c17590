// Slices: a part of another buffer, kept alive by the slice's own duplicate
// of it.
#define VYR_SOURCE_NAME "Private/Source/vyr_buffer"

#include "vyr_buffer-priv.h"
#include "vyr_throw.h"

QEN_DEFINE_OBJECT(VYR_TSliceBuffer, VYR_TBuffPriv, VYR_IBuffer)

namespace {

// The first byte of the slice, once the range is known to lie within `limit`.
// The parent's Buffer() comes first: a parent without bytes is reported as
// such whatever the range.
unsigned char const* StartOf(VYR_IBuffer const& parent, unsigned int offset, unsigned int size,
                             unsigned int limit) {
  unsigned char const* first = static_cast<unsigned char const*>(parent.Buffer());
  if (static_cast<unsigned long long>(offset) + size > limit) VYR_THROW(VYR_EBufferSliceTooLarge);
  return first + offset;
}

}  // namespace

VYR_TSliceBuffer::VYR_TSliceBuffer(VYR_IBuffer const& parent, unsigned int offset,
                                   unsigned int size)
    : VYR_TSliceBuffer(ExactTag(), parent, offset,
                       // Size 0 asks for the rest; an offset past the end
                       // makes this wrap, and the range test refuses it.
                       size != 0 ? size : parent.Size() - offset, parent.Size()) {}

VYR_TSliceBuffer::VYR_TSliceBuffer(ExactTag, VYR_IBuffer const& parent, unsigned int offset,
                                   unsigned int size, unsigned int limit)
    : VYR_TBuffPriv(StartOf(parent, offset, size, limit), size),
      mParent(parent.Duplicate(false)),
      mOffset(offset) {}

VYR_TSliceBuffer::VYR_TSliceBuffer(VYR_TSliceBuffer const& other)
    : VYR_IBuffer(),
      VYR_TBuffPriv(other.mData, other.mSize),
      mParent(other.mParent->Duplicate(false)),
      mOffset(other.mOffset) {}

VYR_TSliceBuffer::~VYR_TSliceBuffer() { delete mParent; }

VYR_TSliceBuffer* VYR_TSliceBuffer::Exact(VYR_IBuffer const& parent, unsigned int offset,
                                          unsigned int size, unsigned int limit) {
  return new VYR_TSliceBuffer(ExactTag(), parent, offset, size, limit);
}

VYR_IBuffer const* VYR_TSliceBuffer::Duplicate(bool copy) const {
  if (copy) return new VYR_TMemoryBuffer(mData, mSize, 0);
  return new VYR_TSliceBuffer(*this);
}

VYR_TBufferAccess VYR_TSliceBuffer::BufferAccess() const { return mParent->BufferAccess(); }

void const* VYR_TSliceBuffer::operator()(unsigned long long offset, unsigned long long size) const {
  // Counted from the slice's start, limited by the parent's end. An offset
  // so large that the sum wraps can't lie in any parent.
  const unsigned long long inParent = offset + mOffset;
  if (inParent < offset) VYR_THROW(VYR_EBufferSliceTooLarge);
  return (*mParent)(inParent, size);
}

VYR_IBuffer const* VYR_TSliceBuffer::Reserved() const { return mParent->Reserved(); }

void VYR_TSliceBuffer::FreeReservation() const { mParent->FreeReservation(); }
