// Text. A QEN_TString holds 16-bit characters; positions and lengths count
// them. 8-bit text going in and out is UTF-8, wide text is wchar_t (UTF-32
// on this platform). c_str() and wc_str() are built on first use and cached,
// so a const string can be read by several threads at once.
#ifndef QEN_STRING_H
#define QEN_STRING_H

#include <atomic>
#include <cstddef>
#include <string>

#include "qen/qen_object.h"

// One 16-bit character.
typedef char16_t QEN_TUniChar;

// A key of a dictionary.
class QEN_API QEN_IHashable : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(QEN_IHashable)
 public:
  virtual std::size_t QEN_Hash() const = 0;
  virtual bool QEN_IsEqualKey(const QEN_IHashable& other) const = 0;

 protected:
  QEN_IHashable() = default;
  QEN_IHashable(const QEN_IHashable&) = default;
  QEN_IHashable& operator=(const QEN_IHashable&) = default;
};

class QEN_API QEN_TString : public QEN_TObject,
                            public virtual QEN_IPackable,
                            public virtual QEN_IHumanReadable,
                            public virtual QEN_IPrintable,
                            public virtual QEN_IHashable {
  QEN_VALUE_FRAME(QEN_TString)

 public:
  static const QEN_TString sEmpty;
  // The length argument that means "up to the terminating zero".
  static constexpr unsigned npos = static_cast<unsigned>(-1);

  QEN_TString();
  QEN_TString(const char* text, unsigned length = npos);
  QEN_TString(const wchar_t* text, unsigned length = npos);
  QEN_TString(const QEN_TUniChar* text, unsigned length);
  explicit QEN_TString(const std::string& utf8);
  explicit QEN_TString(std::u16string text);
  QEN_TString(const QEN_TString& other);
  QEN_TString(QEN_TString&& other) noexcept;
  QEN_TString& operator=(const QEN_TString& other);
  QEN_TString& operator=(QEN_TString&& other) noexcept;
  ~QEN_TString() override;

  // UTF-8; valid while the string lives and is unchanged.
  const char* c_str() const;
  // wchar_t text; valid as above.
  const wchar_t* wc_str() const;
  // The 16-bit characters themselves.
  const std::u16string& Chars() const { return mText; }
  // The whole text as UTF-8, zero characters included; a lone surrogate
  // becomes U+FFFD.
  std::string Utf8() const;

  unsigned Length() const { return static_cast<unsigned>(mText.size()); }
  bool Empty() const { return mText.empty(); }
  QEN_TUniChar operator[](unsigned index) const { return mText[index]; }

  QEN_TString& Truncate(unsigned length);
  // A negative start counts from the end; count -1 means up to the end.
  // Positions outside the string are clipped to it.
  QEN_TString Substring(int start, int count = -1) const;

  // Position of the first occurrence at or behind `from`; with from -1 and
  // `last` true, of the last occurrence. Negative when there is none.
  // A negative `from` of a forward search counts from the end; a backward
  // search from a position >= 0 finds the last occurrence starting there or
  // before. A single char stands for the Latin-1 character of that value.
  int Find(const char* text, int from = 0, bool last = false) const;
  int Find(char c, int from = 0, bool last = false) const;
  int Find(const QEN_TUniChar& c, int from = 0, bool last = false) const;
  int Find(const QEN_TString& text, int from = 0, bool last = false) const;

  // Zero when equal, negative when this one sorts first. ignoreCase folds the
  // letters of Latin (ASCII, Latin-1, Latin Extended-A), Greek and Cyrillic.
  int CompareWith(const QEN_TString& other, bool ignoreCase = false) const;

  bool operator==(const wchar_t* other) const;
  bool operator==(const char* other) const;
  bool operator==(const QEN_TString& other) const { return mText == other.mText; }
  bool operator!=(const QEN_TString& other) const { return mText != other.mText; }
  bool operator!=(const char* other) const { return !(*this == other); }
  bool operator!=(const wchar_t* other) const { return !(*this == other); }
  bool operator<(const QEN_TString& other) const { return mText < other.mText; }

  QEN_TString& operator+=(char c);
  QEN_TString& operator+=(QEN_TUniChar c);
  QEN_TString& operator+=(const char* text);
  QEN_TString& operator+=(const wchar_t* text);
  QEN_TString& operator+=(const QEN_TString& text);
  QEN_TString operator+(const char* text) const;
  QEN_TString operator+(const wchar_t* text) const;
  QEN_TString operator+(const QEN_TString& text) const;

  QEN_TString ToLower() const;
  QEN_TString ToUpper() const;
  // Each occurrence of `what` replaced by `with`. The last two arguments are
  // kept for callers of the original signature and are not used.
  QEN_TString ReplaceChars(const QEN_TString& what, const QEN_TString& with, unsigned = 0,
                           int = 0) const;

  static QEN_TString Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

  // QEN_IHashable
  std::size_t QEN_Hash() const override;
  bool QEN_IsEqualKey(const QEN_IHashable& other) const override;
  // QEN_IPackable
  void QEN_Pack(QEN_IPacking& out) const override;
  void QEN_Unpack(QEN_IUnpacking& in) override;
  // The text form: a double-quoted token in UTF-8 with the escapes \" \\ \n
  // \r \t, and \uXXXX (four hex digits, one 16-bit character) for every other
  // control character and for a lone surrogate. It reads back exactly.
  std::string QuoteForText() const;
  // QEN_IHumanReadable: the quoted token
  bool WriteTo(QEN_THumanReadableStream& out) const override;
  bool ReadFrom(QEN_THumanReadableStream& in) override;
  // QEN_IPrintable: the text itself
  void PrintOn(std::ostream& out) const override;

 private:
  friend class qen_data::InPlace;  // reads and writes the characters in place
  void Changed();

  std::u16string mText;
  mutable std::atomic<char*> mNarrow{nullptr};
  mutable std::atomic<wchar_t*> mWide{nullptr};
};

QEN_API QEN_TString operator+(const char* left, const QEN_TString& right);

namespace std {
template <>
struct hash<QEN_TString> {
  size_t operator()(const QEN_TString& s) const { return s.QEN_Hash(); }
};
}  // namespace std

#endif
