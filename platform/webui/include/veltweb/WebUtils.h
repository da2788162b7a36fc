// Small helpers of the web pages.
#pragma once

#include <string>

namespace VELT {

// Several threads may call it at once.
class WebUtils {
 public:
  // The appliance's host name, empty when the system has none.
  static std::string GetServerName();

  // Replaces the characters & < > " ' by character references. What stands in an attribute and what
  // stands between tags (`attribute` true and false) is escaped alike, so either is safe in place
  // of the other.
  static std::string EncodeHtml(const std::string& text, bool attribute);

  // A short text, fit for a URL, that changes when the file is modified at which a page's `path`
  // points below the web root ("/pkg/app.js"; a query or fragment is left aside). A path that
  // leaves the root or names no file there, another site's address and null give the web UI's own
  // version, which follows its start page. A change of the file is seen at once, a folder or link
  // on the way to it put in another's place within a second.
  static std::string GetModifyTime(const char* path);
};

}  // namespace VELT
