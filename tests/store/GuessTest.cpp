// How many wrong passwords are allowed, and for whom they count.
#include <dlfcn.h>
#include <pwd.h>

#include <algorithm>
#include <cctype>

#include "tests/store/Fixture.h"

// Makes the user database ignore the case of names, as a directory service may.
extern "C" int getpwnam_r(const char* name, passwd* account, char* buffer, std::size_t size,
                          passwd** found) {
  static const auto next = reinterpret_cast<decltype(&getpwnam_r)>(dlsym(RTLD_NEXT, "getpwnam_r"));
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return next(lower.c_str(), account, buffer, size, found);
}

namespace VELT::sharing {

class GuessTest : public StoreTest {};
VELT_ON_EVERY_DATABASE(GuessTest);

TEST_P(GuessTest, TenWrongPasswordsLockOutTheAddressForFifteenMinutes) {
  const Entry link = Make(ForUsers({"alice"}, {}));
  Visitor guesser;
  for (int count = 0; count < 4; ++count) {
    EXPECT_EQ(LogIn(guesser, link, "guess", "alice"), kWrongAccount);
  }
  ASSERT_TRUE(Change(link, WithPassword()));
  const auto guess = [&](int times, LoginResult want) {
    for (int count = 0; count < times; ++count) EXPECT_EQ(LogIn(guesser, link, "guess"), want);
  };
  guess(5, kWrongPassword);
  EXPECT_EQ(LogIn(guesser, link, kPassword), kLoggedIn)
      << "which clears the five guesses at the link, not the four at the account";
  guess(3, kWrongPassword);
  ASSERT_TRUE(Change(link, Set(&Entry::set_enabled, false)));
  guess(5, kNotServed);
  ASSERT_TRUE(Change(link, Set(&Entry::set_enabled, true)));
  now_ += kMinute;
  guess(3, kWrongPassword);
  const auto is_locked_out = [&] {
    return LogIn(guesser, link, "guess") == kDenied && LogIn(guesser, link, kPassword) == kDenied;
  };
  EXPECT_TRUE(is_locked_out());
  Reopen();
  EXPECT_TRUE(is_locked_out());
  EXPECT_EQ(login_wait_, 14 * kMinute) << "until the first of the ten expires";
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "10")
      << "logins during the lockout do not count";
  Visitor other{.address = "192.0.2.2"};
  EXPECT_EQ(LogIn(other, link, kPassword), kLoggedIn);
  EXPECT_EQ(login_wait_, 0);
  EXPECT_EQ(LogIn(guesser, Make(WithPassword()), kPassword), kLoggedIn) << "on another link";
  now_ += 14 * kMinute - 1;
  EXPECT_TRUE(is_locked_out());
  now_ += 1;
  EXPECT_EQ(LogIn(guesser, link, "guess"), kWrongPassword);
  EXPECT_EQ(Select("select count(*) || '' from failed_login"), "4") << "the others have expired";
  EXPECT_EQ(LogIn(guesser, link, kPassword), kLoggedIn);
}

TEST_P(GuessTest, AccountAllowsTenGuessesFromAnAddressAndThirtyFromAll) {
  const Edit listed = ForUsers({"alice", "bob"}, {});
  const auto guess = [&](Visitor guesser, const char* name) {
    Entry link = Make(listed);
    EXPECT_EQ(LogIn(guesser, link, "guess", name), kWrongAccount) << guesser.address;
    return link;
  };
  const auto own = [&](const char* address) {
    Visitor alice{.address = address};
    return LogIn(alice, Make(listed), "alice's own", "alice");
  };
  Visitor guesser;
  for (const char* name : {"alice", "ALICE", "Alice", "alice", "alice"}) {
    EXPECT_EQ(LogIn(guesser, guess({}, name), "bob's own", "bob"), kLoggedIn)
        << "which clears nothing";
    EXPECT_TRUE(links_.Delete(guess({}, name))) << "which clears nothing either";
  }
  EXPECT_EQ(own("192.0.2.1"), kDenied);
  EXPECT_EQ(LogIn(guesser, Make(listed), "bob's own", "bob"), kLoggedIn);
  for (int count = 0; count < 9; ++count) guess({.address = "192.0.2.2"}, "alice");
  EXPECT_EQ(own("192.0.2.2"), kLoggedIn) << "which clears the guesses from its own address only";
  EXPECT_EQ(own("192.0.2.1"), kDenied);
  for (const char* address : {"192.0.2.3", "192.0.2.4"}) {
    for (int count = 0; count < 10; ++count) guess({.address = address}, "alice");
  }
  EXPECT_EQ(own("192.0.2.5"), kDenied);
  now_ += 15 * kMinute;
  EXPECT_EQ(own("192.0.2.1"), kLoggedIn);
}

