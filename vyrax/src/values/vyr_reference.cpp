// The reference: a URL whose parameters carry the facts about the
// referenced file, plus a unit and two offsets.
#include "vyrax/vyr_reference.h"

#include <qen/qen_any.h>
#include <qen/qen_containers.h>
#include <qen/qen_stream.h>

#include <climits>
#include <cstdlib>
#include <ostream>
#include <string>
#include <utility>

#include "core/vyr_print.h"
#include "values/vyr_vocabularies.h"

QEN_DEFINE_VALUE(VYR_TReference, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

namespace {

const char kOriginalRef[] = "iOriginalRef";
const char kMIMEType[] = "iMIMEType";
const char kExtType[] = "iExtType";
const char kPageNr[] = "iPageNr";
const char kCount[] = "iCount";
const char kFileSize[] = "iFileSize";
const char kMD5Hash[] = "iMD5Hash";
const char kModificationTime[] = "iModificationTime";
const char kCADOrient[] = "iCADOrient";
const char kCADOrgX[] = "iCADOrgX";
const char kCADOrgY[] = "iCADOrgxY";

// A page number or count as parameter text: -1 stands for none.
QEN_TString NumberText(int value) {
  return value == -1 ? QEN_TString() : QEN_TString::Format("%d", value);
}

// The coding of the query text: letters, digits and "*-._" stay, every other
// byte becomes '%' and two upper-case hex digits.
void AppendPercentCoded(std::string& out, const char* text) {
  static const char kHex[] = "0123456789ABCDEF";
  if (text == nullptr) return;
  for (const char* p = text; *p != '\0'; ++p) {
    unsigned char b = static_cast<unsigned char>(*p);
    bool kept = (b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z') || (b >= '0' && b <= '9') ||
                b == '*' || b == '-' || b == '.' || b == '_';
    if (kept) {
      out += static_cast<char>(b);
    } else {
      out += '%';
      out += kHex[b >> 4];
      out += kHex[b & 0xF];
    }
  }
}

// atoi without its undefined behaviour on overflow: the leading number,
// clamped to the range of int; 0 when there is none.
int LeadingInt(const QEN_TString& text) {
  long value = std::strtol(text.c_str(), nullptr, 10);
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

bool StartsWithFile(const QEN_TString& text) {
  static const QEN_TString kFile("file:");
  return text.Length() >= kFile.Length() && text.Substring(0, kFile.Length()) == kFile;
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction

VYR_TReference::VYR_TReference() = default;

VYR_TReference::VYR_TReference(const QEN_TURL& file_, VYR_TMUnits units_, double vOffset_,
                               double hOffset_)
    : file(file_), units(units_), vOffset(vOffset_), hOffset(hOffset_) {}

VYR_TReference::VYR_TReference(const QEN_TURL& file_, VYR_TMUnits units_, double vOffset_,
                               double hOffset_, const QEN_TString& original)
    : VYR_TReference(file_, units_, vOffset_, hOffset_) {
  file.SetParam(kOriginalRef, original);
}

VYR_TReference::VYR_TReference(const QEN_TURL& file_, VYR_TMUnits units_, double vOffset_,
                               double hOffset_, const QEN_TString& original,
                               const QEN_TString& mimeType)
    : VYR_TReference(file_, units_, vOffset_, hOffset_) {
  QEN_TDict params = file.ParamDict();
  params[kOriginalRef] = original;
  params[kMIMEType] = mimeType;
  file.SetParamDict(params);
}

VYR_TReference::VYR_TReference(const QEN_TURL& file_, VYR_TMUnits units_, double vOffset_,
                               double hOffset_, const QEN_TString& original,
                               const QEN_TString& mimeType, const QEN_TString& extType, int pageNr,
                               int count)
    : VYR_TReference(file_, units_, vOffset_, hOffset_) {
  QEN_TDict params = file.ParamDict();
  params[kOriginalRef] = original;
  params[kMIMEType] = mimeType;
  params[kExtType] = extType;
  params[kPageNr] = NumberText(pageNr);
  params[kCount] = NumberText(count);
  file.SetParamDict(params);
}

VYR_TReference::VYR_TReference(const QEN_TURL& file_, VYR_TMUnits units_, double vOffset_,
                               double hOffset_, const char* original, const char* mimeType,
                               const char* extType, int pageNr, int count)
    : VYR_TReference(file_, units_, vOffset_, hOffset_) {
  // The whole query is built here and replaces the URL's own parameters.
  const QEN_TString page = NumberText(pageNr);
  const QEN_TString total = NumberText(count);
  const std::pair<const char*, const char*> params[] = {{kOriginalRef, original},
                                                        {kMIMEType, mimeType},
                                                        {kExtType, extType},
                                                        {kPageNr, page.c_str()},
                                                        {kCount, total.c_str()}};
  std::string query;
  for (const auto& param : params) {
    if (!query.empty()) query += '&';
    query += param.first;
    query += '=';
    AppendPercentCoded(query, param.second);
  }
  file.SetQuery(QEN_TString(query));
}

// ---------------------------------------------------------------------------
// Readers

bool VYR_TReference::IsValid() const { return !file.Protocol().Empty(); }

QEN_TString VYR_TReference::ParamOrEmpty(const char* key) const {
  QEN_TString value;
  return file.GetParam(key, value) ? value : QEN_TString::sEmpty;
}

int VYR_TReference::NumberOrNone(const char* key) const {
  QEN_TString value;
  return file.GetParam(key, value) ? LeadingInt(value) : -1;
}

QEN_TString VYR_TReference::MIMEType() const { return ParamOrEmpty(kMIMEType); }
QEN_TString VYR_TReference::ExtType() const { return ParamOrEmpty(kExtType); }
QEN_TString VYR_TReference::FileSizeStamp() const { return ParamOrEmpty(kFileSize); }
QEN_TString VYR_TReference::MD5HashStamp() const { return ParamOrEmpty(kMD5Hash); }
QEN_TString VYR_TReference::ModificationTimeStamp() const {
  return ParamOrEmpty(kModificationTime);
}
int VYR_TReference::PageNr() const { return NumberOrNone(kPageNr); }
int VYR_TReference::Count() const { return NumberOrNone(kCount); }

QEN_TString VYR_TReference::Original() const {
  QEN_TString original;
  return file.GetParam(kOriginalRef, original) ? original : file.AsString();
}

// The referring file wrote its reference in one of four ways: a "file" URL
// with an empty host ("file:///..."), any URL with a host ("//host/..."),
// a "file:" prefix before a path, or a path relative to its own folder.
QEN_TURL VYR_TReference::Original(const QEN_TURL& base) const {
  QEN_TURL result;
  try {
    QEN_TURL folder(base);
    folder.SetFileName(QEN_TString::sEmpty);
    QEN_TString r = Original();
    if (r.Find("///") >= 0) {
      if (StartsWithFile(r)) {
        result = QEN_TURL(folder, QEN_TURL::HexDecode(r.Substring(7)));
      } else {
        result = QEN_TURL(folder, r.Substring(2));
      }
    } else if (r.Find("//") >= 0) {
      result = StartsWithFile(r) ? QEN_TURL(r) : QEN_TURL("file:" + r);
    } else if (StartsWithFile(r)) {
      result = QEN_TURL(folder, QEN_TURL::HexDecode(r.Substring(5)));
    } else {
      result = QEN_TURL(folder, r);
    }
  } catch (...) {
    // A reference that can't be resolved gives what was made up to there.
  }
  return result;
}

// ---------------------------------------------------------------------------
// Further facts

void VYR_TReference::AddStampInfo(const QEN_TString& modificationTime, const QEN_TString& fileSize,
                                  const QEN_TString& md5Hash) {
  QEN_TDict params = file.ParamDict();
  params[kModificationTime] = modificationTime;
  params[kFileSize] = fileSize;
  params[kMD5Hash] = md5Hash;
  file.SetParamDict(params);
}

void VYR_TReference::AddCADRegistration(int orientation, double x, double y) {
  QEN_TDict params = file.ParamDict();
  params[kCADOrient] = QEN_TString::Format("%d", orientation);
  params[kCADOrgX] = QEN_TString::Format("%.5f", x);
  params[kCADOrgY] = QEN_TString::Format("%.5f", y);
  file.SetParamDict(params);
}

bool VYR_TReference::GetCADRegistration(int* orientation, double* x, double* y) const {
  QEN_TString text;
  if (!file.GetParam(kCADOrient, text)) return false;
  if (orientation != nullptr) *orientation = LeadingInt(text);
  if (x != nullptr) *x = file.GetParam(kCADOrgX, text) ? std::atof(text.c_str()) : 0.0;
  if (y != nullptr) *y = file.GetParam(kCADOrgY, text) ? std::atof(text.c_str()) : 0.0;
  return true;
}

bool VYR_TReference::operator==(const VYR_TReference& other) const {
  return file == other.file && units == other.units && vOffset == other.vOffset &&
         hOffset == other.hOffset && Original() == other.Original() &&
         MIMEType() == other.MIMEType() && ExtType() == other.ExtType() &&
         Count() == other.Count() && PageNr() == other.PageNr();
}

// ---------------------------------------------------------------------------
// Stored forms

void VYR_TReference::QEN_Pack(QEN_IPacking& out) const {
  out << file;
  out << static_cast<unsigned>(units) << vOffset << hOffset;
}

void VYR_TReference::QEN_Unpack(QEN_IUnpacking& in) {
  unsigned unitsValue = 0;
  in >> file >> &unitsValue >> &vOffset >> &hOffset;
  units = static_cast<VYR_TMUnits>(unitsValue);
}

bool VYR_TReference::WriteTo(QEN_THumanReadableStream& out) const {
  out << file << cr;
  out << VYR_Enum2String(units).c_str() << ' ' << vOffset << ", " << hOffset;
  return false;
}

bool VYR_TReference::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TString skipped;
  QEN_TString word;
  QEN_TUniChar c = 0;
  in >> file;
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  in.ReadUntil(word, QEN_THumanReadableStream::sWhiteSpace);
  // The unit's name in any case.
  const vyr::Word* unit = vyr::kUnits.begin();
  while (unit != vyr::kUnits.end() && word.CompareWith(QEN_TString(unit->Read()), true) != 0)
    ++unit;
  if (unit == vyr::kUnits.end())
    in.SyntaxError("unit Pixel, MM, CM, Inch or Mil expected in a reference");
  units = static_cast<VYR_TMUnits>(unit->value);
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  in >> &vOffset;
  if (*in.ReadChar(c) != u',') in.SyntaxError("',' expected in a reference");
  in.Skip(skipped, QEN_THumanReadableStream::sWhiteSpace);
  in >> &hOffset;
  return false;
}

void VYR_TReference::PrintOn(std::ostream& out) const {
  vyr::FieldPrint line(out, "VYR_TReference");
  line.Printed("File ", file);
  line.Printed("Units ", VYR_Enum2String(units));
  line("VOffset ") << vOffset << std::endl;
  line("HOffset ") << hOffset << std::endl;
  line.Close();
}
