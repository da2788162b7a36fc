#include <sys/mount.h>

#include "Fixture.h"
#include "module/LinkAddress.h"

namespace VELT {
namespace {

class SetTest : public ModuleTest {
 protected:
  // Changes `link` with these members beside its id and project.
  Answer Update(const std::string& link, const std::string& members) {
    return Sharing("set",
                   R"({"project_name": "album", "sharing_id": ")" + link + "\"" + members + "}");
  }
  Json::Value Read(const std::string& link) {
    return Sharing("get", R"({"sharing_id": ")" + link + "\"}").body;
  }
};

TEST_F(SetTest, CreatesALinkWithItsDefaults) {
  const Answer answer = Sharing("set", R"({"project_name": "album"})");
  ASSERT_EQ(answer.code, 0) << answer.body;
  EXPECT_THAT(answer.body.getMemberNames(), testing::ElementsAre("qrcode", "sharing_id", "url"));
  const std::string id = answer.body["sharing_id"].asString();
  EXPECT_THAT(id, testing::MatchesRegex("[A-Za-z0-9]{22}"));
  EXPECT_EQ(answer.body["url"], "https://nas.example/sharing/" + id);
  EXPECT_THAT(answer.body["qrcode"].asString(),
              testing::StartsWith("data:image/png;base64,iVBORw0KGgo"));

  Json::Value link = Read(id);
  EXPECT_EQ(link["qrcode"], answer.body["qrcode"]);
  link.removeMember("qrcode");
  link.removeMember("url");
  link.removeMember("created_at");
  EXPECT_EQ(link.toStyledString(),
            Parse(R"({"sharing_id": ")" + id + R"(", "project_name": "album", "owner_uid": 2001,
      "owner_user": "alice", "enabled": true, "auto_gc": false, "enable_match_ip": true, "start_at": "",
      "expire_at": "", "expire_times": 0, "visits": 0, "protect_type": "none", "protect_title": "",
      "has_password": false, "protect_users": [], "protect_groups": [], "redirect_type": "none",
      "redirect_uri": "", "app": {}, "status": "active"})")
                .toStyledString());
}

TEST_F(SetTest, UpdatesOnlyWhatTheRequestCarries) {
  const std::string id =
      Create(R"({"project_name": "album", "protect_type": "user", "protect_title": "Ours",
      "protect_users": ["bob", "bob", ""], "expire_at": "2040-01-02 03:04:05", "expire_times": 7,
      "redirect_type": "always", "redirect_uri": "/photos", "app": {"album": [1]}, "private_data": {"k": "v"}})");
  const Json::Value before = Read(id);
  EXPECT_EQ(before["protect_users"], Parse(R"(["bob", "bob", ""])"));
  const Answer answer = Update(id, R"(, "enabled": false)");
  EXPECT_EQ(answer.body["sharing_id"], id);
  Json::Value expected = before;
  expected["enabled"] = false;
  expected["status"] = "disabled";
  EXPECT_EQ(Read(id), expected);
  EXPECT_EQ(Rows("link", "private_data LIKE '%\"k\"%'"), 1);
}

TEST_F(SetTest, OnlyOwnerAndAdministratorUpdate) {
  const std::string id = Create();
  As(kBob);
  Answer answer = Update(id, R"(, "enabled": false)");
  EXPECT_EQ(answer.code, 1007);
  EXPECT_EQ(answer.body, "Execute Error: invalid owner");
  As(kAdmin, true);
  EXPECT_EQ(Update(id, R"(, "enabled": false)").code, 0);
  EXPECT_EQ(Read(id)["owner_uid"], kAlice);

  answer = Sharing("set", R"({"project_name": "Album", "sharing_id": ")" + id + "\"}");
  EXPECT_EQ(answer.code, 101);
  EXPECT_EQ(answer.body, "Execute Error: invalid project name");
  answer = Update("unknown", "");
  EXPECT_EQ(answer.code, 1005);
  EXPECT_EQ(answer.body, "Execute Error: invalid sharing id");
}

