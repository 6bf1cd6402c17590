// The enumerations to text and back: one table per enumeration, and the
// matching rule and default of each direction.
#include "values/vyr_vocabularies.h"

#include <qen/qen_any.h>
#include <qen/qen_containers.h>
#include <qen/qen_string.h>

#include <utility>
#include <vector>

using vyr::Vocabulary;
using vyr::Word;

namespace {

template <std::size_t N>
constexpr Vocabulary Of(const Word (&words)[N]) {
  return Vocabulary{words, N};
}

const Word kChannelEncodingWords[] = {{VYR_UnknownChannelEncoding, "UnknownChannelEncoding"},
                                      {VYR_Bitmap, "Bitmap"},
                                      {VYR_Colored, "Colored"},
                                      {VYR_IndexedRgb, "IndexedRgb"},
                                      {VYR_IndexedCmyk, "IndexedCmyk"},
                                      {VYR_NamedIndexed, "NamedIndexed"},
                                      {VYR_Intensity, "Intensity"},
                                      {VYR_Grayscale, "Grayscale"},
                                      {VYR_NamedIntensity, "NamedIntensity"},
                                      {VYR_Multitone, "Multitone"},
                                      {VYR_Rgb, "Rgb"},
                                      {VYR_Cmyk, "Cmyk"},
                                      {VYR_Labcolor, "Labcolor"},
                                      {VYR_YCbCr, "YCbCr"},
                                      {VYR_Hsv, "Hsv"},
                                      {VYR_Multichannel, "Multichannel"},
                                      {VYR_NamedMultichannel, "NamedMultichannel"},
                                      {VYR_YCbCrK, "YCbCrK", nullptr, false}};

const Word kAlphaPlaneWords[] = {{VYR_AlphaNone, "AlphaNone"},
                                 {VYR_AlphaNormal, "AlphaNormal"},
                                 {VYR_AlphaPremultiplied, "AlphaPremultiplied"},
                                 {VYR_AlphaOne, "AlphaOne"},
                                 {VYR_AlphaUnknown, "AlphaUnknown", "UnknownAlpha"}};

const Word kImageRotationWords[] = {{VYR_NotRotated, "NotRotated"}, {VYR_Rot90, "Rot90"},
                                    {VYR_Rot180, "Rot180"},         {VYR_Rot270, "Rot270"},
                                    {VYR_Mirrored, "Mirrored"},     {VYR_MirRot90, "MirRot90"},
                                    {VYR_MirRot180, "MirRot180"},   {VYR_MirRot270, "MirRot270"}};

const Word kImageSubtypeWords[] = {{VYR_UnknownSubtype, "UnknownSubtype"},
                                   {VYR_SubtypeCT, "CT"},
                                   {VYR_SubtypeLP, "LP"},
                                   {VYR_SubtypeLW, "LW"},
                                   {VYR_SubtypeHC, "HC"},
                                   {VYR_SubtypeFP, "FP"}};

const Word kImageTypeWords[] = {
    {VYR_UnknownType, "UnknownType"}, {VYR_TypePreview, "Preview"},
    {VYR_TypeIcon, "Icon"},           {VYR_TypeImage, "Image"},
    {VYR_TypeInternal, "Internal"},   {VYR_TypeProduction, "Production", nullptr, false}};

const Word kUnitWords[] = {
    {VYR_Pixel, "Pixel"}, {VYR_MM, "MM"}, {VYR_CM, "CM"}, {VYR_Inch, "Inch"}, {VYR_Mil, "Mil"}};

const Word kBufferAccessWords[] = {{VYR_ReadOnly, "ReadOnly"},
                                   {VYR_ReadWrite, "ReadWrite"},
                                   {VYR_CopyOnWrite, "CopyOnWrite"},
                                   {VYR_InvalidAccess, "InvalidAccess"}};

const Word kCanFlagWords[] = {{VYR_CanInvalid, "invalid"},
                              {VYR_CanNone, "none"},
                              {VYR_CanLimited, "limited"},
                              {VYR_CanFull, "full"}};

const Word kDefInkTypeWords[] = {{VYR_NoDefInkType, ""},
                                 {VYR_ProcessInks, "process"},
                                 {VYR_DisplayInks, "display"},
                                 {VYR_DesignerInks, "designer"}};

const Word kInkWords[] = {{VYR_UnknownInk, "unknownink"}, {VYR_InkCyan, "cyan"},
                          {VYR_InkMagenta, "magenta"},    {VYR_InkYellow, "yellow"},
                          {VYR_InkBlack, "black"},        {VYR_InkRed, "red"},
                          {VYR_InkGreen, "green"},        {VYR_InkBlue, "blue"}};

const Word kInterleavedWords[] = {{VYR_UnknownInterleaved, "UnknownInterleaved"},
                                  {VYR_PixelInterleaved, "PixelInterleaved"},
                                  {VYR_LineInterleaved, "LineInterleaved"},
                                  {VYR_PlaneInterleaved, "PlaneInterleaved"}};

const Word kKnotTypeWords[] = {{VYR_KnotNop, "KnotNop"},
                               {VYR_KnotMoveTo, "KnotMoveTo"},
                               {VYR_KnotClose, "KnotClose"},
                               {VYR_KnotLinkLineTo, "KnotLinkLineTo"},
                               {VYR_KnotNormLineTo, "KnotNormLineTo"},
                               {VYR_KnotLinkCurveTo, "KnotLinkCurveTo"},
                               {VYR_KnotNormCurveTo, "KnotNormCurveTo"}};

const Word kVerifyStatusWords[] = {
    {VYR_KeyUnknown, "KeyUnknown"}, {VYR_KeyDifferent, "KeyDifferent"}, {VYR_KeyEqual, "KeyEqual"}};

const Word kFillLevelWords[] = {
    {VYR_FillEmpty, "Empty"},         {VYR_FillFileAssigned, "FileAssigned"},
    {VYR_FillFileType, "FileType"},   {VYR_FillImageProcessor, "ImageProcessor"},
    {VYR_FillBasicInfo, "BasicInfo"}, {VYR_FillExtendedInfo, "ExtendedInfo"},
    {VYR_FillFullInfo, "FullInfo"}};

const char* TextOf(const Vocabulary& vocabulary, unsigned value, const char* otherwise) {
  for (const Word& word : vocabulary)
    if (word.value == value) return word.text;
  return otherwise;
}

// The look-up of a "dictionary" reader: a function-local static, so that
// building and filling it is one thread-safe initialisation, read-only after.
// `folded` keys it by the names in lower case, for input folded the same way.
QEN_TDict MakeDictionary(const Vocabulary& vocabulary, bool folded) {
  QEN_TDict dictionary;
  for (const Word& word : vocabulary) {
    const QEN_TString key(word.Read());
    dictionary[folded ? key.ToLower() : key] = word.value;
  }
  return dictionary;
}

unsigned LookUp(const QEN_TDict& dictionary, const QEN_TString& key, unsigned otherwise) {
  const QEN_TAny* value = dictionary.Lookup(key);
  return value != nullptr ? static_cast<unsigned>(*value) : otherwise;
}

// The case-ignoring scans compare in table order; their keys are strings
// made once.
typedef std::vector<std::pair<QEN_TString, unsigned>> TextTable;

TextTable MakeTextTable(const Vocabulary& vocabulary) {
  TextTable table;
  for (const Word& word : vocabulary) table.emplace_back(QEN_TString(word.Read()), word.value);
  return table;
}

unsigned ScanIgnoringCase(const TextTable& table, const QEN_TString& text, unsigned otherwise) {
  for (const auto& row : table)
    if (text.CompareWith(row.first, true) == 0) return row.second;
  return otherwise;
}

unsigned ScanExact(const Vocabulary& vocabulary, const QEN_TString& text, unsigned otherwise) {
  for (const Word& word : vocabulary)
    if (text == word.Read()) return word.value;
  return otherwise;
}

bool IsPreviewEncoding(unsigned value) {
  return value == VYR_Rgb || value == VYR_Cmyk || value == VYR_Labcolor || value == VYR_Hsv;
}

}  // namespace

