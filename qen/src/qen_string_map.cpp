// The keyed content of dictionaries and trees, its binary form, its cursor,
// and the text helpers that all containers share.
#include "qen_string_map.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <ostream>
#include <string>
#include <typeinfo>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_cursor.h"
#include "qen_data_stream_impl.h"

namespace qen_detail {

namespace {

// Entries per block: the first one beyond the map's own, and the most any
// block holds.
constexpr unsigned kFirstBlock = 8;
constexpr unsigned kLargestBlock = 256;

// A hash of 16-bit text, four units at a time; the final mix spreads every
// bit into the low ones, which pick the bucket.
std::size_t HashOf(const std::u16string& key) {
  const unsigned char* at = reinterpret_cast<const unsigned char*>(key.data());
  std::size_t size = key.size() * sizeof(char16_t);
  std::uint64_t h = 0x9E3779B97F4A7C15ull ^ size;
  for (; size >= 8; at += 8, size -= 8) {
    std::uint64_t word;
    std::memcpy(&word, at, 8);
    h = (h ^ word) * 0xBF58476D1CE4E5B9ull;
    h ^= h >> 29;
  }
  if (size > 0) {
    // Two, four or six bytes: whole units.
    std::uint64_t word = 0;
    if (size >= 4) {
      std::uint32_t four;
      std::memcpy(&four, at, 4);
      word = four;
      at += 4;
      size -= 4;
    }
    if (size > 0) {
      std::uint16_t two;
      std::memcpy(&two, at, 2);
      word |= static_cast<std::uint64_t>(two) << 32;
    }
    h = (h ^ word) * 0xBF58476D1CE4E5B9ull;
  }
  h ^= h >> 32;
  h *= 0x94D049BB133111EBull;
  h ^= h >> 29;
  return static_cast<std::size_t>(h);
}

// What an erased entry's room holds while it waits for reuse.
struct FreeSlot {
  FreeSlot* next;
};

}  // namespace

StringMap::Block* StringMap::Block::Make(unsigned capacity, Block* next) {
  constexpr std::size_t kHead =
      (sizeof(Block) + alignof(Entry) - 1) / alignof(Entry) * alignof(Entry);
  void* raw = ::operator new(kHead + capacity * sizeof(Entry));
  return new (raw) Block{next, capacity, static_cast<unsigned char*>(raw) + kHead};
}

StringMap::StringMap()
    : mBuckets(mInlineBuckets),
      mBucketCount(kInlineBuckets),
      mInlineBlock{nullptr, kInlineEntries, mInlineRoom} {
  mEnd.previous = mEnd.next = &mEnd;
}

StringMap::StringMap(const StringMap& other) : StringMap() {
  // The keys are known to differ: each copy goes straight into the index
  // with the hash it had. (When a copy throws, the destructor cleans up:
  // the delegated constructor has finished.)
  Reserve(other.mSize);
  for (ConstIterator at = other.Begin(); at != other.End(); ++at) {
    Entry* entry = NewEntry();
    entry->key = at->key;
    entry->value = at->value;
    entry->hash = at->hash;
    AddToIndex(entry);
  }
}

StringMap::~StringMap() {
  for (Link* at = mEnd.next; at != &mEnd;) {
    Entry* entry = static_cast<Entry*>(at);
    at = at->next;
    entry->~Entry();
  }
  mEnd.previous = mEnd.next = &mEnd;
  mSize = 0;
  while (mBlocks != nullptr) {
    Block* next = mBlocks->next;
    if (mBlocks != &mInlineBlock) ::operator delete(mBlocks);
    mBlocks = next;
  }
  if (mBuckets != mInlineBuckets) delete[] mBuckets;
  mFree = nullptr;
}

void StringMap::Reserve(unsigned count) {
  std::size_t buckets = mBucketCount;
  while (buckets < count) buckets *= 2;
  if (buckets > mBucketCount) Rehash(buckets);
  if (mBlocks == nullptr && count > kInlineEntries) {
    mBlocks = Block::Make(std::min(count, kLargestBlock), nullptr);
    mFreshInBlock = mBlocks->capacity;
  }
}

void StringMap::Rehash(std::size_t buckets) {
  Entry** fresh = new Entry*[buckets]();
  for (Link* at = mEnd.next; at != &mEnd; at = at->next) {
    Entry* entry = static_cast<Entry*>(at);
    if (entry->chain == entry) continue;  // not indexed yet
    Entry*& head = fresh[entry->hash & (buckets - 1)];
    entry->chain = head;
    head = entry;
  }
  if (mBuckets != mInlineBuckets) delete[] mBuckets;
  mBuckets = fresh;
  mBucketCount = buckets;
}

StringMap::Entry* StringMap::NewEntry() {
  // Room in the index first, so that indexing the entry cannot fail.
  if (mSize + 1 > mBucketCount) Rehash(mBucketCount * 2);
  void* room;
  if (mFree != nullptr) {
    room = mFree;
    mFree = static_cast<FreeSlot*>(mFree)->next;
  } else {
    if (mFreshInBlock == 0) {
      if (mBlocks == nullptr) {
        mBlocks = &mInlineBlock;
      } else {
        unsigned capacity = std::min(std::max(2 * mBlocks->capacity, kFirstBlock), kLargestBlock);
        mBlocks = Block::Make(capacity, mBlocks);
      }
      mFreshInBlock = mBlocks->capacity;
    }
    room = mBlocks->Slot(mBlocks->capacity - mFreshInBlock--);
  }
  Entry* entry;
  try {
    entry = new (room) Entry;
  } catch (...) {
    mFree = new (room) FreeSlot{static_cast<FreeSlot*>(mFree)};
    throw;
  }
  // Marked as not indexed: a chain never points at its own entry.
  entry->chain = entry;
  entry->previous = mEnd.previous;
  entry->next = &mEnd;
  mEnd.previous->next = entry;
  mEnd.previous = entry;
  ++mSize;
  return entry;
}

void StringMap::Unlink(Entry* entry) {
  entry->previous->next = entry->next;
  entry->next->previous = entry->previous;
  --mSize;
  entry->~Entry();
  mFree = new (static_cast<void*>(entry)) FreeSlot{static_cast<FreeSlot*>(mFree)};
}

void StringMap::AddToIndex(Entry* entry) {
  Entry*& head = mBuckets[entry->hash & (mBucketCount - 1)];
  entry->chain = head;
  head = entry;
}

void StringMap::RemoveFromIndex(Entry* entry) {
  Entry** at = &mBuckets[entry->hash & (mBucketCount - 1)];
  while (*at != entry) at = &(*at)->chain;
  *at = entry->chain;
}

StringMap::Entry* StringMap::Lookup(const std::u16string& key, std::size_t hash) const {
  for (Entry* at = mBuckets[hash & (mBucketCount - 1)]; at != nullptr; at = at->chain)
    if (at->hash == hash && at->key.Chars() == key) return at;
  return nullptr;
}

QEN_TAny* StringMap::Find(const std::u16string& key) {
  Entry* found = Lookup(key, HashOf(key));
  return found == nullptr ? nullptr : &found->value;
}

const QEN_TAny* StringMap::Find(const std::u16string& key) const {
  const Entry* found = Lookup(key, HashOf(key));
  return found == nullptr ? nullptr : &found->value;
}

QEN_TAny& StringMap::Insert(const QEN_TString& key) {
  std::size_t hash = HashOf(key.Chars());
  if (Entry* found = Lookup(key.Chars(), hash)) return found->value;
  Entry* entry = NewEntry();
  try {
    entry->key = key;
  } catch (...) {
    Unlink(entry);
    throw;
  }
  entry->hash = hash;
  AddToIndex(entry);
  return entry->value;
}

bool StringMap::InsertNew(QEN_TString&& key, QEN_TAny&& value) {
  std::size_t hash = HashOf(key.Chars());
  if (Lookup(key.Chars(), hash) != nullptr) return false;
  Entry* entry = NewEntry();
  entry->key = std::move(key);
  entry->value = std::move(value);
  entry->hash = hash;
  AddToIndex(entry);
  return true;
}

StringMap::Entry& StringMap::AppendUnindexed() { return *NewEntry(); }

bool StringMap::IndexLast() {
  Entry* last = static_cast<Entry*>(mEnd.previous);
  last->hash = HashOf(last->key.Chars());
  if (Lookup(last->key.Chars(), last->hash) != nullptr) return false;
  AddToIndex(last);
  return true;
}

void StringMap::DropLast() { Unlink(static_cast<Entry*>(mEnd.previous)); }

bool StringMap::Erase(const std::u16string& key) {
  Entry* found = Lookup(key, HashOf(key));
  if (found == nullptr) return false;
  RemoveFromIndex(found);
  Unlink(found);
  return true;
}

StringMap::Iterator StringMap::Erase(Iterator at) {
  Entry* entry = &*at;
  Iterator behind(entry->next);
  RemoveFromIndex(entry);
  Unlink(entry);
  return behind;
}

bool StringMap::Equals(const StringMap& other) const {
  if (Size() != other.Size()) return false;
  for (ConstIterator at = Begin(); at != End(); ++at) {
    const Entry* theirs = other.Lookup(at->key.Chars(), at->hash);
    if (theirs == nullptr || !(theirs->value == at->value)) return false;
  }
  return true;
}

// ---------------------------------------------------------------------------

namespace {
constexpr unsigned kMaxReserved = 256;
}  // namespace

void PackMap(const StringMap* map, QEN_IPacking& out) {
  out << (map != nullptr ? map->Size() : 0u);
  if (map == nullptr) return;
  QEN_TDataStream* s = qen_data::InPlace::Writing(out);
  for (auto at = map->Begin(); at != map->End(); ++at) {
    if (qen_data::InPlace::TryWriteEntry(s, at->key, at->value)) continue;
    qen_data::InPlace::Write(out, s, at->key);
    qen_data::InPlace::Write(out, s, at->value);
  }
}

Content<StringMap> UnpackMap(QEN_IUnpacking& in, const char* owner) {
  unsigned count = 0;
  in >> &count;
  Content<StringMap> map(new StringMap);
  // The count is only a claim: the index is sized for a few hundred entries
  // at most, and each entry is read in place before the next one takes room,
  // so a short stream ends in the stream's own error.
  map->Reserve(std::min(count, kMaxReserved));
  QEN_TDataStream* s = qen_data::InPlace::Reading(in);
  for (unsigned i = 0; i < count; ++i) {
    StringMap::Entry& entry = map->AppendUnindexed();
    try {
      if (!qen_data::InPlace::TryReadEntry(s, entry.key, entry.value)) {
        qen_data::InPlace::Read(in, s, entry.key);
        qen_data::InPlace::Read(in, s, entry.value);
      }
    } catch (...) {
      map->DropLast();
      throw;
    }
    if (!map->IndexLast())
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("%s: duplicate key \"%s\" in entry %u of %u", owner,
                                    entry.key.c_str(), i + 1, count));
  }
  return map;
}

