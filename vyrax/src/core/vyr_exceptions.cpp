// The class frames of the exception family, one for each line of
// vyr_exception_list.h.
#include "vyrax/vyr_exceptions.h"

#define VYR_EXCEPTION(X, P) QEN_DEFINE_EXCEPTION(X, P)
#include "vyrax/vyr_exception_list.h"
#undef VYR_EXCEPTION
