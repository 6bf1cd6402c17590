// QEN_TString: 16-bit text with UTF-8 and wchar_t views built on demand.
#include "qen/qen_string.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <ostream>
#include <vector>

#include "qen/qen_stream.h"
#include "qen/qen_utf8.h"
#include "qen_case.h"
#include "qen_data_stream_impl.h"
#include "qen_format.h"
#include "qen_utf8_lead.h"

QEN_DEFINE_INTERFACE(QEN_IHashable)
QEN_DEFINE_VALUE(QEN_TString, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable,
                 QEN_IHashable)

const QEN_TString QEN_TString::sEmpty;

namespace {

using qen_case::FoldOf;
using qen_case::LowerOf;
using qen_case::UpperOf;

constexpr char16_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

void AppendCodePoint(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<char16_t>(c);
  } else {
    c -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (c >> 10));
    out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  }
}

// Decodes UTF-8. Every byte that does not start a well-formed sequence, and
// every truncated sequence, gives one U+FFFD; decoding resumes at the next
// byte that could start a sequence. Overlong forms, surrogates and values past
// U+10FFFF are ill-formed.
void AppendUtf8(std::u16string& out, const char* text, std::size_t size) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* end = p + size;
  out.reserve(out.size() + size);
  while (p < end) {
    unsigned char b = *p;
    if (b < 0x80) {
      out += static_cast<char16_t>(b);
      ++p;
      continue;
    }
    qen_detail::Utf8Lead lead;
    ++p;
    if (!qen_detail::ReadUtf8Lead(b, lead)) {
      out += kReplacement;
      continue;
    }
    char32_t c = lead.bits;
    bool good = true;
    for (unsigned i = 0; i < lead.follow; ++i) {
      if (p == end || !lead.Fits(i, *p)) {
        good = false;
        break;
      }
      c = (c << 6) | (*p & 0x3F);
      ++p;
    }
    if (good) {
      AppendCodePoint(out, c);
    } else {
      out += kReplacement;
    }
  }
}

