// Any text as an application's configuration (first line), its plugins' result (second) and their tags (the
// rest): only complete tags of the three kinds reach a page, and only JSON reaches its script.
#include <cctype>
#include <map>
#include <string_view>

#include "host/page/PluginTags.h"
#include "module/AppConfig.h"
#include "sharing/Plugins.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/SyslogCapture.h"
#include "veltsys/JsonText.h"
#include "veltsys/Text.h"

namespace VELT {
namespace {

using sharing::record::Entry;

// What the plugins return in this run. The host passes no "extra" to plugins, so these are globals.
Json::Value result;
std::string raw_tags;
std::string plugin_name;

// A configuration may name the one library that there is, and none of the machine's.
void ConfineLibraries(Json::Value& config) {
  if (!config.isObject() || !config["plugins"].isArray()) return;
  for (Json::Value& plugin : config["plugins"]) {
    if (!plugin.isObject() || !plugin["params"].isObject()) continue;
    Json::Value& library = plugin["params"]["lib"];
    if (library == "echo")
      library = VELT_ECHO;
    else if (library.isString() && library != "")
      library = "/nonexistent/" + library.asString();
  }
}

void RunPlugin(const Json::Value& params, const Entry& entry, const char* status,
               const Json::Value& /*extra*/, Json::Value& output) {
  if (plugin_name != "raw") {
    sharing::GetSharingPlugin("render", plugin_name)(params, entry, status, result, output);
    return;
  }
  for (const char* key : {"OPEN_GRAPH", "CSS", "JSFILE"}) output[key] = raw_tags;
}

Json::Value config;

void Visit(const Entry& /*link*/, PagePluginVisitor& visitor) {
  visitor.VisitConfiguration(config);
  if (!config.isObject() || !config["plugins"].isArray()) return;
  for (const Json::Value& plugin : config["plugins"]) {
    if (!plugin.isObject() || !plugin["name"].isString() || !plugin["params"].isObject()) continue;
    plugin_name = plugin["name"].asString();
    const bool known =
        plugin_name == "raw" || sharing::GetSharingPlugin("render", plugin_name) != nullptr;
    if (known) visitor.VisitPlugin(1, RunPlugin, plugin["params"]);
  }
}

// A scanner for HTML tags (name, attributes in double quotes) that shares no code with the filter.
bool TakeTag(std::string_view& rest, std::string& name,
             std::map<std::string, std::string>& attributes) {
  const auto take = [&rest](std::string_view text) {
    const bool taken = rest.starts_with(text);
    if (taken) rest.remove_prefix(text.size());
    return taken;
  };
  const auto take_name = [&rest](std::string& word) {
    word.clear();
    while (!rest.empty() && (std::isalpha(static_cast<unsigned char>(rest[0])) || rest[0] == '-')) {
      word += rest[0];
      rest.remove_prefix(1);
    }
    return !word.empty();
  };
  if (!take("<") || !take_name(name)) return false;
  if (name == "script" && !take(" defer ")) return false;
  std::string attribute;
  for (;;) {
    while (take(" ")) continue;
    if (take("/>") || take(">")) break;
    if (!take_name(attribute) || !take("=\"")) return false;
    const std::size_t end = rest.find('"');
    if (end == std::string_view::npos) return false;
    const std::string value(rest.substr(0, end));
    if (value.find_first_of("<>") != std::string::npos) return false;
    // HTML uses the first of two attributes of the same name, so each must be allowed.
    attributes[attribute] += value;
    if (name == "meta" && attribute == "name" && strcasecmp(value.c_str(), "referrer") == 0)
      return false;
    rest.remove_prefix(end + 1);
  }
  return name != "script" || take("</script>");
}

bool IsAllowed(const std::string& name, const std::map<std::string, std::string>& attributes) {
  const std::string allowed = name == "meta"     ? ",name,property,content,"
                              : name == "link"   ? ",rel,type,href,"
                              : name == "script" ? ",type,src,"
                                                 : "";
  for (const auto& [attribute, value] : attributes) {
    if (allowed.find("," + attribute + ",") == std::string::npos) return false;
  }
  if (name == "link")
    return attributes.at("rel") == "stylesheet" && attributes.at("type") == "text/css";
  if (name == "script")
    return attributes.at("type") == "text/javascript" && attributes.count("src") == 1;
  return attributes.count("name") == 0 || attributes.at("name").find('&') == std::string::npos;
}

void RequireTags(std::string_view tags) {
  while (!tags.empty()) {
    std::string name;
    std::map<std::string, std::string> attributes;
    Require(TakeTag(tags, name, attributes) && IsAllowed(name, attributes),
            "only good tags come out");
    Require(tags.starts_with("\n"), "every tag has a line");
    tags.remove_prefix(1);
  }
}

void RequireScript(std::string_view script) {
  constexpr std::string_view kStart = "VELT.TALD.ExtraSession = ";
  while (!script.empty()) {
    const std::size_t end = script.find("\n;");
    Require(script.starts_with(kStart) && end != std::string_view::npos, "a script assigns");
    Json::Value value;
    Require(ParseJsonText(std::string(script.substr(kStart.size(), end - kStart.size())), value),
            "what is assigned is JSON");
    script.remove_prefix(end + 2);
  }
}

}  // namespace

void Try(const std::string& input) {
  std::string text = input;
  if (!ParseJsonText(TakeLine(text), config)) return;
  ConfineLibraries(config);
  ParseJsonText(TakeLine(text), result);
  raw_tags = text;

  const Entry entry;
  RequireTags(host::RunPagePlugins(Visit, entry, "none").tags);
  Json::Value output(Json::objectValue);
  try {
    DispatchRenderPlugins(config, nullptr, {entry, "none", result}, log_place::kSessionPlugins,
                          output);
  } catch (const Json::Exception&) {  // of a result that has no text
  }
  if (output.isMember("SESSION")) RequireScript(output["SESSION"].asString());
  Log().clear();
}

}  // namespace VELT
