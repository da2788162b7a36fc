// One page of 50 of an owner with 1,000 links, while the table grows a thousandfold with other
// owners' links. Aim: at most twice the cost, for every field and also for the last page.
#include <array>
#include <cinttypes>

#include "Bench.h"
#include "veltsharing/SharingDB.h"

namespace {

using VELT::sharing::db::Condition;
using VELT::sharing::db::EntryDB;
using VELT::sharing::db::SharingDB;
using VELT::sharing::record::Entry;

constexpr int kOwned = 1000;
constexpr int kPage = 50;
constexpr int kRuns = 41;
constexpr const char* kOwner = "1000";
constexpr std::array kSizes = {1'000, 100'000, 1'000'000};
constexpr std::array kFields = {
    "",          "sharing_id",      "project_name",  "owner_uid",     "enabled",
    "auto_gc",   "enable_match_ip", "start_at",      "expire_at",     "expire_times",
    "visits",    "protect_type",    "protect_title", "redirect_type", "redirect_uri",
    "created_at"};

// The owners' links lie all over the table, as they do when many people make links at once.
void Fill(const std::string& file, int size) {
  sqlite3* database = nullptr;
  bench::Check(sqlite3_open(file.c_str(), &database));
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
  sqlite3_close(database);
}

double PageCost(const std::string& field, bool everybody, int offset) {
  std::vector<double> times;
  for (int run = 0; run < kRuns; ++run) {
    std::vector<Entry> entries;
    times.push_back(bench::Microseconds([&] {
      EntryDB links(*SharingDB::Instance());
      Condition* condition = links.GetCondition();
      if (!field.empty()) condition->OrderBy(field, run % 2 == 0);
      if (!everybody) condition->Where("owner_uid", kOwner);
      condition->Limit(offset, kPage);
      if (!links.Query(entries)) throw std::runtime_error("no page");
    }));
    if (entries.size() != kPage) throw std::runtime_error("a short page");
  }
  return bench::Median(times);
}

double CountCost(bool everybody, int expected) {
  std::vector<double> times;
  for (int run = 0; run < kRuns; ++run) {
    int count = 0;
    times.push_back(bench::Microseconds([&] {
      EntryDB links(*SharingDB::Instance());
      if (!everybody) links.GetCondition()->Where("owner_uid", kOwner);
      if (!links.Count(count)) throw std::runtime_error("no count");
    }));
    if (count != expected) throw std::runtime_error("a wrong count");
  }
  return bench::Median(times);
}

struct Row {
  std::string name;
  std::vector<double> costs;
};

std::vector<Row> Measure() {
  std::vector<Row> rows;
  for (const int size : kSizes) {
    const bench::Folder folder;
    bench::MakeStore(folder.File("sharing.db"));
    Fill(folder.File("sharing.db"), size);
    std::size_t at = 0;
    const auto add = [&](const std::string& name, double cost) {
      if (at == rows.size()) rows.push_back({name, {}});
      rows[at++].costs.push_back(cost);
    };
    for (const std::string field : kFields) {
      const std::string shown = field.empty() ? "(no order)" : field;
      add(shown + ", first page", PageCost(field, false, 0));
      add(shown + ", last page", PageCost(field, false, kOwned - kPage));
    }
    add("total", CountCost(false, kOwned));
    add("everybody's: (no order)", PageCost("", true, 0));
    add("everybody's: created_at", PageCost("created_at", true, 0));
    add("everybody's: total", CountCost(true, size));
  }
  return rows;
}

// The worst ratio of one owner's rows.
double Print(const std::vector<Row>& rows) {
  std::printf("%-32s %10s %10s %10s  %s\n", "microseconds at", "1,000", "100,000", "1,000,000",
              "ratio");
  double worst = 0;
  for (const Row& row : rows) {
    const double ratio = row.costs.back() / row.costs.front();
    if (!row.name.starts_with("everybody")) worst = std::max(worst, ratio);
    std::printf("%-32s %10.0f %10.0f %10.0f  %5.2f\n", row.name.c_str(), row.costs[0], row.costs[1],
                row.costs[2], ratio);
  }
  std::printf("worst of one owner's: %.2f (aim: at most 2.00)\n", worst);
  return worst;
}

}  // namespace

int main() {
  try {
    return Print(Measure()) <= 2 ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
