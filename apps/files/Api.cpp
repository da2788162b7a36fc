// The tables of VELT.Files: its methods and the checks of their parameters.
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>

#include "Methods.h"
#include "Refusal.h"
#include "veltwebapi/APIParameter.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"

namespace VELT::files {
namespace {

using Method = void (*)(const APIRequest&, APIResponse&);

// `choices` are the texts that are allowed, each after a blank; null: any text.
struct Parameter {
  enum class Kind { kText, kCount, kSize, kFlag, kTexts };
  const char* name;
  Kind kind;
  bool required = false;
  const char* choices = nullptr;
};
using Kind = Parameter::Kind;

constexpr Parameter kNone[] = {{nullptr, Kind::kText}};
constexpr Parameter kLink[] = {{"sharing_id", Kind::kText, true}, {nullptr, Kind::kText}};
constexpr Parameter kPath[] = {
    {"path", Kind::kText, true}, {"show", Kind::kFlag}, {nullptr, Kind::kText}};
constexpr Parameter kPaths[] = {{"paths", Kind::kTexts}, {nullptr, Kind::kText}};
constexpr Parameter kList[] = {{"root", Kind::kText},
                               {"path", Kind::kText},
                               {"offset", Kind::kCount},
                               {"limit", Kind::kCount},
                               {"sort_by", Kind::kText, false, " name size time type"},
                               {"sort_direction", Kind::kText, false, " ASC DESC"},
                               {nullptr, Kind::kText}};
constexpr Parameter kUpload[] = {
    {"name", Kind::kText, true}, {"size", Kind::kSize, true}, {nullptr, Kind::kText}};
constexpr Parameter kPiece[] = {
    {"upload", Kind::kText, true}, {"offset", Kind::kSize, true}, {nullptr, Kind::kText}};
constexpr Parameter kState[] = {{"upload", Kind::kText, true}, {nullptr, Kind::kText}};

constexpr int kLargestLimit = 1000;

bool IsChoice(const std::string& text, const char* choices) {
  return choices == nullptr ||
         (std::string(choices) + " ").find(" " + text + " ") != std::string::npos;
}

bool AreTexts(const Json::Value& list) {
  return std::all_of(list.begin(), list.end(),
                     [](const Json::Value& element) { return element.isString(); });
}

// What is wrong with the value, or null.
const char* FaultOf(const APIRequest& request, const Parameter& parameter) {
  if (!request.HasParam(parameter.name)) return parameter.required ? "required" : nullptr;
  switch (parameter.kind) {
    case Kind::kText: {
      const auto text = request.GetAndCheckString(parameter.name, PARAM_OPTIONAL, nullptr);
      if (text.IsInvalid()) return "type";
      return IsChoice(text.Get(), parameter.choices) ? nullptr : "condition";
    }
    case Kind::kCount: {
      const auto number = request.GetAndCheckInt(parameter.name, PARAM_OPTIONAL, nullptr);
      if (number.IsInvalid()) return "type";
      const bool is_limit = std::string_view(parameter.name) == "limit";
      const bool fits = number.Get() >= 0 && (!is_limit || number.Get() <= kLargestLimit);
      return fits ? nullptr : "condition";
    }
    case Kind::kSize: {
      const Json::Value number = request.GetParam(parameter.name, Json::Value());
      if (!number.isIntegral()) return "type";
      return number.isInt64() && number.asInt64() >= 0 ? nullptr : "condition";
    }
    case Kind::kFlag:
      return request.GetAndCheckBool(parameter.name, PARAM_OPTIONAL, nullptr).IsInvalid() ? "type"
                                                                                          : nullptr;
    case Kind::kTexts: {
      const auto list = request.GetAndCheckUnitArray(parameter.name, PARAM_OPTIONAL, nullptr);
      return list.IsInvalid() || !AreTexts(list.Get()) ? "type" : nullptr;
    }
  }
  return nullptr;
}

template <const Parameter* parameters>
bool Check(APIRequest* request, APIResponse* response) {
  for (const Parameter* each = parameters; each->name != nullptr; ++each) {
    const char* fault = FaultOf(*request, *each);
    if (fault == nullptr) continue;
    Json::Value detail;
    detail["name"] = each->name;
    detail["reason"] = fault;
    response->SetError(kBadParameter, detail);
    return false;
  }
  return true;
}

template <Method method>
void Handle(APIRequest* request, APIResponse* response) {
  try {
    method(*request, *response);
  } catch (const Refusal& refusal) {
    response->SetError(refusal.code, refusal.detail);
  }
}

const char* StatusOf(Code code) {
  switch (code) {
    case kNoVisit:
    case kAddressDenied:
      return "403 Forbidden";
    case kUsedUp:
      return "410 Gone";
    case kUnavailable:
      return "503 Service Unavailable";
    default:
      return "404 Not Found";
  }
}

// For methods that answer with a file. An error has an HTTP status, so that a program that stores
// the answer does not store the error.
template <Method method>
void HandleFile(APIRequest* request, APIResponse* response) {
  try {
    method(*request, *response);
  } catch (const Refusal& refusal) {
    response->SetEnableOutput(false);
    std::printf(
        "Status: %s\r\nContent-Type: application/json; charset=\"UTF-8\"\r\n"
        "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n"
        R"({"error":{"code":%d,"errors":null},"success":false})",
        StatusOf(refusal.code), refusal.code);
  }
}

struct Row {
  const char* api;
  const char* method;
  APIHandler handler;
  APICheck check;
};

constexpr const char* kOwner = "VELT.Files";
constexpr const char* kVisitor = "VELT.Files.Link";

constexpr Row kRows[] = {
    {kOwner, "roots", Handle<GetRoots>, Check<kNone>},
    {kOwner, "list", Handle<ListRoot>, Check<kList>},
    {kOwner, "describe", Handle<DescribeLink>, Check<kLink>},
    {kVisitor, "list", Handle<ListShare>, Check<kList>},
    {kVisitor, "get", HandleFile<GetFile>, Check<kPath>},
    {kVisitor, "zip", HandleFile<GetZip>, Check<kPaths>},
    {kVisitor, "thumbnail", HandleFile<GetThumbnail>, Check<kPath>},
    {kVisitor, "upload_begin", Handle<BeginUpload>, Check<kUpload>},
    {kVisitor, "upload_piece", Handle<AddPiece>, Check<kPiece>},
    {kVisitor, "upload_state", Handle<GetUploadState>, Check<kState>},
};

using Table = std::array<APITableEntry, std::size(kRows) + 1>;
using CheckTable = std::array<APICheckTableEntry, std::size(kRows) + 1>;

}  // namespace
}  // namespace VELT::files

extern "C" __attribute__((visibility("default"))) const VELT::APITableEntry* GetAPITable() {
  static const VELT::files::Table table = [] {
    VELT::files::Table rows{};
    auto* entry = rows.data();
    for (const auto& row : VELT::files::kRows) *entry++ = {row.api, 1, row.method, row.handler};
    return rows;
  }();
  return table.data();
}

extern "C" __attribute__((visibility("default"))) const VELT::APICheckTableEntry*
GetAPICheckTable() {
  static const VELT::files::CheckTable table = [] {
    VELT::files::CheckTable rows{};
    auto* entry = rows.data();
    for (const auto& row : VELT::files::kRows) {
      *entry++ = {row.api, 1, row.method, row.check, nullptr, nullptr};
    }
    return rows;
  }();
  return table.data();
}
