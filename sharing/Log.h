// One syslog(3) line for each event. It begins with the place by which the event is known.
#pragma once

#include <syslog.h>

#include "sharing/LogPlaces.h"

// `format` is a literal for printf(3), for the text that follows the place.
#define LOG_AT(place, priority, format, ...) \
  syslog((priority), "%s:%d " format, (place).source, (place).line __VA_OPT__(, ) __VA_ARGS__)
