// A minimal plugin to copy. It adds a script to the page, and a text that the script shows.
#include <string>

#include "veltplugin/RenderPlugin.h"
#include "veltsharing/Entry.h"

bool CustomPageFunc(const VELT::sharing::record::Entry& entry, const char* /*status*/,
                    const Json::Value& /*extra*/, Json::Value& result) {
  result["JSFILE"].append("/pkg/" PLUGIN_NAME "/plugin.js");
  const std::string owner = entry.get_owner_user();  // empty in a preview
  result["SESSION"]["greeting"] = (owner.empty() ? "Somebody" : owner) + " shares this with you.";
  return true;
}