namespace vyr {
const Vocabulary kChannelEncodings = Of(kChannelEncodingWords);
const Vocabulary kAlphaPlanes = Of(kAlphaPlaneWords);
const Vocabulary kImageRotations = Of(kImageRotationWords);
const Vocabulary kImageSubtypes = Of(kImageSubtypeWords);
const Vocabulary kImageTypes = Of(kImageTypeWords);
const Vocabulary kUnits = Of(kUnitWords);
}  // namespace vyr

// --- To text: the name of a value, or the text for values past the named ones.

#define VYR_TO_TEXT(Type, vocabulary, undefined) \
  QEN_TString VYR_Enum2String(Type value) { return TextOf(vocabulary, value, undefined); }

VYR_TO_TEXT(VYR_TChannelEnc, vyr::kChannelEncodings, "UnknownChannelEncoding")
VYR_TO_TEXT(VYR_TInkPreviewEnc, vyr::kChannelEncodings, "UnknownChannelEncoding")
VYR_TO_TEXT(VYR_TAlphaPlane, vyr::kAlphaPlanes, "UndefinedAlphaPlane")
VYR_TO_TEXT(VYR_TBufferAccess, Of(kBufferAccessWords), "InvalidAccess")
VYR_TO_TEXT(VYR_TCanFlag, Of(kCanFlagWords), "invalid")
VYR_TO_TEXT(VYR_TDefInkTypes, Of(kDefInkTypeWords), "")
VYR_TO_TEXT(VYR_TImageRotation, vyr::kImageRotations, "UnknownRotation")
VYR_TO_TEXT(VYR_TImageSubtype, vyr::kImageSubtypes, "UndefinedImageSubtype")
VYR_TO_TEXT(VYR_TImageType, vyr::kImageTypes, "UndefinedImageType")
VYR_TO_TEXT(VYR_TInks, Of(kInkWords), "undefinedink")
VYR_TO_TEXT(VYR_TInterleavedType, Of(kInterleavedWords), "UnknownInterleaved")
VYR_TO_TEXT(VYR_TKnotType, Of(kKnotTypeWords), "KnotNop")
VYR_TO_TEXT(VYR_TMUnits, vyr::kUnits, "UnknownUnits")
VYR_TO_TEXT(VYR_TVerifyStatus, Of(kVerifyStatusWords), "KeyInvalid")
VYR_TO_TEXT(unsigned int, Of(kFillLevelWords), "UnknownFillLevel")

