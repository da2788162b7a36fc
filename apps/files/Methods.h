// The API's methods, one function each. They throw Refusal, which Api.cpp turns into an answer.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <string>

#include "apps/files/Share.h"
#include "apps/files/Tree.h"
#include "veltapi/Parameters.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {

// For owners.
void GetRoots(const APIRequest& request, APIResponse& response);
void ListRoot(const APIRequest& request, APIResponse& response);
void FindFiles(const APIRequest& request, APIResponse& response);
void DescribeLink(const APIRequest& request, APIResponse& response);
void RemoveUploads(const APIRequest& request, APIResponse& response);
void BeginOwnUpload(const APIRequest& request, APIResponse& response);
void AddOwnPiece(const APIRequest& request, APIResponse& response);
void CancelOwnUpload(const APIRequest& request, APIResponse& response);
void GetOwnUploadState(const APIRequest& request, APIResponse& response);

// For visitors.
void ListShare(const APIRequest& request, APIResponse& response);
void GetFile(const APIRequest& request, APIResponse& response);
void GetZip(const APIRequest& request, APIResponse& response);
void GetThumbnail(const APIRequest& request, APIResponse& response);
void BeginUpload(const APIRequest& request, APIResponse& response);
void AddPiece(const APIRequest& request, APIResponse& response);
void CancelUpload(const APIRequest& request, APIResponse& response);
void GetUploadState(const APIRequest& request, APIResponse& response);
// Answers in plain text, and so throws no Refusal.
void PutFile(APIRequest* request, APIResponse* response);

// The account of a signed-in caller. Throws Refusal(kNoRoot).
Account CallerOf(const APIRequest& request);

Order OrderOf(const std::string& by, const std::string& direction);

// Lists `folder` in the order and from the place that the parameters of `Method` name.
template <typename Method>
Listing ListWith(const APIRequest& request, const Found& folder) {
  const Order order =
      OrderOf(Read(request, Method::kSortBy), Read(request, Method::kSortDirection));
  return List(folder, order, static_cast<std::size_t>(Read(request, Method::kOffset)),
              static_cast<std::size_t>(Read(request, Method::kLimit)));
}

// One entry of a listing. `path` is the path that the caller uses for it.
Json::Value ToJson(const std::string& name, const struct stat& status, const std::string& path);

// Throws Refusal(kNotFound) when the link hides the folder's files from visitors.
void MustShow(const Share& share);

}  // namespace VELT::files
