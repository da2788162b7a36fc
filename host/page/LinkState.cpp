#include "host/page/LinkState.h"

#include "veltsharing/LinkStatus.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/View.h"

namespace VELT::host {

using sharing::LinkStatus;

LinkState FindLinkState(const std::string& id, const std::string& sid, bool turned_away,
                        sharing::record::Entry& entry) {
  sharing::db::SharingDB& database = *sharing::db::SharingDB::Instance();
  if (!database.IsGood()) return LinkState::kUnavailable;
  const sharing::Visit visit = sharing::FindVisit(id, sid);
  if (visit.link.get_id() == 0) return LinkState::kUnknown;
  entry = visit.link;
  if (visit.is_legal) return turned_away ? LinkState::kLogin : LinkState::kOpen;
  switch (entry.get_status()) {
    case LinkStatus::kDisabled:
      return LinkState::kUnknown;
    case LinkStatus::kPending:
      return LinkState::kPending;
    case LinkStatus::kExpired:
      return LinkState::kExpired;
    case LinkStatus::kUsedUp:
      return LinkState::kUsedUp;
    case LinkStatus::kActive:
      break;
  }
  return LinkState::kLogin;
}

}  // namespace VELT::host
