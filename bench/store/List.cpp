// One page of 50 links of an owner with 1,000, while other owners' links make the table a thousand
// times larger. Aim: at most twice the cost, for every field and also for the last page.
#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Bench.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"

namespace {

using VELT::sharing::db::Condition;
using VELT::sharing::db::EntryDB;
using VELT::sharing::db::SharingDB;
using VELT::sharing::record::Entry;

constexpr int kOwned = 1000;
constexpr int kPage = 50;
constexpr int kTurns = 5;
constexpr int kRuns = 9;
constexpr const char* kOwner = "1000";
constexpr std::array kSizes = {1'000, 100'000, 1'000'000};
constexpr std::array kFields = {
    "",          "sharing_id",      "project_name",  "owner_uid",     "enabled",
    "auto_gc",   "enable_match_ip", "start_at",      "expire_at",     "expire_times",
    "visits",    "protect_type",    "protect_title", "redirect_type", "redirect_uri",
    "created_at"};

// The links of an owner are spread over the table, as if many people had made links at once.
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

// The work of one measurement with a table of `size` links.
using Work = std::function<void(int size)>;

void ReadPage(const std::string& field, bool ascending, bool everybody, int offset) {
  EntryDB links(*SharingDB::Instance());
  Condition* condition = links.GetCondition();
  if (!field.empty()) condition->OrderBy(field, ascending);
  if (!everybody) condition->Where("owner_uid", kOwner);
  condition->Limit(offset, kPage);
  std::vector<Entry> entries;
  if (!links.Query(entries) || entries.size() != kPage) throw std::runtime_error("no whole page");
}

void ReadTotal(bool everybody, int expected) {
  EntryDB links(*SharingDB::Instance());
  if (!everybody) links.GetCondition()->Where("owner_uid", kOwner);
  int count = 0;
  if (!links.Count(count) || count != expected) throw std::runtime_error("a wrong total");
}

struct Row {
  std::string name;
  Work work;
  std::vector<double> costs;  // by size
};

std::vector<Row> Rows() {
  std::vector<Row> rows;
  for (const std::string field : kFields) {
    const std::string shown = field.empty() ? "(no order)" : field;
    for (const int offset : {0, kOwned - kPage}) {
      rows.push_back({shown + (offset == 0 ? ", first page" : ", last page"),
                      [=](int) { ReadPage(field, true, false, offset); },
                      {}});
    }
  }
  rows.push_back(
      {"created_at, descending", [](int) { ReadPage("created_at", false, false, 0); }, {}});
  rows.push_back({"total", [](int) { ReadTotal(false, kOwned); }, {}});
  rows.push_back({"everybody's: (no order)", [](int) { ReadPage("", true, true, 0); }, {}});
  rows.push_back(
      {"everybody's: created_at", [](int) { ReadPage("created_at", true, true, 0); }, {}});
  rows.push_back({"everybody's: total", [](int size) { ReadTotal(true, size); }, {}});
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
