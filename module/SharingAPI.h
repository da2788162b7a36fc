// The methods of VELT.Core.Sharing: their common life and the owner's side.
#pragma once

#include <json/value.h>

#include <exception>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "module/Parameters.h"
#include "sharing/Log.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT {

// Callers distinguish failures by these; the texts beside them are for people.
enum ErrorCode : int {
  kErrorParam = 101,   // a parameter can't be read, or the request is not allowed in its form
  kErrorStore = 117,   // the database can't be used, or refused, or a login failed inside it
  kErrorCheck = 120,   // a pre-check refused a parameter; the detail says which and why
  kErrorLogin = 1000,  // no link that lets visitors in
  kErrorProtectPassword = 1001,  // wrong link password
  kErrorProtectUser = 1002,      // the account is not among the link's
  kErrorUserLogin = 1003,        // wrong account or account password
  kErrorLogout = 1004,           // there was no visit to end
  kErrorSharingID = 1005,        // no such link, or a visit of another one
  kErrorSharingSession = 1006,   // no visit, or it has ended
  kErrorOwner = 1007,            // somebody else's link
  kErrorAddress = 1008,          // not from this address, or not now
  kErrorNoUsers = 1009,          // protection by accounts without any
  kErrorNoPassword = 1010,       // protection by a password without one
  kErrorNoRedirectURI = 1011,    // a redirect without an address
  kErrorExpireTimes = 1012,      // no visit left
};

// One request to one method: made for it, run once, destroyed with it. A step returns 0 or the
// error code that ends the request, and then may leave a text in error_message_.
class SharingAPIBase {
 public:
  // Both are the framework's and outlive the object.
  SharingAPIBase(APIRequest* request, APIResponse* response)
      : request_(request), response_(response) {}
  SharingAPIBase(const SharingAPIBase&) = delete;
  SharingAPIBase& operator=(const SharingAPIBase&) = delete;
  virtual ~SharingAPIBase();

  // Takes the three steps and answers with result_, or with the code and text of the first that
  // failed.
  virtual void Run();
  // May throw what reading a parameter throws: the request then ends with kErrorParam and its text.
  virtual int ParseParams();
  virtual int Execute();
  virtual int FormOutput();

 protected:
  // The steps in their order: 0, or the failing one's code with its prefix put before
  // error_message_.
  int RunSteps();
  int Fail(int code, const char* message);

  // The parameter, or its fallback. Throw what JsonCpp's conversions throw.
  std::string Read(const params::Text& param) const;
  int Read(const params::Int& param) const;
  bool Read(const params::Bool& param) const;
  Json::Value Read(const params::Object& param) const;
  Json::Value Read(const params::Names& param) const;
  Json::Value Read(const params::AnyValue& param) const;

  APIRequest* request_;
  APIResponse* response_;
  std::string error_message_;
  Json::Value result_;
};

// The handler of every row of the method table. The object is declared outside the block so that
// the log line of an exception from Run comes before the object's end.
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

// Creates a link, or changes those fields of an existing one that the request carries.
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
  bool Carries(const char* parameter, bool update) const;

  std::string sharing_id_;
  std::string project_name_;
  unsigned int owner_uid_ = 0xFFFFFFFF;
  bool enabled_ = params::set::kEnabled.fallback;
  bool auto_gc_ = params::set::kAutoGC.fallback;
  bool enable_match_ip_ = params::set::kEnableMatchIP.fallback;
  std::string start_at_;
  std::string expire_at_;
  int expire_times_ = params::set::kExpireTimes.fallback;
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
  int offset_ = params::list::kOffset.fallback;
  int limit_ = params::list::kLimit.fallback;
  bool all_entry_ = params::list::kAllEntry.fallback;
  bool share_with_me_ = params::list::kShareWithMe.fallback;
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
  bool all_entry_ = params::trigger_gc::kAllEntry.fallback;
};

}  // namespace VELT
