// The plugin library of the links' pages: the page's own script, and a preview for other services.
#include <string>

#include "veltplugin/RenderPlugin.h"
#include "veltsharing/Entry.h"

namespace {

using VELT::sharing::record::Entry;

Json::Value MetaTag(const char* property, const std::string& content) {
  Json::Value tag;
  tag["property"] = property;
  tag["content"] = content;
  return tag;
}

}  // namespace

bool CustomPageFunc(const Entry& /*entry*/, const char* /*status*/, const Json::Value& /*extra*/,
                    Json::Value& result) {
  result["JSFILE"].append("/pkg/files/files.js");
  result["CSS"].append("/pkg/files/files.css");
  return true;
}

// Anybody can fetch these tags before a login, so they hold no file names.
bool OpenGraphFunc(const Entry& entry, const char* /*status*/, const Json::Value& /*extra*/,
                   Json::Value& result) {
  const std::string& title = entry.get_protect_title();
  result.append(MetaTag("og:type", "website"));
  result.append(MetaTag("og:title", title.empty() ? "Shared files" : title));
  return true;
}
