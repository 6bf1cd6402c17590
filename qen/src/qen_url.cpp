// QEN_TURL: parsing, resolution, writing and the stored forms. The rules are
// described at the top of qen_url.h.
#include "qen/qen_url.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <unordered_map>

#include "qen/qen_containers.h"
#include "qen/qen_stream.h"
#include "vyr_system.h"

QEN_DEFINE_VALUE(QEN_TURL, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

namespace {

typedef std::u16string::size_type Pos;
constexpr Pos npos = std::u16string::npos;

bool IsAsciiAlpha(char16_t c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsAsciiDigit(char16_t c) { return c >= '0' && c <= '9'; }
bool IsSchemeChar(char16_t c) {
  return IsAsciiAlpha(c) || IsAsciiDigit(c) || c == '+' || c == '-' || c == '.';
}
int HexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

char16_t AsciiLower(char16_t c) { return (c >= 'A' && c <= 'Z') ? c + 32 : c; }

QEN_TString LowerAscii(const std::u16string& text) {
  std::u16string out(text);
  for (char16_t& c : out) c = AsciiLower(c);
  return QEN_TString(std::move(out));
}

bool EqualIgnoringAsciiCase(const std::u16string& a, const std::u16string& b) {
  if (a.size() != b.size()) return false;
  for (Pos i = 0; i < a.size(); ++i)
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  return true;
}

// "%XX" decoding on UTF-8 bytes; '%' and hex digits are ASCII, so escapes
// and literal non-ASCII characters mix freely.
std::string DecodeBytes(const std::string& in) {
  std::string out;
  out.reserve(in.size());
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] == '%' && i + 2 < in.size()) {
      int hi = HexValue(static_cast<unsigned char>(in[i + 1]));
      int lo = HexValue(static_cast<unsigned char>(in[i + 2]));
      if (hi >= 0 && lo >= 0) {
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
        continue;
      }
    }
    out += in[i];
  }
  return out;
}

QEN_TString Decode(const std::u16string& text, Pos from, Pos to) {
  std::u16string piece(text, from, to - from);
  if (piece.find(u'%') == npos) return QEN_TString(std::move(piece));
  return QEN_TString(DecodeBytes(QEN_TString(std::move(piece)).Utf8()));
}

// Which ASCII characters a part keeps as they are. Everything else, and
// every byte of a non-ASCII character, is written as "%XX".
enum Part { kUser, kPassword, kHost, kPath, kParam, kFragment };

bool IsUnreserved(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}
bool IsSubDelim(unsigned char c) { return c != 0 && std::strchr("!$&'()*+,;=", c) != nullptr; }

bool Keeps(Part part, unsigned char c) {
  if (c >= 0x80) return false;
  switch (part) {
    case kParam:
      return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
             c == '*' || c == '-' || c == '.' || c == '_';
    case kUser:
    case kHost:
      return IsUnreserved(c) || IsSubDelim(c);
    case kPassword:
      return IsUnreserved(c) || IsSubDelim(c) || c == ':';
    case kPath:
      return IsUnreserved(c) || IsSubDelim(c) || c == ':' || c == '@' || c == '/';
    case kFragment:
      return IsUnreserved(c) || IsSubDelim(c) || c == ':' || c == '@' || c == '/' || c == '?';
  }
  return false;
}

void AppendEscaped(std::string& out, unsigned char c) {
  static const char kHex[] = "0123456789ABCDEF";
  out += '%';
  out += kHex[c >> 4];
  out += kHex[c & 0xF];
}

void AppendEncoded(std::string& out, const QEN_TString& text, Part part) {
  for (unsigned char c : text.Utf8()) {
    if (Keeps(part, c)) {
      out += static_cast<char>(c);
    } else {
      AppendEscaped(out, c);
    }
  }
}

// A host in brackets keeps them and its colons, so "[::1]" stays readable;
// brackets anywhere else are escaped, so the first ']' still ends it.
void AppendHost(std::string& out, const QEN_TString& host) {
  std::string bytes = host.Utf8();
  bool bracketed = bytes.size() >= 2 && bytes.front() == '[' && bytes.back() == ']';
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(bytes[i]);
    bool keep =
        Keeps(kHost, c) ||
        (bracketed && (c == ':' || (c == '[' && i == 0) || (c == ']' && i + 1 == bytes.size())));
    if (keep) {
      out += static_cast<char>(c);
    } else {
      AppendEscaped(out, c);
    }
  }
}

