// QEN_TList: a doubly linked list of values with stable element handles.
//
// Each handle records its list, so that a handle of another list is refused
// instead of corrupting both; moving a list moves its handles along.
#include <cstdlib>
#include <new>
#include <ostream>
#include <string>
#include <utility>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_cursor.h"
#include "qen_string_map.h"

QEN_DEFINE_VALUE(QEN_TList, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable,
                 QEN_IIteratable)

QEN_TListKey::QEN_TListKey(QEN_TAny&& value, const QEN_TList* owner)
    : mValue(std::move(value)), mOwner(owner) {}

QEN_TListKey::~QEN_TListKey() = default;

QEN_TList::QEN_TList() = default;

QEN_TList::QEN_TList(const QEN_TList& other)
    : QEN_IInterface(other),
      QEN_IPackable(other),
      QEN_IHumanReadable(other),
      QEN_IPrintable(other),
      QEN_IIteratable(other),
      QEN_TObject(other) {
  try {
    for (const QEN_TListKey* key = other.mHead; key != nullptr; key = key->mNext)
      Link(QEN_TAny(key->mValue), true);
  } catch (...) {
    Clear();
    throw;
  }
}

QEN_TList::QEN_TList(QEN_TList&& other) noexcept { Adopt(other); }

QEN_TList& QEN_TList::operator=(const QEN_TList& other) {
  if (this != &other) {
    QEN_TList copy(other);
    Swap(copy);
  }
  return *this;
}

QEN_TList& QEN_TList::operator=(QEN_TList&& other) noexcept {
  if (this != &other) {
    // Taken out first: `other` may be held by one of this list's elements.
    QEN_TList taken(std::move(other));
    Clear();
    Adopt(taken);
  }
  return *this;
}

QEN_TList::~QEN_TList() { Clear(); }

void QEN_TList::Adopt(QEN_TList& other) noexcept {
  mHead = other.mHead;
  mTail = other.mTail;
  mEntries = other.mEntries;
  other.mHead = other.mTail = nullptr;
  other.mEntries = 0;
  for (QEN_TListKey* key = mHead; key != nullptr; key = key->mNext) key->mOwner = this;
}

void QEN_TList::Swap(QEN_TList& other) noexcept {
  std::swap(mHead, other.mHead);
  std::swap(mTail, other.mTail);
  std::swap(mEntries, other.mEntries);
  for (QEN_TListKey* key = mHead; key != nullptr; key = key->mNext) key->mOwner = this;
  for (QEN_TListKey* key = other.mHead; key != nullptr; key = key->mNext) key->mOwner = &other;
}

QEN_TListKey* QEN_TList::Link(QEN_TAny&& value, bool atTail) {
  QEN_TListKey* key = new QEN_TListKey(std::move(value), this);
  if (mHead == nullptr) {
    mHead = mTail = key;
  } else if (atTail) {
    key->mPrevious = mTail;
    mTail->mNext = key;
    mTail = key;
  } else {
    key->mNext = mHead;
    mHead->mPrevious = key;
    mHead = key;
  }
  ++mEntries;
  return key;
}

QEN_TListKey* QEN_TList::Add(QEN_TAny&& value) { return Link(std::move(value), true); }
QEN_TListKey* QEN_TList::Add(const QEN_TAny& value) { return Link(QEN_TAny(value), true); }
QEN_TListKey* QEN_TList::AddAtTail(QEN_TAny&& value) { return Link(std::move(value), true); }
QEN_TListKey* QEN_TList::AddAtTail(const QEN_TAny& value) { return Link(QEN_TAny(value), true); }
QEN_TListKey* QEN_TList::AddAtHead(QEN_TAny&& value) { return Link(std::move(value), false); }
QEN_TListKey* QEN_TList::AddAtHead(const QEN_TAny& value) { return Link(QEN_TAny(value), false); }

bool QEN_TList::Remove(QEN_TListKey* key) {
  if (!Owns(key)) return false;
  if (key->mPrevious != nullptr)
    key->mPrevious->mNext = key->mNext;
  else
    mHead = key->mNext;
  if (key->mNext != nullptr)
    key->mNext->mPrevious = key->mPrevious;
  else
    mTail = key->mPrevious;
  --mEntries;
  delete key;
  return true;
}

void QEN_TList::Clear() {
  QEN_TListKey* key = mHead;
  mHead = mTail = nullptr;
  mEntries = 0;
  while (key != nullptr) {
    QEN_TListKey* next = key->mNext;
    delete key;
    key = next;
  }
}

QEN_TListKey* QEN_TList::KeyAtIndex(unsigned index) {
  if (index >= mEntries) return nullptr;
  // From whichever end is nearer.
  QEN_TListKey* key;
  if (index < mEntries / 2) {
    key = mHead;
    for (unsigned i = 0; i < index; ++i) key = key->mNext;
  } else {
    key = mTail;
    for (unsigned i = mEntries - 1; i > index; --i) key = key->mPrevious;
  }
  return key;
}

const QEN_TListKey* QEN_TList::KeyAtIndex(unsigned index) const {
  return const_cast<QEN_TList*>(this)->KeyAtIndex(index);
}

namespace {

[[noreturn]] void BadKey(const QEN_TListKey* key) {
  QEN_THROW(QEN_EIndexOutOfRange,
            key == nullptr ? "QEN_TList: null key" : "QEN_TList: the key belongs to another list");
  std::abort();  // QEN_Throw never comes back
}

[[noreturn]] void BadIndex(long long index, unsigned entries) {
  QEN_THROW(QEN_EIndexOutOfRange,
            QEN_TString::Format("QEN_TList: index %lld out of range (%u entries)", index, entries));
  std::abort();  // QEN_Throw never comes back
}

}  // namespace

