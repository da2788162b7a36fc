// Calls the methods as the framework does, through the exported tables. The store is real and new:
// an SQLite file, or a schema of the server that VELT_TEST_POSTGRESQL names.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/support/Json.h"
#include "tests/support/SyslogCapture.h"
#include "veltwebapi/ErrorCodes.h"
#include "veltwebapi/RequestContext.h"

namespace VELT {

struct Answer {
  int code = 0;  // 0: success
  Json::Value body;
  bool raw = false;  // the module wrote its answer itself
  std::string printed;
  std::string cookie;    // "<name>=<value>; <path>; <lifetime>; <domain>; <whether secure>"
  bool handled = false;  // the pre-check let the handler run
};

class ModuleTest : public testing::Test {
 protected:
  static constexpr unsigned int kAlice = 2001;  // in group 3001 "family"
  static constexpr unsigned int kBob = 2002;
  static constexpr unsigned int kAdmin = 2000;

  ModuleTest();
  ~ModuleTest() override;

  // Who makes the calls that follow.
  void As(unsigned int uid, bool admin = false);
  void AsVisitor(const std::string& link, const std::string& sid,
                 const std::string& address = "192.0.2.1");

  // `parameters` is an object, or the text of one. Without `checked` the handler runs alone.
  Answer Call(const std::string& api, const std::string& method, const Json::Value& parameters,
              bool checked = true);
  Answer Sharing(const std::string& method, const Json::Value& parameters, bool checked = true) {
    return Call("VELT.Core.Sharing", method, parameters, checked);
  }
  Answer TryLogin(const std::string& link, const Members& credentials = {});
  // Calls that must succeed. Create returns a link's id. Login returns the visitor's session id, and
  // the calls that follow are this visitor's.
  std::string Create(const Members& members = {});
  std::string Login(const std::string& link, const Members& credentials = {});

  bool IsSqlite() const { return connection_.starts_with("sqlite3"); }
  void BreakStore();
  // From now on, until RefuseNoMore, the database refuses this: "insert", "update" or "delete".
  void Refuse(const std::string& event) const;
  void RefuseNoMore() const;
  void Pass(int seconds) { now_ += seconds; }
  // Changes the database by a connection of its own.
  void ExecuteSql(const std::string& sql) const;
  // The number of rows of `table` for which `where` holds, by a connection of its own.
  int Rows(const std::string& table, const std::string& where = "1 = 1") const;

  std::filesystem::path folder_;
  std::int64_t now_ = 1'700'000'000;

 private:
  void OpenStore();
  std::string connection_;
  RequestContext caller_;
  const sharing::Viewing viewing_{caller_.view};
};

}  // namespace VELT
