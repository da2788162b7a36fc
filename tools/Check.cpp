// check: whether the service can do its work with these options on this machine.
#include <unistd.h>

#include <chrono>

#include "host/Registry.h"
#include "sql/Dialect.h"
#include "sql/Schema.h"
#include "tools/CheckFiles.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "tools/SqliteFile.h"
#include "veltsys/Accounts.h"
#include "veltsys/ForkedCall.h"

namespace VELT::tools {
namespace {

const char* TextOf(State state) {
  switch (state) {
    case State::kOk:
      return "ok";
    case State::kWarning:
      return "warning";
    case State::kFailed:
      return "failed";
  }
  return "";
}

// The ids that velt-webapid takes on with these options; the configuration's own check reports
// accounts that are not there.
host::Ids IdsOf(const Place& place) {
  host::Ids ids{geteuid(), getegid(), place.user};
  if (const auto user = accounts::FindUser(place.user)) {
    ids.uid = user->uid;
    ids.gid = user->gid;
  }
  if (const auto group = accounts::FindGroup(place.group)) ids.gid = *group;
  return ids;
}

Finding CheckDatabase(const Place& place, const host::Ids& /*ids*/) {
  const std::string path = sharing::db::SqlitePath(place.database);
  int version = 0;
  const auto session = OpenAnyVersion(place.database, version);
  const std::string text = NameOf(place.database) + ", schema version " + std::to_string(version);
  if (version > sharing::db::kSchemaVersion) {
    return {State::kFailed, text + ", made by a newer release: use its programs"};
  }
  if (!path.empty()) SqliteFile(path, SqliteFile::Mode::kRead).CheckIntegrity();
  Number(*session, "select count(*) from link");
  if (version < sharing::db::kSchemaVersion) {
    return {State::kWarning, text + ": velt-webapid brings it to version " +
                                 std::to_string(sharing::db::kSchemaVersion) +
                                 " when it opens it; make a backup before"};
  }
  return {State::kOk, text};
}

Finding CheckDatabaseRights(const Place& place, const host::Ids& ids) {
  return CheckRights(sharing::db::SqlitePath(place.database), ids);
}

Finding CheckRegistry(const Place& place, const host::Ids& /*ids*/) {
  host::Registry::Load(place.registry);
  return {State::kOk, place.registry + " and the modules that it names"};
}

// What `work` finds, in a process of its own, for it may change ids, hang or crash.
Finding Try(Finding (*work)(const Place& place, const host::Ids& ids), const Place& place,
            const host::Ids& ids) {
  constexpr std::chrono::seconds kPatience{60};
  const auto answer = [&]() -> std::string {
    Finding finding;
    try {
      finding = work(place, ids);
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
      return {State::kFailed, "no process can be started"};
    case ForkedCall::kTooLate:
      return {State::kFailed, "no end after 60 seconds"};
    case ForkedCall::kDied:
      break;
  }
  return {State::kFailed, "crashes when it is looked at"};
}

void Add(Json::Value& result, const char* subject, const Finding& finding) {
  Json::Value check;
  check["subject"] = subject;
  check["state"] = TextOf(finding.state);
  check["text"] = finding.text;
  result["checks"].append(check);
  if (finding.state == State::kFailed) result["success"] = false;
}

}  // namespace

Json::Value Check(const Place& place) {
  const host::Ids ids = IdsOf(place);
  Json::Value result;
  result["success"] = true;
  if (!place.config.empty()) Add(result, "options", Try(CheckConfigFile, place, ids));
  Add(result, "database", Try(CheckDatabase, place, ids));
  if (!sharing::db::SqlitePath(place.database).empty()) {
    Add(result, "rights", Try(CheckDatabaseRights, place, ids));
  }
  Add(result, "qrencode", CheckQRCode());
  Add(result, "PAM", CheckPam());
  if (!place.registry.empty()) Add(result, "registry", Try(CheckRegistry, place, ids));
  return result;
}

}  // namespace VELT::tools
