// The binary form of a ticket. It is stored and exchanged: tickets written by
// older builds read back, and later builds read what this one writes. The
// items follow each other with no header, length or padding of their own:
//
//   always          level (QEN_TAny, uint32), Internal (QEN_TDict),
//                   CreatorId (QEN_TString)
//   bit 0x80        bool; if true ExternalRefs (QEN_TList)
//   bits 0x340      bool; if true ExtendedInfo (QEN_TDict)
//   bit 0x8         NrPages, RelatedIndex (int32); ImageType, ImageSubtype,
//                   MeasurementUnits (QEN_TAny); VResolution, HResolution,
//                   VRealSize, HRealSize (double); NrRows, NrColumns
//                   (uint32); MarginTop, MarginLeft, MarginBottom,
//                   MarginRight (double); ChannelEncoding, AlphaPlane
//                   (QEN_TAny); NrInks (uint16); Rotation (QEN_TAny)
//   bit 0x4         ImageProcessor (QEN_TString)
//   bit 0x2         FileFormat, FileFormatVersion (QEN_TString)
//   bit 0x1         ImagePosition (uint8), File (QEN_TURL),
//                   FileTimeStamp (QEN_TTime), FileSize (uint64)
//
// Every QEN_TAny here holds an unsigned 32-bit number.
#include <qen/qen_exception.h>

#include <memory>
#include <string>
#include <typeinfo>

#include "tickets/ticket_levels.h"
#include "vyrax/vyr_image_ticket.h"

using namespace vyr_ticket;

namespace {

// `any` is the caller's, so that one variant serves all the numbers of a
// ticket.
void PutNumber(QEN_IPacking& out, QEN_TAny& any, unsigned value) {
  any = value;
  out << any;
}

// A number of another kind in its place (a double, a 64-bit number, an
// object) is a stream that doesn't fit, not a failed conversion.
// `any` is the caller's, so that one variant serves all the numbers of a
// ticket.
unsigned GetNumber(QEN_IUnpacking& in, QEN_TAny& any) {
  const QEN_TDataStream* data = typeid(in) == typeid(QEN_TDataStream)
                                    ? static_cast<const QEN_TDataStream*>(&in)
                                    : dynamic_cast<const QEN_TDataStream*>(&in);
  const unsigned long long start = data != nullptr ? data->Offset() : 0;
  in >> any;
  try {
    return static_cast<unsigned>(any);
  } catch (const QEN_EAnyConversion& e) {
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("VYR_TImageTicket: expected an unsigned 32-bit number at offset "
                                  "%llu: %s",
                                  start, e.QEN_Message().c_str()));
    throw;  // QEN_THROW never comes back
  }
}

template <class Enum>
void GetEnum(QEN_IUnpacking& in, QEN_TAny& any, Enum& field) {
  field = static_cast<Enum>(GetNumber(in, any));
}

// The object that the stream holds behind a true flag, as a T owned by the
// caller. Anything else in its place is a stream that doesn't fit.
template <class T>
std::unique_ptr<T> ExtractOwned(QEN_IUnpacking& in, const char* what) {
  std::unique_ptr<QEN_IInterface> object(in.Extract(true));
  if (!object)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("VYR_TImageTicket: no object for the %s", what));
  // The usual object is a T itself, found without asking by name.
  T* typed = typeid(*object) == typeid(T)
                 ? static_cast<T*>(dynamic_cast<void*>(object.get()))
                 : static_cast<T*>(object->DynamicCast(T::QEN_ClassName()));
  // Ownership passes whole: the typed pointer must be the complete object,
  // as it is for T itself (not for a class that merely contains a T).
  if (typed == nullptr || typed->QEN_MostDerivedObject() != object->QEN_MostDerivedObject())
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("VYR_TImageTicket: the %s must be a %s, found a %s", what,
                                  T::QEN_ClassName(), object->ClassName()));
  object.release();
  return std::unique_ptr<T>(typed);
}

}  // namespace

void VYR_TImageTicket::QEN_Pack(QEN_IPacking& out) const {
  const StoredLevel level = LevelToStored(mFillLevel, mInternal);
  QEN_TAny number;
  PutNumber(out, number, level.value);
  out << level.Internal(mInternal) << mCreatorId;
  if (mFillLevel & kExternalRefsBit) {
    out << static_cast<bool>(mExternalRefs);
    if (mExternalRefs) out << *mExternalRefs;
  }
  if (mFillLevel & kExtendedInfoBits) {
    out << static_cast<bool>(mExtendedInfo);
    if (mExtendedInfo) out << *mExtendedInfo;
  }
  if (mFillLevel & kBasicInfoBit) {
    out << mNrPages << mRelatedIndex;
    PutNumber(out, number, mImageType);
    PutNumber(out, number, mImageSubtype);
    PutNumber(out, number, mMeasurementUnits);
    out << mVResolution << mHResolution << mVRealSize << mHRealSize;
    out << mNrRows << mNrColumns;
    out << mMarginTop << mMarginLeft << mMarginBottom << mMarginRight;
    PutNumber(out, number, mChannelEncoding);
    PutNumber(out, number, mAlphaPlane);
    out << mNrInks;
    PutNumber(out, number, mRotation);
  }
  if (mFillLevel & kProcessorBit) out << mImageProcessor;
  if (mFillLevel & kFileTypeBit) out << mFileFormat << mFileFormatVersion;
  if (mFillLevel & kFileBit) {
    out << mImagePosition << mFile << mFileTimeStamp << mFileSize;
  }
}

void VYR_TImageTicket::QEN_Unpack(QEN_IUnpacking& in) {
  mExtendedInfo.reset();
  mExternalRefs.reset();
  QEN_TAny number;
  const unsigned stored = GetNumber(in, number);
  mFillLevel = stored;
  in >> mInternal >> mCreatorId;
  mFillLevel = LevelFromStored(stored, mInternal);

  if (mFillLevel & kExternalRefsBit) {
    bool present = false;
    in >> present;
    if (present) mExternalRefs = ExtractOwned<QEN_TList>(in, "external references");
  }
  if (mFillLevel & kExtendedInfoBits) {
    bool present = false;
    in >> present;
    if (present) mExtendedInfo = ExtractOwned<QEN_TDict>(in, "extended information");
  }
  if (mFillLevel & kBasicInfoBit) {
    in >> mNrPages >> mRelatedIndex;
    GetEnum(in, number, mImageType);
    GetEnum(in, number, mImageSubtype);
    GetEnum(in, number, mMeasurementUnits);
    in >> mVResolution >> mHResolution >> mVRealSize >> mHRealSize;
    in >> mNrRows >> mNrColumns;
    in >> mMarginTop >> mMarginLeft >> mMarginBottom >> mMarginRight;
    GetEnum(in, number, mChannelEncoding);
    GetEnum(in, number, mAlphaPlane);
    in >> mNrInks;
    GetEnum(in, number, mRotation);
  }
  if (mFillLevel & kProcessorBit) in >> mImageProcessor;
  if (mFillLevel & kFileTypeBit) in >> mFileFormat >> mFileFormatVersion;
  if (mFillLevel & kFileBit) {
    in >> mImagePosition >> mFile >> mFileTimeStamp >> mFileSize;
  }
}
