// The text form of a ticket: one line per item, in the order of the binary
// form, for example at level 15:
//
//   15
//   QEN_TDict { "version" = 11014; }
//   "creator"
//   NULL                                        (bits 0x340: ExtendedInfo)
//   1                                           NrPages
//   -1                                          RelatedIndex
//   Image
//   CT
//   Inch
//   RES 300, 300
//   8.5, 11
//   PIX 3300, 2550
//   MAR 0.25, 0.5, 0.25, 0.5
//   Cmyk
//   AlphaNone
//   4
//   NotRotated
//   "processor"
//   "TIFF" "6.0"
//   0
//   "file:///jobs/a.tif"
//   2024-02-15T22:42:14.000000Z
//   123456
//
// Present objects are written "* " and the object in its framed form
// (class name and braces), so that the reader can rebuild them by class.
// Enumerations are written with VYR_Enum2String and read, exactly, by the
// names of the same vocabularies (values/vyr_vocabularies.h) that their
// ticket text column marks: a few written names ("Production", "YCbCrK",
// "AlphaUnknown", the names of undefined values) are not among them, so a
// ticket holding one of those writes fine and fails to read at that line.
#include <qen/qen_exception.h>

#include <cstring>
#include <memory>

#include "tickets/ticket_levels.h"
#include "values/vyr_vocabularies.h"
#include "vyrax/vyr_image_ticket.h"

using namespace vyr_ticket;

namespace {

// The word up to the next white space, after the white space before it.
QEN_TString ReadToken(QEN_THumanReadableStream& in) {
  in.SkipWhiteSpace();
  QEN_TString token;
  in.ReadUntil(token, QEN_THumanReadableStream::sWhiteSpace);
  return token;
}

template <class Enum>
void ReadName(QEN_THumanReadableStream& in, const vyr::Vocabulary& vocabulary, const char* what,
              Enum& field) {
  QEN_TString token = ReadToken(in);
  for (const vyr::Word& word : vocabulary) {
    if (word.inTicketText && token == word.Read()) {
      field = static_cast<Enum>(word.value);
      return;
    }
  }
  in.SyntaxError(QEN_TString::Format("unknown %s \"%s\"", what, token.c_str()).c_str());
}

void ExpectToken(QEN_THumanReadableStream& in, const char* expected) {
  QEN_TString token = ReadToken(in);
  if (token != expected)
    in.SyntaxError(
        QEN_TString::Format("expected \"%s\", found \"%s\"", expected, token.c_str()).c_str());
}

// The separator right behind a number: no white space before it.
void ExpectComma(QEN_THumanReadableStream& in) {
  QEN_TUniChar c;
  in.ReadChar(c);
  if (c != ',') in.SyntaxError("expected ',' right after the number");
}

template <class T>
void WriteObjectOrNull(QEN_THumanReadableStream& out, const std::unique_ptr<T>& object) {
  if (object) {
    out << "* ";
    out.WriteObject(*object);
  } else {
    out << "NULL";
  }
  out << cr;
}

// "NULL" for none, or "*" and a framed object of class T, owned by the
// caller.
template <class T>
std::unique_ptr<T> ReadObjectOrNull(QEN_THumanReadableStream& in, const char* what) {
  QEN_TString token = ReadToken(in);
  if (token == "NULL") return nullptr;
  if (token != "*")
    in.SyntaxError(QEN_TString::Format("expected \"NULL\" or \"*\" before the %s, found \"%s\"",
                                       what, token.c_str())
                       .c_str());
  in.SkipWhiteSpace();
  std::unique_ptr<QEN_IInterface> object(in.Extract());
  T* typed = object ? static_cast<T*>(object->DynamicCast(T::QEN_ClassName())) : nullptr;
  // Ownership passes whole, so the object must be a T itself.
  if (typed == nullptr || typed->QEN_MostDerivedObject() != object->QEN_MostDerivedObject())
    in.SyntaxError(QEN_TString::Format("the %s must be a %s", what, T::QEN_ClassName()).c_str());
  object.release();
  return std::unique_ptr<T>(typed);
}

}  // namespace

