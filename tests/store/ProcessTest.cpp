// Several processes on one database at once.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <vector>

#include "tests/store/Fixture.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing {

namespace fs = std::filesystem;

class ProcessTest : public StoreTest {};
VELT_ON_EVERY_DATABASE(ProcessTest);

TEST_P(ProcessTest, FiftyLoginsOnTenVisitsAreTen) {
  const Entry link = Make(WithVisits(10));
  const auto successes = InProcesses(10, [&](int) {
    int count = 0;
    for (int login = 0; login < 5; ++login) {
      Visitor visitor;
      const LoginResult result = LogIn(visitor, link);
      if (result != kLoggedIn && result != kUsedUp) return 100;
      count += result == kLoggedIn ? 1 : 0;
    }
    return count;
  });
  EXPECT_EQ(std::accumulate(successes.begin(), successes.end(), 0), 10);
  EXPECT_EQ(Shown(link)["visits"], 10);
}

TEST_P(ProcessTest, GuessesAreCountedOverAllProcesses) {
  const std::vector<Entry> links = {Make(ForUsers({"alice"}, {})), Make(ForUsers({"alice"}, {}))};
  Visitor visitor;
  const auto answered = InProcesses(4, [&](int index) {
    int wrong = 0;
    for (int guess = 0; guess < 9; ++guess) {
      wrong += LogIn(visitor, links.at(index % 2), "guess", "alice") == kWrongAccount ? 1 : 0;
    }
    return wrong;
  });
  const int sum = std::accumulate(answered.begin(), answered.end(), 0);
  EXPECT_GE(sum, 10);
  EXPECT_LE(sum, 13) << "no more than the three that were under way beside the tenth";
  for (const Entry& link : links) EXPECT_EQ(LogIn(visitor, link, "alice's own", "alice"), kDenied);
}

TEST_P(ProcessTest, CountsStandWhateverSeveralProcessesWrite) {
  const std::vector<std::string> projects = {"album", "files", "notes"};
  const auto written = InProcesses(6, [&](int index) {
    for (int round = 0; round < 12; ++round) {
      const auto at = static_cast<std::size_t>(index + round);
      Entry made = Make([&](Entry& link) {
        link.set_owner_uid(round % 2 == 0 ? kAlice : kBob);
        link.set_project_name(projects.at(at % 3));
        link.set_auto_gc(true);
        if (round % 4 == 0) EndingAt("2001-01-01 00:00:00")(link);
      });
      if (round % 4 == 1 && !links_.Delete(made)) return 1;
      if (round % 4 == 2 && !Change(made, Set(&Entry::set_project_name, projects.at((at + 1) % 3))))
        return 2;
      if (round % 6 == 5 && !links_.PurgeExpiredByOwnerProject(0xFFFFFFFF, "")) return 3;
    }
    return 0;
  });
  EXPECT_THAT(written, testing::Each(0));
  EXPECT_EQ(Select("select count(*) || '' from link"),
            Select("select sum(links) || '' from link_count where owner_uid = 4294967295"));
  const std::string counted =
      "select owner_uid, project, sum(links) as links from link_count where owner_uid < 4294967295 "
      "group by owner_uid, project";
  const std::string there =
      "select owner_uid, project_name, count(*) as links from link group by owner_uid, "
      "project_name";
  for (const auto& [one, other] : {std::pair(counted, there), std::pair(there, counted)}) {
    EXPECT_EQ(Select("select count(*) || '' from (select * from (" + one +
                     ") as a except select * from (" + other + ") as b) as c"),
              "0");
  }
}

// A purge, and each login, removes rows that all others may be removing. The tables' order of rows
// differs from that of their indexes, because rows that are written anew move to the table's end.
TEST_P(ProcessTest, CleanUpsNeverWaitForEachOtherInACircle) {
  const std::array<Entry, 3> doors = {Make(), Make(), Make()};
  for (int round = 0; round < 3; ++round) {
    for (int made = 0; made < 100; ++made) Make(Set(&Entry::set_auto_gc, true));
    for (const char* parity : {"0", "1"}) {
      Execute("update link set visits = 1, expire_times = 1 where auto_gc = 1 and id % 2 = " +
              std::string(parity));
    }
    Execute("delete from visitor_session");
    Execute(
        "insert into visitor_session (sid_hash, address, last_used) "
        "select id || '', '192.0.2.1', 1000 - id from link");
    Execute(
        "insert into visitor_token (session_id, link_id, address) "
        "select s.id, l.id, s.address from visitor_session s, link l");
    Execute(
        "insert into visit_day (link_id, day, visits) select d.id, l.id, 1 from link d, link l "
        "where d.auto_gc = 0");
    const auto failures = InProcesses(6, [&](int index) {
      const unsigned int owner = index % 2 == 0 ? 0xFFFFFFFF : kAlice;
      if (index < 3) return links_.PurgeExpiredByOwnerProject(owner, "") ? 0 : 1;
      int failed = 0;
      for (int login = 0; login < 5; ++login) {
        Visitor visitor;
        failed += LogIn(visitor, doors.at(index - 3)) == kLoggedIn ? 0 : 1;
      }
      return failed;
    });
    EXPECT_THAT(failures, testing::Each(0));
  }
}

