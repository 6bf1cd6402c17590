// Buffers: read access to a run of bytes in memory, in a mapped file, or
// inside another buffer, with sharing and ownership; and the "embed" URLs
// that name a range inside a container file.
//
// Ownership, the whole rule:
//   1. Whoever calls a factory, Duplicate, Slice, DecodeHex or ExtendBuffer
//      owns the result and deletes it through the interface it got.
//   2. CopyContentFrom gives back the object itself and Reserved a borrowed
//      pointer: neither is deleted by the caller.
//   3. A VYR_TBuffer owns exactly one buffer: it adopts a pointer and
//      duplicates a reference.
//   4. A slice owns a duplicate of its parent, so it keeps the bytes alive
//      after the buffer it was cut from is deleted; the order of deletion
//      between a buffer, its duplicates and its slices doesn't matter. (Bytes
//      under a reference made by CreateRef are owned by nobody here.)
//   5. An address from Buffer() is valid while any member of the object's
//      sharing ring or any slice of it lives. An address from operator() is
//      valid only until the next operator() or FreeReservation on that same
//      object, or its destruction.
//
// Threads: duplicating, slicing and deleting members of one ring from several
// threads is safe, and so are Buffer, Size, IsValid and BufferAccess. The
// reservation behind operator() belongs to one object and is not guarded: a
// thread that needs ranges of a shared buffer takes its own Duplicate(false).
// Bytes of ReadWrite buffers are not guarded either.
#ifndef VYR_BUFFER_H
#define VYR_BUFFER_H

#include <qen/qen_file.h>
#include <qen/qen_object.h>
#include <qen/qen_string.h>
#include <qen/qen_url.h>

#include <atomic>
#include <cstdint>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_enums.h"
#include "vyrax/vyr_typedefs.h"

// A read-only view of a run of bytes, handed around as VYR_IBuffer const*.
class VYR_API VYR_IBuffer : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(VYR_IBuffer)

 public:
  VYR_IBuffer() = default;
  VYR_IBuffer(VYR_IBuffer const& other) = default;
  VYR_IBuffer& operator=(VYR_IBuffer const& other) = default;
  VYR_IBuffer& operator=(VYR_IBuffer&& other) = default;
  ~VYR_IBuffer() override = default;

  // A new object with the same content: sharing the bytes, or with `copy` a
  // private writable copy.
  virtual VYR_IBuffer const* Duplicate(bool copy) const = 0;
  // `size` bytes from `offset`; size 0 means up to the end. Without `copy`
  // the slice shares the bytes and keeps them alive.
  virtual VYR_IBuffer const* Slice(unsigned int offset, unsigned int size, bool copy) const = 0;
  // The byte at `offset`; `offset` may be Size(), one past the end.
  virtual void const* Buffer(unsigned int offset) const = 0;
  virtual void const* Buffer() const = 0;
  virtual unsigned int Size() const = 0;
  virtual bool IsValid() const = 0;
  virtual VYR_TBufferAccess BufferAccess() const = 0;
  // `size` bytes from `offset` (size 0: up to the end), kept by this object's
  // reservation until the next call or FreeReservation.
  virtual void const* operator()(unsigned long long offset, unsigned long long size) const = 0;
  // The reservation as a buffer, or null; still owned by this object.
  virtual VYR_IBuffer const* Reserved() const = 0;
  virtual void FreeReservation() const = 0;
  // Writes bytes into this buffer (which must be ReadWrite) from its start;
  // the size and the bytes behind the written ones stay. Gives back this.
  virtual VYR_IBuffer const* CopyContentFrom(VYR_IBuffer const& source, unsigned int offset,
                                             unsigned int size) const = 0;
  virtual VYR_IBuffer const* CopyContentFrom(VYR_IBuffer const& source) const = 0;
  virtual VYR_IBuffer const* CopyContentFrom(void const* source, unsigned int size) const = 0;

  // Null for an invalid buffer or a range past the end; else Buffer(offset).
  void const* Buffer(unsigned int offset, unsigned int size) const;

  // Decodes this buffer, read as 8-bit text of hexadecimal digits, into
  // bytes. Anything that is not a digit is skipped, also between the two
  // digits of a pair. The result is a new slice of the destination (of a new
  // memory buffer when `destination` is null or a `size` is given; size 0
  // works it out from the source). `incomplete` tells that the source ended
  // while a pair was awaited or half read; a dangling digit followed only by
  // non-digits is written as (digit * 16 + 255) modulo 256.
  VYR_IBuffer const* DecodeHex(VYR_IBuffer const* destination, bool& incomplete) const;
  VYR_IBuffer const* DecodeHex(VYR_IBuffer const* destination) const;
  VYR_IBuffer const* DecodeHex(unsigned int size, bool& incomplete) const;
  VYR_IBuffer const* DecodeHex(unsigned int size) const;

  // A file, or a URL given as text ("file" or "embed"); a name with "://"
  // that does not work as a URL is tried as a path. Position and size pick
  // a range: both 0 give the whole file as a VYR_TFileBuffer, anything else
  // a slice of it, cut at the end of the file.
  static VYR_IBuffer const* Create(QEN_TString const& name, unsigned int positionLow,
                                   unsigned int positionHigh, unsigned int size);
  // The tag's high size is not used.
  static VYR_IBuffer const* Create(QEN_TString const& name, VYR_TTag const& tag);
  static VYR_IBuffer const* Create(QEN_TURL const& url, unsigned int positionLow,
                                   unsigned int positionHigh, unsigned int size);
  static VYR_IBuffer const* Create(QEN_TURL const& url, VYR_TTag const& tag);
  // A memory buffer. With `copy` false and non-null data the buffer takes
  // over `data`, which must be memory that free() can release. Null data
  // gives fresh bytes, not initialised.
  static VYR_IBuffer const* Create(unsigned int size, void const* data, bool copy);
  // A reference to memory that the caller keeps alive for as long as the
  // reference, its duplicates and its slices live.
  static VYR_IBuffer const* CreateRef(unsigned int size, void* data);
  // A slice (seen through any number of handles) extended to the end of its
  // parent; null for anything that is not a slice.
  static VYR_IBuffer const* ExtendBuffer(VYR_IBuffer const* buffer);
};

