// Containers of variants and the walk over them.
//
// QEN_TDict   string keys to QEN_TAny, kept in the order the keys came in
// QEN_TList   a doubly linked list of QEN_TAny with stable element handles
// QEN_TArray  a sized array of QEN_TAny
// QEN_TTree   named entries whose branches are trees again, addressed by paths
//
// Every container is iteratable: QEN_TConstIterator and QEN_TIterator walk it
// through a QEN_IIterationInfo that the container makes. What an iteration
// gives as Key():
//   dictionary, tree  the key, a QEN_TString
//   list, array       the zero-based index, a QEN_TAny holding an unsigned 32
// The key object belongs to the cursor and is a copy: changing it changes
// nothing in the container.
//
// Binary forms (each after the class identification that put object writes):
//   dictionary, tree  unsigned 32 count, then per entry the key (put object,
//                     a QEN_TString) and the value (put object, a QEN_TAny)
//   list, array       unsigned 32 count, then each value (put object)
// A tree's branches are values holding trees, so nesting goes through put
// object and the data stream bounds it. Readers take counts as claims, not
// sizes: they never reserve memory from them, and reject duplicate keys.
//
// Text forms (what WriteTo writes; the text stream frames an object as its
// class name and braces around this). Entries are separated by ';' (a
// dictionary and a tree) or ',' (a list and an array), a separator after the
// last one is allowed, and the form ends at the frame's '}' or the end of the
// text. Values use QEN_TAny's text form. Multi-line forms indent two blanks
// per level of the stream's IndentLevel.
//   dictionary  "key" = value; "other" = value;
//   list        1, "two", 3.0
//   array       the same as a list
//   tree        "leaf" = value; "branch" { "leaf" = value; }
// A tree's branch is written as its name and its entries in braces, with no
// '=' and no ';'; `"name" = QEN_TTree { ... };` reads the same.
#ifndef QEN_CONTAINERS_H
#define QEN_CONTAINERS_H

#include <memory>
#include <utility>
#include <vector>

#include "qen/qen_any.h"
#include "qen/qen_object.h"
#include "qen/qen_string.h"
#include "qen/qen_value.h"

class QEN_IIterationInfo;
class QEN_TList;

// What every container declares besides its own operations: its cursor, its
// move into a new object (QEN_Move), whether its text takes lines, and its
// forms.
#define QEN_CONTAINER_MEMBERS                               \
  QEN_IIterationInfo* CreateIterationInfo() const override; \
  QEN_IPackable* QEN_Move(void* = nullptr) override;        \
  bool QEN_HRMultiLine() const override;                    \
  QEN_VALUE_FORMS

// A cursor over a container. It stands on an element, before the first one,
// or behind the last one (done). Next from before the first goes to the
// first, Previous from done goes to the last; moving past an end stays there.
class QEN_API QEN_IIterationInfo : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(QEN_IIterationInfo)
 public:
  // A new cursor at the same place; the caller owns it.
  virtual QEN_IIterationInfo* Clone() const = 0;
  virtual void First() = 0;
  virtual void Next() = 0;
  virtual void Previous() = 0;
  virtual void Last() = 0;
  virtual bool IsBeforeFirst() const = 0;
  virtual bool IsDone() const = 0;
  // The current element's key and value; throw QEN_EIndexOutOfRange when the
  // cursor is on no element. Value gives the container's own variant.
  virtual QEN_IPackable& Key() const = 0;
  virtual QEN_TAny& Value() const = 0;
  // Next and Previous. The postfix forms give nothing back: a cursor of an
  // unknown class cannot be returned by value.
  virtual QEN_IIterationInfo& operator++();
  virtual void operator++(int);
  virtual QEN_IIterationInfo& operator--();
  virtual void operator--(int);
  virtual QEN_IIterationInfo& Self();
  // Removes the current element. The cursor then stands in the gap: the next
  // Next lands on the element behind the removed one, Previous on the one in
  // front of it. Key and Value throw until the cursor moves. By default a
  // cursor cannot delete, and this throws QEN_EException.
  virtual void DeleteItem();

 protected:
  QEN_IIterationInfo() = default;
  QEN_IIterationInfo(const QEN_IIterationInfo&) = default;
  QEN_IIterationInfo& operator=(const QEN_IIterationInfo&) = default;
};

// Something that can be walked.
class QEN_API QEN_IIteratable : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(QEN_IIteratable)
 public:
  // A new cursor on the first element (done when there is none); the caller
  // owns it. It must not outlive the container, and the container must not
  // change while it is used, except through the cursor's DeleteItem.
  virtual QEN_IIterationInfo* CreateIterationInfo() const = 0;

 protected:
  QEN_IIteratable() = default;
  QEN_IIteratable(const QEN_IIteratable&) = default;
  QEN_IIteratable& operator=(const QEN_IIteratable&) = default;
};