// The path as it stands in URL text. Without an authority, a path that starts
// with "//" would read as one, and without a protocol a ':' in the first
// segment would read as the end of one; those characters are escaped.
std::string EncodePath(const QEN_TString& path, bool hasProtocol, bool hasAuthority) {
  std::string bytes = path.Utf8();
  std::string out;
  out.reserve(bytes.size());
  std::size_t firstSlash = bytes.find('/');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(bytes[i]);
    bool keep = Keeps(kPath, c);
    if (c == '/' && i == 1 && !hasAuthority && bytes[0] == '/') keep = false;
    // A drive letter ("C:") never reads as a protocol, so its colon may stay.
    if (c == ':' && !hasProtocol && !hasAuthority && i < firstSlash && i != 1) keep = false;
    if (keep) {
      out += static_cast<char>(c);
    } else {
      AppendEscaped(out, c);
    }
  }
  return out;
}

bool IsLocalFileProtocol(const QEN_TString& protocol) {
  return protocol == "file" || protocol == "embed";
}

// A port: up to five digits, at most 65535. An empty text is no port.
bool ReadPort(const std::u16string& text, Pos from, Pos to, unsigned& port) {
  if (to - from > 5) return false;
  unsigned value = 0;
  for (Pos i = from; i < to; ++i) {
    if (!IsAsciiDigit(text[i])) return false;
    value = value * 10 + (text[i] - '0');
  }
  if (value > 65535) return false;
  port = value;
  return true;
}

// Removes "." and ".." segments, as resolution of references does. One pass
// over the input; the output only shrinks by what it last received.
std::u16string RemoveDotSegments(const std::u16string& in) {
  std::u16string out;
  out.reserve(in.size());
  const Pos n = in.size();
  Pos i = 0;
  auto startsWith = [&](const char16_t* p) {
    Pos k = 0;
    for (; p[k] != 0; ++k)
      if (i + k >= n || in[i + k] != p[k]) return false;
    return true;
  };
  auto restIs = [&](const char16_t* p) {
    return startsWith(p) && n - i == std::char_traits<char16_t>::length(p);
  };
  auto dropLastSegment = [&out]() {
    Pos slash = out.rfind(u'/');
    out.erase(slash == npos ? 0 : slash);
  };
  while (i < n) {
    if (startsWith(u"../")) {
      i += 3;
    } else if (startsWith(u"./")) {
      i += 2;
    } else if (startsWith(u"/./")) {
      i += 2;  // leaves the '/' in front
    } else if (restIs(u"/.")) {
      out += u'/';
      i = n;
    } else if (startsWith(u"/../")) {
      i += 3;
      dropLastSegment();
    } else if (restIs(u"/..")) {
      dropLastSegment();
      out += u'/';
      i = n;
    } else if (restIs(u".") || restIs(u"..")) {
      i = n;
    } else {
      Pos next = in.find(u'/', in[i] == u'/' ? i + 1 : i);
      if (next == npos) next = n;
      out.append(in, i, next - i);
      i = next;
    }
  }
  return out;
}

}  // namespace

// The parts of one URL text, with what was written at all.
struct QEN_TURL::Parsed {
  bool hasProtocol = false;
  bool hasAuthority = false;
  bool hasQuery = false;
  QEN_TString protocol, user, password, host;
  unsigned port = 0;
  QEN_TString path;
  Params params;
  QEN_TString fragment;