bool SameMaps(const Content<StringMap>& a, const Content<StringMap>& b) {
  if (EntriesOf(a) != EntriesOf(b)) return false;
  return EntriesOf(a) == 0 || a->Equals(*b);
}

void PrintMap(const StringMap* map, std::ostream& out) {
  if (map == nullptr || map->Size() == 0) {
    out << "{}";
    return;
  }
  out << "{" << std::endl;
  {
    PrintIndent indent;
    for (auto at = map->Begin(); at != map->End(); ++at) {
      out << QEN_IPrintable::Prefix() << at->key.c_str() << " = ";
      at->value.PrintOn(out);
      out << std::endl;
    }
  }
  out << QEN_IPrintable::Prefix() << "}";
}

const QEN_TString& KeyString(const QEN_IHashable& key, const char* owner) {
  // The usual key is a QEN_TString itself, found without asking by name.
  if (typeid(key) == typeid(QEN_TString))
    return *static_cast<const QEN_TString*>(key.QEN_MostDerivedObject());
  const QEN_TString* text = static_cast<const QEN_TString*>(key.DynamicCast("QEN_TString"));
  if (text == nullptr)
    QEN_THROW(QEN_EAnyConversion, QEN_TString::Format("%s: a key must be a QEN_TString, not a %s",
                                                      owner, key.ClassName()));
  return *text;
}

