// The old ordinal form of the fill level, for tickets of versions below 9000.
#include "tickets/ticket_levels.h"

#include "vyrax/vyr_enums.h"

namespace vyr_ticket {

namespace {

// The first version that stored the level as a bit set.
constexpr double kFirstBitSetVersion = 9000;

// The named levels by their old ordinal.
constexpr unsigned kLevelOfOrdinal[] = {
    VYR_FillEmpty,     VYR_FillFileAssigned, VYR_FillFileType, VYR_FillImageProcessor,
    VYR_FillBasicInfo, VYR_FillExtendedInfo, VYR_FillFullInfo};
constexpr unsigned kOrdinals = sizeof kLevelOfOrdinal / sizeof kLevelOfOrdinal[0];

bool StoresOrdinal(const QEN_TDict& internal) {
  const QEN_TAny* version = internal.Lookup(VersionKey());
  // A version that is no number says nothing about the form; the value is
  // then taken as it stands, as for a missing one.
  return version != nullptr && version->IsNumber() && version->AsDouble() < kFirstBitSetVersion;
}

}  // namespace

const QEN_TString& VersionKey() {
  static const QEN_TString key("version");
  return key;
}

const QEN_TDict& NewInternal() {
  static const QEN_TDict internal = [] {
    QEN_TDict made;
    made[VersionKey()] = kTicketVersion;
    return made;
  }();
  return internal;
}

unsigned LevelFromStored(unsigned stored, const QEN_TDict& internal) {
  if (stored < kOrdinals && StoresOrdinal(internal)) return kLevelOfOrdinal[stored];
  return stored;
}

StoredLevel LevelToStored(unsigned level, const QEN_TDict& internal) {
  StoredLevel stored;
  stored.value = level;
  if (!StoresOrdinal(internal)) return stored;
  for (unsigned ordinal = 0; ordinal < kOrdinals; ++ordinal) {
    if (kLevelOfOrdinal[ordinal] == level) {
      stored.value = ordinal;
      return stored;
    }
  }
  if (level >= kOrdinals) return stored;
  stored.today.reset(new QEN_TDict(internal));
  (*stored.today)[VersionKey()] = kTicketVersion;
  return stored;
}

}  // namespace vyr_ticket
