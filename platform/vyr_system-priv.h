// What the units of the system layer share.
#ifndef VYR_SYSTEM_PRIV_H
#define VYR_SYSTEM_PRIV_H

#include <cerrno>

namespace vyr {
namespace sys {

// Makes the call again for as long as a signal interrupts it: the one place
// the layer deals with EINTR. `failed` is the call's own failure value.
template <class Call, class Result>
auto Retry(Result failed, Call call) -> decltype(call()) {
  decltype(call()) result;
  do {
    result = call();
  } while (result == failed && errno == EINTR);
  return result;
}

}  // namespace sys
}  // namespace vyr

#endif
