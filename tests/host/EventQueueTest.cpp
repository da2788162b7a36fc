#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "host/process/EventQueue.h"

namespace VELT::host {
namespace {

TEST(EventQueueTest, KeepsAVisitorsNetworkAlone) {
  const std::vector<std::pair<const char*, const char*>> rows = {
      {"203.0.113.77", "203.0.113.0"},
      {"2001:db8:1234:5678::9", "2001:db8:1234::"},
      {"::ffff:203.0.113.77", "::ffff:203.0.113.0"},
      {"fe80::1%eth0", ""},
      {"unix:", ""},
      {"", ""}};
  for (const auto& [address, shown] : rows) {
    EXPECT_EQ(Shortened(address, EventAddress::kShort), shown) << address;
    EXPECT_EQ(Shortened(address, EventAddress::kWhole), address);
    EXPECT_EQ(Shortened(address, EventAddress::kNone), "");
  }
}

}  // namespace
}  // namespace VELT::host
