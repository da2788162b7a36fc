// A new store, a clock that the test sets, and short helpers. After each test the log and the
// database's files are searched for secrets in plain text.
#pragma once

#include <gmock/gmock.h>
#include <json/writer.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/store/sql/Soci.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Login.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/View.h"

namespace VELT::sharing {

using enum LoginResult;
using record::Entry;
using ProtectType = Entry::ProtectType;
using Edit = std::function<void(Entry&)>;

inline constexpr const char* kFormat = "%Y-%m-%d %H:%M:%S";
inline constexpr unsigned int kAlice = 7001;
inline constexpr unsigned int kBob = 7002;
inline constexpr const char* kPassword = "open, says me";

struct Visitor {
  std::string address = "192.0.2.1";
  std::string sid = {};
};

// The parameter is a kind of database, "sqlite3" or, where the environment names one, "postgresql".
class StoreTest : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override;
  void TearDown() override;

  bool IsSqlite() const { return GetParam() == "sqlite3"; }
  std::string File(const std::string& suffix = "") const {
    return folder_ + "/sharing.db" + suffix;
  }
  // Closes the process's database connection; the next call opens it again, as in a new process.
  void Reopen() const {
    ConfigureStore({connection_, [] { return now_; }});
  }
  bool IsGood() const { return db_.IsGood(); }
  void Execute(const std::string& sql) const;
  std::string Select(const std::string& sql) const;

  Entry Make(const Edit& edit = [](Entry&) {});
  Entry Read(const Entry& link);
  bool Exists(const Entry& link);
  bool Change(const Entry& link, const Edit& edit);
  Json::Value Shown(const Entry& link);

  // The store's answer; a success gives the visitor the new session.
  LoginResult LogIn(Visitor& visitor, const Entry& link, const std::string& password = "",
                    const std::string& account = "");
  // A new visitor's login gives this answer, and a session only with success.
  void ExpectLogIn(LoginResult want, const Entry& link, const std::string& password = "",
                   const std::string& account = "");
  bool MayEnter(const Visitor& visitor, const Entry& link);

  // Runs `work` in each of `count` new processes at once; returns what they returned, 0 to 127
  // each.
  std::vector<int> InProcesses(int count, const std::function<int(int)>& work) const;

  static std::int64_t now_;
  std::int64_t login_wait_ = 0;  // of the view after the latest LogIn

  View owners_{View::Of::kOwner};
  const Viewing viewing_{owners_};  // other views are lent for single calls

  db::SharingDB& db_ = *db::SharingDB::Instance();
  db::EntryDB links_{db_};
  std::string folder_;
  std::string connection_;
  std::vector<std::string> secrets_;  // must be neither in the database nor in the log
  std::vector<std::string> hashes_;   // link ids, which must not be in the log
};

// Edits of one field, and the common ones of several.
template <typename... Values>
Edit Set(void (Entry::*setter)(Values...), std::decay_t<Values>... values) {
  return [=](Entry& link) { (link.*setter)(values...); };
}
Edit StartingAt(const std::string& text);
Edit EndingAt(const std::string& text);
Edit WithPassword(const std::string& password = kPassword, bool plain = true);
Edit ForUsers(const std::vector<std::string>& users, const std::vector<std::string>& groups);
inline Edit WithVisits(int visits) { return Set(&Entry::set_expire_times, visits); }
std::string TimeText(std::int64_t time);

// The variable's value, empty when there is none.
std::string Environment(const char* name);

inline constexpr std::int64_t kMinute = 60;
inline constexpr std::int64_t kDay = std::int64_t{24} * 60 * kMinute;

std::vector<std::string> Databases();
#define VELT_ON_EVERY_DATABASE(suite)                                                \
  INSTANTIATE_TEST_SUITE_P(On, suite, testing::ValuesIn(VELT::sharing::Databases()), \
                           [](const auto& database) { return database.param; })

}  // namespace VELT::sharing
