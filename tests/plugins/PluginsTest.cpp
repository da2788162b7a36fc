#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "sharing/Plugins.h"
#include "tests/support/Json.h"
#include "tests/support/SyslogCapture.h"
#include "tests/webui/Files.h"
#include "veltsharing/Entry.h"
#include "veltweb/WebUtils.h"

namespace VELT::sharing {
namespace {

using testing::StartsWith;

constexpr const char* kPlugins[] = {"custom_page", "open_graph"};

std::string LibPath(const std::string& name) { return VELT_PLUGINS "/" + name + ".so"; }

Json::Value ParamsOf(const std::string& lib) { return Object({{"lib", lib}}); }

bool IsLoaded(const Json::Value& path) {
  if (!path.isString() || path == "") return false;
  void* handle = dlopen(path.asCString(), RTLD_LAZY | RTLD_NOLOAD);
  if (handle == nullptr) return false;
  dlclose(handle);
  return true;
}

void RunPlugin(const char* name, const Json::Value& params, const Json::Value& extra,
               Json::Value& output) {
  const PluginRunnerFunc runner = GetSharingPlugin("render", name);
  ASSERT_NE(runner, nullptr);
  runner(params, record::Entry(), "none", extra, output);
}

class PluginsTest : public testing::Test {
 protected:
  PluginsTest() {
    Log().clear();
    Clear();
    WriteFile("/index.html", 1000);
    WriteFile("/pkg/app.js", 2000);
  }

