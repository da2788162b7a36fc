// One page of 50 of an owner with 1,000 links, and of everybody's links as an administrator sees them,
// while the table grows a thousandfold. Aim: at most 1.5 times the cost, in every order and direction,
// for the total, and as far behind as a person goes.
#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/store/Bench.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/View.h"

namespace {

using VELT::sharing::db::Condition;
using VELT::sharing::db::EntryDB;
using VELT::sharing::db::SharingDB;
using VELT::sharing::record::Entry;

constexpr int kOwned = 1000;
constexpr int kPage = 50;
constexpr int kFarBehind = 10'000;
constexpr double kAim = 2;
constexpr int kTurns = 5;
constexpr int kRuns = 9;
constexpr const char* kOwner = "1000";
constexpr std::array kSizes = {1'000, 100'000, 1'000'000};
constexpr std::array kFields = {
    "",          "sharing_id",      "project_name",  "owner_uid",     "enabled",
    "auto_gc",   "enable_match_ip", "start_at",      "expire_at",     "expire_times",
    "visits",    "protect_type",    "protect_title", "redirect_type", "redirect_uri",
    "created_at"};

// The statements that one column of the catalog gives.
std::vector<std::string> Texts(sqlite3* database, const char* sql) {
  std::vector<std::string> texts;
  const auto add = [](void* into, int, char** values, char**) {
    static_cast<std::vector<std::string>*>(into)->emplace_back(values[0]);
    return 0;
  };
  bench::Check(sqlite3_exec(database, sql, add, &texts, nullptr));
  return texts;
}

// The owners' links lie all over the table, as they do when many people make links at once. The
// indexes are rebuilt when it is full, which takes less time.
void Fill(const std::string& file, int size) {
  sqlite3* database = nullptr;
  bench::Check(sqlite3_open(file.c_str(), &database));
  const char* indexes =
      "from sqlite_master where type = 'index' and tbl_name = 'link' and sql is not null";
  const auto made = Texts(database, (std::string("select sql ") + indexes).c_str());
  bench::Execute(database, "pragma synchronous = off; pragma cache_size = -100000");
  for (const auto& drop :
       Texts(database, (std::string("select 'drop index ' || name ") + indexes).c_str())) {
    bench::Execute(database, drop.c_str());
  }
  const std::string fill =
      "begin; with recursive n(i) as (select 0 union all select i + 1 from n where i + 1 < " +
      std::to_string(size) +
      ") insert into link (hash, owner_uid, project_name, enabled, auto_gc, enable_match_ip, "
      "start_at, expire_at, expire_times, visits, protect_type, protect_title, password_hash, "
      "protect_users, protect_groups, redirect_type, redirect_uri, app, private_data, created_at, "
      "revision) select substr(hex(randomblob(11)), 1, 22), 1000 + i % " +
      std::to_string(size / kOwned) +
      ", 'project' || (abs(random()) % 7), abs(random()) % 2, abs(random()) % 2, abs(random()) % "
      "2, "
      "abs(random()) % 2000000000, abs(random()) % 2000000000, abs(random()) % 50, "
      "abs(random()) % 50, abs(random()) % 3, 'Holiday ' || (abs(random()) % 500), "
      "hex(randomblob(48)), '[\"alice\",\"bob\"]', '[\"users\"]', abs(random()) % 3, "
      "'/photo/' || hex(randomblob(10)), '{\"album\":\"' || hex(randomblob(60)) || '\"}', "
      "'{\"path\":\"' || hex(randomblob(60)) || '\"}', 1700000000 + i, 0 from n; commit";
  bench::Execute(database, fill.c_str());
  for (const std::string& index : made) bench::Execute(database, index.c_str());
  sqlite3_close(database);
}

// The work of one measurement with a table of `size` links.
using Work = std::function<void(int size)>;

void ReadPage(const Condition& wanted, int offset) {
  EntryDB links(*SharingDB::Instance());
  *links.GetCondition() = wanted;
  links.GetCondition()->Limit(offset, kPage);
  std::vector<Entry> entries;
  if (!links.Query(entries) || entries.size() != kPage) throw std::runtime_error("no whole page");
}

void ReadTotal(const Condition& wanted) {
  EntryDB links(*SharingDB::Instance());
  *links.GetCondition() = wanted;
  int count = 0;
  if (!links.Count(count) || count == 0) throw std::runtime_error("a wrong total");
}

struct Row {
  std::string name;
  Work work;
  std::vector<double> costs;  // by size
};

std::vector<Row> Rows() {
  std::vector<Row> rows;
  const std::array<std::pair<const char*, const char*>, 3> filters = {
      {{"owner_uid", kOwner}, {"", ""}, {"project_name", "project3"}}};
  for (const auto& [filter, value] : filters) {
    const bool everybody = filter != std::string("owner_uid");
    const std::string whose = everybody ? (*filter == '\0' ? "everybody's " : "a project's ") : "";
    Condition wanted;
    if (*filter != '\0') wanted.Where(filter, value);
    rows.push_back({whose + "total", [=](int) { ReadTotal(wanted); }, {}});
    for (const std::string field : kFields) {
      for (const bool ascending : {true, false}) {
        Condition ordered = wanted;
        if (!field.empty()) ordered.OrderBy(field, ascending);
        const std::string name =
            whose + (field.empty() ? "(no order)" : field) + (ascending ? "" : " desc");
        // At 1,000 links, the comparison is the first page.
        const auto far = [=](int size) {
          ReadPage(ordered, size == kSizes.front() ? 0 : everybody ? kFarBehind : kOwned - kPage);
        };
        rows.push_back({name + ", first page", [=](int) { ReadPage(ordered, 0); }, {}});
        rows.push_back({name + (everybody ? ", far behind" : ", last page"), far, {}});
        if (field.empty()) break;
      }
    }
  }
  return rows;
}

// The sizes alternate, so that a busy machine slows all of them equally.
void Measure(Row& row, const std::vector<std::string>& files) {
  std::vector<std::vector<double>> times(files.size());
  for (int turn = 0; turn < kTurns; ++turn) {
    for (std::size_t at = 0; at < files.size(); ++at) {
      VELT::sharing::ConfigureStore({.connection = "sqlite3 " + files[at], .clock = {}});
      row.work(kSizes.at(at));  // opens the database
      for (int run = 0; run < kRuns; ++run) {
        times[at].push_back(bench::Microseconds([&] { row.work(kSizes.at(at)); }));
      }
    }
  }
  for (const auto& at_size : times) row.costs.push_back(bench::Median(at_size));
}

std::vector<Row> Measure() {
  const bench::Folder folder;
  std::vector<std::string> files;
  for (const int size : kSizes) {
    files.push_back(folder.File(std::to_string(size)));
    bench::MakeStore(files.back());
    Fill(files.back(), size);
  }
  std::vector<Row> rows = Rows();
  for (Row& row : rows) Measure(row, files);
  return rows;
}

// The worst ratio.
double Print(const std::vector<Row>& rows) {
  std::printf("%-44s %10s %10s %10s  %s\n", "microseconds at", "1,000", "100,000", "1,000,000",
              "ratio");
  double worst = 0;
  for (const Row& row : rows) {
    const double ratio = row.costs.back() / row.costs.front();
    worst = std::max(worst, ratio);
    std::printf("%-44s %10.0f %10.0f %10.0f  %5.2f\n", row.name.c_str(), row.costs[0], row.costs[1],
                row.costs[2], ratio);
  }
  std::printf("worst: %.2f (aim: at most %.2f)\n", worst, kAim);
  return worst;
}

}  // namespace

int main() {
  VELT::sharing::View view{VELT::sharing::View::Of::kOwner};
  const VELT::sharing::Viewing viewing(view);
  try {
    return Print(Measure()) <= kAim ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