struct RefusedCase {
  const char* name;
  const char* members;
  int code;
  const char* message;
};

class RefusedSetTest : public SetTest, public testing::WithParamInterface<RefusedCase> {};

// Both ways in: a create leaves no record, an update leaves the record as it was.
TEST_P(RefusedSetTest, ChangesNothing) {
  const RefusedCase& row = GetParam();
  Answer answer = Sharing("set", R"({"project_name": "album")" + std::string(row.members) + "}");
  EXPECT_EQ(answer.code, row.code);
  EXPECT_EQ(answer.body, row.message);
  EXPECT_EQ(Rows("link"), 0);

  const std::string id = Create();
  const Json::Value before = Read(id);
  answer = Update(id, row.members);
  EXPECT_EQ(answer.code, row.code);
  EXPECT_EQ(answer.body, row.message);
  EXPECT_EQ(Read(id), before);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, RefusedSetTest,
    testing::Values(RefusedCase{"no_users", R"(, "protect_type": "user", "protect_title": "x")",
                                1009, "Execute Error: set entry fields fail"},
                    RefusedCase{"no_uri", R"(, "redirect_type": "url_param", "protect_title": "x")",
                                1011, "Execute Error: set entry fields fail"},
                    RefusedCase{"no_date", R"(, "expire_at": "tomorrow", "protect_title": "x")",
                                101, "Parse Param Error: bad expire_at"},
                    RefusedCase{"loose_form", R"(, "start_at": "  2030-2-8   1:0:0")", 101,
                                "Parse Param Error: bad start_at"},
                    RefusedCase{"no_blank", R"(, "start_at": "2030-02-28T10:00:00")", 101,
                                "Parse Param Error: bad start_at"},
                    RefusedCase{"no_day",
                                R"(, "start_at": "2030-02-30 00:00:00", "enabled": false)", 117,
                                "Execute Error: db update entry fail"},
                    RefusedCase{"trailing_text", R"(, "expire_at": "2030-01-01 00:00:00Z")", 101,
                                "Parse Param Error: bad expire_at"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(SetTest, NewCredentialsEndVisits) {
  const std::string id =
      Create(R"({"project_name": "album", "protect_type": "password", "protect_password": "old"})");
  const std::string open = Create();
  Login(id, R"(, "password": "old")");
  Login(open);
  As(kAlice);
  EXPECT_EQ(Update(id, R"(, "protect_title": "x")").code, 0);
  EXPECT_EQ(Update(open, R"(, "protect_password": "unused")").code, 0);
  EXPECT_EQ(Rows("visitor_token"), 2);
  EXPECT_EQ(Update(id, R"(, "protect_password": "new")").code, 0);
  EXPECT_EQ(Rows("visitor_token"), 1);
  Login(id, R"(, "password": "new")");
}

TEST_F(SetTest, UnusableStoreIsTold) {
  const std::string id = Create();
  BreakStore();
  for (const char* method : {"get", "set", "delete", "list", "trigger_gc"}) {
    const Answer answer =
        Sharing(method, R"({"project_name": "album", "sharing_id": ")" + id + "\"}");
    EXPECT_EQ(answer.code, 117) << method;
    EXPECT_EQ(answer.body, "Execute Error: db open fail") << method;
  }
}

TEST_F(SetTest, UpdateMayNotLeaveAPasswordLinkWithoutOne) {
  const std::string id =
      Create(R"({"project_name": "album", "protect_type": "password", "protect_password": "pw"})");
  const Json::Value before = Read(id);
  for (const char* members : {R"(, "protect_password": "")",
                              R"(, "protect_password": "", "start_at": "2030-02-30 00:00:00")"}) {
    const Answer answer = Update(id, members);
    EXPECT_EQ(answer.code, 1010) << members;
    EXPECT_EQ(answer.body, "Execute Error: set entry fields fail");
  }
  EXPECT_EQ(Read(id), before);
}

TEST_F(SetTest, WriteThatTheDatabaseRefusesIsTold) {
  const std::string id =
      Create(R"({"project_name": "album", "auto_gc": true, "expire_at": "2020-01-01 00:00:00"})");
  const std::string link = R"({"project_name": "album", "sharing_id": ")" + id + "\"}";
  const struct {
    const char* event;
    const char* method;
    std::string json;
    const char* message;
  } rows[] = {
      {"insert", "set", R"({"project_name": "album"})", "db create entry fail"},
      {"update", "set", R"({"project_name": "album"})", "db update entry fail"},
      {"update", "set", link, "db update entry fail"},
      {"delete", "delete", link, "db delete entry fail"},
      {"delete", "trigger_gc", "{}", "gc error"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.method) + ", " + row.event);
    Refuse(row.event);
    const Answer answer = Sharing(row.method, row.json);
    RefuseNoMore();
    EXPECT_EQ(answer.code, 117);
    EXPECT_EQ(answer.body, std::string("Execute Error: ") + row.message);
    EXPECT_EQ(Rows("link"), 1);
  }
  ExecuteSql("update link set app = '{'");
  EXPECT_EQ(Sharing("list", "{}").body, "Execute Error: db get entries fail");
}

