#include "module/SharingAPI.h"

#include "module/SharingAPIChecks.h"
#include "module/SharingLoginAPI.h"
#include "module/SharingSessionAPI.h"
#include "sharing/Export.h"
#include "veltwebapi/APITable.h"

namespace VELT {

SharingAPIBase::~SharingAPIBase() = default;

int SharingAPIBase::ParseParams() { return 0; }

int SharingAPIBase::Execute() { return 0; }

int SharingAPIBase::FormOutput() { return 0; }

int SharingAPIBase::RunSteps() {
  const char* prefix = "Parse Param Error: ";
  int code = 0;
  try {
    code = ParseParams();
  } catch (const std::exception& error) {
    code = Fail(kErrorParam, error.what());
  }
  if (code == 0) {
    prefix = "Execute Error: ";
    code = Execute();
  }
  if (code == 0) {
    prefix = "Format Output Error: ";
    code = FormOutput();
  }
  if (code != 0) error_message_.insert(0, prefix);
  return code;
}

int SharingAPIBase::Fail(int code, const char* message) {
  error_message_ = message;
  return code;
}

std::string SharingAPIBase::Read(const params::Text& param) const {
  return request_->GetParam(param.name, param.fallback).asString();
}

int SharingAPIBase::Read(const params::Int& param) const {
  return request_->GetParam(param.name, param.fallback).asInt();
}

bool SharingAPIBase::Read(const params::Bool& param) const {
  return request_->GetParam(param.name, param.fallback).asBool();
}

Json::Value SharingAPIBase::Read(const params::Object& param) const {
  return request_->GetParam(param.name, Json::objectValue);
}

Json::Value SharingAPIBase::Read(const params::Names& param) const {
  return request_->GetParam(param.name, Json::arrayValue);
}

Json::Value SharingAPIBase::Read(const params::AnyValue& param) const {
  return request_->GetParam(param.name, Json::nullValue);
}

void SharingAPIBase::Run() {
  if (const int code = RunSteps(); code != 0) {
    response_->SetError(code, error_message_);
    return;
  }
  response_->SetSuccess(result_);
}

}  // namespace VELT

// Other components find the tables by these plain names as well.
extern "C" {

extern VELT_EXPORT const VELT::APITableEntry gTable[];
extern VELT_EXPORT const VELT::APICheckTableEntry gCheckTable[];

const VELT::APITableEntry gTable[] = {
    {"VELT.Core.Sharing.Login", 1, "login", VELT::SharingAPIHandler<VELT::SharingLogin>},
    {"VELT.Core.Sharing.Initdata", 1, "get", VELT::SharingAPIHandler<VELT::SharingInitdata>},
    {"VELT.Core.Sharing.Session", 1, "get", VELT::SharingAPIHandler<VELT::SharingSession>},
    {"VELT.Core.Sharing", 1, "logout", VELT::SharingAPIHandler<VELT::SharingLogout>},
    {"VELT.Core.Sharing", 1, "get", VELT::SharingAPIHandler<VELT::SharingGet>},
    {"VELT.Core.Sharing", 1, "set", VELT::SharingAPIHandler<VELT::SharingSet>},
    {"VELT.Core.Sharing", 1, "delete", VELT::SharingAPIHandler<VELT::SharingDelete>},
    {"VELT.Core.Sharing", 1, "list", VELT::SharingAPIHandler<VELT::SharingList>},
    {"VELT.Core.Sharing", 1, "trigger_gc", VELT::SharingAPIHandler<VELT::SharingTriggerGC>},
    {nullptr, 0, nullptr, nullptr},
};

const VELT::APICheckTableEntry gCheckTable[] = {
    {"VELT.Core.Sharing.Session", 1, "get", VELT::CheckSharingSessionParams, nullptr, nullptr},
    {"VELT.Core.Sharing.Initdata", 1, "get", VELT::CheckSharingInitdataParams, nullptr, nullptr},
    {"VELT.Core.Sharing.Login", 1, "login", VELT::CheckSharingLoginParams, nullptr, nullptr},
    {"VELT.Core.Sharing", 1, "set", VELT::CheckSharingSetParams, nullptr, nullptr},
    {"VELT.Core.Sharing", 1, "get", VELT::CheckSharingGetParams, nullptr, nullptr},
    {"VELT.Core.Sharing", 1, "list", VELT::CheckSharingListParams, nullptr, nullptr},
    {"VELT.Core.Sharing", 1, "trigger_gc", VELT::CheckSharingTriggerGCParams, nullptr, nullptr},
    {"VELT.Core.Sharing", 1, "logout", VELT::CheckSharingLogoutParams, nullptr, nullptr},
    {"VELT.Core.Sharing", 1, "delete", VELT::CheckSharingDeleteParams, nullptr, nullptr},
    {nullptr, 0, nullptr, nullptr, nullptr, nullptr},
};

VELT_EXPORT const VELT::APITableEntry* GetAPITable() { return gTable; }

VELT_EXPORT const VELT::APICheckTableEntry* GetAPICheckTable() { return gCheckTable; }

}  // extern "C"
