// Who may log in to a link.
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/store/Fixture.h"
#include "tests/support/Orphans.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Login.h"
#include "veltsharing/Session.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/Token.h"
#include "veltsharing/Visit.h"

namespace VELT::sharing {

class LoginTest : public StoreTest {};
VELT_ON_EVERY_DATABASE(LoginTest);

TEST_P(LoginTest, ServesOnlyLinksThatAreEnabledAndWithinTheirTimes) {
  const std::vector<std::tuple<Edit, LoginResult, const char*>> rows = {
      {StartingAt(""), kLoggedIn, "active"},
      {Set(&Entry::set_enabled, false), kNotServed, "disabled"},
      {StartingAt(TimeText(now_)), kLoggedIn, "active"},
      {StartingAt(TimeText(now_ + 1)), kNotServed, "pending"},
      {EndingAt(TimeText(now_)), kLoggedIn, "active"},
      {EndingAt(TimeText(now_ - 1)), kNotServed, "expired"},
      {Set(&Entry::set_owner_uid, 4999), kNotServed, "active"},
  };
  for (const auto& [edit, want, status] : rows) {
    const Entry link = Make(edit);
    EXPECT_EQ(Shown(link)["status"], status);
    Log().clear();
    ExpectLogIn(want, link);
    EXPECT_EQ(Log(),
              std::vector{"6 sharing login: result " + std::to_string(static_cast<int>(want)) +
                          ", address 192.0.2.1, link " + link.get_hash().substr(0, 6)});
  }
  ExpectLogIn(kNotServed, Entry());
}

TEST_P(LoginTest, AsksForTheLinksPasswordOrAListedAccount) {
  const Entry secret = Make(WithPassword());
  ExpectLogIn(kWrongPassword, secret);
  ExpectLogIn(kWrongPassword, secret, "open, says Me");
  ExpectLogIn(kLoggedIn, secret, kPassword);

  const Entry listed = Make(ForUsers({"alice", "gone"}, {"family"}));
  ExpectLogIn(kLoggedIn, listed, "alice's own", "alice");
  ExpectLogIn(kLoggedIn, listed, "carol's own", "carol");
  ExpectLogIn(kNotListed, listed, "bob's own", "bob");
  const std::vector<std::pair<const char*, const char*>> wrong = {
      {"alice", "bob's own"}, {"alice", ""}, {"gone", "x"}, {"", ""}, {"family", "carol's own"}};
  for (const auto& [account, password] : wrong) {
    ExpectLogIn(kWrongAccount, listed, password, account);
  }
}

TEST_P(LoginTest, PamThatHangsOrCrashesFailsTheLoginAndNothingElse) {
  const Entry listed = Make(ForUsers({"alice"}, {}));
  const struct {
    const char* account;
    std::chrono::milliseconds limit;
    LoginResult want;
    std::vector<std::string> log;
  } rows[] = {
      {"hangs", std::chrono::milliseconds(200), kInternal, {"took too long and was ended"}},
      {"ignores SIGTERM", std::chrono::seconds(1), kInternal, {"took too long and was ended"}},
      {"crashes", std::chrono::seconds(30), kInternal, {"crashed during a login"}},
      {"exits", std::chrono::seconds(30), kInternal, {"failed: System error"}},
      {"renames", std::chrono::seconds(30), kLoggedIn, {}},
      {"alice", std::chrono::seconds(30), kLoggedIn, {}},
  };
  const Orphans orphans;
  const auto old_action = std::signal(SIGPIPE, SIG_IGN);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.account);
    ConfigureStore({connection_, [] { return now_; }, row.limit});
    Log().clear();
    ExpectLogIn(row.want, listed, "alice's own", row.account);
    Log().pop_back();  // of every login
    std::vector<std::string> log;
    for (const auto& line : row.log) {
      log.push_back("3 sharing store: PAM service velt-sharing " + line);
    }
    EXPECT_EQ(Log(), log);
    EXPECT_TRUE(orphans.AreGone());
  }
  std::signal(SIGPIPE, old_action);
}

