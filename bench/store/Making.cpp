// Making links, compared with the same insertion by hand into a store of its own with the same
// tables: bench-store-making [COUNT], 100,000 of each if not said otherwise, in turns of a thousand.
// On PostgreSQL too where VELT_TEST_POSTGRESQL names a server (tests/support/with-postgresql). Aim: at
// most 1.2 times that, also when the store has filled.
#include <libpq-fe.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/store/Bench.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/View.h"

namespace {

using VELT::sharing::db::EntryDB;
using VELT::sharing::db::SharingDB;
using VELT::sharing::record::Entry;

constexpr int kTurn = 1000;
constexpr double kAim = 1.2;
constexpr const char* kInsert =
    "insert into link (hash, owner_uid, project_name, enabled, auto_gc, enable_match_ip, start_at, "
    "expire_at, expire_times, visits, protect_type, protect_title, password_hash, protect_users, "
    "protect_groups, redirect_type, redirect_uri, app, private_data, created_at, revision) values "
    "($1, 1000, 'album', 1, 0, 0, 0, 0, 0, 0, 0, 'Holiday', '', '[]', '[]', 0, '', '{}', '{}', "
    "1700000000, 0) returning id";

std::string RandomId() {
  static constexpr std::string_view kDigits =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  std::string id(22, ' ');
  for (char& c : id) c = kDigits[static_cast<std::size_t>(std::rand()) % kDigits.size()];
  return id;
}

// One insertion by hand.
class ByHand {
 public:
  virtual ~ByHand() = default;
  virtual void Make() = 0;
};

class SqliteByHand : public ByHand {
 public:
  explicit SqliteByHand(const std::string& file) {
    bench::Check(sqlite3_open(file.c_str(), &database_));
    bench::Execute(
        database_,
        "pragma journal_mode = wal; pragma synchronous = full; pragma foreign_keys = on");
    bench::Check(sqlite3_prepare_v2(database_, kInsert, -1, &insert_, nullptr));
  }
  ~SqliteByHand() override {
    sqlite3_finalize(insert_);
    sqlite3_close(database_);
  }
  SqliteByHand(const SqliteByHand&) = delete;
  SqliteByHand& operator=(const SqliteByHand&) = delete;

  void Make() override {
    bench::Check(sqlite3_bind_text(insert_, 1, RandomId().c_str(), -1, SQLITE_TRANSIENT));
    while (sqlite3_step(insert_) == SQLITE_ROW) {
    }
    bench::Check(sqlite3_reset(insert_));
  }

 private:
  sqlite3* database_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

class PostgresqlByHand : public ByHand {
 public:
  explicit PostgresqlByHand(const std::string& parameters)
      : connection_(PQconnectdb(parameters.c_str()), PQfinish) {
    Check(PQprepare(connection_.get(), "make", kInsert, 1, nullptr));
  }
  void Make() override {
    const std::string id = RandomId();
    const char* value = id.c_str();
    Check(PQexecPrepared(connection_.get(), "make", 1, &value, nullptr, nullptr, 0));
  }

 private:
  void Check(PGresult* result) const {
    const auto status = PQresultStatus(result);
    PQclear(result);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
      throw std::runtime_error(PQerrorMessage(connection_.get()));
    }
  }
  std::unique_ptr<PGconn, decltype(&PQfinish)> connection_;
};

void MakeLink() {
  EntryDB links(*SharingDB::Instance());
  Entry entry;
  entry.set_owner_uid(1000);
  entry.set_project_name("album");
  entry.set_protect_title("Holiday");
  if (!links.CreateWithHash(entry)) throw std::runtime_error("no link");
}

double Compare(const char* database, ByHand& by_hand, int count) {
  std::vector<double> floor;
  std::vector<double> library;
  for (int turn = 0; turn < count / kTurn; ++turn) {
    for (int link = 0; link < kTurn; ++link)
      floor.push_back(bench::Microseconds([&] { by_hand.Make(); }));
    for (int link = 0; link < kTurn; ++link) library.push_back(bench::Microseconds(MakeLink));
  }
  double worst = 0;
  const auto report = [&](const char* which, auto from, auto size) {
    const std::vector<double> hand(floor.begin() + from, floor.begin() + from + size);
    const std::vector<double> ours(library.begin() + from, library.begin() + from + size);
    const double ratio = bench::Median(ours) / bench::Median(hand);
    worst = std::max(worst, ratio);
    std::printf(
        "%-10s %s %d of %d: by hand %6.0f us, store %6.0f us, ratio %.2f (aim: at most %.2f)\n",
        database, which, kTurn, count, bench::Median(hand), bench::Median(ours), ratio, kAim);
  };
  report("first", 0, kTurn);
  report("last", static_cast<long>(floor.size()) - kTurn, kTurn);
  return worst;
}

double OnSqlite(int count) {
  const bench::Folder folder;
  bench::MakeStore(folder.File("hand.db"));
  SqliteByHand by_hand(folder.File("hand.db"));
  bench::MakeStore(folder.File("store.db"));
  return Compare("SQLite", by_hand, count);
}

double OnPostgresql(const std::string& server, int count) {
  std::array<std::string, 2> schemas;
  for (std::size_t at = 0; at < schemas.size(); ++at) {
    const std::string schema = "bench_" + std::to_string(at);
    schemas.at(at) = server + " options=-csearch_path=" + schema;
    PGconn* connection = PQconnectdb(server.c_str());
    PQclear(PQexec(connection, ("create schema " + schema).c_str()));
    PQfinish(connection);
    VELT::sharing::ConfigureStore({.connection = "postgresql " + schemas.at(at), .clock = {}});
    if (!VELT::sharing::CreateStore()) throw std::runtime_error("no store");
  }
  PostgresqlByHand by_hand(schemas.front());
  return Compare("PostgreSQL", by_hand, count);
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::max(std::atoi(argv[1]), kTurn) : 100'000;
  VELT::sharing::View view{VELT::sharing::View::Of::kOwner};
  const VELT::sharing::Viewing viewing(view);
  try {
    double worst = OnSqlite(count);
    const char* server = std::getenv("VELT_TEST_POSTGRESQL");
    if (server != nullptr) worst = std::max(worst, OnPostgresql(server, count));
    return worst <= kAim ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
