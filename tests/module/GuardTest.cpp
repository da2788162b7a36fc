// The guard over a process whose ids and log are simulated: the calls are intercepted at link time.
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "sharing/LogPlaces.h"
#include "sharing/RunAsGuard.h"

namespace {

uid_t g_euid;
gid_t g_egid;
std::string g_refused;  // the call that fails
std::string g_calls;    // and what else happened, each after a comma

int Record(const std::string& call) {
  g_calls += ", " + call;
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
  g_calls += ", " + std::to_string(priority) + " " + line;
}

}  // extern "C"

namespace VELT {
namespace {

TEST(GuardTest, SwitchesAndReturns) {
  const std::string error = "SharingLoginAPI:56 ERROR: ";
  const struct {
    const char* name;
    uid_t euid;
    gid_t egid;
    const char* refused;
    std::string calls;  // of construction, the block or its replacement, and destruction
  } rows[] = {
      {"root", 0, 0, "", ", block"},
      {"ordinary", 1024, 100, "", ", uid 0, gid 0, uid 0, block, gid 100, uid 1024"},
      {"root of another group", 0, 100, "", ", gid 0, block, gid 100"},
      {"ordinary of group root", 1024, 0, "", ", uid 0, uid 0, block, uid 1024"},
      {"uid refused", 1024, 100, "uid 0", ", uid 0, 35 " + error + "IF_RUN_AS(0, 0), else"},
      {"gid refused", 1024, 100, "gid 0",
       ", uid 0, gid 0, 35 " + error + "IF_RUN_AS(0, 0), else, uid 1024"},
      {"return refused", 1024, 100, "gid 100",
       ", uid 0, gid 0, uid 0, block, gid 100, 34 " + error + "~IF_RUN_AS(1024, 100)"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    g_euid = row.euid;
    g_egid = row.egid;
    g_refused = row.refused;
    g_calls.clear();
    IF_RUN_AS(0, 0, log_place::kLoginGuard) {
      g_calls += ", block";
      EXPECT_TRUE(g_euid == 0 && g_egid == 0);
    }
    else {
      g_calls += ", else";
    }
    EXPECT_EQ(g_calls, row.calls);
  }
}

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
  EXPECT_EQ(g_calls, ", 3 InitDataHandler:123 Permssion denied. uid=" + std::to_string(getuid()));
}

}  // namespace
}  // namespace VELT
