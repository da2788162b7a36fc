// First starts, databases of a newer version, and connections that are ended or locked out.
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/store/sql/Dialect.h"
#include "tests/store/Fixture.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Login.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::sharing {

class ConnectionTest : public StoreTest {
 protected:
  // As an administrator or a restart does; returns when they have ended.
  void EndAllConnections() const {
    Execute(
        "select pg_terminate_backend(pid, 10000) from pg_stat_activity "
        "where datname = current_database() and pid <> pg_backend_pid()");
  }
};
VELT_ON_EVERY_DATABASE(ConnectionTest);

TEST_P(ConnectionTest, FirstStartsAtOnceMakeTheTablesOnce) {
  if (IsSqlite()) {
    std::filesystem::remove(File());
  } else {
    Execute("drop schema velt_test cascade");
    Execute("create schema velt_test");
  }
  const std::vector<int> created =
      InProcesses(10, [](int) { return CreateStore() && db::SharingDB::Instance()->IsGood(); });
  EXPECT_THAT(created, testing::Each(1));
  EXPECT_EQ(Select("select count(*) || '' from schema_version"), "1");
  EXPECT_TRUE(Exists(Make()));
}

TEST_P(ConnectionTest, NewerVersionIsReportedAndLeftUnchanged) {
  const Entry link = Make();
  Execute("update schema_version set version = 1000");
  Reopen();
  Log().clear();
  EXPECT_FALSE(IsGood());
  EXPECT_FALSE(Exists(link) || links_.Delete(link));
  EXPECT_TRUE(CreateStore());
  EXPECT_THAT(Log(), testing::Contains(testing::EndsWith("made by a newer version: 1000")));
  EXPECT_EQ(Select("select version || '' from schema_version"), "1000");
  EXPECT_EQ(Select("select count(*) || '' from link"), "1");
}

TEST_P(ConnectionTest, EndedConnectionIsReplacedBeforeItIsUsed) {
  if (IsSqlite()) GTEST_SKIP() << "no server that could end it";
  const Entry link = Make(WithPassword());
  Visitor visitor;
  const std::vector<std::pair<const char*, std::function<bool()>>> calls = {
      {"check", [&] { return IsGood(); }},
      {"read", [&] { return Exists(link); }},
      {"create", [&] { return Exists(Make()); }},
      {"update", [&] { return Change(link, WithVisits(3)); }},
      {"login", [&] { return LogIn(visitor, link, kPassword) == kLoggedIn; }},
      {"token", [&] { return MayEnter(visitor, link); }},
      {"logout", [&] { return VeltSharingLogout(link.get_hash(), visitor.sid) == 1; }},
      {"purge", [&] { return links_.PurgeExpiredByOwnerProject(kAlice, ""); }},
      {"delete", [&] { return links_.Delete(link); }},
  };
  for (const auto& [name, call] : calls) {
    EndAllConnections();
    EXPECT_TRUE(call()) << name;
  }
  EXPECT_THAT(Log(), testing::Not(testing::Contains(testing::HasSubstr("failed"))));
}

TEST_P(ConnectionTest, LockThatIsHeldTooLongFailsTheCallAlone) {
  if (IsSqlite()) GTEST_SKIP() << "covered by FaultTest";
  const Entry link = Make();
  {
    const auto other = db::OpenSession(connection_);
    *other << "begin";
    *other << "select 1 from link for update";
    EXPECT_TRUE(Exists(link)) << "readers go on";
    EXPECT_FALSE(Change(link, WithVisits(3)));
  }
  EXPECT_TRUE(Change(link, WithVisits(3)));
}

}  // namespace VELT::sharing