// Walks an iteratable: construct, IsDone(), Key(), Value(), ++, and so on.
class QEN_API QEN_TConstIterator {
 public:
  explicit QEN_TConstIterator(const QEN_IIteratable& container);
  // Takes over a cursor made elsewhere, such as a filtered one.
  explicit QEN_TConstIterator(QEN_IIterationInfo* info);
  QEN_TConstIterator(const QEN_TConstIterator& other);
  QEN_TConstIterator(QEN_TConstIterator&& other) noexcept;
  QEN_TConstIterator& operator=(const QEN_TConstIterator& other);
  QEN_TConstIterator& operator=(QEN_TConstIterator&& other) noexcept;
  virtual ~QEN_TConstIterator();

  bool IsDone() const;
  bool IsBeforeFirst() const;
  const QEN_IPackable& Key() const;
  const QEN_TAny& Value() const;
  QEN_TConstIterator& operator++();
  void operator++(int);
  QEN_TConstIterator& operator--();
  void operator--(int);
  void First();
  void Last();
  // Moves behind the last element: the iterator is then done.
  void End();
  // The cursor itself; a moved-from iterator has none.
  QEN_IIterationInfo* Info() const { return mInfo; }

 protected:
  QEN_IIterationInfo& Cursor() const;
  QEN_IIterationInfo* mInfo;
};

// An iterator that can change the values it walks and delete elements.
class QEN_API QEN_TIterator : public QEN_TConstIterator {
 public:
  explicit QEN_TIterator(QEN_IIteratable& container);
  explicit QEN_TIterator(QEN_IIterationInfo* info);
  // Two cursors deleting in one container would trip over each other.
  QEN_TIterator(const QEN_TIterator&) = delete;
  QEN_TIterator& operator=(const QEN_TIterator&) = delete;
  QEN_TIterator(QEN_TIterator&& other) noexcept = default;
  QEN_TIterator& operator=(QEN_TIterator&& other) noexcept = default;

  // The cursor's copy of the key: changing it doesn't rename the element.
  QEN_IPackable& Key() const;
  QEN_TAny& Value() const;
  // Removes the current element; the next ++ lands on the one behind it, so
  // a walk that deletes as it goes still sees every element.
  void DeleteItem();
};

namespace qen_detail {
class StringMap;

// A container's content as a member that copies and moves as a value, so
// that the container's own copy and move members are the defaults. The
// content lives behind a pointer, null while there is none, and a copy is
// deep. An assignment takes the new content in before it lets the old one
// go: the source may lie inside the old content, as a container held by one
// of its own values.
template <class T>
class Content {
 public:
  Content() = default;
  explicit Content(T* content) : mAt(content) {}
  Content(const Content& other) : mAt(other.mAt ? new T(*other.mAt) : nullptr) {}
  Content(Content&& other) noexcept = default;
  // A self-assignment keeps the content itself: a list's handles stay valid.
  Content& operator=(const Content& other) {
    return this == &other ? *this : *this = Content(other);
  }
  Content& operator=(Content&& other) noexcept {
    std::unique_ptr<T> taken(std::move(other.mAt));
    mAt.swap(taken);
    return *this;
  }
  ~Content() = default;

  T* Get() const { return mAt.get(); }
  T& operator*() const { return *mAt; }
  T* operator->() const { return mAt.get(); }
  explicit operator bool() const { return mAt != nullptr; }
  // The content, made empty when there is none.
  T& Make() {
    if (!mAt) mAt.reset(new T);
    return *mAt;
  }

 private:
  std::unique_ptr<T> mAt;
};
}  // namespace qen_detail

