// The listing of a ticket for people. Nothing reads it back, but people and
// scripts compare it by eye and by diff, so its labels stay as they are,
// the two-blank ones ("VRealSize:  ", "NrRows:  ") included.
#include <cstring>
#include <ostream>

#include "core/vyr_print.h"
#include "tickets/ticket_levels.h"
#include "vyrax/vyr_image_ticket.h"

using namespace vyr_ticket;

namespace {

// One entry per key: "[key] = value", the value as a small number when it
// reads as one, else through its own print.
void PrintDictionaryEntries(std::ostream& out, const QEN_TDict& dict) {
  for (QEN_TConstIterator at(dict); !at.IsDone(); at++) {
    out << QEN_IPrintable::Prefix() << "[";
    QEN_IPrintable::Indent();
    const QEN_IPrintable* key =
        static_cast<const QEN_IPrintable*>(at.Key().DynamicCast("QEN_IPrintable"));
    if (key != nullptr)
      key->PrintOn(out);
    else
      out << "<NON-PRINTABLE>";
    out << "] = ";
    QEN_IPrintable::Indent();
    const QEN_TAny& value = at.Value();
    bool printed = false;
    try {
      unsigned number = static_cast<unsigned char>(value);
      out << number;
      printed = true;
    } catch (...) {
    }
    if (!printed) value.PrintOn(out);
    out << '\n';
    QEN_IPrintable::ReverseIndent();
    QEN_IPrintable::ReverseIndent();
  }
}

// One entry per element: a byte as its number, anything else as it prints.
void PrintListEntries(std::ostream& out, const QEN_TList& list) {
  for (const QEN_TListKey* key = list.KeyAtHead(); key != nullptr; key = key->Next()) {
    QEN_IPrintable::Indent();
    const QEN_TAny& value = key->Value();
    bool printed = false;
    try {
      if (std::strcmp(value.ClassName(), "QEN_TUInt8") == 0) {
        out << static_cast<unsigned>(static_cast<unsigned char>(value));
      } else {
        value.PrintOn(out);
      }
      printed = true;
    } catch (...) {
    }
    if (!printed) value.PrintOn(out);
    out << '\n';
    QEN_IPrintable::ReverseIndent();
  }
}

template <class Entries, class Container>
void PrintBlock(std::ostream& out, const Container& container, Entries entries) {
  out << QEN_IPrintable::Prefix() << "{" << std::endl;
  QEN_IPrintable::Indent();
  entries(out, container);
  QEN_IPrintable::ReverseIndent();
  out << QEN_IPrintable::Prefix() << "}" << std::endl;
}

}  // namespace

void VYR_TImageTicket::PrintOn(std::ostream& out) const {
  vyr::FieldPrint line(out, "VYR_TImageTicket");
  line("FillLevel: ") << VYR_Enum2String(mFillLevel).c_str() << std::endl;
  line.Printed("InternalInfo: ", mInternal);
  line.Printed("CreatorId: ", mCreatorId);
  if (mFillLevel & kFileBit) {
    line.Printed("File: ", mFile);
    line.Printed("FileTimeStamp: ", mFileTimeStamp);
    line("FileSize: ") << mFileSize << std::endl;
    line("ImagePosition: ") << static_cast<unsigned>(mImagePosition) << std::endl;
  }
  if (mFillLevel & kFileTypeBit) {
    line("FileFormat: ") << mFileFormat.c_str() << std::endl;
    line("FileFormatVersion: ") << mFileFormatVersion.c_str() << std::endl;
  }
  if (mFillLevel & kProcessorBit) line("ImageProcessor: ") << mImageProcessor.c_str() << std::endl;
  if (mFillLevel & kBasicInfoBit) {
    line("ImageType: ") << VYR_Enum2String(mImageType).c_str() << std::endl;
    line("ImageSubtype: ") << VYR_Enum2String(mImageSubtype).c_str() << std::endl;
    line("MeasurementUnits: ") << VYR_Enum2String(mMeasurementUnits).c_str() << std::endl;
    line("VResolution: ") << mVResolution << std::endl;
    line("HResolution: ") << mHResolution << std::endl;
    line("VRealSize:  ") << mVRealSize << std::endl;
    line("HRealSize: ") << mHRealSize << std::endl;
    line("NrRows:  ") << mNrRows << std::endl;
    line("NrColumns: ") << mNrColumns << std::endl;
    line("MarginTop: ") << mMarginTop << std::endl;
    line("MarginLeft: ") << mMarginLeft << std::endl;
    line("MarginBottom: ") << mMarginBottom << std::endl;
    line("MarginRight: ") << mMarginRight << std::endl;
    line("ChannelEncoding: ") << VYR_Enum2String(mChannelEncoding).c_str() << std::endl;
    line("AlphaPlane: ") << VYR_Enum2String(mAlphaPlane).c_str() << std::endl;
    line("NrInks: ") << mNrInks << std::endl;
    line("Rotation: ") << VYR_Enum2String(mRotation).c_str() << std::endl;
    line("NrPages: ") << mNrPages << std::endl;
    line("RelatedIndex: ") << mRelatedIndex << std::endl;
  }
  if ((mFillLevel & kExtendedInfoBits) && mExtendedInfo) {
    line("ExtendedInfo: DICT") << std::endl;
    PrintBlock(out, *mExtendedInfo, PrintDictionaryEntries);
  }
  if ((mFillLevel & kExternalRefsBit) && mExternalRefs) {
    line("ExternalRefs: LIST") << std::endl;
    PrintBlock(out, *mExternalRefs, PrintListEntries);
  }
  line.Close() << std::endl;
}
