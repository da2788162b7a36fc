// Who gets in to a link, and for how long.
#include <dlfcn.h>
#include <pwd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "Fixture.h"
#include "tests/support/Orphans.h"

// The user database finds accounts in any case, as a directory may.
extern "C" int getpwnam_r(const char* name, passwd* account, char* buffer, std::size_t size,
                          passwd** found) {
  static const auto next = reinterpret_cast<decltype(&getpwnam_r)>(dlsym(RTLD_NEXT, "getpwnam_r"));
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return next(lower.c_str(), account, buffer, size, found);
}

namespace VELT::sharing {

class LoginTest : public StoreTest {
 protected:
  void ExpectLogIn(int want, const Entry& link, const std::string& password = "",
                   const std::string& account = "") {
    Visitor visitor;
    EXPECT_EQ(LogIn(visitor, link, password, account), want) << password << " " << account;
    EXPECT_EQ(visitor.sid.empty(), want != 1);
  }
};
VELT_ON_EVERY_DATABASE(LoginTest);

TEST_P(LoginTest, ServesOnlyLinksThatAreEnabledAndWithinTheirTimes) {
  const std::vector<std::tuple<Edit, int, const char*>> rows = {
      {StartingAt(""), 1, "active"},
      {Set(&Entry::set_enabled, false), -3, "disabled"},
      {StartingAt(TimeText(now_)), 1, "active"},
      {StartingAt(TimeText(now_ + 1)), -3, "pending"},
      {EndingAt(TimeText(now_)), 1, "active"},
      {EndingAt(TimeText(now_ - 1)), -3, "expired"},
      {Set(&Entry::set_owner_uid, 4999), -3, "active"},
  };
  for (const auto& [edit, want, status] : rows) {
    const Entry link = Make(edit);
    EXPECT_EQ(Shown(link)["status"], status);
    Log().clear();
    ExpectLogIn(want, link);
    EXPECT_EQ(Log(), std::vector{"6 sharing login: result " + std::to_string(want) +
                                 ", address 192.0.2.1, link " + link.get_hash().substr(0, 6)});
  }
  ExpectLogIn(-3, Entry());
}

TEST_P(LoginTest, AsksForTheLinksPasswordOrAListedAccount) {
  const Entry secret = Make(WithPassword());
  ExpectLogIn(-9, secret);
  ExpectLogIn(-9, secret, "open, says Me");
  ExpectLogIn(1, secret, kPassword);

  const Entry listed = Make(ForUsers({"alice", "gone"}, {"family"}));
  ExpectLogIn(1, listed, "alice's own", "alice");
  ExpectLogIn(1, listed, "carol's own", "carol");
  ExpectLogIn(-10, listed, "bob's own", "bob");
  const std::vector<std::pair<const char*, const char*>> wrong = {
      {"alice", "bob's own"}, {"alice", ""}, {"gone", "x"}, {"", ""}, {"family", "carol's own"}};
  for (const auto& [account, password] : wrong) ExpectLogIn(-2, listed, password, account);
}

TEST_P(LoginTest, PamThatHangsOrCrashesFailsTheLoginAndNothingElse) {
  const Entry listed = Make(ForUsers({"alice"}, {}));
  const struct {
    const char* account;
    std::chrono::milliseconds limit;
    int want;
    std::vector<std::string> log;
  } rows[] = {
      {"hangs", std::chrono::milliseconds(200), -1, {"took too long and was ended"}},
      {"ignores SIGTERM", std::chrono::seconds(1), -1, {"took too long and was ended"}},
      {"crashes", std::chrono::seconds(30), -1, {"died of a login"}},
      {"exits", std::chrono::seconds(30), -1, {"failed: System error"}},
      {"renames", std::chrono::seconds(30), 1, {}},
      {"alice", std::chrono::seconds(30), 1, {}},
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

TEST_P(LoginTest, GivesANewSessionThatTakesTheTokensAlong) {
  const Entry first = Make();
  const Entry second = Make();
  Visitor visitor{.sid = "planted by somebody else"};
  const Visitor planted = visitor;
  ASSERT_EQ(LogIn(visitor, first), 1);
  EXPECT_FALSE(MayEnter(planted, first));
  EXPECT_TRUE(MayEnter(visitor, first));
  EXPECT_FALSE(MayEnter(visitor, second));

  const Visitor before = visitor;
  ASSERT_EQ(LogIn(visitor, second), 1);
  EXPECT_TRUE(MayEnter(visitor, first) && MayEnter(visitor, second));
  EXPECT_FALSE(MayEnter(before, first) || MayEnter(before, second));
  EXPECT_FALSE(MayEnter({.sid = Select("select sid_hash from visitor_session")}, first));

  EXPECT_EQ(VeltSharingLogout(first.get_hash(), before.sid), 0);
  EXPECT_EQ(VeltSharingLogout(Make().get_hash(), visitor.sid), 0);
  EXPECT_NE(VeltSharingLogout(first.get_hash(), visitor.sid), 0);
  EXPECT_FALSE(MayEnter(visitor, first) || MayEnter(visitor, second));
}

TEST_P(LoginTest, TokenDiesWithWhatItStandsOn) {
  const auto edited = [this](const Edit& edit) {
    return [this, edit](const Entry& link) { EXPECT_TRUE(Change(link, edit)); };
  };
  const auto elsewhere = [this](const Entry& link) {
    EXPECT_TRUE(Change(link, Set(&Entry::set_enable_match_ip, true)));
    Execute("update visitor_token set address = '198.51.100.9'");
  };
  const std::vector<std::pair<const char*, std::function<void(const Entry&)>>> ends = {
      {"disabled", edited(Set(&Entry::set_enabled, false))},
      {"expired", edited(EndingAt(TimeText(now_ - 1)))},
      {"put off", edited(StartingAt(TimeText(now_ + 1)))},
      {"bound to an address elsewhere", elsewhere},
      {"purged", [this](const Entry& link) { EXPECT_TRUE(db::TokenDB(db_).PurgeByEntry(link)); }},
      {"deleted", [this](const Entry& link) { EXPECT_TRUE(links_.Delete(link)); }},
      {"unused for a day", [](const Entry&) { now_ += kDay; }},
  };
  for (const auto& [name, end] : ends) {
    const Entry link = Make();
    Visitor visitor;
    ASSERT_EQ(LogIn(visitor, link), 1);
    EXPECT_TRUE(MayEnter(visitor, link)) << name;
    end(link);
    EXPECT_FALSE(MayEnter(visitor, link)) << name;
  }
}

TEST_P(LoginTest, LinkDiesWithItsOwnersAccount) {
  const std::string passwd = Environment("NSS_WRAPPER_PASSWD");
  const Entry link = Make(Set(&Entry::set_owner_uid, kBob));
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, link), 1);
  std::ifstream file(passwd);
  const std::string before(std::istreambuf_iterator<char>(file), {});
  const auto write = [&passwd](const std::string& text, int later) {
    std::ofstream(passwd) << text;
    // The wrapper looks at whole seconds only.
    std::filesystem::last_write_time(
        passwd, std::filesystem::file_time_type::clock::now() + std::chrono::hours(later));
  };
  std::string without = before;
  without.erase(without.find("bob:"), without.find("carol:") - without.find("bob:"));
  write(without, 1);
  EXPECT_FALSE(MayEnter(visitor, link));
  ExpectLogIn(-3, link);
  EXPECT_EQ(Shown(link)["owner_user"], "");
  write(before, 2);
  EXPECT_TRUE(MayEnter(visitor, link));
}

TEST_P(LoginTest, SessionLivesADayAfterItsLastUseWhichIsNotedNowAndThen) {
  const Entry link = Make();
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, link), 1);
  const std::int64_t start = now_;
  const auto noted = [&] {
    return std::stoll(Select("select last_used || '' from visitor_session")) - start;
  };
  now_ = start + 299;
  EXPECT_TRUE(MayEnter(visitor, link));
  EXPECT_EQ(noted(), 0);
  now_ = start + 300;
  EXPECT_TRUE(MayEnter(visitor, link));
  EXPECT_EQ(noted(), 300);
  now_ += kDay - 1;
  EXPECT_TRUE(MayEnter(visitor, link));
  const Visitor stale = visitor;
  now_ += kDay;
  record::Session session;
  record::Token token;
  EXPECT_TRUE(db::SessionDB(db_).GetBySessionId(stale.sid, session));
  EXPECT_TRUE(db::TokenDB(db_).GetBySessionEntry(session, link, token));
  EXPECT_FALSE(session.IsLegal() || token.IsLegal());
  ASSERT_EQ(LogIn(visitor, Make()), 1);
  EXPECT_FALSE(MayEnter(visitor, link)) << "a dead session's tokens moved along";
  EXPECT_FALSE(MayEnter(stale, link));
}