// ---------------------------------------------------------------------------
// Text helpers

bool AtFormEnd(QEN_THumanReadableStream& in) {
  in.SkipWhiteSpace();
  QEN_TUniChar c = 0;
  return !in.PeekChar(c) || c == u'}';
}

void ReadSeparator(QEN_THumanReadableStream& in, char separator, const char* what) {
  if (AtFormEnd(in)) return;
  QEN_TUniChar c = 0;
  in.ReadChar(c);
  if (c == static_cast<QEN_TUniChar>(separator)) return;
  std::string message = std::string("expected '") + separator + "' or '}' after " + what;
  in.SyntaxError(message.c_str());
}

bool StartsFramed(QEN_THumanReadableStream& in) {
  in.SkipWhiteSpace();
  QEN_TUniChar c = 0;
  return in.PeekChar(c) && ((c >= u'A' && c <= u'Z') || c == u'_');
}

std::string ReadKey(QEN_THumanReadableStream& in, QEN_TString& key, QEN_TUniChar& after,
                    const char* missing) {
  QEN_TUniChar c = 0;
  in.PeekChar(c);
  if (c != u'"') {
    in.ReadChar(c);
    in.SyntaxError(missing);
  }
  in.ReadQuoted(key);
  in.SkipWhiteSpace();
  in.ReadChar(after);
  return "\"" + std::string(key.c_str()) + "\"";
}

