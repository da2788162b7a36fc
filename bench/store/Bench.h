// Shared by the store's benchmarks: a database in a new folder, and medians.
#pragma once

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "veltsharing/StoreOptions.h"

namespace bench {

// A new folder below the current one, so that the user chooses the disk.
class Folder {
 public:
  Folder() {
    std::string name = "store-bench-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder");
    path_ = std::filesystem::absolute(name);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string File(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

inline void MakeStore(const std::string& file) {
  VELT::sharing::ConfigureStore({.connection = "sqlite3 " + file, .clock = {}});
  if (!VELT::sharing::CreateStore()) throw std::runtime_error("no store");
}

inline void Check(int result) {
  if (result != SQLITE_OK && result != SQLITE_DONE && result != SQLITE_ROW) {
    throw std::runtime_error(sqlite3_errstr(result));
  }
}

inline void Execute(sqlite3* database, const char* sql) {
  Check(sqlite3_exec(database, sql, nullptr, nullptr, nullptr));
}

template <typename Work>
double Microseconds(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

inline double Median(std::vector<double> times) {
  std::nth_element(times.begin(), times.begin() + static_cast<long>(times.size() / 2), times.end());
  return times[times.size() / 2];
}

}  // namespace bench
