// The small vocabularies of image descriptions and their text forms.
//
// The numbers are stored in packed tickets and the texts stand in text
// streams, configuration and metadata, so neither may ever change. The two
// directions are deliberately not mirror images: VYR_Enum2String writes
// mixed-case names, while each VYR_String2... function has its own matching
// rule (exact, case-folded dictionary, or case-ignoring scan) and its own
// default for a text it doesn't know. None of them throws.
#ifndef VYR_ENUMS_H
#define VYR_ENUMS_H

#include <qen/qen_string.h>

#include "vyrax/vyr_api.h"

// Every enumeration is a 32-bit value; a value outside the named ones is
// legal and has its own text ("Unknown...", "Undefined...").

// The channel encoding of an image.
enum VYR_TChannelEnc : unsigned int {
  VYR_UnknownChannelEncoding = 0,
  VYR_Bitmap = 1,
  VYR_Colored = 2,
  VYR_IndexedRgb = 3,
  VYR_IndexedCmyk = 4,
  VYR_NamedIndexed = 5,
  VYR_Intensity = 6,
  VYR_Grayscale = 7,
  VYR_NamedIntensity = 8,
  VYR_Multitone = 9,
  VYR_Rgb = 10,
  VYR_Cmyk = 11,
  VYR_Labcolor = 12,
  VYR_YCbCr = 13,
  VYR_Hsv = 14,
  VYR_Multichannel = 15,
  VYR_NamedMultichannel = 16,
  VYR_YCbCrK = 17
};

// The encodings an ink preview may have, with the numbers of the channel
// encodings: Rgb, Labcolor and Hsv carry three values, Cmyk four.
enum VYR_TInkPreviewEnc : unsigned int {
  VYR_PreviewNone = 0,
  VYR_PreviewRgb = 10,
  VYR_PreviewCmyk = 11,
  VYR_PreviewLabcolor = 12,
  VYR_PreviewHsv = 14
};

enum VYR_TAlphaPlane : unsigned int {
  VYR_AlphaNone = 0,
  VYR_AlphaNormal = 1,
  VYR_AlphaPremultiplied = 2,
  VYR_AlphaOne = 3,
  VYR_AlphaUnknown = 4
};

enum VYR_TBufferAccess : unsigned int {
  VYR_ReadOnly = 0,
  VYR_ReadWrite = 1,
  VYR_CopyOnWrite = 2,
  VYR_InvalidAccess = 3
};

// What a module may do with an image: the "Acquire" and "ODL" flags.
enum VYR_TCanFlag : unsigned int {
  VYR_CanInvalid = 0,
  VYR_CanNone = 1,
  VYR_CanLimited = 2,
  VYR_CanFull = 3
};

enum VYR_TDefInkTypes : unsigned int {
  VYR_NoDefInkType = 0,
  VYR_ProcessInks = 1,
  VYR_DisplayInks = 2,
  VYR_DesignerInks = 3
};

enum VYR_TImageRotation : unsigned int {
  VYR_NotRotated = 0,
  VYR_Rot90 = 1,
  VYR_Rot180 = 2,
  VYR_Rot270 = 3,
  VYR_Mirrored = 4,
  VYR_MirRot90 = 5,
  VYR_MirRot180 = 6,
  VYR_MirRot270 = 7
};

enum VYR_TImageSubtype : unsigned int {
  VYR_UnknownSubtype = 0,
  VYR_SubtypeCT = 1,
  VYR_SubtypeLP = 2,
  VYR_SubtypeLW = 3,
  VYR_SubtypeHC = 4,
  VYR_SubtypeFP = 5
};

enum VYR_TImageType : unsigned int {
  VYR_UnknownType = 0,
  VYR_TypePreview = 1,
  VYR_TypeIcon = 2,
  VYR_TypeImage = 3,
  VYR_TypeInternal = 4,
  VYR_TypeProduction = 5
};

enum VYR_TInks : unsigned int {
  VYR_UnknownInk = 0,
  VYR_InkCyan = 1,
  VYR_InkMagenta = 2,
  VYR_InkYellow = 3,
  VYR_InkBlack = 4,
  VYR_InkRed = 5,
  VYR_InkGreen = 6,
  VYR_InkBlue = 7
};

enum VYR_TInterleavedType : unsigned int {
  VYR_UnknownInterleaved = 0,
  VYR_PixelInterleaved = 1,
  VYR_LineInterleaved = 2,
  VYR_PlaneInterleaved = 3
};

enum VYR_TKnotType : unsigned int {
  VYR_KnotNop = 0,
  VYR_KnotMoveTo = 1,
  VYR_KnotClose = 2,
  VYR_KnotLinkLineTo = 3,
  VYR_KnotNormLineTo = 4,
  VYR_KnotLinkCurveTo = 5,
  VYR_KnotNormCurveTo = 6
};

// Units of measurement. Pixel sizes depend on a resolution.
enum VYR_TMUnits : unsigned int {
  VYR_Pixel = 0,
  VYR_MM = 1,
  VYR_CM = 2,
  VYR_Inch = 3,
  VYR_Mil = 4
};

