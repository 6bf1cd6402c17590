// The filling in of an exception's message from its data.
#ifndef VYR_FORMAT_H
#define VYR_FORMAT_H

#include <qen/qen_any.h>
#include <qen/qen_string.h>

#include "vyrax/vyr_api.h"

namespace vyr {

// The message, a printf format, with its conversions filled in from `data`
// (one value, or an array of values in the order of the conversions), each
// formatted by the C library with a value of the kind its letter asks for.
// Throws when the data doesn't fit the format.
VYR_LOCAL QEN_TString FormatMessage(const QEN_TString& message, const QEN_TAny& data);

// The text without one line break at its end.
VYR_LOCAL QEN_TString WithoutFinalLineBreak(QEN_TString text);

}  // namespace vyr

#endif
