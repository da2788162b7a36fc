// link: makes, shows, changes and deletes links. It calls the API's methods, so that their rules hold here too.
#include <json/writer.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <memory>
#include <string>
#include <utility>

#include "host/request/Registry.h"
#include "platform/store/StoreContext.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/View.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/RequestContext.h"
#include "veltwebapi/ResponseState.h"

namespace VELT::tools {
namespace {

// Less of an id than this may be another link's tomorrow.
constexpr std::size_t kShortestId = 6;

struct Found {
  std::string id;
  std::string project;
  long long owner = 0;
};

Found Find(const HostOptions& options, const std::string& beginning) {
  if (beginning.size() < kShortestId) throw Failure("a link's id has at least 6 characters here");
  const auto sql = OpenDatabase(options.database);
  Found found;
  Found other;
  const auto length = static_cast<long long>(beginning.size());
  soci::statement rows =
      (sql->prepare << "select hash, project_name, owner_uid from link where substr(hash, 1, "
                    << length << ") = :beginning",
       soci::into(other.id), soci::into(other.project), soci::into(other.owner),
       soci::use(beginning));
  rows.execute();
  while (rows.fetch()) {
    if (!found.id.empty()) throw Failure("several links' ids begin with " + beginning);
    found = other;
  }
  if (found.id.empty()) throw Failure("no link's id begins with " + beginning);
  return found;
}

// The answer of a method of VELT.Core.Sharing that the account calls as an administrator.
Json::Value Call(const HostOptions& options, long long uid, const char* method,
                 const LinkFields& fields) {
  if (options.registry.empty()) throw Failure("--registry or --config is needed");
  const auto registry = host::Registry::Load(options.registry);
  const host::Method* found = nullptr;
  if (registry.Find("VELT.Core.Sharing", 1, method, &found)) {
    throw Failure("no module in " + options.registry + " has links");
  }
  sharing::StoreOptions store;
  store.connection = options.database;
  sharing::ConfigureStore(std::move(store));
  auto context = std::make_unique<RequestContext>();
  context->login_uid = static_cast<unsigned int>(uid);
  context->is_admin = true;
  sharing::View view{sharing::View::Of::kOwner};
  const sharing::Viewing viewing(view);
  context->base_url = SiteOf(options);
  for (const auto& [name, value] : fields) context->parameters[name].text = value;
  APIRequest request(std::move(context));
  APIResponse response;
  if (found->check(&request, &response)) found->handler(&request, &response);
  const ResponseState& state = response.state();
  if (state.outcome == ResponseState::Outcome::kError) {
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    throw Failure(
        "error " + std::to_string(state.error_code) + ": " +
        (state.body.isString() ? state.body.asString() : Json::writeString(compact, state.body)));
  }
  return state.body;
}

Json::Value Shown(const HostOptions& options, const Found& link) {
  Json::Value result = Call(options, link.owner, "get", {{"sharing_id", link.id}});
  result.removeMember("qrcode");
  result["url"] = SiteOf(options) + "/sharing/" + link.id;
  return result;
}

}  // namespace

std::string SiteOf(const HostOptions& options) {
  if (!options.external_url.empty()) return options.external_url;
  std::array<char, HOST_NAME_MAX + 1> name{};
  gethostname(name.data(), name.size() - 1);
  return std::string("https://") + name.data();
}

Json::Value CreateLink(const HostOptions& options, const std::string& owner, LinkFields fields) {
  OpenDatabase(options.database);
  const long long uid = UidOf(owner);
  const Json::Value made = Call(options, uid, "set", fields);
  return Shown(options, {made["sharing_id"].asString(), {}, uid});
}

Json::Value ShowLink(const HostOptions& options, const std::string& id) {
  return Shown(options, Find(options, id));
}

Json::Value EditLink(const HostOptions& options, const std::string& id, LinkFields fields) {
  const Found link = Find(options, id);
  fields["sharing_id"] = link.id;
  fields["project_name"] = link.project;
  Call(options, link.owner, "set", fields);
  return Shown(options, link);
}

Json::Value DeleteLink(const HostOptions& options, const std::string& id) {
  const Found link = Find(options, id);
  Call(options, link.owner, "delete", {{"sharing_id", link.id}});
  Json::Value result;
  result["sharing_id"] = link.id;
  return result;
}

}  // namespace VELT::tools
