// The tables of VELT.Files: its methods and the checks of their parameters.
#include <cstdio>

#include "apps/files/Methods.h"
#include "apps/files/Refusal.h"
#include "declared/VELT.Files.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"

namespace VELT::files {
namespace {

using params::Entry;

using Method = void (*)(const APIRequest&, APIResponse&);

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
        "Status: %s\r\nContent-Type: application/json; charset=\"UTF-8\"\r\n\r\n"
        R"({"error":{"code":%d,"errors":null},"success":false})",
        StatusOf(refusal.code), refusal.code);
  }
}

constexpr APITableEntry kTable[] = {
    Entry<params::FilesRoots>(Handle<GetRoots>),
    Entry<params::FilesList>(Handle<ListRoot>),
    Entry<params::FilesFind>(Handle<FindFiles>),
    Entry<params::FilesDescribe>(Handle<DescribeLink>),
    Entry<params::FilesUploadRemove>(Handle<RemoveUploads>),
    Entry<params::FilesUploadBegin>(Handle<BeginOwnUpload>),
    Entry<params::FilesUploadPiece>(Handle<AddOwnPiece>),
    Entry<params::FilesUploadState>(Handle<GetOwnUploadState>),
    Entry<params::FilesUploadCancel>(Handle<CancelOwnUpload>),
    Entry<params::FilesLinkList>(Handle<ListShare>),
    Entry<params::FilesLinkGet>(HandleFile<GetFile>),
    Entry<params::FilesLinkZip>(HandleFile<GetZip>),
    Entry<params::FilesLinkThumbnail>(HandleFile<GetThumbnail>),
    Entry<params::FilesLinkUploadBegin>(Handle<BeginUpload>),
    Entry<params::FilesLinkUploadPiece>(Handle<AddPiece>),
    Entry<params::FilesLinkUploadState>(Handle<GetUploadState>),
    Entry<params::FilesLinkUploadCancel>(Handle<CancelUpload>),
    Entry<params::FilesLinkPut>(PutFile),
    {},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const APITableEntry* GetAPITable() {
  return kTable;
}

extern "C" __attribute__((visibility("default"))) const APICheckTableEntry* GetAPICheckTable() {
  return params::AllMethods::kChecks;
}

}  // namespace VELT::files