// A dictionary from string keys to values. Any QEN_IHashable is accepted as a
// key where the operations take one, but it must be a QEN_TString; another
// key throws QEN_EAnyConversion. Iteration and the stored forms follow the
// order in which the keys were first added.
class QEN_API QEN_TDict : public QEN_TObject,
                          public virtual QEN_IPackable,
                          public virtual QEN_IHumanReadable,
                          public virtual QEN_IPrintable,
                          public virtual QEN_IIteratable {
  QEN_VALUE_FRAME(QEN_TDict)

 public:
  QEN_TDict();
  QEN_VALUE_COPY_MOVE(QEN_TDict)
  // A copy; the number is not used.
  QEN_TDict(const QEN_TDict& other, unsigned);

  unsigned Entries() const;
  bool IsEmpty() const { return Entries() == 0; }
  void Clear();

  bool HasKey(const QEN_IHashable& key) const;
  bool HasKey(const wchar_t* key) const;
  bool HasKey(const char* key) const;

  // A missing key is created, holding nothing. On a const dictionary a
  // missing key gives QEN_TAny::Illegal() and nothing is created.
  QEN_TAny& operator[](const char* key);
  QEN_TAny& operator[](const wchar_t* key);
  QEN_TAny& operator[](const QEN_IHashable& key);
  const QEN_TAny& operator[](const char* key) const;
  const QEN_TAny& operator[](const wchar_t* key) const;
  const QEN_TAny& operator[](const QEN_IHashable& key) const;

  // Sets the value of the key, replacing a value that is there.
  QEN_TDict& Add(const QEN_IHashable& key, QEN_TAny&& value);
  QEN_TDict& Add(const QEN_IHashable& key, const QEN_TAny& value);
  // Whether the key was there.
  bool Remove(const wchar_t* key);
  bool Remove(const char* key);
  bool Remove(const QEN_IHashable& key);
  // The value of the key, or null; nothing is created.
  QEN_TAny* Lookup(const QEN_IHashable& key);
  const QEN_TAny* Lookup(const QEN_IHashable& key) const;
  QEN_TAny* Lookup(const wchar_t* key);
  const QEN_TAny* Lookup(const wchar_t* key) const;
  QEN_TAny* Lookup(const char* key);
  const QEN_TAny* Lookup(const char* key) const;
  // Adds the other's entries; a key that both have takes the other's value.
  QEN_TDict& AddAll(const QEN_TDict& other);

  // The same keys with equal values, in any order.
  QEN_VALUE_EQUALITY(QEN_TDict)

  QEN_CONTAINER_MEMBERS

 private:
  qen_detail::Content<qen_detail::StringMap> mMap;
};

class QEN_TListKey;

namespace qen_detail {
// The elements of a list: a chain of handles, each of which records its
// chain. The list holds the chain as its Content, so the chain stays where
// it is when the list moves and the handles move along untouched.
struct QEN_API ListChain {
  ListChain() = default;
  ListChain(const ListChain& other);
  ListChain& operator=(const ListChain&) = delete;
  ~ListChain();
  QEN_TListKey* Link(QEN_TAny&& value, bool atTail);
  void Unlink(QEN_TListKey* key);

  QEN_TListKey* head = nullptr;
  QEN_TListKey* tail = nullptr;
  unsigned entries = 0;
};
}  // namespace qen_detail

// A handle of one element of a QEN_TList. It stays valid while its element
// is in the list, also when other elements come and go and when the list is
// moved.
class QEN_API QEN_TListKey {
 public:
  QEN_TListKey(const QEN_TListKey&) = delete;
  QEN_TListKey& operator=(const QEN_TListKey&) = delete;

  // The next and previous element's handles, null at the ends.
  QEN_TListKey* Next() { return mNext; }
  const QEN_TListKey* Next() const { return mNext; }
  QEN_TListKey* Previous() { return mPrevious; }
  const QEN_TListKey* Previous() const { return mPrevious; }
  QEN_TAny& Value() { return mValue; }
  const QEN_TAny& Value() const { return mValue; }

 private:
  friend class QEN_TList;
  friend struct qen_detail::ListChain;
  QEN_TListKey(QEN_TAny&& value, const qen_detail::ListChain* owner);
  ~QEN_TListKey();

  QEN_TAny mValue;
  QEN_TListKey* mNext = nullptr;
  QEN_TListKey* mPrevious = nullptr;
  const qen_detail::ListChain* mOwner;
};

// A doubly linked list of values.
class QEN_API QEN_TList : public QEN_TObject,
                          public virtual QEN_IPackable,
                          public virtual QEN_IHumanReadable,
                          public virtual QEN_IPrintable,
                          public virtual QEN_IIteratable {
  QEN_VALUE_FRAME(QEN_TList)

 public:
  QEN_TList();
  // The handles move along with their elements.
  QEN_VALUE_COPY_MOVE(QEN_TList)

  // Add puts the element at the tail, like AddAtTail.
  QEN_TListKey* Add(QEN_TAny&& value);
  QEN_TListKey* Add(const QEN_TAny& value);
  QEN_TListKey* AddAtTail(QEN_TAny&& value);
  QEN_TListKey* AddAtTail(const QEN_TAny& value);
  QEN_TListKey* AddAtHead(QEN_TAny&& value);
  QEN_TListKey* AddAtHead(const QEN_TAny& value);
  // Removes and deletes the element; false for null or a key of another list.
  bool Remove(QEN_TListKey* key);
  void Clear();

  unsigned Entries() const { return mChain ? mChain->entries : 0; }
  bool IsEmpty() const { return Entries() == 0; }
  QEN_TListKey* KeyAtHead() { return mChain ? mChain->head : nullptr; }
  const QEN_TListKey* KeyAtHead() const { return mChain ? mChain->head : nullptr; }
  QEN_TListKey* KeyAtTail() { return mChain ? mChain->tail : nullptr; }
  const QEN_TListKey* KeyAtTail() const { return mChain ? mChain->tail : nullptr; }
  // The key at a zero-based index, null at or beyond Entries().
  QEN_TListKey* KeyAtIndex(unsigned index);
  const QEN_TListKey* KeyAtIndex(unsigned index) const;
  // Whether the key is one of this list's.
  bool Owns(const QEN_TListKey* key) const {
    return key != nullptr && mChain && key->mOwner == mChain.Get();
  }

  // The value under a key of this list, or at an index; a null or foreign
  // key, or an index out of range, throws QEN_EIndexOutOfRange.
  QEN_TAny& operator[](const QEN_TListKey* key);
  const QEN_TAny& operator[](const QEN_TListKey* key) const;
  QEN_TAny& operator[](unsigned index);
  const QEN_TAny& operator[](unsigned index) const;
  // So that a literal index such as list[0] is not taken for a null key.
  QEN_TAny& operator[](int index);
  const QEN_TAny& operator[](int index) const;

  // Equal values in the same order.
  QEN_VALUE_EQUALITY(QEN_TList)

  QEN_CONTAINER_MEMBERS

 private:
  QEN_TListKey* Link(QEN_TAny&& value, bool atTail);

  qen_detail::Content<qen_detail::ListChain> mChain;
};

