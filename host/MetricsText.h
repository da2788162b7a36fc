// The service's metrics in Prometheus' text format, version 0.0.4.
#pragma once

#include <array>
#include <string>

#include "Handover.h"
#include "Pool.h"
#include "Scoreboard.h"
#include "Statistics.h"

namespace VELT::host {

// The sources of the values, all of which must outlive the object.
struct MetricsSource {
  const std::array<PoolLimits, kPoolCount>& limits;
  const std::array<Handover, kPoolCount>& queues;
  const Scoreboard& scoreboard;
  const Statistics& statistics;
};

std::string MetricsText(const MetricsSource& source);

}  // namespace VELT::host