// Every member of VYR_IBuffer, overridden: the classes that implement the
// whole interface declare it with this line.
#define VYR_IBUFFER_OVERRIDES                                                                 \
  VYR_IBuffer const* Duplicate(bool copy) const override;                                     \
  VYR_IBuffer const* Slice(unsigned int offset, unsigned int size, bool copy) const override; \
  void const* Buffer(unsigned int offset) const override;                                     \
  void const* Buffer() const override;                                                        \
  unsigned int Size() const override;                                                         \
  bool IsValid() const override;                                                              \
  VYR_TBufferAccess BufferAccess() const override;                                            \
  void const* operator()(unsigned long long offset, unsigned long long size) const override;  \
  VYR_IBuffer const* Reserved() const override;                                               \
  void FreeReservation() const override;                                                      \
  VYR_IBuffer const* CopyContentFrom(VYR_IBuffer const& source, unsigned int offset,          \
                                     unsigned int size) const override;                       \
  VYR_IBuffer const* CopyContentFrom(VYR_IBuffer const& source) const override;               \
  VYR_IBuffer const* CopyContentFrom(void const* source, unsigned int size) const override;

// The base of all buffer implementations: the bytes, the reservation, and the
// sharing ring. Members of a ring show the same bytes; the ring is the
// reference count, and the last member to be destroyed releases the bytes.
class VYR_API VYR_TBuffPriv : public QEN_TObject, public virtual VYR_IBuffer {
  QEN_OBJECT_FRAME(VYR_TBuffPriv)

 public:
  ~VYR_TBuffPriv() override;
  VYR_TBuffPriv& operator=(VYR_TBuffPriv const&) = delete;

  using VYR_IBuffer::Buffer;

  // Duplicate shares: a new VYR_TBuffPriv in this ring, whatever `copy`
  // says. Every concrete class overrides it.
  VYR_IBUFFER_OVERRIDES

 protected:
  // No bytes.
  VYR_TBuffPriv();
  VYR_TBuffPriv(void const* data, unsigned int size);
  // The same bytes as `other`, in its ring. `other` must have bytes.
  VYR_TBuffPriv(VYR_TBuffPriv const& other);

