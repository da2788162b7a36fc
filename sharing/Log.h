// How the library logs: one syslog(3) line an event, which begins with the place that it is known by.
#pragma once

#include <syslog.h>

#include "sharing/LogPlaces.h"

// `format` is a literal, printf's, for what follows the place.
#define LOG_AT(place, priority, format, ...) \
  syslog((priority), "%s:%d " format, (place).source, (place).line __VA_OPT__(, ) __VA_ARGS__)
