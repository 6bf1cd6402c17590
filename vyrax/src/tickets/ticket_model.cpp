// The ticket as a value: construction, copying with a mask, assignment,
// comparison, Wipe and the accessors.
#define VYR_SOURCE_NAME "Private/Source/vyr_image_ticket"

#include <new>
#include <type_traits>
#include <utility>

#include "core/vyr_throw.h"
#include "tickets/ticket_levels.h"
#include "vyrax/vyr_image_ticket.h"

using namespace vyr_ticket;

int VYR_TImageTicket::sInvalidValue = -1;

VYR_TImageTicket::VYR_TImageTicket() : mInternal(NewInternal()) {}

VYR_TImageTicket::VYR_TImageTicket(const VYR_TImageTicket& other, unsigned int mask)
    : QEN_TObject(other), mFillLevel(other.mFillLevel & mask), mCreatorId(other.mCreatorId) {
  // An Empty ticket's bookkeeping is not worth keeping; any other's is.
  if (other.mFillLevel != 0) mInternal = other.mInternal;
  TakeGroups(other, mFillLevel);
  EnsureVersion();
}

VYR_TImageTicket::VYR_TImageTicket(VYR_TImageTicket&& other, unsigned int mask)
    : QEN_TObject(other),
      mFillLevel(other.mFillLevel & mask),
      mCreatorId(std::move(other.mCreatorId)) {
  if (other.mFillLevel != 0) mInternal = std::move(other.mInternal);
  TakeGroups(std::move(other), mFillLevel);
  EnsureVersion();
}

VYR_TImageTicket& VYR_TImageTicket::operator=(const VYR_TImageTicket& other) {
  if (this == &other) return *this;
  mExtendedInfo.reset();
  mExternalRefs.reset();
  mFillLevel = other.mFillLevel;
  mInternal = other.mInternal;
  mCreatorId = other.mCreatorId;
  TakeGroups(other, mFillLevel);
  EnsureVersion();
  return *this;
}

VYR_TImageTicket& VYR_TImageTicket::operator=(VYR_TImageTicket&& other) {
  if (this == &other) return *this;
  mExtendedInfo.reset();
  mExternalRefs.reset();
  mFillLevel = other.mFillLevel;
  mInternal = std::move(other.mInternal);
  mCreatorId = std::move(other.mCreatorId);
  TakeGroups(std::move(other), mFillLevel);
  EnsureVersion();
  return *this;
}

VYR_TImageTicket::~VYR_TImageTicket() = default;

QEN_IPackable* VYR_TImageTicket::QEN_Move(void*) {
  return new (std::nothrow) VYR_TImageTicket(std::move(*this), VYR_FillFullInfo);
}

template <class Other>
void VYR_TImageTicket::TakeGroups(Other&& other, unsigned int level) {
  constexpr bool kMove = !std::is_lvalue_reference<Other>::value;
  // std::forward on each member gives a copy from an lvalue, a move from an
  // rvalue; only the owned objects need telling apart.
  if ((level & kExternalRefsBit) && other.mExternalRefs) {
    if constexpr (kMove)
      mExternalRefs = std::move(other.mExternalRefs);
    else
      mExternalRefs.reset(new QEN_TList(*other.mExternalRefs));
  }
  if ((level & kExtendedInfoBits) && other.mExtendedInfo) {
    if constexpr (kMove)
      mExtendedInfo = std::move(other.mExtendedInfo);
    else
      mExtendedInfo.reset(new QEN_TDict(*other.mExtendedInfo));
  }
  if (level & kBasicInfoBit) {
    mImageType = other.mImageType;
    mImageSubtype = other.mImageSubtype;
    mMeasurementUnits = other.mMeasurementUnits;
    mVResolution = other.mVResolution;
    mHResolution = other.mHResolution;
    mVRealSize = other.mVRealSize;
    mHRealSize = other.mHRealSize;
    mNrRows = other.mNrRows;
    mNrColumns = other.mNrColumns;
    mMarginTop = other.mMarginTop;
    mMarginLeft = other.mMarginLeft;
    mMarginBottom = other.mMarginBottom;
    mMarginRight = other.mMarginRight;
    mChannelEncoding = other.mChannelEncoding;
    mAlphaPlane = other.mAlphaPlane;
    mNrInks = other.mNrInks;
    mRotation = other.mRotation;
    mNrPages = other.mNrPages;
    mRelatedIndex = other.mRelatedIndex;
  }
  if (level & kProcessorBit) mImageProcessor = std::forward<Other>(other).mImageProcessor;
  if (level & kFileTypeBit) {
    mFileFormat = std::forward<Other>(other).mFileFormat;
    mFileFormatVersion = std::forward<Other>(other).mFileFormatVersion;
  }
  if (level & kFileBit) {
    mImagePosition = other.mImagePosition;
    mFile = std::forward<Other>(other).mFile;
    mFileTimeStamp = other.mFileTimeStamp;
    mFileSize = other.mFileSize;
  }
}

