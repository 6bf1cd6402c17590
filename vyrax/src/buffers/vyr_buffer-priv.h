// The buffer implementations that are not visible outside the library, the
// process-wide table of file mappings, and the locks of the buffer unit.
#ifndef VYR_BUFFER_PRIV_H
#define VYR_BUFFER_PRIV_H

#include <qen/qen_string.h>
#include <qen/qen_sync.h>

#include "core/vyr_throw.h"
#include "platform/vyr_platform.h"
#include "vyrax/vyr_buffer.h"

// The source name of what this header throws itself.
#define VYR_BUFFER_PRIV_SOURCE "Private/Include/vyr_buffer-priv"

// Bytes from the heap, owned by the sharing ring and freed by its last member.
class VYR_LOCAL VYR_TMemoryBuffer : public VYR_TBuffPriv, public virtual VYR_IBuffer {
  QEN_OBJECT_FRAME(VYR_TMemoryBuffer)

 public:
  // Takes over `data` (memory from malloc), or with null data allocates
  // `size` bytes, not initialised.
  VYR_TMemoryBuffer(unsigned int size, void* data);
  // A private copy of `size` bytes from source + offset.
  VYR_TMemoryBuffer(void const* source, unsigned int size, unsigned int offset);
  // The same bytes, in the ring of `other`.
  VYR_TMemoryBuffer(VYR_TMemoryBuffer const& other);
  // There is no memory buffer without a size: only the class frame's factory
  // calls this, and it always throws.
  VYR_TMemoryBuffer() {
    vyr::ThrowException<VYR_EBufferInternal>(__LINE__, VYR_BUFFER_PRIV_SOURCE);
  }
  ~VYR_TMemoryBuffer() override;

  // `size` bytes of zeros; a large block costs no memory until written.
  static VYR_TMemoryBuffer* Zeroed(unsigned int size);

  VYR_IBuffer const* Duplicate(bool copy) const override;
  VYR_TBufferAccess BufferAccess() const override { return VYR_ReadWrite; }

 private:
  struct ZeroedTag {};
  VYR_TMemoryBuffer(ZeroedTag, unsigned int size, bool& mapped);

  // The bytes are a mapping of their own rather than heap memory.
  bool mMapped = false;
};

// Bytes that somebody else keeps. Nothing here frees them; a duplicate is an
// independent reference, alone in its ring.
class VYR_LOCAL VYR_TMemoryRef : public VYR_TBuffPriv, public virtual VYR_IBuffer {
  QEN_OBJECT_FRAME(VYR_TMemoryRef)

 public:
  // Null data throws VYR_EBufferInternal.
  VYR_TMemoryRef(unsigned int size, void* data);
  VYR_TMemoryRef(VYR_TMemoryRef const& other);
  VYR_TMemoryRef() { vyr::ThrowException<VYR_EBufferInternal>(__LINE__, VYR_BUFFER_PRIV_SOURCE); }
  ~VYR_TMemoryRef() override;

  VYR_IBuffer const* Duplicate(bool copy) const override;
  VYR_TBufferAccess BufferAccess() const override { return VYR_ReadWrite; }
};

// A part of another buffer. The slice holds its own duplicate of the buffer
// that owns the bytes (mParent), which keeps them alive; it is a ring of one
// itself. A slice of a slice refers to that same owner, so chains of slices
// stay one level deep. Addresses are relative to the slice and limited by
// it; operator() and the reservation are the owner's, so operator() counts
// from the slice's start but is limited by the owner's end.
class VYR_LOCAL VYR_TSliceBuffer : public VYR_TBuffPriv, public virtual VYR_IBuffer {
  QEN_OBJECT_FRAME(VYR_TSliceBuffer)

 public:
  // `size` 0 means up to the end of `parent`.
  VYR_TSliceBuffer(VYR_IBuffer const& parent, unsigned int offset, unsigned int size);
  VYR_TSliceBuffer(VYR_TSliceBuffer const& other);
  VYR_TSliceBuffer() { vyr::ThrowException<VYR_EBufferInternal>(__LINE__, VYR_BUFFER_PRIV_SOURCE); }
  ~VYR_TSliceBuffer() override;