TEST_P(LoginTest, NewSessionSweepsDeadOnesAway) {
  const Entry link = Make();
  Visitor dead;
  Visitor alive;
  Visitor last;
  ASSERT_EQ(LogIn(dead, link), 1);
  now_ += kDay - 1;
  ASSERT_EQ(LogIn(alive, link), 1);
  EXPECT_EQ(Select("select count(*) || '' from visitor_session"), "2");
  now_ += 1;
  ASSERT_EQ(LogIn(last, link), 1);
  EXPECT_EQ(Select("select count(*) || '' from visitor_session"), "2");
  EXPECT_TRUE(MayEnter(alive, link) && MayEnter(last, link));
}

TEST_P(LoginTest, BacklogOfDeadSessionsGoesByAndBy) {
  const Entry link = Make();
  Execute(
      "insert into visitor_session (sid_hash, address, last_used) "
      "with recursive n (i) as (select 1 union all select i + 1 from n where i < 250) "
      "select 'dead ' || i, '', 1 from n");
  for (const char* left : {"151", "52", "3", "4"}) {
    ExpectLogIn(1, link);
    EXPECT_EQ(Select("select count(*) || '' from visitor_session"), left);
  }
}

TEST_P(LoginTest, AddressKeepsAThousandSessionsOfALinkAtMost) {
  const Entry link = Make();
  const Entry other = Make();
  Visitor first;
  Visitor second;
  Visitor elsewhere{.address = "192.0.2.2"};
  Visitor at_other;
  ASSERT_EQ(LogIn(at_other, other), 1);
  ASSERT_EQ(LogIn(first, link), 1);
  ASSERT_EQ(LogIn(second, link), 1);
  ASSERT_EQ(LogIn(elsewhere, link), 1);
  for (int count = 2; count < 1000; ++count) ExpectLogIn(1, link);
  EXPECT_TRUE(MayEnter(first, link));
  ExpectLogIn(1, link);
  EXPECT_FALSE(MayEnter(first, link));
  EXPECT_TRUE(MayEnter(second, link) && MayEnter(elsewhere, link) && MayEnter(at_other, other));
}