  static void WriteFile(const std::string& path, time_t modified) {
    const std::string file = "/usr/velt/web" + path;
    Write("web" + path, "content");
    const timespec times[2] = {{modified, 0}, {modified, 7}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  }

  // What the echo library's `result` makes of `output`.
  static Json::Value Merged(const char* plugin, const Json::Value& result,
                            Json::Value output = Json::Value(Json::objectValue)) {
    RunPlugin(plugin, ParamsOf(LibPath("echo")), result, output);
    return output;
  }

  static std::string ScriptOf(const std::string& url) {
    return Merged("custom_page", Object({{"JSFILE", Array(url)}}))["JSFILE"].asString();
  }
};

TEST_F(PluginsTest, OnlyTheExactKindAndNameFindAPlugin) {
  for (const char* name : kPlugins) EXPECT_NE(GetSharingPlugin("render", name), nullptr);
  EXPECT_NE(GetSharingPlugin("render", "custom_page"), GetSharingPlugin("render", "open_graph"));
  EXPECT_EQ(GetSharingPlugin("Render", "custom_page"), nullptr);
  EXPECT_EQ(GetSharingPlugin("render", "open_graph "), nullptr);
  EXPECT_EQ(GetSharingPlugin("", ""), nullptr);
}

TEST_F(PluginsTest, FaultyLibrariesAddNothingAndAreClosed) {
  const std::string no_path = "3 Plugins:53 error plugin lib";
  const std::string not_opened = "3 Plugins:58 cannot open library: ";
  const std::string too_large = "3 PluginCall:88 plugin output exceeds 1048576 bytes: ";
  const struct {
    const char* name;
    Json::Value params;
    std::vector<std::string> log;  // how each line begins
  } rows[] = {
      {"params without a library", Parse(R"({"other": 1})"), {no_path}},
      {"empty path", ParamsOf(""), {no_path}},
      {"path of a wrong type", Parse(R"({"lib": ["x.so"]})"), {no_path}},
      {"params of a wrong type", Parse(R"([1])"), {no_path}},
      {"missing", ParamsOf("/nowhere.so"), {not_opened + "/nowhere.so. error = /nowhere.so: "}},
      {"not_elf", ParamsOf(LibPath("not_elf")), {not_opened}},
      {"other_architecture", ParamsOf(LibPath("other_architecture")), {not_opened}},
      {"no_symbol", ParamsOf(LibPath("no_symbol")), {"7 Plugins:80 cannot load Func "}},
      {"null_symbol", ParamsOf(LibPath("null_symbol")), {"7 Plugins:80 cannot load Func "}},
      {"returns_false", ParamsOf(LibPath("returns_false")), {}},
      {"null_result", ParamsOf(LibPath("null_result")), {}},
      {"wrong_type", ParamsOf(LibPath("wrong_type")), {}},
      {"ten mebibytes", ParamsOf(LibPath("ten_mebibytes_of_tags")), {too_large}},
  };
  const Json::Value before = Parse(R"({"JSFILE": "<a>", "OPEN_GRAPH": "<b>", "PRIVATE": 1})");
  for (const auto& row : rows) {
    for (const char* plugin : kPlugins) {
      SCOPED_TRACE(std::string(row.name) + ", " + plugin);
      Log().clear();
      Json::Value output = before;
      RunPlugin(plugin, row.params, Json::Value(), output);
      EXPECT_EQ(output, before);
      std::vector<testing::Matcher<std::string>> lines;
      for (const std::string& begin : row.log) lines.emplace_back(StartsWith(begin));
      EXPECT_THAT(Log(), testing::ElementsAreArray(lines));
      EXPECT_FALSE(row.params.isObject() && IsLoaded(row.params["lib"]));
    }
  }
}

TEST_F(PluginsTest, PrintedTextIsDroppedAndLogged) {
  const std::string library = LibPath("prints_to_stdout");
  for (const char* plugin : kPlugins) {
    SCOPED_TRACE(plugin);
    Log().clear();
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    // Reopens the stream, so that it accepts both narrow and wide characters again.
    ASSERT_NE(std::freopen("/usr/velt/printed", "w", stdout), nullptr);
    EXPECT_EQ(write(STDOUT_FILENO, "before, ", 8), 8);
    Json::Value output(Json::objectValue);
    RunPlugin(plugin, ParamsOf(library), Json::Value(), output);
    std::printf("after");
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::ostringstream printed;
    printed << std::ifstream("/usr/velt/printed").rdbuf();
    EXPECT_EQ(printed.str(), "before, after");
    EXPECT_THAT(Log(),
                testing::ElementsAre("4 StrayOutput:31 printed text was dropped: " + library));
    EXPECT_FALSE(output.empty());
  }
}

TEST_F(PluginsTest, ExceptionKeepsItsTextAndClosesTheLibrary) {
  for (const char* plugin : kPlugins) {
    Json::Value output(Json::objectValue);
    try {
      RunPlugin(plugin, ParamsOf(LibPath("throws")), Json::Value(), output);
      ADD_FAILURE() << plugin;
    } catch (const std::exception& error) {
      EXPECT_FALSE(IsLoaded(LibPath("throws")));
      EXPECT_STREQ(error.what(), "lens cap on");
    }
    EXPECT_EQ(output, Json::Value(Json::objectValue));
  }
}

TEST_F(PluginsTest, UnconvertibleResultThrowsAndClosesTheLibrary) {
  EXPECT_THROW(Merged("custom_page", Parse(R"({"JSFILE": [{}]})")), Json::LogicError);
  EXPECT_THROW(Merged("open_graph", Parse(R"([{"content": []}])")), Json::LogicError);
  EXPECT_FALSE(IsLoaded(LibPath("echo")));
}

TEST_F(PluginsTest, ResultMayHaveOneMebibyteAtMost) {
  Json::Value result;
  // {"SESSION":{"x":""}} are 20 bytes.
  result["SESSION"]["x"] = std::string(1024 * 1024 - 20, 'y');
  EXPECT_TRUE(Merged("custom_page", result).isMember("SESSION"));
  result["SESSION"]["x"] = std::string(1024 * 1024 - 19, 'y');
  EXPECT_FALSE(Merged("custom_page", result).isMember("SESSION"));
}

TEST_F(PluginsTest, UrlsGetTheVersionOfTheirFile) {
  const std::string app = "2000000000007";
  const std::string ui = "1000000000007";
  const struct {
    const char* url;
    std::string versioned;
  } rows[] = {
      {"/pkg/app.js", "/pkg/app.js?v=" + app},
      {"/pkg/app.js?lang=en", "/pkg/app.js?lang=en&v=" + app},
      {"/pkg/app.js?v=12", "/pkg/app.js?v=12"},
      {"/pkg/app.js?a=1&v=12", "/pkg/app.js?a=1&v=12"},
      {"v=12/app.js", "v=12/app.js"},
      {"/pkg/dev=1/app.js", "/pkg/dev=1/app.js?v=" + ui},
      {"/pkg/missing.js", "/pkg/missing.js?v=" + ui},
      {"https://cdn.example/app.js", "https://cdn.example/app.js?v=" + ui},
      {"/pkg/../../web/pkg/app.js", "/pkg/../../web/pkg/app.js?v=" + ui},
      {"/..", "/..?v=" + ui},
      {"/pkg/%61pp%2Ejs", "/pkg/%61pp%2Ejs?v=" + app},
      {"/pkg/app.js%00", "/pkg/app.js%00?v=" + ui},
      {"/pkg/%2e%2e/../web/pkg/app.js", "/pkg/%2e%2e/../web/pkg/app.js?v=" + ui},
      {"/pkg/%app.js", "/pkg/%app.js?v=" + ui},
  };
  for (const auto& row : rows) {
    const Json::Value output =
        Merged("custom_page", Object({{"JSFILE", Array(row.url)}, {"CSS", Array(row.url)}}));
    EXPECT_EQ(output["JSFILE"].asString(),
              "<script type=\"text/javascript\" src=\"" + row.versioned + "\"></script>\n");
    EXPECT_EQ(output["CSS"].asString(),
              "<link rel=\"stylesheet\" type=\"text/css\" href=\"" + row.versioned + "\" />\n");
  }
  WriteFile("/pkg/app.js", 2001);
  EXPECT_THAT(ScriptOf("/pkg/app.js"), testing::HasSubstr("v=2001000000007"));
  std::filesystem::remove("/usr/velt/web/index.html");
  EXPECT_EQ(WebUtils::GetModifyTime(nullptr), "0");
}

TEST_F(PluginsTest, TagIsCutAt1023Bytes) {
  const std::string head = "<script type=\"text/javascript\" src=\"";
  const std::string url = "/" + std::string(2000, 'x');
  EXPECT_EQ(ScriptOf(url), (head + url).substr(0, 1023));
}

TEST_F(PluginsTest, CustomPageResultsCombine) {
  const std::string nothing = "VELT.TALD.ExtraSession = {}\n;";
  const struct {
    const char* name;
    const char* result;
    std::string scripts;
    std::string session;
    Json::Value private_data;
  } rows[] = {
      {"empty", "{}", "", nothing, Json::Value(Json::objectValue)},
      {"wrong types", R"({"JSFILE": "a", "CSS": {}, "SESSION": [], "PRIVATE": "p"})", "", "", "p"},
      {"numbers as text", R"({"JSFILE": [5]})",
       "<script type=\"text/javascript\" src=\"5?v=1000000000007\"></script>\n", nothing,
       Json::Value(Json::objectValue)},
      {"session", R"({"SESSION": {"b": [1], "a": "\"</script>"}, "PRIVATE": null})", "",
       "VELT.TALD.ExtraSession = {\n\t\"a\" : \"\\\"</script>\",\n\t\"b\" : "
       "\n\t[\n\t\t1\n\t]\n}\n;",
       Json::Value()},
  };
  const Json::Value earlier = Parse(R"({"JSFILE": "J", "CSS": "C", "SESSION": "S", "PRIVATE": 9})");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Json::Value output = Merged("custom_page", Parse(row.result), earlier);
    EXPECT_EQ(output["JSFILE"], "J" + row.scripts);
    EXPECT_EQ(output["CSS"], "C");
    EXPECT_EQ(output["SESSION"], "S" + row.session);
    EXPECT_EQ(output["PRIVATE"], row.private_data);
    EXPECT_EQ(output.size(), 4U);
  }
}

TEST_F(PluginsTest, OpenGraphTags) {
  const struct {
    const char* name;
    const char* result;
    const char* tags;
  } rows[] = {
      {"no tag", "[]", ""},
      {"attributes by name, values escaped",
       R"([{"property": "og:title", "content": "Cats & 'Dogs' <\">"}])",
       "<meta content=\"Cats &amp; &#39;Dogs&#39; &lt;&quot;&gt;\" property=\"og:title\" />\n"},
      {"objects only", R"([null, "x", [], {"n": 1, "t": true}])", "<meta n=\"1\" t=\"true\" />\n"},
      {"no attribute", "[{}, {}]", "<meta />\n<meta />\n"},
  };
  const Json::Value earlier = Parse(R"({"OPEN_GRAPH": "earlier\n"})");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Merged("open_graph", Parse(row.result))["OPEN_GRAPH"], row.tags);
    EXPECT_EQ(Merged("open_graph", Parse(row.result), earlier)["OPEN_GRAPH"],
              std::string("earlier\n") + row.tags);
  }
}

}  // namespace
}  // namespace VELT::sharing