  explicit Parsed(const std::u16string& text) {
    const Pos n = text.size();
    Pos i = 0;
    if (n > 0 && IsAsciiAlpha(text[0])) {
      Pos j = 1;
      while (j < n && IsSchemeChar(text[j])) ++j;
      if (j < n && text[j] == ':' && j >= 2) {
        hasProtocol = true;
        protocol = LowerAscii(text.substr(0, j));
        i = j + 1;
      }
    }
    Pos end = text.find(u'#', i);
    if (end == npos) {
      end = n;
    } else {
      fragment = Decode(text, end + 1, n);
    }
    Pos question = std::find(text.begin() + i, text.begin() + end, u'?') - text.begin();
    if (question < end) {
      hasQuery = true;
      params = ParseQuery(text, question + 1, end);
      end = question;
    }
    if (end - i >= 2 && text[i] == '/' && text[i + 1] == '/') {
      hasAuthority = true;
      Pos authorityEnd = std::find(text.begin() + i + 2, text.begin() + end, u'/') - text.begin();
      ParseAuthority(text, i + 2, authorityEnd);
      i = authorityEnd;
    }
    path = Decode(text, i, end);
  }

  void ParseAuthority(const std::u16string& text, Pos from, Pos to) {
    Pos at = npos;
    for (Pos k = from; k < to; ++k)
      if (text[k] == '@') at = k;
    if (at != npos) {
      Pos colon = std::find(text.begin() + from, text.begin() + at, u':') - text.begin();
      user = Decode(text, from, colon);
      if (colon < at) password = Decode(text, colon + 1, at);
      from = at + 1;
    }
    Pos hostEnd = to;
    if (from < to && text[from] == '[') {
      Pos close = std::find(text.begin() + from, text.begin() + to, u']') - text.begin();
      if (close < to) {
        if (close + 1 == to) {
          hostEnd = to;
        } else if (text[close + 1] == ':' && ReadPort(text, close + 2, to, port)) {
          hostEnd = close + 1;
        }
      }
    } else {
      Pos colon = npos;
      for (Pos k = from; k < to; ++k)
        if (text[k] == ':') colon = k;
      if (colon != npos && ReadPort(text, colon + 1, to, port)) hostEnd = colon;
    }
    host = Decode(text, from, hostEnd);
  }

  static Params ParseQuery(const std::u16string& text, Pos from, Pos to) {
    Params params;
    // A key given again replaces the value in place; the index keeps a long
    // query linear.
    std::unordered_map<std::u16string, std::size_t> index;
    while (from < to) {
      Pos amp = std::find(text.begin() + from, text.begin() + to, u'&') - text.begin();
      if (amp > from) {
        Pos eq = std::find(text.begin() + from, text.begin() + amp, u'=') - text.begin();
        QEN_TString key = Decode(text, from, eq);
        QEN_TString value = eq < amp ? Decode(text, eq + 1, amp) : QEN_TString();
        auto found = index.find(key.Chars());
        if (found != index.end()) {
          params[found->second].second = std::move(value);
        } else {
          index.emplace(key.Chars(), params.size());
          params.emplace_back(std::move(key), std::move(value));
        }
      }
      from = amp + 1;
    }
    return params;
  }
};

// ---------------------------------------------------------------------------
// Construction.

QEN_TURL::QEN_TURL() = default;

QEN_TURL::QEN_TURL(const QEN_TString& text) { Assign(Parsed(text.Chars())); }

QEN_TURL::QEN_TURL(const QEN_TURL& base, const QEN_TString& relative) {
  Parsed ref(relative.Chars());
  if (ref.hasProtocol) {
    ref.path = QEN_TString(RemoveDotSegments(ref.path.Chars()));
    Assign(std::move(ref));
    return;
  }
  mProtocol = base.mProtocol;
  if (ref.hasAuthority) {
    mHasAuthority = true;
    mUser = std::move(ref.user);
    mPassword = std::move(ref.password);
    mHost = std::move(ref.host);
    mPort = ref.port;
    mPath = QEN_TString(RemoveDotSegments(ref.path.Chars()));
    mParams = std::move(ref.params);
  } else {
    mHasAuthority = base.mHasAuthority;
    mUser = base.mUser;
    mPassword = base.mPassword;
    mHost = base.mHost;
    mPort = base.mPort;
    const std::u16string& refPath = ref.path.Chars();
    if (refPath.empty()) {
      mPath = base.mPath;
      mParams = ref.hasQuery ? std::move(ref.params) : base.mParams;
    } else {
      std::u16string merged;
      if (refPath[0] == u'/') {
        merged = refPath;
      } else if (base.mHasAuthority && base.mPath.Empty()) {
        merged = u"/" + refPath;
      } else {
        const std::u16string& basePath = base.mPath.Chars();
        Pos slash = basePath.rfind(u'/');
        merged = slash == npos ? refPath : basePath.substr(0, slash + 1) + refPath;
      }
      mPath = QEN_TString(RemoveDotSegments(merged));
      mParams = std::move(ref.params);
    }
  }
  mFragment = std::move(ref.fragment);
  Normalize();
}

