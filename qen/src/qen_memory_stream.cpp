// Byte streams in memory: a growing buffer of its own, or existing memory
// that a callback may replace by a larger block.
//
// Writing appends at the end of the content; reading takes from the read
// position. So one stream can be filled, rewound and read back.
#include <cstdlib>
#include <cstring>
#include <limits>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"

QEN_IStream::~QEN_IStream() = default;

namespace {

constexpr unsigned kMaxSize = std::numeric_limits<unsigned>::max();
// Large enough for a ticket in one allocation, and small enough for the
// allocator's per-thread cache of small blocks, which serves it fastest.
constexpr unsigned kFirstCapacity = 1024;

}  // namespace

QEN_TMemoryStream::QEN_TMemoryStream() = default;

QEN_TMemoryStream::QEN_TMemoryStream(void* data, unsigned capacity, unsigned length,
                                     Reallocator grow)
    : mData(static_cast<unsigned char*>(data)),
      mCapacity(data != nullptr ? capacity : 0),
      mLength(data != nullptr ? length : 0),
      mGrow(grow),
      mOwned(false) {
  if (mLength > mCapacity)
    QEN_THROW(
        QEN_EStreamException,
        QEN_TString::Format("memory stream: length %u exceeds capacity %u", length, capacity));
}

QEN_TMemoryStream::~QEN_TMemoryStream() {
  if (mOwned) std::free(mData);
}

unsigned QEN_TMemoryStream::Read(void* data, unsigned size) {
  unsigned left = mLength - mPosition;
  unsigned n = size < left ? size : left;
  if (n > 0) {
    std::memcpy(data, mData + mPosition, n);
    mPosition += n;
  }
  return n;
}

void QEN_TMemoryStream::Write(const void* data, unsigned size) {
  if (size == 0) return;
  if (size > kMaxSize - mLength)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("memory stream: writing %u bytes behind %u overflows 4 GiB", size,
                                  mLength));
  Reserve(mLength + size);
  std::memcpy(mData + mLength, data, size);
  mLength += size;
}

unsigned long long QEN_TMemoryStream::Available() const { return mLength - mPosition; }

void QEN_TMemoryStream::SetSize(unsigned length) {
  if (length > mLength) {
    Reserve(length);
    std::memset(mData + mLength, 0, length - mLength);
  }
  mLength = length;
  if (mPosition > mLength) mPosition = mLength;
}

void QEN_TMemoryStream::SetPosition(unsigned position) {
  if (position > mLength)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("memory stream: position %u lies behind the end (%u bytes)",
                                  position, mLength));
  mPosition = position;
}

void QEN_TMemoryStream::Reserve(unsigned needed) {
  if (needed <= mCapacity) return;

  if (!mOwned) {
    // Memory that belongs to someone else only grows through its owner.
    if (mGrow == nullptr)
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("memory stream full: %u bytes needed, capacity %u", needed,
                                    mCapacity));
    unsigned capacity = needed;
    void* grown = mGrow(*this, capacity);
    if (grown == nullptr || capacity < needed)
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("memory stream: no room for %u bytes (capacity %u)", needed,
                                    mCapacity));
    mData = static_cast<unsigned char*>(grown);
    mCapacity = capacity;
    return;
  }

  // Doubling keeps appends amortised constant.
  unsigned capacity = mCapacity < kFirstCapacity ? kFirstCapacity : mCapacity;
  while (capacity < needed) capacity = capacity > kMaxSize / 2 ? kMaxSize : capacity * 2;
  void* grown = std::realloc(mData, capacity);
  if (grown == nullptr)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("memory stream: out of memory for %u bytes", capacity));
  mData = static_cast<unsigned char*>(grown);
  mCapacity = capacity;
}
