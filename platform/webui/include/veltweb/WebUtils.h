// Small helpers of the web pages.
#pragma once

#include <string>

namespace VELT {

// Several threads may call it at once.
class WebUtils {
 public:
  // The appliance's host name, empty when the system has none.
  static std::string GetServerName();

  // Replaces the characters & < > " ' with character references. Texts for attributes and texts
  // between tags (`attribute` true and false) are escaped in the same way, so each is safe in the
  // other's place.
  static std::string EncodeHtml(const std::string& text, bool attribute);

  // The version of the file at a page's `path` below the web root ("/pkg/app.js"): a short text for
  // a URL that changes when the file is modified. A query or fragment in `path` is ignored. For
  // null, the address of another site, a path that leaves the root and one without a file it is the
  // version of the web UI's start page, or "0". A change of the file is noticed at once, the
  // replacement of a folder or symbolic link above it within a second.
  static std::string GetModifyTime(const char* path);
};

}  // namespace VELT
