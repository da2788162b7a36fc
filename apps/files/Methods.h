// The methods, one function each. They throw Refusal; Api.cpp lists them and answers that.
#pragma once

#include <json/value.h>

#include <string>

#include "Share.h"
#include "Tree.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {

// An owner's.
void GetRoots(const APIRequest& request, APIResponse& response);
void ListRoot(const APIRequest& request, APIResponse& response);
void DescribeLink(const APIRequest& request, APIResponse& response);

// A visitor's.
void ListShare(const APIRequest& request, APIResponse& response);
void GetFile(const APIRequest& request, APIResponse& response);
void GetZip(const APIRequest& request, APIResponse& response);
void GetThumbnail(const APIRequest& request, APIResponse& response);
void BeginUpload(const APIRequest& request, APIResponse& response);
void AddPiece(const APIRequest& request, APIResponse& response);
void GetUploadState(const APIRequest& request, APIResponse& response);

// The parameters that a listing takes.
Listing ListWith(const APIRequest& request, const Found& folder);

// One row of a listing; `path` is what the caller names it by.
Json::Value ToJson(const std::string& name, const struct stat& status, const std::string& path);

// Throws Refusal(kNotFound) where visitors see nothing of what is there.
void MustShow(const Share& share);

}  // namespace VELT::files
