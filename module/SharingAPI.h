// The methods of VELT.Core.Sharing: their common life and the owner's side.
#pragma once

#include <json/value.h>
#include <syslog.h>

#include <exception>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "sharing/LogPlaces.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT {

enum ErrorCode : int {
  kErrorParam = 101,
  kErrorDatabase = 117,
  kErrorLoginInternal = 117,
  kErrorCheck = 120,
  kErrorLogin = 1000,
  kErrorProtectPassword = 1001,
  kErrorProtectUser = 1002,
  kErrorUserLogin = 1003,
  kErrorLogout = 1004,
  kErrorSharingID = 1005,
  kErrorSharingSession = 1006,
  kErrorOwner = 1007,
  kErrorAddress = 1008,
  kErrorNoUsers = 1009,
  kErrorNoPassword = 1010,
  kErrorNoRedirectURI = 1011,
  kErrorExpireTimes = 1012,
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
  virtual int ParseParams();
  virtual int Execute();
  virtual int FormOutput();

 protected:
  // The steps in their order: 0, or the failing one's code with its prefix put before
  // error_message_.
  int RunSteps();
  int Fail(int code, const char* message);

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
    syslog(LOG_ERR, "%s:%d Fatal Error: %s", log_place::kFatalError.source,
           log_place::kFatalError.line, error.what());
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

  void ParseFields();
  int LoadForUpdate(Entry& entry);
  int SetEntryFields(Entry& entry, bool update);
  void SetAccessFields(Entry& entry, bool update);
  void SetProtectFields(Entry& entry, bool update);
  bool Carries(const char* parameter, bool update) const;

  std::string sharing_id_;
  std::string project_name_;
  unsigned int owner_uid_ = 0xFFFFFFFF;
  bool enabled_ = true;
  bool auto_gc_ = false;
  bool enable_match_ip_ = true;
  std::string start_at_;
  std::string expire_at_;
  int expire_times_ = 0;
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
  int offset_ = -1;
  int limit_ = -1;
  bool all_entry_ = false;
  bool share_with_me_ = false;
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
  bool all_entry_ = false;
};

}  // namespace VELT
