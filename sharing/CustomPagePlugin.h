// The plugin "custom_page": an application's own scripts, stylesheets and data on its links' pages.
#pragma once

#include <json/value.h>

#include <string>

#include "sharing/Export.h"
#include "sharing/Plugins.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing {

// Puts `url` into `format` at its one "%s". A URL whose first "v=" is not a parameter gets the
// version of the file that it names as its parameter "v". The result is cut at 1023 bytes.
std::string FormatVersionedTag(const char* format, const char* url);

// Writes "JSFILE", "CSS" and "SESSION" (text, after what earlier plugins gave) and "PRIVATE" (any
// value, in place of an earlier one).
class CustomPagePlugin : public RenderPluginBase {
 public:
  using RenderPluginBase::RenderPluginBase;
  VELT_EXPORT void Run(const record::Entry& entry, const char* status, const Json::Value& extra,
                       Json::Value& output) override;

 private:
  // Each is empty for a value of the wrong type.
  static std::string GetJSFilesTpl(const Json::Value& files);
  static std::string GetCSSFilesTpl(const Json::Value& files);
  static std::string GetSessionTpl(const Json::Value& session);
};

}  // namespace VELT::sharing
