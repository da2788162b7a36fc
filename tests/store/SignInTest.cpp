// Owners who sign in, their sessions and their tokens.
#include <filesystem>
#include <fstream>

#include "tests/store/Fixture.h"
#include "veltsharing/Owners.h"

namespace VELT::sharing::owners {
namespace {

using Kind = Outcome::Kind;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kHour = 60 * kMinute;

class SignInTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    shadow_ = Environment("NSS_WRAPPER_SHADOW");
    std::ifstream file(shadow_);
    before_.assign(std::istreambuf_iterator<char>(file), {});
  }
  void TearDown() override {
    for (const std::string& secret : kept_) secrets_.push_back(secret);
    Write(shadow_, before_);
    Refuse("");
    StoreTest::TearDown();
  }

  static void Write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
    std::filesystem::last_write_time(
        path, std::filesystem::last_write_time(path) + std::chrono::seconds(++writes_));
  }
  // PAM refuses this account, whatever its password.
  void Refuse(const std::string& account) {
    Write(std::filesystem::path(shadow_).replace_filename("refused"), account);
  }
  void ChangePassword(const std::string& account) {
    Write(shadow_, before_ + account + "2:x\n");
    std::string text = before_;
    text.replace(text.find(account + ":") + account.size() + 1, 1, "!");
    Write(shadow_, text);
  }

  Outcome Try(const std::string& account, const std::string& password,
              const std::string& address = "192.0.2.1", const std::string& browser = "") {
    Outcome outcome = SignIn({.account = account,
                              .answers = {password},
                              .address = address,
                              .known_browser = browser,
                              .old_session = "",
                              .browser = "Firefox"});
    if (!outcome.session.empty()) kept_.push_back(outcome.session);
    return outcome;
  }
  std::string Session(const std::string& account, bool stay = false) {
    const Outcome outcome = SignIn({.account = account,
                                    .answers = {account + "'s own"},
                                    .address = "192.0.2.1",
                                    .known_browser = "",
                                    .old_session = "",
                                    .browser = "Firefox",
                                    .stay = stay});
    EXPECT_EQ(outcome.kind, Kind::kSignedIn);
    kept_.push_back(outcome.session);
    return outcome.session;
  }
  static std::optional<Owner> FindSession(const std::string& session) {
    std::optional<Owner> owner;
    EXPECT_TRUE(owners::FindSession(session, owner));
    return owner;
  }
  static std::optional<Owner> FindToken(const std::string& token) {
    std::optional<Owner> owner;
    EXPECT_TRUE(owners::FindToken(token, owner));
    return owner;
  }
  // Whether the session's owner is let in, as the host does it.
  static bool LetsIn(const std::optional<Owner>& owner) {
    return owner && (!owner->check_due || CheckAccount(owner->account, "192.0.2.1"));
  }
  static bool Lives(const std::string& session) {
    return LetsIn(FindSession(session)) && FindSession(session);
  }

  static inline int writes_ = 0;
  std::string shadow_;
  std::string before_;
  std::vector<std::string> kept_;  // session ids and tokens
};
VELT_ON_EVERY_DATABASE(SignInTest);

