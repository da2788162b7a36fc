// How long a visit is valid, and what ends it.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/store/Fixture.h"

namespace VELT::sharing {

class VisitTest : public StoreTest {};
VELT_ON_EVERY_DATABASE(VisitTest);

TEST_P(VisitTest, GivesANewSessionThatTakesTheTokensAlong) {
  const Entry first = Make();
  const Entry second = Make();
  Visitor visitor{.sid = "planted by somebody else"};
  const Visitor planted = visitor;
  ASSERT_EQ(LogIn(visitor, first), kLoggedIn);
  EXPECT_FALSE(MayEnter(planted, first));
  EXPECT_TRUE(MayEnter(visitor, first));
  EXPECT_FALSE(MayEnter(visitor, second));

  const Visitor before = visitor;
  ASSERT_EQ(LogIn(visitor, second), kLoggedIn);
  EXPECT_TRUE(MayEnter(visitor, first) && MayEnter(visitor, second));
  EXPECT_FALSE(MayEnter(before, first) || MayEnter(before, second));
  EXPECT_FALSE(MayEnter({.sid = Select("select sid_hash from visitor_session")}, first));

  EXPECT_EQ(VeltSharingLogout(first.get_hash(), before.sid), 0);
  EXPECT_EQ(VeltSharingLogout(Make().get_hash(), visitor.sid), 0);
  EXPECT_NE(VeltSharingLogout(first.get_hash(), visitor.sid), 0);
  EXPECT_FALSE(MayEnter(visitor, first) || MayEnter(visitor, second));
}

TEST_P(VisitTest, TokenEndsWithItsLinkOrAfterADay) {
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
    ASSERT_EQ(LogIn(visitor, link), kLoggedIn);
    EXPECT_TRUE(MayEnter(visitor, link)) << name;
    end(link);
    EXPECT_FALSE(MayEnter(visitor, link)) << name;
  }
}

TEST_P(VisitTest, LinkIsClosedWhileItsOwnersAccountIsMissing) {
  const std::string passwd = Environment("NSS_WRAPPER_PASSWD");
  const Entry link = Make(Set(&Entry::set_owner_uid, kBob));
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, link), kLoggedIn);
  std::ifstream file(passwd);
  const std::string before(std::istreambuf_iterator<char>(file), {});
  const auto write = [&passwd](const std::string& text, int later) {
    std::ofstream(passwd) << text;
    // The wrapper reads the file again only when its time differs by whole seconds.
    std::filesystem::last_write_time(
        passwd, std::filesystem::file_time_type::clock::now() + std::chrono::hours(later));
  };
  std::string without = before;
  without.erase(without.find("bob:"), without.find("carol:") - without.find("bob:"));
  write(without, 1);
  // That an account exists is kept for a moment.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (MayEnter(visitor, link) && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_FALSE(MayEnter(visitor, link));
  ExpectLogIn(kNotServed, link);
  EXPECT_EQ(Shown(link)["owner_user"], "");
  write(before, 2);
  EXPECT_TRUE(MayEnter(visitor, link));
}

TEST_P(VisitTest, SessionLastsADayAfterItsLastUseNotedEveryFiveMinutes) {
  const Entry link = Make();
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, link), kLoggedIn);
  const std::int64_t start = now_;
  // As the host does after its answer.
  const auto use = [&] {
    View view = VisitorView(visitor.address);
    const Viewing viewing(view);
    const Visit visit = FindVisit(link.get_hash(), visitor.sid);
    if (visit.use_due) NoteUse(visitor.sid);
    return visit.is_legal;
  };
  const auto noted = [&] {
    return std::stoll(Select("select last_used || '' from visitor_session")) - start;
  };
  now_ = start + 299;
  EXPECT_TRUE(use());
  EXPECT_EQ(noted(), 0);
  now_ = start + 300;
  EXPECT_TRUE(MayEnter(visitor, link));
  EXPECT_EQ(noted(), 0) << "looking alone changes nothing";
  EXPECT_TRUE(use());
  EXPECT_EQ(noted(), 300);
  now_ += kDay - 1;
  EXPECT_TRUE(use());
  const Visitor stale = visitor;
  now_ += kDay;
  record::Session session;
  record::Token token;
  EXPECT_TRUE(db::SessionDB(db_).GetBySessionId(stale.sid, session));
  EXPECT_TRUE(db::TokenDB(db_).GetBySessionEntry(session, link, token));
  EXPECT_FALSE(session.IsLegal() || token.IsLegal());
  ASSERT_EQ(LogIn(visitor, Make()), kLoggedIn);
  EXPECT_FALSE(MayEnter(visitor, link)) << "tokens of an expired session were taken over";
  EXPECT_FALSE(MayEnter(stale, link));
}

