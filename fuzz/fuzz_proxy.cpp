// An image proxy read from arbitrary bytes: every input either reads or
// fails with a stream exception (QEN_EStreamException, of which syntax
// errors and unknown classes are kinds), never a crash, a hang, unbounded
// memory or another exception. A proxy that was read holds tickets only,
// answers every question about its selection and walks, and writes forms
// that read back to an equal proxy.
//
// The first byte picks the reader, the rest is its input:
//   0  QEN_Unpack of the bare binary items into a new proxy
//   1  ReadFrom of the bare text form
//   2  Extract of a packed object (the class named in the bytes)
//   3  Extract of a framed text object
#include <vyrax/vyrax.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "fuzz_classes.h"

namespace {

// What a caller asks of a proxy read from a store: none of it may fail.
void Ask(VYR_TImageProxy& proxy) {
  const unsigned entries = proxy.Entries();
  const unsigned index = proxy.IndexOfSelected();
  if (index > entries) std::abort();
  if (entries == 0) return;
  const VYR_TImageTicket& selected = proxy.Selected();
  if (index < entries && &proxy[index] != &selected) std::abort();
  unsigned walked = 0;
  for (QEN_TConstIterator at = proxy.Previews(selected, false); !at.IsDone(); ++at) {
    if (at.Value().DynamicCast<VYR_TImageTicket>() == nullptr || ++walked > entries) std::abort();
  }
  QEN_TConstIterator back = proxy.Lookup(selected.ImageType());
  for (back.Last(); !back.IsBeforeFirst(); --back)
    if (back.Value().DynamicCast<VYR_TImageTicket>()->ImageType() != selected.ImageType())
      std::abort();
}

// Written by us, so both forms must read back. (Not compared with ==: a
// ticket holding a NaN equals nothing, not even itself.)
void Check(VYR_TImageProxy& proxy) {
  Ask(proxy);
  if (BinaryReadsBack(proxy).IndexOfSelected() != proxy.IndexOfSelected()) std::abort();
  TextReadsBack<VYR_TImageProxy>(Written(proxy));
}

}  // namespace

FUZZ_READ_FOUR_WAYS(VYR_TImageProxy, __QEN_INITIALIZATION_FUNCTION_VYRAX__, Check)
