// The flat dictionary of a ticket, and the flags it reports.
#include "vyrax/vyr_image_ticket.h"

namespace {

// The flag kept as text under `key` in Internal; 0 when unset or not text.
VYR_TCanFlag FlagOf(const QEN_TDict& internal, const char* key) {
  const QEN_TAny* value = internal.Lookup(key);
  if (value == nullptr) return VYR_CanInvalid;
  const QEN_TString* text = static_cast<const QEN_TString*>(value->DynamicCast("QEN_TString"));
  return text != nullptr ? VYR_String2CanFlag(*text) : VYR_CanInvalid;
}

QEN_TAny Text(const QEN_TString& text) { return QEN_TAny(text); }

}  // namespace

VYR_TCanFlag VYR_TImageTicket::CanAcquire() const { return FlagOf(mInternal, "Acquire"); }

VYR_TCanFlag VYR_TImageTicket::CanODL() const { return FlagOf(mInternal, "ODL"); }

VYR_TImageTicket::operator QEN_TDict() {
  // Every field goes in whatever the level, as the ticket holds it: the
  // level tells a reader which ones mean something.
  QEN_TDict dict;
  const QEN_TDict& internal = mInternal;
  dict[" Version"] = internal["version"];
  dict[" CanAcquire"] = Text(VYR_Enum2String(CanAcquire()));
  dict[" CanODL"] = Text(VYR_Enum2String(CanODL()));
  dict[" FillLevel"] = Text(VYR_Enum2String(mFillLevel));
  dict[" CreatorId"] = Text(mCreatorId);
  dict[" File"] = QEN_TAny(mFile);
  dict[" FileTimeStamp"] = QEN_TAny(mFileTimeStamp);
  dict[" FileSize"] = QEN_TAny(mFileSize);
  dict[" ImagePosition"] = QEN_TAny(mImagePosition);
  dict[" FileFormat"] = Text(mFileFormat);
  dict[" FileFormatVersion"] = Text(mFileFormatVersion);
  dict[" ImageProcessor"] = Text(mImageProcessor);
  dict[" ImageType"] = Text(VYR_Enum2String(mImageType));
  dict[" ImageSubtype"] = Text(VYR_Enum2String(mImageSubtype));
  dict[" MeasurementUnits"] = Text(VYR_Enum2String(mMeasurementUnits));
  dict[" VResolution"] = QEN_TAny(mVResolution);
  dict[" HResolution"] = QEN_TAny(mHResolution);
  dict[" VRealSize"] = QEN_TAny(mVRealSize);
  dict[" HRealSize"] = QEN_TAny(mHRealSize);
  dict[" NrRows"] = QEN_TAny(mNrRows);
  dict[" NrColumns"] = QEN_TAny(mNrColumns);
  dict[" MarginTop"] = QEN_TAny(mMarginTop);
  dict[" MarginLeft"] = QEN_TAny(mMarginLeft);
  dict[" MarginRight"] = QEN_TAny(mMarginRight);
  dict[" MarginBottom"] = QEN_TAny(mMarginBottom);
  dict[" ImageRotation"] = Text(VYR_Enum2String(mRotation));
  dict[" ChannelEncoding"] = Text(VYR_Enum2String(mChannelEncoding));
  // The key's spelling is the published one.
  dict[" AlphaPLane"] = Text(VYR_Enum2String(mAlphaPlane));
  dict[" NrInks"] = QEN_TAny(mNrInks);
  dict[" NrPages"] = QEN_TAny(static_cast<unsigned>(mNrPages));
  dict[" RelatedIndex"] = QEN_TAny(mRelatedIndex);
  if (mExtendedInfo) dict.AddAll(*mExtendedInfo);
  if (mExternalRefs) dict[" ExternalRefs"] = QEN_TAny(*mExternalRefs);
  return dict;
}
