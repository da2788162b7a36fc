#include "bench/module/Floors.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <ratio>

namespace bench {
namespace {

[[noreturn]] void Die(const char* what) {
  std::cerr << "bench: " << what << "\n";
  std::exit(1);
}

}  // namespace

std::vector<double> Time(int count, const std::function<void()>& work) {
  using Clock = std::chrono::steady_clock;
  std::vector<double> times;
  for (int i = 0; i < count; ++i) {
    const Clock::time_point start = Clock::now();
    work();
    times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  std::ranges::sort(times);
  return times;
}

double Median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

std::size_t BareQRCode(const std::string& url) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) Die("pipe2 failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  std::string argument = url;
  std::array<char*, 7> argv{const_cast<char*>("/usr/bin/qrencode"),
                            const_cast<char*>("-l"),
                            const_cast<char*>("H"),
                            argument.data(),
                            const_cast<char*>("-o"),
                            const_cast<char*>("-"),
                            nullptr};
  pid_t pid = 0;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    Die("qrencode does not start");
  }
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::array<char, 8192> chunk{};
  std::size_t total = 0;
  for (ssize_t count = 0; (count = read(ends[0], chunk.data(), chunk.size())) > 0;) {
    total += static_cast<std::size_t>(count);
  }
  close(ends[0]);
  waitpid(pid, nullptr, 0);
  return total;
}

LinkWriter::LinkWriter(const std::string& database) {
  if (sqlite3_open(database.c_str(), &db_) != SQLITE_OK) Die("no database");
  sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON",
               nullptr, nullptr, nullptr);
  sqlite3_busy_timeout(db_, 5000);
  sqlite3_stmt* newest = Prepare("SELECT * FROM link ORDER BY id DESC LIMIT 1");
  if (sqlite3_step(newest) != SQLITE_ROW) Die("no link to copy");
  std::string names;
  std::string marks;
  std::string changes;
  for (int i = 0; i < sqlite3_column_count(newest); ++i) {
    const std::string name = sqlite3_column_name(newest, i);
    if (name == "id") continue;
    columns_.push_back(name);
    row_.push_back(sqlite3_value_dup(sqlite3_column_value(newest, i)));
    names += (names.empty() ? "" : ", ") + name;
    marks += marks.empty() ? "?" : ", ?";
    changes += (changes.empty() ? "" : ", ") + name + " = ?";
  }
  sqlite3_finalize(newest);
  insert_ = Prepare("INSERT INTO link (" + names + ") VALUES (" + marks + ")");
  update_ = Prepare("UPDATE link SET " + changes + " WHERE id = last_insert_rowid()");
}

LinkWriter::~LinkWriter() {
  for (sqlite3_value* value : row_) sqlite3_value_free(value);
  sqlite3_finalize(insert_);
  sqlite3_finalize(update_);
  sqlite3_close(db_);
}

sqlite3_stmt* LinkWriter::Prepare(const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    Die(sqlite3_errmsg(db_));
  }
  return statement;
}

void LinkWriter::Bind(sqlite3_stmt* statement, const std::string& hash) {
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const int index = static_cast<int>(i) + 1;
    if (columns_[i] == "hash") {
      sqlite3_bind_text(statement, index, hash.c_str(), -1, SQLITE_TRANSIENT);
    } else {
      sqlite3_bind_value(statement, index, row_[i]);
    }
  }
}

void LinkWriter::Write() {
  const std::string hash = "floor" + std::to_string(getpid()) + "x" + std::to_string(++written_);
  for (sqlite3_stmt* statement : {insert_, update_}) {
    Bind(statement, hash);
    if (sqlite3_step(statement) != SQLITE_DONE) Die(sqlite3_errmsg(db_));
    sqlite3_reset(statement);
  }
}

}  // namespace bench