// An array of values of the size it was made with.
class QEN_API QEN_TArray : public QEN_TObject,
                           public virtual QEN_IPackable,
                           public virtual QEN_IHumanReadable,
                           public virtual QEN_IPrintable,
                           public virtual QEN_IIteratable {
  QEN_VALUE_FRAME(QEN_TArray)

 public:
  // `size` elements, each holding nothing.
  explicit QEN_TArray(unsigned size = 0);
  QEN_VALUE_COPY_MOVE(QEN_TArray)

  unsigned Size() const { return mValues ? static_cast<unsigned>(mValues->size()) : 0; }
  unsigned Entries() const { return Size(); }
  // Throws QEN_EIndexOutOfRange for an index at or beyond Size().
  QEN_TAny& operator[](unsigned index);
  const QEN_TAny& operator[](unsigned index) const;

  QEN_VALUE_EQUALITY(QEN_TArray)

  // Deleting an element through an iterator shortens the array.
  QEN_CONTAINER_MEMBERS

 private:
  friend class QEN_TArrayIterationInfo;
  qen_detail::Content<std::vector<QEN_TAny>> mValues;
};

// A tree of named entries. A branch is an entry whose value holds a QEN_TTree;
// a path names entries from the top, one name per level, parted by a
// separator. Leading, trailing and doubled separators are ignored, so "/a/b",
// "a/b" and "a//b/" are one path. The empty path is the tree itself: it has
// keys (KeysAt) but no value, and HasPath gives false for it.
class QEN_API QEN_TTree : public QEN_TObject,
                          public virtual QEN_IPackable,
                          public virtual QEN_IHumanReadable,
                          public virtual QEN_IPrintable,
                          public virtual QEN_IIteratable {
  QEN_VALUE_FRAME(QEN_TTree)

 public:
  // The deepest path that Value creates.
  static const unsigned sMaxPathDepth;

  QEN_TTree();
  QEN_VALUE_COPY_MOVE(QEN_TTree)
  // A copy; the number is not used.
  QEN_TTree(const QEN_TTree& other, unsigned);

  // The value at the path, to read or assign. Missing entries on the way,
  // and entries that hold nothing, are made branches; a missing last entry
  // is made holding nothing. Throws
  // QEN_ETreeException for the empty path, for a path through an entry that
  // holds something else than a tree, and past sMaxPathDepth levels.
  QEN_TAny& Value(const QEN_TString& path, QEN_TUniChar separator = u'/');
  // The value at the path; throws QEN_ETreeException when it isn't there.
  const QEN_TAny& Get(const QEN_TString& path, QEN_TUniChar separator = u'/') const;
  bool HasPath(const QEN_TString& path, QEN_TUniChar separator = u'/') const;
  // Takes the entry out, with all below it; whether it was there.
  bool RemovePath(const QEN_TString& path, QEN_TUniChar separator = u'/');
  // The names under the branch at the path, each a QEN_TAny holding a
  // QEN_TString, in order; empty for a leaf or a missing path.
  QEN_TList KeysAt(const QEN_TString& path, QEN_TUniChar separator = u'/') const;

  // Top-level entries.
  unsigned Entries() const;
  bool IsEmpty() const { return Entries() == 0; }
  void Clear();

  QEN_VALUE_EQUALITY(QEN_TTree)

  // Walks the top-level entries: Key() a QEN_TString name, Value() its value.
  QEN_CONTAINER_MEMBERS

 private:
  const QEN_TAny* Find(const QEN_TString& path, QEN_TUniChar separator) const;
  qen_detail::Content<qen_detail::StringMap> mMap;
};

#endif