QEN_TURL::QEN_TURL(const QEN_TString& protocol, const QEN_TString& host, const QEN_TString& path,
                   const QEN_TString& query, unsigned port, const QEN_TString& user,
                   const QEN_TString& password)
    : mProtocol(LowerAscii(protocol.Chars())),
      mUser(user),
      mPassword(password),
      mHost(host),
      mPort(port),
      mPath(HexDecode(path)) {
  SetQuery(query);
  Normalize();
}

QEN_TURL::QEN_TURL(const QEN_TURL& other) = default;
QEN_TURL::QEN_TURL(QEN_TURL&& other) noexcept = default;
QEN_TURL& QEN_TURL::operator=(const QEN_TURL& other) = default;
QEN_TURL& QEN_TURL::operator=(QEN_TURL&& other) noexcept = default;
QEN_TURL::~QEN_TURL() = default;

void QEN_TURL::Assign(Parsed&& parsed) {
  mProtocol = std::move(parsed.protocol);
  mUser = std::move(parsed.user);
  mPassword = std::move(parsed.password);
  mHost = std::move(parsed.host);
  mPort = parsed.port;
  mHasAuthority = parsed.hasAuthority;
  mPath = std::move(parsed.path);
  mParams = std::move(parsed.params);
  mFragment = std::move(parsed.fragment);
  Normalize();
}

// Keeps the parts consistent with each other, so that the text written by
// AsString parses back to the same parts.
void QEN_TURL::Normalize() {
  if (IsLocalFileProtocol(mProtocol) || !mHost.Empty() || !mUser.Empty() || !mPassword.Empty() ||
      mPort != 0) {
    mHasAuthority = true;
  }
  if (mHasAuthority && !mPath.Empty() && mPath[0] != u'/') mPath = "/" + mPath;
}

bool QEN_TURL::Empty() const {
  return mProtocol.Empty() && !mHasAuthority && mPath.Empty() && mParams.empty() &&
         mFragment.Empty();
}

// ---------------------------------------------------------------------------
// Parts.

QEN_TURL& QEN_TURL::SetProtocol(const QEN_TString& protocol) {
  mProtocol = LowerAscii(protocol.Chars());
  Normalize();
  return *this;
}

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

QEN_TString QEN_TURL::LocalPath() const {
  if (!mHost.Empty() && !EqualIgnoringAsciiCase(mHost.Chars(), u"localhost")) {
    return "//" + mHost + mPath;
  }
  return mPath;
}

