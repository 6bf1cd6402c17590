#include "qen/qen_time.h"

#include <time.h>

#include <cstdio>
#include <limits>
#include <ostream>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "vyr_system.h"

QEN_DEFINE_VALUE(QEN_TTime, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)
QEN_DEFINE_VALUE(QEN_TInterval, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

namespace {

constexpr long long kMicrosPerSecond = 1000000;
constexpr long long kSecondsPerDay = 86400;

long long FloorDiv(long long a, long long b) {
  long long q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

// Days since 1970-01-01 of a date in the proleptic Gregorian calendar, by
// eras of 400 years, so any year in range works without a loop.
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const long long yoe = y - era * 400;
  const long long doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void CivilFromDays(long long z, long long& y, unsigned& m, unsigned& d) {
  z += 719468;
  const long long era = (z >= 0 ? z : z - 146096) / 146097;
  const long long doe = z - era * 146097;
  const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const long long mp = (5 * doy + 2) / 153;
  d = static_cast<unsigned>(doy - (153 * mp + 2) / 5 + 1);
  m = static_cast<unsigned>(mp < 10 ? mp + 3 : mp - 9);
  y = yoe + era * 400 + (m <= 2);
}

unsigned DaysInMonth(long long y, unsigned m) {
  static const unsigned kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return m == 2 && leap ? 29 : kDays[m - 1];
}

// A cursor over the text form; each step says what it expected on failure.
class TimeReader {
 public:
  TimeReader(const char* text) : mText(text), mPos(0) {}

  // Reads between minDigits and maxDigits decimal digits.
  bool Digits(unsigned minDigits, unsigned maxDigits, long long& value, unsigned* count = nullptr) {
    unsigned n = 0;
    value = 0;
    while (n < maxDigits && mText[mPos] >= '0' && mText[mPos] <= '9') {
      value = value * 10 + (mText[mPos++] - '0');
      ++n;
    }
    if (count != nullptr) *count = n;
    return n >= minDigits;
  }
  bool Char(char c) {
    if (mText[mPos] != c) return false;
    ++mPos;
    return true;
  }
  bool AtEnd() const { return mText[mPos] == '\0'; }

 private:
  const char* mText;
  unsigned mPos;
};

// Gives null on success, else what was wrong.
const char* ParseTime(const char* text, long long& micros) {
  TimeReader r(text);
  bool negative = r.Char('-');
  long long year, month, day, hour, minute, second, fraction = 0;
  if (!r.Digits(4, 6, year)) return "a year of 4 to 6 digits";
  if (!r.Char('-') || !r.Digits(2, 2, month) || month < 1 || month > 12)
    return "a month 01 to 12 after the year";
  if (negative) year = -year;
  if (!r.Char('-') || !r.Digits(2, 2, day) || day < 1 ||
      day > DaysInMonth(year, static_cast<unsigned>(month)))
    return "a day of the month after the month";
  if (!r.Char('T') || !r.Digits(2, 2, hour) || hour > 23) return "'T' and an hour 00 to 23";
  if (!r.Char(':') || !r.Digits(2, 2, minute) || minute > 59) return "':' and a minute 00 to 59";
  if (!r.Char(':') || !r.Digits(2, 2, second) || second > 59) return "':' and a second 00 to 59";
  if (r.Char('.')) {
    unsigned count = 0;
    if (!r.Digits(1, 6, fraction, &count)) return "1 to 6 digits after '.'";
    for (; count < 6; ++count) fraction *= 10;
  }
  if (!r.Char('Z') || !r.AtEnd()) return "'Z' at the end";

  __int128 value = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
  value = value * kSecondsPerDay + hour * 3600 + minute * 60 + second;
  value = value * kMicrosPerSecond + fraction;
  if (value < std::numeric_limits<long long>::min() ||
      value > std::numeric_limits<long long>::max())
    return "a time within the range of 64-bit microseconds";
  micros = static_cast<long long>(value);
  return nullptr;
}

const QEN_TString& TimeCharacters() {
  static const QEN_TString characters("0123456789-T:.Z");
  return characters;
}

// Both binary forms: the microseconds as an unsigned 64 (two's complement).
void PackMicros(QEN_IPacking& out, long long micros) {
  out << static_cast<unsigned long long>(micros);
}

long long UnpackMicros(QEN_IUnpacking& in) {
  unsigned long long value = 0;
  in >> &value;
  return static_cast<long long>(value);
}

}  // namespace

QEN_TTime::~QEN_TTime() = default;

QEN_TTime QEN_TTime::Now() {
  std::timespec now{};
  vyr::sys::Now(now);
  return QEN_TTime(static_cast<long long>(now.tv_sec) * kMicrosPerSecond + now.tv_nsec / 1000);
}

QEN_TTime QEN_TTime::FromSeconds(long long seconds, unsigned micros) {
  if (micros >= kMicrosPerSecond)
    QEN_THROW(QEN_EIndexOutOfRange,
              QEN_TString::Format("Microseconds %u out of range 0 to 999999", micros));
  long long value;
  if (__builtin_mul_overflow(seconds, kMicrosPerSecond, &value) ||
      __builtin_add_overflow(value, static_cast<long long>(micros), &value))
    QEN_THROW(QEN_EIndexOutOfRange,
              QEN_TString::Format("Seconds %lld out of the range of a time", seconds));
  return QEN_TTime(value);
}

QEN_TTime QEN_TTime::Parse(const QEN_TString& text) {
  long long micros = 0;
  if (const char* expected = ParseTime(text.c_str(), micros))
    QEN_THROW(QEN_ESyntaxError,
              QEN_TString::Format("Bad time \"%s\": expected %s", text.c_str(), expected));
  return QEN_TTime(micros);
}

long long QEN_TTime::Seconds() const { return FloorDiv(mMicros, kMicrosPerSecond); }

// The microseconds within the second, from a remainder rather than from
// the whole second times a million, which may not fit near the lowest time.
unsigned QEN_TTime::Micros() const {
  long long within = mMicros % kMicrosPerSecond;
  if (within < 0) within += kMicrosPerSecond;
  return static_cast<unsigned>(within);
}

void QEN_TTime::SetMicros(unsigned micros) {
  if (micros >= kMicrosPerSecond)
    QEN_THROW(QEN_EIndexOutOfRange,
              QEN_TString::Format("Microseconds %u out of range 0 to 999999", micros));
  // Moved within its second. Near the ends of the range the whole second,
  // times a million, may not fit, so only the difference is added.
  const long long delta = static_cast<long long>(micros) - static_cast<long long>(Micros());
  long long moved;
  if (__builtin_add_overflow(mMicros, delta, &moved))
    QEN_THROW(QEN_EIndexOutOfRange,
              QEN_TString::Format("Microseconds %u lie outside the range of times", micros));
  mMicros = moved;
}

QEN_TString QEN_TTime::AsString() const {
  const long long seconds = Seconds();
  const long long days = FloorDiv(seconds, kSecondsPerDay);
  const long long secondOfDay = seconds - days * kSecondsPerDay;
  long long year;
  unsigned month, day;
  CivilFromDays(days, year, month, day);
  return QEN_TString::Format("%s%04lld-%02u-%02uT%02lld:%02lld:%02lld.%06uZ", year < 0 ? "-" : "",
                             year < 0 ? -year : year, month, day, secondOfDay / 3600,
                             secondOfDay / 60 % 60, secondOfDay % 60, Micros());
}

void QEN_TTime::QEN_Pack(QEN_IPacking& out) const { PackMicros(out, mMicros); }

void QEN_TTime::QEN_Unpack(QEN_IUnpacking& in) { mMicros = UnpackMicros(in); }

bool QEN_TTime::WriteTo(QEN_THumanReadableStream& out) const {
  out << AsString().c_str();
  return false;
}

bool QEN_TTime::ReadFrom(QEN_THumanReadableStream& in) {
  in.SkipWhiteSpace();
  QEN_TString token;
  in.Skip(token, TimeCharacters());
  long long micros = 0;
  if (const char* expected = ParseTime(token.c_str(), micros)) {
    QEN_TString what = QEN_TString::Format("bad time \"%s\": expected %s", token.c_str(), expected);
    in.SyntaxError(what.c_str());
  }
  mMicros = micros;
  return false;
}

void QEN_TTime::PrintOn(std::ostream& out) const { out << AsString().c_str(); }

QEN_TInterval::QEN_TInterval(const QEN_TTime& from, const QEN_TTime& to) {
  if (__builtin_sub_overflow(to.AsMicros(), from.AsMicros(), &mMicros))
    mMicros =
        to > from ? std::numeric_limits<long long>::max() : std::numeric_limits<long long>::min();
}

QEN_TInterval::~QEN_TInterval() = default;

void QEN_TInterval::QEN_Pack(QEN_IPacking& out) const { PackMicros(out, mMicros); }

void QEN_TInterval::QEN_Unpack(QEN_IUnpacking& in) { mMicros = UnpackMicros(in); }

bool QEN_TInterval::WriteTo(QEN_THumanReadableStream& out) const {
  out << mMicros;
  return false;
}

bool QEN_TInterval::ReadFrom(QEN_THumanReadableStream& in) {
  in >> &mMicros;
  return false;
}

void QEN_TInterval::PrintOn(std::ostream& out) const { out << mMicros << " us"; }
