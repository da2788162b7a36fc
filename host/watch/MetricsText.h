// The service's metrics in Prometheus' text format, version 0.0.4.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>

#include "host/Pool.h"
#include "host/watch/Scoreboard.h"
#include "host/watch/Statistics.h"

namespace VELT::host {

// The sources of the values, all of which must outlive the object.
struct MetricsSource {
  const PoolSizes& sizes;
  std::function<std::size_t(Pool)> queue_length;  // calls that wait for a pool's workers
  const Scoreboard& scoreboard;
  const Statistics& statistics;
};

std::string MetricsText(const MetricsSource& source);

}  // namespace VELT::host
