// SOCI without its support for Boost's types. Debian's configuration enables it, but the package
// does not depend on Boost's headers. It consists of templates in headers, so the library is not
// affected.
#pragma once

#include <soci/soci-config.h>
#undef SOCI_HAVE_BOOST
#undef SOCI_HAVE_BOOST_DATE_TIME
#include <soci/soci.h>
