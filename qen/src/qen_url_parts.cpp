// QEN_TURL: its parts and parameters one at a time, and a URL for a local
// path. Parsing and writing the whole text are in qen_url.cpp.

#include <algorithm>
#include <cstdlib>
#include <unordered_map>
#include <vector>

#include "qen/qen_containers.h"
#include "qen/qen_url.h"
#include "qen_url_text.h"
#include "vyr_system.h"

using namespace qen_url;

// ---------------------------------------------------------------------------
// Parts.

QEN_TURL& QEN_TURL::SetHost(const QEN_TString& host) {
  mHost = host;
  Normalize();
  return *this;
}

QEN_TURL& QEN_TURL::SetPort(unsigned port) {
  mPort = port;
  Normalize();
  return *this;
}

QEN_TURL& QEN_TURL::SetUser(const QEN_TString& user, const QEN_TString& password) {
  mUser = user;
  mPassword = password;
  Normalize();
  return *this;
}

QEN_TURL& QEN_TURL::SetFragment(const QEN_TString& fragment) {
  mFragment = fragment;
  return *this;
}

QEN_TString QEN_TURL::FileName() const {
  int slash = mPath.Find(u'/', -1, true);
  return slash < 0 ? mPath : mPath.Substring(slash + 1, -1);
}

QEN_TString QEN_TURL::PathName() const {
  int slash = mPath.Find(u'/', -1, true);
  return slash < 0 ? QEN_TString() : mPath.Substring(0, slash);
}

QEN_TURL QEN_TURL::Folder() const {
  QEN_TURL folder(*this);
  folder.SetFileName(QEN_TString::sEmpty);
  folder.mParams.clear();
  folder.mFragment = QEN_TString();
  return folder;
}

QEN_TURL& QEN_TURL::SetPathName(const QEN_TString& pathName) {
  const std::u16string& given = pathName.Chars();
  Pos keep = given.find_last_not_of(u'/');
  QEN_TString folder(keep == npos ? std::u16string() : given.substr(0, keep + 1));
  QEN_TString file = FileName();
  if (given.empty() && !mHasAuthority && mPath.Find(u'/') < 0) {
    mPath = file;  // a relative path without a folder stays one
  } else {
    mPath = folder + "/" + file;
  }
  Normalize();
  return *this;
}

QEN_TURL& QEN_TURL::SetFileName(const QEN_TString& fileName) {
  int slash = mPath.Find(u'/', -1, true);
  mPath = (slash < 0 ? QEN_TString() : mPath.Substring(0, slash + 1)) + fileName;
  Normalize();
  return *this;
}

QEN_TURL& QEN_TURL::SetPath(const QEN_TString& path) {
  mPath = path;
  Normalize();
  return *this;
}

// ---------------------------------------------------------------------------
// Parameters.

std::size_t QEN_TURL::FindParam(const QEN_TString& key) const {
  for (std::size_t i = 0; i < mParams.size(); ++i)
    if (mParams[i].first == key) return i;
  return mParams.size();
}

bool QEN_TURL::GetParam(const QEN_TString& key, QEN_TString& value) const {
  std::size_t i = FindParam(key);
  if (i == mParams.size()) return false;
  value = mParams[i].second;
  return true;
}

bool QEN_TURL::HasParam(const QEN_TString& key) const { return FindParam(key) < mParams.size(); }

QEN_TString QEN_TURL::Param(const QEN_TString& key) const {
  std::size_t i = FindParam(key);
  return i == mParams.size() ? QEN_TString() : mParams[i].second;
}

QEN_TURL& QEN_TURL::SetParam(const QEN_TString& key, const QEN_TString& value) {
  std::size_t i = FindParam(key);
  if (i == mParams.size()) {
    mParams.emplace_back(key, value);
  } else {
    mParams[i].second = value;
  }
  return *this;
}

bool QEN_TURL::RemoveParam(const QEN_TString& key) {
  std::size_t i = FindParam(key);
  if (i == mParams.size()) return false;
  mParams.erase(mParams.begin() + static_cast<std::ptrdiff_t>(i));
  return true;
}

