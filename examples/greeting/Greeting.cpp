// The least of a plugin, to copy: a script on the page, and a text for it.
#include "veltplugin/RenderPlugin.h"

bool CustomPageFunc(const VELT::sharing::record::Entry& entry, const char* /*status*/,
                    const Json::Value& /*extra*/, Json::Value& result) {
  result["JSFILE"].append("/pkg/greeting/greeting.js");
  result["SESSION"]["greeting"] = entry.get_owner_user() + " shares this with you.";
  return true;
}