enum VYR_TVerifyStatus : unsigned int {
  VYR_KeyUnknown = 0,
  VYR_KeyDifferent = 1,
  VYR_KeyEqual = 2
};

// The named fill levels of a ticket. The fill level is a bit set, not an
// enumeration; these are its cumulative masks.
constexpr unsigned int VYR_FillEmpty = 0u;
constexpr unsigned int VYR_FillFileAssigned = 1u;
constexpr unsigned int VYR_FillFileType = 3u;
constexpr unsigned int VYR_FillImageProcessor = 7u;
constexpr unsigned int VYR_FillBasicInfo = 15u;
constexpr unsigned int VYR_FillExtendedInfo = 127u;
constexpr unsigned int VYR_FillFullInfo = 0x6FFFu;

// --- To text ---------------------------------------------------------------

VYR_API QEN_TString VYR_Enum2String(VYR_TChannelEnc value);
// The same text as the channel encoding of that number.
VYR_API QEN_TString VYR_Enum2String(VYR_TInkPreviewEnc value);
VYR_API QEN_TString VYR_Enum2String(VYR_TAlphaPlane value);
VYR_API QEN_TString VYR_Enum2String(VYR_TBufferAccess value);
VYR_API QEN_TString VYR_Enum2String(VYR_TCanFlag value);
VYR_API QEN_TString VYR_Enum2String(VYR_TDefInkTypes value);
VYR_API QEN_TString VYR_Enum2String(VYR_TImageRotation value);
VYR_API QEN_TString VYR_Enum2String(VYR_TImageSubtype value);
VYR_API QEN_TString VYR_Enum2String(VYR_TImageType value);
VYR_API QEN_TString VYR_Enum2String(VYR_TInks value);
VYR_API QEN_TString VYR_Enum2String(VYR_TInterleavedType value);
VYR_API QEN_TString VYR_Enum2String(VYR_TKnotType value);
VYR_API QEN_TString VYR_Enum2String(VYR_TMUnits value);
VYR_API QEN_TString VYR_Enum2String(VYR_TVerifyStatus value);
// The fill level: a named level, or "UnknownFillLevel".
VYR_API QEN_TString VYR_Enum2String(unsigned int fillLevel);

// --- From text ---------------------------------------------------------------
// Lower-case keys, the input folded to lower case first:
VYR_API VYR_TChannelEnc VYR_String2ChannelEnc(const QEN_TString& text);  // default 0
// As VYR_String2ChannelEnc; an encoding that no preview has gives 0.
VYR_API VYR_TInkPreviewEnc VYR_String2InkPreviewEnc(const QEN_TString& text);
VYR_API VYR_TAlphaPlane VYR_String2AlphaPlane(const QEN_TString& text);        // default 4
VYR_API VYR_TImageRotation VYR_String2ImageRotation(const QEN_TString& text);  // default 0
VYR_API VYR_TImageType VYR_String2ImageType(const QEN_TString& text);          // default 0
VYR_API unsigned int VYR_String2FillLevel(const QEN_TString& text);            // default 0
// The exact mixed-case names; anything else stores 3 (InvalidAccess).
VYR_API VYR_TBufferAccess& VYR_String2Enum(const QEN_TString& text, VYR_TBufferAccess& access);
// Case ignored, default 0:
VYR_API VYR_TInks VYR_String2Inks(const QEN_TString& text);
VYR_API VYR_TDefInkTypes VYR_String2DefInkTypes(const QEN_TString& text);
// "MM", "Inch", "CM", "Mil"; Pixel is no key, it is the default.
VYR_API VYR_TMUnits VYR_String2Units(const QEN_TString& text);
// Exact, default 0:
VYR_API VYR_TCanFlag VYR_String2CanFlag(const QEN_TString& text);
VYR_API VYR_TInterleavedType VYR_String2InterleavedType(const QEN_TString& text);
VYR_API VYR_TKnotType VYR_String2KnotType(const QEN_TString& text);
VYR_API VYR_TVerifyStatus VYR_String2VerifyStatus(const QEN_TString& text);

// --- Other conversions ---------------------------------------------------------

// True for the palette encodings IndexedRgb, IndexedCmyk and NamedIndexed.
VYR_API bool VYR_IsIndexedEncoding(VYR_TChannelEnc encoding);
// The encoding of a palette's colours: IndexedRgb gives Rgb, IndexedCmyk
// Cmyk, NamedIndexed NamedMultichannel; anything else comes back unchanged.
VYR_API VYR_TChannelEnc VYR_IndexedEncoding2True(VYR_TChannelEnc encoding);
// `value` in unit `from` expressed in unit `to`; `resolution` is the pixels
// per inch wherever Pixel is involved. Defined for the five named units.
VYR_API double VYR_Size2Size(double value, VYR_TMUnits from, VYR_TMUnits to, double resolution);

#endif
