// The start-up data of a link's page: that of the appliance's own pages, reduced to what an
// anonymous visitor may see, and the link itself.
#pragma once

#include <json/value.h>

#include <set>
#include <string>

#include "sharing/Export.h"
#include "veltsharing/Entry.h"
#include "veltweb/InitDataHandler.h"

class WebMan;

namespace VELT {
class APIRequest;
}

namespace VELT::sharing {

// One object serves one page and belongs to one thread. The order of the virtual operations is part
// of the interface.
class InitDataHandler : public ::InitDataHandler {
 public:
  // The page of a visitor's request. The request is used by the constructor only.
  VELT_EXPORT explicit InitDataHandler(APIRequest* request);
  // The page of `link`, shown in the page context's language. The context is used by the
  // constructor only.
  VELT_EXPORT InitDataHandler(WebMan* page, const record::Entry& link);
  InitDataHandler(const InitDataHandler&) = delete;
  InitDataHandler& operator=(const InitDataHandler&) = delete;
  ~InitDataHandler() override;

  // Adds to the object `data`: the UI modules that a visitor may load ("JSConfig", "CSSFiles",
  // "Strings"), "Session", empty "UserSettings" and "GroupSettings", the base's services and
  // privileges, and the link ("Sharing"). `flag` goes to the UI file loader.
  void InitDesktop(Json::Value& data, bool flag) override;
  Json::Value GetUserSettings() override;
  Json::Value GetGroupSettings() override;
  bool IsLogined() override;

  // Allows the modules of the JS config that a member with "allowSharing" opens to visitors, and
  // sets "pkgStatus" in that member, for which it needs the right to become root.
  virtual void AppendAllowSharing(Json::Value& config);
  // Each removes the members or elements of modules that are not allowed.
  virtual void FilterJSConfig(Json::Value& config);
  virtual void FilterCSSFiles(Json::Value& files);
  virtual void FilterStrings(Json::Value& strings);
  virtual void GetSharing(Json::Value& out);

 protected:
  std::set<std::string> allowModules;
  record::Entry entry;
};

// Makes `dst` the part number `index`, counted from 0, of `src` split at `delim`. False, leaving
// `dst` as it was, when there is none.
bool Extractor(const std::string& src, std::string& dst, const char* delim, unsigned int index);

}  // namespace VELT::sharing
