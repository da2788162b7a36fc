#include "host/page/PluginTags.h"

#include <strings.h>
#include <syslog.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace VELT::host {
namespace {

using sharing::record::Entry;

constexpr std::size_t kOutputLimit = std::size_t{1} << 20;

bool Take(std::string_view& rest, std::string_view expected) {
  if (!rest.starts_with(expected)) {
    return false;
  }
  rest.remove_prefix(expected.size());
  return true;
}

bool TakeValue(std::string_view& rest, std::string_view& value) {
  const std::size_t end = rest.find_first_of("\"<>");
  if (end == std::string_view::npos || rest[end] != '"') {
    return false;
  }
  value = rest.substr(0, end);
  rest.remove_prefix(end + 1);
  return true;
}

bool TakeScript(std::string_view& rest) {
  std::string_view url;
  return Take(rest, R"(<script type="text/javascript" src=")") && TakeValue(rest, url) &&
         Take(rest, "></script>");
}

bool TakeStylesheet(std::string_view& rest) {
  std::string_view url;
  return Take(rest, R"(<link rel="stylesheet" type="text/css" href=")") && TakeValue(rest, url) &&
         Take(rest, " />");
}

// A plugin's meta tags may only describe the page. `http-equiv` is not accepted, since browsers act
// on it, nor is the name "referrer", in any spelling, which would override a header of the answer.
bool TakeMeta(std::string_view& rest) {
  if (!Take(rest, "<meta ")) {
    return false;
  }
  std::string_view value;
  do {
    if (Take(rest, "name=\"")) {
      if (!TakeValue(rest, value) || value.find('&') != std::string_view::npos ||
          (value.size() == 8 && strncasecmp(value.data(), "referrer", 8) == 0)) {
        return false;
      }
    } else if (!(Take(rest, "property=\"") || Take(rest, "content=\"")) ||
               !TakeValue(rest, value)) {
      return false;
    }
    Take(rest, " ");
  } while (!Take(rest, "/>"));
  return true;
}

// Plugins' tags contain texts that applications and owners of links choose, some of them unescaped.
// Only tags of exactly the given form are put into the page; all other text is left out.
std::string KeptTags(const Json::Value& output, const char* key,
                     bool (*take)(std::string_view& rest)) {
  std::string kept;
  if (!output.isMember(key) || !output[key].isString()) {
    return kept;
  }
  const std::string text = output[key].asString();
  for (std::string_view rest = text; !rest.empty();) {
    std::string_view after = rest;
    if (take(after)) {
      kept.append(rest, 0, rest.size() - after.size()).append("\n");
    } else {
      after = rest.substr(1);
    }
    rest = after.substr(std::min(after.find('<'), after.size()));
  }
  return kept;
}

std::size_t TextSize(const Json::Value& output) {
  std::size_t size = 0;
  for (const char* key : {"JSFILE", "CSS", "OPEN_GRAPH"}) {
    size += output.isMember(key) && output[key].isString() ? output[key].asString().size() : 0;
  }
  return size;
}

// Scripts of the page run when the document is whole, in its order, so that none keeps the visitor
// from seeing it.
std::string Deferred(std::string scripts) {
  constexpr std::string_view kTag = "<script ";
  constexpr std::string_view kDefer = "defer ";
  for (std::size_t at = 0; (at = scripts.find(kTag, at)) != std::string::npos;) {
    scripts.insert(at + kTag.size(), kDefer);
    at += kTag.size() + kDefer.size();
  }
  return scripts;
}

// Collects the output of all plugins. One that throws or makes the output too large adds nothing.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): it is final and never owned by its base.
class Collector final : public PagePluginVisitor {
 public:
  Collector(const Entry& entry, const char* status) : entry_(entry), status_(status) {}

  void VisitConfiguration(const Json::Value& configuration) override {
    configuration_ = configuration;
  }

  void VisitPlugin(unsigned int number, Runner runner, const Json::Value& params) override {
    Json::Value trial = output_;
    try {
      runner(params, entry_, status_, Json::Value(), trial);
    } catch (...) {
      syslog(LOG_ERR, "link page: plugin %u of the configuration of %s threw an exception", number,
             entry_.get_project_name().c_str());
      return;
    }
    if (trial.isObject() && TextSize(trial) <= kOutputLimit) {
      output_.swap(trial);
    } else {
      syslog(LOG_ERR, "link page: the output of plugin %u of the configuration of %s is too large",
             number, entry_.get_project_name().c_str());
    }
  }

  const Json::Value& configuration() const { return configuration_; }
  const Json::Value& output() const { return output_; }

 private:
  const Entry& entry_;
  const char* status_;
  Json::Value configuration_;
  Json::Value output_{Json::objectValue};
};

}  // namespace

PluginPage RunPagePlugins(VisitPagePluginsFunc visit, const Entry& entry, const char* status) {
  Collector collector(entry, status);
  if (visit != nullptr) visit(entry, collector);
  const Json::Value& output = collector.output();
  return {collector.configuration(), KeptTags(output, "OPEN_GRAPH", TakeMeta) +
                                         KeptTags(output, "CSS", TakeStylesheet) +
                                         Deferred(KeptTags(output, "JSFILE", TakeScript))};
}

}  // namespace VELT::host
