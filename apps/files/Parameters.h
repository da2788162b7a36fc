// What each method of the application reads of its request, said once: the pre-check and the
// description of the API take names, kinds and limits from here.
#pragma once

#include <limits>
#include <stdexcept>
#include <string_view>

namespace VELT::files {

// `choices`: the texts that are let pass, a JSON array; null: any. `most` is of a count.
struct Parameter {
  enum class Kind { kText, kCount, kSize, kFlag, kTexts };
  const char* name;
  Kind kind;
  bool required = false;
  const char* choices = nullptr;
  int most = std::numeric_limits<int>::max();
};

namespace params {

using Kind = Parameter::Kind;

constexpr int kLargestLimit = 1000;

inline constexpr Parameter kNone[] = {{nullptr, Kind::kText}};
inline constexpr Parameter kLink[] = {{"sharing_id", Kind::kText, true}, {nullptr, Kind::kText}};
inline constexpr Parameter kPath[] = {
    {"path", Kind::kText, true}, {"show", Kind::kFlag}, {nullptr, Kind::kText}};
inline constexpr Parameter kPaths[] = {{"paths", Kind::kTexts}, {nullptr, Kind::kText}};
inline constexpr Parameter kList[] = {
    {"root", Kind::kText},
    {"path", Kind::kText},
    {"offset", Kind::kCount},
    {"limit", Kind::kCount, false, nullptr, kLargestLimit},
    {"sort_by", Kind::kText, false, R"(["name", "size", "time", "type"])"},
    {"sort_direction", Kind::kText, false, R"(["ASC", "DESC"])"},
    {nullptr, Kind::kText}};
inline constexpr Parameter kUpload[] = {
    {"name", Kind::kText, true}, {"size", Kind::kSize, true}, {nullptr, Kind::kText}};
inline constexpr Parameter kPiece[] = {
    {"upload", Kind::kText, true}, {"offset", Kind::kSize, true}, {nullptr, Kind::kText}};
inline constexpr Parameter kState[] = {{"upload", Kind::kText, true}, {nullptr, Kind::kText}};

}  // namespace params

inline constexpr const char* kOwner = "VELT.Files";
inline constexpr const char* kVisitor = "VELT.Files.Link";

struct MethodParameters {
  const char* api;
  const char* method;
  const Parameter* parameters;  // the last one's name is null
};

inline constexpr MethodParameters kMethods[] = {
    {kOwner, "roots", params::kNone},           {kOwner, "list", params::kList},
    {kOwner, "describe", params::kLink},        {kVisitor, "list", params::kList},
    {kVisitor, "get", params::kPath},           {kVisitor, "zip", params::kPaths},
    {kVisitor, "thumbnail", params::kPath},     {kVisitor, "upload_begin", params::kUpload},
    {kVisitor, "upload_piece", params::kPiece}, {kVisitor, "upload_state", params::kState},
};

// No constant, so that a row without parameters doesn't compile, for a method that is not listed.
constexpr const Parameter* ParametersOf(std::string_view api, std::string_view method) {
  for (const MethodParameters& row : kMethods) {
    if (row.api == api && row.method == method) return row.parameters;
  }
  throw std::logic_error("unlisted method");
}

}  // namespace VELT::files
