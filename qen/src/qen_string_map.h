// The content of a dictionary and of one level of a tree: string keys to
// values, in the order the keys came in, with a hash index over the keys.
// Private to the base library.
#ifndef QEN_STRING_MAP_H
#define QEN_STRING_MAP_H

#include <cstddef>
#include <iosfwd>
#include <iterator>
#include <string>
#include <utility>

#include "qen/qen_any.h"
#include "qen/qen_containers.h"
#include "qen/qen_string.h"

class QEN_IPacking;
class QEN_IUnpacking;
class QEN_THumanReadableStream;

namespace qen_detail {

class StringMap {
 public:
  // The links of the order of entries; the map's own end is one of them.
  struct Link {
    Link* previous;
    Link* next;
  };
  struct Entry : Link {
    QEN_TString key;
    QEN_TAny value;
    Entry* chain = nullptr;  // the next entry in the same hash bucket
    std::size_t hash = 0;
  };

  template <class E>
  class BasicIterator {
   public:
    typedef std::bidirectional_iterator_tag iterator_category;
    typedef E value_type;
    typedef std::ptrdiff_t difference_type;
    typedef E* pointer;
    typedef E& reference;

    BasicIterator() = default;
    explicit BasicIterator(const Link* at) : mAt(const_cast<Link*>(at)) {}
    // An iterator gives a const iterator.
    template <class Other>
    BasicIterator(const BasicIterator<Other>& other) : mAt(other.Node()) {}
    E& operator*() const { return *static_cast<E*>(mAt); }
    E* operator->() const { return static_cast<E*>(mAt); }
    BasicIterator& operator++() {
      mAt = mAt->next;
      return *this;
    }
    BasicIterator& operator--() {
      mAt = mAt->previous;
      return *this;
    }
    bool operator==(const BasicIterator& other) const { return mAt == other.mAt; }
    bool operator!=(const BasicIterator& other) const { return mAt != other.mAt; }
    Link* Node() const { return mAt; }

   private:
    Link* mAt = nullptr;
  };
  typedef BasicIterator<Entry> Iterator;
  typedef BasicIterator<const Entry> ConstIterator;

  StringMap();
  StringMap(const StringMap& other);
  StringMap& operator=(const StringMap&) = delete;
  ~StringMap();

  unsigned Size() const { return mSize; }
  Iterator Begin() { return Iterator(mEnd.next); }
  Iterator End() { return Iterator(&mEnd); }
  ConstIterator Begin() const { return ConstIterator(mEnd.next); }
  ConstIterator End() const { return ConstIterator(&mEnd); }

  QEN_TAny* Find(const std::u16string& key);
  const QEN_TAny* Find(const std::u16string& key) const;
  // The value of the key, made holding nothing when it is missing.
  QEN_TAny& Insert(const QEN_TString& key);
  // Adds an entry whose key must be new; false, and nothing changed, when
  // the key is there already.
  bool InsertNew(QEN_TString&& key, QEN_TAny&& value);
  // For readers that fill an entry in place: a new entry at the end, not
  // yet in the index; then IndexLast puts it there, or gives false when its
  // key is there already (the map is then to be thrown away).
  Entry& AppendUnindexed();
  bool IndexLast();
  void DropLast();
  // Room in the index for this many entries.
  void Reserve(unsigned count);
  bool Erase(const std::u16string& key);
  // Gives the entry behind the erased one.
  Iterator Erase(Iterator at);
  // Same keys with equal values, in any order.
  bool Equals(const StringMap& other) const;

 private:
  // Room for entries, handed out front to back.
  struct Block {
    Block* next;
    unsigned capacity;
    unsigned char* room;

    void* Slot(unsigned i) const { return room + i * sizeof(Entry); }
    static Block* Make(unsigned capacity, Block* next);
  };
  static constexpr std::size_t kInlineBuckets = 16;
  static constexpr unsigned kInlineEntries = 2;

  Entry* Lookup(const std::u16string& key, std::size_t hash) const;
  // A new entry, linked at the end of the order but not in the index.
  Entry* NewEntry();
  void Unlink(Entry* entry);
  void AddToIndex(Entry* entry);
  void RemoveFromIndex(Entry* entry);
  void Rehash(std::size_t buckets);

