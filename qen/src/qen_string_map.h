// The content of a dictionary and of one level of a tree: string keys to
// values, in the order the keys came in, with a hash index over the keys.
// Private to the base library.
#ifndef QEN_STRING_MAP_H
#define QEN_STRING_MAP_H

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>

#include "qen/qen_any.h"
#include "qen/qen_containers.h"
#include "qen/qen_string.h"

class QEN_IPacking;
class QEN_IUnpacking;
class QEN_THumanReadableStream;

namespace qen_detail {

class StringMap {
 public:
  struct Entry {
    QEN_TString key;
    QEN_TAny value;
  };
  typedef std::list<Entry>::iterator Iterator;
  typedef std::list<Entry>::const_iterator ConstIterator;

  StringMap() = default;
  StringMap(const StringMap& other);
  StringMap& operator=(const StringMap&) = delete;

  unsigned Size() const { return static_cast<unsigned>(mEntries.size()); }
  Iterator Begin() { return mEntries.begin(); }
  Iterator End() { return mEntries.end(); }
  ConstIterator Begin() const { return mEntries.begin(); }
  ConstIterator End() const { return mEntries.end(); }

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
  void DropLast() { mEntries.pop_back(); }
  void Reserve(unsigned count) { mIndex.reserve(count); }
  bool Erase(const std::u16string& key);
  // Gives the entry behind the erased one.
  Iterator Erase(Iterator at);
  // Same keys with equal values, in any order.
  bool Equals(const StringMap& other) const;

 private:
  // The index points at the keys inside the list's nodes, which never move.
  struct KeyHash {
    std::size_t operator()(const std::u16string* key) const {
      return std::hash<std::u16string>()(*key);
    }
  };
  struct KeyEqual {
    bool operator()(const std::u16string* a, const std::u16string* b) const { return *a == *b; }
  };

  std::list<Entry> mEntries;
  std::unordered_map<const std::u16string*, Iterator, KeyHash, KeyEqual> mIndex;
};

// The binary form shared by the dictionary and the tree: count, then key and
// value objects. `owner` names the class in messages.
void PackMap(const StringMap* map, QEN_IPacking& out);
std::unique_ptr<StringMap> UnpackMap(QEN_IUnpacking& in, const char* owner);

// A cursor over a map, which may be null for an empty container.
QEN_IIterationInfo* NewMapIterationInfo(StringMap* map);

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
// A value that holds an object other than a plain string.
bool HoldsObject(const QEN_TAny& value);

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