void VYR_TImageTicket::EnsureVersion() {
  if (!mInternal.HasKey(VersionKey())) mInternal[VersionKey()] = kTicketVersion;
}

void VYR_TImageTicket::ClearBasicInfo() {
  mImageType = VYR_UnknownType;
  mImageSubtype = VYR_UnknownSubtype;
  mMeasurementUnits = VYR_Pixel;
  mVResolution = mHResolution = mVRealSize = mHRealSize = 0.0;
  mNrRows = mNrColumns = 0;
  mMarginTop = mMarginLeft = mMarginBottom = mMarginRight = 0.0;
  mChannelEncoding = VYR_UnknownChannelEncoding;
  mAlphaPlane = VYR_AlphaNone;
  mNrInks = 0;
  mRotation = VYR_NotRotated;
  mNrPages = sInvalidValue;
  mRelatedIndex = sInvalidValue;
}

void VYR_TImageTicket::Wipe() {
  mExtendedInfo.reset();
  mExternalRefs.reset();
  if (mFillLevel == 0) return;
  mFillLevel = VYR_FillFileAssigned;
  ClearBasicInfo();
  mImageProcessor = QEN_TString();
  mFileFormat = QEN_TString();
  mFileFormatVersion = QEN_TString();
  mInternal[VersionKey()] = kTicketVersion;
}

namespace {

// Both absent, or both present with equal contents.
template <class T>
bool SameObject(const std::unique_ptr<T>& a, const std::unique_ptr<T>& b) {
  if (!a || !b) return !a && !b;
  return *a == *b;
}

}  // namespace

bool VYR_TImageTicket::operator==(const VYR_TImageTicket& other) const {
  if (mFillLevel != other.mFillLevel || mCreatorId != other.mCreatorId ||
      mInternal != other.mInternal)
    return false;
  if (mFillLevel == VYR_FillEmpty) return true;

  if (mFile != other.mFile || mFileTimeStamp != other.mFileTimeStamp ||
      mFileSize != other.mFileSize || mImagePosition != other.mImagePosition)
    return false;
  if (mFillLevel == VYR_FillFileAssigned) return true;

  if (mFileFormat != other.mFileFormat || mFileFormatVersion != other.mFileFormatVersion)
    return false;
  if (mFillLevel == VYR_FillFileType) return true;

  if (mImageProcessor != other.mImageProcessor) return false;
  if (mFillLevel == VYR_FillImageProcessor) return true;

  // Doubles compare as doubles: a NaN differs from everything.
  if (mMeasurementUnits != other.mMeasurementUnits || mVResolution != other.mVResolution ||
      mHResolution != other.mHResolution || mVRealSize != other.mVRealSize ||
      mHRealSize != other.mHRealSize || mNrRows != other.mNrRows ||
      mNrColumns != other.mNrColumns || mMarginTop != other.mMarginTop ||
      mMarginLeft != other.mMarginLeft || mMarginRight != other.mMarginRight ||
      mMarginBottom != other.mMarginBottom || mChannelEncoding != other.mChannelEncoding ||
      mAlphaPlane != other.mAlphaPlane || mNrInks != other.mNrInks ||
      mRotation != other.mRotation || mNrPages != other.mNrPages ||
      mRelatedIndex != other.mRelatedIndex)
    return false;
  if (mFillLevel == VYR_FillBasicInfo) return true;

  // Matching extended descriptions settle it; otherwise the references do.
  return SameObject(mExtendedInfo, other.mExtendedInfo) ||
         SameObject(mExternalRefs, other.mExternalRefs);
}

