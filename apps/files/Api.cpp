// The tables of VELT.Files: its methods and the checks of their parameters.
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string>

#include "apps/files/Methods.h"
#include "apps/files/Parameters.h"
#include "apps/files/Refusal.h"
#include "veltwebapi/APIParameter.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/APIValidator.h"
#include "veltwebapi/WebAPIUtil.h"

namespace VELT::files {
namespace {

using Method = void (*)(const APIRequest&, APIResponse&);
using Kind = Parameter::Kind;

bool IsChoice(const APIParameter<std::string>& text, const char* choices) {
  return choices == nullptr || APIValidator::IsBelong(text, WebAPIUtil::ParseJson(choices));
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
      return IsChoice(text, parameter.choices) ? nullptr : "condition";
    }
    case Kind::kCount: {
      const auto number = request.GetAndCheckInt(parameter.name, PARAM_OPTIONAL, nullptr);
      if (number.IsInvalid()) return "type";
      return number.Get() >= 0 && number.Get() <= parameter.most ? nullptr : "condition";
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

constexpr Row kRows[] = {
    {kOwner, "roots", Handle<GetRoots>, Check<ParametersOf(kOwner, "roots")>},
    {kOwner, "list", Handle<ListRoot>, Check<ParametersOf(kOwner, "list")>},
    {kOwner, "describe", Handle<DescribeLink>, Check<ParametersOf(kOwner, "describe")>},
    {kVisitor, "list", Handle<ListShare>, Check<ParametersOf(kVisitor, "list")>},
    {kVisitor, "get", HandleFile<GetFile>, Check<ParametersOf(kVisitor, "get")>},
    {kVisitor, "zip", HandleFile<GetZip>, Check<ParametersOf(kVisitor, "zip")>},
    {kVisitor, "thumbnail", HandleFile<GetThumbnail>, Check<ParametersOf(kVisitor, "thumbnail")>},
    {kVisitor, "upload_begin", Handle<BeginUpload>, Check<ParametersOf(kVisitor, "upload_begin")>},
    {kVisitor, "upload_piece", Handle<AddPiece>, Check<ParametersOf(kVisitor, "upload_piece")>},
    {kVisitor, "upload_state", Handle<GetUploadState>,
     Check<ParametersOf(kVisitor, "upload_state")>},
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
