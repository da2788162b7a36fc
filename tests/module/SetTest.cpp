// Creating and changing links, and their QR codes.
#include <sys/mount.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "module/LinkAddress.h"
#include "tests/module/Fixture.h"
#include "tests/support/Json.h"
#include "tests/support/SyslogCapture.h"
#include "veltsys/Base64.h"
#include "veltsys/ProgramRules.h"

namespace VELT {
namespace {

class SetTest : public ModuleTest {
 protected:
  // Creates a link, or changes `link`, with these members beside its project.
  Answer Set(const Members& members, const std::string& link = "") {
    return Sharing("set",
                   Object(members, Object({{"project_name", "album"}, {"sharing_id", link}})));
  }
  Json::Value Read(const std::string& link) {
    return Sharing("get", Object({{"sharing_id", link}})).body;
  }
  void WriteProgram(const std::string& script) const {
    std::ofstream(folder_ / "program") << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(folder_ / "program", std::filesystem::perms(0755));
  }
  static void ExpectRefusal(const Answer& answer, int code, const std::string& message) {
    EXPECT_EQ(answer.code, code);
    EXPECT_EQ(answer.body, message);
  }
};

// Replaces the program that makes QR codes by `file`, in the test's own mount namespace.
class QRCodeProgram {
 public:
  explicit QRCodeProgram(const std::string& file) {
    EXPECT_EQ(mount(file.c_str(), kPath, nullptr, MS_BIND, nullptr), 0);
  }
  ~QRCodeProgram() { umount(kPath); }
  QRCodeProgram(const QRCodeProgram&) = delete;
  QRCodeProgram& operator=(const QRCodeProgram&) = delete;

