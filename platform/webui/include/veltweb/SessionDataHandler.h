// The data of the web UI's login page in a page's session object.
#pragma once

#include <json/value.h>

namespace VELT {

class APIRequest;

namespace TALD {

// This appliance has no settings for the style of its login page and no footer text, so both
// functions leave the session object unchanged. A page keeps its own style and the application's
// theme.
class SessionDataHandler {
 public:
  // The request is borrowed for the object's life.
  explicit SessionDataHandler(APIRequest* request);

  void GetLoginStyleParam(Json::Value& session);
  void GetFooterInfo(Json::Value& session);
};

}  // namespace TALD
}  // namespace VELT