// Calls f with each code point; a lone surrogate comes out as U+FFFD.
template <class F>
void ForEachCodePoint(const std::u16string& text, F f) {
  const std::size_t n = text.size();
  for (std::size_t i = 0; i < n; ++i) {
    char32_t c = text[i];
    if (IsHighSurrogate(c) && i + 1 < n && IsLowSurrogate(text[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (IsHighSurrogate(c) || IsLowSurrogate(c)) {
      c = kReplacement;
    }
    f(c);
  }
}

std::string ToUtf8(const std::u16string& text) {
  std::string out;
  out.reserve(text.size());
  ForEachCodePoint(text, [&out](char32_t c) { QEN_AppendUtf8(out, c); });
  return out;
}

void AppendWide(std::u16string& out, const wchar_t* text, std::size_t size) {
  if constexpr (sizeof(wchar_t) == 2) {
    out.append(reinterpret_cast<const char16_t*>(text), size);
  } else {
    out.reserve(out.size() + size);
    for (std::size_t i = 0; i < size; ++i) {
      char32_t c = static_cast<char32_t>(text[i]);
      if (c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c)) c = kReplacement;
      AppendCodePoint(out, c);
    }
  }
}

std::u16string FromUtf8(const char* text, std::size_t size) {
  std::u16string out;
  AppendUtf8(out, text, size);
  return out;
}

// A single char stands for itself as a Latin-1 character: a lone byte of a
// multi-byte UTF-8 sequence has no meaning of its own.
char16_t FromChar(char c) { return static_cast<char16_t>(static_cast<unsigned char>(c)); }

std::size_t U16Length(const char16_t* text) {
  std::size_t n = 0;
  while (text[n] != 0) ++n;
  return n;
}

// Clips a start position: negative counts from the end.
std::size_t ClipStart(int start, std::size_t size) {
  if (start < 0) {
    long long s = static_cast<long long>(size) + start;
    return s < 0 ? 0 : static_cast<std::size_t>(s);
  }
  return static_cast<std::size_t>(start) > size ? size : static_cast<std::size_t>(start);
}

int FindIn(const std::u16string& text, const char16_t* what, std::size_t whatSize, int from,
           bool last) {
  std::size_t found;
  if (last) {
    std::size_t start = from < 0 ? std::u16string::npos : static_cast<std::size_t>(from);
    found = text.rfind(what, start, whatSize);
  } else {
    if (from >= 0 && static_cast<std::size_t>(from) > text.size()) return -1;
    found = text.find(what, ClipStart(from, text.size()), whatSize);
  }
  if (found == std::u16string::npos || found > static_cast<std::size_t>(INT32_MAX)) return -1;
  return static_cast<int>(found);
}

// Frees a cached view and clears the slot. Only operations that change or
// end the string call it, and no other thread may read the string meanwhile:
// plain loads and stores do, without a locked instruction per string.
template <class T>
void Drop(std::atomic<T*>& slot) {
  T* view = slot.load(std::memory_order_relaxed);
  if (view == nullptr) return;
  slot.store(nullptr, std::memory_order_relaxed);
  delete[] view;
}

// Hands the views of a string that is moved from to the new one.
template <class T>
void Take(std::atomic<T*>& to, std::atomic<T*>& from) {
  to.store(from.load(std::memory_order_relaxed), std::memory_order_relaxed);
  from.store(nullptr, std::memory_order_relaxed);
}

// Publishes a freshly built view, or gives the one another thread published
// first and frees ours.
template <class T>
const T* Publish(std::atomic<T*>& slot, T* fresh) {
  T* expected = nullptr;
  if (slot.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel,
                                   std::memory_order_acquire)) {
    return fresh;
  }
  delete[] fresh;
  return expected;
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction.

QEN_TString::QEN_TString() = default;

QEN_TString::QEN_TString(const char* text, unsigned length) {
  if (text == nullptr) return;
  // The text ends at its zero even when a longer length is given.
  std::size_t n = length == npos ? std::strlen(text) : strnlen(text, length);
  AppendUtf8(mText, text, n);
}

QEN_TString::QEN_TString(const wchar_t* text, unsigned length) {
  if (text == nullptr) return;
  std::size_t n = length == npos ? std::wcslen(text) : wcsnlen(text, length);
  AppendWide(mText, text, n);
}

QEN_TString::QEN_TString(const QEN_TUniChar* text, unsigned length) {
  if (text == nullptr) return;
  mText.assign(text, length == npos ? U16Length(text) : length);
}

QEN_TString::QEN_TString(const std::string& utf8) : mText(FromUtf8(utf8.data(), utf8.size())) {}

QEN_TString::QEN_TString(std::u16string text) : mText(std::move(text)) {}

QEN_TString::QEN_TString(const QEN_TString& other) : QEN_TObject(other), mText(other.mText) {}

QEN_TString::QEN_TString(QEN_TString&& other) noexcept
    : QEN_TObject(other), mText(std::move(other.mText)) {
  // The views describe the text, so they travel with it.
  Take(mNarrow, other.mNarrow);
  Take(mWide, other.mWide);
  other.mText.clear();
}

QEN_TString& QEN_TString::operator=(const QEN_TString& other) {
  if (this != &other) {
    mText = other.mText;
    Changed();
  }
  return *this;
}

QEN_TString& QEN_TString::operator=(QEN_TString&& other) noexcept {
  if (this != &other) {
    mText = std::move(other.mText);
    other.mText.clear();
    Drop(mNarrow);
    Drop(mWide);
    Take(mNarrow, other.mNarrow);
    Take(mWide, other.mWide);
  }
  return *this;
}

QEN_TString::~QEN_TString() {
  Drop(mNarrow);
  Drop(mWide);
}

void QEN_TString::Changed() {
  Drop(mNarrow);
  Drop(mWide);
}

// ---------------------------------------------------------------------------
// Views.

std::string QEN_TString::Utf8() const { return ToUtf8(mText); }

const char* QEN_TString::c_str() const {
  if (const char* cached = mNarrow.load(std::memory_order_acquire)) return cached;
  std::string utf8 = ToUtf8(mText);
  char* fresh = new char[utf8.size() + 1];
  std::memcpy(fresh, utf8.c_str(), utf8.size() + 1);
  return Publish(mNarrow, fresh);
}

const wchar_t* QEN_TString::wc_str() const {
  if (const wchar_t* cached = mWide.load(std::memory_order_acquire)) return cached;
  std::vector<wchar_t> wide;
  wide.reserve(mText.size() + 1);
  if constexpr (sizeof(wchar_t) == 2) {
    for (char16_t c : mText) wide.push_back(static_cast<wchar_t>(c));
  } else {
    ForEachCodePoint(mText, [&wide](char32_t c) { wide.push_back(static_cast<wchar_t>(c)); });
  }
  wide.push_back(0);
  wchar_t* fresh = new wchar_t[wide.size()];
  std::memcpy(fresh, wide.data(), wide.size() * sizeof(wchar_t));
  return Publish(mWide, fresh);
}

// ---------------------------------------------------------------------------
// Pieces and searches.

QEN_TString& QEN_TString::Truncate(unsigned length) {
  if (length < mText.size()) {
    mText.resize(length);
    Changed();
  }
  return *this;
}

QEN_TString QEN_TString::Substring(int start, int count) const {
  std::size_t from = ClipStart(start, mText.size());
  std::size_t n = count < 0 ? std::u16string::npos : static_cast<std::size_t>(count);
  return QEN_TString(mText.substr(from, n));
}

int QEN_TString::Find(const char* text, int from, bool last) const {
  std::u16string what = text == nullptr ? std::u16string() : FromUtf8(text, std::strlen(text));
  return FindIn(mText, what.data(), what.size(), from, last);
}

int QEN_TString::Find(char c, int from, bool last) const {
  char16_t u = FromChar(c);
  return FindIn(mText, &u, 1, from, last);
}

int QEN_TString::Find(const QEN_TUniChar& c, int from, bool last) const {
  return FindIn(mText, &c, 1, from, last);
}

int QEN_TString::Find(const QEN_TString& text, int from, bool last) const {
  return FindIn(mText, text.mText.data(), text.mText.size(), from, last);
}

int QEN_TString::CompareWith(const QEN_TString& other, bool ignoreCase) const {
  const std::size_t n = std::min(mText.size(), other.mText.size());
  for (std::size_t i = 0; i < n; ++i) {
    char16_t a = mText[i], b = other.mText[i];
    if (ignoreCase) {
      a = FoldOf(a);
      b = FoldOf(b);
    }
    if (a != b) return a < b ? -1 : 1;
  }
  if (mText.size() == other.mText.size()) return 0;
  return mText.size() < other.mText.size() ? -1 : 1;
}

bool QEN_TString::operator==(const wchar_t* other) const {
  if (other == nullptr) return mText.empty();
  std::u16string wide;
  AppendWide(wide, other, std::wcslen(other));
  return wide == mText;
}

bool QEN_TString::operator==(const char* other) const {
  if (other == nullptr) return mText.empty();
  // Plain ASCII, the usual case, compares without building a copy.
  std::size_t i = 0;
  for (; other[i] != 0 && static_cast<unsigned char>(other[i]) < 0x80; ++i) {
    if (i >= mText.size() || mText[i] != static_cast<char16_t>(other[i])) return false;
  }
  if (other[i] == 0) return i == mText.size();
  return FromUtf8(other, std::strlen(other)) == mText;
}

// ---------------------------------------------------------------------------
// Joining and changing.

QEN_TString& QEN_TString::operator+=(char c) {
  mText += FromChar(c);
  Changed();
  return *this;
}

QEN_TString& QEN_TString::operator+=(QEN_TUniChar c) {
  mText += c;
  Changed();
  return *this;
}

QEN_TString& QEN_TString::operator+=(const char* text) {
  if (text != nullptr) AppendUtf8(mText, text, std::strlen(text));
  Changed();
  return *this;
}

QEN_TString& QEN_TString::operator+=(const wchar_t* text) {
  if (text != nullptr) AppendWide(mText, text, std::wcslen(text));
  Changed();
  return *this;
}

QEN_TString& QEN_TString::operator+=(const QEN_TString& text) {
  mText += text.mText;  // also right when text is *this
  Changed();
  return *this;
}

QEN_TString QEN_TString::operator+(const char* text) const {
  QEN_TString result(*this);
  result += text;
  return result;
}

QEN_TString QEN_TString::operator+(const wchar_t* text) const {
  QEN_TString result(*this);
  result += text;
  return result;
}

QEN_TString QEN_TString::operator+(const QEN_TString& text) const {
  return QEN_TString(mText + text.mText);
}

QEN_TString operator+(const char* left, const QEN_TString& right) {
  QEN_TString result(left);
  result += right;
  return result;
}

QEN_TString QEN_TString::ToLower() const {
  std::u16string out(mText);
  for (char16_t& c : out) c = LowerOf(c);
  return QEN_TString(std::move(out));
}

QEN_TString QEN_TString::ToUpper() const {
  std::u16string out(mText);
  for (char16_t& c : out) c = UpperOf(c);
  return QEN_TString(std::move(out));
}

QEN_TString QEN_TString::ReplaceChars(const QEN_TString& what, const QEN_TString& with, unsigned,
                                      int) const {
  if (what.mText.empty()) return *this;
  std::u16string out;
  out.reserve(mText.size());
  std::size_t pos = 0;
  for (;;) {
    std::size_t hit = mText.find(what.mText, pos);
    if (hit == std::u16string::npos) break;
    out.append(mText, pos, hit - pos);
    out += with.mText;
    pos = hit + what.mText.size();
  }
  out.append(mText, pos, std::u16string::npos);
  return QEN_TString(std::move(out));
}

QEN_TString QEN_TString::Format(const char* format, ...) {
  if (format == nullptr) return QEN_TString();
  char small[512];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  int n = std::vsnprintf(small, sizeof small, format, args);
  va_end(args);
  QEN_TString result;
  if (n < 0) {
    // A conversion the C library refuses (such as a wide character the
    // locale can't encode): the rest of the text is kept.
    const std::string pieces = qen_format::PieceByPiece(format, again);
    va_end(again);
    AppendUtf8(result.mText, pieces.data(), pieces.size());
    return result;
  }
  if (static_cast<std::size_t>(n) < sizeof small) {
    AppendUtf8(result.mText, small, static_cast<std::size_t>(n));
  } else {
    std::vector<char> big(static_cast<std::size_t>(n) + 1);
    std::vsnprintf(big.data(), big.size(), format, again);
    AppendUtf8(result.mText, big.data(), static_cast<std::size_t>(n));
  }
  va_end(again);
  return result;
}

// ---------------------------------------------------------------------------
// Hashing.

std::size_t QEN_TString::QEN_Hash() const {
  // FNV-1a over the 16-bit units, both bytes of each.
  std::uint64_t h = 14695981039346656037ull;
  for (char16_t c : mText) {
    h = (h ^ (c & 0xFF)) * 1099511628211ull;
    h = (h ^ (c >> 8)) * 1099511628211ull;
  }
  return static_cast<std::size_t>(h);
}

bool QEN_TString::QEN_IsEqualKey(const QEN_IHashable& other) const {
  const QEN_TString* o = static_cast<const QEN_TString*>(other.DynamicCast(QEN_ClassName()));
  return o != nullptr && o->mText == mText;
}

// ---------------------------------------------------------------------------
// Stored forms.

// Binary: the characters as the stream lays them out (PutChars).
void QEN_TString::QEN_Pack(QEN_IPacking& out) const {
  out.PutChars(mText.data(), static_cast<unsigned>(mText.size()));
}

void QEN_TString::QEN_Unpack(QEN_IUnpacking& in) {
  // A failure leaves the string as it was: a memory stream checks the count
  // against its bytes before it touches the text, any other is read aside.
  if (QEN_TDataStream* s = qen_data::InPlace::Reading(in)) {
    s->QEN_TDataStream::GetChars(mText);
  } else {
    std::u16string text;
    in.GetChars(text);
    mText = std::move(text);
  }
  Changed();
}

std::string QEN_TString::QuoteForText() const {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(mText.size() + 2);
  out += '"';
  const std::size_t n = mText.size();
  for (std::size_t i = 0; i < n; ++i) {
    char16_t c = mText[i];
    switch (c) {
      case u'"':
        out += "\\\"";
        continue;
      case u'\\':
        out += "\\\\";
        continue;
      case u'\n':
        out += "\\n";
        continue;
      case u'\r':
        out += "\\r";
        continue;
      case u'\t':
        out += "\\t";
        continue;
      default:
        break;
    }
    if (IsHighSurrogate(c) && i + 1 < n && IsLowSurrogate(mText[i + 1])) {
      QEN_AppendUtf8(out, 0x10000 + ((c - 0xD800) << 10) + (mText[i + 1] - 0xDC00));
      ++i;
    } else if (c < 0x20 || c == 0x7F || IsHighSurrogate(c) || IsLowSurrogate(c)) {
      // UTF-8 can't carry a lone surrogate, and control characters would not
      // survive editors: both go as the number of the unit.
      out += "\\u";
      for (int shift = 12; shift >= 0; shift -= 4) out += kHex[(c >> shift) & 0xF];
    } else {
      QEN_AppendUtf8(out, c);
    }
  }
  out += '"';
  return out;
}

bool QEN_TString::WriteTo(QEN_THumanReadableStream& out) const {
  out.WriteQuoted(*this);
  return false;
}

bool QEN_TString::ReadFrom(QEN_THumanReadableStream& in) {
  in.SkipWhiteSpace();
  in.ReadQuoted(*this);
  return false;
}

void QEN_TString::PrintOn(std::ostream& out) const {
  std::string utf8 = ToUtf8(mText);
  out.write(utf8.data(), static_cast<std::streamsize>(utf8.size()));
}
