// The session script that a link's page loads.
#pragma once

#include <json/value.h>

#include <string>

#include "declared/VELT.Core.Sharing.h"
#include "module/SharingAPI.h"
#include "veltsharing/Entry.h"

namespace VELT {

// Answers with JavaScript instead of the framework's JSON: the page's session object, then what the
// application's plugins add. In preview mode it describes the page of a link that is not stored. An
// unknown link or an unusable database still gives a script.
class SharingSession : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  void Run() override;
  int ParseParams() override;
  int Execute() override;
  int FormOutput() override;

 private:
  void InitSharingPreviewParam();
  void LoadSharingAppConfig();
  void CollectMOSKSession();
  void CollectSharingSession();
  void RunRenderPlugins();

  std::string sharing_id_;
  std::string sharing_status_ = params::SharingSessionGet::kSharingStatus.fallback;
  int sharing_error_ = params::SharingSessionGet::kSharingError.fallback;
  bool preview_ = params::SharingSessionGet::kPreview.fallback;
  std::string sharing_preview_status_;
  Json::Value sharing_preview_params_;
  std::string sharing_preview_project_name_;
  sharing::record::Entry entry_;
  std::string extra_session_;
  Json::Value session_;
  Json::Value app_config_;
  Json::Value preview_param_;
};

}  // namespace VELT
