// The life of a link: made, read, changed, deleted, purged.
#include "Fixture.h"
#include "veltsharing/Users.h"

namespace VELT::sharing {

class LinkTest : public StoreTest {};
VELT_ON_EVERY_DATABASE(LinkTest);

TEST_P(LinkTest, KeepsEveryFieldAndTellsVisitorsNoSecret) {
  secrets_.emplace_back("family tree");
  Entry link = Make();
  EXPECT_THAT(link.get_hash(), testing::MatchesRegex("[A-Za-z0-9]{22}"));
  ASSERT_TRUE(Change(link, [](Entry& entry) {
    WithPassword()(entry);
    entry.set_enabled(false);
    entry.set_auto_gc(true);
    entry.set_enable_match_ip(true);
    entry.set_start_at_str("2026-01-02 03:04:05", kFormat);
    entry.set_expire_at_str("2031-12-31 23:59:59", kFormat);
    entry.set_expire_times(7);
    entry.set_protect_title("d'été; drop table link -- \"\\");
    entry.set_protect_users({"bob", "no such user", ""});
    entry.set_protect_groups({"family"});
    entry.set_redirect_type(Entry::RedirectType::kAlways);
    entry.set_redirect_uri("https://example.org/?a='b'");
    entry.set_app(Json::Value("not an object"));
    entry.set_private_data(Json::Value("kept apart"));
  }));
  Reopen();
  Json::Value want;
  want["sharing_id"] = link.get_hash();
  want["project_name"] = "album";
  want["owner_uid"] = kAlice;
  want["owner_user"] = "alice";
  want["enabled"] = false;
  want["auto_gc"] = want["enable_match_ip"] = want["has_password"] = true;
  want["start_at"] = "2026-01-02 03:04:05";
  want["expire_at"] = "2031-12-31 23:59:59";
  want["expire_times"] = 7;
  want["visits"] = 0;
  want["protect_type"] = "password";
  want["protect_title"] = "d'été; drop table link -- \"\\";
  for (const char* user : {"bob", "no such user", ""}) want["protect_users"].append(user);
  want["protect_groups"].append("family");
  want["redirect_type"] = "always";
  want["redirect_uri"] = "https://example.org/?a='b'";
  want["app"] = "not an object";
  want["created_at"] = TimeText(now_);
  want["status"] = "disabled";
  EXPECT_EQ(Shown(link), want);
  EXPECT_EQ(Select("select private_data from link"), "\"kept apart\"");

  const Entry read = Read(link);
  EXPECT_EQ(read.get_protect_uids(), std::vector{kBob});
  EXPECT_EQ(read.get_protect_gids(), std::vector{7100U});
  EXPECT_TRUE(read.IsPasswordValid(kPassword));
  for (const char* wrong : {"", "open, says m", "Open, says me"}) {
    EXPECT_FALSE(read.IsPasswordValid(wrong)) << wrong;
  }
  EXPECT_TRUE(Make().IsPasswordValid(""));
  EXPECT_FALSE(Make().IsPasswordValid("x"));
}

TEST_P(LinkTest, RefusesWhatCanNotBeKeptAndChangesNothing) {
  const Entry link = Make();
  const Json::Value before = Shown(link);
  const auto start = [](const char* text) {
    return [text](Entry& entry) { entry.set_start_at_str(text, kFormat); };
  };
  const std::vector<std::pair<std::string, Edit>> refused = {
      {"no time", start("tomorrow")},
      {"cut off", start("2026-01-02 03:04")},
      {"more behind", start("2026-01-02 03:04:05Z")},
      {"no such day", start("2027-02-29 00:00:00")},
      {"skipped by summer time", start("2027-03-28 02:30:00")},
      {"the time that stands for no limit", start(TimeText(0).c_str())},
      {"NUL behind",
       [](Entry& e) { e.set_expire_at_str(std::string("2031-01-01 00:00:00\0x", 21), kFormat); }},
      {"no format", [](Entry& e) { e.set_expire_at_str("2031-01-01 00:00:00", nullptr); }},
      {"NUL in a text", [](Entry& e) { e.set_protect_title(std::string("a\0b", 3)); }},
      {"broken UTF-8", [](Entry& e) { e.set_redirect_uri("\xC3("); }},
      {"broken UTF-8 in a list",
       [](Entry& e) {
         e.set_protect_users({"bob", "\xFF"});
       }},
      {"broken UTF-8 in data", [](Entry& e) { e.set_private_data(Json::Value("\xED\xA0\x80")); }},
      {"NUL in a password",
       [](Entry& e) {
         e.set_protect_password(std::string("a\0b", 3), true,
                                Entry::PasswordEncryptAlgo::kArgon2id);
       }},
      {"a password that is none",
       [](Entry& e) { e.set_protect_password("x", false, Entry::PasswordEncryptAlgo::kArgon2id); }},
      {"every owner", [](Entry& e) { e.set_owner_uid(0xFFFFFFFF); }},
  };
  for (const auto& [name, edit] : refused) {
    EXPECT_FALSE(Change(link, edit)) << name;
    Entry fresh;
    fresh.set_owner_uid(kAlice);
    edit(fresh);
    EXPECT_FALSE(links_.CreateWithHash(fresh)) << name;
    EXPECT_EQ(fresh.get_hash(), "") << name;
  }
  EXPECT_EQ(Shown(link), before);
  EXPECT_EQ(Select("select count(*) || '' from link"), "1");
  EXPECT_TRUE(Change(link, [](Entry& e) { e.set_start_at_str("", nullptr); }));
  EXPECT_TRUE(Change(link, [](Entry& e) { e.set_protect_title(std::string(1 << 20, 'x')); }));
}

TEST_P(LinkTest, DeletedLinkTakesItsTokensAlongAndItsIdNeverComesBack) {
  Visitor visitor;
  const Entry old = Make();
  ASSERT_EQ(LogIn(visitor, old), 1);
  ASSERT_TRUE(links_.Delete(old));
  EXPECT_FALSE(links_.Delete(old));
  EXPECT_FALSE(links_.Update(old));
  EXPECT_EQ(Select("select count(*) || '' from visitor_token"), "0");
  Reopen();
  const Entry next = Make();
  EXPECT_GT(next.get_id(), old.get_id());
  EXPECT_FALSE(MayEnter(visitor, next));
}

TEST_P(LinkTest, PurgeTakesWhatIsOverAndNothingElse) {
  const auto make = [this](unsigned int owner, const char* project, bool gc, std::int64_t expiry,
                           int visits) {
    const Entry link = Make([&](Entry& entry) {
      entry.set_owner_uid(owner);
      entry.set_project_name(project);
      entry.set_auto_gc(gc);
      entry.set_expire_at_str(expiry == 0 ? "" : TimeText(expiry), kFormat);
      entry.set_expire_times(visits);
    });
    Visitor visitor;
    LogIn(visitor, link);
    return link;
  };
  const Entry expired = make(kAlice, "album", true, now_ - 1, 0);
  const Entry used_up = make(kAlice, "album", true, 0, 1);
  const Entry elsewhere = make(kAlice, "notes", true, now_ - 1, 0);
  const Entry others = make(kBob, "album", true, now_ - 1, 0);
  const std::vector<Entry> kept = {
      make(kAlice, "album", false, now_ - 1, 1), make(kAlice, "album", true, now_, 0),
      make(kAlice, "album", true, 0, 2), make(kAlice, "album", true, 0, 0)};
  const auto purge = [this](unsigned int owner, const char* project) {
    EXPECT_TRUE(links_.PurgeExpiredByOwnerProject(owner, project));
  };
  purge(kAlice, "album");
  EXPECT_FALSE(Exists(expired) || Exists(used_up));
  EXPECT_TRUE(Exists(elsewhere) && Exists(others));
  purge(kAlice, "");
  EXPECT_FALSE(Exists(elsewhere));
  EXPECT_TRUE(Exists(others));
  purge(0xFFFFFFFF, "");
  EXPECT_FALSE(Exists(others));
  for (const Entry& link : kept) EXPECT_TRUE(Exists(link)) << Shown(link);
  EXPECT_EQ(Select("select count(*) || '' from visitor_session"), "4");
  now_ += 24 * 60 * 60;
  purge(kBob, "");
  EXPECT_EQ(Select("select count(*) || '' from visitor_session"), "0");
}

TEST(UsersTest, StringExplodeKeepsEmptyPieces) {
  const std::vector<std::tuple<std::string, const char*, std::vector<std::string>>> rows = {
      {"a.b.c", ".", {"a", "b", "c"}},
      {"..", ".", {"", "", ""}},
      {"a::b:", "::", {"a", "b:"}},
      {"", ".", {""}}};
  for (const auto& [text, delimiter, want] : rows) {
    std::vector<std::string> pieces = {"old"};
    EXPECT_TRUE(StringExplode(pieces, text, delimiter));
    EXPECT_EQ(pieces, want);
  }
  std::vector<std::string> pieces = {"old"};
  EXPECT_FALSE(StringExplode(pieces, "a", "") || StringExplode(pieces, "a", nullptr));
  EXPECT_TRUE(pieces.empty());
}

}  // namespace VELT::sharing
