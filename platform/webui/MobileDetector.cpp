#include "veltweb/MobileDetector.h"

#include <string>

#include "veltweb/WebMan.h"

// All current browsers of phones have this word in their user agent, and no desktop browser does
// (https://developer.mozilla.org/docs/Web/HTTP/Browser_detection_using_the_user_agent).
MobileDetector::MobileDetector(WebMan& page)
    : mobile_(page.GetUserAgent().find("Mobi") != std::string::npos) {}
