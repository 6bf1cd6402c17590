// The read/write lock of the library, and guards that release it on every
// way out of a scope.
#ifndef QEN_SYNC_H
#define QEN_SYNC_H

#include <condition_variable>
#include <mutex>
#include <thread>

#include "qen/qen_object.h"

// Many readers or one writer.
//
// The write side excludes every other thread, and the thread that holds it
// may take it again: it is released when each take has been matched by a
// release. The write holder may also take the read side (counted the same
// way); read sides that it still holds when it lets go of the write side
// become ordinary read holds. A thread holding only the read side must not
// ask for the write side: that waits for itself.
//
// Readers are let in whenever no thread holds the write side, even while a
// writer waits. So a reader may take the read side again without waiting on
// a queued writer; the price is that a steady stream of readers can hold a
// writer off, which is acceptable where the read side is the rare look-up of
// a table that is written even more rarely.
//
// A release that doesn't match a take is ignored (and asserts in debug
// builds): the lock is left as it was.
class QEN_API QEN_TRWLock : public QEN_TObject {
  QEN_OBJECT_FRAME(QEN_TRWLock)

 public:
  QEN_TRWLock();
  QEN_TRWLock(const QEN_TRWLock&) = delete;
  QEN_TRWLock& operator=(const QEN_TRWLock&) = delete;
  ~QEN_TRWLock() override;

  virtual void ReadLock();
  virtual void ReadUnlock();
  virtual void WriteLock();
  virtual void WriteUnlock();

  // Whether the calling thread holds the write side.
  bool HoldsWriteLock() const;

 private:
  // Under mMutex: whether the calling thread holds the write side.
  bool CallerWrites() const;

  mutable std::mutex mMutex;
  std::condition_variable mChanged;
  std::thread::id mWriter;    // holder of the write side, or none
  unsigned mWriteDepth = 0;   // takes of the write side by mWriter
  unsigned mWriterReads = 0;  // takes of the read side by mWriter
  unsigned mReaders = 0;      // takes of the read side by all other threads
};

namespace qen_detail {
// Holds one side of the lock for a scope: takes it on construction and
// releases it on every way out.
template <void (QEN_TRWLock::*kTake)(), void (QEN_TRWLock::*kRelease)()>
class LockSideGuard {
 public:
  explicit LockSideGuard(QEN_TRWLock& lock) : mLock(lock) { (mLock.*kTake)(); }
  LockSideGuard(const LockSideGuard&) = delete;
  LockSideGuard& operator=(const LockSideGuard&) = delete;
  ~LockSideGuard() { (mLock.*kRelease)(); }

 private:
  QEN_TRWLock& mLock;
};
}  // namespace qen_detail

// Holds the write side for a scope.
class QEN_TWriteGuard
    : public qen_detail::LockSideGuard<&QEN_TRWLock::WriteLock, &QEN_TRWLock::WriteUnlock> {
 public:
  using LockSideGuard::LockSideGuard;
};

// Holds the read side for a scope.
class QEN_TReadGuard
    : public qen_detail::LockSideGuard<&QEN_TRWLock::ReadLock, &QEN_TRWLock::ReadUnlock> {
 public:
  using LockSideGuard::LockSideGuard;
};

#endif
