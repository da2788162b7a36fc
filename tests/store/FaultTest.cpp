// Database files that are missing, replaced, damaged, foreign, locked or not ours to write.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Dialect.h"
#include "Fixture.h"

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
    EXPECT_EQ(LogIn(visitor, link), -1);
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

  // A file that another takes the place of is not written to any more.
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
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 6)
      << "both with their log and index";
}

TEST_P(FaultTest, FileThatIsNotOursIsLeftAsItIs) {
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

TEST_P(FaultTest, DamageBehindTheHeadFailsOnlyWhatMeetsIt) {
  const Entry link = Make();
  ConfigureStore({});
  std::string bytes = Bytes();
  for (std::size_t at = std::size_t{2} * 4096; at < bytes.size(); ++at)
    bytes[at] = static_cast<char>(at * 7);
  Overwrite(bytes);
  EXPECT_FALSE(Exists(link));
  Visitor visitor;
  EXPECT_EQ(LogIn(visitor, link), -1);
}

TEST_P(FaultTest, NewerVersionIsRefusedAndAnOlderOneBroughtUp) {
  const Entry link = Make();
  Execute("update schema_version set version = 3");
  EXPECT_FALSE(IsGood()) << "while it is open";
  Reopen();
  ExpectRefused();
  Execute("update schema_version set version = -1");
  ExpectRefused();
  Execute("drop index visitor_token_address");
  Execute("create index visitor_token_link on visitor_token (link_id)");
  Execute("update schema_version set version = 1");
  EXPECT_TRUE(Exists(link));
  EXPECT_EQ(Select("select version || '' from schema_version"), "2");

  for (const char* table : {"login_failure", "visitor_token", "visitor_session", "link"}) {
    Execute(std::string("drop table ") + table);
  }
  Execute("update schema_version set version = 0");
  Reopen();
  EXPECT_TRUE(IsGood());
  EXPECT_TRUE(Exists(Make()));
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

TEST_P(FaultTest, ReadOnlyDatabaseIsNotUsedUntilItCanBeWritten) {
  const Entry link = Make();
  const auto is_good_for_nobody = [this] {
    const auto good = InProcesses(1, [this](int) {
      if (geteuid() == 0 && seteuid(65534) != 0) return 100;
      return IsGood() ? 1 : 0;
    });
    return good.front();
  };
  // The folder may be written: SQLite would read the database.
  fs::permissions(folder_, fs::perms::all);
  const fs::perms readable = fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read;
  fs::permissions(File(), readable);
  EXPECT_EQ(is_good_for_nobody(), 0);
  fs::permissions(File(), fs::perms::all);
  EXPECT_EQ(is_good_for_nobody(), 1);
  EXPECT_TRUE(Exists(link));
}

}  // namespace VELT::sharing
