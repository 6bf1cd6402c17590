// Export control for the base-type library. Everything is hidden by default;
// only what carries QEN_API is part of the shared library's interface.
#ifndef QEN_API_H
#define QEN_API_H

#if defined(QEN_BUILDING_LIBRARY)
#define QEN_API __attribute__((visibility("default")))
#else
#define QEN_API __attribute__((visibility("default")))
#endif

#define QEN_LOCAL __attribute__((visibility("hidden")))

#endif
