// VYR_TImageTicket: the description of one image in one file, filled in steps
// and marked with a fill level; and VYR_TTicketWriter, the one way for the
// side that reads images to fill a ticket.
//
// The fill level is a bit set; the named levels (VYR_FillEmpty ...
// VYR_FillFullInfo in vyr_enums.h) are cumulative masks of it:
//
//   0x1                  File, FileTimeStamp, FileSize, ImagePosition
//   0x2                  FileFormat, FileFormatVersion
//   0x4                  ImageProcessor
//   0x8                  the basic description: types, units, resolutions,
//                        sizes, pixels, margins, encoding, alpha, inks,
//                        rotation, pages, related index
//   0x40, 0x100, 0x200   ExtendedInfo (any of them)
//   0x80                 ExternalRefs
//
// FillLevel, CreatorId and the Internal dictionary depend on no bit. No
// accessor checks the level: a caller reads a field only after seeing from
// FillLevel() that it is filled.
//
// The stored fields describe the image with Rotation applied; the accessors
// ending in NoRot work out the values of the unrotated image on each call.
//
// The read side is public. The filling side is private and reached through
// VYR_TTicketWriter. Note that where a const accessor has a private
// non-const twin (ExtendedInfo, ExternalRefs, Internal(key)), a caller
// outside holding a non-const ticket reads through a const reference.
#ifndef VYR_IMAGE_TICKET_H
#define VYR_IMAGE_TICKET_H

#include <qen/qen_any.h>
#include <qen/qen_containers.h>
#include <qen/qen_object.h>
#include <qen/qen_stream.h>
#include <qen/qen_string.h>
#include <qen/qen_time.h>
#include <qen/qen_url.h>

#include <iosfwd>
#include <memory>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_enums.h"

class VYR_TTicketWriter;
class VYR_TImageProxy;
class QEN_TFileInfo;

// A link from a ticket to a related image of another proxy. The ticket keeps
// only a pointer to it (in Internal, under "ftd link"): whoever makes the
// link keeps it alive for as long as the ticket may be asked, and a copy of
// the ticket shares the same structure. A pointer has no stored form, so a
// ticket that carries a link can be neither packed nor written as text.
struct VYR_TFtdLink {
  int RelatedIndex;
  const VYR_TImageProxy* RelatedProxy;
  VYR_TImageType ImageType;
};

