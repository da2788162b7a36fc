#include <filesystem>
#include <string>

#include "tests/support/Json.h"
#include "tests/webui/Files.h"
#include "veltsys/PackageManager.h"
#include "veltweb/InitUIFileHandler.h"

namespace {

using VELT::Parse;

class UIFilesTest : public testing::Test {
 protected:
  UIFilesTest() { Clear(); }

  static Json::Value Load(const char* language = "enu", const char* project = "",
                          bool every_project = false) {
    Json::Value data;
    InitUIFileHandler(language, every_project, project).GetInitData(data);
    return data;
  }
};

TEST_F(UIFilesTest, ModuleIsReadWhole) {
  Write("web/v/g/Mod/config.json", R"({"v.g.Main": {"script": "main.js"}, "v.g.Odd": 5})");
  Write("web/v/g/Mod/b.css", "");
  Write("web/v/g/Mod/a.min.css", "");
  Write("web/v/g/Mod/texts/enu.json", R"({"title": "Mod"})");
  Write("web/a/g/Bare/config.json", "{}");
  EXPECT_EQ(Load(), Parse(R"({
    "JSConfig": {"a/g/Bare": {}, "v/g/Mod": {"v.g.Main": {"script": "main.js"}, "v.g.Odd": 5}},
    "CSSFiles": ["v/g/Mod/a.min.css", "v/g/Mod/b.css"],
    "Strings": {"v.g.Mod": {"title": "Mod"}}})"));
}

TEST_F(UIFilesTest, NoFilesAreNoModules) {
  const Json::Value empty = Parse(R"({"JSConfig": {}, "CSSFiles": [], "Strings": {}})");
  EXPECT_EQ(Load(), empty);
  Write("web/index.html", "");
  Write("web/v/config.json", "{}");
  Write("web/v/g/config.json", "{}");
  Write("web/v/g/Mod/sub/config.json", "{}");
  EXPECT_EQ(Load(), empty);
}

TEST_F(UIFilesTest, BadFilesAreIgnored) {
  const std::string huge = VELT::Object({{"x", std::string(1024 * 1024, 'x')}}).toStyledString();
  const struct {
    const char* module;
    std::string config;
    std::string texts;
    bool is_module;
  } rows[] = {
      {"v/g/NotJson", "{", "{}", false},
      {"v/g/Array", "[{}]", "{}", false},
      {"v/g/Null", "null", "{}", false},
      {"v/g/Huge", huge, "{}", false},
      {"v/g/Deep", "{\"x\": " + std::string(100, '[') + std::string(100, ']') + "}", "{}", false},
      {"v/g/a.b", "{}", "{}", false},
      {"v/g/BadTexts", "{}", "{", true},
      {"v/g/TextsOfWrongType", "{}", R"(["x"])", true},
      {"v/g/HugeTexts", "{}", huge, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.module);
    Clear();
    Write(std::string("web/") + row.module + "/config.json", row.config);
    Write(std::string("web/") + row.module + "/texts/enu.json", row.texts);
    Write(std::string("web/") + row.module + "/bad name.css", "");
    const Json::Value data = Load();
    EXPECT_EQ(data["JSConfig"].isMember(row.module), row.is_module);
    EXPECT_TRUE(data["Strings"].empty());
    EXPECT_TRUE(data["CSSFiles"].empty());
  }
  Clear();
  Write("secret.json", "{}");
  std::filesystem::create_directories("/usr/velt/web/v/g/Link");
  std::filesystem::create_symlink("/usr/velt/secret.json", "/usr/velt/web/v/g/Link/config.json");
  EXPECT_TRUE(Load()["JSConfig"].empty());
}

TEST_F(UIFilesTest, EnglishStandsInForMissingTexts) {
  Write("web/v/g/Mod/config.json", "{}");
  Write("web/v/g/Mod/texts/enu.json", R"({"yes": "Yes", "no": "No"})");
  Write("web/v/g/Mod/texts/ger.json", R"({"yes": "Ja"})");
  Write("web/v/g/Mod/texts/fre.json", "oui");
  Write("web/v/g/Only/config.json", "{}");
  Write("web/v/g/Only/texts/enu.json", "[1]");
  Write("web/v/g/Only/texts/ger.json", R"({"yes": "Ja"})");
  const struct {
    const char* language;
    const char* strings;
  } rows[] = {
      {"enu", R"({"v.g.Mod": {"yes": "Yes", "no": "No"}})"},
      {"ger", R"({"v.g.Mod": {"yes": "Ja", "no": "No"}, "v.g.Only": {"yes": "Ja"}})"},
      {"fre", R"({"v.g.Mod": {"yes": "Yes", "no": "No"}})"},
      {"../texts/ger", R"({"v.g.Mod": {"yes": "Yes", "no": "No"}})"},
  };
  for (const auto& row : rows) EXPECT_EQ(Load(row.language)["Strings"], Parse(row.strings));
}

TEST_F(UIFilesTest, ClassesOfAnotherProjectAreLeftOut) {
  Write("web/v/g/Mixed/config.json", R"({"v.g.All": {}, "v.g.Album": {"project": "album"}})");
  Write("web/v/g/Own/config.json", R"({"v.g.Own": {"project": "album"}})");
  Write("web/v/g/Own/style.css", "");
  Write("web/v/g/Own/texts/enu.json", "{}");
  const Json::Value other = Load("enu", "other");
  EXPECT_EQ(other["JSConfig"], Parse(R"({"v/g/Mixed": {"v.g.All": {}}})"));
  EXPECT_TRUE(other["CSSFiles"].empty() && other["Strings"].empty());
  EXPECT_EQ(Load("enu", "album")["JSConfig"].size(), 2U);
  EXPECT_EQ(Load("enu", "album"), Load("enu", "other", true));
}

TEST_F(UIFilesTest, PackageRunsWhileItsFileExists) {
  VELTPackageTool::PackageManager packages;
  EXPECT_FALSE(packages.isStarted("album"));
  Write("var/packages/album/running", "");
  Write("var/packages/running", "");
  Write("var/running", "");
  EXPECT_TRUE(packages.isStarted("album"));
  for (const std::string& id : {std::string(), std::string("."), std::string(".."),
                                std::string("x/../album"), std::string("album\0", 6)}) {
    EXPECT_FALSE(packages.isStarted(id)) << id;
  }
  std::filesystem::remove("/usr/velt/var/packages/album/running");
  EXPECT_FALSE(packages.isStarted("album"));
}

}  // namespace
