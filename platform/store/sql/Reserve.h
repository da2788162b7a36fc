// Room on the file system of an SQLite file that is kept for changes that must work on a full disk.
#pragma once

#include <string>

namespace VELT::sharing::db {

// A file "<database>-reserve" of 8 MiB, or of what is free. Processes share it. The functions throw
// nothing but std::bad_alloc; their failure leaves no reserve, and costs nothing else.
class Reserve {
 public:
  // `database` is the path of an SQLite file. Empty: there is no reserve.
  explicit Reserve(const std::string& database)
      : path_(database.empty() ? std::string() : database + "-reserve") {}

  // Makes the reserve as large as the free room allows, if it is not whole.
  void Fill() const;
  // Gives the room up. Call Fill as soon as what needed it is done.
  void GiveUp() const;

 private:
  std::string path_;
};

}  // namespace VELT::sharing::db
