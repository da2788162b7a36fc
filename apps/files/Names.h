// File names as texts. A name may hold any bytes. In every text that the API takes or returns, "%",
// control characters and bytes that are not UTF-8 are written as percent escapes, and all else
// unchanged. So a text names one file, and most texts equal the name.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace VELT::files {

// The text of a name or of a path relative to some folder.
std::string ToText(std::string_view bytes);

// The path that a text stands for; "" is the folder itself. Nothing when the text is malformed,
// absolute or too long, or has an empty component, "." or "..". So the path may name a missing
// file, but leads out of the folder through a symbolic link only.
std::optional<std::string> ToPath(std::string_view text);

// A name from a stranger, made harmless for every program that may read the folder later. "_" takes the
// place of a dot at its beginning, of control characters, line separators, marks that change the
// writing direction, and bytes that are not UTF-8. "desktop.ini" and "autorun.inf", which some
// programs start with, begin with "_".
std::string HarmlessName(std::string_view name);

// The same for each name of a path.
std::string HarmlessPath(std::string_view path);

// "a.txt", "a (2).txt", "a (3).txt"; no longer than a name may be, whole characters only.
std::string NumberedName(const std::string& name, int number);

// The path of `name` in the folder `path`, and the last component of a path.
std::string Join(const std::string& path, std::string_view name);
std::string LastOf(const std::string& path);

// The header line by which a browser stores a file under this name (`attachment`) or shows it
// (RFC 6266, RFC 8187).
std::string ContentDisposition(bool attachment, std::string_view name);

// The type that a browser is given for a file of this name, and how the page shows it.
struct MediaType {
  const char* type;  // none that a browser runs; "application/octet-stream" for unknown names
  const char* kind;  // "image", "pdf", "text", "audio", "video"; empty: it can only be stored
};
MediaType MediaTypeOf(std::string_view name);

}  // namespace VELT::files
