// International names of the process inks.
#include <qen/qen_containers.h>

#include "vyrax/vyr_cfswrap.h"
#include "vyrax/vyr_ink.h"

namespace {

const char* const kInternationalInkNames = "/Resources/Modules/VYR/InternationalInkNames";

struct Language {
  const char* key;
  const char* words[4];  // cyan, magenta, yellow, black
};

const Language kLanguages[] = {
    {"ENGLISH", {"CYAN", "MAGENTA", "YELLOW", "BLACK"}},
    {"NEDERLANDS", {"CYAAN", "MAGENTA", "GEEL", "ZWART"}},
    {"DEUTSCH", {"CYAN", "MAGENTA", "GELB", "SCHWARZ"}},
    {"FRANCAIS", {"CYAN", "MAGENTA", "JAUNE", "NOIR"}},
    {"ITALIANO", {"CIANO", "MAGENTA", "GIALLO", "NERO"}},
    {"ESPANOL", {"CIAN", "MAGENTA", "AMARILLO", "NEGRO"}},
};

// The six languages, then what the configuration adds: a language it names
// too takes the configuration's dictionary.
QEN_TDict MakeMaster() {
  QEN_TDict master;
  for (const Language& language : kLanguages) {
    QEN_TDict words;
    words["PROCESS"] = 1u;
    for (unsigned ink = 0; ink < 4; ++ink) words[language.words[ink]] = ink + VYR_InkCyan;
    master[language.key] = std::move(words);
  }
  try {
    const QEN_TAny configured = VYR_CfsWrap().Get(QEN_TString(kInternationalInkNames));
    if (const QEN_TDict* more = configured.DynamicCast<QEN_TDict>()) master.AddAll(*more);
  } catch (...) {
    // Without configured names the table stands alone.
  }
  return master;
}

}  // namespace

VYR_TInks VYR_International2Ink(const QEN_TString& name) {
  // Built once, at the first call.
  static const QEN_TDict master = MakeMaster();
  QEN_TString prefix;
  QEN_TString word;
  const int blank = name.Find(' ');
  if (blank < 0) {
    word = name.ToUpper();
  } else {
    prefix = name.Substring(0, blank).ToUpper();
    word = name.Substring(blank + 1).ToUpper();
  }
  for (QEN_TConstIterator language(master); !language.IsDone(); ++language) {
    try {
      const QEN_TDict* words = language.Value().DynamicCast<QEN_TDict>();
      if (words == nullptr) continue;
      if (!prefix.Empty() && !words->HasKey(prefix)) continue;
      const QEN_TAny* ink = words->Lookup(word);
      if (ink == nullptr) continue;
      return static_cast<VYR_TInks>(static_cast<unsigned>(*ink));
    } catch (...) {
      // A configured entry that is no number: on with the next language.
    }
  }
  return VYR_UnknownInk;
}
