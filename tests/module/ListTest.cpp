// Lists of links, and their garbage collection.
#include <algorithm>
#include <string>
#include <vector>

#include "tests/module/Fixture.h"
#include "tests/support/Json.h"

namespace VELT {
namespace {

class ListTest : public ModuleTest {
 protected:
  // The titles of a page, and its total behind them.
  std::string List(const Json::Value& parameters) {
    const Answer answer = Sharing("list", parameters);
    if (answer.code != 0) return std::to_string(answer.code) + " " + answer.body.asString();
    std::string titles;
    for (const Json::Value& link : answer.body["sharings"]) {
      EXPECT_TRUE(link.isMember("url") && link.isMember("qrcode"));
      titles += link["protect_title"].asString();
    }
    return titles + " of " + answer.body["total"].asString();
  }
  void Add(const char* title, const char* project, const Members& members = {}) {
    Members all = {{"project_name", project}, {"protect_title", title}};
    all.insert(all.end(), members.begin(), members.end());
    Create(all);
  }
};

TEST_F(ListTest, OwnersSeeTheirOwn) {
  const Answer empty = Sharing("list", "{}");
  EXPECT_EQ(empty.body, Parse(R"({"total": 0, "limit": -1, "offset": -1, "sharings": []})"));
  Add("a", "album");
  Add("b", "notes");
  As(kBob);
  Add("c", "album");

  EXPECT_EQ(List("{}"), "c of 1");
  EXPECT_EQ(List(R"({"all_entry": true})"), "c of 1");
  As(kAdmin, true);
  EXPECT_EQ(List("{}"), " of 0");
  EXPECT_EQ(List(R"({"all_entry": true, "sort_by": "protect_title"})"), "abc of 3");
  EXPECT_EQ(
      List(
          R"({"all_entry": true, "project_name": "album", "sort_by": "protect_title", "sort_direction": "DESC"})"),
      "ca of 2");
  EXPECT_EQ(List(R"({"all_entry": true, "sort_by": "protect_title", "offset": 1, "limit": 1})"),
            "b of 3");
  const Json::Value page = Sharing("list", R"({"offset": 9, "limit": 2})").body;
  EXPECT_EQ(page, Parse(R"({"total": 0, "limit": 2, "offset": 9, "sharings": []})"));
  EXPECT_EQ(List(R"({"sort_by": "id; DROP TABLE link"})"),
            "117 Execute Error: db conut entries fail");
}

TEST_F(ListTest, ShareWithMeKeepsLinksThatListTheCaller) {
  for (const char* title : {"a", "b", "c", "d", "e"}) {
    Add(title, "album",
        *title % 2 == 0 ? Members{{"protect_users", Array("alice", "nobody-knows")}}
                        : Members{{"protect_groups", Array("family")}});
    Add("-", "album", {{"protect_users", Array("bob")}});
  }
  const auto page = [this](const Members& members) {
    return List(Object(members, Parse(R"({"share_with_me": true, "sort_by": "protect_title"})")));
  };
  EXPECT_EQ(page({}), "abcde of 5");
  EXPECT_EQ(page({{"offset", 1}, {"limit", 2}}), "bc of 5");
  EXPECT_EQ(page({{"limit", 0}}), " of 5");
  EXPECT_EQ(page({{"offset", 9}}), " of 5");
  // Another user's links for bob are no candidates: the owner filter stays.
  As(kBob);
  EXPECT_EQ(page({}), " of 0");
  As(4000000000);
  EXPECT_EQ(page({}), " of 0");
}

TEST_F(ListTest, GarbageCollectionKeepsToTheCallersLinks) {
  const Members expired = {{"auto_gc", true}, {"expire_at", "2020-01-01 00:00:00"}};
  Add("a", "album", expired);
  Add("b", "notes", expired);
  Add("kept", "album", {{"expire_at", "2020-01-01 00:00:00"}});
  As(kBob);
  Add("c", "album", expired);

  EXPECT_EQ(Sharing("trigger_gc", R"({"project_name": "notes"})").body, Json::Value(""));
  EXPECT_EQ(Rows("link"), 4);
  EXPECT_EQ(Sharing("trigger_gc", R"({"all_entry": true})").code, 0);
  EXPECT_EQ(Rows("link", "owner_uid = 2002"), 0);
  EXPECT_EQ(Rows("link"), 3);
  As(kAdmin, true);
  EXPECT_EQ(Sharing("trigger_gc", "{}").code, 0);
  EXPECT_EQ(Rows("link"), 3);
  EXPECT_EQ(Sharing("trigger_gc", R"({"all_entry": true})").code, 0);
  EXPECT_EQ(Rows("link", "protect_title = 'kept'"), 1);
  EXPECT_EQ(Rows("link"), 1);
}

}  // namespace
}  // namespace VELT