TEST_P(LoginTest, NameThatCouldForgeALogLineIsNotPassedOn) {
  const Entry link = Make(ForUsers({"alice"}, {}));
  for (const std::string& name : {std::string("-alice"), std::string("+alice"), std::string("a\nb"),
                                  std::string("\x1b[2J"), std::string(300, 'a')}) {
    Log().clear();
    ExpectLogIn(-2, link, "x", name);
    EXPECT_EQ(Log().size(), 1U) << name;
  }
}

TEST_P(LoginTest, VisitIsALoginThatMakesANewToken) {
  const Entry link = Make([](Entry& e) { WithPassword()(e), WithVisits(2)(e); });
  Visitor first;
  Visitor second;
  ASSERT_EQ(LogIn(first, link, kPassword), 1);
  EXPECT_EQ(LogIn(first, link, kPassword), 1);
  EXPECT_EQ(Shown(link)["visits"], 1);
  EXPECT_EQ(LogIn(second, link, "wrong"), -9);
  EXPECT_EQ(LogIn(second, link, kPassword), 1);
  EXPECT_EQ(Shown(link)["status"], "used_up");
  ExpectLogIn(-11, link, kPassword);
  EXPECT_EQ(LogIn(first, link, "wrong"), -9);
  EXPECT_EQ(LogIn(first, link, kPassword), 1);
  EXPECT_TRUE(MayEnter(first, link) && MayEnter(second, link));
  EXPECT_TRUE(Change(link, WithVisits(3)));
  EXPECT_EQ(Shown(link)["visits"], 2);
  EXPECT_NE(VeltSharingLogout(link.get_hash(), first.sid), 0);
  EXPECT_EQ(LogIn(first, link, kPassword), 1);
  ExpectLogIn(-11, link, kPassword);
}