  // The entries in order, a ring through mEnd.
  Link mEnd;
  unsigned mSize = 0;
  // The index: a power-of-two number of buckets, each a chain of entries.
  Entry** mBuckets;
  std::size_t mBucketCount;
  // Entries live in blocks that the map owns, so that a map of a hundred
  // entries costs a handful of allocations; erased entries are kept for reuse.
  Block* mBlocks = nullptr;
  void* mFree = nullptr;
  unsigned mFreshInBlock = 0;  // entries of the newest block not yet handed out
  // A small map takes no memory beyond this object: its first buckets and
  // entries live here. (The map is never moved: it is held by pointer.)
  Entry* mInlineBuckets[kInlineBuckets] = {};
  Block mInlineBlock;
  alignas(Entry) unsigned char mInlineRoom[kInlineEntries * sizeof(Entry)];
};

// The binary form shared by the dictionary and the tree: count, then key and
// value objects. `owner` names the class in messages.
void PackMap(const StringMap* map, QEN_IPacking& out);
Content<StringMap> UnpackMap(QEN_IUnpacking& in, const char* owner);

inline unsigned EntriesOf(const Content<StringMap>& map) { return map ? map->Size() : 0; }
// The same keys with equal values, in any order; no map is an empty one.
bool SameMaps(const Content<StringMap>& a, const Content<StringMap>& b);
// The printed form: "{}", or one "key = value" line each in braces.
void PrintMap(const StringMap* map, std::ostream& out);

// A cursor over a map, which may be null for an empty container.
QEN_IIterationInfo* NewMapIterationInfo(StringMap* map);

// The members that a dictionary and a tree, both a map in mMap, define
// alike; messages name the class.
#define QEN_DEFINE_MAP_CONTAINER(X)                                                           \
  QEN_DEFINE_DEFAULT_COPY_MOVE(X)                                                             \
  X::X(const X& other, unsigned) : X(other) {}                                                \
  unsigned X::Entries() const { return qen_detail::EntriesOf(mMap); }                         \
  void X::Clear() { mMap = {}; }                                                              \
  bool X::operator==(const X& other) const { return qen_detail::SameMaps(mMap, other.mMap); } \
  QEN_IIterationInfo* X::CreateIterationInfo() const {                                        \
    return qen_detail::NewMapIterationInfo(mMap.Get());                                       \
  }                                                                                           \
  QEN_IPackable* X::QEN_Move(void*) { return new (std::nothrow) X(std::move(*this)); }        \
  void X::QEN_Pack(QEN_IPacking& out) const { qen_detail::PackMap(mMap.Get(), out); }         \
  void X::QEN_Unpack(QEN_IUnpacking& in) { mMap = qen_detail::UnpackMap(in, #X); }            \
  void X::PrintOn(std::ostream& out) const { qen_detail::PrintMap(mMap.Get(), out); }

// The string that a key object must be; throws QEN_EAnyConversion for any
// other hashable.
const QEN_TString& KeyString(const QEN_IHashable& key, const char* owner);

// Text helpers shared by the containers' text forms.
// Skips white space and tells whether a form ends here: at the end of the
// text or before the '}' of its frame.
bool AtFormEnd(QEN_THumanReadableStream& in);
// After an entry: the separator, or the form's end. Anything else is a
// syntax error that names `what`.
void ReadSeparator(QEN_THumanReadableStream& in, char separator, const char* what);
// True when the text starts with a class name: the form is framed although
// it is read as bare content.
bool StartsFramed(QEN_THumanReadableStream& in);
// Reads a quoted key and the character after it, which lands in `after`;
// `missing` is the error when no quoted key starts here. Gives the key in
// quotes, for messages.
std::string ReadKey(QEN_THumanReadableStream& in, QEN_TString& key, QEN_TUniChar& after,
                    const char* missing);
// Reads the entries of a dictionary's or a tree's text form into a new map,
// up to the form's end. For each a quoted key, then entry(map, key, after,
// quoted) with the character after the key, to read the rest and add the
// entry; `missing` is the error where no quoted key starts.
template <class Entry>
Content<StringMap> ReadEntries(QEN_THumanReadableStream& in, const char* missing, Entry entry) {
  Content<StringMap> map(new StringMap);
  while (!AtFormEnd(in)) {
    QEN_TString key;
    QEN_TUniChar after = 0;
    std::string quoted = ReadKey(in, key, after, missing);
    entry(*map, std::move(key), after, quoted);
  }
  return map;
}
// A value that holds an object other than a plain string.
bool HoldsObject(const QEN_TAny& value);

// The members that a list and an array define alike.
#define QEN_DEFINE_VALUES_CONTAINER(X)                                                      \
  QEN_DEFINE_DEFAULT_COPY_MOVE(X)                                                           \
  QEN_IPackable* X::QEN_Move(void*) { return new (std::nothrow) X(std::move(*this)); }      \
  bool X::QEN_HRMultiLine() const { return qen_detail::ValuesMultiLine(*this, Entries()); } \
  bool X::WriteTo(QEN_THumanReadableStream& out) const {                                    \
    qen_detail::WriteValues(*this, QEN_HRMultiLine(), out);                                 \
    return false;                                                                           \
  }                                                                                         \
  void X::PrintOn(std::ostream& out) const { qen_detail::PrintValues(*this, out); }

// The text form of a list and an array: the values parted by ", ", or one a
// line, each ending in ',', when they are many or hold objects.
bool ValuesMultiLine(const QEN_IIteratable& values, unsigned entries);
void WriteValues(const QEN_IIteratable& values, bool multiLine, QEN_THumanReadableStream& out);
// Reads their values up to the form's end, each handed to `add`; `what`
// names an element in messages.
template <class Add>
void ReadValues(QEN_THumanReadableStream& in, const char* what, Add add) {
  while (!AtFormEnd(in)) {
    QEN_TAny value;
    value.ReadFrom(in);
    add(std::move(value));
    ReadSeparator(in, ',', what);
  }
}
// Their printed form: "[]", or one value a line in brackets.
void PrintValues(const QEN_IIteratable& values, std::ostream& out);

// One level of print indentation, given back also when a print throws.
class PrintIndent {
 public:
  PrintIndent() { QEN_IPrintable::Indent(); }
  ~PrintIndent() { QEN_IPrintable::ReverseIndent(); }
  PrintIndent(const PrintIndent&) = delete;
  PrintIndent& operator=(const PrintIndent&) = delete;
};

}  // namespace qen_detail

#endif
