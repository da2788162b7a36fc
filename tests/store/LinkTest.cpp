// The life of a link: made, read, changed, deleted, purged.
#include <algorithm>
#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/store/Fixture.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/Users.h"
#include "veltsys/JsonText.h"

namespace VELT::sharing {

class LinkTest : public StoreTest {};
VELT_ON_EVERY_DATABASE(LinkTest);

TEST_P(LinkTest, KeepsEveryFieldAndShowsNoSecret) {
  Entry link = Make();
  EXPECT_THAT(link.get_hash(), testing::MatchesRegex("[A-Za-z0-9]{22}"));
  ASSERT_TRUE(Change(link, [](Entry& entry) {
    WithPassword()(entry);
    entry.set_enabled(false);
    entry.set_auto_gc(true);
    entry.set_enable_match_ip(true);
    StartingAt("2026-01-02 03:04:05")(entry);
    EndingAt("2031-12-31 23:59:59")(entry);
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
  ASSERT_TRUE(ParseJsonText(R"({"project_name": "album", "owner_uid": 7001, "owner_user": "alice",
      "enabled": false, "auto_gc": true, "enable_match_ip": true, "has_password": true,
      "start_at": "2026-01-02 03:04:05", "expire_at": "2031-12-31 23:59:59", "expire_times": 7,
      "visits": 0, "protect_type": "password", "protect_title": "d'été; drop table link -- \"\\",
      "protect_users": ["bob", "no such user", ""], "protect_groups": ["family"],
      "redirect_type": "always", "redirect_uri": "https://example.org/?a='b'",
      "app": "not an object", "status": "disabled"})",
                            want));
  want["sharing_id"] = link.get_hash();
  want["created_at"] = TimeText(now_);
  want["owner_uid"] = kAlice;  // as an unsigned number
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
  Entry refused;
  WithPassword("\xFF")(refused);
  EXPECT_FALSE(refused.IsPasswordValid("")) << "a refused password is not the same as none";
}

TEST_P(LinkTest, RefusesWhatItCanNotStoreAndChangesNothing) {
  const Entry link = Make();
  const Json::Value before = Shown(link);
  using std::string_literals::operator""s;
  const std::vector<std::pair<const char*, Edit>> refused = {
      {"no time", StartingAt("tomorrow")},
      {"cut off", StartingAt("2026-01-02 03:04")},
      {"more behind", StartingAt("2026-01-02 03:04:05Z")},
      {"no blank", StartingAt("2030-02-2810:00:00")},
      {"blanks for zeros", EndingAt("  2030-2-8   1:0:0")},
      {"one digit", EndingAt("2030-02-8 10:00:00")},
      {"no such day", StartingAt("2027-02-29 00:00:00")},
      {"skipped by summer time", EndingAt("2027-03-28 02:30:00")},
      {"the time that stands for no limit", EndingAt(TimeText(0))},
      {"NUL behind", EndingAt("2031-01-01 00:00:00\0x"s)},
      {"no format", [](Entry& e) { e.set_expire_at_str("2031-01-01 00:00:00", nullptr); }},
      {"NUL in a text", Set(&Entry::set_protect_title, "a\0b"s)},
      {"broken UTF-8", Set(&Entry::set_redirect_uri, "\xC3(")},
      {"broken UTF-8 in a list", ForUsers({"bob", "\xFF"}, {})},
      {"broken UTF-8 in data", Set(&Entry::set_private_data, "\xED\xA0\x80")},
      {"NUL in a password", WithPassword("a\0b"s)},
      {"a password that is none", WithPassword(kPassword, false)},
      {"every owner", Set(&Entry::set_owner_uid, 0xFFFFFFFF)},
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
  EXPECT_TRUE(Change(link, StartingAt("")));
  EXPECT_TRUE(Change(link, Set(&Entry::set_protect_title, std::string(1 << 20, 'x'))));
}

// Each late update is compared with the same one made after the early one.
TEST_P(LinkTest, ConcurrentUpdatesOfDifferentFieldsAreBothKept) {
  using Texts = std::vector<std::string>;
  const std::vector<std::pair<const char*, Edit>> edits = {
      {"owner", Set(&Entry::set_owner_uid, kBob)},
      {"project", Set(&Entry::set_project_name, "notes")},
      {"state", Set(&Entry::set_enabled, false)},
      {"collection", Set(&Entry::set_auto_gc, true)},
      {"address check", Set(&Entry::set_enable_match_ip, true)},
      {"start", StartingAt("2026-01-02 03:04:05")},
      {"end", EndingAt("2031-12-31 23:59:59")},
      {"allowed visits", WithVisits(7)},
      {"password", WithPassword()},
      {"users", Set(&Entry::set_protect_users, Texts{"bob"})},
      {"groups", Set(&Entry::set_protect_groups, Texts{"family"})},
      {"redirect", Set(&Entry::set_redirect_type, Entry::RedirectType::kAlways)},
      {"address", Set(&Entry::set_redirect_uri, "/elsewhere")},
      {"data", Set(&Entry::set_app, Json::Value("data"))},
      {"private data", Set(&Entry::set_private_data, Json::Value("data"))},
  };
  const auto update = [this](const Edit& edit, bool at_once) {
    Entry late = Make(Set(&Entry::set_redirect_uri, "/here"));
    Visitor visitor;
    EXPECT_TRUE(Change(late, Set(&Entry::set_redirect_uri, "/there")));
    EXPECT_EQ(LogIn(visitor, late), kLoggedIn);
    if (!at_once) late = Read(late);
    edit(late);
    EXPECT_TRUE(links_.Update(late));
    Json::Value form = Shown(late);
    form["sharing_id"] = Select("select private_data from link order by id desc limit 1");
    return form;
  };
  for (const auto& [name, edit] : edits) EXPECT_EQ(update(edit, true), update(edit, false)) << name;

  const Entry link = Make();
  Entry late = Read(link);
  ASSERT_TRUE(Change(link, WithPassword("early")));
  WithPassword()(late);
  ASSERT_TRUE(links_.Update(late));
  EXPECT_TRUE(Read(link).IsPasswordValid(kPassword)) << "of one field the later wins";
}

TEST_P(LinkTest, ConcurrentUpdatesMayNotTogetherMakeAnInvalidLink) {
  using Texts = std::vector<std::string>;
  const Edit no_password = [](Entry& link) {
    link.set_protect_password("", true, Entry::PasswordEncryptAlgo::kArgon2id);
  };
  const Edit stored = [](Entry& link) {
    WithPassword()(link);
    link.set_protect_type(ProtectType::kNone);
    link.set_redirect_uri("/here");
  };
  const std::vector<std::tuple<const char*, Edit, Edit, Edit>> rows = {
      {"password", stored, Set(&Entry::set_protect_type, ProtectType::kPassword), no_password},
      {"names", ForUsers({"alice"}, {"family"}), Set(&Entry::set_protect_users, Texts{}),
       Set(&Entry::set_protect_groups, Texts{})},
      {"address", stored, Set(&Entry::set_redirect_type, Entry::RedirectType::kUrlParam),
       Set(&Entry::set_redirect_uri, "")},
  };
  for (const auto& [name, first, one, other] : rows) {
    for (const auto& [early, late] : {std::pair(one, other), std::pair(other, one)}) {
      const Entry link = Make(first);
      Entry overtaken = Read(link);
      ASSERT_TRUE(Change(link, early)) << name;
      const Json::Value before = Shown(link);
      late(overtaken);
      Log().clear();
      EXPECT_FALSE(links_.Update(overtaken)) << name;
      EXPECT_THAT(Log(), testing::ElementsAre(testing::HasSubstr("would leave a link without")))
          << name;
      EXPECT_EQ(Shown(link), before) << name;
    }
  }
}

TEST_P(LinkTest, VisitorFindsNoLinkThatIsOffOrWithoutItsOwner) {
  const std::vector<std::pair<Edit, bool>> rows = {
      {WithPassword(), true},
      {StartingAt(TimeText(now_ + 1)), true},
      {EndingAt(TimeText(now_ - 1)), true},
      {Set(&Entry::set_enabled, false), false},
      {Set(&Entry::set_owner_uid, 4999), false},
  };
  for (const auto& [edit, found] : rows) {
    const Entry link = Make(edit);
    for (const char* address : {"192.0.2.1", ""}) {
      View view = VisitorView(address);
      const Viewing viewing(view);
      Entry read = link;
      EXPECT_EQ(links_.GetByHash(link.get_hash(), read), found);
      EXPECT_EQ(read.get_hash(), found ? link.get_hash() : "");
    }
    EXPECT_TRUE(Exists(link));
  }
}

TEST_P(LinkTest, OnlyOwnersChangeAndListLinksAndNobodyFindsOne) {
  Entry link = Make();
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, link), kLoggedIn);
  const auto refused = [&] {
    Entry copy = link;
    copy.set_enabled(false);
    std::vector<Entry> found;
    int count = 0;
    EXPECT_FALSE(links_.Update(copy) || links_.Delete(copy) || links_.CreateWithHash(copy));
    EXPECT_FALSE(links_.Count(count) || links_.Query(found));
    EXPECT_FALSE(links_.PurgeExpiredByOwnerProject(0xFFFFFFFF, ""));
    EXPECT_FALSE(db::TokenDB(db_).PurgeByEntry(link));
  };
  {
    View view = VisitorView(visitor.address);
    const Viewing viewing(view);
    EXPECT_TRUE(Exists(link));
    refused();
    View nobodys;
    const Viewing hidden(nobodys);
    EXPECT_FALSE(Exists(link) || FindVisit(link.get_hash(), visitor.sid).is_legal);
    const _tag_sharing_login_params params{link.get_hash().c_str(), "", "", "", nullptr};
    std::string sid;
    EXPECT_EQ(VeltSharingLogin(sid, &params, false), static_cast<int>(kNotServed));
    refused();
  }
  EXPECT_TRUE(MayEnter(visitor, link));
  EXPECT_TRUE(Shown(link)["enabled"].asBool());
}

TEST_P(LinkTest, DeletedLinkLosesItsTokensAndItsIdIsNeverUsedAgain) {
  Visitor visitor;
  const Entry old = Make();
  ASSERT_EQ(LogIn(visitor, old), kLoggedIn);
  ASSERT_TRUE(links_.Delete(old));
  EXPECT_FALSE(links_.Delete(old));
  EXPECT_FALSE(links_.Update(old));
  EXPECT_EQ(Select("select count(*) || '' from visitor_token"), "0");
  Reopen();
  const Entry next = Make();
  EXPECT_GT(next.get_id(), old.get_id());
  EXPECT_FALSE(MayEnter(visitor, next));
}

TEST_P(LinkTest, PurgeRemovesEndedLinksThatAreMarkedForItOnly) {
  const auto make = [this](unsigned int owner, const char* project, bool gc, std::int64_t expiry,
                           int visits) {
    Entry link = Make([&](Entry& entry) {
      entry.set_owner_uid(owner);
      entry.set_project_name(project);
      entry.set_auto_gc(gc);
      EndingAt(expiry == 0 ? "" : TimeText(expiry))(entry);
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
  EXPECT_TRUE(!Exists(expired) && !Exists(used_up) && Exists(elsewhere) && Exists(others));
  purge(kAlice, "");
  EXPECT_TRUE(!Exists(elsewhere) && Exists(others));
  purge(0xFFFFFFFF, "");
  EXPECT_FALSE(Exists(others));
  for (const Entry& link : kept) EXPECT_TRUE(Exists(link)) << Shown(link);
  EXPECT_EQ(Select("select count(*) || '' from visitor_session"), "4");
  now_ += kDay;
  purge(kBob, "");
  EXPECT_EQ(Select("select count(*) || '' from visitor_session"), "0");
}

TEST(UsersTest, StringExplodeKeepsEmptyPieces) {
  using Pieces = std::vector<std::string>;
  const std::vector<std::tuple<const char*, const char*, bool, Pieces>> rows = {
      {"a.b.", ".", true, {"a", "b", ""}},
      {"a::b:", "::", true, {"a", "b:"}},
      {"", ".", true, {""}},
      {"a", "", false, {}},
      {"a", nullptr, false, {}},
  };
  for (const auto& [text, delimiter, good, want] : rows) {
    Pieces pieces = {"old"};
    EXPECT_EQ(StringExplode(pieces, text, delimiter), good);
    EXPECT_EQ(pieces, want);
  }
}

}  // namespace VELT::sharing