class VYR_API VYR_TImageTicket : public QEN_TObject,
                                 public virtual QEN_IPackable,
                                 public virtual QEN_IHumanReadable,
                                 public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(VYR_TImageTicket)

 public:
  // NrPages and RelatedIndex when they have no meaning: -1.
  static int sInvalidValue;

  // An Empty ticket whose Internal holds only "version" = 11014.
  VYR_TImageTicket();
  // A copy of the groups whose bits are in `other.FillLevel() & mask`.
  // Internal comes along when `other` is not Empty; CreatorId always.
  VYR_TImageTicket(const VYR_TImageTicket& other, unsigned int mask = VYR_FillFullInfo);
  // The same selection, taking over what it selects: ExtendedInfo and
  // ExternalRefs move only when their bits are selected, else they stay.
  VYR_TImageTicket(VYR_TImageTicket&& other, unsigned int mask = VYR_FillFullInfo);
  // Takes FillLevel, Internal and CreatorId, then the groups of that level;
  // fields outside the level keep what this ticket held.
  VYR_TImageTicket& operator=(const VYR_TImageTicket& other);
  VYR_TImageTicket& operator=(VYR_TImageTicket&& other);
  ~VYR_TImageTicket() override;

  // Compares group by group and stops at the named levels 0, 1, 3, 7 and 15.
  // ImageType and ImageSubtype take no part. At any other level two tickets
  // whose ExtendedInfo match (both absent, or both present with equal
  // contents) are equal at once; otherwise they are equal when their
  // ExternalRefs match in the same sense. A missing object is never read.
  bool operator==(const VYR_TImageTicket& other) const;
  bool operator!=(const VYR_TImageTicket& other) const { return !(*this == other); }

  // --- Read access -------------------------------------------------------------
  unsigned int FillLevel() const { return mFillLevel; }
  unsigned char ImagePosition() const { return mImagePosition; }
  VYR_TImageType ImageType() const { return mImageType; }
  VYR_TImageSubtype ImageSubtype() const { return mImageSubtype; }
  const QEN_TString& CreatorId() const { return mCreatorId; }
  const QEN_TString& ImageProcessor() const { return mImageProcessor; }
  const QEN_TURL& File() const { return mFile; }
  const QEN_TTime& FileTimeStamp() const { return mFileTimeStamp; }
  unsigned long long FileSize() const { return mFileSize; }
  const QEN_TString& FileFormat() const { return mFileFormat; }
  const QEN_TString& FileFormatVersion() const { return mFileFormatVersion; }
  VYR_TMUnits MeasurementUnits() const { return mMeasurementUnits; }
  double VResolution() const { return mVResolution; }
  double HResolution() const { return mHResolution; }
  double VRealSize() const { return mVRealSize; }
  double HRealSize() const { return mHRealSize; }
  VYR_TChannelEnc ChannelEncoding() const { return mChannelEncoding; }
  VYR_TAlphaPlane AlphaPlane() const { return mAlphaPlane; }
  unsigned short NrInks() const { return mNrInks; }
  VYR_TImageRotation Rotation() const { return mRotation; }
  int NrPages() const { return mNrPages; }
  int RelatedIndex() const { return mRelatedIndex; }
  double MarginTop() const { return mMarginTop; }
  double MarginLeft() const { return mMarginLeft; }
  double MarginBottom() const { return mMarginBottom; }
  double MarginRight() const { return mMarginRight; }
  unsigned int NrRows() const { return mNrRows; }
  unsigned int NrColumns() const { return mNrColumns; }

  // The image without its rotation. A quarter turn (Rotation 1, 3, 5, 7)
  // swaps the vertical and horizontal values; the margins go round by the
  // rotation table, and a Rotation outside 0 to 7 counts as 0.
  double VResolutionNoRot() const;
  double HResolutionNoRot() const;
  double VRealSizeNoRot() const;
  double HRealSizeNoRot() const;
  double MarginTopNoRot() const;
  double MarginLeftNoRot() const;
  double MarginBottomNoRot() const;
  double MarginRightNoRot() const;

  // --- Extended information and references --------------------------------------
  bool HasExtendedInfo() const { return mExtendedInfo != nullptr; }
  // ExtendedInfo is present and holds the key.
  bool HasKey(const QEN_TString& key) const;
  // Throws VYR_EImageTicketNoExtendedInfo without ExtendedInfo, and
  // VYR_EImageTicketKeyNotFound for a key that it doesn't hold.
  const QEN_TAny& operator[](const QEN_TString& key) const;
  // Throws VYR_EImageTicketNoExtendedInfo when absent.
  const QEN_TDict& ExtendedInfo() const;
  // Present and not empty.
  bool HasExternalRefs() const;
  // The list of VYR_TReference entries, also when empty; throws
  // VYR_EImageTicketNoExternalRefs when absent.
  const QEN_TList& ExternalRefs() const;
  // The value under the key in Internal; QEN_TAny::Illegal() when missing.
  const QEN_TAny& Internal(const QEN_TString& key) const;

  // The "Acquire" and "ODL" flags kept as text in Internal; 0 when unset
  // or not a string.
  VYR_TCanFlag CanAcquire() const;
  VYR_TCanFlag CanODL() const;
  // Store the flag as its text and return it; a flag outside 1 to 3 is
  // stored as "invalid", which reads back as 0.
  VYR_TCanFlag SetCanAcquire(VYR_TCanFlag flag);
  VYR_TCanFlag SetCanODL(VYR_TCanFlag flag);

  // --- Checks against the file ------------------------------------------------------
  // The ticket is of this library's version (11014 exactly) and its file, if
  // it names one, still has the recorded modification time, to the
  // microsecond. Exceptions of VYR_GetFileInfo (a missing file, a protocol
  // other than "file" and "embed") pass to the caller.
  bool IsTicketValid() const;
  // The file and every file of Dependencies can be opened now with nobody
  // else holding them: no other process, and no other open file of this one,
  // has them open, so no copy is still writing them. An embedded image is
  // tested on its container. Never throws: any failure answers false. See
  // docs/tickets.md for what is answered where the system can't tell.
  bool IsImageReady() const;
  // The image can be ripped: below ExtendedInfo always; from there on its
  // encoding, its "BitsPerPlane" (1 or 8 when given), its processor and its
  // "Acquire" flag decide. Throws VYR_EImageTicketNoExtendedInfo at level
  // 127 and above when the encoding passes and ExtendedInfo is absent.
  bool IsRippable() const;
  // The numeric code of the file format, from "MUScode" in ExtendedInfo or
  // the process-wide table of format names; 0 below ExtendedInfo and for a
  // format that has none.
  unsigned short MusCode() const;

  // --- Other files ------------------------------------------------------------------
  // Appends to `list` the files this image needs, from ExternalRefs and the
  // "Separations" array of ExtendedInfo, each reduced to its container file:
  // a QEN_TAny holding the QEN_TURL, or with `withDetails` a QEN_TDict of
  // "URL", "MIME", "Ext", "Count", "PageNr", "ModificationTime", "FileSize"
  // and "MD5Hash" (what the reference knows of them). The ticket's own file
  // is left out. A reference without a protocol makes the result false; it
  // is added, resolved against the ticket's file, only with
  // `resolveRelative`. False with `list` untouched when the level lacks
  // 0x80. Any failure inside is VYR_EImageTicketCannotGetDependencies; what
  // was added by then stays.
  bool Dependencies(QEN_TList& list, bool resolveRelative, bool withDetails) const;

  // --- Stored forms ----------------------------------------------------------------
  // Binary form: the level, Internal and CreatorId, then the groups of the
  // level from the highest bit down. Enumerations and the level travel as
  // QEN_TAny objects holding unsigned 32-bit numbers. Tickets of a version
  // below 9000 stored the level as an ordinal (0 to 6); reading converts it,
  // and such a ticket is written back in its own form.
  void QEN_Pack(QEN_IPacking& out) const override;
  // Reads into this ticket; fields outside the level read keep their values,
  // so read into a default-constructed ticket for a clean one.
  void QEN_Unpack(QEN_IUnpacking& in) override;
  // Moves this ticket into a new one on the heap.
  QEN_IPackable* QEN_Move(void* = nullptr) override;

  // Everything the ticket knows, under keys that begin with a blank
  // (" FillLevel", " File", ...), followed by the entries of ExtendedInfo
  // and " ExternalRefs" when present. A one-way export.
  operator QEN_TDict();

  // Text form: one line per item, in the order of the binary form. The
  // reader has its own tables of enumeration names.
  bool WriteTo(QEN_THumanReadableStream& out) const override;
  bool ReadFrom(QEN_THumanReadableStream& in) override;
  bool QEN_HRMultiLine() const override { return true; }
  // A labelled listing for people; nothing reads it back.
  void PrintOn(std::ostream& out) const override;

 protected:
  // The value under the key in Internal, created when missing.
  QEN_TAny& Internal(const QEN_TString& key);

 private:
  friend class VYR_TTicketWriter;

  // --- The filling side: each stores its argument and returns what it
  // stored; none changes the fill level but SetFillLevel. ---
  unsigned int SetFillLevel(unsigned int level);
  unsigned char SetImagePosition(unsigned char position);
  VYR_TImageType SetImageType(VYR_TImageType type);
  VYR_TImageSubtype SetImageSubtype(VYR_TImageSubtype subtype);
  const QEN_TString& SetCreatorId(const QEN_TString& creatorId);
  const QEN_TString& SetImageProcessor(const QEN_TString& processor);
  const QEN_TString& SetFileFormat(const QEN_TString& format);
  const QEN_TString& SetFileFormatVersion(const QEN_TString& version);
  const QEN_TTime& SetFileTimeStamp(const QEN_TTime& stamp);
  unsigned long long SetFileSize(unsigned long long size);
  VYR_TMUnits SetMeasurementUnits(VYR_TMUnits units);
  VYR_TChannelEnc SetChannelEncoding(VYR_TChannelEnc encoding);
  VYR_TAlphaPlane SetAlphaPlane(VYR_TAlphaPlane alpha);
  VYR_TImageRotation SetRotation(VYR_TImageRotation rotation);
  // The values of the image as it is stored, that is with Rotation applied.
  double SetVResolution(double value);
  double SetHResolution(double value);
  double SetVRealSize(double value);
  double SetHRealSize(double value);
  double SetMarginTop(double value);
  double SetMarginLeft(double value);
  double SetMarginBottom(double value);
  double SetMarginRight(double value);
  unsigned short SetNrInks(unsigned short inks);
  unsigned int SetNrPages(unsigned int pages);
  unsigned int SetNrRows(unsigned int rows);
  unsigned int SetNrColumns(unsigned int columns);
  unsigned int SetRelatedIndex(unsigned int index);
  // Binds the ticket to its file: the time stamp and size as the file
  // system gives them now, then File.
  const QEN_TURL& SetFile(const QEN_TURL& url);
  // The same with the facts the caller has. For an "embed" URL the size is
  // the range's "embed.length", or the rest of the container when that is 0
  // and the position is below 4 GiB, else 0. Any protocol but "file" and
  // "embed" throws VYR_EImageTicketUnsupprotedFileFormat and changes nothing.
  const QEN_TURL& SetFile(const QEN_TURL& url, const QEN_TFileInfo& info);
  // The link to a related image; see VYR_TFtdLink. A null link leaves the
  // one there; removing forgets the pointer and deletes nothing.
  void SetFtdLink(VYR_TFtdLink* link);
  const VYR_TFtdLink* GetFtdLink() const;
  void RemoveFtdLink();
  bool ValidFtdLink() const;
  // The link's fields, or 0, sInvalidValue and null without a link.
  VYR_TImageType FtdImageType() const;
  int FtdRelatedIndex() const;
  const VYR_TImageProxy* FtdRelatedProxy() const;
  // RelatedIndex becomes FtdRelatedIndex().
  unsigned int SetRelatedIndex();
  // Created empty on first use; owned by the ticket.
  QEN_TDict& ExtendedInfo();
  QEN_TList& ExternalRefs();
  QEN_TDict& Internal();
  // Back to FileAssigned: the groups above bit 0x1 cleared, ExtendedInfo
  // and ExternalRefs deleted, "version" set to 11014. An Empty ticket only
  // loses its two objects.
  void Wipe();

  // Takes the groups of `level` from `other`, copying from a const ticket
  // and moving from an rvalue.
  template <class Other>
  void TakeGroups(Other&& other, unsigned int level);
  // The basic-description fields as Wipe leaves them.
  void ClearBasicInfo();
  // Gives Internal the ticket version unless it has one.
  void EnsureVersion();

  unsigned int mFillLevel = 0;
  unsigned char mImagePosition = 0;
  VYR_TImageType mImageType = VYR_UnknownType;
  VYR_TImageSubtype mImageSubtype = VYR_UnknownSubtype;
  QEN_TDict mInternal;
  QEN_TString mCreatorId;
  QEN_TString mImageProcessor;
  QEN_TURL mFile;
  QEN_TTime mFileTimeStamp;
  unsigned long long mFileSize = 0;
  QEN_TString mFileFormat;
  QEN_TString mFileFormatVersion;
  VYR_TMUnits mMeasurementUnits = VYR_Pixel;
  double mVResolution = 0.0;
  double mHResolution = 0.0;
  double mVRealSize = 0.0;
  double mHRealSize = 0.0;
  VYR_TChannelEnc mChannelEncoding = VYR_UnknownChannelEncoding;
  VYR_TAlphaPlane mAlphaPlane = VYR_AlphaNone;
  unsigned short mNrInks = 0;
  VYR_TImageRotation mRotation = VYR_NotRotated;
  std::unique_ptr<QEN_TDict> mExtendedInfo;
  int mNrPages = -1;
  int mRelatedIndex = -1;
  std::unique_ptr<QEN_TList> mExternalRefs;
  double mMarginTop = 0.0;
  double mMarginLeft = 0.0;
  double mMarginBottom = 0.0;
  double mMarginRight = 0.0;
  unsigned int mNrRows = 0;
  unsigned int mNrColumns = 0;
};

