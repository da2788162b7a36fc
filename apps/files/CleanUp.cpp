// Removes unfinished uploads as soon as visitors can't go on with them, and what is kept of links that
// are gone.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "apps/files/Configuration.h"
#include "apps/files/Ids.h"
#include "apps/files/Inbox.h"
#include "apps/files/Refusal.h"
#include "apps/files/Spool.h"
#include "veltsharing/Entry.h"
#include "veltsharing/LinkStatus.h"
#include "veltsharing/SharingDB.h"
#include "veltwebapi/LinksChanged.h"

namespace VELT::files {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::hours kEverythingEvery{1};
constexpr std::time_t kReceiptLife = std::time_t{60} * 60;  // seconds

enum class Link { kUsable, kEnded, kGone };

// A link counts as usable as long as the store does not say otherwise.
Link StateOf(const std::string& link) {
  if (IsOwnKey(link)) return Link::kUsable;
  auto& database = *sharing::db::SharingDB::Instance();
  if (!database.IsGood()) return Link::kUsable;
  sharing::db::EntryDB entries(database);
  entries.GetCondition()->Where("sharing_id", link);
  int count = 0;
  if (!entries.Count(count)) return Link::kUsable;
  if (count == 0) return Link::kGone;
  std::vector<sharing::record::Entry> rows;
  if (!entries.Query(rows) || rows.empty()) return Link::kUsable;
  const sharing::LinkStatus status = rows.front().get_status();
  const bool ended = status == sharing::LinkStatus::kDisabled ||
                     status == sharing::LinkStatus::kExpired ||
                     rows.front().get_owner_user().empty();
  return ended ? Link::kEnded : Link::kUsable;
}

bool IsIdCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

void CleanUp(const char* sharing_id) {
  const Configuration configuration;
  // Most links have no uploads, and many appliances share no files.
  const std::string link = sharing_id == nullptr ? "" : sharing_id;
  const std::string inbox = configuration.spool() + "/" + kIn + "/" + link;
  if (configuration.spool().empty() || !std::all_of(link.begin(), link.end(), IsIdCharacter) ||
      access(inbox.c_str(), F_OK) != 0) {
    return;
  }
  static Clock::time_point everything;
  const bool is_everything = link.empty() && Clock::now() >= everything;
  if (is_everything) everything = Clock::now() + kEverythingEvery;

  const Spool spool(configuration);
  std::vector<Unfinished> uploads;
  std::set<std::string> links;
  {
    const IdsGuard root = IdsGuard::Root();
    uploads = ReadUnfinished(spool.folder());
    if (is_everything) {
      const auto all = LinksIn(spool.folder());
      links.insert(all.begin(), all.end());
    }
  }
  for (const Unfinished& upload : uploads) links.insert(upload.link);
  if (!link.empty()) links = {link};
  std::map<std::string, Link> states;
  for (const std::string& each : links) states[each] = StateOf(each);

  const IdsGuard root = IdsGuard::Root();
  for (const Unfinished& upload : uploads) {
    const auto state = states.find(upload.link);
    if (state != states.end() && state->second != Link::kUsable) {
      RemoveUnfinished(spool.folder(), upload);
    }
  }
  for (const auto& [each, state] : states) {
    if (state == Link::kGone) RemoveLink(spool.folder(), each);
    if (is_everything) {
      RemoveReceipts(spool.folder(), each, std::time(nullptr) - kReceiptLife);
    }
  }
}

}  // namespace
}  // namespace VELT::files

extern "C" __attribute__((visibility("default"))) void LinksChanged(const char* sharing_id) {
  try {
    VELT::files::CleanUp(sharing_id);
  } catch (const VELT::files::Refusal&) {  // logged already; the next call tries again
  }
}
