#include "sharing/CustomPagePlugin.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "sharing/PluginCall.h"
#include "veltweb/WebUtils.h"

namespace VELT::sharing {
namespace {

bool CarriesVersion(const char* url) {
  const char* version = std::strstr(url, "v=");
  return version != nullptr && (version == url || version[-1] == '?' || version[-1] == '&');
}

std::string FormatTags(const char* format, const Json::Value& urls) {
  std::string tags;
  if (!urls.isArray()) return tags;
  for (const Json::Value& url : urls) tags += FormatVersionedTag(format, url.asString().c_str());
  return tags;
}

}  // namespace

std::string FormatVersionedTag(const char* format, const char* url) {
  std::string versioned = url;
  if (!CarriesVersion(url)) {
    versioned += std::strchr(url, '?') != nullptr ? "&v=" : "?v=";
    versioned += WebUtils::GetModifyTime(url);
  }
  std::array<char, 1024> tag{};
  std::snprintf(tag.data(), tag.size(), format, versioned.c_str());
  return tag.data();
}

std::string CustomPagePlugin::GetJSFilesTpl(const Json::Value& files) {
  return FormatTags("<script type=\"text/javascript\" src=\"%s\"></script>\n", files);
}

std::string CustomPagePlugin::GetCSSFilesTpl(const Json::Value& files) {
  return FormatTags("<link rel=\"stylesheet\" type=\"text/css\" href=\"%s\" />\n", files);
}

std::string CustomPagePlugin::GetSessionTpl(const Json::Value& session) {
  if (!session.isObject()) return "";
  return "VELT.TALD.ExtraSession = " + session.toStyledString() + ";";
}

void CustomPagePlugin::Run(const record::Entry& entry, const char* status, const Json::Value& extra,
                           Json::Value& output) {
  const PluginCall call(params_, "CustomPageFunc", entry, status, extra);
  const Json::Value* result = call.Result(Json::objectValue);
  if (result == nullptr) return;
  const Json::Value empty_list(Json::arrayValue);
  const Json::Value empty_object(Json::objectValue);
  output["JSFILE"] = output["JSFILE"].asString() + GetJSFilesTpl(result->get("JSFILE", empty_list));
  output["CSS"] = output["CSS"].asString() + GetCSSFilesTpl(result->get("CSS", empty_list));
  output["SESSION"] =
      output["SESSION"].asString() + GetSessionTpl(result->get("SESSION", empty_object));
  output["PRIVATE"] = result->get("PRIVATE", empty_object);
}

}  // namespace VELT::sharing
