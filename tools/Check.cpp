// check: whether the service can run with these options on this machine.
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "host/Options.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Schema.h"
#include "tools/CheckFiles.h"
#include "tools/CheckModules.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "tools/Finding.h"
#include "tools/PluginResult.h"
#include "tools/SqliteFile.h"
#include "veltsys/Accounts.h"
#include "veltsys/ForkedCall.h"
#include "veltsys/JsonText.h"
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

// Runs `work`, which gives findings about `subject`, in a process of its own, because it may change
// ids, hang or crash.
template <typename Work>
void Try(const std::string& subject, Work work, Json::Value& checks) {
  constexpr std::chrono::seconds kPatience{60};
  const auto answer = [&]() -> std::string {
    Json::Value found(Json::arrayValue);
    try {
      work(found);
    } catch (const soci::soci_error& error) {
      Add(found, subject, {State::kFailed, FirstLine(error)});
    } catch (const std::exception& error) {
      Add(found, subject, {State::kFailed, error.what()});
    }
    return OneLine(found);
  };
  std::string text;
  Json::Value found;
  switch (CallInFork(answer, kPatience, text)) {
    case ForkedCall::kReturned:
      if (!ParseJsonText(text, found)) break;
      for (const Json::Value& check : found) checks.append(check);
      return;
    case ForkedCall::kNotStarted:
      return Add(checks, subject, {State::kFailed, "the check can't start a process"});
    case ForkedCall::kTooLate:
      return Add(checks, subject, {State::kFailed, "the check did not end within 60 seconds"});
    case ForkedCall::kDied:
      break;
  }
  Add(checks, subject, {State::kFailed, "the check crashed"});
}

// The same for work that gives one finding.
void Try(const std::string& subject, Finding (*work)(const HostOptions&, const host::Ids&),
         const HostOptions& options, const host::Ids& ids, Json::Value& checks) {
  Try(
      subject, [&](Json::Value& found) { Add(found, subject, work(options, ids)); }, checks);
}

}  // namespace

Json::Value Check(const HostOptions& options) {
  const host::Ids ids = IdsOf(options);
  Json::Value checks(Json::arrayValue);
  if (!options.config.empty()) Try("options", CheckConfigFile, options, ids, checks);
  Try("database", CheckDatabase, options, ids, checks);
  if (!sharing::db::SqlitePath(options.database).empty()) {
    Try("rights", CheckDatabaseRights, options, ids, checks);
  }
  Add(checks, "qrencode", CheckQRCode());
  Add(checks, "PAM, visitors", CheckPam("velt-sharing"));
  Add(checks, "PAM, owners", CheckPam("velt-owner"));
  if (!options.registry.empty()) {
    Try(
        "registry", [&](Json::Value& found) { CheckModules(options, ids, found); }, checks);
  }
  Json::Value result;
  result["checks"] = checks;
  result["success"] = !HasFailed(checks);
  return result;
}

}  // namespace VELT::tools
