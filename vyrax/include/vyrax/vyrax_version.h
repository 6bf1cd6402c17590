// The version of the library, as recorded by every source unit at load.
#ifndef VYRAX_VERSION_H
#define VYRAX_VERSION_H

#define VYRAX_VERSION_NAME "VYRAX"
#define VYRAX_VERSION_MAJOR 2u
#define VYRAX_VERSION_BUILD 11011u
#define VYRAX_VERSION_HEADER "vyrax_version"

#endif