  // Exactly `size` bytes from `offset`, also 0 of them, within `limit` bytes
  // of the owner that may be reached by address. `mapping` is the owner's
  // when it is a file buffer, whose damage the slice then reports too.
  static VYR_TSliceBuffer* Exact(VYR_IBuffer const& owner, unsigned int offset, unsigned int size,
                                 unsigned int limit, std::intptr_t mapping = -1);

  VYR_IBuffer const* Duplicate(bool copy) const override;
  VYR_IBuffer const* Slice(unsigned int offset, unsigned int size, bool copy) const override;
  bool IsValid() const override;
  VYR_TBufferAccess BufferAccess() const override;
  void const* operator()(unsigned long long offset, unsigned long long size) const override;
  VYR_IBuffer const* Reserved() const override;
  void FreeReservation() const override;

  // The rest of the buffer this slice was cut from, from the slice's start.
  VYR_IBuffer const* Extend() const;

 private:
  // The end, in the owner, of the buffer the slice was cut from; kOwnersEnd
  // when that buffer is the owner itself.
  static constexpr unsigned long long kOwnersEnd = ~0ull;

  VYR_TSliceBuffer(VYR_IBuffer const* owner, unsigned char const* data, unsigned int size,
                   unsigned int offset, unsigned long long cutFromEnd, std::intptr_t mapping);
  // A slice holding a duplicate of `owner`; `data` lies at `offset` in it.
  static VYR_TSliceBuffer* Cut(VYR_IBuffer const& owner, unsigned char const* data,
                               unsigned int size, unsigned int offset,
                               unsigned long long cutFromEnd, std::intptr_t mapping);

  VYR_IBuffer const* mParent;
  unsigned int mOffset;
  unsigned long long mCutFromEnd;
  std::intptr_t mMapping;
};

// One record of the table of file mappings: one view of one file, shared by
// all the sharing rings that use it. A file is known by its identity, never
// by its name.
struct VYR_TMappedFile {
  unsigned int size;  // as given to the mapping, 0 for the whole file
  unsigned int positionLow;
  unsigned int positionHigh;
  unsigned int useCount;  // sharing rings using this record
  QEN_TString name;       // as first given, for messages
  std::intptr_t file;
  std::intptr_t mapping;  // the guard's watch of the view, for its damage
  void* view;
  vyr::platform::FileIdentity identity;
  VYR_TMappedFile* next;
};

namespace vyr {

// Guards the links of all sharing rings. Built on first use and never
// destroyed, so that buffers in static objects may still die at exit.
VYR_LOCAL QEN_TRWLock& RingLock();
// Guards the table of file mappings, across the mapping system calls.
VYR_LOCAL QEN_TRWLock& TableLock();

// The first byte of all Size() bytes of `buffer`, for operations that read
// them all by address. Throws VYR_EBufferRegionTooLarge for a buffer whose
// bytes can't all be reached that way (a partial file view).
VYR_LOCAL unsigned char const* AllBytes(VYR_IBuffer const& buffer);

// Heap bytes for a memory buffer; VYR_EBufferNotEnoughMemory wrapping the
// system error when there are none. Size 0 is never a failure.
VYR_LOCAL void* AllocateBytes(unsigned int size, const char* sourceName, unsigned line);

// The "embed" route of Create.
VYR_LOCAL VYR_IBuffer const* OpenEmbedded(QEN_TURL const& url, unsigned int positionLow,
                                          unsigned int positionHigh, unsigned int size);

// The unsigned 32-bit number at the start of a parameter value: the decimal
// digits up to the first other character; none give 0, too many give the
// largest value.
VYR_LOCAL unsigned int ParseEmbedNumber(QEN_TString const& text);

// A 64-bit position or size from its low and high 32-bit words.
inline unsigned long long Join(unsigned int low, unsigned int high) {
  return (static_cast<unsigned long long>(high) << 32) | low;
}

}  // namespace vyr

#endif
