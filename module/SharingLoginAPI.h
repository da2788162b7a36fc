// What the page of a link calls: login, logout, start-up data.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "module/SharingAPI.h"
#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT {

namespace sharing {
class InitDataHandler;
}

// Logs a visitor in to a link. The answer holds the new session id, which is set as a cookie too,
// and the private data of the application's custom page plugin.
class SharingLogin : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  int ParseParams() override;
  int Execute() override;
  int FormOutput() override;

 private:
  int Login();
  void LoadSharingAppConfig();
  void RunRenderPlugins();

  std::string sharing_id_;
  std::string password_;
  std::string mosk_username_;
  std::string mosk_password_;
  std::string sid_;
  sharing::record::Entry entry_;
  Json::Value private_result_;
  Json::Value app_config_;
};

// Ends the visitor session that the request names, or else its own.
class SharingLogout : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  int Execute() override;
};

// Returns one part of the page's start-up data, the desktop's by default.
class SharingInitdata : public SharingAPIBase {
 public:
  SharingInitdata(APIRequest* request, APIResponse* response);
  SharingInitdata(const SharingInitdata&) = delete;
  SharingInitdata& operator=(const SharingInitdata&) = delete;
  ~SharingInitdata() override;
  int ParseParams() override;
  int Execute() override;

 private:
  std::string action_;
  std::unique_ptr<sharing::InitDataHandler> handler_;
};

}  // namespace VELT
