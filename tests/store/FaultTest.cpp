// Database files that are missing, replaced, damaged, foreign, locked or not ours to write.
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/store/sql/Dialect.h"
#include "tests/store/Fixture.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::sharing {

namespace fs = std::filesystem;

class FaultTest : public StoreTest {
 protected:
  std::string Bytes() const {
    std::ifstream file(File(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void Overwrite(const std::string& bytes) const {
    ConfigureStore({});
    std::ofstream(File(), std::ios::binary) << bytes;
    Reopen();
  }
  void ExpectRefused() {
    Entry link;
    Visitor visitor;
    int count = 0;
    Log().clear();
    EXPECT_FALSE(IsGood());
    EXPECT_FALSE(links_.CreateWithHash(link) || links_.Count(count) || MayEnter(visitor, link));
    EXPECT_EQ(LogIn(visitor, link), kInternal);
    EXPECT_THAT(Log(), testing::Each(testing::HasSubstr("sharing")));
  }
};
INSTANTIATE_TEST_SUITE_P(On, FaultTest, testing::Values("sqlite3"));

TEST_P(FaultTest, MissingFileIsNotMadeAnewAndUsedAgainWhenItComesBack) {
  const Entry link = Make();
  fs::rename(folder_, folder_ + "-away");
  ExpectRefused();
  EXPECT_FALSE(CreateStore()) << "without a folder";
  EXPECT_FALSE(fs::exists(folder_));
  fs::rename(folder_ + "-away", folder_);
  EXPECT_TRUE(IsGood());
  EXPECT_TRUE(Exists(link));

  // A file that was moved away is not written to any more.
  fs::rename(File(), File("-old"));
  ExpectRefused();
  EXPECT_FALSE(CreateStore()) << "beside the old one's log";
  for (const char* suffix : {"-wal", "-shm"}) fs::rename(File(suffix), File("-old") + suffix);
  ASSERT_TRUE(CreateStore());
  EXPECT_FALSE(Exists(link));
  EXPECT_TRUE(Exists(Make()));
  EXPECT_TRUE(CreateStore()) << "again";
  struct stat status {};
  EXPECT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 7)
      << "both databases with their log and index, and a reserve";
}

TEST_P(FaultTest, ForeignFileIsRefusedAndLeftUnchanged) {
  ConfigureStore({});
  std::string foreign = Bytes();
  foreign.replace(0, 15, "SQLite format 2");
  for (const std::string& bytes :
       {std::string(), std::string("no database"), Bytes().substr(0, 5000), foreign}) {
    Overwrite(bytes);
    ExpectRefused();
    EXPECT_TRUE(CreateStore());
    ExpectRefused();
    EXPECT_TRUE(Bytes() == bytes);
  }
}

TEST_P(FaultTest, DamageBehindTheHeaderFailsTheCallsThatReadIt) {
  const Entry link = Make();
  ConfigureStore({});
  std::string bytes = Bytes();
  for (std::size_t at = std::size_t{2} * 4096; at < bytes.size(); ++at)
    bytes[at] = static_cast<char>(at * 7);
  Overwrite(bytes);
  EXPECT_FALSE(Exists(link));
  Visitor visitor;
  EXPECT_EQ(LogIn(visitor, link), kInternal);
}

TEST_P(FaultTest, NewerVersionIsRefusedAndAnOlderOneUpgraded) {
  const Entry link = Make(ForUsers({"alice"}, {}));
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, link, "alice's own", "alice"), kLoggedIn);
  EXPECT_TRUE(IsGood());
  Execute("update schema_version set version = 1000");
  ++now_;
  EXPECT_FALSE(IsGood()) << "while it is open";
  Reopen();
  ExpectRefused();
  Execute("update schema_version set version = -1");
  ExpectRefused();

  for (const std::string kind : {"trigger", "index"}) {
    const std::string what =
        "from sqlite_master where type = '" + kind + "' and sql is not null and name like 'link%'";
    while (Select("select count(*) || '' " + what) != "0")
      Execute("drop " + kind + " " + Select("select name " + what));
  }
  for (const char* back_to_version_2 : {
           "create index link_list on link (owner_uid)",
           "drop table link_count",
           "alter table link drop column protection",
           "alter table visitor_token drop column protection",
           "drop table failed_login",
           "drop table owner_session",
           "drop table owner_token",
           "drop table owner_account",
           "drop table sign_in_key",
           "drop table login_turn",
           "drop table visit_day",
           "drop table link_event",
           "drop table notify_link",
           "drop table notify_notice",
           "drop table notify_channel",
           "drop table notify_told",
           R"(create table login_failure (link_id bigint not null
                references link (id) on delete cascade, address text not null,
                failed_at bigint not null))",
           "create index login_failure_address on login_failure (link_id, address, failed_at)",
           "create index login_failure_time on login_failure (failed_at)",
           "insert into login_failure select id, '192.0.2.1', 1800000000 from link",
           "update schema_version set version = 2",
       }) {
    Execute(back_to_version_2);
  }
  EXPECT_TRUE(MayEnter(visitor, link));
  EXPECT_EQ(Select("select group_concat(owner_uid || project || links) from link_count"),
            "7001album1,4294967295album1");
  EXPECT_EQ(Select("select version || '' from schema_version"), "11");
  for (int count = 0; count < 9; ++count) {
    EXPECT_EQ(LogIn(visitor, link, "guess", "alice"), kWrongAccount);
  }
  EXPECT_EQ(LogIn(visitor, link, "alice's own", "alice"), kDenied) << "the old failure counts";
  EXPECT_TRUE(Change(link, ForUsers({"bob"}, {})));
  EXPECT_FALSE(MayEnter(visitor, link));
}