TEST_P(VisitTest, NewSessionRemovesExpiredOnes) {
  const Entry link = Make();
  Visitor expired;
  Visitor valid;
  Visitor last;
  ASSERT_EQ(LogIn(expired, link), kLoggedIn);
  now_ += kDay - 1;
  ASSERT_EQ(LogIn(valid, link), kLoggedIn);
  EXPECT_EQ(Select("select count(*) || '' from visitor_session"), "2");
  now_ += 1;
  ASSERT_EQ(LogIn(last, link), kLoggedIn);
  EXPECT_EQ(Select("select count(*) || '' from visitor_session"), "2");
  EXPECT_TRUE(MayEnter(valid, link) && MayEnter(last, link));
}

TEST_P(VisitTest, BacklogOfExpiredSessionsIsRemovedInSteps) {
  const Entry link = Make();
  Execute(
      "insert into visitor_session (sid_hash, address, last_used) "
      "with recursive n (i) as (select 1 union all select i + 1 from n where i < 250) "
      "select 'expired ' || i, '', 1 from n");
  for (const char* left : {"151", "52", "3", "4"}) {
    ExpectLogIn(kLoggedIn, link);
    EXPECT_EQ(Select("select count(*) || '' from visitor_session"), left);
  }
}

TEST_P(VisitTest, AddressKeepsAThousandSessionsOfALinkAtMost) {
  const Entry link = Make();
  const Entry other = Make();
  Visitor first;
  Visitor second;
  Visitor elsewhere{.address = "192.0.2.2"};
  Visitor at_other;
  ASSERT_EQ(LogIn(at_other, other), kLoggedIn);
  ASSERT_EQ(LogIn(first, link), kLoggedIn);
  ASSERT_EQ(LogIn(second, link), kLoggedIn);
  ASSERT_EQ(LogIn(elsewhere, link), kLoggedIn);
  for (int count = 2; count < 1000; ++count) ExpectLogIn(kLoggedIn, link);
  EXPECT_TRUE(MayEnter(first, link));
  ExpectLogIn(kLoggedIn, link);
  EXPECT_FALSE(MayEnter(first, link));
  EXPECT_TRUE(MayEnter(second, link) && MayEnter(elsewhere, link) && MayEnter(at_other, other));
}

TEST_P(VisitTest, BoundVisitIsValidForTheAddressOfTheLoginOnly) {
  const Entry bound = Make(Set(&Entry::set_enable_match_ip, true));
  const Entry free = Make();
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, bound), kLoggedIn);
  ASSERT_EQ(LogIn(visitor, free), kLoggedIn);
  visitor.address = "2001:db8::1";
  EXPECT_FALSE(MayEnter(visitor, bound));
  EXPECT_TRUE(MayEnter(visitor, free));
  EXPECT_EQ(LogIn(visitor, bound), kDenied);
  EXPECT_EQ(login_wait_, 0) << "waiting does not help";
  EXPECT_EQ(LogIn(visitor, free), kLoggedIn) << "which moves the session to the new address";
  EXPECT_FALSE(MayEnter(visitor, bound));
  EXPECT_EQ(LogIn(visitor, bound), kLoggedIn);
  EXPECT_TRUE(MayEnter(visitor, bound));
}

TEST_P(VisitTest, VisitIsValidForTheProtectionThatItWasGivenFor) {
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
      {"the same password again", WithPassword(), {WithPassword()}, false},
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
    ASSERT_EQ(log_in(), kLoggedIn) << row.name;
    EXPECT_TRUE(MayEnter(visitor, link)) << row.name;
    for (const Edit& change : row.changes) EXPECT_TRUE(Change(link, change)) << row.name;
    EXPECT_EQ(MayEnter(visitor, link), row.holds) << row.name;
    EXPECT_EQ(log_in(), kLoggedIn) << row.name;
    EXPECT_TRUE(MayEnter(visitor, link)) << row.name;
    EXPECT_EQ(Shown(link)["visits"], row.holds ? 1 : 2) << row.name;
  }
}

}  // namespace VELT::sharing