TEST_P(SignInTest, SessionIsNewAtEachSignInAndEndsInTime) {
  EXPECT_EQ(Try("alice", "alice's own").failures, 0);
  EXPECT_EQ(Try("alice", "guess").kind, Kind::kWrong);
  const Outcome first = Try("alice", "alice's own");
  EXPECT_EQ(first.kind, Kind::kSignedIn);
  EXPECT_EQ(first.account, "alice");
  EXPECT_EQ(first.failures, 1);
  const Outcome second = SignIn({.account = "alice",
                                 .answers = {"alice's own"},
                                 .address = "2001:db8::1",
                                 .known_browser = first.known_browser,
                                 .old_session = first.session,
                                 .browser = "Chrome"});
  EXPECT_NE(first.session, second.session);
  EXPECT_FALSE(FindSession(first.session)) << "the browser's earlier session ends";
  EXPECT_EQ(second.failures, 0);
  for (const std::string& wrong : {std::string(), std::string(43, 'A'), second.session + "A"}) {
    EXPECT_FALSE(FindSession(wrong));
  }
  auto owner = FindSession(second.session);
  ASSERT_TRUE(owner);
  EXPECT_EQ(std::tuple(owner->account, owner->uid, owner->expire_at),
            std::tuple("alice", kAlice, now_ + kIdleLife));
  EXPECT_FALSE(owner->use_due);
  const std::string staying = Session("alice", true);

  now_ += 11 * kHour;
  ASSERT_TRUE(Lives(second.session));
  owner = FindSession(second.session);
  EXPECT_TRUE(owner->use_due);
  NoteUse(*owner);
  EXPECT_FALSE(FindSession(second.session)->use_due);
  now_ += 11 * kHour;
  EXPECT_TRUE(Lives(second.session)) << "it was used in between";
  NoteUse(*FindSession(second.session));
  now_ += 2 * kHour;
  EXPECT_FALSE(Lives(second.session)) << "a day old";
  now_ += 28 * kDay;
  EXPECT_TRUE(Lives(staying));
  now_ += kDay;
  EXPECT_FALSE(Lives(staying));
  const std::string idle = Session("alice");
  now_ += 12 * kHour;
  EXPECT_FALSE(Lives(idle));
  Session("alice");
  EXPECT_EQ(Select("select count(*) || '' from owner_session"), "1") << "dead ones are removed";
}

TEST_P(SignInTest, SessionsAreListedAndEnded) {
  const std::string first = Session("alice");
  ++now_;
  const std::string second = Session("alice");
  const std::string other = Session("bob");
  std::vector<SessionRow> rows;
  ASSERT_TRUE(ListSessions("alice", rows));
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].id, FindSession(second)->id);
  EXPECT_EQ(std::tuple(rows[1].address, rows[1].browser, rows[1].created_at),
            std::tuple("192.0.2.*", "Firefox", now_ - 1));
  EXPECT_FALSE(EndSession("bob", rows[1].id)) << "of somebody else";
  EXPECT_TRUE(Lives(first));
  EXPECT_TRUE(EndSession("alice", rows[1].id));
  EXPECT_FALSE(Lives(first));
  const std::string third = Session("alice");
  EXPECT_TRUE(EndOtherSessions("alice", FindSession(third)->id));
  EXPECT_FALSE(Lives(second));
  EXPECT_TRUE(Lives(third));
  EXPECT_TRUE(Lives(other));
  EXPECT_TRUE(SignOut(third));
  EXPECT_FALSE(Lives(third));
  for (int count = 0; count < 103; ++count) Session("alice");
  rows.clear();
  ASSERT_TRUE(ListSessions("alice", rows));
  EXPECT_EQ(rows.size(), 100U);
}

TEST_P(SignInTest, ChangesOfTheAccountEndSessionsWithinAMinute) {
  const std::string other = Session("bob");
  for (const bool refused : {false, true}) {
    const std::string session = Session("alice");
    TokenRow row{.name = "backup", .may_change = true, .projects = {}};
    std::string token;
    ASSERT_TRUE(CreateToken("alice", kAlice, row, token));
    kept_.push_back(token);
    if (refused) {
      Refuse("alice");
    } else {
      ChangePassword("alice");
    }
    now_ += kMinute;
    EXPECT_FALSE(Lives(session)) << refused;
    EXPECT_EQ(LetsIn(FindToken(token)), !refused) << "a token is no password";
    EXPECT_EQ(LetsIn(FindToken(token)), !refused) << "without asking again";
    EXPECT_EQ(Try("alice", "alice's own").kind, refused ? Kind::kWrong : Kind::kSignedIn);
    Refuse("");
    EXPECT_FALSE(Lives(session)) << "for good";
    now_ += kMinute;
    EXPECT_TRUE(LetsIn(FindToken(token)));
  }
  EXPECT_TRUE(Lives(other));
}

