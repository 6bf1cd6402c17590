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
#include "qen_data_stream_impl.h"
#include "qen_url_text.h"

QEN_DEFINE_VALUE(QEN_TURL, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

using namespace qen_url;

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

  // The usual URL, as PlainText writes it: a protocol, "//", a host and a
  // path, all of characters that stand as they are. Nothing in it is
  // encoded, so its parts are pieces of the text; they go straight into
  // `url`. False, with `url` as it was, for any other text.
  static bool TakePlain(QEN_TURL& url, const std::u16string& text) {
    return TakePlain(url, text.data(), text.size());
  }
  // The same for n characters at `text`: 16-bit units, or the bytes of a
  // text of 8-bit characters.
  template <class C>
  static bool TakePlain(QEN_TURL& url, const C* text, Pos n) {
    Pos j = 0;
    while (j < n && IsSchemeChar(text[j])) ++j;
    if (j < 2 || !IsAsciiAlpha(text[0]) || n - j < 3 || text[j] != ':' || text[j + 1] != '/' ||
        text[j + 2] != '/')
      return false;
    const Pos host = j + 3;
    Pos path = host;
    for (; path < n && text[path] != '/'; ++path)
      if (text[path] >= 0x80 || !Keeps(kHost, static_cast<unsigned char>(text[path]))) return false;
    for (Pos k = path; k < n; ++k)
      if (text[k] >= 0x80 || !Keeps(kPath, static_cast<unsigned char>(text[k]))) return false;
    using qen_data::InPlace;
    auto same = [](C c) { return static_cast<char16_t>(c); };
    InPlace::Assign(url.mProtocol, text, j, [](C c) { return AsciiLower(c); });
    if (!url.mUser.Empty()) url.mUser = QEN_TString();
    if (!url.mPassword.Empty()) url.mPassword = QEN_TString();
    InPlace::Assign(url.mHost, text + host, path - host, same);
    url.mPort = 0;
    url.mHasAuthority = true;
    InPlace::Assign(url.mPath, text + path, n - path, same);
    url.mParams.clear();
    if (!url.mFragment.Empty()) url.mFragment = QEN_TString();
    return true;
  }

  // The length of the text of the usual URL (protocol, authority with a
  // host at most, a path and nothing else), or npos for any other.
  static Pos PlainLength(const QEN_TURL& url) {
    if (!url.mHasAuthority || url.mProtocol.Empty() || !url.mUser.Empty() ||
        !url.mPassword.Empty() || url.mPort != 0 || !url.mParams.empty() || !url.mFragment.Empty())
      return npos;
    for (char16_t c : url.mProtocol.Chars())
      if (c >= 0x80) return npos;
    return url.mProtocol.Length() + 3 + url.mHost.Length() + url.mPath.Length();
  }

  // Puts the usual URL's text together in `out` (PlainLength units), where
  // all its characters stand as they are; false where some need encoding.
  // `out` is 16-bit units, or bytes when the text is known to be ASCII.
  template <class C>
  static bool PlainText(const QEN_TURL& url, C* out) {
    const std::u16string& protocol = url.mProtocol.Chars();
    for (char16_t c : protocol) *out++ = static_cast<C>(c);
    *out++ = ':';
    *out++ = '/';
    *out++ = '/';
    out = CopyPlain(out, url.mHost.Chars(), kHost);
    return out != nullptr && CopyPlain(out, url.mPath.Chars(), kPath) != nullptr;
  }

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

QEN_TURL::QEN_TURL(const QEN_TString& text) {
  if (!Parsed::TakePlain(*this, text.Chars())) Assign(Parsed(text.Chars()));
}

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
// Parts and the query as text.

QEN_TURL& QEN_TURL::SetProtocol(const QEN_TString& protocol) {
  mProtocol = LowerAscii(protocol.Chars());
  Normalize();
  return *this;
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

// ---------------------------------------------------------------------------
// Text.

QEN_TString QEN_TURL::AsString() const {
  // The usual URL directly; anything else through the full encoding below.
  const Pos length = Parsed::PlainLength(*this);
  if (length != npos) {
    std::u16string text(length, u'\0');
    if (Parsed::PlainText(*this, &text[0])) return QEN_TString(std::move(text));
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

// The text as a QEN_TString packs it; the usual URL with no string object
// in between, either way.
void QEN_TURL::QEN_Pack(QEN_IPacking& out) const {
  const Pos length = Parsed::PlainLength(*this);
  // Straight into a memory stream's bytes.
  if (QEN_TDataStream* s = length != npos ? qen_data::InPlace::Writing(out) : nullptr)
    if (qen_data::InPlace::PutNarrow(
            *s, length, [&](unsigned char* at) { return Parsed::PlainText(*this, at); }))
      return;
  if (length != npos) {
    char16_t local[256];
    std::u16string heap;
    char16_t* text = local;
    if (length > sizeof local / sizeof local[0]) {
      heap.resize(length);
      text = &heap[0];
    }
    if (Parsed::PlainText(*this, text)) {
      out.PutChars(text, static_cast<unsigned>(length));
      return;
    }
  }
  AsString().QEN_Pack(out);
}

void QEN_TURL::QEN_Unpack(QEN_IUnpacking& in) {
  // The usual URL of 8-bit characters, straight from a memory stream's bytes.
  if (QEN_TDataStream* s = qen_data::InPlace::Reading(in)) {
    unsigned count = 0, head = 0;
    const unsigned char* text = qen_data::InPlace::NarrowText(*s, count, head);
    if (text != nullptr && Parsed::TakePlain(*this, text, count)) {
      qen_data::InPlace::Took(*s, head + count);
      return;
    }
  }
  std::u16string text;
  in.GetChars(text);
  if (!Parsed::TakePlain(*this, text)) Assign(Parsed(text));
}

bool QEN_TURL::WriteTo(QEN_THumanReadableStream& out) const { return AsString().WriteTo(out); }

bool QEN_TURL::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TString text;
  text.ReadFrom(in);
  *this = QEN_TURL(text);
  return false;
}

void QEN_TURL::PrintOn(std::ostream& out) const { AsString().PrintOn(out); }