// The filling side of a ticket, for the modules that read images, for tools
// and for tests. Set the fields of a level, then raise the level to the
// named value:
//
//   VYR_TImageTicket ticket;
//   VYR_TTicketWriter writer(ticket);
//   writer.AssignFile(url, stamp, size);
//   writer.SetImagePosition(0);
//   writer.SetFillLevel(VYR_FillFileAssigned);
//
// A level that promises a field that was not set carries whatever the field
// holds, into the stored forms too. The writer holds a reference: it must
// not outlive its ticket.
class VYR_API VYR_TTicketWriter {
 public:
  explicit VYR_TTicketWriter(VYR_TImageTicket& ticket) : mTicket(ticket) {}
  VYR_TTicketWriter(const VYR_TTicketWriter&) = delete;
  VYR_TTicketWriter& operator=(const VYR_TTicketWriter&) = delete;

  VYR_TImageTicket& Ticket() const { return mTicket; }

  unsigned int SetFillLevel(unsigned int level) { return mTicket.SetFillLevel(level); }
  unsigned char SetImagePosition(unsigned char position) {
    return mTicket.SetImagePosition(position);
  }
  VYR_TImageType SetImageType(VYR_TImageType type) { return mTicket.SetImageType(type); }
  VYR_TImageSubtype SetImageSubtype(VYR_TImageSubtype subtype) {
    return mTicket.SetImageSubtype(subtype);
  }
  const QEN_TString& SetCreatorId(const QEN_TString& id) { return mTicket.SetCreatorId(id); }
  const QEN_TString& SetImageProcessor(const QEN_TString& processor) {
    return mTicket.SetImageProcessor(processor);
  }
  const QEN_TString& SetFileFormat(const QEN_TString& format) {
    return mTicket.SetFileFormat(format);
  }
  const QEN_TString& SetFileFormatVersion(const QEN_TString& version) {
    return mTicket.SetFileFormatVersion(version);
  }
  // The file as the caller knows it, stamp and size included, without
  // asking the file system: for a reader that has the facts already, or a
  // file that is not on a disk.
  const QEN_TURL& AssignFile(const QEN_TURL& url, const QEN_TTime& stamp, unsigned long long size) {
    mTicket.SetFileTimeStamp(stamp);
    mTicket.SetFileSize(size);
    return mTicket.mFile = url;
  }
  const QEN_TTime& SetFileTimeStamp(const QEN_TTime& stamp) {
    return mTicket.SetFileTimeStamp(stamp);
  }
  unsigned long long SetFileSize(unsigned long long size) { return mTicket.SetFileSize(size); }
  VYR_TMUnits SetMeasurementUnits(VYR_TMUnits units) { return mTicket.SetMeasurementUnits(units); }
  VYR_TChannelEnc SetChannelEncoding(VYR_TChannelEnc encoding) {
    return mTicket.SetChannelEncoding(encoding);
  }
  VYR_TAlphaPlane SetAlphaPlane(VYR_TAlphaPlane alpha) { return mTicket.SetAlphaPlane(alpha); }
  VYR_TImageRotation SetRotation(VYR_TImageRotation rotation) {
    return mTicket.SetRotation(rotation);
  }
  double SetVResolution(double value) { return mTicket.SetVResolution(value); }
  double SetHResolution(double value) { return mTicket.SetHResolution(value); }
  double SetVRealSize(double value) { return mTicket.SetVRealSize(value); }
  double SetHRealSize(double value) { return mTicket.SetHRealSize(value); }
  double SetMarginTop(double value) { return mTicket.SetMarginTop(value); }
  double SetMarginLeft(double value) { return mTicket.SetMarginLeft(value); }
  double SetMarginBottom(double value) { return mTicket.SetMarginBottom(value); }
  double SetMarginRight(double value) { return mTicket.SetMarginRight(value); }
  unsigned short SetNrInks(unsigned short inks) { return mTicket.SetNrInks(inks); }
  unsigned int SetNrPages(unsigned int pages) { return mTicket.SetNrPages(pages); }
  unsigned int SetNrRows(unsigned int rows) { return mTicket.SetNrRows(rows); }
  unsigned int SetNrColumns(unsigned int columns) { return mTicket.SetNrColumns(columns); }
  unsigned int SetRelatedIndex(unsigned int index) { return mTicket.SetRelatedIndex(index); }
  // The file with its stamp and size from the file system, or from `info`.
  const QEN_TURL& SetFile(const QEN_TURL& url) { return mTicket.SetFile(url); }
  const QEN_TURL& SetFile(const QEN_TURL& url, const QEN_TFileInfo& info) {
    return mTicket.SetFile(url, info);
  }
  void SetFtdLink(VYR_TFtdLink* link) { mTicket.SetFtdLink(link); }
  const VYR_TFtdLink* GetFtdLink() const { return mTicket.GetFtdLink(); }
  void RemoveFtdLink() { mTicket.RemoveFtdLink(); }
  bool ValidFtdLink() const { return mTicket.ValidFtdLink(); }
  VYR_TImageType FtdImageType() const { return mTicket.FtdImageType(); }
  int FtdRelatedIndex() const { return mTicket.FtdRelatedIndex(); }
  const VYR_TImageProxy* FtdRelatedProxy() const { return mTicket.FtdRelatedProxy(); }
  unsigned int SetRelatedIndex() { return mTicket.SetRelatedIndex(); }
  QEN_TDict& ExtendedInfo() { return mTicket.ExtendedInfo(); }
  QEN_TList& ExternalRefs() { return mTicket.ExternalRefs(); }
  QEN_TDict& Internal() { return mTicket.Internal(); }
  QEN_TAny& Internal(const QEN_TString& key) { return mTicket.Internal(key); }
  void Wipe() { mTicket.Wipe(); }

 private:
  VYR_TImageTicket& mTicket;
};

#endif
