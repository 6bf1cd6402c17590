// The vocabularies of the enumerations: one table per enumeration, read by
// VYR_Enum2String and the VYR_String2... functions (vyr_enums.h) and by the
// reader of a ticket's text form.
#ifndef VYR_VOCABULARIES_H
#define VYR_VOCABULARIES_H

#include <cstddef>

#include "vyrax/vyr_enums.h"

namespace vyr {

// One named value. `readAs` is the name the readers take for it where that
// isn't the name written (the unknown alpha plane is written "AlphaUnknown"
// and read "UnknownAlpha"). `inTicketText` is the ticket text reader's
// column: that reader is older than some names and never learned them
// ("Production", "YCbCrK"), so a ticket holding one writes fine and fails to
// read at that line. Both quirks are part of stored texts and stay.
struct Word {
  unsigned value;
  const char* text;
  const char* readAs = nullptr;
  bool inTicketText = true;

  const char* Read() const { return readAs != nullptr ? readAs : text; }
};

struct Vocabulary {
  const Word* words;
  std::size_t size;

  const Word* begin() const { return words; }
  const Word* end() const { return words + size; }
};

// The vocabularies that the ticket's text form writes and reads.
VYR_LOCAL extern const Vocabulary kChannelEncodings;
VYR_LOCAL extern const Vocabulary kAlphaPlanes;
VYR_LOCAL extern const Vocabulary kImageRotations;
VYR_LOCAL extern const Vocabulary kImageSubtypes;
VYR_LOCAL extern const Vocabulary kImageTypes;
VYR_LOCAL extern const Vocabulary kUnits;

}  // namespace vyr

#endif
