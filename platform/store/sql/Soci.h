// SOCI without its extras for Boost's types, which Debian's configuration switches on but whose
// headers its package does not bring. They are templates in headers only, so the library does not
// mind.
#pragma once

#include <soci/soci-config.h>
#undef SOCI_HAVE_BOOST
#undef SOCI_HAVE_BOOST_DATE_TIME
#include <soci/soci.h>
