// The ink: name, type and preview colour of one ink of an image.
#define VYR_SOURCE_NAME "Private/Source/vyr_typedefs"

#include "vyrax/vyr_ink.h"

#include <qen/qen_stream.h>

#include <ostream>

#include "core/vyr_print.h"
#include "core/vyr_throw.h"

QEN_DEFINE_VALUE(VYR_TInk, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

namespace {

// Below 0 or above 1; a value that is not a number is neither.
bool OutOfRange(double value) { return value < 0.0 || value > 1.0; }

bool IsThreeValueEncoding(unsigned encoding) {
  return encoding == VYR_PreviewRgb || encoding == VYR_PreviewLabcolor ||
         encoding == VYR_PreviewHsv;
}

// How many preview values the text form and the print show.
unsigned ValuesShown(unsigned encoding) {
  if (encoding == VYR_PreviewCmyk) return 4;
  return IsThreeValueEncoding(encoding) ? 3 : 0;
}

}  // namespace

VYR_TInk::VYR_TInk() = default;

VYR_TInk::VYR_TInk(const QEN_TString& name_, const QEN_TString& type_) {
  SetInkNameAndType(name_, type_);
  SetDefaultPreview();
}

VYR_TInk::VYR_TInk(const QEN_TString& name_, const QEN_TString& type_, double a, double b, double c,
                   const VYR_TInkPreviewEnc& encoding) {
  SetInkNameAndType(name_, type_);
  SetInkPreview(a, b, c, encoding);
}

VYR_TInk::VYR_TInk(const QEN_TString& name_, const QEN_TString& type_, double c, double m, double y,
                   double k) {
  SetInkNameAndType(name_, type_);
  SetInkPreview(c, m, y, k);
}

VYR_TInk::VYR_TInk(const VYR_TInks& ink) : name(VYR_Enum2String(ink)) {
  if (ink >= VYR_InkCyan && ink <= VYR_InkBlack) {
    type = VYR_Enum2String(VYR_ProcessInks);
  } else if (ink >= VYR_InkRed && ink <= VYR_InkBlue) {
    type = VYR_Enum2String(VYR_DisplayInks);
  } else {
    type = QEN_TString();
    VYR_THROW(VYR_EWrongInkName, "Wrong ink name %s for the given ink type", name);
  }
  SetDefaultPreview();
}

void VYR_TInk::SetInkNameAndType(const QEN_TString& newName, const QEN_TString& newType) {
  type = newType;
  const VYR_TDefInkTypes kind = VYR_String2DefInkTypes(type);
  if (kind != VYR_ProcessInks && kind != VYR_DisplayInks) {
    name = newName;
    return;
  }
  name = newName.ToLower();
  const VYR_TInks ink = VYR_String2Inks(name);
  const bool fits = kind == VYR_ProcessInks ? ink >= VYR_InkCyan && ink <= VYR_InkBlack
                                            : ink >= VYR_InkRed && ink <= VYR_InkBlue;
  if (!fits) VYR_THROW(VYR_EWrongInkName, "Wrong ink name %s for the given ink type", name);
}

void VYR_TInk::SetDefaultPreview() {
  const VYR_TDefInkTypes kind = VYR_String2DefInkTypes(type);
  const unsigned ink = VYR_String2Inks(name);
  if (kind == VYR_ProcessInks && ink >= VYR_InkCyan && ink <= VYR_InkBlack) {
    double values[4] = {0.0, 0.0, 0.0, 0.0};
    values[ink - VYR_InkCyan] = 1.0;
    SetInkPreview(values[0], values[1], values[2], values[3]);
  } else if (kind == VYR_DisplayInks && ink >= VYR_InkRed && ink <= VYR_InkBlue) {
    double values[3] = {0.0, 0.0, 0.0};
    values[ink - VYR_InkRed] = 1.0;
    SetInkPreview(values[0], values[1], values[2], VYR_PreviewRgb);
  }
}

void VYR_TInk::SetInkPreview(double a, double b, double c, const VYR_TInkPreviewEnc& encoding) {
  for (double value : {a, b, c})
    if (OutOfRange(value))
      VYR_THROW(VYR_EIllegalRGBInkPreviewValues,
                "RGB preview ink values need to be between 0. and 1. (value %g)", value);
  previewEnc = VYR_PreviewNone;
  if (!IsThreeValueEncoding(encoding))
    VYR_THROW(VYR_EWrongInkPreviewType, VYR_Enum2String(encoding));
  previewEnc = encoding;
  preview[0] = a;
  preview[1] = b;
  preview[2] = c;
}

void VYR_TInk::SetInkPreview(double c, double m, double y, double k) {
  for (double value : {c, m, y, k})
    if (OutOfRange(value))
      VYR_THROW(VYR_EIllegalCMYKInkPreviewValues,
                "CMYK preview ink values need to be between 0. and 1. (value %g)", value);
  previewEnc = VYR_PreviewCmyk;
  preview[0] = c;
  preview[1] = m;
  preview[2] = y;
  preview[3] = k;
}

bool VYR_TInk::operator==(const VYR_TInk& other) const {
  if (name != other.name || type != other.type) return false;
  if (previewEnc != other.previewEnc) {
    // One of them without a preview says nothing against the other's.
    return previewEnc == VYR_PreviewNone || other.previewEnc == VYR_PreviewNone;
  }
  const unsigned compared = ValuesShown(previewEnc);
  for (unsigned i = 0; i < compared; ++i)
    if (preview[i] != other.preview[i]) return false;
  return true;
}

void VYR_TInk::QEN_Pack(QEN_IPacking& out) const {
  out << name << type << static_cast<unsigned>(previewEnc);
  for (double value : preview) out << value;
}

void VYR_TInk::QEN_Unpack(QEN_IUnpacking& in) {
  unsigned encoding = 0;
  in >> name >> type >> &encoding;
  for (double& value : preview) in >> &value;
  previewEnc = static_cast<VYR_TInkPreviewEnc>(encoding);
}

bool VYR_TInk::WriteTo(QEN_THumanReadableStream& out) const {
  out << name << cr;
  out << type << cr;
  out << VYR_Enum2String(previewEnc) << cr;
  const unsigned shown = ValuesShown(previewEnc);
  for (unsigned i = 0; i < shown; ++i) {
    if (i > 0) out << ' ';
    out << preview[i];
  }
  return false;
}

bool VYR_TInk::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TString skipped;
  QEN_TString encodingName;
  const QEN_TString& blanks = QEN_THumanReadableStream::sWhiteSpace;
  in.Skip(skipped, blanks) >> name;
  in.Skip(skipped, blanks) >> type;
  in.Skip(skipped, blanks) >> encodingName;
  in.Skip(skipped, blanks);
  previewEnc = VYR_String2InkPreviewEnc(encodingName);
  const unsigned shown = ValuesShown(previewEnc);
  for (unsigned i = 0; i < shown; ++i) {
    in.Skip(skipped, blanks);
    in >> &preview[i];
  }
  return false;
}

void VYR_TInk::PrintOn(std::ostream& out) const {
  vyr::FieldPrint line(out, "VYR_TInk");
  line.Printed("Name: ", name);
  line.Printed("Type: ", type);
  line("Preview: ");
  VYR_Enum2String(previewEnc).PrintOn(out);
  const unsigned shown = ValuesShown(previewEnc);
  if (shown > 0) {
    out << '(';
    for (unsigned i = 0; i < shown; ++i) out << (i > 0 ? " " : "") << preview[i];
    out << ')';
  }
  out << std::endl;
  line.Close();
}
