// The fill-level bits of a ticket and the old ordinal form of the level.
#ifndef VYR_TICKET_LEVELS_H
#define VYR_TICKET_LEVELS_H

#include <qen/qen_containers.h>

#include <memory>

namespace vyr_ticket {

// The groups of fields, each guarded by its bit (or bits).
constexpr unsigned kFileBit = 0x1;
constexpr unsigned kFileTypeBit = 0x2;
constexpr unsigned kProcessorBit = 0x4;
constexpr unsigned kBasicInfoBit = 0x8;
constexpr unsigned kExtendedInfoBits = 0x340;
constexpr unsigned kExternalRefsBit = 0x80;

// What this build writes under "version" in Internal.
constexpr unsigned kTicketVersion = 11014;

// The key "version", made once: a look-up by a string object spares making
// one from its bytes each time.
const QEN_TString& VersionKey();

// Internal as a new ticket holds it: the version alone.
const QEN_TDict& NewInternal();

// The level a ticket holds, from the value stored in its binary or text
// form. Tickets of a version below 9000 stored the ordinal of a named level
// (0 to 6); any other value, and any value of a later or missing version, is
// the bit set itself.
unsigned LevelFromStored(unsigned stored, const QEN_TDict& internal);

// The inverse, for writing: the level and Internal a ticket stores. A
// ticket that still carries a version below 9000 is written in its own form,
// so that what was read reads back the same. A level that form can't carry
// (2, 4, 5 or 6, which would read back as another level and misread every
// later item) is written in today's form instead: Internal is then written
// with today's version, and the level as its bit set.
struct StoredLevel {
  unsigned value = 0;
  std::unique_ptr<QEN_TDict> today;  // Internal with today's version, when needed

  // The Internal to write, given the ticket's own.
  const QEN_TDict& Internal(const QEN_TDict& own) const { return today ? *today : own; }
};
StoredLevel LevelToStored(unsigned level, const QEN_TDict& internal);

}  // namespace vyr_ticket

#endif