// --- Rotation ---------------------------------------------------------------------

namespace {

bool IsQuarterTurn(VYR_TImageRotation rotation) {
  return rotation == VYR_Rot90 || rotation == VYR_Rot270 || rotation == VYR_MirRot90 ||
         rotation == VYR_MirRot270;
}

enum Side { kTop, kLeft, kBottom, kRight };

// For each rotation, the stored side that each unrotated side (top, left,
// bottom, right) comes from.
const Side kMarginSource[8][4] = {
    {kTop, kLeft, kBottom, kRight},  // NotRotated
    {kLeft, kBottom, kRight, kTop},  // Rot90
    {kBottom, kRight, kTop, kLeft},  // Rot180
    {kRight, kTop, kLeft, kBottom},  // Rot270
    {kTop, kRight, kBottom, kLeft},  // Mirrored
    {kRight, kBottom, kLeft, kTop},  // MirRot90
    {kBottom, kLeft, kTop, kRight},  // MirRot180
    {kLeft, kTop, kRight, kBottom},  // MirRot270
};

}  // namespace

double VYR_TImageTicket::VResolutionNoRot() const {
  return IsQuarterTurn(mRotation) ? mHResolution : mVResolution;
}
double VYR_TImageTicket::HResolutionNoRot() const {
  return IsQuarterTurn(mRotation) ? mVResolution : mHResolution;
}
double VYR_TImageTicket::VRealSizeNoRot() const {
  return IsQuarterTurn(mRotation) ? mHRealSize : mVRealSize;
}
double VYR_TImageTicket::HRealSizeNoRot() const {
  return IsQuarterTurn(mRotation) ? mVRealSize : mHRealSize;
}

#define VYR_MARGIN_NOROT(Name, kSide)                                                \
  double VYR_TImageTicket::Name() const {                                            \
    const unsigned row = mRotation <= VYR_MirRot270 ? mRotation : VYR_NotRotated;    \
    const double stored[4] = {mMarginTop, mMarginLeft, mMarginBottom, mMarginRight}; \
    return stored[kMarginSource[row][kSide]];                                        \
  }
VYR_MARGIN_NOROT(MarginTopNoRot, kTop)
VYR_MARGIN_NOROT(MarginLeftNoRot, kLeft)
VYR_MARGIN_NOROT(MarginBottomNoRot, kBottom)
VYR_MARGIN_NOROT(MarginRightNoRot, kRight)
#undef VYR_MARGIN_NOROT

// --- Extended information, references, Internal --------------------------------------

bool VYR_TImageTicket::HasKey(const QEN_TString& key) const {
  return mExtendedInfo && mExtendedInfo->HasKey(key);
}

const QEN_TAny& VYR_TImageTicket::operator[](const QEN_TString& key) const {
  const QEN_TAny* value = ExtendedInfo().Lookup(key);
  if (value == nullptr) VYR_THROW(VYR_EImageTicketKeyNotFound, "Missing key : \"%s\"", key);
  return *value;
}

const QEN_TDict& VYR_TImageTicket::ExtendedInfo() const {
  if (!mExtendedInfo) VYR_THROW(VYR_EImageTicketNoExtendedInfo);
  return *mExtendedInfo;
}

QEN_TDict& VYR_TImageTicket::ExtendedInfo() {
  if (!mExtendedInfo) mExtendedInfo.reset(new QEN_TDict());
  return *mExtendedInfo;
}

bool VYR_TImageTicket::HasExternalRefs() const {
  return mExternalRefs && !mExternalRefs->IsEmpty();
}

