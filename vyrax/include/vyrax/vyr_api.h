// Export control for the library: hidden by default, VYR_API marks the
// public interface.
#ifndef VYR_API_H
#define VYR_API_H

#define VYR_API __attribute__((visibility("default")))
#define VYR_LOCAL __attribute__((visibility("hidden")))

#endif