TEST_P(SignInTest, QuestionsArePutOneAfterAnother) {
  Attempt attempt{.account = "carol",
                  .answers = {"carol's own"},
                  .address = "192.0.2.1",
                  .known_browser = "",
                  .old_session = "",
                  .browser = ""};
  for (int number = 2; number < 8; ++number) {
    const Outcome outcome = SignIn(attempt);
    EXPECT_EQ(outcome.kind, Kind::kQuestion);
    EXPECT_EQ(outcome.question, "Question " + std::to_string(number) + ": ");
    EXPECT_EQ(outcome.hidden, number % 2 == 0);
    attempt.answers.push_back(std::to_string(number));
  }
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "0");
  EXPECT_EQ(SignIn(attempt).kind, Kind::kSignedIn);
  attempt.answers.back() = "8";
  EXPECT_EQ(SignIn(attempt).kind, Kind::kWrong);
  attempt.answers = {"guess"};
  EXPECT_EQ(SignIn(attempt).kind, Kind::kWrong);
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "2");
}

TEST_P(SignInTest, PamThatFailsIsNoGuess) {
  ConfigureStore({connection_, [] { return now_; }, std::chrono::milliseconds(300)});
  for (const char* account : {"hangs", "ignores SIGTERM", "crashes", "exits"}) {
    EXPECT_EQ(Try(account, "guess").kind, Kind::kFailed) << account;
  }
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "0");
}

TEST_P(SignInTest, GuessesGetSlowerAndAreLockedOutAtTheTenth) {
  const std::vector<std::int64_t> pauses = {0, 0, 0, 0, 1, 2, 4, 8, 16, 15 * kMinute};
  for (const std::int64_t pause : pauses) {
    ASSERT_EQ(Try("alice", "guess").kind, Kind::kWrong);
    const Outcome braked = pause == 0 ? Outcome{} : Try("alice", "alice's own");
    EXPECT_EQ(braked.wait, pause);
    EXPECT_EQ(braked.kind == Kind::kBraked, pause != 0);
    now_ += pause == 15 * kMinute ? 0 : pause;
  }
  EXPECT_EQ(Try("bob", "bob's own").kind, Kind::kBraked) << "the address is locked out";
  Visitor visitor;
  EXPECT_EQ(LogIn(visitor, Make(ForUsers({"alice"}, {})), "alice's own", "alice"), kDenied)
      << "the guesses count at the links' door";
  EXPECT_EQ(Try("bob", "bob's own", "192.0.2.2").kind, Kind::kSignedIn);
  EXPECT_EQ(Try("alice", "guess", "192.0.2.2").kind, Kind::kBraked) << "slow for all addresses";
  now_ += kMinute;
  EXPECT_EQ(Try("alice", "guess", "192.0.2.2").kind, Kind::kWrong);
  now_ += 14 * kMinute - 1;
  EXPECT_EQ(Try("bob", "bob's own").kind, Kind::kBraked);
  now_ += 1;
  EXPECT_EQ(Try("alice", "alice's own").kind, Kind::kSignedIn);
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "1") << "from the other address";
}

