// The knot: one point of a clipping path.
#include "vyrax/vyr_knot.h"

#include <qen/qen_stream.h>

#include <ostream>

QEN_DEFINE_VALUE(VYR_TKnot, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

namespace {

// How many coordinate pairs the text form and the print show for a type.
// An unknown type shows none, like KnotNop, whose name it is written with.
unsigned PairsInUse(VYR_TKnotType type) {
  switch (type) {
    case VYR_KnotMoveTo:
    case VYR_KnotLinkLineTo:
    case VYR_KnotNormLineTo:
      return 1;
    case VYR_KnotLinkCurveTo:
    case VYR_KnotNormCurveTo:
      return 3;
    default:
      return 0;
  }
}

}  // namespace

VYR_TKnot::VYR_TKnot(VYR_TKnotType type_) : type(type_) {}

VYR_TKnot::VYR_TKnot(VYR_TKnotType type_, double v1_, double h1_, double v2_, double h2_,
                     double v3_, double h3_)
    : type(type_), v1(v1_), h1(h1_), v2(v2_), h2(h2_), v3(v3_), h3(h3_) {}

void VYR_TKnot::GetInfo(VYR_TKnotType& typeOut, double& v1Out, double& h1Out, double& v2Out,
                        double& h2Out, double& v3Out, double& h3Out) const {
  typeOut = type;
  v1Out = v1;
  h1Out = h1;
  v2Out = v2;
  h2Out = h2;
  v3Out = v3;
  h3Out = h3;
}

bool VYR_TKnot::operator==(const VYR_TKnot& other) const {
  return type == other.type && v1 == other.v1 && h1 == other.h1 && v2 == other.v2 &&
         h2 == other.h2 && v3 == other.v3 && h3 == other.h3;
}

void VYR_TKnot::QEN_Pack(QEN_IPacking& out) const {
  out << static_cast<unsigned>(type) << v1 << h1 << v2 << h2 << v3 << h3;
}

void VYR_TKnot::QEN_Unpack(QEN_IUnpacking& in) {
  unsigned typeValue = 0;
  in >> &typeValue >> &v1 >> &h1 >> &v2 >> &h2 >> &v3 >> &h3;
  type = static_cast<VYR_TKnotType>(typeValue);
}

bool VYR_TKnot::WriteTo(QEN_THumanReadableStream& out) const {
  out << VYR_Enum2String(type).c_str();
  unsigned pairs = PairsInUse(type);
  if (pairs >= 1) out << ' ' << v1 << ", " << h1;
  if (pairs == 3) out << ", " << v2 << ", " << h2 << ", " << v3 << ", " << h3;
  return false;
}

bool VYR_TKnot::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TString skipped;
  QEN_TString word;
  // Blanks before the word come with the framed form, "VYR_TKnot { ... }".
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  in.ReadUntil(word, QEN_THumanReadableStream::sWhiteSpace);
  // An unknown word is KnotNop, which has no coordinates: the read ends here
  // without complaint.
  type = VYR_String2KnotType(word);
  unsigned pairs = PairsInUse(type);
  if (pairs == 0) return false;
  double* const values[] = {&v1, &h1, &v2, &h2, &v3, &h3};
  for (unsigned i = 0; i < 2 * pairs; ++i) {
    if (i > 0) {
      QEN_TUniChar c = 0;
      if (*in.ReadChar(c) != u',') in.SyntaxError("',' expected between coordinates of a knot");
    }
    in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
    in >> values[i];
  }
  return false;
}

void VYR_TKnot::PrintOn(std::ostream& out) const {
  out << "VYR_TKnot { ";
  VYR_Enum2String(type).PrintOn(out);
  unsigned pairs = PairsInUse(type);
  if (pairs >= 1) out << " v1: " << v1 << " h1: " << h1;
  if (pairs == 3) out << " v2: " << v2 << " h2: " << h2 << " v3: " << v3 << " h3: " << h3;
  out << " }";
}
