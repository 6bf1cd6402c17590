// Export control for the library: hidden by default, VYR_API marks the
// public interface.
#ifndef VYR_API_H
#define VYR_API_H

#define VYR_API __attribute__((visibility("default")))
#define VYR_LOCAL __attribute__((visibility("hidden")))

// The protected special members of an interface: it is made and copied only
// as a part of the object that implements it.
#define VYR_INTERFACE_SPECIALS(X) \
 protected:                       \
  X() = default;                  \
  X(X const&) = default;          \
  X& operator=(X const&) = default;

#endif