QEN_TAny& QEN_TList::operator[](const QEN_TListKey* key) {
  if (!Owns(key)) BadKey(key);
  return const_cast<QEN_TListKey*>(key)->mValue;
}

const QEN_TAny& QEN_TList::operator[](const QEN_TListKey* key) const {
  if (!Owns(key)) BadKey(key);
  return key->mValue;
}

QEN_TAny& QEN_TList::operator[](unsigned index) {
  QEN_TListKey* key = KeyAtIndex(index);
  if (key == nullptr) BadIndex(index, mEntries);
  return key->mValue;
}

const QEN_TAny& QEN_TList::operator[](unsigned index) const {
  const QEN_TListKey* key = KeyAtIndex(index);
  if (key == nullptr) BadIndex(index, mEntries);
  return key->mValue;
}

QEN_TAny& QEN_TList::operator[](int index) {
  if (index < 0) BadIndex(index, mEntries);
  return (*this)[static_cast<unsigned>(index)];
}

const QEN_TAny& QEN_TList::operator[](int index) const {
  if (index < 0) BadIndex(index, mEntries);
  return (*this)[static_cast<unsigned>(index)];
}

bool QEN_TList::operator==(const QEN_TList& other) const {
  if (mEntries != other.mEntries) return false;
  for (const QEN_TListKey *a = mHead, *b = other.mHead; a != nullptr; a = a->mNext, b = b->mNext)
    if (!(a->mValue == b->mValue)) return false;
  return true;
}

QEN_IPackable* QEN_TList::QEN_Move(void*) { return new (std::nothrow) QEN_TList(std::move(*this)); }

void QEN_TList::QEN_Pack(QEN_IPacking& out) const {
  out << mEntries;
  for (const QEN_TListKey* key = mHead; key != nullptr; key = key->mNext) out << key->mValue;
}

void QEN_TList::QEN_Unpack(QEN_IUnpacking& in) {
  unsigned count = 0;
  in >> &count;
  // The count is only a claim: elements are added as they are read.
  QEN_TList read;
  for (unsigned i = 0; i < count; ++i) {
    QEN_TAny value;
    in >> value;
    read.Link(std::move(value), true);
  }
  *this = std::move(read);
}

// ---------------------------------------------------------------------------
// Text form: value, value, ... (see qen_containers.h)

bool QEN_TList::QEN_HRMultiLine() const { return qen_detail::ValuesMultiLine(*this, mEntries); }

bool QEN_TList::WriteTo(QEN_THumanReadableStream& out) const {
  qen_detail::WriteValues(*this, QEN_HRMultiLine(), out);
  return false;
}

bool QEN_TList::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TList read;
  while (!qen_detail::AtFormEnd(in)) {
    QEN_TAny value;
    value.ReadFrom(in);
    read.Link(std::move(value), true);
    qen_detail::ReadSeparator(in, ',', "a list element");
  }
  *this = std::move(read);
  return false;
}

void QEN_TList::PrintOn(std::ostream& out) const { qen_detail::PrintValues(*this, out); }

// ---------------------------------------------------------------------------
// The cursor over a list; Key() is the element's index.
class QEN_TListIterationInfo : public qen_detail::Cursor {
  QEN_OBJECT_FRAME(QEN_TListIterationInfo)

 public:
  QEN_TListIterationInfo() = default;
  explicit QEN_TListIterationInfo(QEN_TList* list) : mList(list) { First(); }
  QEN_IIterationInfo* Clone() const override { return new QEN_TListIterationInfo(*this); }

 private:
  bool ToFirst() override {
    mAt = mList != nullptr ? mList->KeyAtHead() : nullptr;
    mIndex = 0;
    return mAt != nullptr;
  }
  bool ToLast() override {
    mAt = mList != nullptr ? mList->KeyAtTail() : nullptr;
    mIndex = mAt != nullptr ? mList->Entries() - 1 : 0;
    return mAt != nullptr;
  }
  bool ToNext() override {
    if (mAt->Next() == nullptr) return false;
    mAt = mAt->Next();
    ++mIndex;
    return true;
  }
  bool ToPrevious() override {
    if (mAt->Previous() == nullptr) return false;
    mAt = mAt->Previous();
    --mIndex;
    return true;
  }
  // The element behind takes the removed one's index.
  bool EraseHere() override {
    QEN_TListKey* behind = mAt->Next();
    mList->Remove(mAt);
    mAt = behind;
    return mAt != nullptr;
  }
  QEN_IPackable& KeyHere() const override {
    mKey = mIndex;
    return mKey;
  }
  QEN_TAny& ValueHere() const override { return mAt->Value(); }

  QEN_TList* mList = nullptr;
  QEN_TListKey* mAt = nullptr;
  unsigned mIndex = 0;
  mutable QEN_TAny mKey;
};

QEN_DEFINE_OBJECT(QEN_TListIterationInfo, QEN_TObject, QEN_IIterationInfo)

QEN_IIterationInfo* QEN_TList::CreateIterationInfo() const {
  // The cursor may delete elements; walking doesn't otherwise change the list.
  return new QEN_TListIterationInfo(const_cast<QEN_TList*>(this));
}
