// The filtered walk over a proxy's tickets.
#define VYR_SOURCE_NAME "Private/Source/vyr_image_ticket"

#include <qen/qen_exception.h>

#include <new>

#include "vyrax/vyr_image_proxy.h"

VYR_TIPIterator::VYR_TIPIterator(VYR_TImageType imageType, int relatedIndex,
                                 const QEN_IIteratable* walked)
    : mImageType(imageType), mRelatedIndex(relatedIndex), mWalked(walked) {}

QEN_IIterationInfo* VYR_TIPIterator::CreateIterationInfo() const {
  QEN_IIterationInfo* inner = mWalked != nullptr ? mWalked->CreateIterationInfo() : nullptr;
  return new VYR_TIPIterationInfo(inner, mImageType, mRelatedIndex);
}

VYR_TIPIterationInfo::VYR_TIPIterationInfo() = default;

VYR_TIPIterationInfo::VYR_TIPIterationInfo(QEN_IIterationInfo* inner, VYR_TImageType imageType,
                                           int relatedIndex)
    : mImageType(imageType), mRelatedIndex(relatedIndex), mInner(inner) {
  First();
}

VYR_TIPIterationInfo::VYR_TIPIterationInfo(const VYR_TIPIterationInfo& other)
    : QEN_IIterationInfo(other),
      QEN_TObject(other),
      mImageType(other.mImageType),
      mRelatedIndex(other.mRelatedIndex),
      mInner(other.mInner != nullptr ? other.mInner->Clone() : nullptr) {}

VYR_TIPIterationInfo::~VYR_TIPIterationInfo() { delete mInner; }

QEN_IIterationInfo* VYR_TIPIterationInfo::Clone() const { return new VYR_TIPIterationInfo(*this); }

bool VYR_TIPIterationInfo::Passes() const {
  // An element that holds no ticket never passes.
  const VYR_TImageTicket* ticket = mInner->Value().DynamicCast<VYR_TImageTicket>();
  if (ticket == nullptr) return false;
  return ticket->ImageType() == mImageType ||
         (mRelatedIndex >= 0 && ticket->RelatedIndex() == mRelatedIndex);
}

void VYR_TIPIterationInfo::FilterForward() {
  while (!mInner->IsDone() && !Passes()) mInner->Next();
}

void VYR_TIPIterationInfo::FilterBackward() {
  while (!mInner->IsBeforeFirst() && !Passes()) mInner->Previous();
}

void VYR_TIPIterationInfo::Step(void (QEN_IIterationInfo::*move)(), bool forward) {
  if (mInner == nullptr) return;
  (mInner->*move)();
  if (forward) {
    FilterForward();
  } else {
    FilterBackward();
  }
}

void VYR_TIPIterationInfo::First() { Step(&QEN_IIterationInfo::First, true); }
void VYR_TIPIterationInfo::Next() { Step(&QEN_IIterationInfo::Next, true); }
void VYR_TIPIterationInfo::Previous() { Step(&QEN_IIterationInfo::Previous, false); }
void VYR_TIPIterationInfo::Last() { Step(&QEN_IIterationInfo::Last, false); }

bool VYR_TIPIterationInfo::IsBeforeFirst() const {
  return mInner != nullptr ? mInner->IsBeforeFirst() : false;
}

bool VYR_TIPIterationInfo::IsDone() const { return mInner == nullptr || mInner->IsDone(); }

QEN_IPackable& VYR_TIPIterationInfo::Key() const {
  if (mInner == nullptr) QEN_THROW(QEN_EIndexOutOfRange, "VYR_TIPIterationInfo: no cursor");
  return mInner->Key();
}

QEN_TAny& VYR_TIPIterationInfo::Value() const {
  if (mInner == nullptr) QEN_THROW(QEN_EIndexOutOfRange, "VYR_TIPIterationInfo: no cursor");
  return mInner->Value();
}
