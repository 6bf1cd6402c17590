// Points in time and the distance between two of them, in microseconds.
#ifndef QEN_TIME_H
#define QEN_TIME_H

#include "qen/qen_object.h"
#include "qen/qen_string.h"
#include "qen/qen_value.h"

// A point in time: microseconds since 1970-01-01T00:00:00Z, leap seconds not
// counted. 0 stands for "no time". Times before 1970 are negative; their
// fraction of a second still counts forward from the whole second below.
//
// Packed: the microseconds as one unsigned 64-bit number (two's complement).
// Text: ISO 8601 in UTC with six decimals, "2026-11-22T19:34:51.123456Z".
// Reading also takes fewer decimals or none, and years of up to six digits
// with a leading '-' for years before year 0.
class QEN_API QEN_TTime : public QEN_TObject,
                          public virtual QEN_IPackable,
                          public virtual QEN_IHumanReadable,
                          public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(QEN_TTime)

 public:
  QEN_TTime() = default;
  QEN_TTime(const long long& micros) : mMicros(micros) {}
  QEN_TTime(const QEN_TTime& other) = default;
  QEN_TTime& operator=(const QEN_TTime& other) = default;
  ~QEN_TTime() override;

  // The system's real-time clock.
  static QEN_TTime Now();
  // Whole seconds since the epoch and a fraction of 0 to 999999 microseconds.
  static QEN_TTime FromSeconds(long long seconds, unsigned micros = 0);
  // Reads the text form; throws QEN_ESyntaxError saying what doesn't fit.
  static QEN_TTime Parse(const QEN_TString& text);

  long long AsMicros() const { return mMicros; }
  // The whole seconds, rounded down.
  long long Seconds() const;
  // The fraction of the second, 0 to 999999.
  unsigned Micros() const;
  // Replaces the fraction of the second; above 999999 throws
  // QEN_EIndexOutOfRange.
  void SetMicros(unsigned micros);
  bool Empty() const { return mMicros == 0; }

  QEN_TString AsString() const;

  bool operator==(const QEN_TTime& other) const { return mMicros == other.mMicros; }
  bool operator!=(const QEN_TTime& other) const { return mMicros != other.mMicros; }
  bool operator<(const QEN_TTime& other) const { return mMicros < other.mMicros; }
  bool operator<=(const QEN_TTime& other) const { return mMicros <= other.mMicros; }
  bool operator>(const QEN_TTime& other) const { return mMicros > other.mMicros; }
  bool operator>=(const QEN_TTime& other) const { return mMicros >= other.mMicros; }

  QEN_VALUE_FORMS

 private:
  long long mMicros = 0;
};

// The signed distance from one time to another, in microseconds. A default
// interval is empty; intervals compare by length alone, so the interval
// between two equal times equals the empty one. A distance beyond the range
// of 64 bits is held at the nearest end of that range.
//
// Packed: the length as one unsigned 64-bit number (two's complement).
// Text: the length as a signed decimal number of microseconds.
class QEN_API QEN_TInterval : public QEN_TObject,
                              public virtual QEN_IPackable,
                              public virtual QEN_IHumanReadable,
                              public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(QEN_TInterval)

 public:
  QEN_TInterval() = default;
  QEN_TInterval(const QEN_TTime& from, const QEN_TTime& to);
  explicit QEN_TInterval(long long micros) : mMicros(micros) {}
  QEN_TInterval(const QEN_TInterval& other) = default;
  QEN_TInterval& operator=(const QEN_TInterval& other) = default;
  ~QEN_TInterval() override;

  // Microseconds; negative when `to` lies before `from`.
  long long Length() const { return mMicros; }
  double Seconds() const { return static_cast<double>(mMicros) / 1e6; }
  bool Empty() const { return mMicros == 0; }

  bool operator==(const QEN_TInterval& other) const { return mMicros == other.mMicros; }
  bool operator!=(const QEN_TInterval& other) const { return mMicros != other.mMicros; }
  bool operator<(const QEN_TInterval& other) const { return mMicros < other.mMicros; }

  QEN_VALUE_FORMS

 private:
  long long mMicros = 0;
};

#endif
