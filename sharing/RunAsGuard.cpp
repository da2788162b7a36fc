#include "sharing/RunAsGuard.h"

#include <syslog.h>
#include <unistd.h>

#include "sharing/Log.h"

namespace VELT {
namespace {

constexpr uid_t kKeepUid = static_cast<uid_t>(-1);
constexpr gid_t kKeepGid = static_cast<gid_t>(-1);

// Only root may take any group, so a process that is to change its user becomes root first.
bool SwitchTo(uid_t uid, gid_t gid) {
  const uid_t euid = geteuid();
  const gid_t egid = getegid();
  if (euid == uid && egid == gid) return true;
  if (euid != uid && euid != 0 && setresuid(kKeepUid, 0, kKeepUid) < 0) return false;
  if (gid != kKeepGid && egid != gid && setresgid(kKeepGid, gid, kKeepGid) != 0) return false;
  return uid == kKeepUid || euid == uid || setresuid(kKeepUid, uid, kKeepUid) == 0;
}

}  // namespace

RunAsGuard::RunAsGuard(uid_t uid, gid_t gid, const char* source, int line)
    : saved_euid_(geteuid()),
      saved_egid_(getegid()),
      file_(source),
      line_(line),
      ok_(SwitchTo(uid, gid)) {
  if (!ok_) {
    LOG_AT((LogPlace{file_, line_}), LOG_AUTH | LOG_ERR, "ERROR: %s(%d, %d)", name_,
           static_cast<int>(uid), static_cast<int>(gid));
  }
}

RunAsGuard::~RunAsGuard() {
  if (!SwitchTo(saved_euid_, saved_egid_)) {
    LOG_AT((LogPlace{file_, line_}), LOG_AUTH | LOG_CRIT, "ERROR: ~%s(%d, %d)", name_,
           static_cast<int>(saved_euid_), static_cast<int>(saved_egid_));
  }
}

void LogPermissionDenied(const LogPlace& place) {
  LOG_AT(place, LOG_ERR, "Permssion denied. uid=%u", getuid());
}

}  // namespace VELT
