// The image proxy as a value: construction, copying with the selection kept
// as an index, selection, and finding tickets.
#define VYR_SOURCE_NAME "Private/Source/vyr_image_ticket"

#include <qen/qen_file.h>

#include <new>
#include <utility>

#include "core/vyr_throw.h"
#include "tickets/image_proxy_tickets.h"
#include "vyrax/vyr_image_proxy.h"

namespace vyr_ticket {

const VYR_TImageTicket& TicketOf(const QEN_TAny& value) {
  const VYR_TImageTicket* ticket = value.DynamicCast<VYR_TImageTicket>();
  if (ticket == nullptr)
    VYR_THROW(VYR_EImageProxyInternal, "The proxy's list holds a %s where a ticket belongs",
              value.ClassName());
  return *ticket;
}

}  // namespace vyr_ticket

using vyr_ticket::TicketOf;

VYR_TImageProxy::VYR_TImageProxy() = default;

VYR_TImageProxy::VYR_TImageProxy(const VYR_TImageTicket& ticket) : mFile(ticket.File()) {
  mSelected = mTickets.AddAtTail(QEN_TAny(ticket));
}

VYR_TImageProxy::VYR_TImageProxy(const VYR_TImageProxy& other)
    : QEN_TObject(other), mFile(other.mFile), mTickets(other.mTickets) {
  if (!mTickets.IsEmpty()) mSelected = mTickets.KeyAtIndex(other.IndexOfSelected());
}

VYR_TImageProxy::VYR_TImageProxy(VYR_TImageProxy&& other) noexcept
    : QEN_TObject(other),
      mFile(std::move(other.mFile)),
      mTickets(std::move(other.mTickets)),
      mSelected(other.mSelected) {
  other.mSelected = nullptr;
}

VYR_TImageProxy& VYR_TImageProxy::operator=(VYR_TImageProxy&& other) noexcept {
  if (this == &other) return *this;
  mFile = std::move(other.mFile);
  mTickets = std::move(other.mTickets);
  mSelected = other.mSelected;
  other.mSelected = nullptr;
  return *this;
}

VYR_TImageProxy& VYR_TImageProxy::operator=(const VYR_TImageProxy& other) {
  if (this == &other) return *this;
  const unsigned index = other.IndexOfSelected();
  mFile = other.mFile;
  mTickets = other.mTickets;
  mSelected = mTickets.IsEmpty() ? nullptr : mTickets.KeyAtIndex(index);
  return *this;
}

VYR_TImageProxy::~VYR_TImageProxy() = default;

QEN_IPackable* VYR_TImageProxy::QEN_Move(void*) {
  return new (std::nothrow) VYR_TImageProxy(std::move(*this));
}

bool VYR_TImageProxy::operator==(const VYR_TImageProxy& other) const {
  return mFile == other.mFile && mTickets == other.mTickets &&
         IndexOfSelected() == other.IndexOfSelected();
}

const VYR_TImageTicket& VYR_TImageProxy::operator[](unsigned int index) const {
  return TicketOf(mTickets[index]);
}

const VYR_TImageTicket& VYR_TImageProxy::operator[](const QEN_TListKey* key) const {
  if (key == nullptr) VYR_THROW(VYR_EImageProxyInternal, "No ticket under a null key");
  return TicketOf(key->Value());
}

VYR_TImageProxy::operator VYR_TImageTicket() const {
  return VYR_TImageTicket(Selected(), VYR_FillFullInfo);
}

unsigned int VYR_TImageProxy::SmartID() const {
  if (mTickets.IsEmpty()) return 0;
  const VYR_TImageTicket& ticket = Selected();
  if (ticket.HasKey("SmartID")) {
    const QEN_TAny& id = ticket["SmartID"];
    const unsigned* number = static_cast<const unsigned*>(id.DynamicCast("QEN_TUInt32"));
    if (number == nullptr)
      VYR_THROW(QEN_EAnyConversion, "\"SmartID\" holds %s, not a QEN_TUInt32", id.ClassName());
    return *number;
  }
  return QEN_TFileInfo(ticket.File(), true).SmartID();
}

// --- Selection ---------------------------------------------------------------------------

const QEN_TListKey* VYR_TImageProxy::Select(unsigned int index) {
  mSelected = mTickets.IsEmpty() ? nullptr : mTickets.KeyAtIndex(index);
  return mSelected;
}

const QEN_TListKey* VYR_TImageProxy::Select(unsigned char position) {
  mSelected = nullptr;
  for (const QEN_TListKey* key = mTickets.KeyAtHead(); key != nullptr; key = key->Next()) {
    const VYR_TImageTicket& ticket = TicketOf(key->Value());
    if (ticket.File() == mFile && ticket.ImagePosition() == position) return mSelected = key;
  }
  return nullptr;
}

const QEN_TListKey* VYR_TImageProxy::KeyOfSelected() const {
  return mSelected == nullptr ? mTickets.KeyAtHead() : mSelected;
}

const VYR_TImageTicket& VYR_TImageProxy::Selected() const {
  const QEN_TListKey* key = KeyOfSelected();
  if (key == nullptr) VYR_THROW(VYR_EImageProxyEmpty);
  return TicketOf(key->Value());
}

unsigned int VYR_TImageProxy::IndexOfSelected() const {
  if (mTickets.IsEmpty()) return 0;
  // No selection stands as the index behind the last ticket.
  if (mSelected == nullptr) return mTickets.Entries();
  unsigned index = 0;
  for (const QEN_TListKey* key = mTickets.KeyAtHead(); key != nullptr; key = key->Next(), ++index)
    if (key == mSelected) return index;
  return 0;
}

// --- Finding tickets ---------------------------------------------------------------------

QEN_IIterationInfo* VYR_TImageProxy::CreateIterationInfo() const {
  return mTickets.CreateIterationInfo();
}

QEN_TConstIterator VYR_TImageProxy::Lookup(VYR_TImageType type) {
  return QEN_TConstIterator(VYR_TIPIterator(type, -1, this).CreateIterationInfo());
}

QEN_TConstIterator VYR_TImageProxy::Previews(const VYR_TImageTicket& ticket, bool icon) {
  int index = 0;
  const QEN_TListKey* key = mTickets.KeyAtHead();
  for (; key != nullptr; key = key->Next(), ++index)
    if (ticket.QEN_IsIdent(key->Value())) break;
  if (key == nullptr) {
    QEN_TConstIterator done(mTickets);
    done.End();
    return done;
  }
  const VYR_TImageType type = icon ? VYR_TypeIcon : VYR_TypePreview;
  return QEN_TConstIterator(VYR_TIPIterator(type, index, this).CreateIterationInfo());
}
