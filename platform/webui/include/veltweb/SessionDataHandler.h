// What the web UI's login page adds to a page's session object.
#pragma once

#include <json/value.h>

namespace VELT {

class APIRequest;

namespace TALD {

// The appliance has neither settings for the style of its login page nor a footer text, so both
// operations leave the session object as it is: a page's own style and the application's theme
// stand.
class SessionDataHandler {
 public:
  // The request is borrowed for the object's life.
  explicit SessionDataHandler(APIRequest* request);

  void GetLoginStyleParam(Json::Value& session);
  void GetFooterInfo(Json::Value& session);
};

}  // namespace TALD
}  // namespace VELT
