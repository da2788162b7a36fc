// A file that a program sends whole, by PUT.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "apps/files/Methods.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Share.h"
#include "apps/files/UploadStore.h"
#include "apps/files/Visit.h"
#include "declared/VELT.Files.h"
#include "veltsys/Text.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {
namespace {

struct Answer {
  const char* status;
  std::string text;
  std::string fields = {};  // of the header
};

Answer AnswerOf(Code code) {
  switch (code) {
    case kNoVisit:
      return {"401 Unauthorized",
              "This link asks for a password, or for an account and its password.",
              "WWW-Authenticate: Basic realm=\"Share link\", charset=\"UTF-8\"\r\n"};
    case kAddressDenied:
      return {"429 Too Many Requests", "Too many attempts have failed; try again later."};
    case kUsedUp:
      return {"410 Gone", "This link has no visit left."};
    case kNoUploads:
      return {"403 Forbidden", "This link takes no files."};
    case kUploadLimit:
      return {"409 Conflict", "This link takes no more files now."};
    case kNoSpace:
      return {"507 Insufficient Storage", "There is no room for this file."};
    case kNoUpload:
      return {"410 Gone", "The link has ended, or its owner has ended this transfer."};
    case kUnavailable:
      return {"503 Service Unavailable", "Files can't be taken now; try again later."};
    default:
      return {"404 Not Found", "There is no link here that takes files."};
  }
}

// Where visitors find the file, if they see what is there.
std::string LocationOf(const APIRequest& request, const std::string& link,
                       const std::string& name) {
  return "Location: " +
         request.GetSharingURL("/sharing/" + link +
                               "/webapi?api=VELT.Files.Link&version=1&method=get&path=0%2F" +
                               EncodePercent(ToText(name))) +
         "\r\n";
}

Answer Put(const APIRequest& request, APIResponse& response) {
  const std::int64_t size = request.GetBodyLength();
  if (size < 0)
    return {"411 Length Required", "The file's length must be known before it is sent."};
  const Guest guest = AdmitWithCredentials(request);
  const Share share(guest.entry);
  UploadStore store(share, guest.entry.get_hash());
  if (static_cast<std::uint64_t>(size) > share.upload().max_size) {
    return {"413 Content Too Large", "This link takes files of at most " +
                                         std::to_string(share.upload().max_size) + " bytes."};
  }
  CountVisit(guest);
  const auto name = store.Store(
      HarmlessName(Read(request, params::FilesLinkPut::kName)), size,
      [&request](char* buffer, std::size_t wanted) { return request.ReadBody(buffer, wanted); });
  if (!name)
    return {"408 Request Timeout", "The file did not arrive whole, and nothing of it was kept."};
  response.NoteEvent("upload", ToText(*name));
  return {"201 Created", ToText(*name),
          share.upload().only ? "" : LocationOf(request, guest.entry.get_hash(), *name)};
}

}  // namespace

void PutFile(APIRequest* request, APIResponse* response) {
  Answer answer{};
  try {
    answer = Put(*request, *response);
  } catch (const Refusal& refusal) {
    answer = AnswerOf(refusal.code);
  }
  response->SetEnableOutput(false);
  std::printf("Status: %s\r\nContent-Type: text/plain; charset=\"UTF-8\"\r\n%s\r\n%s\n",
              answer.status, answer.fields.c_str(), answer.text.c_str());
}

}  // namespace VELT::files
