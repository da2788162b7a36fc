// Uploads in pieces: a visitor's for a link, and an owner's into a folder of theirs.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "apps/files/Ids.h"
#include "apps/files/Inbox.h"
#include "apps/files/Methods.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Share.h"
#include "apps/files/Spool.h"
#include "apps/files/UploadStore.h"
#include "apps/files/Visit.h"
#include "declared/VELT.Files.h"
#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {
namespace {

constexpr int kMostFolders = 16;  // that a file is in, one in another

// Where uploads go, and under which key the spool has them.
struct Place {
  Share share;
  std::string key;
};

Place PlaceOfLink(const APIRequest& request) {
  const sharing::record::Entry entry = Admit(request);
  return {Share(entry), entry.get_hash()};
}

template <typename Row>
Place PlaceOfCaller(const APIRequest& request) {
  const std::string root = Read(request, Row::kRoot);
  const auto path = ToPath(Read(request, Row::kPath));
  if (!path) throw Refusal(kNotFound);
  const Account caller = CallerOf(request);
  return {Share(caller, root, *path), OwnKey(caller.uid)};
}

// With the name that the file got, once it is complete.
void Answer(APIResponse& response, std::int64_t offset, const std::optional<std::string>& name) {
  Json::Value data;
  data["offset"] = static_cast<Json::Int64>(offset);
  if (name) data["name"] = ToText(*name);
  response.SetSuccess(data);
}

// These return the name of a file that is complete.

template <typename Row>
std::optional<std::string> Begin(const APIRequest& request, APIResponse& response,
                                 const Place& place) {
  const auto name = ToPath(Read(request, Row::kName));
  const std::int64_t size = Read(request, Row::kSize);
  if (!name || name->empty() || std::ranges::count(*name, '/') > kMostFolders) {
    throw Refusal(kNotFound);
  }
  UploadStore store(place.share, place.key);
  const std::string id = store.Begin(HarmlessPath(*name), size);
  if (size == 0) {
    const auto given = store.Add(id, 0, "");
    Answer(response, 0, given);
    return given;
  }
  Json::Value data;
  data["upload"] = id;
  data["offset"] = 0;
  response.SetSuccess(data);
  return std::nullopt;
}

template <typename Row>
std::optional<std::string> Add(const APIRequest& request, APIResponse& response,
                               const Place& place) {
  const std::int64_t offset = Read(request, Row::kOffset);
  const std::string& piece = request.GetRawBody();
  const auto name =
      UploadStore(place.share, place.key).Add(Read(request, Row::kUpload), offset, piece);
  Answer(response, offset + static_cast<std::int64_t>(piece.size()), name);
  return name;
}

template <typename Row>
void Cancel(const APIRequest& request, APIResponse& response, const Configuration& configuration,
            const std::string& key) {
  const std::string id = Read(request, Row::kUpload);
  const Spool spool(configuration);
  const IdsGuard root = IdsGuard::Root();
  if (!IsUploadId(id) || !RemoveUnfinishedOf(spool.folder(), key, id)) throw Refusal(kNoUpload);
  response.SetSuccess("");
}

template <typename Row>
void TellState(const APIRequest& request, APIResponse& response, const Place& place) {
  const UploadStore::State state =
      UploadStore(place.share, place.key).StateOf(Read(request, Row::kUpload));
  Json::Value data;
  data["offset"] = static_cast<Json::Int64>(state.offset);
  data["size"] = static_cast<Json::Int64>(state.size);
  if (!state.name.empty()) data["name"] = ToText(state.name);
  response.SetSuccess(data);
}

void Note(APIResponse& response, const std::optional<std::string>& name) {
  if (name) response.NoteEvent("upload", ToText(*name));
}

}  // namespace

void BeginUpload(const APIRequest& request, APIResponse& response) {
  Note(response, Begin<params::FilesLinkUploadBegin>(request, response, PlaceOfLink(request)));
}

void AddPiece(const APIRequest& request, APIResponse& response) {
  Note(response, Add<params::FilesLinkUploadPiece>(request, response, PlaceOfLink(request)));
}

void CancelUpload(const APIRequest& request, APIResponse& response) {
  const Place place = PlaceOfLink(request);
  Cancel<params::FilesLinkUploadCancel>(request, response, place.share.configuration(), place.key);
}

void GetUploadState(const APIRequest& request, APIResponse& response) {
  TellState<params::FilesLinkUploadState>(request, response, PlaceOfLink(request));
}

void BeginOwnUpload(const APIRequest& request, APIResponse& response) {
  using Row = params::FilesUploadBegin;
  Begin<Row>(request, response, PlaceOfCaller<Row>(request));
}

void AddOwnPiece(const APIRequest& request, APIResponse& response) {
  using Row = params::FilesUploadPiece;
  Add<Row>(request, response, PlaceOfCaller<Row>(request));
}

void CancelOwnUpload(const APIRequest& request, APIResponse& response) {
  Cancel<params::FilesUploadCancel>(request, response, Configuration(),
                                    OwnKey(CallerOf(request).uid));
}

void GetOwnUploadState(const APIRequest& request, APIResponse& response) {
  using Row = params::FilesUploadState;
  TellState<Row>(request, response, PlaceOfCaller<Row>(request));
}

}  // namespace VELT::files
