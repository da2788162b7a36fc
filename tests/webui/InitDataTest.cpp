#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "sharing/InitDataHandler.h"
#include "tests/support/Json.h"
#include "tests/support/SyslogCapture.h"
#include "tests/webui/Files.h"
#include "veltsharing/Entry.h"
#include "veltweb/WebMan.h"

namespace VELT::sharing {
namespace {

constexpr const char* kPhone = "Mozilla/5.0 (Linux; Android 14) Chrome/130.0 Mobile Safari/537.36";

class InitDataTest : public testing::Test {
 protected:
  InitDataTest() {
    Clear();
    Log().clear();
    link_.set_project_name("album");
    page_ = std::make_unique<WebMan>("ger", kPhone);
    handler_ = std::make_unique<InitDataHandler>(page_.get(), link_);
  }

  // The JS config after modules were allowed.
  Json::Value Append(Json::Value config) {
    handler_->AppendAllowSharing(config);
    return config;
  }
  Json::Value Append(const char* config) { return Append(Parse(config)); }
  Json::Value Filtered(void (InitDataHandler::*filter)(Json::Value&), const std::string& json) {
    Json::Value value = Parse(json);
    (handler_.get()->*filter)(value);
    return value;
  }

  record::Entry link_;
  std::unique_ptr<WebMan> page_;
  std::unique_ptr<InitDataHandler> handler_;
};

TEST_F(InitDataTest, ExtractorReturnsAPieceOrChangesNothing) {
  const struct {
    const char* text;
    const char* delim;
    unsigned int index;
    const char* piece;  // null: none
  } rows[] = {
      {"x/y/Utils", "/", 2, "Utils"}, {"x/y/Utils/style.css", "/", 2, "Utils"},
      {"/x/Utils", "/", 2, "Utils"},  {"x//Utils", "/", 2, "Utils"},
      {"x/y/", "/", 2, ""},           {"x/Utils", "/", 2, nullptr},
      {"", "/", 2, nullptr},          {"x.y.Utils", ".", 0, "x"},
      {"x.y.Utils", ".", 3, nullptr}, {"x.y.Utils", "", 0, nullptr},
      {"a::b::c", "::", 2, "c"},
  };
  for (const auto& row : rows) {
    std::string piece = "before";
    EXPECT_EQ(Extractor(row.text, piece, row.delim, row.index), row.piece != nullptr) << row.text;
    EXPECT_EQ(piece, row.piece != nullptr ? row.piece : "before") << row.text;
  }
}

TEST_F(InitDataTest, FiltersKeepTheListedModules) {
  EXPECT_EQ(
      Filtered(&InitDataHandler::FilterJSConfig,
               R"({"x/y/Utils": {"a": 1}, "x/y/utils": {}, "x/y/FooApp": {}, "x/Utils": {}})"),
      Parse(R"({"x/y/Utils": {"a": 1}})"));
  EXPECT_EQ(Filtered(&InitDataHandler::FilterStrings,
                     R"({"x.y.Uploader": {"t": "u"}, "x.Uploader": {}, "x/y/Uploader": {}})"),
            Parse(R"({"x.y.Uploader": {"t": "u"}})"));
  EXPECT_EQ(
      Filtered(&InitDataHandler::FilterCSSFiles,
               R"(["x/y/Widgets/b.css", "x/y/Foo/a.css", 5, {}, "x/y/Utils/a.css", "Utils"])"),
      Parse(R"(["x/y/Widgets/b.css", "x/y/Utils/a.css"])"));
  Json::Value all;
  for (const std::string name : {"ACEEditor", "Chooser", "MOSKNotify", "FileChooser",
                                 "FileTaskMonitor", "Flotr", "PixlrImageEditor", "PollingTask",
                                 "TinyMCE", "Uploader", "Utils", "Widgets", "SharingManager"}) {
    all["x/y/" + name] = Json::objectValue;
  }
  Json::Value kept = all;
  handler_->FilterJSConfig(kept);
  EXPECT_EQ(kept, all);
}

TEST_F(InitDataTest, FiltersReplaceWrongTypes) {
  for (const char* json : {"null", "\"x/y/Utils\"", "[1]"}) {
    EXPECT_EQ(Filtered(&InitDataHandler::FilterJSConfig, json), Json::Value(Json::objectValue));
    EXPECT_EQ(Filtered(&InitDataHandler::FilterStrings, json), Json::Value(Json::objectValue));
  }
  for (const char* json : {"null", "5", R"({"a": "x/y/Utils/a.css"})"}) {
    EXPECT_EQ(Filtered(&InitDataHandler::FilterCSSFiles, json), Json::Value(Json::arrayValue));
  }
}

TEST_F(InitDataTest, OnlyAMarkedModuleOpens) {
  const struct {
    const char* name;
    const char* config;  // of x/y/FooApp
    bool app_opens;
    bool class_opens;
  } rows[] = {
      {"marked", R"({"a.b.FooMain": {"allowSharing": true}})", true, true},
      {"marked, second class", R"({"a.b.Aaa": {}, "a.b.FooMain": {"allowSharing": true}})", true,
       true},
      {"a class after the marked one",
       R"({"a.b.Aaa": {"allowSharing": true}, "a.b.FooMain": {"allowSharing": true}})", true,
       false},
      {"short name", R"({"a.FooMain": {"allowSharing": true}})", true, false},
      {"false", R"({"a.b.FooMain": {"allowSharing": false}})", false, false},
      {"text", R"({"a.b.FooMain": {"allowSharing": "true"}})", false, false},
      {"number", R"({"a.b.FooMain": {"allowSharing": 1}})", false, false},
      {"members of wrong types", R"({"a": null, "b": "allowSharing", "c": [true]})", false, false},
      {"array", R"([{"allowSharing": true}])", false, false},
      {"null", "null", false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    handler_ = std::make_unique<InitDataHandler>(page_.get(), link_);
    Append(Object({{"x/y/FooApp", Parse(row.config)}}));
    const Json::Value kept =
        Filtered(&InitDataHandler::FilterStrings, R"({"a.b.FooApp": {}, "a.b.FooMain": {}})");
    EXPECT_EQ(kept.isMember("a.b.FooApp"), row.app_opens);
    EXPECT_EQ(kept.isMember("a.b.FooMain"), row.class_opens);
  }
  Append("[]");
  Append(R"({"x/FooApp": {"a.b.FooMain": {"allowSharing": true}}})");
  Append(R"({"x/y/Utils": {"a.b.FooMain": {"allowSharing": true}}})");  // open for all anyway
  EXPECT_TRUE(Filtered(&InitDataHandler::FilterJSConfig, R"({"x/y/FooMain": {}})").empty());
}

TEST_F(InitDataTest, PackageStatusIsNotedInTheMarkedClass) {
  Write("var/packages/up/running", "");
  Write("var/packages/odd/running/folder", "");
  const struct {
    Json::Value id;
    const char* status;
  } rows[] = {{"up", "running"},
              {"down", "disable"},
              {Json::objectValue, "disable"},
              {"../up", "disable"},
              {"odd", "disable"}};
  for (const auto& row : rows) {
    Json::Value config =
        Parse(R"({"x/y/App": {"a.b.Main": {"allowSharing": true}, "a.b.Other": {"pkgId": "up"}}})");
    config["x/y/App"]["a.b.Main"]["pkgId"] = row.id;
    Json::Value expected = config;
    expected["x/y/App"]["a.b.Main"]["pkgStatus"] = row.status;
    handler_ = std::make_unique<InitDataHandler>(page_.get(), link_);
    EXPECT_EQ(Append(config), expected);
  }
  const char* bare = R"({"x/y/Bare": {"a.b.Bare": {"allowSharing": true}}})";
  EXPECT_EQ(Append(bare), Parse(bare));
}

TEST_F(InitDataTest, WithoutTheRightToBecomeRootThePackageIsNotLookedUp) {
  const char* config = R"({"x/y/App": {"a.b.Main": {"allowSharing": true, "pkgId": "up"}}})";
  const pid_t child = fork();
  if (child == 0) {
    if (setresuid(1024, 1024, 1024) != 0) _exit(77);
    const bool same = Append(config) == Parse(config);
    const bool open =
        Filtered(&InitDataHandler::FilterJSConfig, R"({"x/y/App": {}, "x/y/Main": {}})").size() ==
        2;
    const bool logged =
        Log().size() == 2 && Log()[1] == "3 InitDataHandler:123 Permssion denied. uid=1024";
    _exit(same && open && logged ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "has one uid only";
  EXPECT_EQ(status, 0);
}

TEST_F(InitDataTest, DesktopOfAVisitor) {
  Write("etc/velt.conf", "date_format=\"%d.%m.%Y\"\n");
  Write("web/x/y/Utils/config.json", "{}");
  Write("web/x/y/Utils/style.css", "");
  Write("web/x/y/Closed/config.json", "{}");
  Write("web/x/y/Closed/style.css", "");
  Write("web/x/y/Closed/texts/enu.json", "{}");
  Write("web/x/y/Album/config.json",
        R"({"x.y.Album": {"allowSharing": true, "project": "album"}})");
  Write("web/x/y/Album/texts/ger.json", R"({"title": "Bilder"})");
  Json::Value data;
  handler_->InitDesktop(data, false);
  Json::Value link;
  link_.ToJSON(link);
  Json::Value expected = Parse(R"({
    "JSConfig": {"x/y/Album": {"x.y.Album": {"allowSharing": true, "project": "album"}}, "x/y/Utils": {}},
    "CSSFiles": ["x/y/Utils/style.css"],
    "Strings": {"x.y.Album": {"title": "Bilder"}},
    "Session": {"isLogined": false, "lang": "ger", "mobile": true, "theme_cls": "",
                "date_format": "%d.%m.%Y", "time_format": "%H:%M"},
    "UserSettings": {}, "GroupSettings": {}, "VeltServices": {}, "ActionPrivilege": {}})");
  expected["Sharing"] = link;
  EXPECT_EQ(data, expected);
}

}  // namespace
}  // namespace VELT::sharing
