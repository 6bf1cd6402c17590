// VYR_TImageProxy: the tickets of one file (the image, its previews, its
// icons) and which of them is selected; and VYR_TIPIterator and
// VYR_TIPIterationInfo, the walk over a proxy's tickets filtered by image
// type or related image.
//
// The proxy does not look into files: whoever reads the file builds it,
// from a ticket, through Tickets() of a derived class, or by reading a
// stored proxy. No operation of this class adds or removes a ticket.
//
// The selection is a key of the proxy's own list, so it stays on its ticket
// as the list changes. Wherever a selection leaves the object (a copy, the
// stored forms, a comparison) it becomes an index, and a proxy with no
// selection stands as the index Entries(), which reads back as none.
//
// A proxy belongs to one thread at a time, like a ticket.
#ifndef VYR_IMAGE_PROXY_H
#define VYR_IMAGE_PROXY_H

#include <qen/qen_containers.h>
#include <qen/qen_object.h>
#include <qen/qen_url.h>

#include <iosfwd>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_enums.h"
#include "vyrax/vyr_image_ticket.h"
#include "vyrax/vyr_metadata.h"

class VYR_API VYR_TImageProxy : public QEN_TObject,
                                public virtual QEN_IPackable,
                                public virtual QEN_IIteratable,
                                public virtual QEN_IHumanReadable,
                                public virtual QEN_IPrintable,
                                public virtual VYR_IRelocatable {
  QEN_VALUE_FRAME(VYR_TImageProxy)

 public:
  // No file, no tickets, no selection.
  VYR_TImageProxy();
  // The ticket's file, a copy of the ticket, selected.
  VYR_TImageProxy(const VYR_TImageTicket& ticket);
  // The same file and tickets, and the selection at the same index.
  VYR_TImageProxy(const VYR_TImageProxy& other);
  // Takes over everything; `other` is left with no selection.
  VYR_TImageProxy(VYR_TImageProxy&& other) noexcept;
  virtual VYR_TImageProxy& operator=(VYR_TImageProxy&& other) noexcept;
  virtual VYR_TImageProxy& operator=(const VYR_TImageProxy& other);
  ~VYR_TImageProxy() override;

  // File, tickets and IndexOfSelected() equal.
  bool operator==(const VYR_TImageProxy& other) const;
  bool operator!=(const VYR_TImageProxy& other) const { return !(*this == other); }

  // --- Access ------------------------------------------------------------------------
  const QEN_TURL& File() const { return mFile; }
  unsigned int Entries() const { return mTickets.Entries(); }
  virtual const QEN_TList& Tickets() const { return mTickets; }
  // The ticket at the index; QEN_EIndexOutOfRange beyond the list.
  const VYR_TImageTicket& operator[](unsigned int index) const;
  const VYR_TImageTicket& operator[](int index) const {
    return (*this)[static_cast<unsigned int>(index)];
  }
  // The ticket under the key, whoever's list it is in.
  const VYR_TImageTicket& operator[](const QEN_TListKey* key) const;
  // A copy of Selected(), every group of its level.
  operator VYR_TImageTicket() const;
  // The identity number of the selected ticket's file: "SmartID" of its
  // ExtendedInfo (a QEN_TUInt32) when there is one, else the file's own; 0
  // with no tickets.
  unsigned int SmartID() const;

  // A proxy stands for a file it does not own: it follows no move.
  bool CanRelocate() const override { return false; }
  bool Relocate(const QEN_TURL&, const QEN_TURL&) override { return false; }

  // --- Selection -----------------------------------------------------------------------
  // Stores the key, unchecked.
  void Select(const QEN_TListKey* key) { mSelected = key; }
  // The key at the index, or none (null) beyond the list.
  const QEN_TListKey* Select(unsigned int index);
  const QEN_TListKey* Select(int index) { return Select(static_cast<unsigned int>(index)); }
  // The first ticket of the proxy's own file at that image position, or
  // none (null).
  const QEN_TListKey* Select(unsigned char position);
  // The selected ticket, the first one when none is selected;
  // VYR_EImageProxyEmpty without tickets.
  const VYR_TImageTicket& Selected() const;
  // The selection, or the head when none is selected; null without tickets.
  const QEN_TListKey* KeyOfSelected() const;
  // The index of the selection: 0 without tickets or for a key of another
  // list, Entries() when none is selected.
  unsigned int IndexOfSelected() const;

  // --- Finding tickets ---------------------------------------------------------------
  // The tickets of that image type. The iterator must not outlive the proxy,
  // and the list must not change while it is used.
  QEN_TConstIterator Lookup(VYR_TImageType type);
  // The previews (or with `icon` the icons) of `ticket`: every ticket of that
  // type, and every ticket whose RelatedIndex is the index of `ticket` in
  // this proxy. Done at once when `ticket` is not in the proxy.
  QEN_TConstIterator Previews(const VYR_TImageTicket& ticket, bool icon);
  // Walks all tickets in list order.
  QEN_IIterationInfo* CreateIterationInfo() const override;

  // --- Stored forms --------------------------------------------------------------------
  // Binary: File and Tickets as objects, then IndexOfSelected() as an
  // unsigned 32. Reading refuses a list that holds anything but tickets
  // (QEN_EStreamException), and selects the key at the index read.
  void QEN_Pack(QEN_IPacking& out) const override;
  void QEN_Unpack(QEN_IUnpacking& in) override;
  QEN_IPackable* QEN_Move(void* = nullptr) override;
  // Text: the quoted URL, the framed list of framed tickets, the index, one
  // per line. Reading refuses a list that holds anything but tickets
  // (QEN_ESyntaxError).
  bool WriteTo(QEN_THumanReadableStream& out) const override;
  bool ReadFrom(QEN_THumanReadableStream& in) override;
  bool QEN_HRMultiLine() const override { return true; }
  void PrintOn(std::ostream& out) const override;

 protected:
  // For a derived class that reads files: the tickets to fill. Each element
  // must hold a VYR_TImageTicket; reaching one that doesn't throws
  // VYR_EImageProxyInternal.
  virtual QEN_TList& Tickets() { return mTickets; }

 private:
  QEN_TURL mFile;
  QEN_TList mTickets;
  const QEN_TListKey* mSelected = nullptr;
};

