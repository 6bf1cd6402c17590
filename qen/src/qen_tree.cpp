// QEN_TTree: named entries whose branches are trees again, reached by paths.
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_string_map.h"
#include "qen_text_fields.h"

using qen_detail::StringMap;

QEN_DEFINE_VALUE(QEN_TTree, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable,
                 QEN_IIteratable)

// Each level is two objects deep in the binary form (the value and the
// tree), and the data stream reads 64: this leaves room for the objects that
// hold the tree.
const unsigned QEN_TTree::sMaxPathDepth = 24;

namespace {

const char kOwner[] = "QEN_TTree";

// The names of a path; empty names from leading, trailing or doubled
// separators are dropped.
std::vector<std::u16string> Split(const QEN_TString& path, QEN_TUniChar separator) {
  std::vector<std::u16string> names;
  const std::u16string& text = path.Chars();
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(separator, start);
    if (end == std::u16string::npos) end = text.size();
    if (end > start) names.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

// The tree that a value holds, if it is a branch.
QEN_TTree* BranchOf(QEN_TAny& value) {
  return static_cast<QEN_TTree*>(value.DynamicCast("QEN_TTree"));
}
const QEN_TTree* BranchOf(const QEN_TAny& value) {
  return static_cast<const QEN_TTree*>(value.DynamicCast("QEN_TTree"));
}

[[noreturn]] void Fail(const char* what, const QEN_TString& path) {
  QEN_THROW(QEN_ETreeException, QEN_TString::Format("QEN_TTree: %s \"%s\"", what, path.c_str()));
  std::abort();  // QEN_Throw never comes back
}

}  // namespace

QEN_TTree::QEN_TTree() = default;
QEN_DEFINE_MAP_CONTAINER(QEN_TTree)

QEN_TAny& QEN_TTree::Value(const QEN_TString& path, QEN_TUniChar separator) {
  std::vector<std::u16string> names = Split(path, separator);
  if (names.empty()) Fail("the empty path names the tree itself, which has no value:", path);
  if (names.size() > sMaxPathDepth)
    QEN_THROW(QEN_ETreeException,
              QEN_TString::Format("QEN_TTree: path \"%s\" is deeper than %u levels", path.c_str(),
                                  sMaxPathDepth));
  QEN_TTree* level = this;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) {
    QEN_TAny& slot = level->mMap.Make().Insert(QEN_TString(names[i]));
    if (slot.IsNothing()) slot = static_cast<QEN_IPackable*>(new QEN_TTree);
    level = BranchOf(slot);
    if (level == nullptr)
      QEN_THROW(
          QEN_ETreeException,
          QEN_TString::Format("QEN_TTree: \"%s\" on the path \"%s\" holds a value, not a branch",
                              QEN_TString(names[i]).c_str(), path.c_str()));
  }
  return level->mMap.Make().Insert(QEN_TString(names.back()));
}

const QEN_TAny* QEN_TTree::Find(const QEN_TString& path, QEN_TUniChar separator) const {
  std::vector<std::u16string> names = Split(path, separator);
  if (names.empty()) return nullptr;
  const QEN_TTree* level = this;
  const QEN_TAny* value = nullptr;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (level == nullptr || !level->mMap) return nullptr;
    value = level->mMap->Find(names[i]);
    if (value == nullptr) return nullptr;
    level = BranchOf(*value);
  }
  return value;
}

const QEN_TAny& QEN_TTree::Get(const QEN_TString& path, QEN_TUniChar separator) const {
  const QEN_TAny* value = Find(path, separator);
  if (value == nullptr) Fail("no entry at the path", path);
  return *value;
}

bool QEN_TTree::HasPath(const QEN_TString& path, QEN_TUniChar separator) const {
  return Find(path, separator) != nullptr;
}

bool QEN_TTree::RemovePath(const QEN_TString& path, QEN_TUniChar separator) {
  std::vector<std::u16string> names = Split(path, separator);
  if (names.empty()) return false;
  QEN_TTree* level = this;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) {
    QEN_TAny* value = level->mMap ? level->mMap->Find(names[i]) : nullptr;
    level = value != nullptr ? BranchOf(*value) : nullptr;
    if (level == nullptr) return false;
  }
  return level->mMap && level->mMap->Erase(names.back());
}