namespace {

// The text of a parameter value held in a dictionary.
bool ValueText(const QEN_TAny& value, QEN_TString& text) {
  if (value.IsNothing()) {
    text = QEN_TString();
    return true;
  }
  if (const auto* s = static_cast<const QEN_TString*>(value.DynamicCast("QEN_TString"))) {
    text = *s;
    return true;
  }
  if (const auto* u = static_cast<const QEN_TURL*>(value.DynamicCast("QEN_TURL"))) {
    text = u->AsString();
    return true;
  }
  switch (value.GetKind()) {
    case QEN_TAny::kBool:
      text = value.AsBool() ? "true" : "false";
      return true;
    case QEN_TAny::kInt32:
    case QEN_TAny::kInt64:
      text = QEN_TString::Format("%lld", value.AsInt64());
      return true;
    case QEN_TAny::kUInt8:
    case QEN_TAny::kUInt16:
    case QEN_TAny::kUInt32:
    case QEN_TAny::kUInt64:
      text = QEN_TString::Format("%llu", value.AsUInt64());
      return true;
    case QEN_TAny::kDouble:
      text = QEN_TString::Format("%.17g", value.AsDouble());
      return true;
    default:
      return false;
  }
}

}  // namespace

QEN_TDict QEN_TURL::ParamDict() const {
  QEN_TDict dict;
  for (const auto& param : mParams) dict.Add(param.first, QEN_TAny(param.second));
  return dict;
}

QEN_TURL& QEN_TURL::SetParamDict(const QEN_TDict& params) {
  // Keys that stay keep their place in the text; new keys follow in the
  // order of their text, so the result doesn't depend on the order in which
  // the dictionary happens to give them.
  std::vector<std::pair<QEN_TString, QEN_TString>> incoming;
  std::unordered_map<std::u16string, std::size_t> index;
  for (QEN_TConstIterator it(params); !it.IsDone(); it++) {
    const auto* key = static_cast<const QEN_TString*>(it.Key().DynamicCast("QEN_TString"));
    QEN_TString text;
    if (key == nullptr || !ValueText(it.Value(), text)) continue;
    index.emplace(key->Chars(), incoming.size());
    incoming.emplace_back(*key, std::move(text));
  }
  Params result;
  result.reserve(incoming.size());
  std::vector<bool> taken(incoming.size(), false);
  for (const auto& old : mParams) {
    auto found = index.find(old.first.Chars());
    if (found == index.end()) continue;
    taken[found->second] = true;
    result.push_back(incoming[found->second]);
  }
  std::size_t kept = result.size();
  for (std::size_t i = 0; i < incoming.size(); ++i)
    if (!taken[i]) result.push_back(std::move(incoming[i]));
  std::sort(result.begin() + static_cast<std::ptrdiff_t>(kept), result.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  mParams = std::move(result);
  return *this;
}

QEN_TURL QEN_TURL::LocalToURL(const QEN_TString& localPath) {
  QEN_TURL url;
  url.mProtocol = "file";
  url.mHasAuthority = true;
  const std::u16string& path = localPath.Chars();
  if (path.size() > 2 && path[0] == u'/' && path[1] == u'/' && path[2] != u'/') {
    // "//host/share/..." names a file on another machine.
    Pos slash = path.find(u'/', 2);
    if (slash == npos) slash = path.size();
    url.mHost = QEN_TString(path.substr(2, slash - 2));
    url.mPath = QEN_TString(path.substr(slash));
  } else if (!path.empty() && path[0] != u'/') {
    // A file URL is absolute; a relative path counts from where we are.
    const std::string cwd = vyr::sys::CurrentFolder();
    if (!cwd.empty()) {
      QEN_TString base(cwd.c_str());
      if (base.Empty() || base[base.Length() - 1] != u'/') base += '/';
      url.mPath = base + localPath;
    } else {
      url.mPath = localPath;
    }
  } else {
    url.mPath = localPath;
  }
  url.Normalize();
  return url;
}
