// QEN_TArray: a sized array of values.
#include <cstdlib>
#include <new>
#include <ostream>
#include <string>
#include <utility>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_string_map.h"

QEN_DEFINE_VALUE(QEN_TArray, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable,
                 QEN_IIteratable)

QEN_TArray::QEN_TArray(unsigned size) : mValues(size) {}

QEN_TArray::QEN_TArray(const QEN_TArray& other)
    : QEN_IInterface(other),
      QEN_IPackable(other),
      QEN_IHumanReadable(other),
      QEN_IPrintable(other),
      QEN_IIteratable(other),
      QEN_TObject(other),
      mValues(other.mValues) {}

QEN_TArray::QEN_TArray(QEN_TArray&& other) noexcept : mValues(std::move(other.mValues)) {}

QEN_TArray& QEN_TArray::operator=(const QEN_TArray& other) {
  if (this != &other) {
    std::vector<QEN_TAny> copy(other.mValues);
    mValues.swap(copy);
  }
  return *this;
}

QEN_TArray& QEN_TArray::operator=(QEN_TArray&& other) noexcept {
  if (this != &other) {
    // Taken out first: `other` may be held by one of this array's elements.
    std::vector<QEN_TAny> taken(std::move(other.mValues));
    mValues.swap(taken);
  }
  return *this;
}

QEN_TArray::~QEN_TArray() = default;

namespace {
[[noreturn]] void BadIndex(unsigned index, unsigned size) {
  QEN_THROW(QEN_EIndexOutOfRange,
            QEN_TString::Format("QEN_TArray: index %u out of range (size %u)", index, size));
  std::abort();  // QEN_Throw never comes back
}
}  // namespace

QEN_TAny& QEN_TArray::operator[](unsigned index) {
  if (index >= Size()) BadIndex(index, Size());
  return mValues[index];
}

const QEN_TAny& QEN_TArray::operator[](unsigned index) const {
  if (index >= Size()) BadIndex(index, Size());
  return mValues[index];
}

QEN_IPackable* QEN_TArray::QEN_Move(void*) {
  return new (std::nothrow) QEN_TArray(std::move(*this));
}

void QEN_TArray::QEN_Pack(QEN_IPacking& out) const {
  out << Size();
  for (const QEN_TAny& value : mValues) out << value;
}

void QEN_TArray::QEN_Unpack(QEN_IUnpacking& in) {
  unsigned count = 0;
  in >> &count;
  // The count is only a claim: nothing is reserved from it, the vector
  // grows as elements are read.
  std::vector<QEN_TAny> read;
  for (unsigned i = 0; i < count; ++i) {
    read.emplace_back();
    in >> read.back();
  }
  mValues.swap(read);
}

// ---------------------------------------------------------------------------
// Text form: value, value, ... as a list's.

bool QEN_TArray::QEN_HRMultiLine() const {
  if (mValues.size() > 16) return true;
  for (const QEN_TAny& value : mValues)
    if (qen_detail::HoldsObject(value) || value.QEN_HRMultiLine()) return true;
  return false;
}

bool QEN_TArray::WriteTo(QEN_THumanReadableStream& out) const {
  bool multiLine = QEN_HRMultiLine();
  for (std::size_t i = 0; i < mValues.size(); ++i) {
    mValues[i].WriteTo(out);
    if (multiLine)
      out << "," << cr;
    else if (i + 1 < mValues.size())
      out << ", ";
  }
  return false;
}

bool QEN_TArray::ReadFrom(QEN_THumanReadableStream& in) {
  std::vector<QEN_TAny> read;
  while (!qen_detail::AtFormEnd(in)) {
    read.emplace_back();
    read.back().ReadFrom(in);
    qen_detail::ReadSeparator(in, ',', "an array element");
  }
  mValues.swap(read);
  return false;
}

void QEN_TArray::PrintOn(std::ostream& out) const {
  if (mValues.empty()) {
    out << "[]";
    return;
  }
  out << "[" << std::endl;
  {
    qen_detail::PrintIndent indent;
    for (const QEN_TAny& value : mValues) {
      out << QEN_IPrintable::Prefix();
      value.PrintOn(out);
      out << std::endl;
    }
  }
  out << QEN_IPrintable::Prefix() << "]";
}

// ---------------------------------------------------------------------------
// The cursor over an array: a position from 0 to Size(); Key() is the index.
class QEN_TArrayIterationInfo : public QEN_TObject, public virtual QEN_IIterationInfo {
  QEN_OBJECT_FRAME(QEN_TArrayIterationInfo)

 public:
  QEN_TArrayIterationInfo() = default;
  explicit QEN_TArrayIterationInfo(QEN_TArray* array) : mArray(array) { First(); }

  QEN_IIterationInfo* Clone() const override {
    QEN_TArrayIterationInfo* copy = new QEN_TArrayIterationInfo;
    copy->mArray = mArray;
    copy->mAt = mAt;
    copy->mBeforeFirst = mBeforeFirst;
    copy->mGap = mGap;
    return copy;
  }

  void First() override {
    mGap = false;
    mBeforeFirst = false;
    mAt = 0;
  }

  void Next() override {
    if (mGap) {
      mGap = false;
    } else if (mBeforeFirst) {
      First();
    } else if (mAt < Size()) {
      ++mAt;
    }
  }

  void Previous() override {
    mGap = false;
    if (mBeforeFirst) return;
    if (mAt == 0)
      mBeforeFirst = true;
    else
      --mAt;
  }

  void Last() override {
    mGap = false;
    mBeforeFirst = Size() == 0;
    mAt = Size() > 0 ? Size() - 1 : 0;
  }

  bool IsBeforeFirst() const override { return mBeforeFirst; }
  bool IsDone() const override { return !mBeforeFirst && mAt >= Size(); }

  QEN_IPackable& Key() const override {
    CheckOn("Key");
    mKey = mAt;
    return mKey;
  }

  QEN_TAny& Value() const override {
    CheckOn("Value");
    return mArray->mValues[mAt];
  }

  // The array shortens; the element behind takes the removed one's index.
  void DeleteItem() override {
    CheckOn("DeleteItem");
    mArray->mValues.erase(mArray->mValues.begin() + mAt);
    mGap = true;
  }

 private:
  unsigned Size() const { return mArray != nullptr ? mArray->Size() : 0; }

  void CheckOn(const char* operation) const {
    if (mGap)
      QEN_THROW(QEN_EIndexOutOfRange,
                QEN_TString::Format("%s: the element was deleted; advance the iteration first",
                                    operation));
    if (mBeforeFirst || mAt >= Size())
      QEN_THROW(QEN_EIndexOutOfRange,
                QEN_TString::Format("%s: the iteration is not on an element", operation));
  }

  QEN_TArray* mArray = nullptr;
  unsigned mAt = 0;
  bool mBeforeFirst = false;
  bool mGap = false;
  mutable QEN_TAny mKey;
};

QEN_DEFINE_OBJECT(QEN_TArrayIterationInfo, QEN_TObject, QEN_IIterationInfo)

QEN_IIterationInfo* QEN_TArray::CreateIterationInfo() const {
  // The cursor may delete elements; walking doesn't otherwise change the array.
  return new QEN_TArrayIterationInfo(const_cast<QEN_TArray*>(this));
}
