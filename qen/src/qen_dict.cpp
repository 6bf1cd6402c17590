// QEN_TDict: string keys to values, in the order the keys came in.
#include <new>
#include <ostream>
#include <string>
#include <utility>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_string_map.h"

using qen_detail::StringMap;

QEN_DEFINE_VALUE(QEN_TDict, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable,
                 QEN_IIteratable)

namespace {
const char kOwner[] = "QEN_TDict";
}

QEN_TDict::QEN_TDict() = default;
QEN_DEFINE_MAP_CONTAINER(QEN_TDict)

bool QEN_TDict::HasKey(const QEN_IHashable& key) const { return Lookup(key) != nullptr; }
bool QEN_TDict::HasKey(const wchar_t* key) const { return Lookup(key) != nullptr; }
bool QEN_TDict::HasKey(const char* key) const { return Lookup(key) != nullptr; }

QEN_TAny& QEN_TDict::operator[](const char* key) { return mMap.Make().Insert(QEN_TString(key)); }
QEN_TAny& QEN_TDict::operator[](const wchar_t* key) { return mMap.Make().Insert(QEN_TString(key)); }
QEN_TAny& QEN_TDict::operator[](const QEN_IHashable& key) {
  return mMap.Make().Insert(qen_detail::KeyString(key, kOwner));
}

const QEN_TAny& QEN_TDict::operator[](const char* key) const {
  const QEN_TAny* found = Lookup(key);
  return found != nullptr ? *found : QEN_TAny::Illegal();
}
const QEN_TAny& QEN_TDict::operator[](const wchar_t* key) const {
  const QEN_TAny* found = Lookup(key);
  return found != nullptr ? *found : QEN_TAny::Illegal();
}
const QEN_TAny& QEN_TDict::operator[](const QEN_IHashable& key) const {
  const QEN_TAny* found = Lookup(key);
  return found != nullptr ? *found : QEN_TAny::Illegal();
}

QEN_TDict& QEN_TDict::Add(const QEN_IHashable& key, QEN_TAny&& value) {
  mMap.Make().Insert(qen_detail::KeyString(key, kOwner)) = std::move(value);
  return *this;
}

QEN_TDict& QEN_TDict::Add(const QEN_IHashable& key, const QEN_TAny& value) {
  // Copied first: the value may be one of this dictionary's own.
  QEN_TAny copy(value);
  return Add(key, std::move(copy));
}

bool QEN_TDict::Remove(const wchar_t* key) { return mMap && mMap->Erase(QEN_TString(key).Chars()); }
bool QEN_TDict::Remove(const char* key) { return mMap && mMap->Erase(QEN_TString(key).Chars()); }
bool QEN_TDict::Remove(const QEN_IHashable& key) {
  const QEN_TString& text = qen_detail::KeyString(key, kOwner);
  return mMap && mMap->Erase(text.Chars());
}

QEN_TAny* QEN_TDict::Lookup(const QEN_IHashable& key) {
  const QEN_TString& text = qen_detail::KeyString(key, kOwner);
  return mMap ? mMap->Find(text.Chars()) : nullptr;
}
const QEN_TAny* QEN_TDict::Lookup(const QEN_IHashable& key) const {
  const QEN_TString& text = qen_detail::KeyString(key, kOwner);
  return mMap ? mMap->Find(text.Chars()) : nullptr;
}
QEN_TAny* QEN_TDict::Lookup(const wchar_t* key) {
  return mMap ? mMap->Find(QEN_TString(key).Chars()) : nullptr;
}
const QEN_TAny* QEN_TDict::Lookup(const wchar_t* key) const {
  return mMap ? mMap->Find(QEN_TString(key).Chars()) : nullptr;
}
QEN_TAny* QEN_TDict::Lookup(const char* key) {
  return mMap ? mMap->Find(QEN_TString(key).Chars()) : nullptr;
}
const QEN_TAny* QEN_TDict::Lookup(const char* key) const {
  return mMap ? mMap->Find(QEN_TString(key).Chars()) : nullptr;
}

QEN_TDict& QEN_TDict::AddAll(const QEN_TDict& other) {
  if (this == &other || !other.mMap) return *this;
  // From a copy: `other` may be held by one of this dictionary's values, and
  // replacing that value would delete it while it is walked.
  StringMap copy(*other.mMap);
  for (auto at = copy.Begin(); at != copy.End(); ++at)
    mMap.Make().Insert(at->key) = std::move(at->value);
  return *this;
}

// ---------------------------------------------------------------------------
// Text form: "key" = value; ... (see qen_containers.h)

bool QEN_TDict::QEN_HRMultiLine() const {
  if (Entries() > 1) return true;
  return Entries() == 1 &&
         (qen_detail::HoldsObject(mMap->Begin()->value) || mMap->Begin()->value.QEN_HRMultiLine());
}

bool QEN_TDict::WriteTo(QEN_THumanReadableStream& out) const {
  if (!mMap) return false;
  bool multiLine = QEN_HRMultiLine();
  bool first = true;
  for (auto at = mMap->Begin(); at != mMap->End(); ++at) {
    if (!multiLine && !first) out << " ";
    first = false;
    out.WriteQuoted(at->key);
    out << " = ";
    at->value.WriteTo(out);
    out << ";";
    if (multiLine) out << cr;
  }
  return false;
}

bool QEN_TDict::ReadFrom(QEN_THumanReadableStream& in) {
  // A framed dictionary read as bare content: the frame reads the name and
  // the braces and comes back here for what lies between them.
  if (qen_detail::StartsFramed(in)) return QEN_IHumanReadable::QEN_ReadFrom(in);
  auto entry = [&in](StringMap& map, QEN_TString&& key, QEN_TUniChar after,
                     const std::string& quoted) {
    if (after != u'=') in.SyntaxError(("expected '=' after the key " + quoted).c_str());
    QEN_TAny value;
    value.ReadFrom(in);
    if (!map.InsertNew(std::move(key), std::move(value)))
      in.SyntaxError(("duplicate key " + quoted + " in a dictionary").c_str());
    qen_detail::ReadSeparator(in, ';', ("the value of " + quoted).c_str());
  };
  mMap = qen_detail::ReadEntries(in, "expected a quoted key or '}' in a dictionary", entry);
  return false;
}
