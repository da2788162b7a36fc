#include "sharing/OpenGraphPlugin.h"

#include "sharing/PluginCall.h"
#include "veltweb/WebUtils.h"

namespace VELT::sharing {

std::string OpenGraphPlugin::GetOpenGraphTpl(const Json::Value& tags) {
  std::string text;
  for (const Json::Value& tag : tags) {
    if (!tag.isObject()) continue;
    text += "<meta";
    for (auto attribute = tag.begin(); attribute != tag.end(); ++attribute) {
      text +=
          " " + attribute.name() + "=\"" + WebUtils::EncodeHtml(attribute->asString(), true) + "\"";
    }
    text += " />\n";
  }
  return text;
}

void OpenGraphPlugin::Run(const record::Entry& entry, const char* status, const Json::Value& extra,
                          Json::Value& output) {
  PluginCall call(params_, "OpenGraphFunc", entry, status, extra);
  const Json::Value* tags = call.Result(Json::arrayValue);
  if (tags == nullptr) return;
  output["OPEN_GRAPH"] = output["OPEN_GRAPH"].asString() + GetOpenGraphTpl(*tags);
}

}  // namespace VELT::sharing