  // Puts `other` into this object's ring, as this object's successor.
  void Link(VYR_TBuffPriv* other) const;
  // Takes this object out of its ring. True when it was alone there, that
  // is, when it is the last holder of the bytes. The answer is decided under
  // the ring lock, so of two last members dying at once exactly one is told
  // that it is the last.
  bool Unlink();
  // Replaces the reservation by `reservation` and deletes the previous one.
  void Reserve(VYR_TBuffPriv* reservation) const;

  unsigned char* mData;
  mutable VYR_TBuffPriv* mReservation;
  unsigned int mSize;
  // Written under the ring lock, with atomic stores, so that a member may
  // ask without the lock whether it is alone.
  mutable VYR_TBuffPriv* mLink;
};

// The packable handle: owns exactly one buffer and forwards to it. Its packed
// form is the size and the bytes; it unpacks into a private memory buffer.
// A default-constructed handle holds nothing: it reads as 0 bytes, not
// valid, and every operation that needs bytes throws VYR_EBufferEmptyBuffer.
class VYR_API VYR_TBuffer : public QEN_TObject,
                            public virtual VYR_IBuffer,
                            public virtual QEN_IPackable {
  QEN_VALUE_FRAME(VYR_TBuffer)

 public:
  VYR_TBuffer();
  // Takes over `buffer`, which may be null.
  VYR_TBuffer(VYR_IBuffer const* buffer);
  // Shares: holds buffer.Duplicate(false).
  VYR_TBuffer(VYR_IBuffer const& buffer);
  VYR_TBuffer(VYR_TBuffer const& other);
  VYR_TBuffer(VYR_IBuffer const& buffer, unsigned int offset, unsigned int size);
  VYR_TBuffer(unsigned int size, void const* data, bool copy);
  VYR_TBuffer(QEN_TString const& name, VYR_TTag const& tag);
  VYR_TBuffer(QEN_TString const& name, unsigned int positionLow, unsigned int positionHigh,
              unsigned int size);
  VYR_TBuffer(QEN_TURL const& url, VYR_TTag const& tag);
  VYR_TBuffer(QEN_TURL const& url, unsigned int positionLow, unsigned int positionHigh,
              unsigned int size);
  ~VYR_TBuffer() override;

  // Deletes what is held and takes over `buffer`.
  VYR_IBuffer const* operator=(VYR_IBuffer const* buffer);
  VYR_TBuffer& operator=(VYR_TBuffer const& other);

  // Equal sizes and equal bytes; the same memory compares equal at once.
  bool operator==(VYR_TBuffer const& other) const;
  bool operator!=(VYR_TBuffer const& other) const;

  using VYR_IBuffer::Buffer;

  // Duplicate always shares, whatever `copy` says.
  VYR_IBUFFER_OVERRIDES

  void QEN_Pack(QEN_IPacking& out) const override;
  void QEN_Unpack(QEN_IUnpacking& in) override;

 private:
  friend class VYR_IBuffer;
  VYR_IBuffer const& Held() const;

  VYR_IBuffer const* mHeld;
};

// The bytes of a file through a read-only mapping. One mapping is shared by
// everybody in the process who opens the same file (the same device, inode,
// size and modification time, whatever the name) at the same position and
// size; a file replaced or changed since gets a mapping of its own. Opening
// retries while another process holds the file.
//
// Size() is the low half of the size of the whole file, whatever part of it
// is mapped; Buffer() is the start of the view. A view that does not cover
// the whole file (the fallback of Create when the whole file can't be
// mapped) is not IsValid(): addresses and slices reach only the mapped
// bytes, an operation that needs all Size() bytes by address fails with
// VYR_EBufferRegionTooLarge, and operator() reads what lies outside.
//
// A file that another process truncates under the view never ends the
// process: the lost pages read as zeros, and from then on IsValid() is false
// and operator() throws VYR_EBufferCannotReadFile naming the file (see
// docs/buffers.md; the environment variable VYR_MAPPING_GUARD=off leaves
// SIGBUS to the program).
class VYR_API VYR_TFileBuffer : public VYR_TBuffPriv, public virtual VYR_IBuffer {
  QEN_OBJECT_FRAME(VYR_TFileBuffer)

 public:
  // Alignment of a view's start in the file: the page size, set at start-up.
  static unsigned int sAllocationGranularity;
  // Length of a fallback view when the caller gave no usable range.
  static unsigned int sAllocationBlock;
  // Milliseconds between two attempts to open a file held by another process.
  static unsigned int sRetryDelay;
  // Further attempts after the first.
  static unsigned int sNrOfRetries;

