// The small value types: the tag.
#include <qen/qen_stream.h>

#include <ostream>

#include "core/vyr_print.h"
#include "core/vyr_version_stamp.h"
#include "vyrax/vyr_exceptions.h"
#include "vyrax/vyr_typedefs.h"

VYR_VERSION_STAMP()

// ---------------------------------------------------------------------------
// VYR_TTag

QEN_DEFINE_VALUE(VYR_TTag, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

VYR_TTag::VYR_TTag(unsigned position_, unsigned positionHigh_, unsigned size_, unsigned sizeHigh_)
    : position(position_), positionHigh(positionHigh_), size(size_), sizeHigh(sizeHigh_) {}

VYR_TTag::VYR_TTag(unsigned long long position_, unsigned long long size_)
    : position(static_cast<unsigned>(position_)),
      positionHigh(static_cast<unsigned>(position_ >> 32)),
      size(static_cast<unsigned>(size_)),
      sizeHigh(static_cast<unsigned>(size_ >> 32)) {}

bool VYR_TTag::operator==(const VYR_TTag& other) const {
  return position == other.position && positionHigh == other.positionHigh && size == other.size &&
         sizeHigh == other.sizeHigh;
}

VYR_TTag::operator bool() const {
  return position == 0 && positionHigh == 0 && size == 0 && sizeHigh == 0;
}

void VYR_TTag::QEN_Pack(QEN_IPacking& out) const {
  out << position << positionHigh << size << sizeHigh;
}

void VYR_TTag::QEN_Unpack(QEN_IUnpacking& in) {
  in >> &position >> &positionHigh >> &size >> &sizeHigh;
}

bool VYR_TTag::WriteTo(QEN_THumanReadableStream& out) const {
  out << position << " : " << positionHigh << ", " << size << " : " << sizeHigh;
  return false;
}

bool VYR_TTag::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TString skipped;
  QEN_TUniChar c = 0;
  in >> &position;
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  if (*in.ReadChar(c) != u':') in.SyntaxError("':' expected in a tag");
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  in >> &positionHigh;
  if (*in.ReadChar(c) != u',') in.SyntaxError("',' expected in a tag");
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  in >> &size;
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  if (*in.ReadChar(c) != u':') in.SyntaxError("':' expected in a tag");
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  in >> &sizeHigh;
  return false;
}

void VYR_TTag::PrintOn(std::ostream& out) const {
  vyr::FieldPrint line(out, "VYR_TTag");
  line("Position ") << position << " : " << positionHigh << std::endl;
  line("Size ") << size << " : " << sizeHigh << std::endl;
  line.Close();
}