TEST_P(FaultTest, LockedDatabaseFailsAndIsUsedAgain) {
  const Entry link = Make();
  {
    const auto other = db::OpenSession(connection_);
    *other << "begin immediate";
    EXPECT_TRUE(Exists(link)) << "readers go on";
    EXPECT_FALSE(Change(link, WithVisits(3)));
  }
  EXPECT_TRUE(Change(link, WithVisits(3)));
  ConfigureStore({});
  {
    const auto other = db::OpenSession(connection_);
    *other << "pragma locking_mode = exclusive";
    *other << "begin exclusive";
    *other << "update link set visits = 0";
    Reopen();
    EXPECT_FALSE(IsGood());
  }
  EXPECT_TRUE(IsGood());
}

// Each change is made on a disk that something else has filled to its last byte again, also by a
// process that has yet to open the database.
TEST_P(FaultTest, OnAFullDiskOwnersSwitchOffAndDeleteAndVisitorsRead) {
  const std::string reserve = File("-reserve");
  const auto fill = [this] {
    std::ofstream file(folder_ + "/filler", std::ios::app | std::ios::binary);
    for (const std::string& piece : {std::string(1U << 16U, 'x'), std::string("x")}) {
      while (file << piece << std::flush) {
      }
      file.clear();
    }
  };
  const auto work = [&](int reopens) {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", folder_.c_str(), "tmpfs", 0, "size=40m") != 0) {
      return 100;
    }
    if (!CreateStore()) return 1;
    const Entry off = Make();
    const Entry gone = Make();
    Visitor visitor;
    if (LogIn(visitor, off) != kLoggedIn || fs::file_size(reserve) != 8U << 20U) return 2;
    for (int count = 0; count < 300; ++count) {
      Make([](Entry& link) {
        link.set_auto_gc(true);
        link.set_expire_at_str("2001-01-01 00:00:00", kFormat);
      });
    }
    const auto full = [&](const std::function<bool()>& change) {
      if (reopens == 1) ConfigureStore({});
      fill();
      if (reopens == 1) Reopen();
      return change();
    };
    Visitor late;
    if (!full([&] { return Exists(off) && MayEnter(visitor, off); })) return 3;
    // Old log entries may have left room for a login.
    if (!full([&] { return LogIn(late, off) == kLoggedIn || late.sid.empty(); })) return 4;
    if (!full([&] { return Change(off, Set(&Entry::set_enabled, false)); })) return 5;
    if (!full([&] { return links_.Delete(gone); })) return 6;
    if (!full([&] { return links_.PurgeExpiredByOwnerProject(0xFFFFFFFF, ""); })) return 7;
    if (!full([&] { return db::TokenDB(db_).PurgeByEntry(off); })) return 8;
    int left = 0;
    if (!links_.Count(left) || left != 1 || MayEnter(visitor, off) || Exists(gone)) return 9;
    fs::remove(folder_ + "/filler");
    if (!Change(off, Set(&Entry::set_enabled, true))) return 10;
    Reopen();
    return LogIn(late, off) == kLoggedIn && fs::file_size(reserve) == 8U << 20U ? 0 : 11;
  };
  const std::vector<int> results = InProcesses(2, work);
  if (results.front() == 100) GTEST_SKIP() << "no file system may be mounted";
  EXPECT_THAT(results, testing::Each(0));
}

TEST_P(FaultTest, ReadOnlyDatabaseIsNotUsedUntilItCanBeWritten) {
  const Entry link = Make();
  const auto is_good_for_nobody = [this] {
    const auto good = InProcesses(1, [this](int) {
      if (geteuid() == 0 && seteuid(65534) != 0) return 100;
      return IsGood() ? 1 : 0;
    });
    return good.front();
  };
  // In a writable folder SQLite itself would still read the database.
  fs::permissions(folder_, fs::perms::all);
  const fs::perms readable = fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read;
  fs::permissions(File(), readable);
  EXPECT_EQ(is_good_for_nobody(), 0);
  fs::permissions(File(), fs::perms::all);
  EXPECT_EQ(is_good_for_nobody(), 1);
  EXPECT_TRUE(Exists(link));
}

TEST_P(FaultTest, NoMemoryToCheckAPasswordIsNoGuess) {
  const Entry link = Make(WithPassword());
  Visitor visitor;
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_AS, &limit), 0);
  long long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlimit small = {static_cast<rlim_t>(pages * getpagesize()) + (8U << 20U), limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_AS, &small), 0);
  const LoginResult result = LogIn(visitor, link, kPassword);
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  EXPECT_EQ(result, kInternal);
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "0");
  EXPECT_EQ(LogIn(visitor, link, kPassword), kLoggedIn);
}

}  // namespace VELT::sharing
