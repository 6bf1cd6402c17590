// The iteration interfaces and the iterators that walk through them.
#include <new>
#include <utility>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen_cursor.h"

QEN_DEFINE_INTERFACE(QEN_IIteratable)
QEN_DEFINE_INTERFACE(QEN_IIterationInfo)

QEN_IIterationInfo& QEN_IIterationInfo::operator++() {
  Next();
  return *this;
}

void QEN_IIterationInfo::operator++(int) { Next(); }

QEN_IIterationInfo& QEN_IIterationInfo::operator--() {
  Previous();
  return *this;
}

void QEN_IIterationInfo::operator--(int) { Previous(); }

QEN_IIterationInfo& QEN_IIterationInfo::Self() { return *this; }

void QEN_IIterationInfo::DeleteItem() {
  QEN_THROW(QEN_EException,
            QEN_TString::Format("%s: this iteration cannot delete elements", ClassName()));
}

// ---------------------------------------------------------------------------

namespace qen_detail {

void Cursor::First() {
  mGap = false;
  mState = ToFirst() ? kOn : kDone;
}

void Cursor::Next() {
  if (mGap) {
    mGap = false;
  } else if (mState == kBeforeFirst) {
    First();
  } else if (mState == kOn && !ToNext()) {
    mState = kDone;
  }
}

void Cursor::Previous() {
  mGap = false;
  if (mState == kDone)
    Last();
  else if (mState == kOn && !ToPrevious())
    mState = kBeforeFirst;
}

void Cursor::Last() {
  mGap = false;
  mState = ToLast() ? kOn : kBeforeFirst;
}

QEN_IPackable& Cursor::Key() const {
  CheckOn("Key");
  return KeyHere();
}

QEN_TAny& Cursor::Value() const {
  CheckOn("Value");
  return ValueHere();
}

void Cursor::DeleteItem() {
  CheckOn("DeleteItem");
  mState = EraseHere() ? kOn : kDone;
  mGap = true;
}

void Cursor::CheckOn(const char* operation) const {
  if (mGap)
    QEN_THROW(
        QEN_EIndexOutOfRange,
        QEN_TString::Format("%s: the element was deleted; advance the iteration first", operation));
  if (mState != kOn)
    QEN_THROW(QEN_EIndexOutOfRange,
              QEN_TString::Format("%s: the iteration is not on an element", operation));
}

}  // namespace qen_detail

// ---------------------------------------------------------------------------

namespace {

QEN_IIterationInfo* NewInfoOf(const QEN_IIteratable& container) {
  QEN_IIterationInfo* info = container.CreateIterationInfo();
  if (info == nullptr) throw std::bad_alloc();
  return info;
}

void DeleteInfo(QEN_IIterationInfo* info) {
  QEN_IInterface* root = info;
  delete root;
}

}  // namespace

QEN_TConstIterator::QEN_TConstIterator(const QEN_IIteratable& container)
    : mInfo(NewInfoOf(container)) {}

QEN_TConstIterator::QEN_TConstIterator(QEN_IIterationInfo* info) : mInfo(info) {}

QEN_TConstIterator::QEN_TConstIterator(const QEN_TConstIterator& other) : mInfo(nullptr) {
  if (other.mInfo != nullptr) {
    mInfo = other.mInfo->Clone();
    if (mInfo == nullptr) throw std::bad_alloc();
  }
}

QEN_TConstIterator::QEN_TConstIterator(QEN_TConstIterator&& other) noexcept : mInfo(other.mInfo) {
  other.mInfo = nullptr;
}

QEN_TConstIterator& QEN_TConstIterator::operator=(const QEN_TConstIterator& other) {
  if (this != &other) {
    QEN_TConstIterator copy(other);
    std::swap(mInfo, copy.mInfo);
  }
  return *this;
}

QEN_TConstIterator& QEN_TConstIterator::operator=(QEN_TConstIterator&& other) noexcept {
  if (this != &other) std::swap(mInfo, other.mInfo);
  return *this;
}

QEN_TConstIterator::~QEN_TConstIterator() {
  if (mInfo != nullptr) DeleteInfo(mInfo);
}

QEN_IIterationInfo& QEN_TConstIterator::Cursor() const {
  if (mInfo == nullptr)
    QEN_THROW(QEN_EIndexOutOfRange, "iterator: it has been moved from and walks nothing");
  return *mInfo;
}

// A moved-from iterator is done and before the first, so that loops end.
bool QEN_TConstIterator::IsDone() const { return mInfo == nullptr || mInfo->IsDone(); }
bool QEN_TConstIterator::IsBeforeFirst() const {
  return mInfo == nullptr || mInfo->IsBeforeFirst();
}
const QEN_IPackable& QEN_TConstIterator::Key() const { return Cursor().Key(); }
const QEN_TAny& QEN_TConstIterator::Value() const { return Cursor().Value(); }

QEN_TConstIterator& QEN_TConstIterator::operator++() {
  if (mInfo != nullptr) mInfo->Next();
  return *this;
}

void QEN_TConstIterator::operator++(int) { ++*this; }

QEN_TConstIterator& QEN_TConstIterator::operator--() {
  if (mInfo != nullptr) mInfo->Previous();
  return *this;
}

void QEN_TConstIterator::operator--(int) { --*this; }

void QEN_TConstIterator::First() {
  if (mInfo != nullptr) mInfo->First();
}

void QEN_TConstIterator::Last() {
  if (mInfo != nullptr) mInfo->Last();
}

// Through the cursor's own moves, so that a filtered cursor ends done too.
void QEN_TConstIterator::End() {
  if (mInfo == nullptr) return;
  mInfo->Last();
  if (!mInfo->IsDone()) mInfo->Next();
}

// ---------------------------------------------------------------------------

QEN_TIterator::QEN_TIterator(QEN_IIteratable& container) : QEN_TConstIterator(container) {}

QEN_TIterator::QEN_TIterator(QEN_IIterationInfo* info) : QEN_TConstIterator(info) {}

QEN_IPackable& QEN_TIterator::Key() const { return Cursor().Key(); }
QEN_TAny& QEN_TIterator::Value() const { return Cursor().Value(); }
void QEN_TIterator::DeleteItem() { Cursor().DeleteItem(); }
