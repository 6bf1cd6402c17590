// The stored forms of the proxy and its listing. In both forms the
// selection travels as its index; a stored list must hold tickets only, so
// that every later access finds one.
#define VYR_SOURCE_NAME "Private/Source/vyr_image_ticket"

#include <qen/qen_exception.h>

#include <ostream>

#include "vyrax/vyr_image_proxy.h"

namespace {

// The first element of the list that holds no ticket, or null.
const QEN_TAny* FirstNonTicket(const QEN_TList& tickets) {
  for (const QEN_TListKey* key = tickets.KeyAtHead(); key != nullptr; key = key->Next())
    if (key->Value().DynamicCast<VYR_TImageTicket>() == nullptr) return &key->Value();
  return nullptr;
}

}  // namespace

void VYR_TImageProxy::QEN_Pack(QEN_IPacking& out) const {
  out << mFile << mTickets << IndexOfSelected();
}

void VYR_TImageProxy::QEN_Unpack(QEN_IUnpacking& in) {
  QEN_TURL file;
  QEN_TList tickets;
  unsigned index = 0;
  in >> file >> tickets >> index;
  if (const QEN_TAny* stray = FirstNonTicket(tickets))
    QEN_THROW(
        QEN_EStreamException,
        QEN_TString::Format("VYR_TImageProxy: the list of tickets holds a %s", stray->ClassName()));
  // Only a whole proxy replaces this one.
  mFile = std::move(file);
  mTickets = std::move(tickets);
  mSelected = nullptr;
  Select(index);
}

bool VYR_TImageProxy::WriteTo(QEN_THumanReadableStream& out) const {
  out << mFile << cr;
  // Framed, so that the list's end is plain to the reader.
  out.WriteObject(mTickets) << cr;
  out << IndexOfSelected() << cr;
  return false;
}

bool VYR_TImageProxy::ReadFrom(QEN_THumanReadableStream& in) {
  QEN_TURL file;
  QEN_TList tickets;
  unsigned index = 0;
  in >> file;
  in.SkipWhiteSpace();
  tickets.QEN_ReadFrom(in);
  in.SkipWhiteSpace();
  if (const QEN_TAny* stray = FirstNonTicket(tickets))
    in.SyntaxError(
        QEN_TString::Format("the list of tickets holds a %s", stray->ClassName()).c_str());
  in >> index;
  in.SkipWhiteSpace();
  mFile = std::move(file);
  mTickets = std::move(tickets);
  mSelected = nullptr;
  Select(index);
  return false;
}

void VYR_TImageProxy::PrintOn(std::ostream& out) const {
  out << "VYR_TImageProxy" << std::endl;
  QEN_IPrintable::Indent();
  // Unlike the ticket's, the braces stand at the inner depth.
  out << QEN_IPrintable::Prefix() << "{" << std::endl;
  out << QEN_IPrintable::Prefix() << "URL ";
  mFile.PrintOn(out);
  out << std::endl;
  out << QEN_IPrintable::Prefix() << "Selected " << IndexOfSelected() << std::endl;
  out << QEN_IPrintable::Prefix() << "Tickets ";
  mTickets.PrintOn(out);
  QEN_IPrintable::ReverseIndent();
  out << std::endl << QEN_IPrintable::Prefix() << "}" << std::endl;
}
