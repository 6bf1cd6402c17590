// The exception family of the library.
//
// Every failure leaves an operation as one of these classes. They add no
// state to QEN_EException: the message stays an unformatted printf format
// (or a fixed text), its arguments travel as data, and VYR_Exception2String
// (vyr_utils.h) puts the two together for a person. Each class is an ordinary
// class of the class system: it is built by name, packed (framed by its
// parent's name) and thrown again as its most derived class after Extract.
//
// Eight classes hang directly under QEN_EException, one per subsystem, so a
// caller can catch a whole subsystem's failures by its root.
#ifndef VYR_EXCEPTIONS_H
#define VYR_EXCEPTIONS_H

#include <qen/qen_exception.h>
// The generated packing of each class speaks to the stream interfaces.
#include <qen/qen_stream.h>

#include "vyrax/vyr_api.h"

// One line per class in vyr_exception_list.h: the frame, the four
// constructors, QEN_Throw by value, packing and cloning are all generated.
#define VYR_EXCEPTION(X, P) QEN_DECLARE_EXCEPTION(VYR_API, X, P)

#include "vyrax/vyr_exception_list.h"

#undef VYR_EXCEPTION

#endif
