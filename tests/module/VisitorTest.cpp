// The methods for visitors (session script, login, logout, start-up data) and the application's
// configuration.
#include <dlfcn.h>
#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "tests/module/Fixture.h"
#include "tests/support/Json.h"
#include "tests/support/SyslogCapture.h"
#include "tests/webui/Files.h"
#include "veltsharing/Login.h"
#include "veltweb/WebUtils.h"

namespace {

// Replaces the store's login for a test; empty: the store's own.
std::function<int(std::string& sid, const _tag_sharing_login_params& params)> g_login;

}  // namespace

// Intercepts the store's function.
int VeltSharingLogin(std::string& sid, const _tag_sharing_login_params* params, bool flag) {
  constexpr const char* kName =
      "_Z16VeltSharingLoginRNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
      "PK25_tag_sharing_login_paramsb";
  static const auto next = reinterpret_cast<decltype(&VeltSharingLogin)>(dlsym(RTLD_NEXT, kName));
  return g_login ? g_login(sid, *params) : next(sid, params, flag);
}

namespace VELT {

std::string WebUtils::GetServerName() { return "<nas> & \"more\""; }

namespace {

using testing::StartsWith;

constexpr char kHeader[] =
    "Content-Type: application/javascript; charset=\"UTF-8\"\r\n\r\nVELT.TALD.Session = ";

class VisitorTest : public ModuleTest {
 protected:
  VisitorTest() { Clear(); }
  static void Configure(const std::string& project, const std::string& config) {
    Write("etc.defaults/sharing/" + project, config);
  }
  static std::string EchoConfig(const Members& more = {}) {
    const Json::Value params = Object({{"lib", VELT_ECHO_PLUGIN}});
    const Json::Value plugin = Object({{"name", "custom_page"}, {"params", params}});
    return Object(more, Object({{"plugins", Array(plugin)}})).toStyledString();
  }
  Answer Session(const Json::Value& parameters) {
    return Call("VELT.Core.Sharing.Session", "get", parameters);
  }
  Answer InitData(const char* action) {
    return Call("VELT.Core.Sharing.Initdata", "get", Object({{"action", action}}));
  }
  // Returns the session object of a script; `extra` gets the rest of the script.
  static Json::Value Script(const Answer& answer, std::string* extra = nullptr) {
    EXPECT_TRUE(answer.raw);
    EXPECT_THAT(answer.printed, StartsWith(kHeader));
    const std::size_t end = answer.printed.find("\n;");
    if (extra != nullptr) *extra = answer.printed.substr(end + 2);
    return Parse(answer.printed.substr(sizeof(kHeader) - 1, end - sizeof(kHeader) + 1));
  }
  // The lines that were logged as errors, with "@" for `place` at their head.
  static std::vector<std::string> Errors(const std::string& place) {
    std::vector<std::string> lines;
    for (std::string line : Log()) {
      if (!line.starts_with("3 ")) continue;
      line.erase(0, 2);
      if (line.starts_with(place)) line.replace(0, place.size(), "@");
      lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(VisitorTest, ScriptWithoutALinkHasTheBareSession) {
  std::string extra = "?";
  const Json::Value session = Script(Session("{}"), &extra);
  EXPECT_THAT(session.getMemberNames(),
              testing::ElementsAre("configured", "diskless", "enable_velt_token", "fullversion",
                                   "hostname", "isLogined", "lang", "protect_title", "sharing",
                                   "sharing_id", "sharing_status", "sharing_theme", "version"));
  EXPECT_EQ(session["sharing_status"], "none");
  EXPECT_EQ(session["sharing_theme"], Json::Value(Json::objectValue));
  EXPECT_EQ(session["version"], session["fullversion"]);
  EXPECT_EQ(session["isLogined"], false);
  EXPECT_EQ(session["sharing"], true);
  EXPECT_EQ(session["hostname"], "&lt;nas&gt; &amp; &quot;more&quot;");
  EXPECT_EQ(session["lang"], "ger");
  EXPECT_EQ(session["enable_velt_token"], "no");
  EXPECT_EQ(session["diskless"], false);
  EXPECT_EQ(session["configured"], true);
  EXPECT_EQ(extra, "");
  EXPECT_FALSE(Script(Session(R"({"sharing_error": -1, "sharing_preview_status": {}})"))
                   .isMember("sharing_error"));
  EXPECT_FALSE(Script(Session(R"({"sharing_preview_status": [1]})")).isMember("preview"));
  EXPECT_EQ(Script(Session(R"({"sharing_error": 1001, "sharing_id": "unknown"})"))["sharing_error"],
            1001);
}

TEST_F(VisitorTest, ScriptDescribesTheAppliance) {
  const std::filesystem::path information = "/etc.defaults/veltinfo.conf";
  for (const char* answer : {"YES", "yes", "no", "true"}) {
    Write("etc/velt.conf", std::string("configured=") + answer);
    std::ofstream(information) << "kestrabox=" << answer;
    const Json::Value session = Script(Session("{}"));
    EXPECT_EQ(session["configured"], strcasecmp(answer, "yes") == 0) << answer;
    EXPECT_EQ(session["diskless"], answer == std::string("yes")) << answer;
  }
  remove(information);
}

TEST_F(VisitorTest, ScriptDescribesLinkAndApplication) {
  Configure("album",
            EchoConfig({{"theme", Object({{"color", "red"}})}, {"protect_title", "Albums"}}));
  const std::string titled = Create({{"protect_title", "Ours"}});
  const std::string plain = Create();
  std::string extra;
  Json::Value session =
      Script(Session(Object({{"sharing_id", titled}, {"sharing_status", "user"}})), &extra);
  EXPECT_EQ(session["protect_title"], "Ours");
  EXPECT_EQ(session["sharing_theme"]["color"], "red");
  EXPECT_THAT(extra, StartsWith("VELT.TALD.ExtraSession = {"));
  EXPECT_EQ(
      Parse(extra.substr(25, extra.size() - 26)),
      Parse(
          R"({"project": "album", "title": "Ours", "status": "user", "extra": null, "euid": 0})"));
  session = Script(Session(Object({{"sharing_id", plain}})));
  EXPECT_EQ(session["protect_title"], "Albums");
}

TEST_F(VisitorTest, PreviewNeedsNoStore) {
  Configure("album", EchoConfig());
  BreakStore();
  std::string extra;
  const Json::Value session = Script(
      Session(
          R"({"preview": true, "sharing_id": "x", "sharing_status": "none", "sharing_preview_status": "none",
                  "sharing_preview_project_name": "album", "sharing_preview_params": [1]})"),
      &extra);
  EXPECT_EQ(session["preview"], true);
  EXPECT_EQ(session["sharing_id"], "x");
  EXPECT_EQ(session["sharing_status"], "password");
  EXPECT_EQ(session["sharing_preview_params"], Parse("[1]"));
  const Json::Value call = Parse(extra.substr(25, extra.size() - 26));
  EXPECT_EQ(call["status"], "none");
  EXPECT_EQ(call["extra"],
            Parse(R"({"preview": true, "sharing_status": "password", "sharing_preview_params": [1],
                                     "sharing_preview_project_name": "album"})"));
  EXPECT_EQ(
      Script(Session(R"({"preview": true, "sharing_preview_status": "user"})"))["sharing_status"],
      "user");
}

TEST_F(VisitorTest, ScriptWithBadParametersIsAnError) {
  const Answer answer = Session(R"({"sharing_error": {}})");
  EXPECT_EQ(answer.code, kErrorParam);
  EXPECT_THAT(answer.body.asString(), StartsWith("Parse Param Error: "));
  EXPECT_FALSE(answer.raw);
  EXPECT_EQ(answer.printed, "");
}

TEST_F(VisitorTest, BadConfigurationsFailNoRequest) {
  const std::string id = Create();
  const Json::Value ask = Object({{"sharing_id", id}});
  const std::string of = " of the configuration of album: ";
  const std::vector<std::string> no_array = {"@ Error plugins config"};
  struct {
    const char* config;
    const char* login_private;       // as JSON
    std::vector<std::string> lines;  // of both methods, @ for the method's place
    std::vector<std::string> script_lines;
  } const rows[] = {
      {"", "null", {}, {}},
      {"[]", "null", {}, {}},
      {"{nonsense", "null", {}, {}},
      {"{}", R"("")", {}, {}},
      {R"({"plugins": {}})", "null", no_array, {}},
      {R"({"plugins": "custom_page"})", "null", no_array, {}},
      {R"({"plugins": [], "theme": null})", R"("")", {}, {}},
      {R"({"plugins": [{}, {"name": "other"}, {"name": "custom_page "}]})", R"("")", {}, {}},
      {R"({"plugins": [{"name": "other", "params": 5}, 5, {"name": 5},
          {"name": "custom_page", "params": 5}, {"name": "custom_page", "params": {"lib": null}}]})",
       R"("")",
       {"AppConfig:54 plugin 2" + of + "it is not an object",
        "AppConfig:54 plugin 3" + of + "\"name\" is not a string", "Plugins:53 error plugin lib",
        "Plugins:53 error plugin lib"},
       {}},
      {R"({"plugins": [{"name": "open_graph", "params": {"lib": [1]}}]})",
       R"("")",
       {},
       {"Plugins:53 error plugin lib"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.config);
    Configure("album", row.config);
    Log().clear();
    std::string extra;
    Script(Session(ask), &extra);
    EXPECT_EQ(extra, "");
    EXPECT_THAT(Errors("SharingSessionAPI:194"),
                testing::ElementsAreArray(row.script_lines.empty() ? row.lines : row.script_lines));
    Log().clear();
    const Answer login = TryLogin(id);
    EXPECT_EQ(login.body["private"], Parse(row.login_private));
    EXPECT_THAT(Errors("SharingLoginAPI:140"), testing::ElementsAreArray(row.lines));
  }
}

TEST_F(VisitorTest, LoginGivesCookieAndPrivateData) {
  Configure("album", EchoConfig());
  const std::string id = Create({{"protect_type", "password"}, {"protect_password", "pw"}});
  Answer answer = TryLogin(id, {{"password", "PW"}});
  EXPECT_EQ(answer.code, kErrorProtectPassword);
  EXPECT_EQ(answer.body, "Execute Error: wrong protect passwd");
  EXPECT_EQ(answer.cookie, "");
  answer = TryLogin(id, {{"password", "pw"}});
  EXPECT_THAT(answer.body.getMemberNames(), testing::ElementsAre("private", "sharing_sid"));
  EXPECT_EQ(answer.cookie, "sharing_sid=" + answer.body["sharing_sid"].asString() + "; /; 0; ; ");
  EXPECT_EQ(
      answer.body["private"],
      Parse(R"({"project": "album", "title": "", "status": "none", "extra": null, "euid": 0})"));
  EXPECT_EQ(TryLogin("unknown").body, "Execute Error: login fail");
}

// Numbers, since clients and log watchers know these.
TEST_F(VisitorTest, RefusedLoginsHaveTheirCodes) {
  const struct {
    int result;  // of the store
    int code;
    const char* message;
  } rows[] = {
      {-2, 1003, "invalid mosk user login"},
      {-3, 1000, "login fail"},
      {-8, 1008, "denied IP"},
      {-9, 1001, "wrong protect passwd"},
      {-10, 1002, "wrong protect user"},
      {-11, 1012, "exceed expire times"},
      {0, 117, "login internal error"},
      {-1, 117, "login internal error"},
      {-4, 117, "login internal error"},
      {-7, 117, "login internal error"},
      {-12, 117, "login internal error"},
      {2, 117, "login internal error"},
  };
  for (const auto& row : rows) {
    g_login = [&row](std::string&, const auto&) { return row.result; };
    const Answer answer = TryLogin("x");
    EXPECT_EQ(answer.code, row.code) << row.result;
    EXPECT_EQ(answer.body, std::string("Execute Error: ") + row.message) << row.result;
    EXPECT_EQ(answer.cookie, "");
  }
  g_login = nullptr;
}

TEST_F(VisitorTest, LoginWithAndWithoutACookie) {
  std::vector<std::string> given;
  g_login = [&given](std::string& sid, const auto& params) {
    given.emplace_back(params.sid == nullptr ? "none" : params.sid);
    sid = "no; cookie";
    return 1;
  };
  const Answer answer = TryLogin("x");
  EXPECT_EQ(answer.body, Parse(R"({"private": null, "sharing_sid": "no; cookie"})"));
  EXPECT_EQ(answer.cookie, "");
  EXPECT_THAT(Log(), testing::Contains("3 SharingLoginAPI:61 AddCookie fail"));
  AsVisitor("x", "old");
  EXPECT_EQ(Call("VELT.Core.Sharing.Login", "login", R"({"sharing_id": "x"})").code, 0);
  EXPECT_THAT(given, testing::ElementsAre("none", "old"));
  g_login = nullptr;
}

TEST_F(VisitorTest, LoginWithoutTheRightToBecomeRootIsDenied) {
  const std::string id = Create();
  const pid_t child = fork();
  if (child == 0) {
    if (setresuid(kAlice, kAlice, kAlice) != 0) _exit(77);
    Log().clear();
    const Answer answer = TryLogin(id);
    const bool denied =
        answer.code == kErrorParam && answer.body == "Execute Error: " && answer.cookie.empty();
    const bool logged =
        !Log().empty() && Log().back() == "3 SharingLoginAPI:98 Permssion denied. uid=2001";
    _exit(denied && logged ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "has one uid only";
  EXPECT_EQ(status, 0);
}

TEST_F(VisitorTest, LoginReadsTheConfigurationAndRunsPluginsAsRoot) {
  Configure("album", EchoConfig());
  std::filesystem::permissions("/usr/velt/etc.defaults/sharing/album",
                               std::filesystem::perms::owner_read);
  const std::string id = Create();
  if (setegid(kAlice) != 0 || seteuid(kAlice) != 0) GTEST_SKIP() << "has one uid only";
  const Answer answer = TryLogin(id);
  EXPECT_EQ(geteuid(), kAlice);
  ASSERT_TRUE(seteuid(0) == 0 && setegid(0) == 0);
  EXPECT_EQ(answer.body["private"]["euid"], 0);
}

TEST_F(VisitorTest, LogoutIsForVisitors) {
  const std::string id = Create();
  const std::string sid = Login(id);
  As(kAlice);
  Answer answer = Sharing("logout", Object({{"sharing_sid", sid}}));
  EXPECT_EQ(answer.code, kErrorParam);
  EXPECT_EQ(answer.body, "Execute Error: only allow sharing request");
  AsVisitor(id, "another");
  EXPECT_EQ(Sharing("logout", Object({{"sharing_sid", sid}})).code, 0);
  Login(id);
  EXPECT_EQ(Sharing("logout", R"({"sharing_sid": ""})").body, Json::Value());
  answer = Sharing("logout", "{}");
  EXPECT_EQ(answer.code, kErrorLogout);
  EXPECT_EQ(answer.body, "Execute Error: logout fail");
  Sharing("logout", R"({"sharing_sid": []})");
  EXPECT_THAT(Log().back(), StartsWith("3 SharingAPI:157 Fatal Error: "));
}

TEST_F(VisitorTest, InitDataHasTheLink) {
  Write("web/velt/ui/Utils/config.json",
        R"({"velt.ui.Ours": {"project": "album"}, "velt.ui.Theirs": {"project": "notes"}})");
  const std::string id = Create();
  Login(id);
  for (const char* action : {"", "unknown", "JSCONFIG"}) {
    const Answer answer = InitData(action);
    EXPECT_EQ(answer.body["Sharing"]["sharing_id"], id) << action;
    EXPECT_EQ(answer.body["UserSettings"], Json::Value(Json::objectValue));
    EXPECT_TRUE(answer.body["CSSFiles"].isArray());
    EXPECT_EQ(answer.body["JSConfig"],
              Parse(R"({"velt/ui/Utils": {"velt.ui.Ours": {"project": "album"}}})"));
  }
  EXPECT_EQ(InitData("external_ip").body, Parse(R"({"external_url": "https://nas.example"})"));
  EXPECT_EQ(InitData("assistant").body, Parse(R"({"configured": true})"));
  EXPECT_EQ(InitData("jsconfig").body, Object({{"version", WebUtils::GetModifyTime(nullptr)}}));
}

}  // namespace
}  // namespace VELT
