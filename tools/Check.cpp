// check: whether the service can run with these options on this machine.
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "host/Options.h"
#include "host/request/Registry.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Schema.h"
#include "tools/CheckFiles.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "tools/Finding.h"
#include "tools/SqliteFile.h"
#include "veltsys/Accounts.h"
#include "veltsys/ForkedCall.h"
#include "veltsys/User.h"

namespace VELT::tools {
namespace {

// The ids that velt-webapid takes with these options. An account that does not exist is reported by
// the check of the option file.
host::Ids IdsOf(const HostOptions& options) {
  host::Ids ids{geteuid(), getegid(), options.user};
  if (const auto user = accounts::FindUser(options.user)) {
    ids.uid = user->uid;
    ids.gid = user->gid;
  }
  if (const auto group = accounts::FindGroup(options.group)) ids.gid = *group;
  return ids;
}

Finding CheckDatabase(const HostOptions& options, const host::Ids& /*ids*/) {
  const std::string path = sharing::db::SqlitePath(options.database);
  int version = 0;
  const auto session = OpenAnyVersion(options.database, version);
  const std::string text = NameOf(options.database) + ", schema version " + std::to_string(version);
  if (version > sharing::db::kSchemaVersion) {
    return {State::kFailed, text + ", made by a newer release: use its programs"};
  }
  if (!path.empty()) SqliteFile(path, SqliteFile::Mode::kRead).CheckIntegrity();
  Number(*session, "select count(*) from link");
  if (version < sharing::db::kSchemaVersion) {
    return {State::kWarning, text + ": velt-webapid upgrades it to version " +
                                 std::to_string(sharing::db::kSchemaVersion) +
                                 " when it opens it; make a backup before"};
  }
  return {State::kOk, text};
}

Finding CheckDatabaseRights(const HostOptions& options, const host::Ids& ids) {
  return CheckRights(sharing::db::SqlitePath(options.database), ids);
}

Finding CheckRegistry(const HostOptions& options, const host::Ids& /*ids*/) {
  host::Registry::Load(options.registry);
  return {State::kOk, options.registry + " and the modules that it names"};
}

// Runs `work` in a process of its own, because it may change ids, hang or crash.
Finding Try(Finding (*work)(const HostOptions& options, const host::Ids& ids),
            const HostOptions& options, const host::Ids& ids) {
  constexpr std::chrono::seconds kPatience{60};
  const auto answer = [&]() -> std::string {
    Finding finding;
    try {
      finding = work(options, ids);
    } catch (const soci::soci_error& error) {
      finding = {State::kFailed, FirstLine(error)};
    } catch (const std::exception& error) {
      finding = {State::kFailed, error.what()};
    }
    return static_cast<char>('0' + static_cast<int>(finding.state)) + finding.text;
  };
  std::string text;
  switch (CallInFork(answer, kPatience, text)) {
    case ForkedCall::kReturned:
      return {static_cast<State>(text.front() - '0'), text.substr(1)};
    case ForkedCall::kNotStarted:
      return {State::kFailed, "the check can't start a process"};
    case ForkedCall::kTooLate:
      return {State::kFailed, "the check did not end within 60 seconds"};
    case ForkedCall::kDied:
      break;
  }
  return {State::kFailed, "the check crashed"};
}

}  // namespace

Json::Value Check(const HostOptions& options) {
  const host::Ids ids = IdsOf(options);
  Json::Value checks(Json::arrayValue);
  if (!options.config.empty()) Add(checks, "options", Try(CheckConfigFile, options, ids));
  Add(checks, "database", Try(CheckDatabase, options, ids));
  if (!sharing::db::SqlitePath(options.database).empty()) {
    Add(checks, "rights", Try(CheckDatabaseRights, options, ids));
  }
  Add(checks, "qrencode", CheckQRCode());
  Add(checks, "PAM", CheckPam());
  if (!options.registry.empty()) Add(checks, "registry", Try(CheckRegistry, options, ids));
  Json::Value result;
  result["checks"] = checks;
  result["success"] = !HasFailed(checks);
  return result;
}

}  // namespace VELT::tools
