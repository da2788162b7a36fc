// The steps that all methods share, and the methods of a link's owner.
#pragma once

#include <json/value.h>
#include <syslog.h>

#include <exception>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "declared/VELT.Core.Sharing.h"
#include "sharing/Log.h"
#include "sharing/LogPlaces.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/ErrorCodes.h"

namespace VELT {

// One call of one method: created for the request and run once. A step returns 0, or the error code
// that ends the request; it may then set error_message_.
class SharingAPIBase {
 public:
  // Both are the framework's and outlive the object.
  SharingAPIBase(APIRequest* request, APIResponse* response)
      : request_(request), response_(response) {}
  SharingAPIBase(const SharingAPIBase&) = delete;
  SharingAPIBase& operator=(const SharingAPIBase&) = delete;
  virtual ~SharingAPIBase();

  // Runs the three steps and answers with result_, or with the code and message of the step that
  // failed.
  virtual void Run();
  // May throw a std::exception: the request then ends with kErrorParam and the exception's text.
  virtual int ParseParams();
  virtual int Execute();
  virtual int FormOutput();

 protected:
  // Runs the steps in order. Returns 0, or the code of the step that failed; error_message_ then
  // begins with that step's prefix.
  int RunSteps();
  // Sets error_message_, to the code's own message if there is none, and returns `code`.
  int Fail(ErrorCode code);
  int Fail(int code, const char* message);

  // The declared parameter, or its fallback. Throws what JsonCpp's conversions throw.
  template <typename Row>
  auto Read(const Row& row) const {
    return params::Read(*request_, row);
  }

  APIRequest* request_;
  APIResponse* response_;
  std::string error_message_;
  Json::Value result_;
};

// The handler of every row of the method table. The object is declared outside the try block, so
// that an exception is logged before the object is destroyed.
template <typename T>
void SharingAPIHandler(APIRequest* request, APIResponse* response) {
  std::unique_ptr<SharingAPIBase> method;
  try {
    method = std::make_unique<T>(request, response);
    method->Run();
  } catch (const std::exception& error) {
    LOG_AT(log_place::kFatalError, LOG_ERR, "Fatal Error: %s", error.what());
  }
}

// Returns one link to its owner, an administrator, or a visitor whose session holds a token for it.
class SharingGet : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  int ParseParams() override;
  int Execute() override;
  int FormOutput() override;

 private:
  int AdmitVisitor();

  std::string sharing_id_;
  sharing::record::Entry entry_;
};

// Creates a link, or changes those fields of an existing one that the request contains.
class SharingSet : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  int ParseParams() override;
  int Execute() override;
  int FormOutput() override;

 private:
  using Entry = sharing::record::Entry;

  int LoadForUpdate(Entry& entry);
  int SetEntryFields(Entry& entry, bool update);
  void SetAccessFields(Entry& entry, bool update);
  void SetProtectFields(Entry& entry, bool update);
  template <typename Row>
  bool Carries(const Row& parameter, bool update) const {
    return !update || request_->HasParam(parameter.name);
  }

  std::string sharing_id_;
  std::string project_name_;
  unsigned int owner_uid_ = 0xFFFFFFFF;
  bool enabled_ = params::SharingSet::kEnabled.fallback;
  bool auto_gc_ = params::SharingSet::kAutoGc.fallback;
  bool enable_match_ip_ = params::SharingSet::kEnableMatchIp.fallback;
  std::string start_at_;
  std::string expire_at_;
  int expire_times_ = params::SharingSet::kExpireTimes.fallback;
  Entry::ProtectType protect_type_ = Entry::ProtectType::kNone;
  std::string protect_title_;
  std::string protect_password_;
  std::vector<std::string> protect_users_;
  std::vector<std::string> protect_groups_;
  Entry::RedirectType redirect_type_ = Entry::RedirectType::kNone;
  std::string redirect_uri_;
  Json::Value app_{Json::objectValue};
  Json::Value private_data_{Json::objectValue};
  std::string url_;
};

// Removes one link for its owner or an administrator.
class SharingDelete : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  int ParseParams() override;
  int Execute() override;
  int FormOutput() override;

 private:
  std::string sharing_id_;
};

// Returns a page of the caller's links, or of everybody's to an administrator who asks for them.
class SharingList : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  int ParseParams() override;
  int Execute() override;
  int FormOutput() override;

 private:
  void PrepareCondition(sharing::db::Condition* condition);
  void PrepareUserInfo();
  bool CheckShareWithMe(const sharing::record::Entry& entry) const;
  void FilterShareWithMe();

  std::string project_name_;
  std::string sort_by_;
  std::string sort_direction_;
  int offset_ = params::SharingList::kOffset.fallback;
  int limit_ = params::SharingList::kLimit.fallback;
  bool all_entry_ = params::SharingList::kAllEntry.fallback;
  bool share_with_me_ = params::SharingList::kShareWithMe.fallback;
  int total_ = 0;
  unsigned int login_uid_ = 0xFFFFFFFF;
  std::set<unsigned int> group_ids_;
  std::vector<sharing::record::Entry> entries_;
};

// Has the store remove expired links: the caller's, or everybody's for an administrator who asks
// for it.
class SharingTriggerGC : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  int ParseParams() override;
  int Execute() override;
  int FormOutput() override;

 private:
  std::string project_name_;
  bool all_entry_ = params::SharingTriggerGc::kAllEntry.fallback;
};

}  // namespace VELT
