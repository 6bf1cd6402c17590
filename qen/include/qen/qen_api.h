// Export control for the base-type library. The library is built with hidden
// visibility; only what carries QEN_API is part of its interface.
#ifndef QEN_API_H
#define QEN_API_H

#define QEN_API __attribute__((visibility("default")))
#define QEN_LOCAL __attribute__((visibility("hidden")))

#endif