QEN_TString QEN_TURL::PathString() const {
  return QEN_TString(EncodePath(mPath, !mProtocol.Empty(), mHasAuthority));
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

QEN_TURL& QEN_TURL::SetQuery(const QEN_TString& query) {
  const std::u16string& text = query.Chars();
  Pos from = !text.empty() && text[0] == u'?' ? 1 : 0;
  mParams = Parsed::ParseQuery(text, from, text.size());
  return *this;
}

QEN_TString QEN_TURL::Query() const {
  std::string out;
  for (const auto& param : mParams) {
    if (!out.empty()) out += '&';
    AppendEncoded(out, param.first, kParam);
    out += '=';
    AppendEncoded(out, param.second, kParam);
  }
  return QEN_TString(out);
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

// ---------------------------------------------------------------------------
// Text.

namespace {

// Appends text that is ASCII and kept as it is in `part`; false, with `out`
// as it may stand then, when some character needs more.
bool AppendPlain(std::u16string& out, const std::u16string& text, Part part) {
  for (char16_t c : text) {
    if (c >= 0x80 || !Keeps(part, static_cast<unsigned char>(c))) return false;
    out += c;
  }
  return true;
}

}  // namespace

QEN_TString QEN_TURL::AsString() const {
  // The usual URL (protocol, authority with a host at most, a path and
  // nothing else, all in characters that stand as they are) is put together
  // directly; anything else goes through the full encoding below.
  if (mHasAuthority && !mProtocol.Empty() && mUser.Empty() && mPassword.Empty() && mPort == 0 &&
      mParams.empty() && mFragment.Empty()) {
    std::u16string text;
    text.reserve(mProtocol.Length() + 3 + mHost.Length() + mPath.Length());
    bool plain = true;
    for (char16_t c : mProtocol.Chars()) plain = plain && c < 0x80;
    if (plain) {
      text = mProtocol.Chars();
      text += u"://";
      if (AppendPlain(text, mHost.Chars(), kHost) && AppendPlain(text, mPath.Chars(), kPath))
        return QEN_TString(std::move(text));
    }
  }
  std::string out;
  if (!mProtocol.Empty()) {
    out += mProtocol.Utf8();
    out += ':';
  }
  if (mHasAuthority) {
    out += "//";
    if (!mUser.Empty() || !mPassword.Empty()) {
      AppendEncoded(out, mUser, kUser);
      if (!mPassword.Empty()) {
        out += ':';
        AppendEncoded(out, mPassword, kPassword);
      }
      out += '@';
    }
    AppendHost(out, mHost);
    if (mPort != 0) {
      out += ':';
      out += std::to_string(mPort);
    }
  }
  out += EncodePath(mPath, !mProtocol.Empty(), mHasAuthority);
  if (!mParams.empty()) {
    out += '?';
    out += Query().Utf8();
  }
  if (!mFragment.Empty()) {
    out += '#';
    AppendEncoded(out, mFragment, kFragment);
  }
  return QEN_TString(out);
}

QEN_TString QEN_TURL::HexDecode(const QEN_TString& text) {
  if (text.Find(u'%') < 0) return text;
  return QEN_TString(DecodeBytes(text.Utf8()));
}

QEN_TString QEN_TURL::HexEncode(const QEN_TString& text) {
  std::string out;
  AppendEncoded(out, text, kParam);
  return QEN_TString(out);
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

bool QEN_TURL::operator==(const QEN_TURL& other) const {
  if (!(mProtocol == other.mProtocol && mHasAuthority == other.mHasAuthority &&
        mUser == other.mUser && mPassword == other.mPassword && mPort == other.mPort &&
        mPath == other.mPath && mFragment == other.mFragment &&
        EqualIgnoringAsciiCase(mHost.Chars(), other.mHost.Chars()) &&
        mParams.size() == other.mParams.size())) {
    return false;
  }
  // Keys are unique on both sides, so sorted lists compare pair by pair.
  auto sorted = [](const Params& params) {
    std::vector<const std::pair<QEN_TString, QEN_TString>*> out;
    out.reserve(params.size());
    for (const auto& p : params) out.push_back(&p);
    std::sort(out.begin(), out.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    return out;
  };
  auto mine = sorted(mParams), theirs = sorted(other.mParams);
  for (std::size_t i = 0; i < mine.size(); ++i)
    if (*mine[i] != *theirs[i]) return false;
  return true;
}

// ---------------------------------------------------------------------------
// Stored forms.

void QEN_TURL::QEN_Pack(QEN_IPacking& out) const { AsString().QEN_Pack(out); }

// The text as a QEN_TString reads it, with no string object in between.
void QEN_TURL::QEN_Unpack(QEN_IUnpacking& in) {
  std::u16string text;
  in.GetChars(text);
  Assign(Parsed(text));
}

bool QEN_TURL::WriteTo(QEN_THumanReadableStream& out) const { return AsString().WriteTo(out); }

bool QEN_TURL::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TString text;
  text.ReadFrom(in);
  *this = QEN_TURL(text);
  return false;
}

void QEN_TURL::PrintOn(std::ostream& out) const { AsString().PrintOn(out); }
