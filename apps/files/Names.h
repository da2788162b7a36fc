// File names as texts. A name may be any bytes; in every text that the API takes or gives, "%",
// control characters and what is no UTF-8 stand as percent escapes, and all else as it is. So a
// text names one file, and most look like the name itself.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VELT::files {

// The text of a name or of a path relative to some folder.
std::string ToText(std::string_view bytes);

// The path behind a text; "" is the folder itself. Nothing for one that is malformed, absolute,
// longer than the system takes, or has an empty component, "." or "..": what this returns may name
// a missing file, but nothing outside the folder unless through a link.
std::optional<std::string> ToPath(std::string_view text);

// The path of `name` in the folder `path`, and the last component of a path.
std::string Join(const std::string& path, std::string_view name);
std::string LastOf(const std::string& path);

// The header with which a browser stores a file under its name, or shows it (RFC 6266, RFC 8187).
std::string ContentDisposition(bool attachment, std::string_view name);

// The type that a browser is given for a file of this name, and how the page shows it.
struct MediaType {
  const char* type;  // nothing that runs in a page; "application/octet-stream" for what isn't known
  const char* kind;  // "image", "pdf", "text", "audio", "video"; empty: it can only be stored
};
MediaType MediaTypeOf(std::string_view name);

}  // namespace VELT::files
