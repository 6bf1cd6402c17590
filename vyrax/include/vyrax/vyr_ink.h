// VYR_TInk: one ink of an image, and the recognition of process ink names
// in several languages.
#ifndef VYR_INK_H
#define VYR_INK_H

#include <qen/qen_object.h>
#include <qen/qen_string.h>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_enums.h"
#include "vyrax/vyr_value.h"

// An ink: its name, its type as text and an optional preview colour.
//
// Types are compared without regard to case and stored as given. A
// "process" ink is named cyan, magenta, yellow or black, a "display" ink
// red, green or blue; their names are stored in lower case and the other
// colour words are refused with VYR_EWrongInkName. Any other type takes any
// name, kept as given.
//
// A preview is none (encoding 0), three values with the encoding Rgb,
// Labcolor or Hsv, or four values as Cmyk; every value set through
// SetInkPreview lies between 0 and 1.
class VYR_API VYR_TInk : public QEN_TObject,
                         public virtual QEN_IPackable,
                         public virtual QEN_IHumanReadable,
                         public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(VYR_TInk)

 public:
  // Name and type checked; process and display inks get their own colour as
  // preview (CMYK for process, RGB for display), others none.
  VYR_TInk(const QEN_TString& name, const QEN_TString& type);
  VYR_TInk(const QEN_TString& name, const QEN_TString& type, double a, double b, double c,
           const VYR_TInkPreviewEnc& encoding);
  VYR_TInk(const QEN_TString& name, const QEN_TString& type, double c, double m, double y,
           double k);
  // Inks 1 to 4 are process inks, 5 to 7 display inks; any other value throws
  // VYR_EWrongInkName.
  VYR_TInk(const VYR_TInks& ink);

  const QEN_TString& InkName() const { return name; }
  const QEN_TString& InkType() const { return type; }
  VYR_TInkPreviewEnc InkPreviewEnc() const { return previewEnc; }
  // The four preview values, or null when there is no preview.
  const double* InkPreview() const { return previewEnc == VYR_PreviewNone ? nullptr : preview; }

  // Unchecked.
  void SetInkName(const QEN_TString& newName) { name = newName; }
  void SetInkType(const QEN_TString& newType) { type = newType; }
  // Checked as the constructors do; the preview stays as it is.
  void SetInkNameAndType(const QEN_TString& newName, const QEN_TString& newType);
  // Values outside 0 to 1 throw VYR_EIllegalRGBInkPreviewValues and leave
  // the ink as it was. An encoding other than Rgb, Labcolor and Hsv throws
  // VYR_EWrongInkPreviewType and leaves the ink without preview.
  void SetInkPreview(double a, double b, double c, const VYR_TInkPreviewEnc& encoding);
  // CMYK; values outside 0 to 1 throw VYR_EIllegalCMYKInkPreviewValues and
  // leave the ink as it was.
  void SetInkPreview(double c, double m, double y, double k);

  // Equal: same name and type (exactly); then, when both have a preview,
  // the same encoding and values. An ink without preview equals one with any
  // preview, so the relation is not transitive.
  // Packed: name and type as objects, the encoding as unsigned 32, then all
  // four preview values as doubles, whatever the encoding.
  // Text form, three lines: the quoted name, the quoted type and the quoted
  // encoding name ("Rgb", "Cmyk", ...), then the preview values on a fourth
  // line when there is a preview. An encoding name that is no preview
  // encoding reads back as none.
  VYR_VALUE_MEMBERS(VYR_TInk, true)

 private:
  // What QEN_Create builds for a stream to fill: empty, no preview.
  VYR_TInk();
  void SetDefaultPreview();

  QEN_TString name;
  QEN_TString type;
  VYR_TInkPreviewEnc previewEnc = VYR_PreviewNone;
  double preview[4] = {0.0, 0.0, 0.0, 0.0};
};

// The process ink (1 to 4) that `name` stands for in one of the known
// languages, or 0. A name is one word ("ZWART") or a prefix and a word
// ("Process Black"); case is ignored. The prefix must be a word of the same
// language table, such as "PROCESS". The tables of English, Dutch, German,
// French, Italian and Spanish are extended by the dictionary at the
// configuration path "/Resources/Modules/VYR/InternationalInkNames" (language
// to a dictionary from upper-case word to ink number), read once, at the
// first call. Safe from any thread. Never throws.
VYR_API VYR_TInks VYR_International2Ink(const QEN_TString& name);

#endif
