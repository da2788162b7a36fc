// The guard over a process whose ids and log are simulated: the calls are intercepted at link time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "sharing/RunAsGuard.h"

namespace {

uid_t g_euid;
gid_t g_egid;
std::string g_refused;  // the call that fails
std::vector<std::string> g_calls;

int Record(const std::string& call) {
  g_calls.push_back(call);
  return call == g_refused ? -1 : 0;
}

}  // namespace

extern "C" {

uid_t __wrap_geteuid() { return g_euid; }
gid_t __wrap_getegid() { return g_egid; }

int __wrap_setresuid(uid_t real, uid_t effective, uid_t saved) {
  EXPECT_TRUE(real == static_cast<uid_t>(-1) && saved == static_cast<uid_t>(-1));
  const int result = Record("uid " + std::to_string(effective));
  if (result == 0) g_euid = effective;
  return result;
}

int __wrap_setresgid(gid_t real, gid_t effective, gid_t saved) {
  EXPECT_TRUE(real == static_cast<gid_t>(-1) && saved == static_cast<gid_t>(-1));
  const int result = Record("gid " + std::to_string(effective));
  if (result == 0) g_egid = effective;
  return result;
}

void __wrap_syslog(int priority, const char* format, ...) {
  char line[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof(line), format, args);
  va_end(args);
  g_calls.push_back(std::to_string(priority) + " " + line);
}

}  // extern "C"

namespace VELT {
namespace {

struct GuardCase {
  const char* name;
  uid_t euid;
  gid_t egid;
  const char* refused;
  std::vector<std::string> calls;  // of construction, the block or its replacement, and destruction
};

class GuardTest : public testing::TestWithParam<GuardCase> {};

TEST_P(GuardTest, SwitchesAndReturns) {
  const GuardCase& row = GetParam();
  g_euid = row.euid;
  g_egid = row.egid;
  g_refused = row.refused;
  g_calls.clear();
  IF_RUN_AS(0, 0, log_place::kLoginGuard) {
    g_calls.emplace_back("block");
    EXPECT_EQ(g_euid, 0U);
    EXPECT_EQ(g_egid, 0U);
  }
  else {
    g_calls.emplace_back("else");
  }
  EXPECT_EQ(g_calls, row.calls);
}

INSTANTIATE_TEST_SUITE_P(
    Ids, GuardTest,
    testing::Values(
        GuardCase{"root", 0, 0, "", {"block"}},
        GuardCase{
            "ordinary", 1024, 100, "", {"uid 0", "gid 0", "uid 0", "block", "gid 100", "uid 1024"}},
        GuardCase{"root_of_another_group", 0, 100, "", {"gid 0", "block", "gid 100"}},
        GuardCase{"ordinary_of_group_root", 1024, 0, "", {"uid 0", "uid 0", "block", "uid 1024"}},
        GuardCase{"uid_refused",
                  1024,
                  100,
                  "uid 0",
                  {"uid 0", "35 SharingLoginAPI:56 ERROR: IF_RUN_AS(0, 0)", "else"}},
        GuardCase{
            "gid_refused",
            1024,
            100,
            "gid 0",
            {"uid 0", "gid 0", "35 SharingLoginAPI:56 ERROR: IF_RUN_AS(0, 0)", "else", "uid 1024"}},
        GuardCase{"return_refused",
                  1024,
                  100,
                  "gid 100",
                  {"uid 0", "gid 0", "uid 0", "block", "gid 100",
                   "34 SharingLoginAPI:56 ERROR: ~IF_RUN_AS(1024, 100)"}}),
    [](const auto& row) { return row.param.name; });

TEST(GuardTest, ReturnsWhenTheBlockIsLeftByAnException) {
  g_euid = 1024;
  g_egid = 100;
  g_refused.clear();
  const auto leave_by_exception = [] {
    IF_RUN_AS(0, 0, log_place::kLoginGuard) { throw std::runtime_error("left"); }
  };
  EXPECT_THROW(leave_by_exception(), std::runtime_error);
  EXPECT_EQ(g_euid, 1024U);
  EXPECT_EQ(g_egid, 100U);
}

TEST(GuardTest, DenialNamesTheRealUid) {
  g_calls.clear();
  LogPermissionDenied(log_place::kPackageDenied);
  EXPECT_THAT(g_calls, testing::ElementsAre("3 InitDataHandler:123 Permssion denied. uid=" +
                                            std::to_string(getuid())));
}

}  // namespace
}  // namespace VELT
