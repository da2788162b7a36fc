// The work of a request done by hand, as the floor of benchmarks.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// Microseconds of each of `count` calls of `work`, sorted.
std::vector<double> Time(int count, const std::function<void()>& work);
double Median(std::vector<double> values);

// Runs qrencode(1) in the simplest way: posix_spawn, read to the end, wait. Returns the number of
// bytes.
std::size_t BareQRCode(const std::string& url);

// The two writes of a create: inserts a copy of the newest row of the table `link`, and then writes
// all its columns again, each in a transaction of its own.
class LinkWriter {
 public:
  explicit LinkWriter(const std::string& database);
  ~LinkWriter();
  LinkWriter(const LinkWriter&) = delete;
  LinkWriter& operator=(const LinkWriter&) = delete;

  void Write();

 private:
  sqlite3_stmt* Prepare(const std::string& sql);
  void Bind(sqlite3_stmt* statement, const std::string& hash);

  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  sqlite3_stmt* update_ = nullptr;
  std::vector<std::string> columns_;
  std::vector<sqlite3_value*> row_;
  int written_ = 0;
};

}  // namespace bench