TEST_P(GuessTest, GuessesFromManyAddressesSlowEachOtherAndShutNobodyOut) {
  const Entry link = Make(WithPassword());
  Visitor inside{.address = "198.51.100.1"};
  ASSERT_EQ(LogIn(inside, link, kPassword), kLoggedIn);
  int guesses = 0;
  // Each address guesses as soon as it may, for `seconds`.
  const auto attack = [&](int addresses, std::int64_t seconds) {
    const int before = guesses;
    std::vector<std::int64_t> next(static_cast<std::size_t>(addresses), now_);
    for (const std::int64_t end = now_ + seconds; now_ < end; ++now_) {
      for (std::size_t index = 0; index < next.size(); ++index) {
        if (next[index] > now_) continue;
        Visitor bot{.address = "2001:db8:0:" + std::to_string(index) + "::1"};
        const LoginResult result = LogIn(bot, link, "guess");
        EXPECT_TRUE(result == kWrongPassword || result == kDenied);
        if (result == kWrongPassword) ++guesses;
        next[index] = now_ + std::max<std::int64_t>(login_wait_, 1);
      }
    }
    return guesses - before;
  };
  EXPECT_EQ(attack(30, 1), 30) << "which is not braked yet";
  EXPECT_LT(attack(30, kMinute), 60) << "and without a brake 270";
  const int slowed = attack(30, kMinute);
  EXPECT_TRUE(slowed > 0 && slowed < 20) << slowed;
  EXPECT_EQ(LogIn(inside, link, kPassword), kLoggedIn) << "a visitor who is in already";
  Visitor fresh{.address = "198.51.100.2"};
  Reopen();
  EXPECT_EQ(LogIn(fresh, link, kPassword), kDenied);
  const std::int64_t wait = login_wait_;
  EXPECT_TRUE(wait > 0 && wait <= 2 * kMinute) << wait;
  EXPECT_EQ(LogIn(fresh, link, kPassword), kDenied);
  EXPECT_EQ(login_wait_, wait) << "asking again costs nothing";
  attack(30, wait);
  EXPECT_EQ(LogIn(fresh, link, kPassword), kLoggedIn);
  fresh = {.address = "198.51.100.3"};
  EXPECT_EQ(LogIn(fresh, Make(WithPassword()), kPassword), kLoggedIn) << "at another link";
  now_ += 15 * kMinute;
  EXPECT_EQ(LogIn(fresh, link, "guess"), kWrongPassword) << "when it is over";
}

TEST_P(GuessTest, EveryRefusalOfAPasswordCountsAsAGuess) {
  const std::vector<std::tuple<LoginResult, const char*, std::string>> rows = {
      {kNotListed, "bob's own", "bob"},  // reveals that it is right
      {kWrongAccount, "guess", "\xFF"},
      {kWrongAccount, "guess", ""},
      {kWrongAccount, "guess", std::string(3000, 'x')},
  };
  for (const auto& [want, password, account] : rows) {
    for (int count = 0; count < 10; ++count) {
      ExpectLogIn(want, Make(ForUsers({"alice"}, {})), password, account);
    }
    ExpectLogIn(kDenied, Make(ForUsers({"alice"}, {})), password, account);
  }
  EXPECT_EQ(Select("select max(length(account)) || '' from failed_login"), "64");
}

TEST_P(GuessTest, GuessesOfOneNetworkCountTogether) {
  const std::vector<std::tuple<const char*, const char*, bool>> rows = {
      {"192.0.2.1", "192.0.2.2", false},
      {"192.0.2.1", "::ffff:192.0.2.1", true},
      {"::ffff:192.0.2.1", "::ffff:192.0.2.2", false},
      {"2001:db8:0:1::1", "2001:DB8:0:1:f000:0:0:2", true},
      {"2001:db8:0:1::1", "2001:db8:0:2::1", false},
      {"fe80::1%eth0", "fe80::2%eth1", true},
      {"fe80::1%eth0", "fe80:0:0:1::1%eth0", false},
      {"no address", "no address", true},
      {"no address", "", false},
  };
  for (const auto& [first, second, together] : rows) {
    const Entry link = Make(ForUsers({"alice"}, {}));
    const std::string account = std::string(first) + second;
    Visitor guesser{.address = first};
    for (int count = 0; count < 10; ++count) {
      EXPECT_EQ(LogIn(guesser, link, "guess", account), kWrongAccount);
    }
    Visitor other{.address = second};
    EXPECT_EQ(LogIn(other, link, "alice's own", "alice"), together ? kDenied : kLoggedIn)
        << account;
  }
}

}  // namespace VELT::sharing
