// The state machine that the containers' cursors share. Private to the base
// library.
#ifndef QEN_CURSOR_H
#define QEN_CURSOR_H

#include "qen/qen_containers.h"

namespace qen_detail {

// A cursor stands before the first element, on one, or behind the last
// (done); after DeleteItem it stands in the gap the element left: the next
// Next only clears the gap, as the position is already the element behind.
// A subclass keeps the position and moves it; each move tells whether it
// found an element, and need not move when it didn't. A subclass's
// constructor calls First(): from this constructor the moves would not
// reach the subclass.
class Cursor : public QEN_TObject, public virtual QEN_IIterationInfo {
 public:
  void First() override;
  void Next() override;
  void Previous() override;
  void Last() override;
  bool IsBeforeFirst() const override { return mState == kBeforeFirst; }
  bool IsDone() const override { return mState == kDone; }
  QEN_IPackable& Key() const override;
  QEN_TAny& Value() const override;
  void DeleteItem() override;

 protected:
  Cursor() = default;
  Cursor(const Cursor&) = default;

  // Each subclass's frame gives these.
  void* QEN_DynamicInfo(const char* name) const override = 0;
  void* QEN_MostDerivedObject() const override = 0;

  virtual bool ToFirst() = 0;
  virtual bool ToLast() = 0;
  virtual bool ToNext() = 0;
  virtual bool ToPrevious() = 0;
  // Removes the element the cursor stands on and goes to the one behind it;
  // false when there is none behind.
  virtual bool EraseHere() = 0;
  virtual QEN_IPackable& KeyHere() const = 0;
  virtual QEN_TAny& ValueHere() const = 0;

 private:
  enum State { kBeforeFirst, kOn, kDone };

  void CheckOn(const char* operation) const;

  State mState = kDone;
  bool mGap = false;
};

}  // namespace qen_detail

#endif
