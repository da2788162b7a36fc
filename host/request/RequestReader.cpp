#include "host/request/RequestReader.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>

#include "host/Limits.h"
#include "veltsys/JsonText.h"
#include "veltsys/Text.h"

namespace VELT::host {
namespace {

constexpr const char* kTooMany = "too many parameters";

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Removes the text up to the next `separator`, or all, from the head of `text` and returns it
// without the separator.
std::string_view NextPiece(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return piece;
}

// As in application/x-www-form-urlencoded, where a plus sign means a space.
bool DecodeText(std::string_view text, std::string& decoded) {
  std::string spaced(text);
  std::replace(spaced.begin(), spaced.end(), '+', ' ');
  return DecodePercent(spaced, decoded);
}

std::string ReadForm(std::string_view text, const char* place, Parameters& parameters) {
  std::vector<std::pair<std::string, std::string>> pairs;
  std::string error = DecodeForm(text, place, pairs);
  if (!error.empty()) return error;
  for (auto& [name, value] : pairs) parameters[name] = {false, {}, std::move(value)};
  return {};
}

std::string ReadJson(const std::string& text, std::size_t levels, Parameters& parameters) {
  Json::Value object;
  if (!ParseJsonText(text, object, levels) || !object.isObject()) {
    return "request body is not a JSON object, or is nested deeper than " + std::to_string(levels) +
           " levels";
  }
  if (!IsCleanJson(object)) return "malformed text in the request body";
  if (object.size() > kMostParameters) return kTooMany;
  for (auto member = object.begin(); member != object.end(); ++member) {
    parameters[member.name()] = {true, *member, {}};
  }
  return {};
}

bool IsOfType(const WebRequest& request, const char* type) {
  const std::string header = request.Variable("CONTENT_TYPE");
  std::string_view rest = header;
  return strcasecmp(std::string(Trimmed(NextPiece(rest, ';'))).c_str(), type) == 0;
}

std::string ReadBody(const WebRequest& request, std::size_t levels, Parameters& parameters) {
  if (request.body.size() > kLargestBody) return "request body is larger than 1 MiB";
  if (IsOfType(request, "application/json")) return ReadJson(request.body, levels, parameters);
  if (IsOfType(request, "application/x-www-form-urlencoded")) {
    return ReadForm(request.body, "form", parameters);
  }
  return "request body is neither a form nor JSON";
}

}  // namespace

std::string DecodeForm(std::string_view text, const char* place,
                       std::vector<std::pair<std::string, std::string>>& pairs) {
  while (!text.empty()) {
    std::string_view piece = NextPiece(text, '&');
    if (piece.empty()) continue;
    if (pairs.size() == kMostParameters) return kTooMany;
    auto& [name, value] = pairs.emplace_back();
    if (!DecodeText(NextPiece(piece, '='), name) || !DecodeText(piece, value)) {
      return std::string("malformed ") + place;
    }
  }
  return {};
}

bool HasRawBody(const WebRequest& request) {
  return !request.body.empty() && IsOfType(request, "application/octet-stream");
}

std::string ReadParameters(const WebRequest& request, Parameters& parameters, std::size_t levels) {
  if (!request.body_complete) return "request body is cut off";
  std::string error = ReadForm(request.Variable("QUERY_STRING"), "query", parameters);
  if (error.empty() && !request.body.empty() && !HasRawBody(request))
    error = ReadBody(request, levels, parameters);
  if (error.empty() && parameters.size() > kMostParameters) error = kTooMany;
  return error;
}

std::map<std::string, std::string> ReadCookies(std::string_view header) {
  std::map<std::string, std::string> cookies;
  while (!header.empty()) {
    std::string_view piece = NextPiece(header, ';');
    const std::string_view name = Trimmed(NextPiece(piece, '='));
    const std::string_view value = Trimmed(piece);
    if (!name.empty() && IsCleanText(name) && IsCleanText(value)) cookies.emplace(name, value);
  }
  return cookies;
}

}  // namespace VELT::host