// A filtered walk over an iteratable of tickets: a ticket passes when its
// ImageType is `ImageType`, or when `RelatedIndex` is not negative and the
// ticket's RelatedIndex equals it.
class VYR_API VYR_TIPIterator : public QEN_TObject, public virtual QEN_IIteratable {
  QEN_OBJECT_FRAME(VYR_TIPIterator)

 public:
  // `walked` is not owned and must outlive every cursor made from it.
  VYR_TIPIterator(VYR_TImageType imageType = VYR_UnknownType, int relatedIndex = -1,
                  const QEN_IIteratable* walked = nullptr);

  // A cursor on the first ticket that passes, or done.
  QEN_IIterationInfo* CreateIterationInfo() const override;

 private:
  VYR_TImageType mImageType;
  int mRelatedIndex;
  const QEN_IIteratable* mWalked;
};

// The cursor of VYR_TIPIterator: an inner cursor that skips what doesn't
// pass. First and Next move forward to a ticket that passes, Previous and
// Last backward.
class VYR_API VYR_TIPIterationInfo : public QEN_TObject, public virtual QEN_IIterationInfo {
  QEN_OBJECT_FRAME(VYR_TIPIterationInfo)

 public:
  // No inner cursor: done, and Key and Value throw QEN_EIndexOutOfRange.
  VYR_TIPIterationInfo();
  // Takes over `inner` and goes to the first ticket that passes.
  VYR_TIPIterationInfo(QEN_IIterationInfo* inner, VYR_TImageType imageType, int relatedIndex);
  // A clone of the other's inner cursor, at the same place.
  VYR_TIPIterationInfo(const VYR_TIPIterationInfo& other);
  VYR_TIPIterationInfo& operator=(const VYR_TIPIterationInfo&) = delete;
  ~VYR_TIPIterationInfo() override;

  QEN_IIterationInfo* Clone() const override;
  void First() override;
  void Next() override;
  void Previous() override;
  void Last() override;
  bool IsBeforeFirst() const override;
  bool IsDone() const override;
  QEN_IPackable& Key() const override;
  QEN_TAny& Value() const override;

 private:
  bool Passes() const;
  void FilterForward();
  void FilterBackward();
  // One move of the inner cursor, then on past the elements that don't pass.
  void Step(void (QEN_IIterationInfo::*move)(), bool forward);

  VYR_TImageType mImageType = VYR_UnknownType;
  int mRelatedIndex = -1;
  QEN_IIterationInfo* mInner = nullptr;
};

#endif
