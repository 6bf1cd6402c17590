// Texts for people: exceptions and variants.
#ifndef VYR_UTILS_H
#define VYR_UTILS_H

#include <qen/qen_any.h>
#include <qen/qen_exception.h>
#include <qen/qen_string.h>

#include "vyrax/vyr_api.h"

// The text of an exception. Its message is a printf format filled in from
// its data (one value, or an array of values in the order of the format's
// conversions); without data it reads "Exception of class X" or
// "Exception of class X with message "..."". An exception held as data is a
// wrapped one: its text comes first, on its own lines, with every line but
// its first indented by `indent` blanks, unless `noNested` leaves it out.
// Never throws: a message that can't be formatted with its data falls back
// to VYR_Any2String of the exception.
VYR_API QEN_TString VYR_Exception2String(const QEN_EException& exception, bool noNested = false,
                                         unsigned indent = 0);

// What the variant's PrintOn writes, up to its first zero byte.
VYR_API QEN_TString VYR_Any2String(const QEN_TAny& any);

#endif
