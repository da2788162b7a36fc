#include "sharing/CustomPagePlugin.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "sharing/PluginCall.h"
#include "sharing/StyledJson.h"
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

const Json::Value& MemberOf(const Json::Value& object, std::string_view name,
                            const Json::Value& fallback) {
  const Json::Value* member = object.find(name.data(), name.data() + name.size());
  return member == nullptr ? fallback : *member;
}

void Append(Json::Value& output, std::string text) {
  output = output.isNull() ? std::move(text) : output.asString() + text;
}

}  // namespace

std::string FormatVersionedTag(const char* format, const char* url) {
  std::string versioned = url;
  if (!CarriesVersion(url)) {
    versioned += std::strchr(url, '?') != nullptr ? "&v=" : "?v=";
    versioned += WebUtils::GetModifyTime(url);
  }
  std::array<char, 1024> tag;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
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
  return "VELT.TALD.ExtraSession = " + StyledJson(session) + ";";
}

void CustomPagePlugin::Run(const record::Entry& entry, const char* status, const Json::Value& extra,
                           Json::Value& output) {
  PluginCall call(params_, "CustomPageFunc", entry, status, extra);
  Json::Value* result = call.Result(Json::objectValue);
  if (result == nullptr) return;
  static const Json::Value kEmptyArray(Json::arrayValue);
  static const Json::Value kEmptyObject(Json::objectValue);
  Append(output["JSFILE"], GetJSFilesTpl(MemberOf(*result, "JSFILE", kEmptyArray)));
  Append(output["CSS"], GetCSSFilesTpl(MemberOf(*result, "CSS", kEmptyArray)));
  Append(output["SESSION"], GetSessionTpl(MemberOf(*result, "SESSION", kEmptyObject)));
  output["PRIVATE"] = kEmptyObject;
  if (result->isMember("PRIVATE")) output["PRIVATE"].swap((*result)["PRIVATE"]);
}

}  // namespace VELT::sharing
