#include <cassert>

#include "qen/qen_sync.h"

QEN_DEFINE_OBJECT(QEN_TRWLock, QEN_TObject)

QEN_TRWLock::QEN_TRWLock() = default;

QEN_TRWLock::~QEN_TRWLock() = default;

bool QEN_TRWLock::CallerWrites() const {
  return mWriteDepth > 0 && mWriter == std::this_thread::get_id();
}

void QEN_TRWLock::ReadLock() {
  std::unique_lock<std::mutex> lock(mMutex);
  if (CallerWrites()) {
    ++mWriterReads;
    return;
  }
  mChanged.wait(lock, [this] { return mWriteDepth == 0; });
  ++mReaders;
}

void QEN_TRWLock::ReadUnlock() {
  std::lock_guard<std::mutex> lock(mMutex);
  if (CallerWrites()) {
    assert(mWriterReads > 0 && "read side released more often than taken");
    if (mWriterReads > 0) --mWriterReads;
    return;
  }
  assert(mReaders > 0 && "read side released more often than taken");
  if (mReaders == 0) return;
  if (--mReaders == 0) mChanged.notify_all();
}

void QEN_TRWLock::WriteLock() {
  std::unique_lock<std::mutex> lock(mMutex);
  if (CallerWrites()) {
    ++mWriteDepth;
    return;
  }
  mChanged.wait(lock, [this] { return mWriteDepth == 0 && mReaders == 0; });
  mWriter = std::this_thread::get_id();
  mWriteDepth = 1;
}

void QEN_TRWLock::WriteUnlock() {
  std::lock_guard<std::mutex> lock(mMutex);
  if (!CallerWrites()) {
    assert(false && "write side released by a thread that doesn't hold it");
    return;
  }
  if (--mWriteDepth > 0) return;
  // Reads taken under the write side outlive it as ordinary reads.
  mReaders += mWriterReads;
  mWriterReads = 0;
  mWriter = std::thread::id();
  mChanged.notify_all();
}

bool QEN_TRWLock::HoldsWriteLock() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return CallerWrites();
}
