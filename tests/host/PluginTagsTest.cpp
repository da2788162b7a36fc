// Which tags of an application's plugins reach a link's page.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "host/page/PluginTags.h"
#include "tests/support/Json.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/Entry.h"
#include "veltwebapi/PagePlugins.h"

namespace VELT::host {
namespace {

using sharing::record::Entry;

// The plugin of the tests adds its "params" to the output, or throws.
void Run(const Json::Value& params, const Entry& /*entry*/, const char* status,
         const Json::Value& extra, Json::Value& output) {
  EXPECT_STREQ("user", status);
  EXPECT_TRUE(extra.isNull());
  for (const std::string& key : params.getMemberNames()) {
    output[key] = output[key].asString() + params[key].asString();
  }
  if (params.isMember("throw")) throw std::runtime_error("a plugin's own");
}

Json::Value configured;

void Visit(const Entry& /*link*/, PagePluginVisitor& visitor) {
  visitor.VisitConfiguration(configured);
  for (Json::ArrayIndex index = 0; index < configured["plugins"].size(); ++index) {
    visitor.VisitPlugin(index + 1, Run, configured["plugins"][index]["params"]);
  }
}

std::string TagsOf(const Json::Value& configuration) {
  Entry entry;
  entry.set_project_name("album");
  configured = configuration;
  const PluginPage page = RunPagePlugins(Visit, entry, "user");
  EXPECT_EQ(configuration, page.configuration);
  return page.tags;
}

std::string TagsOfOutput(const std::string& key, const std::string& text) {
  Json::Value configuration;
  configuration["plugins"][0]["params"][key] = text;
  return TagsOf(configuration);
}

TEST(PluginTags, AreKeptOnlyInTheirStrictForm) {
  const std::string script = R"(<script type="text/javascript" src="/a.js?v=1&x=2"></script>)";
  const std::string deferred =
      R"(<script defer type="text/javascript" src="/a.js?v=1&x=2"></script>)";
  const std::string style = R"(<link rel="stylesheet" type="text/css" href="/a.css?v=1" />)";
  const std::string meta = R"(<meta content="Cats &amp; Dogs" property="og:title" />)";
  const struct {
    const char* name;
    const char* key;
    std::string text;
    std::string kept;
  } rows[] = {
      {"stylesheet", "CSS", style + "\n", style + "\n"},
      {"meta, a line break in a value", "OPEN_GRAPH",
       meta + "\n<meta content=\"a\nb\" name=\"c\" />\n",
       meta + "\n<meta content=\"a\nb\" name=\"c\" />\n"},
      {"under the wrong key", "CSS", script + meta, ""},
      {"inline script", "JSFILE", "<script>alert(1)</script>\n" + script, deferred + "\n"},
      {"text around", "JSFILE", "a & b" + script + "c <b>d</b>", deferred + "\n"},
      {"attribute broken out of", "JSFILE",
       R"(<script type="text/javascript" src="/a" onerror="b"></script>)", ""},
      {"element broken out of", "JSFILE",
       R"(<script type="text/javascript" src="/a"></script><img src="b"></script>)",
       "<script defer type=\"text/javascript\" src=\"/a\"></script>\n"},
      {"cut off", "JSFILE", script.substr(0, script.size() - 3), ""},
      {"refresh", "OPEN_GRAPH", R"(<meta content="0;url=//a" http-equiv="refresh" />)", ""},
      {"referrer", "OPEN_GRAPH", R"(<meta content="unsafe-url" name="Referrer" />)", ""},
      {"referrer, spelt otherwise", "OPEN_GRAPH", R"(<meta name="&#114;eferrer" content="a" />)",
       ""},
      {"empty", "OPEN_GRAPH", "<meta />\n", ""},
      {"at the limit", "OPEN_GRAPH", meta + std::string((1 << 20) - meta.size(), 'x'), meta + "\n"},
      {"beyond the limit", "OPEN_GRAPH", meta + std::string((1 << 20) - meta.size() + 1, 'x'), ""},
  };
  for (const auto& row : rows) EXPECT_EQ(row.kept, TagsOfOutput(row.key, row.text)) << row.name;
}

TEST(PluginTags, FaultsAreLoggedForTheirAuthor) {
  Log().clear();
  TagsOf(Parse(R"({"plugins": [{"params": {}}, {"params": {"throw": ""}}]})"));
  TagsOfOutput("CSS", std::string((1 << 20) + 1, 'x'));
  EXPECT_EQ(Log(),
            (std::vector<std::string>{
                "3 link page: plugin 2 of the configuration of album threw an exception",
                "3 link page: the output of plugin 1 of the configuration of album is too large"}));
}

TEST(PluginTags, OneFaultLeavesTheOthers) {
  const std::string tag = "<meta content=\"a\" />\n";
  Json::Value good;
  good["params"]["OPEN_GRAPH"] = tag;
  for (const char* bad : {R"({"params": {"OPEN_GRAPH": {}}})",
                          R"({"params": {"OPEN_GRAPH": "<meta name=\"b\" />", "throw": ""}})"}) {
    Json::Value configuration;
    for (const Json::Value& plugin : {good, Parse(bad), good})
      configuration["plugins"].append(plugin);
    EXPECT_EQ(tag + tag, TagsOf(configuration)) << bad;
  }
  EXPECT_EQ("", RunPagePlugins(nullptr, Entry(), "user").tags);
}

}  // namespace
}  // namespace VELT::host