 private:
  static constexpr char kPath[] = "/usr/bin/qrencode";
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
  const Json::Value expected =
      Object({{"sharing_id", id}},
             Parse(R"({"project_name": "album", "owner_uid": 2001, "owner_user": "alice",
      "enabled": true, "auto_gc": false, "enable_match_ip": true, "start_at": "",
      "expire_at": "", "expire_times": 0, "visits": 0, "protect_type": "none", "protect_title": "",
      "has_password": false, "protect_users": [], "protect_groups": [], "redirect_type": "none",
      "redirect_uri": "", "app": {}, "status": "active"})"));
  EXPECT_EQ(link.toStyledString(), expected.toStyledString());
}

TEST_F(SetTest, UpdatesOnlyWhatTheRequestCarries) {
  const std::string id =
      Sharing("set", R"({"project_name": "album", "protect_type": "user", "protect_title": "Ours",
      "protect_users": ["bob", "bob", ""], "protect_groups": ["family"], "auto_gc": true,
      "enable_match_ip": false, "start_at": "2039-01-02 03:04:05", "expire_at": "2040-01-02 03:04:05", "expire_times": 7,
      "redirect_type": "always", "redirect_uri": "/photos", "app": {"album": [1]}, "private_data": {"k": "v"}})")
          .body["sharing_id"]
          .asString();
  const Json::Value before = Read(id);
  EXPECT_EQ(before["protect_users"], Parse(R"(["bob", "bob", ""])"));
  const Answer answer = Set({{"enabled", false}}, id);
  EXPECT_EQ(answer.body["sharing_id"], id);
  Json::Value expected = before;
  expected["enabled"] = false;
  expected["status"] = "disabled";
  EXPECT_EQ(Read(id), expected);
  EXPECT_TRUE(before["auto_gc"].asBool() && !before["enable_match_ip"].asBool());
  EXPECT_EQ(before["start_at"], "2039-01-02 03:04:05");
  EXPECT_EQ(Rows("link", "private_data LIKE '%\"k\"%'"), 1);
}

TEST_F(SetTest, OnlyOwnerAndAdministratorUpdate) {
  const std::string id = Create();
  As(kBob);
  ExpectRefusal(Set({{"enabled", false}}, id), kErrorOwner, "Execute Error: invalid owner");
  As(kAdmin, true);
  EXPECT_EQ(Set({{"enabled", false}}, id).code, 0);
  EXPECT_EQ(Read(id)["owner_uid"], kAlice);

  ExpectRefusal(Set({{"project_name", "Album"}}, id), kErrorParam,
                "Execute Error: invalid project name");
  ExpectRefusal(Set({}, "unknown"), kErrorSharingID, "Execute Error: invalid sharing id");
}

// Of each row a create must leave no record, and an update the record as it was.
TEST_F(SetTest, RefusedChangesChangeNothing) {
  const std::string fields = "Execute Error: set entry fields fail";
  const std::string parse = "Parse Param Error: ";
  const std::string store = "Execute Error: db update entry fail";
  const struct {
    Members members;
    int code;
    std::string message;
    bool checked = true;
  } rows[] = {
      {{{"protect_type", "user"}, {"protect_title", "x"}}, kErrorNoUsers, fields},
      {{{"redirect_type", "url_param"}, {"protect_title", "x"}}, kErrorNoRedirectURI, fields},
      {{{"protect_type", "user"}, {"redirect_type", "always"}}, kErrorNoUsers, fields},
      {{{"expire_at", "31-12-2026"}, {"protect_title", "x"}}, kErrorStore, store},
      {{{"start_at", "  2030-2-8   1:0:0"}}, kErrorStore, store},
      {{{"start_at", "2030-02-28T10:00:00"}}, kErrorStore, store},
      {{{"start_at", "2030-02-30 00:00:00"}, {"enabled", false}}, kErrorStore, store},
      {{{"expire_at", "2030-01-01 00:00:00Z"}}, kErrorStore, store},
      // What the pre-check would keep from the handler.
      {{{"protect_type", "login"}}, kErrorParam, parse + "bad protect_type", false},
      {{{"redirect_type", "Always"}}, kErrorParam, parse + "bad redirect_type", false},
      {{{"protect_users", Object({{"bob", 1}})}}, kErrorParam, parse + "bad protect_users", false},
      {{{"protect_groups", "family"}}, kErrorParam, parse + "bad protect_groups", false},
      {{{"expire_times", -1}}, kErrorParam, parse + "invalid expire times", false},
      {{{"project_name", ""}}, kErrorParam, "Execute Error: invalid project name", false},
  };
  const std::string id = Create();
  const Json::Value before = Read(id);
  for (const auto& row : rows) {
    SCOPED_TRACE(Object(row.members).toStyledString());
    for (const std::string& link : {std::string(), id}) {
      const Json::Value base = Object({{"project_name", "album"}, {"sharing_id", link}});
      ExpectRefusal(Sharing("set", Object(row.members, base), row.checked), row.code, row.message);
      EXPECT_EQ(Rows("link"), 1);
      EXPECT_EQ(Read(id), before);
    }
  }
}

TEST_F(SetTest, NewCredentialsEndVisits) {
  const std::string open = Create();
  Login(open);
  As(kAlice);
  const std::string id = Create({{"protect_type", "password"}, {"protect_password", "pw"}});
  EXPECT_EQ(Set({{"protect_password", "unused"}, {"protect_groups", Array("family")}}, open).code,
            0);
  for (const Members& change :
       {Members{{"protect_password", "pw"}}, Members{{"protect_users", Array("bob")}},
        Members{{"protect_groups", Array("family")}}}) {
    Login(id, {{"password", "pw"}});
    As(kAlice);
    EXPECT_EQ(Set({{"protect_title", "x"}}, id).code, 0);
    EXPECT_EQ(Rows("visitor_token"), 2);
    EXPECT_EQ(Set(change, id).code, 0);
    EXPECT_EQ(Rows("visitor_token"), 1) << change[0].first;
  }
}

TEST_F(SetTest, UnusableStoreIsReported) {
  const std::string id = Create();
  BreakStore();
  for (const char* method : {"get", "set", "delete", "list", "trigger_gc"}) {
    SCOPED_TRACE(method);
    ExpectRefusal(Sharing(method, Object({{"project_name", "album"}, {"sharing_id", id}})),
                  kErrorStore, "Execute Error: db open fail");
  }
}

TEST_F(SetTest, UpdateMayNotLeaveAPasswordLinkWithoutOne) {
  const std::string id = Create({{"protect_type", "password"}, {"protect_password", "pw"}});
  const Json::Value before = Read(id);
  for (const char* start : {"", "2030-02-30 00:00:00"}) {
    ExpectRefusal(Set({{"protect_password", ""}, {"start_at", start}}, id), kErrorNoPassword,
                  "Execute Error: set entry fields fail");
  }
  EXPECT_EQ(Read(id), before);
}

TEST_F(SetTest, WriteThatTheDatabaseRefusesIsReported) {
  const std::string id = Create({{"auto_gc", true}, {"expire_at", "2020-01-01 00:00:00"}});
  const Json::Value link = Object({{"project_name", "album"}, {"sharing_id", id}});
  const struct {
    const char* event;
    const char* method;
    Json::Value parameters;
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
    const Answer answer = Sharing(row.method, row.parameters);
    RefuseNoMore();
    ExpectRefusal(answer, kErrorStore, std::string("Execute Error: ") + row.message);
    EXPECT_EQ(Rows("link"), 1);
  }
  if (IsSqlite()) {
    // A link that can be neither completed nor removed stays turned off.
    ExecuteSql("create trigger refusal before update on link begin select raise(abort, ''); end");
    ExecuteSql("create trigger keep before delete on link begin select raise(abort, ''); end");
    EXPECT_EQ(Set({}).code, kErrorStore);
    EXPECT_EQ(Rows("link", "enabled = 0"), 1);
    ExecuteSql("drop trigger refusal");
  }
  ExecuteSql("update link set app = '{'");
  EXPECT_EQ(Sharing("list", "{}").body, "Execute Error: db get entries fail");
}

// The trigger stands for another request that deletes the link once it was looked up.
TEST_F(SetTest, DeleteThatComesSecondIsReported) {
  if (!IsSqlite()) GTEST_SKIP() << "PostgreSQL refuses such a trigger";
  const Json::Value link = Object({{"sharing_id", Create()}});
  ExecuteSql(
      "create trigger first before delete on link begin delete from link where id = old.id; end");
  ExpectRefusal(Sharing("delete", link), kErrorStore, "Execute Error: db delete entry fail");
  EXPECT_EQ(Rows("link"), 0);
  EXPECT_EQ(Sharing("delete", link).code, kErrorSharingID);
}

TEST_F(SetTest, LinksAreReturnedWithoutAQRCodeThatCanNotBeMade) {
  // More than are made at a time, so that some are not started once others were ended.
  for (int made = 0; made < 5; ++made) Create();
  WriteProgram("exec sleep 100");
  SetProgramRules({.time_limit = std::chrono::milliseconds(300)});
  for (const std::string& program : {std::string("/dev/null"), (folder_ / "program").string()}) {
    SCOPED_TRACE(program);
    const QRCodeProgram replaced(program);
    Log().clear();
    BeginProgramsOfRequest({});
    const Answer set = Set({});
    BeginProgramsOfRequest({});
    const Answer list = Sharing("list", "{}");
    EXPECT_THAT(set.body.getMemberNames(), testing::ElementsAre("sharing_id", "url"));
    EXPECT_GE(list.body["sharings"].size(), 6U);
    std::vector<std::string> lines = {"3 SharingAPI:40 VLIBCPopen failed, key=" +
                                      set.body["url"].asString()};
    for (const Json::Value& link : list.body["sharings"]) {
      EXPECT_FALSE(link.isMember("qrcode"));
      lines.push_back("3 SharingAPI:40 VLIBCPopen failed, key=" + link["url"].asString());
    }
    std::erase_if(Log(), [](const std::string& line) { return line.starts_with("3 program "); });
    EXPECT_THAT(Log(), testing::UnorderedElementsAreArray(lines));
  }
  SetProgramRules({});
  BeginProgramsOfRequest({});
}

TEST_F(SetTest, QRCodeIsAllThatTheProgramPrints) {
  WriteProgram(R"([ "$*" = "-l H $3 -o -" ] && yes Man | tr -d '\n' | head -c "$3")");
  const QRCodeProgram program(folder_ / "program");
  for (const int size : {1, 2, 3, 4, 8191, 8192, 8193, 16384, 16385, 100000}) {
    std::string want = "data:image/png;base64,";
    for (int at = 0; at + 3 <= size; at += 3) want += "TWFu";
    want += std::array{"", "TQ==", "TWE="}.at(static_cast<std::size_t>(size % 3));
    std::string image = "unchanged";
    EXPECT_TRUE(GenerateQRCode(std::to_string(size), image)) << size;
    EXPECT_TRUE(image == want) << size << " bytes became " << image.size();
  }
}

// Each program waits for a second one.
TEST_F(SetTest, QRCodesOfAListAreMadeAtOnceAndStayInOrder) {
  WriteProgram(R"sh(: > "$0.$$"
until [ "$(ls "$0".* | wc -l)" -ge 2 ]; do sleep 0.02; done
printf %s "$3")sh");
  for (const char* title : {"a", "b", "c", "d", "e"}) Create({{"protect_title", title}});
  const QRCodeProgram program(folder_ / "program");
  const Answer list = Sharing("list", R"({"sort_by": "protect_title", "sort_direction": "DESC"})");
  std::string titles;
  for (const Json::Value& link : list.body["sharings"]) {
    titles += link["protect_title"].asString();
    const std::string url = link["url"].asString();
    std::vector<char> text(2 * url.size(), '\0');
    VLIBCBase64SzEncodeFull(url.data(), url.size(), text.data(), text.size(), text.size(), 0, 0);
    EXPECT_EQ(link["qrcode"], std::string("data:image/png;base64,") + text.data());
  }
  EXPECT_EQ(titles, "edcba");
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
