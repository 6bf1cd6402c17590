// The files an image needs besides its own, and the link to a related image
// of another proxy.
#define VYR_SOURCE_NAME "Private/Source/vyr_image_ticket"

#include "core/vyr_throw.h"
#include "tickets/ticket_levels.h"
#include "vyrax/vyr_buffer.h"
#include "vyrax/vyr_image_ticket.h"
#include "vyrax/vyr_reference.h"

using namespace vyr_ticket;

namespace {

// One walk of Dependencies: where the files go, and what the ticket's own
// file is, reduced to its container.
class DependencyWalk {
 public:
  DependencyWalk(QEN_TList& list, const QEN_TURL& own, bool resolveRelative, bool withDetails)
      : mList(list), mOwn(own), mResolveRelative(resolveRelative), mWithDetails(withDetails) {}

  bool Result() const { return mResult; }

  void Reference(const VYR_TReference& ref) {
    QEN_TURL url;
    if (ref.File().Protocol().Empty()) {
      mResult = false;
      if (!mResolveRelative) return;
      url = VYR_Embedded2Original(ref.Original(mOwn));
    } else {
      url = VYR_Embedded2Original(ref.File());
    }
    Add(url, [&ref](QEN_TDict& details) {
      details["MIME"] = ref.MIMEType();
      details["Ext"] = ref.ExtType();
      if (ref.Count() != -1) details["Count"] = ref.Count();
      if (ref.PageNr() != -1) details["PageNr"] = ref.PageNr();
      AddStamp(details, "ModificationTime", ref.ModificationTimeStamp());
      AddStamp(details, "FileSize", ref.FileSizeStamp());
      AddStamp(details, "MD5Hash", ref.MD5HashStamp());
    });
  }

  void PlainUrl(const QEN_TURL& plain) {
    if (plain.Protocol().Empty()) {
      mResult = false;
      return;
    }
    Add(VYR_Embedded2Original(plain), [](QEN_TDict&) {});
  }

 private:
  // Adds `url` unless it is the ticket's own file: as it is, or as details
  // with "URL" and what `fill` adds.
  template <class Fill>
  void Add(const QEN_TURL& url, Fill fill) {
    if (url == mOwn) return;
    if (!mWithDetails) {
      mList.AddAtTail(QEN_TAny(url));
      return;
    }
    QEN_TDict details;
    details["URL"] = url;
    fill(details);
    mList.AddAtTail(QEN_TAny(std::move(details)));
  }

  static void AddStamp(QEN_TDict& details, const char* key, const QEN_TString& stamp) {
    if (!stamp.Empty()) details[key] = stamp;
  }

  QEN_TList& mList;
  const QEN_TURL& mOwn;
  const bool mResolveRelative;
  const bool mWithDetails;
  bool mResult = true;
};

const char kFtdLinkKey[] = "ftd link";

}  // namespace

bool VYR_TImageTicket::Dependencies(QEN_TList& list, bool resolveRelative, bool withDetails) const {
  const QEN_TURL own = VYR_Embedded2Original(mFile);
  if (!(mFillLevel & kExternalRefsBit)) return false;
  DependencyWalk walk(list, own, resolveRelative, withDetails);
  // Whatever goes wrong in a walk, from a variant of the wrong kind to an
  // entry that is no reference, is one failure for the caller.
  try {
    if (mExternalRefs) {
      for (const QEN_TListKey* key = mExternalRefs->KeyAtHead(); key != nullptr;
           key = key->Next()) {
        const VYR_TReference* ref =
            static_cast<const VYR_TReference*>(key->Value().DynamicCast("VYR_TReference"));
        if (ref == nullptr) VYR_THROW(VYR_EImageTicketCannotGetDependencies);
        walk.Reference(*ref);
      }
    }
  } catch (...) {
    VYR_THROW(VYR_EImageTicketCannotGetDependencies);
  }
  if (!mExtendedInfo || !mExtendedInfo->HasKey("Separations")) return walk.Result();
  try {
    const QEN_TArray* separations =
        static_cast<const QEN_TArray*>((*mExtendedInfo)["Separations"].DynamicCast("QEN_TArray"));
    if (separations == nullptr) VYR_THROW(VYR_EImageTicketCannotGetDependencies);
    for (QEN_TConstIterator at(*separations); !at.IsDone(); ++at) {
      const QEN_TAny& entry = at.Value();
      if (const VYR_TReference* ref =
              static_cast<const VYR_TReference*>(entry.DynamicCast("VYR_TReference")))
        walk.Reference(*ref);
      else if (const QEN_TURL* url = static_cast<const QEN_TURL*>(entry.DynamicCast("QEN_TURL")))
        walk.PlainUrl(*url);
    }
  } catch (...) {
    VYR_THROW(VYR_EImageTicketCannotGetDependencies);
  }
  return walk.Result();
}

// --- The link to a related image ---------------------------------------------------

void VYR_TImageTicket::SetFtdLink(VYR_TFtdLink* link) {
  if (link != nullptr) mInternal[kFtdLinkKey] = static_cast<const void*>(link);
}

const VYR_TFtdLink* VYR_TImageTicket::GetFtdLink() const {
  // Only this process puts a pointer there (stored forms carry none); any
  // other value under the key is no link.
  const QEN_TAny* value = mInternal.Lookup(kFtdLinkKey);
  if (value == nullptr || value->GetKind() != QEN_TAny::kPointer) return nullptr;
  return static_cast<const VYR_TFtdLink*>(value->AsPointer());
}

void VYR_TImageTicket::RemoveFtdLink() { mInternal.Remove(kFtdLinkKey); }

bool VYR_TImageTicket::ValidFtdLink() const { return GetFtdLink() != nullptr; }

VYR_TImageType VYR_TImageTicket::FtdImageType() const {
  const VYR_TFtdLink* link = GetFtdLink();
  return link != nullptr ? link->ImageType : VYR_UnknownType;
}

int VYR_TImageTicket::FtdRelatedIndex() const {
  const VYR_TFtdLink* link = GetFtdLink();
  return link != nullptr ? link->RelatedIndex : sInvalidValue;
}

const VYR_TImageProxy* VYR_TImageTicket::FtdRelatedProxy() const {
  const VYR_TFtdLink* link = GetFtdLink();
  return link != nullptr ? link->RelatedProxy : nullptr;
}

unsigned int VYR_TImageTicket::SetRelatedIndex() {
  return SetRelatedIndex(static_cast<unsigned int>(FtdRelatedIndex()));
}
