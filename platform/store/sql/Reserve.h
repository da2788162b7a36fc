// Room on the file system of an SQLite file that is kept for changes that must work on a full disk.
#pragma once

#include <cstdint>
#include <string>

namespace VELT::sharing::db {

// A file "<database>-reserve" of 8 MiB, or of a quarter of what is free. Processes share it. The
// functions throw nothing but std::bad_alloc; their failure leaves no reserve, and costs nothing
// else.
class Reserve {
 public:
  // `database` is the path of an SQLite file. Empty: there is no reserve.
  explicit Reserve(const std::string& database)
      : path_(database.empty() ? std::string() : database + "-reserve") {}

  // Makes the reserve whole, or takes back as much as is left of what this object gave up.
  void Fill() const;
  // Gives the room up. Call Fill as soon as what needed it is done.
  void GiveUp();

 private:
  std::string path_;
  std::int64_t given_up_ = 0;  // bytes
};

}  // namespace VELT::sharing::db