  // Opens `name` and maps `size` bytes (0: to the end) from the position,
  // which must be a multiple of sAllocationGranularity.
  VYR_TFileBuffer(QEN_TString const& name, unsigned int size, unsigned int positionLow,
                  unsigned int positionHigh);
  // Shares the mapping, in the ring of `other`.
  VYR_TFileBuffer(VYR_TFileBuffer const& other);
  // Only for the class frame's factory: always throws VYR_EBufferInternal.
  VYR_TFileBuffer();
  ~VYR_TFileBuffer() override;

  // The high half of the file's size.
  unsigned int SizeHigh() const { return mSizeHigh; }

  using VYR_IBuffer::Buffer;

  VYR_IBuffer const* Duplicate(bool copy) const override;
  VYR_IBuffer const* Slice(unsigned int offset, unsigned int size, bool copy) const override;
  void const* Buffer(unsigned int offset) const override;
  bool IsValid() const override;
  // Inside the view: an address in the mapping. Outside: the bytes read from
  // the file into a private block, zeros behind the file's end.
  void const* operator()(unsigned long long offset, unsigned long long size) const override;

  // Builds the ring and table locks and reads the page size.
  static bool QEN_Initialize();

 private:
  friend class VYR_IBuffer;
  struct Opened;

  VYR_TFileBuffer(Opened& file, unsigned long long size, unsigned long long position);
  // The file route of VYR_IBuffer::Create: one open, the whole file mapped
  // (or a view around the range), and a slice of it for the range.
  static VYR_IBuffer const* OpenByPath(QEN_TString const& name, unsigned int positionLow,
                                       unsigned int positionHigh, unsigned int size);

  // The bytes that can be reached by address: the view, at most Size().
  unsigned int Reach() const;
  // Throws VYR_EBufferCannotReadFile when the file shrank under the view.
  void CheckIntact() const;
  // Reads `size` bytes at `offset` from the view's start into a new
  // reservation.
  void const* ReadOutside(unsigned long long offset, unsigned long long size) const;

  std::intptr_t mFile;
  std::intptr_t mMapping;
  void* mView;
  unsigned int mSizeHigh;
  unsigned long long mStart;
  unsigned long long mViewSize;
};

// --- "embed" URLs ------------------------------------------------------------
//
// An "embed" URL names a range inside a container file: the location of the
// container, the protocol "embed", and the parameters "embed.position_low",
// "embed.position_high" and "embed.length" (0: up to the end of the file),
// written as decimal numbers followed by the letter l ("1000l"), and
// optionally "embed.realsize_v" and "embed.realsize_h" ("%f"). Numbers are
// read up to the first non-digit; a missing one reads as 0.

// The URL of `size` bytes from the position inside `url`. For an "embed" URL
// the new range counts from the old one's start and must fit in its length
// (VYR_EEmbedRegionTooLarge); size 0 keeps the old length. Real sizes are set
// unless both are 0.
VYR_API QEN_TURL VYR_EmbeddedFile(QEN_TURL const& url, unsigned int size, unsigned int positionLow,
                                  unsigned int positionHigh, double realSizeV, double realSizeH);
// With the tag's position and low size; its high size is not used.
VYR_API QEN_TURL VYR_EmbeddedFile(QEN_TURL const& url, VYR_TTag const& tag);
// The "file" URL of the container: same place, no parameters.
VYR_API QEN_TURL VYR_Embedded2Original(QEN_TURL const& url);
// The range as a tag; VYR_ENotEmbeddedFile for another protocol.
VYR_API VYR_TTag VYR_Embedded2Tag(QEN_TURL const& url);
// The real sizes, when the "embed" URL has both.
VYR_API bool VYR_Embedded2Size(QEN_TURL const& url, double& realSizeV, double& realSizeH);
// The file's information; for an "embed" URL that of the container with the
// size of the range. VYR_EUnsupportedProtocol for other protocols.
VYR_API QEN_TFileInfo VYR_GetFileInfo(QEN_TURL const& url);
// The parameter "password", of a URL of any protocol.
VYR_API bool VYR_ExtractPassword(QEN_TURL const& url, QEN_TString& password);

#endif
