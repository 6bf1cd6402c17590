// QEN_TList: a doubly linked list of values with stable element handles.
//
// Each handle records its list's chain, so that a handle of another list is
// refused instead of corrupting both; moving a list moves its handles along.
#include <cstdlib>
#include <new>
#include <ostream>
#include <string>
#include <utility>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_cursor.h"
#include "qen_data_stream_impl.h"
#include "qen_string_map.h"

QEN_DEFINE_VALUE(QEN_TList, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable,
                 QEN_IIteratable)

QEN_TListKey::QEN_TListKey(QEN_TAny&& value, const qen_detail::ListChain* owner)
    : mValue(std::move(value)), mOwner(owner) {}

QEN_TListKey::~QEN_TListKey() = default;

namespace qen_detail {

// Delegated, so that the destructor cleans up when a copy throws.
ListChain::ListChain(const ListChain& other) : ListChain() {
  for (const QEN_TListKey* key = other.head; key != nullptr; key = key->mNext)
    Link(QEN_TAny(key->mValue), true);
}

ListChain::~ListChain() {
  for (QEN_TListKey* key = head; key != nullptr;) {
    QEN_TListKey* next = key->mNext;
    delete key;
    key = next;
  }
}

QEN_TListKey* ListChain::Link(QEN_TAny&& value, bool atTail) {
  QEN_TListKey* key = new QEN_TListKey(std::move(value), this);
  if (head == nullptr) {
    head = tail = key;
  } else if (atTail) {
    key->mPrevious = tail;
    tail->mNext = key;
    tail = key;
  } else {
    key->mNext = head;
    head->mPrevious = key;
    head = key;
  }
  ++entries;
  return key;
}

void ListChain::Unlink(QEN_TListKey* key) {
  (key->mPrevious != nullptr ? key->mPrevious->mNext : head) = key->mNext;
  (key->mNext != nullptr ? key->mNext->mPrevious : tail) = key->mPrevious;
  --entries;
  delete key;
}

}  // namespace qen_detail

QEN_TList::QEN_TList() = default;
QEN_DEFINE_VALUES_CONTAINER(QEN_TList)

QEN_TListKey* QEN_TList::Link(QEN_TAny&& value, bool atTail) {
  return mChain.Make().Link(std::move(value), atTail);
}

QEN_TListKey* QEN_TList::Add(QEN_TAny&& value) { return Link(std::move(value), true); }
QEN_TListKey* QEN_TList::Add(const QEN_TAny& value) { return Link(QEN_TAny(value), true); }
QEN_TListKey* QEN_TList::AddAtTail(QEN_TAny&& value) { return Link(std::move(value), true); }
QEN_TListKey* QEN_TList::AddAtTail(const QEN_TAny& value) { return Link(QEN_TAny(value), true); }
QEN_TListKey* QEN_TList::AddAtHead(QEN_TAny&& value) { return Link(std::move(value), false); }
QEN_TListKey* QEN_TList::AddAtHead(const QEN_TAny& value) { return Link(QEN_TAny(value), false); }

bool QEN_TList::Remove(QEN_TListKey* key) {
  if (!Owns(key)) return false;
  mChain->Unlink(key);
  return true;
}

void QEN_TList::Clear() { mChain = {}; }

QEN_TListKey* QEN_TList::KeyAtIndex(unsigned index) {
  unsigned entries = Entries();
  if (index >= entries) return nullptr;
  // From whichever end is nearer.
  QEN_TListKey* key;
  if (index < entries / 2) {
    key = mChain->head;
    for (unsigned i = 0; i < index; ++i) key = key->mNext;
  } else {
    key = mChain->tail;
    for (unsigned i = entries - 1; i > index; --i) key = key->mPrevious;
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
  if (key == nullptr) BadIndex(index, Entries());
  return key->mValue;
}

const QEN_TAny& QEN_TList::operator[](unsigned index) const {
  const QEN_TListKey* key = KeyAtIndex(index);
  if (key == nullptr) BadIndex(index, Entries());
  return key->mValue;
}

QEN_TAny& QEN_TList::operator[](int index) {
  if (index < 0) BadIndex(index, Entries());
  return (*this)[static_cast<unsigned>(index)];
}

const QEN_TAny& QEN_TList::operator[](int index) const {
  if (index < 0) BadIndex(index, Entries());
  return (*this)[static_cast<unsigned>(index)];
}

bool QEN_TList::operator==(const QEN_TList& other) const {
  if (Entries() != other.Entries()) return false;
  for (const QEN_TListKey *a = KeyAtHead(), *b = other.KeyAtHead(); a != nullptr;
       a = a->mNext, b = b->mNext)
    if (!(a->mValue == b->mValue)) return false;
  return true;
}

void QEN_TList::QEN_Pack(QEN_IPacking& out) const {
  out << Entries();
  QEN_TDataStream* s = qen_data::InPlace::Writing(out);
  for (const QEN_TListKey* key = KeyAtHead(); key != nullptr; key = key->mNext)
    qen_data::InPlace::Write(out, s, key->mValue);
}

void QEN_TList::QEN_Unpack(QEN_IUnpacking& in) {
  unsigned count = 0;
  in >> &count;
  // The count is only a claim: elements are added as they are read.
  QEN_TList read;
  QEN_TDataStream* s = qen_data::InPlace::Reading(in);
  for (unsigned i = 0; i < count; ++i) {
    QEN_TAny value;
    qen_data::InPlace::Read(in, s, value);
    read.Link(std::move(value), true);
  }
  *this = std::move(read);
}

// ---------------------------------------------------------------------------
// Text form: value, value, ... (see qen_containers.h)

bool QEN_TList::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TList read;
  qen_detail::ReadValues(in, "a list element",
                         [&](QEN_TAny&& value) { read.Link(std::move(value), true); });
  *this = std::move(read);
  return false;
}

// ---------------------------------------------------------------------------
// The cursor over a list; Key() is the element's index.
class QEN_TListIterationInfo : public qen_detail::Cursor {
  QEN_OBJECT_FRAME(QEN_TListIterationInfo)

 public:
  explicit QEN_TListIterationInfo(QEN_TList* list = nullptr) : mList(list) { First(); }
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
