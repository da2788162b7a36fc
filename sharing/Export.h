// Marks what other components of the appliance call. Everything else of the library is hidden.
#pragma once

#define VELT_EXPORT __attribute__((visibility("default")))