TEST_P(LoginTest, AddressIsThatOfTheLoginWhereTheLinkAsksForIt) {
  const Entry bound = Make(Set(&Entry::set_enable_match_ip, true));
  const Entry free = Make();
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, bound), 1);
  ASSERT_EQ(LogIn(visitor, free), 1);
  visitor.address = "2001:db8::1";
  EXPECT_FALSE(MayEnter(visitor, bound));
  EXPECT_TRUE(MayEnter(visitor, free));
  EXPECT_EQ(LogIn(visitor, bound), -8);
  EXPECT_EQ(LogIn(visitor, free), 1) << "and the session moves on";
  EXPECT_FALSE(MayEnter(visitor, bound));
  EXPECT_EQ(LogIn(visitor, bound), 1);
  EXPECT_TRUE(MayEnter(visitor, bound));
}

TEST_P(LoginTest, TenWrongGuessesShutTheAddressOutForAQuarterOfAnHour) {
  const Entry link = Make(ForUsers({"alice"}, {}));
  Visitor guesser;
  for (int count = 0; count < 4; ++count) {
    EXPECT_EQ(LogIn(guesser, link, "guess", "alice"), -2);
  }
  ASSERT_TRUE(Change(link, WithPassword()));
  const auto guess = [&](int times, int want) {
    for (int count = 0; count < times; ++count) EXPECT_EQ(LogIn(guesser, link, "guess"), want);
  };
  guess(5, -9);
  EXPECT_EQ(LogIn(guesser, link, kPassword), 1) << "which forgets the five, not the four";
  guess(3, -9);
  ASSERT_TRUE(Change(link, Set(&Entry::set_enabled, false)));
  guess(5, -3);
  ASSERT_TRUE(Change(link, Set(&Entry::set_enabled, true)));
  now_ += kMinute;
  guess(3, -9);
  const auto shut_out = [&] {
    return LogIn(guesser, link, "guess") == -8 && LogIn(guesser, link, kPassword) == -8;
  };
  EXPECT_TRUE(shut_out());
  Reopen();
  EXPECT_TRUE(shut_out());
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "10")
      << "what is refused counts not";
  Visitor other{.address = "192.0.2.2"};
  EXPECT_EQ(LogIn(other, link, kPassword), 1);
  EXPECT_EQ(LogIn(guesser, Make(WithPassword()), kPassword), 1) << "on another link";
  now_ += 14 * kMinute - 1;
  EXPECT_TRUE(shut_out());
  now_ += 1;
  EXPECT_EQ(LogIn(guesser, link, "guess"), -9);
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "4") << "the others are over";
  EXPECT_EQ(LogIn(guesser, link, kPassword), 1);
}

TEST_P(LoginTest, AccountIsGuessedAtTenTimesFromAnAddressAndThirtyFromAll) {
  const Edit listed = ForUsers({"alice", "bob"}, {});
  const auto guess = [&](Visitor guesser, const char* name) {
    Entry link = Make(listed);
    EXPECT_EQ(LogIn(guesser, link, "guess", name), -2) << guesser.address;
    return link;
  };
  const auto own = [&](const char* address) {
    Visitor alice{.address = address};
    return LogIn(alice, Make(listed), "alice's own", "alice");
  };
  Visitor guesser;
  for (const char* name : {"alice", "ALICE", "Alice", "alice", "alice"}) {
    EXPECT_EQ(LogIn(guesser, guess({}, name), "bob's own", "bob"), 1) << "which forgets nothing";
    EXPECT_TRUE(links_.Delete(guess({}, name))) << "which neither does";
  }
  EXPECT_EQ(own("192.0.2.1"), -8);
  EXPECT_EQ(LogIn(guesser, Make(listed), "bob's own", "bob"), 1);
  for (int count = 0; count < 9; ++count) guess({.address = "192.0.2.2"}, "alice");
  EXPECT_EQ(own("192.0.2.2"), 1) << "which forgets those of its address alone";
  EXPECT_EQ(own("192.0.2.1"), -8);
  for (const char* address : {"192.0.2.3", "192.0.2.4"}) {
    for (int count = 0; count < 10; ++count) guess({.address = address}, "alice");
  }
  EXPECT_EQ(own("192.0.2.5"), -8);
  now_ += 15 * kMinute;
  EXPECT_EQ(own("192.0.2.1"), 1);
}