const QEN_TList& VYR_TImageTicket::ExternalRefs() const {
  if (!mExternalRefs) VYR_THROW(VYR_EImageTicketNoExternalRefs);
  return *mExternalRefs;
}

QEN_TList& VYR_TImageTicket::ExternalRefs() {
  if (!mExternalRefs) mExternalRefs.reset(new QEN_TList());
  return *mExternalRefs;
}

const QEN_TAny& VYR_TImageTicket::Internal(const QEN_TString& key) const { return mInternal[key]; }

QEN_TAny& VYR_TImageTicket::Internal(const QEN_TString& key) { return mInternal[key]; }

QEN_TDict& VYR_TImageTicket::Internal() { return mInternal; }

// --- The filling side ---------------------------------------------------------------

unsigned int VYR_TImageTicket::SetFillLevel(unsigned int level) { return mFillLevel = level; }
unsigned char VYR_TImageTicket::SetImagePosition(unsigned char position) {
  return mImagePosition = position;
}
VYR_TImageType VYR_TImageTicket::SetImageType(VYR_TImageType type) { return mImageType = type; }
VYR_TImageSubtype VYR_TImageTicket::SetImageSubtype(VYR_TImageSubtype subtype) {
  return mImageSubtype = subtype;
}
const QEN_TString& VYR_TImageTicket::SetCreatorId(const QEN_TString& creatorId) {
  return mCreatorId = creatorId;
}
const QEN_TString& VYR_TImageTicket::SetImageProcessor(const QEN_TString& processor) {
  return mImageProcessor = processor;
}
const QEN_TString& VYR_TImageTicket::SetFileFormat(const QEN_TString& format) {
  return mFileFormat = format;
}
const QEN_TString& VYR_TImageTicket::SetFileFormatVersion(const QEN_TString& version) {
  return mFileFormatVersion = version;
}
const QEN_TTime& VYR_TImageTicket::SetFileTimeStamp(const QEN_TTime& stamp) {
  return mFileTimeStamp = stamp;
}
unsigned long long VYR_TImageTicket::SetFileSize(unsigned long long size) {
  return mFileSize = size;
}
VYR_TMUnits VYR_TImageTicket::SetMeasurementUnits(VYR_TMUnits units) {
  return mMeasurementUnits = units;
}
VYR_TChannelEnc VYR_TImageTicket::SetChannelEncoding(VYR_TChannelEnc encoding) {
  return mChannelEncoding = encoding;
}
VYR_TAlphaPlane VYR_TImageTicket::SetAlphaPlane(VYR_TAlphaPlane alpha) {
  return mAlphaPlane = alpha;
}
VYR_TImageRotation VYR_TImageTicket::SetRotation(VYR_TImageRotation rotation) {
  return mRotation = rotation;
}
double VYR_TImageTicket::SetVResolution(double value) { return mVResolution = value; }
double VYR_TImageTicket::SetHResolution(double value) { return mHResolution = value; }
double VYR_TImageTicket::SetVRealSize(double value) { return mVRealSize = value; }
double VYR_TImageTicket::SetHRealSize(double value) { return mHRealSize = value; }
double VYR_TImageTicket::SetMarginTop(double value) { return mMarginTop = value; }
double VYR_TImageTicket::SetMarginLeft(double value) { return mMarginLeft = value; }
double VYR_TImageTicket::SetMarginBottom(double value) { return mMarginBottom = value; }
double VYR_TImageTicket::SetMarginRight(double value) { return mMarginRight = value; }
unsigned short VYR_TImageTicket::SetNrInks(unsigned short inks) { return mNrInks = inks; }
unsigned int VYR_TImageTicket::SetNrPages(unsigned int pages) {
  mNrPages = static_cast<int>(pages);
  return pages;
}
unsigned int VYR_TImageTicket::SetNrRows(unsigned int rows) { return mNrRows = rows; }
unsigned int VYR_TImageTicket::SetNrColumns(unsigned int columns) { return mNrColumns = columns; }
unsigned int VYR_TImageTicket::SetRelatedIndex(unsigned int index) {
  mRelatedIndex = static_cast<int>(index);
  return index;
}