// --- From text: each reader with its matching rule and its default.

// A dictionary of the names in lower case, the text folded the same way.
#define VYR_READ_FOLDED(Function, Type, vocabulary, otherwise)               \
  Type Function(const QEN_TString& text) {                                   \
    static const QEN_TDict dictionary = MakeDictionary(vocabulary, true);    \
    return static_cast<Type>(LookUp(dictionary, text.ToLower(), otherwise)); \
  }
// The names in any case, compared in table order.
#define VYR_READ_IGNORING_CASE(Function, Type, vocabulary, otherwise)   \
  Type Function(const QEN_TString& text) {                              \
    static const TextTable table = MakeTextTable(vocabulary);           \
    return static_cast<Type>(ScanIgnoringCase(table, text, otherwise)); \
  }
// The names exactly.
#define VYR_READ_EXACT(Function, Type, vocabulary, otherwise)         \
  Type Function(const QEN_TString& text) {                            \
    return static_cast<Type>(ScanExact(vocabulary, text, otherwise)); \
  }

VYR_READ_FOLDED(VYR_String2ChannelEnc, VYR_TChannelEnc, vyr::kChannelEncodings,
                VYR_UnknownChannelEncoding)
VYR_READ_FOLDED(VYR_String2AlphaPlane, VYR_TAlphaPlane, vyr::kAlphaPlanes, VYR_AlphaUnknown)
VYR_READ_FOLDED(VYR_String2ImageRotation, VYR_TImageRotation, vyr::kImageRotations, VYR_NotRotated)
VYR_READ_FOLDED(VYR_String2ImageType, VYR_TImageType, vyr::kImageTypes, VYR_UnknownType)
VYR_READ_FOLDED(VYR_String2FillLevel, unsigned int, Of(kFillLevelWords), VYR_FillEmpty)
VYR_READ_IGNORING_CASE(VYR_String2Inks, VYR_TInks, Of(kInkWords), VYR_UnknownInk)
VYR_READ_IGNORING_CASE(VYR_String2DefInkTypes, VYR_TDefInkTypes, Of(kDefInkTypeWords),
                       VYR_NoDefInkType)
VYR_READ_IGNORING_CASE(VYR_String2Units, VYR_TMUnits, vyr::kUnits, VYR_Pixel)
VYR_READ_EXACT(VYR_String2CanFlag, VYR_TCanFlag, Of(kCanFlagWords), VYR_CanInvalid)
VYR_READ_EXACT(VYR_String2InterleavedType, VYR_TInterleavedType, Of(kInterleavedWords),
               VYR_UnknownInterleaved)
VYR_READ_EXACT(VYR_String2KnotType, VYR_TKnotType, Of(kKnotTypeWords), VYR_KnotNop)
VYR_READ_EXACT(VYR_String2VerifyStatus, VYR_TVerifyStatus, Of(kVerifyStatusWords), VYR_KeyUnknown)

// An encoding that no preview has gives 0.
VYR_TInkPreviewEnc VYR_String2InkPreviewEnc(const QEN_TString& text) {
  const unsigned value = VYR_String2ChannelEnc(text);
  return static_cast<VYR_TInkPreviewEnc>(IsPreviewEncoding(value) ? value : 0);
}

// The exact names, in a dictionary; the result is also stored in `access`.
VYR_TBufferAccess& VYR_String2Enum(const QEN_TString& text, VYR_TBufferAccess& access) {
  static const QEN_TDict dictionary = MakeDictionary(Of(kBufferAccessWords), false);
  access = static_cast<VYR_TBufferAccess>(LookUp(dictionary, text, VYR_InvalidAccess));
  return access;
}
