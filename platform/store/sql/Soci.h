// SOCI without its extras for Boost's types. Debian's configuration switches them on, but its
// package does not bring Boost's headers. They are templates in headers, so the library is not
// affected.
#pragma once

#include <soci/soci-config.h>
#undef SOCI_HAVE_BOOST
#undef SOCI_HAVE_BOOST_DATE_TIME
#include <soci/soci.h>