TEST_P(LoginTest, NameThatCouldForgeALogLineIsNotPassedOn) {
  const Entry link = Make(ForUsers({"alice"}, {}));
  for (const std::string& name : {std::string("-alice"), std::string("+alice"), std::string("a\nb"),
                                  std::string("\x1b[2J"), std::string(300, 'a')}) {
    Log().clear();
    ExpectLogIn(kWrongAccount, link, "x", name);
    EXPECT_EQ(Log().size(), 1U) << name;
  }
}

TEST_P(LoginTest, LoginCountsAsAVisitOnlyWithANewToken) {
  const Entry link = Make([](Entry& e) { WithPassword()(e), WithVisits(2)(e); });
  Visitor first;
  Visitor second;
  ASSERT_EQ(LogIn(first, link, kPassword), kLoggedIn);
  EXPECT_EQ(LogIn(first, link, kPassword), kLoggedIn);
  EXPECT_EQ(Shown(link)["visits"], 1);
  EXPECT_EQ(LogIn(second, link, "wrong"), kWrongPassword);
  EXPECT_EQ(LogIn(second, link, kPassword), kLoggedIn);
  EXPECT_EQ(Shown(link)["status"], "used_up");
  ExpectLogIn(kUsedUp, link, kPassword);
  EXPECT_EQ(LogIn(first, link, "wrong"), kWrongPassword);
  EXPECT_EQ(LogIn(first, link, kPassword), kLoggedIn);
  EXPECT_TRUE(MayEnter(first, link) && MayEnter(second, link));
  EXPECT_TRUE(Change(link, WithVisits(3)));
  EXPECT_EQ(Shown(link)["visits"], 2);
  EXPECT_NE(VeltSharingLogout(link.get_hash(), first.sid), 0);
  EXPECT_EQ(LogIn(first, link, kPassword), kLoggedIn);
  ExpectLogIn(kUsedUp, link, kPassword);
}

TEST_P(LoginTest, VisitsAreCountedByTheLocalDay) {
  ASSERT_EQ(setenv("TZ", "LOC-10", 1), 0);
  tzset();
  const Entry link = Make(WithVisits(5));
  const auto visit = [&](LoginResult want) {
    Visitor visitor;
    EXPECT_EQ(LogIn(visitor, link), want);
    EXPECT_EQ(LogIn(visitor, link), want) << "no further visit";
  };
  const auto latest = [&] {
    std::vector<std::int64_t> days;
    EXPECT_TRUE(VisitsByDay(link, days));
    EXPECT_EQ(days.size(), 90U);
    return std::vector(days.end() - 3, days.end());
  };
  using Days = std::vector<std::int64_t>;
  now_ += (kDay - now_ % kDay) + 14 * 60 * kMinute - 1;  // the last second of a local day
  visit(kLoggedIn);
  visit(kLoggedIn);
  EXPECT_EQ(latest(), (Days{0, 0, 2}));
  now_ += 1;
  EXPECT_EQ(latest(), (Days{0, 2, 0}));
  visit(kLoggedIn);
  EXPECT_EQ(latest(), (Days{0, 2, 1}));
  now_ += 89 * kDay;
  links_.PurgeExpiredByOwnerProject(0xFFFFFFFF, "");
  EXPECT_EQ(Select("select sum(visits) || '' from visit_day"), "1");
  now_ += kDay;
  visit(kLoggedIn);
  EXPECT_EQ(Select("select sum(visits) || '' from visit_day"), "1") << "a visit forgets old days";
  now_ -= kDay;
  EXPECT_EQ(latest(), (Days{0, 0, 0})) << "a clock that was set back";
  now_ += 91 * kDay;
  links_.PurgeExpiredByOwnerProject(0xFFFFFFFF, "");
  EXPECT_EQ(Select("select count(*) || '' from visit_day"), "0");
  visit(kLoggedIn);
  visit(kUsedUp);
  EXPECT_EQ(latest(), (Days{0, 0, 1}));
  EXPECT_TRUE(links_.Delete(link));
  EXPECT_EQ(Select("select count(*) || '' from visit_day"), "0");
  ASSERT_EQ(unsetenv("TZ"), 0);
  tzset();
}

}  // namespace VELT::sharing
