// Time stamps and archive data of the metadata front: whether a stored value
// still matches its data file, and all metadata of a file taken out and put
// back for a file that moves.
#define VYR_SOURCE_NAME "Private/Source/vyr_metadata"

#include <qen/qen_time.h>

#include <memory>
#include <sstream>
#include <string>

#include "core/vyr_trace.h"
#include "vyrax/vyr_buffer.h"
#include "vyrax/vyr_exceptions.h"
#include "vyrax/vyr_metadata.h"

namespace {

const char kStampsKey[] = "TIMESTAMP";
const char kFileTimeKey[] = "_FILE_";

QEN_TTime ModificationTimeOf(QEN_TURL const& file) {
  return VYR_GetFileInfo(file).ModificationTime();
}

void TraceStamps(std::ostringstream const& text) {
  VYR_TRACE(vyr::kTraceStamps, "%s", text.str().c_str());
}

// The stamps dictionary in `object` with its file time, or null for a value
// of another form, which counts as no stamps at all.
QEN_TDict* StampsIn(QEN_IPackable* object, QEN_TTime& recorded) {
  QEN_TDict* stamps = object != nullptr ? object->DynamicCast<QEN_TDict>() : nullptr;
  const QEN_TAny* time = stamps != nullptr ? stamps->Lookup(kFileTimeKey) : nullptr;
  const QEN_TTime* stored = time != nullptr ? time->DynamicCast<QEN_TTime>() : nullptr;
  if (stored == nullptr) return nullptr;
  recorded = *stored;
  return stamps;
}

}  // namespace

QEN_TDict* VYR_TMetadata::ListTimestamps() {
  QEN_TTime current = ModificationTimeOf(File());
  if (vyr::TraceOn(vyr::kTraceStamps)) {
    std::ostringstream text;
    text << "VYR_TMetadata::ListTimestamps() current timestamp for file " << File() << " is "
         << current << "\n";
    TraceStamps(text);
  }

  std::unique_ptr<QEN_IPackable> object;
  try {
    object.reset(GetKeyObject(kStampsKey));
  } catch (VYR_EMetadataException const&) {
    // The store's own answer (on the attribute backend, no such key).
    throw;
  } catch (...) {
    // Bytes that are no packed object: no stamps, so that the next stamp
    // replaces them instead of failing on them for ever.
  }
  QEN_TTime recorded;
  QEN_TDict* stamps = StampsIn(object.get(), recorded);
  if (stamps == nullptr) {
    std::unique_ptr<QEN_TDict> fresh(new QEN_TDict);
    fresh->Add(QEN_TString(kFileTimeKey), QEN_TAny(current));
    return fresh.release();
  }
  object.release();

  // One of the two times may lack its microseconds: a file system that keeps
  // whole seconds matches any fraction of the same second.
  if (current.Micros() == 0)
    current.SetMicros(recorded.Micros());
  else if (recorded.Micros() == 0)
    recorded.SetMicros(current.Micros());

  if (recorded != current) {
    if (vyr::TraceOn(vyr::kTraceStamps)) {
      std::ostringstream text;
      text << "VYR_TMetadata::ListTimestamps() original timestamp is " << recorded << "\n";
      TraceStamps(text);
    }
    // The file changed: nothing stamped before matches it any more.
    for (QEN_TIterator entry(*stamps); !entry.IsDone(); ++entry) {
      const QEN_TString* key = entry.Key().DynamicCast<QEN_TString>();
      if (key != nullptr && *key == kFileTimeKey)
        entry.Value() = current;
      else
        entry.Value() = false;
    }
  }
  return stamps;
}

bool VYR_TMetadata::SaveTimestamps(QEN_TDict* stamps) {
  if (vyr::TraceOn(vyr::kTraceStamps)) {
    std::ostringstream text;
    text << "VYR_TMetadata::SaveTimestamps() for file " << File() << *stamps << "\n";
    TraceStamps(text);
  }
  return SetKeyObject(kStampsKey, *stamps, true);
}

bool VYR_TMetadata::SetTimestamp(QEN_TString const& key) {
  std::unique_ptr<QEN_TDict> stamps(ListTimestamps());
  stamps->Add(key, QEN_TAny(true));
  return SaveTimestamps(stamps.get());
}

VYR_TVerifyStatus VYR_TMetadata::VerifyTimestamp(QEN_TString const& key) {
  std::unique_ptr<QEN_TDict> stamps(ListTimestamps());
  if (stamps == nullptr) return VYR_KeyUnknown;
  try {
    const QEN_TAny* stamp = stamps->Lookup(key);
    if (stamp == nullptr) return VYR_KeyUnknown;
    return stamp->AsBool() ? VYR_KeyEqual : VYR_KeyDifferent;
  } catch (...) {
    return VYR_KeyUnknown;
  }
}

QEN_TDict VYR_TMetadata::GetArchiveData() {
  QEN_TDict data = GetAll();
  for (QEN_TIterator entry(data); !entry.IsDone(); ++entry) {
    VYR_IRelocatable* relocatable = entry.Value().DynamicCast<VYR_IRelocatable>();
    if (relocatable == nullptr) continue;
    const QEN_TString* key = entry.Key().DynamicCast<QEN_TString>();
    // An object that cannot follow the file, or that no longer matches it,
    // is not worth keeping.
    if (!relocatable->CanRelocate() ||
        (key != nullptr && VerifyTimestamp(*key) == VYR_KeyDifferent))
      entry.DeleteItem();
  }
  return data;
}

bool VYR_TMetadata::SetArchiveData(QEN_TDict& data, QEN_TURL const& from, QEN_TURL const& to) {
  bool result;
  try {
    result = RemoveAll();
    for (QEN_TIterator entry(data); result && !entry.IsDone(); ++entry) {
      const QEN_TString* key = entry.Key().DynamicCast<QEN_TString>();
      if (key == nullptr) continue;
      QEN_TAny& value = entry.Value();
      QEN_IPackable& object = value.Object() != nullptr ? *value.Object() : value;
      if (VYR_IRelocatable* relocatable = value.DynamicCast<VYR_IRelocatable>()) {
        if (!relocatable->Relocate(from, to) || !SetKeyObject(*key, object, true)) {
          result = false;
        } else {
          // The moved object matches the file where it stands now.
          SetTimestamp(*key);
        }
      } else if (const VYR_TBuffer* buffer = value.DynamicCast<VYR_TBuffer>()) {
        result = SetKeyValue(*key, static_cast<VYR_IBuffer const&>(*buffer), true);
      } else if (*key == kStampsKey) {
        // The old stamps are not stored: the stamps are rebuilt by the
        // relocated objects. The caller's copy gets the file's time.
        if (QEN_TDict* stamps = value.DynamicCast<QEN_TDict>())
          stamps->Add(QEN_TString(kFileTimeKey), QEN_TAny(ModificationTimeOf(File())));
      } else {
        result = SetKeyObject(*key, object, true);
      }
    }
  } catch (...) {
    PostSetArchiveData(data, from, to);
    throw;
  }
  PostSetArchiveData(data, from, to);
  return result;
}

bool VYR_TMetadata::Move(QEN_TURL const& from, QEN_TURL const& to) {
  QEN_TDict data = GetArchiveData();
  return SetArchiveData(data, from, to);
}
