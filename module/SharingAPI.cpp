#include "module/SharingAPI.h"

#include "declared/VELT.Core.Sharing.h"
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

int SharingAPIBase::Fail(ErrorCode code) { return Fail(code, MessageOf(code)); }

int SharingAPIBase::Fail(int code, const char* message) {
  error_message_ = message;
  return code;
}

void SharingAPIBase::Run() {
  if (const int code = RunSteps(); code != 0) {
    response_->SetError(code, error_message_);
    return;
  }
  response_->SetSuccess(result_);
}

using params::CheckEntry;
using params::Entry;

// Other components find the tables by these plain names as well.
extern "C" {

extern VELT_EXPORT const APITableEntry gTable[];
extern VELT_EXPORT const APICheckTableEntry gCheckTable[];

const APITableEntry gTable[] = {
    Entry<params::SharingLoginLogin>(SharingAPIHandler<SharingLogin>),
    Entry<params::SharingInitdataGet>(SharingAPIHandler<SharingInitdata>),
    Entry<params::SharingSessionGet>(SharingAPIHandler<SharingSession>),
    Entry<params::SharingLogout>(SharingAPIHandler<SharingLogout>),
    Entry<params::SharingGet>(SharingAPIHandler<SharingGet>),
    Entry<params::SharingSet>(SharingAPIHandler<SharingSet>),
    Entry<params::SharingDelete>(SharingAPIHandler<SharingDelete>),
    Entry<params::SharingList>(SharingAPIHandler<SharingList>),
    Entry<params::SharingTriggerGc>(SharingAPIHandler<SharingTriggerGC>),
    {nullptr, 0, nullptr, nullptr},
};

const APICheckTableEntry gCheckTable[] = {
    CheckEntry<params::SharingSessionGet>(), CheckEntry<params::SharingInitdataGet>(),
    CheckEntry<params::SharingLoginLogin>(), CheckEntry<params::SharingSet>(),
    CheckEntry<params::SharingGet>(),        CheckEntry<params::SharingList>(),
    CheckEntry<params::SharingTriggerGc>(),  CheckEntry<params::SharingLogout>(),
    CheckEntry<params::SharingDelete>(),     {nullptr, 0, nullptr, nullptr, nullptr, nullptr},
};

VELT_EXPORT const APITableEntry* GetAPITable() { return gTable; }

VELT_EXPORT const APICheckTableEntry* GetAPICheckTable() { return gCheckTable; }

}  // extern "C"

}  // namespace VELT