TEST_P(SignInTest, StrangersCannotKeepAnOwnerOut) {
  const std::string cookie = Try("alice", "alice's own").known_browser;
  const std::string bobs = Try("bob", "bob's own").known_browser;
  secrets_.push_back(cookie);
  for (int address = 0; address < 200; ++address) {
    now_ += 3;
    Try("alice", "guess", "192.0.2." + std::to_string(address));
  }
  EXPECT_EQ(Try("alice", "alice's own", "198.51.100.1").kind, Kind::kBraked);
  for (const std::string& forged : {bobs, cookie + "0", cookie.substr(1), std::string(".")}) {
    EXPECT_EQ(Try("alice", "alice's own", "198.51.100.1", forged).kind, Kind::kBraked) << forged;
  }
  const Outcome known = Try("alice", "alice's own", "192.0.2.1", cookie);
  EXPECT_EQ(known.kind, Kind::kSignedIn);
  EXPECT_GT(known.failures, 10);
  for (const std::int64_t pause : {0, 0, 0, 0, 1, 2, 4, 8, 16, 0}) {
    EXPECT_EQ(Try("alice", "guess", "192.0.2.1", cookie).kind, Kind::kWrong);
    now_ += pause;
  }
  EXPECT_EQ(Try("alice", "alice's own", "192.0.2.1", cookie).wait, 15 * kMinute)
      << "a stolen cookie is worth ten guesses";
}

TEST_P(SignInTest, GuessesInParallelAreCountedToo) {
  const auto results = InProcesses(16, [](int) {
    return static_cast<int>(SignIn({.account = "alice",
                                    .answers = {"guess"},
                                    .address = "192.0.2.1",
                                    .known_browser = "",
                                    .old_session = "",
                                    .browser = ""})
                                .kind);
  });
  EXPECT_LE(std::count(results.begin(), results.end(), static_cast<int>(Kind::kWrong)), 5);
  EXPECT_GE(std::count(results.begin(), results.end(), static_cast<int>(Kind::kBraked)), 11);
}

TEST_P(SignInTest, TokensSayWhatTheyAreFor) {
  TokenRow row{.name = "backup",
               .may_change = false,
               .projects = {"album", "VELT.Files"},
               .expire_at = now_ + kHour};
  std::string token;
  ASSERT_TRUE(CreateToken("alice", kAlice, row, token));
  kept_.push_back(token);
  EXPECT_THAT(token, testing::MatchesRegex("velt_[A-Za-z0-9]{43}[0-9a-f]{6}"));
  const auto owner = FindToken(token);
  ASSERT_TRUE(owner);
  EXPECT_EQ(std::tuple(owner->how, owner->account, owner->may_change, owner->expire_at),
            std::tuple(Owner::How::kToken, "alice", false, now_ + kHour));
  EXPECT_THAT(owner->projects, ElementsAre("album", "VELT.Files"));
  EXPECT_TRUE(owner->check_due);
  EXPECT_TRUE(LetsIn(owner));
  NoteUse(*owner);
  EXPECT_FALSE(FindToken(token)->check_due || FindToken(token)->use_due);
  std::string other = token;
  other[10] = other[10] == 'a' ? 'b' : 'a';
  for (const std::string& wrong : {std::string(), std::string("velt_"), other, token + "0"}) {
    EXPECT_FALSE(FindToken(wrong)) << wrong;
  }
  std::vector<TokenRow> rows;
  ASSERT_TRUE(ListTokens("alice", rows));
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(std::tuple(rows[0].id, rows[0].name, rows[0].last_used, rows[0].may_change),
            std::tuple(row.id, "backup", now_, false));
  EXPECT_FALSE(DeleteToken("bob", row.id));
  TokenRow second{.name = "second", .may_change = true, .projects = {}};
  std::string deleted;
  ASSERT_TRUE(CreateToken("alice", kAlice, second, deleted));
  EXPECT_THAT(FindToken(deleted)->projects, IsEmpty());
  EXPECT_TRUE(DeleteToken("alice", second.id));
  EXPECT_FALSE(FindToken(deleted));
  now_ += kHour;
  EXPECT_FALSE(FindToken(token));
  now_ -= kHour;
  ASSERT_TRUE(CreateToken("alice", kAlice + 100, second, deleted));
  EXPECT_FALSE(FindToken(token)) << "the name went to another account";
}

}  // namespace
}  // namespace VELT::sharing::owners
