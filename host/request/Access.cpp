#include "host/request/Access.h"

#include <algorithm>
#include <string>

#include "veltsharing/Keys.h"
#include "veltsharing/Owners.h"

namespace VELT::host {

bool AsksForAnotherLink(const RequestContext& context) {
  const auto found = context.parameters.find(sharing::SZK_SHARING_ID);
  if (!context.is_sharing || found == context.parameters.end()) return false;
  const RawParameter& raw = found->second;
  // Refused here, since no method accepts an array or an object as an id.
  if (raw.typed && !raw.json.isConvertibleTo(Json::stringValue)) return true;
  const std::string id = raw.typed ? raw.json.asString() : raw.text;
  return !id.empty() && id != context.sharing_id;
}

bool MayCall(const Method& method, const RequestContext& context, bool signs_in_here) {
  const Access& access = method.access;
  if (!context.is_sharing) {
    const bool is_user = context.owner.how != sharing::owners::Owner::How::kNobody;
    return (access.user && is_user) || (access.anyone && (signs_in_here || !method.post_only));
  }
  return access.visitor || (access.token && context.visit.is_legal);
}

std::string BeyondToken(const Method& method, const RequestContext& context) {
  const sharing::owners::Owner& owner = context.owner;
  if (!owner.may_change && method.post_only) return "the token may read only";
  if (owner.projects.empty()) return {};
  if (!method.through_links) return "the token is for links of some projects only";
  const auto found = context.parameters.find("project_name");
  if (found == context.parameters.end()) return {};
  const RawParameter& raw = found->second;
  const std::string project = !raw.typed            ? raw.text
                              : raw.json.isString() ? raw.json.asString()
                                                    : "";
  const auto& projects = owner.projects;
  const bool named = std::find(projects.begin(), projects.end(), project) != projects.end();
  return named || project.empty() ? "" : "the token is not for this project";
}

}  // namespace VELT::host
