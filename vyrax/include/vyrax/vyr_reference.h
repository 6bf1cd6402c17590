// VYR_TReference: one reference from an image to another file.
#ifndef VYR_REFERENCE_H
#define VYR_REFERENCE_H

#include <qen/qen_object.h>
#include <qen/qen_string.h>
#include <qen/qen_url.h>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_enums.h"
#include "vyrax/vyr_value.h"

// The URL of the referenced file, the unit of the two offsets and where the
// referenced image sits. Every further fact lives in the URL's parameters, so
// that anything that carries the URL carries them too:
//
//   iOriginalRef       the reference as the referring file wrote it
//   iMIMEType          MIME type of the referenced file
//   iExtType           its format, in the referring format's own words
//   iPageNr, iCount    decimal; empty for none
//   iFileSize, iMD5Hash, iModificationTime
//                      stamps of the file when the reference was made
//   iCADOrient, iCADOrgX, iCADOrgxY
//                      CAD registration: orientation and origin
class VYR_API VYR_TReference : public QEN_TObject,
                               public virtual QEN_IPackable,
                               public virtual QEN_IHumanReadable,
                               public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(VYR_TReference)

 public:
  // An empty URL in inches at offset 0, 0.
  VYR_TReference();
  VYR_TReference(const QEN_TURL& file, VYR_TMUnits units, double vOffset, double hOffset);
  VYR_TReference(const QEN_TURL& file, VYR_TMUnits units, double vOffset, double hOffset,
                 const QEN_TString& original);
  VYR_TReference(const QEN_TURL& file, VYR_TMUnits units, double vOffset, double hOffset,
                 const QEN_TString& original, const QEN_TString& mimeType);
  // A page number or count of -1 stores an empty parameter.
  VYR_TReference(const QEN_TURL& file, VYR_TMUnits units, double vOffset, double hOffset,
                 const QEN_TString& original, const QEN_TString& mimeType,
                 const QEN_TString& extType, int pageNr, int count);
  // Replaces all parameters of `file` by these five, percent-coded byte by
  // byte. A null text counts as empty.
  VYR_TReference(const QEN_TURL& file, VYR_TMUnits units, double vOffset, double hOffset,
                 const char* original, const char* mimeType, const char* extType, int pageNr,
                 int count);

  const QEN_TURL& File() const { return file; }
  VYR_TMUnits Units() const { return units; }
  double VOffset() const { return vOffset; }
  double HOffset() const { return hOffset; }
  // The URL has a protocol.
  bool IsValid() const;

  // The parameter's text, or the empty string when there is none.
  QEN_TString MIMEType() const;
  QEN_TString ExtType() const;
  QEN_TString FileSizeStamp() const;
  QEN_TString MD5HashStamp() const;
  QEN_TString ModificationTimeStamp() const;
  // The reference as originally written, or the whole URL as text.
  QEN_TString Original() const;
  // The original reference resolved against the folder of `base`; an empty
  // URL when it can't be. Never throws.
  QEN_TURL Original(const QEN_TURL& base) const;
  // The number in the parameter (0 for an empty one), or -1 when the
  // parameter is absent.
  int PageNr() const;
  int Count() const;

  void AddStampInfo(const QEN_TString& modificationTime, const QEN_TString& fileSize,
                    const QEN_TString& md5Hash);
  void AddCADRegistration(int orientation, double x, double y);
  // False, with the outputs untouched, when there is no registration. The
  // origin is 0.0 where its parameter is missing. Null outputs are skipped.
  bool GetCADRegistration(int* orientation, double* x, double* y) const;

  // Equal: the URL, the unit and the offsets; then the original, MIME type
  // and format; then count and page.
  // Packed: the URL as an object, the unit as an unsigned 32, then vOffset
  // and hOffset as doubles.
  // Text form, two lines: the quoted URL, then "<unit> <vOffset>, <hOffset>", as in
  //   "file:///jobs/a.tif?iOriginalRef=a.tif"
  //   MM 12.5, -3.25
  // The unit is read as one of Pixel, MM, CM, Inch and Mil in any case; a
  // unit outside these is written as "UnknownUnits", which doesn't read back.
  VYR_VALUE_MEMBERS(VYR_TReference, true)

 private:
  QEN_TString ParamOrEmpty(const char* key) const;
  int NumberOrNone(const char* key) const;

  QEN_TURL file;
  VYR_TMUnits units = VYR_Inch;
  double vOffset = 0.0;
  double hOffset = 0.0;
};

#endif
