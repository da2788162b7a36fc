// A visitor's uploads.
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

// With the name that the file got, once it is complete.
void Answer(APIResponse& response, std::int64_t offset, const std::optional<std::string>& name) {
  if (name) response.NoteEvent("upload", ToText(*name));
  Json::Value data;
  data["offset"] = static_cast<Json::Int64>(offset);
  if (name) data["name"] = ToText(*name);
  response.SetSuccess(data);
}

}  // namespace

void BeginUpload(const APIRequest& request, APIResponse& response) {
  const sharing::record::Entry entry = Admit(request);
  const Share share(entry);
  const auto name = ToPath(Read(request, params::FilesLinkUploadBegin::kName));
  if (!name || name->empty() || std::ranges::count(*name, '/') > kMostFolders) {
    throw Refusal(kNotFound);
  }
  const std::int64_t size = Read(request, params::FilesLinkUploadBegin::kSize);
  UploadStore store(share, entry.get_hash());
  const std::string id = store.Begin(HarmlessPath(*name), size);
  if (size == 0) return Answer(response, 0, store.Add(id, 0, ""));
  Json::Value data;
  data["upload"] = id;
  data["offset"] = 0;
  response.SetSuccess(data);
}

void AddPiece(const APIRequest& request, APIResponse& response) {
  using Row = params::FilesLinkUploadPiece;
  const sharing::record::Entry entry = Admit(request);
  const Share share(entry);
  const std::int64_t offset = Read(request, Row::kOffset);
  const std::string& piece = request.GetRawBody();
  const auto name =
      UploadStore(share, entry.get_hash()).Add(Read(request, Row::kUpload), offset, piece);
  Answer(response, offset + static_cast<std::int64_t>(piece.size()), name);
}

void CancelUpload(const APIRequest& request, APIResponse& response) {
  const sharing::record::Entry entry = Admit(request);
  const Share share(entry);
  const std::string id = Read(request, params::FilesLinkUploadCancel::kUpload);
  const Spool spool(share.configuration());
  const IdsGuard root = IdsGuard::Root();
  if (!IsUploadId(id) || !RemoveUnfinishedOf(spool.folder(), entry.get_hash(), id)) {
    throw Refusal(kNoUpload);
  }
  response.SetSuccess("");
}

void GetUploadState(const APIRequest& request, APIResponse& response) {
  const sharing::record::Entry entry = Admit(request);
  const Share share(entry);
  const UploadStore::State state =
      UploadStore(share, entry.get_hash())
          .StateOf(Read(request, params::FilesLinkUploadState::kUpload));
  Json::Value data;
  data["offset"] = static_cast<Json::Int64>(state.offset);
  data["size"] = static_cast<Json::Int64>(state.size);
  if (!state.name.empty()) data["name"] = ToText(state.name);
  response.SetSuccess(data);
}

}  // namespace VELT::files
