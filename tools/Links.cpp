// list, stats and gc: the links as an administrator sees them. Nothing here reads password hashes,
// session hashes or private data.
#include <sys/stat.h>

#include <charconv>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/store/LinkStatus.h"
#include "platform/store/LocalTime.h"
#include "platform/store/Purge.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/EntryRow.h"
#include "platform/store/sql/Schema.h"
#include "platform/store/sql/Statement.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "veltsys/Accounts.h"
#include "veltsys/User.h"

namespace VELT::tools {
namespace {

using sharing::LinkLimits;

// Looks each account up once: a directory service may be slow.
class OwnerNames {
 public:
  // Empty when there is no such account.
  const std::string& Of(long long uid) {
    const auto [place, is_new] = names_.try_emplace(uid);
    if (is_new) {
      const auto user = accounts::FindUser(static_cast<uid_t>(uid));
      if (user) place->second = user->name;
    }
    return place->second;
  }

 private:
  std::map<long long, std::string> names_;
};

// Reads one more than wanted, to know whether there are more. No column has the status, so a filter
// by status reads all.
std::string LimitOf(const LinkFilter& filter) {
  if (filter.limit == 0 || !filter.status.empty()) return "";
  return " limit " + std::to_string(filter.limit + 1);
}

struct Link {
  std::string id;
  long long owner = 0;
  std::string project;
  std::string title;
  long long enabled = 0;
  long long start_at = 0;
  long long expire_at = 0;
  long long expire_times = 0;
  long long visits = 0;

  const char* Status(std::int64_t now) const {
    return sharing::StatusText(sharing::StatusAt(
        LinkLimits{enabled != 0, start_at, expire_at, expire_times, visits}, now));
  }
};

// Reads the links of the filter's owner and project, the newest first.
class LinkReader {
 public:
  LinkReader(soci::session& sql, const LinkFilter& filter) : project_(filter.project), rows_(sql) {
    std::string where;
    rows_.exchange(soci::into(link_.id));
    rows_.exchange(soci::into(link_.owner));
    rows_.exchange(soci::into(link_.project));
    rows_.exchange(soci::into(link_.title));
    rows_.exchange(soci::into(link_.enabled));
    rows_.exchange(soci::into(link_.start_at));
    rows_.exchange(soci::into(link_.expire_at));
    rows_.exchange(soci::into(link_.expire_times));
    rows_.exchange(soci::into(link_.visits));
    if (!filter.owner.empty()) {
      owner_ = UidOf(filter.owner);
      where = " where owner_uid = :owner";
      rows_.exchange(soci::use(owner_, "owner"));
    }
    if (!project_.empty()) {
      where += where.empty() ? " where " : " and ";
      where += "project_name = :project";
      rows_.exchange(soci::use(project_, "project"));
    }
    sharing::db::Prepare(rows_,
                         "select hash, owner_uid, project_name, protect_title, enabled, start_at, "
                         "expire_at, expire_times, visits from link" +
                             where + " order by id desc" + LimitOf(filter));
    rows_.execute();
  }

  // Null at the end. Valid until the next call.
  const Link* Next() { return rows_.fetch() ? &link_ : nullptr; }