TEST_P(ProcessTest, UpdatesOfSeveralProcessesAreAllKept) {
  const Entry link = Make();
  const auto changed = InProcesses(3, [&](int index) {
    int changes = 0;
    for (int value = 1; value <= 25; ++value) {
      const std::vector<Edit> edits = {WithVisits(value), Set(&Entry::set_app, Json::Value(value)),
                                       Set(&Entry::set_protect_title, std::to_string(value))};
      changes += Change(link, edits.at(index)) ? 1 : 0;
    }
    return changes;
  });
  EXPECT_THAT(changed, testing::Each(25));
  const Json::Value shown = Shown(link);
  EXPECT_TRUE(shown["expire_times"] == 25 && shown["app"] == 25 && shown["protect_title"] == "25")
      << shown;
}

TEST_P(ProcessTest, OneOfTenDeletesSucceeds) {
  const Entry link = Make();
  const auto deleted = InProcesses(10, [&](int) { return links_.Delete(link) ? 1 : 0; });
  EXPECT_EQ(std::accumulate(deleted.begin(), deleted.end(), 0), 1);
}

// The account's check blocks on a pipe that stands for PAM's files, so that the change comes in
// between.
TEST_P(ProcessTest, LoginThatAChangeOvertakesIsCheckedAgain) {
  const Entry link = Make(ForUsers({"bob"}, {}));
  const std::string pipe = folder_ + "/passdb";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  Reopen();
  const pid_t visitor = fork();
  if (visitor == 0) {
    setenv("PAM_MATRIX_PASSWD", pipe.c_str(), 1);
    Visitor bob;
    _exit(LogIn(bob, link, "bob's own", "bob") == kNotListed ? 0 : 1);
  }
  std::ofstream answer(pipe);  // returns when the visitor reads
  ASSERT_TRUE(Change(link, ForUsers({"alice"}, {})));
  // The next check reads a file at this path.
  fs::copy_file(Environment("PAM_MATRIX_PASSWD"), folder_ + "/file");
  fs::rename(folder_ + "/file", pipe);
  answer << "bob:bob's own:velt-sharing\n";
  answer.close();
  int status = 0;
  EXPECT_EQ(waitpid(visitor, &status, 0), visitor);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Select("select count(*) || '' from visitor_token"), "0");
}

TEST_P(ProcessTest, KilledWriterLosesNoReportedLink) {
  constexpr std::size_t kWanted = 1000;
  constexpr std::size_t kPerWriter = 200;
  constexpr std::size_t kLine = 23;
  Reopen();
  std::vector<std::string> reported;
  int kills = 0;
  while (reported.size() < kWanted) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t writer = fork();
    while (writer == 0) {
      const std::string line = Make().get_hash() + "\n";
      if (write(ends[1], line.data(), line.size()) < 0) _exit(1);
    }
    close(ends[1]);
    std::array<char, kLine> line{};
    for (std::size_t count = 0; read(ends[0], line.data(), kLine) == kLine; ++count) {
      reported.emplace_back(line.data(), kLine - 1);
      if (count == kPerWriter) kill(writer, SIGKILL);
    }
    close(ends[0]);
    waitpid(writer, nullptr, 0);
    ++kills;
  }
  for (const std::string& hash : reported) {
    Entry link;
    ASSERT_TRUE(links_.GetByHash(hash, link));
  }
  int count = 0;
  EXPECT_TRUE(links_.Count(count));
  EXPECT_LE(count, static_cast<int>(reported.size()) + kills)
      << "at most one unreported link of each writer";
}

}  // namespace VELT::sharing