bool HoldsObject(const QEN_TAny& value) {
  const QEN_IPackable* object = value.Object();
  return object != nullptr && std::strcmp(object->ClassName(), "QEN_TString") != 0;
}

namespace {
// Longer lists of plain values go one per line.
constexpr unsigned kMaxOnOneLine = 16;
}  // namespace

bool ValuesMultiLine(const QEN_IIteratable& values, unsigned entries) {
  if (entries > kMaxOnOneLine) return true;
  for (QEN_TConstIterator at(values); !at.IsDone(); ++at)
    if (HoldsObject(at.Value()) || at.Value().QEN_HRMultiLine()) return true;
  return false;
}

void WriteValues(const QEN_IIteratable& values, bool multiLine, QEN_THumanReadableStream& out) {
  for (QEN_TConstIterator at(values); !at.IsDone();) {
    at.Value().WriteTo(out);
    ++at;
    if (multiLine)
      out << "," << cr;
    else if (!at.IsDone())
      out << ", ";
  }
}

void PrintValues(const QEN_IIteratable& values, std::ostream& out) {
  QEN_TConstIterator at(values);
  if (at.IsDone()) {
    out << "[]";
    return;
  }
  out << "[" << std::endl;
  {
    PrintIndent indent;
    for (; !at.IsDone(); ++at) {
      out << QEN_IPrintable::Prefix();
      at.Value().PrintOn(out);
      out << std::endl;
    }
  }
  out << QEN_IPrintable::Prefix() << "]";
}

}  // namespace qen_detail

// ---------------------------------------------------------------------------
// The cursor over a map, which may be null for an empty container.
class QEN_TMapIterationInfo : public qen_detail::Cursor {
  QEN_OBJECT_FRAME(QEN_TMapIterationInfo)

 public:
  explicit QEN_TMapIterationInfo(qen_detail::StringMap* map = nullptr) : mMap(map) { First(); }
  QEN_IIterationInfo* Clone() const override { return new QEN_TMapIterationInfo(*this); }

 private:
  bool ToFirst() override {
    if (mMap == nullptr || mMap->Size() == 0) return false;
    mAt = mMap->Begin();
    return true;
  }
  bool ToLast() override {
    if (mMap == nullptr || mMap->Size() == 0) return false;
    mAt = std::prev(mMap->End());
    return true;
  }
  bool ToNext() override { return ++mAt != mMap->End(); }
  bool ToPrevious() override {
    if (mAt == mMap->Begin()) return false;
    --mAt;
    return true;
  }
  bool EraseHere() override {
    mAt = mMap->Erase(mAt);
    return mAt != mMap->End();
  }
  QEN_IPackable& KeyHere() const override {
    mKey = mAt->key;
    return mKey;
  }
  QEN_TAny& ValueHere() const override { return mAt->value; }

  qen_detail::StringMap* mMap = nullptr;
  qen_detail::StringMap::Iterator mAt{};
  // The cursor's own copy of the key, so that a change to it cannot break
  // the map's index.
  mutable QEN_TString mKey;
};

QEN_DEFINE_OBJECT(QEN_TMapIterationInfo, QEN_TObject, QEN_IIterationInfo)

QEN_IIterationInfo* qen_detail::NewMapIterationInfo(StringMap* map) {
  return new QEN_TMapIterationInfo(map);
}