// The trigger stands for another request that deletes the link once it was looked up.
TEST_F(SetTest, DeleteThatComesSecondIsTold) {
  if (!IsSqlite()) GTEST_SKIP() << "PostgreSQL refuses such a trigger";
  const std::string link = R"({"sharing_id": ")" + Create() + "\"}";
  ExecuteSql(
      "create trigger first before delete on link begin delete from link where id = old.id; end");
  const Answer answer = Sharing("delete", link);
  EXPECT_EQ(answer.code, 117);
  EXPECT_EQ(answer.body, "Execute Error: db delete entry fail");
  EXPECT_EQ(Rows("link"), 0);
  EXPECT_EQ(Sharing("delete", link).code, 1005);
}

// An empty file in the program's place, in the test's own mount namespace.
TEST_F(SetTest, LinksWithoutAQRCodeAreAnswered) {
  Create();
  Create();
  Log().clear();
  ASSERT_EQ(mount("/dev/null", "/usr/bin/qrencode", nullptr, MS_BIND, nullptr), 0);
  const Answer set = Sharing("set", R"({"project_name": "album"})");
  const Answer list = Sharing("list", "{}");
  ASSERT_EQ(umount("/usr/bin/qrencode"), 0);
  EXPECT_THAT(set.body.getMemberNames(), testing::ElementsAre("sharing_id", "url"));
  ASSERT_EQ(list.body["sharings"].size(), 3U);
  std::vector<std::string> lines = {"3 SharingAPI:40 VLIBCPopen failed, key=" +
                                    set.body["url"].asString()};
  for (const Json::Value& link : list.body["sharings"]) {
    EXPECT_FALSE(link.isMember("qrcode"));
    lines.push_back("3 SharingAPI:40 VLIBCPopen failed, key=" + link["url"].asString());
  }
  EXPECT_EQ(Log(), lines);
}

TEST(QRCodeTest, EncodesTheWholeTextAsOneArgument) {
  std::string image = "unchanged";
  ASSERT_TRUE(GenerateQRCode("https://nas.example/sharing/a b'\"$(x)&", image));
  EXPECT_THAT(image, testing::StartsWith("data:image/png;base64,iVBORw0KGgo"));
  // qrencode prints nothing for a text beyond the largest symbol.
  image = "unchanged";
  EXPECT_FALSE(GenerateQRCode(std::string(8000, 'x'), image));
  EXPECT_EQ(image, "unchanged");
}

}  // namespace
}  // namespace VELT