 private:
  long long owner_ = 0;
  std::string project_;
  Link link_;
  soci::statement rows_;
};

Json::Value ToJson(const Link& link, OwnerNames& owners, std::int64_t now,
                   const std::string& site) {
  Json::Value form;
  form["sharing_id"] = link.id;
  form["url"] = site + "/sharing/" + link.id;
  form["owner_uid"] = Json::Int64{link.owner};
  form["owner"] = owners.Of(link.owner);
  form["project_name"] = link.project;
  form["protect_title"] = link.title;
  form["status"] = link.Status(now);
  form["visits"] = Json::Int64{link.visits};
  form["expire_times"] = Json::Int64{link.expire_times};
  form["expire_at"] = sharing::FormatLocalTime(link.expire_at);
  return form;
}

// {column: value, "links": count} for each value of the column, the most frequent first.
Json::Value CountBy(soci::session& sql, const std::string& column) {
  Json::Value counts(Json::arrayValue);
  std::string value;
  long long links = 0;
  soci::statement rows =
      (sql.prepare << "select " << column << " || '', count(*) from link group by " << column
                   << " order by count(*) desc, " << column,
       soci::into(value), soci::into(links));
  rows.execute();
  while (rows.fetch()) {
    Json::Value count;
    count[column] = value;
    count["links"] = Json::Int64{links};
    counts.append(count);
  }
  return counts;
}

long long BytesOf(soci::session& sql, const std::string& path) {
  if (path.empty()) {
    return Number(sql,
                  "select coalesce(sum(pg_total_relation_size(oid)), 0)::bigint from pg_class "
                  "where relnamespace = current_schema()::regnamespace and relkind = 'r'");
  }
  long long bytes = 0;
  for (const char* suffix : {"", "-wal", "-shm"}) {
    struct stat status {};
    if (stat((path + suffix).c_str(), &status) == 0) bytes += status.st_size;
  }
  return bytes;
}

}  // namespace

long long UidOf(const std::string& owner) {
  if (const auto user = accounts::FindUser(owner)) return user->uid;
  std::uint32_t uid = 0;
  const char* end = owner.data() + owner.size();
  const auto [stop, error] = std::from_chars(owner.data(), end, uid);
  if (error != std::errc() || stop != end || uid == sharing::db::kEveryOwner) {
    throw Failure("no account is called " + owner);
  }
  return uid;
}

Json::Value List(const HostOptions& options, const LinkFilter& filter) {
  const auto sql = OpenDatabase(options.database);
  const std::int64_t now = sharing::Now();
  const std::string site = SiteOf(options);
  OwnerNames owners;
  LinkReader links(*sql, filter);
  Json::Value result;
  result["links"] = Json::Value(Json::arrayValue);
  result["more"] = false;
  while (const Link* link = links.Next()) {
    if (!filter.status.empty() && filter.status != link->Status(now)) continue;
    if (filter.limit != 0 && result["links"].size() == filter.limit) {
      result["more"] = true;
      break;
    }
    result["links"].append(ToJson(*link, owners, now, site));
  }
  return result;
}

Json::Value Stats(const HostOptions& options) {
  const auto sql = OpenDatabase(options.database);
  const std::string path = sharing::db::SqlitePath(options.database);
  const std::int64_t now = sharing::Now();
  Json::Value result;
  result["database"] = path.empty() ? "postgresql" : "sqlite3";
  result["schema_version"] = sharing::db::kSchemaVersion;
  result["database_bytes"] = Json::Int64{BytesOf(*sql, path)};
  std::map<std::string, Json::Int64> status;
  Json::Int64 count = 0;
  LinkReader links(*sql, {});
  while (const Link* link = links.Next()) {
    ++status[link->Status(now)];
    ++count;
  }
  result["links"] = count;
  result["status"] = Json::Value(Json::objectValue);
  for (const auto& [name, number] : status) result["status"][name] = number;
  result["sessions"] = Json::Int64{Number(*sql, "select count(*) from visitor_session")};
  result["tokens"] = Json::Int64{Number(*sql, "select count(*) from visitor_token")};
  result["failed_logins"] = Json::Int64{Number(*sql, "select count(*) from failed_login")};
  result["owners"] = CountBy(*sql, "owner_uid");
  for (Json::Value& owner : result["owners"]) {
    const long long uid = std::stoll(owner["owner_uid"].asString());
    owner["owner_uid"] = Json::Int64{uid};
    owner["owner"] = OwnerNames().Of(uid);
  }
  result["projects"] = CountBy(*sql, "project_name");
  return result;
}

Json::Value CollectGarbage(const HostOptions& options, const std::string& owner,
                           const std::string& project) {
  const auto sql = OpenDatabase(options.database);
  const auto uid =
      owner.empty() ? sharing::db::kEveryOwner : static_cast<std::uint32_t>(UidOf(owner));
  Json::Value result;
  result["removed"] = Json::Int64{sharing::db::PurgeLinks(*sql, uid, project)};
  return result;
}

}  // namespace VELT::tools
