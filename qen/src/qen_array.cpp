// QEN_TArray: a sized array of values.
#include <cstdlib>
#include <new>
#include <ostream>
#include <string>
#include <utility>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen_cursor.h"
#include "qen_string_map.h"

QEN_DEFINE_VALUE(QEN_TArray, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable,
                 QEN_IIteratable)

QEN_TArray::QEN_TArray(unsigned size)
    : mValues(size > 0 ? new std::vector<QEN_TAny>(size) : nullptr) {}
QEN_DEFINE_VALUES_CONTAINER(QEN_TArray)

namespace {
[[noreturn]] void BadIndex(unsigned index, unsigned size) {
  QEN_THROW(QEN_EIndexOutOfRange,
            QEN_TString::Format("QEN_TArray: index %u out of range (size %u)", index, size));
  std::abort();  // QEN_Throw never comes back
}
}  // namespace

QEN_TAny& QEN_TArray::operator[](unsigned index) {
  if (index >= Size()) BadIndex(index, Size());
  return (*mValues)[index];
}

const QEN_TAny& QEN_TArray::operator[](unsigned index) const {
  if (index >= Size()) BadIndex(index, Size());
  return (*mValues)[index];
}

bool QEN_TArray::operator==(const QEN_TArray& other) const {
  return Size() == other.Size() && (Size() == 0 || *mValues == *other.mValues);
}

void QEN_TArray::QEN_Pack(QEN_IPacking& out) const {
  out << Size();
  for (unsigned i = 0; i < Size(); ++i) out << (*this)[i];
}

void QEN_TArray::QEN_Unpack(QEN_IUnpacking& in) {
  unsigned count = 0;
  in >> &count;
  // The count is only a claim: nothing is reserved from it, the vector
  // grows as elements are read.
  qen_detail::Content<std::vector<QEN_TAny>> read(new std::vector<QEN_TAny>);
  for (unsigned i = 0; i < count; ++i) {
    read->emplace_back();
    in >> read->back();
  }
  mValues = std::move(read);
}

// ---------------------------------------------------------------------------
// Text form: value, value, ... as a list's.

bool QEN_TArray::ReadFrom(QEN_THumanReadableStream& in) {
  qen_detail::Content<std::vector<QEN_TAny>> read(new std::vector<QEN_TAny>);
  qen_detail::ReadValues(in, "an array element",
                         [&](QEN_TAny&& value) { read->push_back(std::move(value)); });
  mValues = std::move(read);
  return false;
}

// ---------------------------------------------------------------------------
// The cursor over an array; Key() is the index.
class QEN_TArrayIterationInfo : public qen_detail::Cursor {
  QEN_OBJECT_FRAME(QEN_TArrayIterationInfo)

 public:
  explicit QEN_TArrayIterationInfo(QEN_TArray* array = nullptr) : mArray(array) { First(); }
  QEN_IIterationInfo* Clone() const override { return new QEN_TArrayIterationInfo(*this); }

 private:
  unsigned Size() const { return mArray != nullptr ? mArray->Size() : 0; }
  bool ToFirst() override {
    mAt = 0;
    return Size() > 0;
  }
  bool ToLast() override {
    if (Size() == 0) return false;
    mAt = Size() - 1;
    return true;
  }
  bool ToNext() override {
    if (mAt + 1 >= Size()) return false;
    ++mAt;
    return true;
  }
  bool ToPrevious() override {
    if (mAt == 0) return false;
    --mAt;
    return true;
  }
  // The array shortens; the element behind takes the removed one's index.
  bool EraseHere() override {
    mArray->mValues->erase(mArray->mValues->begin() + mAt);
    return mAt < Size();
  }
  QEN_IPackable& KeyHere() const override {
    mKey = mAt;
    return mKey;
  }
  // Through the range check: another cursor may have shortened the array.
  QEN_TAny& ValueHere() const override { return (*mArray)[mAt]; }

  QEN_TArray* mArray = nullptr;
  unsigned mAt = 0;
  mutable QEN_TAny mKey;
};

QEN_DEFINE_OBJECT(QEN_TArrayIterationInfo, QEN_TObject, QEN_IIterationInfo)

QEN_IIterationInfo* QEN_TArray::CreateIterationInfo() const {
  // The cursor may delete elements; walking doesn't otherwise change the array.
  return new QEN_TArrayIterationInfo(const_cast<QEN_TArray*>(this));
}