TEST_P(LoginTest, WhateverTellsOfAPasswordIsAGuess) {
  const std::vector<std::tuple<int, const char*, std::string>> rows = {
      {-10, "bob's own", "bob"},  // that it is right
      {-2, "guess", "\xFF"},
      {-2, "guess", ""},
      {-2, "guess", std::string(3000, 'x')},
  };
  for (const auto& [want, password, account] : rows) {
    for (int count = 0; count < 10; ++count) {
      ExpectLogIn(want, Make(ForUsers({"alice"}, {})), password, account);
    }
    ExpectLogIn(-8, Make(ForUsers({"alice"}, {})), password, account);
  }
  EXPECT_EQ(Select("select max(length(account)) || '' from failed_login"), "64");
}

TEST_P(LoginTest, GuessesOfOneNetworkCountTogether) {
  const std::vector<std::tuple<const char*, const char*, bool>> rows = {
      {"192.0.2.1", "192.0.2.2", false},
      {"192.0.2.1", "::ffff:192.0.2.1", true},
      {"::ffff:192.0.2.1", "::ffff:192.0.2.2", false},
      {"2001:db8:0:1::1", "2001:DB8:0:1:f000:0:0:2", true},
      {"2001:db8:0:1::1", "2001:db8:0:2::1", false},
      {"no address", "no address", true},
      {"no address", "", false},
  };
  for (const auto& [first, second, together] : rows) {
    const Entry link = Make(ForUsers({"alice"}, {}));
    const std::string account = std::string(first) + second;
    Visitor guesser{.address = first};
    for (int count = 0; count < 10; ++count) EXPECT_EQ(LogIn(guesser, link, "guess", account), -2);
    Visitor other{.address = second};
    EXPECT_EQ(LogIn(other, link, "alice's own", "alice"), together ? -8 : 1) << account;
  }
}

TEST_P(LoginTest, VisitHoldsForTheProtectionThatItWasGivenFor) {
  const Edit open = Set(&Entry::set_protect_type, ProtectType::kNone);
  const Edit password = Set(&Entry::set_protect_type, ProtectType::kPassword);
  const Edit user = Set(&Entry::set_protect_type, ProtectType::kUser);
  const Edit stored = [&](Entry& e) { WithPassword()(e), ForUsers({"alice"}, {})(e), open(e); };
  const Edit bob = Set(&Entry::set_protect_users, std::vector<std::string>{"alice", "bob"});
  const Edit family = Set(&Entry::set_protect_groups, std::vector<std::string>{"family"});
  const struct {
    const char* name;
    Edit first;
    std::vector<Edit> changes;
    bool holds;
  } rows[] = {
      {"open, then with its password", stored, {password}, false},
      {"open, then for its users", stored, {user}, false},
      {"password, then users", WithPassword(), {ForUsers({"alice"}, {})}, false},
      {"password, then open", WithPassword(), {open}, false},
      {"open for a while", WithPassword(), {open, password}, false},
      {"the same password anew", WithPassword(), {WithPassword()}, false},
      {"other users", ForUsers({"alice"}, {}), {bob}, false},
      {"other groups", ForUsers({"alice"}, {}), {family}, false},
      {"title and visits",
       WithPassword(),
       {WithVisits(5), Set(&Entry::set_protect_title, "x")},
       true},
      {"what an open link keeps", Edit(open), {stored, bob, family}, true},
      {"users that a password link keeps", WithPassword(), {bob, family}, true},
  };
  for (const auto& row : rows) {
    const Entry link = Make(row.first);
    Visitor visitor;
    const auto log_in = [&] {
      const bool for_users = Read(link).get_protect_type() == ProtectType::kUser;
      return LogIn(visitor, link, for_users ? "alice's own" : kPassword, "alice");
    };
    ASSERT_EQ(log_in(), 1) << row.name;
    EXPECT_TRUE(MayEnter(visitor, link)) << row.name;
    for (const Edit& change : row.changes) EXPECT_TRUE(Change(link, change)) << row.name;
    EXPECT_EQ(MayEnter(visitor, link), row.holds) << row.name;
    EXPECT_EQ(log_in(), 1) << row.name;
    EXPECT_TRUE(MayEnter(visitor, link)) << row.name;
    EXPECT_EQ(Shown(link)["visits"], row.holds ? 1 : 2) << row.name;
  }
}

}  // namespace VELT::sharing