QEN_TList QEN_TTree::KeysAt(const QEN_TString& path, QEN_TUniChar separator) const {
  QEN_TList keys;
  const QEN_TTree* level = this;
  if (!Split(path, separator).empty()) {
    const QEN_TAny* value = Find(path, separator);
    level = value != nullptr ? BranchOf(*value) : nullptr;
  }
  if (level != nullptr && level->mMap)
    for (auto at = level->mMap->Begin(); at != level->mMap->End(); ++at)
      keys.AddAtTail(QEN_TAny(static_cast<const QEN_IPackable&>(at->key)));
  return keys;
}

// ---------------------------------------------------------------------------
// Text form: "leaf" = value; "branch" { ... } (see qen_containers.h)

namespace {

// A branch written in the short form: a value that is exactly a tree.
const QEN_TTree* ShortBranch(const QEN_TAny& value) {
  const QEN_IPackable* object = value.Object();
  if (object == nullptr || std::strcmp(object->ClassName(), "QEN_TTree") != 0) return nullptr;
  return static_cast<const QEN_TTree*>(object->DynamicCast("QEN_TTree"));
}

// A branch's entries after its '{', and the '}' that closes it; a ';'
// after it is allowed, as after a value.
QEN_TTree* ReadBranch(QEN_THumanReadableStream& in, const std::string& quoted) {
  std::unique_ptr<QEN_TTree> branch(new QEN_TTree);
  {
    qen_text::Nesting nesting(in);
    branch->ReadFrom(in);
  }
  in.SkipWhiteSpace();
  QEN_TUniChar c = 0;
  in.ReadChar(c);
  if (c != u'}') in.SyntaxError(("expected '}' to close the branch " + quoted).c_str());
  if (!qen_detail::AtFormEnd(in) && in.PeekChar(c) && c == u';') in.ReadChar(c);
  return branch.release();
}

}  // namespace

// Branches are written one per line.
bool QEN_TTree::QEN_HRMultiLine() const { return true; }

bool QEN_TTree::WriteTo(QEN_THumanReadableStream& out) const {
  if (!mMap) return false;
  for (auto at = mMap->Begin(); at != mMap->End(); ++at) {
    out.WriteQuoted(at->key);
    const QEN_TTree* branch = ShortBranch(at->value);
    if (branch == nullptr) {
      out << " = ";
      at->value.WriteTo(out);
      out << ";" << cr;
    } else if (branch->IsEmpty()) {
      out << " {}" << cr;
    } else {
      unsigned level = out.IndentLevel();
      out << " {";
      out.SetIndentLevel(level + 1);
      out << cr;
      branch->WriteTo(out);
      out.SetIndentLevel(level);
      out << "}" << cr;
    }
  }
  return false;
}

bool QEN_TTree::ReadFrom(QEN_THumanReadableStream& in) {
  // A framed tree read as bare content, as from a file written by
  // WriteObject: the frame reads the name and braces and comes back here.
  if (qen_detail::StartsFramed(in)) return QEN_IHumanReadable::QEN_ReadFrom(in);
  auto entry = [&in](StringMap& map, QEN_TString&& name, QEN_TUniChar after,
                     const std::string& quoted) {
    QEN_TAny value;
    if (after == u'{') {
      value = static_cast<QEN_IPackable*>(ReadBranch(in, quoted));
    } else if (after == u'=') {
      value.ReadFrom(in);
      qen_detail::ReadSeparator(in, ';', ("the value of " + quoted).c_str());
    } else {
      in.SyntaxError(("expected '=' or '{' after the name " + quoted).c_str());
    }
    if (!map.InsertNew(std::move(name), std::move(value)))
      in.SyntaxError(("duplicate name " + quoted + " in a tree").c_str());
  };
  mMap = qen_detail::ReadEntries(in, "expected a quoted name or '}' in a tree", entry);
  return false;
}