bool VYR_TImageTicket::WriteTo(QEN_THumanReadableStream& out) const {
  const StoredLevel level = LevelToStored(mFillLevel, mInternal);
  out << level.value << cr;
  // Framed, so that the dictionary's end is plain to the reader.
  out.WriteObject(level.Internal(mInternal)) << cr;
  out << mCreatorId << cr;
  if (mFillLevel & kExternalRefsBit) WriteObjectOrNull(out, mExternalRefs);
  if (mFillLevel & kExtendedInfoBits) WriteObjectOrNull(out, mExtendedInfo);
  if (mFillLevel & kBasicInfoBit) {
    out << mNrPages << cr << mRelatedIndex << cr;
    out << VYR_Enum2String(mImageType).c_str() << cr;
    out << VYR_Enum2String(mImageSubtype).c_str() << cr;
    out << VYR_Enum2String(mMeasurementUnits).c_str() << cr;
    out << "RES " << mVResolution << ", " << mHResolution << cr;
    out << mVRealSize << ", " << mHRealSize << cr;
    out << "PIX " << mNrRows << ", " << mNrColumns << cr;
    out << "MAR " << mMarginTop << ", " << mMarginLeft << ", " << mMarginBottom << ", "
        << mMarginRight << cr;
    out << VYR_Enum2String(mChannelEncoding).c_str() << cr;
    out << VYR_Enum2String(mAlphaPlane).c_str() << cr;
    out << mNrInks << cr;
    out << VYR_Enum2String(mRotation).c_str() << cr;
  }
  if (mFillLevel & kProcessorBit) out << mImageProcessor << cr;
  if (mFillLevel & kFileTypeBit) out << mFileFormat << " " << mFileFormatVersion << cr;
  if (mFillLevel & kFileBit) {
    out << mImagePosition << cr << mFile << cr << mFileTimeStamp << cr;
    out << mFileSize;
  }
  return false;
}

bool VYR_TImageTicket::ReadFrom(QEN_THumanReadableStream& in) {
  unsigned stored = 0;
  in >> stored;
  mFillLevel = stored;
  in.SkipWhiteSpace();
  mInternal.QEN_ReadFrom(in);
  in.SkipWhiteSpace();
  in >> mCreatorId;
  in.SkipWhiteSpace();
  mFillLevel = LevelFromStored(stored, mInternal);

  // Objects of levels not read stay as they are, unlike QEN_Unpack.
  if (mFillLevel & kExternalRefsBit) {
    mExternalRefs.reset();
    mExternalRefs = ReadObjectOrNull<QEN_TList>(in, "external references");
  }
  if (mFillLevel & kExtendedInfoBits) {
    mExtendedInfo.reset();
    mExtendedInfo = ReadObjectOrNull<QEN_TDict>(in, "extended information");
  }
  if (mFillLevel & kBasicInfoBit) {
    in >> mNrPages >> mRelatedIndex;
    ReadName(in, vyr::kImageTypes, "image type", mImageType);
    ReadName(in, vyr::kImageSubtypes, "image subtype", mImageSubtype);
    ReadName(in, vyr::kUnits, "measurement unit", mMeasurementUnits);

    ExpectToken(in, "RES");
    in >> mVResolution;
    ExpectComma(in);
    in >> mHResolution;

    in >> mVRealSize;
    ExpectComma(in);
    in >> mHRealSize;

    ExpectToken(in, "PIX");
    in >> mNrRows;
    ExpectComma(in);
    in >> mNrColumns;

    // Only the first comma must follow its number directly: the old reader
    // skipped white space before the other two.
    ExpectToken(in, "MAR");
    in >> mMarginTop;
    ExpectComma(in);
    in >> mMarginLeft;
    in.SkipWhiteSpace();
    ExpectComma(in);
    in >> mMarginBottom;
    in.SkipWhiteSpace();
    ExpectComma(in);
    in >> mMarginRight;

    ReadName(in, vyr::kChannelEncodings, "channel encoding", mChannelEncoding);
    ReadName(in, vyr::kAlphaPlanes, "alpha plane", mAlphaPlane);
    in >> mNrInks;
    ReadName(in, vyr::kImageRotations, "rotation", mRotation);
  }
  if (mFillLevel & kProcessorBit) in >> mImageProcessor;
  if (mFillLevel & kFileTypeBit) in >> mFileFormat >> mFileFormatVersion;
  if (mFillLevel & kFileBit) {
    in >> mImagePosition >> mFile >> mFileTimeStamp >> mFileSize;
  }
  return false;
}
