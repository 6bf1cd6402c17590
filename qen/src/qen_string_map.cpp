// The keyed content of dictionaries and trees, its binary form, its cursor,
// and the text helpers that all containers share.
#include "qen_string_map.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"

namespace qen_detail {

StringMap::StringMap(const StringMap& other) {
  for (const Entry& entry : other.mEntries) {
    QEN_TString key(entry.key);
    QEN_TAny value(entry.value);
    InsertNew(std::move(key), std::move(value));
  }
}

QEN_TAny* StringMap::Find(const std::u16string& key) {
  auto found = mIndex.find(&key);
  return found == mIndex.end() ? nullptr : &found->second->value;
}

const QEN_TAny* StringMap::Find(const std::u16string& key) const {
  auto found = mIndex.find(&key);
  return found == mIndex.end() ? nullptr : &found->second->value;
}

QEN_TAny& StringMap::Insert(const QEN_TString& key) {
  if (QEN_TAny* found = Find(key.Chars())) return *found;
  mEntries.push_back(Entry{key, QEN_TAny()});
  Iterator added = std::prev(mEntries.end());
  try {
    mIndex.emplace(&added->key.Chars(), added);
  } catch (...) {
    mEntries.pop_back();
    throw;
  }
  return added->value;
}

StringMap::Entry& StringMap::AppendUnindexed() {
  mEntries.emplace_back();
  return mEntries.back();
}

bool StringMap::IndexLast() {
  Iterator last = std::prev(mEntries.end());
  bool added = false;
  try {
    added = mIndex.emplace(&last->key.Chars(), last).second;
  } catch (...) {
    mEntries.pop_back();
    throw;
  }
  return added;
}

bool StringMap::InsertNew(QEN_TString&& key, QEN_TAny&& value) {
  if (Find(key.Chars()) != nullptr) return false;
  mEntries.push_back(Entry{std::move(key), std::move(value)});
  Iterator added = std::prev(mEntries.end());
  try {
    mIndex.emplace(&added->key.Chars(), added);
  } catch (...) {
    mEntries.pop_back();
    throw;
  }
  return true;
}

bool StringMap::Erase(const std::u16string& key) {
  auto found = mIndex.find(&key);
  if (found == mIndex.end()) return false;
  Iterator at = found->second;
  mIndex.erase(found);
  mEntries.erase(at);
  return true;
}

StringMap::Iterator StringMap::Erase(Iterator at) {
  mIndex.erase(&at->key.Chars());
  return mEntries.erase(at);
}

bool StringMap::Equals(const StringMap& other) const {
  if (Size() != other.Size()) return false;
  for (const Entry& entry : mEntries) {
    const QEN_TAny* theirs = other.Find(entry.key.Chars());
    if (theirs == nullptr || !(*theirs == entry.value)) return false;
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
  for (auto at = map->Begin(); at != map->End(); ++at) out << at->key << at->value;
}

std::unique_ptr<StringMap> UnpackMap(QEN_IUnpacking& in, const char* owner) {
  unsigned count = 0;
  in >> &count;
  std::unique_ptr<StringMap> map(new StringMap);
  // The count is only a claim: the index is sized for a few hundred entries
  // at most, and each entry is read in place before the next one takes room,
  // so a short stream ends in the stream's own error.
  map->Reserve(std::min(count, kMaxReserved));
  for (unsigned i = 0; i < count; ++i) {
    StringMap::Entry& entry = map->AppendUnindexed();
    try {
      in >> entry.key >> entry.value;
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

const QEN_TString& KeyString(const QEN_IHashable& key, const char* owner) {
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

bool HoldsObject(const QEN_TAny& value) {
  const QEN_IPackable* object = value.Object();
  return object != nullptr && std::strcmp(object->ClassName(), "QEN_TString") != 0;
}

}  // namespace qen_detail

// ---------------------------------------------------------------------------
// The cursor over a map. Between DeleteItem and the next move it stands in
// the gap: mAt is already the entry behind the removed one (or the state is
// done), and the next Next only clears the gap.
class QEN_TMapIterationInfo : public QEN_TObject, public virtual QEN_IIterationInfo {
  QEN_OBJECT_FRAME(QEN_TMapIterationInfo)

 public:
  QEN_TMapIterationInfo() = default;
  explicit QEN_TMapIterationInfo(qen_detail::StringMap* map) : mMap(map) { First(); }

  QEN_IIterationInfo* Clone() const override {
    QEN_TMapIterationInfo* copy = new QEN_TMapIterationInfo;
    copy->mMap = mMap;
    copy->mAt = mAt;
    copy->mState = mState;
    copy->mGap = mGap;
    return copy;
  }

  void First() override {
    mGap = false;
    if (mMap != nullptr && mMap->Size() > 0) {
      mAt = mMap->Begin();
      mState = kOn;
    } else {
      mState = kDone;
    }
  }

  void Next() override {
    if (mGap) {
      mGap = false;
      return;
    }
    if (mState == kBeforeFirst) {
      First();
    } else if (mState == kOn && ++mAt == mMap->End()) {
      mState = kDone;
    }
  }

  void Previous() override {
    mGap = false;
    if (mState == kDone) {
      Last();
    } else if (mState == kOn) {
      if (mAt == mMap->Begin())
        mState = kBeforeFirst;
      else
        --mAt;
    }
  }

  void Last() override {
    mGap = false;
    if (mMap != nullptr && mMap->Size() > 0) {
      mAt = std::prev(mMap->End());
      mState = kOn;
    } else {
      mState = kBeforeFirst;
    }
  }

  bool IsBeforeFirst() const override { return mState == kBeforeFirst; }
  bool IsDone() const override { return mState == kDone; }

  QEN_IPackable& Key() const override {
    CheckOn("Key");
    mKey = mAt->key;
    return mKey;
  }

  QEN_TAny& Value() const override {
    CheckOn("Value");
    return mAt->value;
  }

  void DeleteItem() override {
    CheckOn("DeleteItem");
    mAt = mMap->Erase(mAt);
    if (mAt == mMap->End()) mState = kDone;
    mGap = true;
  }

 private:
  enum State { kBeforeFirst, kOn, kDone };

  void CheckOn(const char* operation) const {
    if (mGap)
      QEN_THROW(QEN_EIndexOutOfRange,
                QEN_TString::Format("%s: the element was deleted; advance the iteration first",
                                    operation));
    if (mState != kOn)
      QEN_THROW(QEN_EIndexOutOfRange,
                QEN_TString::Format("%s: the iteration is not on an element", operation));
  }

  qen_detail::StringMap* mMap = nullptr;
  qen_detail::StringMap::Iterator mAt{};
  State mState = kDone;
  bool mGap = false;
  // The cursor's own copy of the key, so that a change to it cannot break
  // the map's index.
  mutable QEN_TString mKey;
};

QEN_DEFINE_OBJECT(QEN_TMapIterationInfo, QEN_TObject, QEN_IIterationInfo)

QEN_IIterationInfo* qen_detail::NewMapIterationInfo(StringMap* map) {
  return new QEN_TMapIterationInfo(map);
}
