// What a condition finds, in which order.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Fixture.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing {

class ListTest : public StoreTest {
 protected:
  using Prepare = std::function<void(db::Condition&)>;

  // Prepares twice, as callers do that count before they read.
  std::vector<std::int64_t> Find(const Prepare& prepare, int want_count = -1) {
    db::EntryDB links(db_);
    int count = 0;
    prepare(*links.GetCondition());
    EXPECT_TRUE(links.Count(count));
    EXPECT_TRUE(want_count < 0 || count == want_count) << count;
    prepare(*links.GetCondition());
    std::vector<Entry> entries;
    EXPECT_TRUE(links.Query(entries));
    std::vector<std::int64_t> ids(entries.size());
    std::transform(entries.begin(), entries.end(), ids.begin(),
                   [](const Entry& entry) { return entry.get_id(); });
    return ids;
  }
};
VELT_ON_EVERY_DATABASE(ListTest);

TEST_P(ListTest, FiltersAndSortsByEveryPlainFieldAndRefusesOthers) {
  const Entry low = Make();
  now_ += 1;
  const Entry high = Make([](Entry& entry) {
    WithPassword()(entry);
    entry.set_owner_uid(kBob);
    entry.set_project_name("b'; drop table link --");
    entry.set_auto_gc(true);
    entry.set_enable_match_ip(true);
    StartingAt("2026-01-02 03:04:05")(entry);
    EndingAt("2099-01-02 03:04:05")(entry);
    entry.set_expire_times(5);
    entry.set_protect_title("t");
    entry.set_redirect_type(Entry::RedirectType::kUrlParam);
    entry.set_redirect_uri("/u");
  });
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, high, kPassword), 1);
  ASSERT_TRUE(Change(low, Set(&Entry::set_enabled, false)));
  const Json::Value shown = Shown(high);
  for (const char* field :
       {"project_name", "owner_uid", "enabled", "auto_gc", "enable_match_ip", "start_at",
        "expire_at", "expire_times", "visits", "protect_type", "protect_title", "redirect_type",
        "redirect_uri", "created_at", "sharing_id"}) {
    EXPECT_EQ(Find([&](auto& c) { c.Where(field, shown[field].asString()); }, 1),
              std::vector{high.get_id()})
        << field;
    const auto ascending = Find([&](auto& c) { c.OrderBy(field, true); });
    auto descending = Find([&](auto& c) { c.OrderBy(field, false); });
    std::reverse(descending.begin(), descending.end());
    EXPECT_EQ(ascending, descending) << field;
    EXPECT_TRUE(ascending.front() == low.get_id() || field == std::string("sharing_id")) << field;
  }
  EXPECT_TRUE(Find([](auto& c) { c.Where("owner_uid", "7001 or 1=1"); }, 0).empty());
  EXPECT_TRUE(Find([](auto& c) { c.Where("protect_title", "\xFF"); }, 0).empty());
  EXPECT_TRUE(
      Find([](auto& c) { c.Where("owner_uid", "7001"), c.Where("owner_uid", "7002"); }, 0).empty());
  for (const char* field :
       {"", "id", "hash", "status", "private_data", "password_hash", "visits desc", "1;--"}) {
    for (const bool filter : {true, false}) {
      db::EntryDB links(db_);
      std::vector<Entry> entries;
      int count = 0;
      filter ? links.GetCondition()->Where(field, "x") : links.GetCondition()->OrderBy(field, true);
      Log().clear();
      EXPECT_FALSE(links.Count(count) || links.Query(entries)) << field;
      EXPECT_EQ(Log().size(), 2U);
    }
  }
}

TEST_P(ListTest, PagesOverEqualKeysHoldEveryLinkOnce) {
  std::vector<std::int64_t> want(23);
  for (int index = 0; auto& id : want) id = Make(WithVisits(index++ % 2)).get_id();
  std::vector<std::int64_t> found;
  for (int offset = 0; offset < 25; offset += 5) {
    const auto page =
        Find([&](auto& c) { c.OrderBy("expire_times", false), c.Limit(offset, 5); }, 23);
    found.insert(found.end(), page.begin(), page.end());
  }
  std::stable_partition(want.begin(), want.end(),
                        [&](auto id) { return (id - want.front()) % 2 == 1; });
  EXPECT_EQ(found.size(), 23U);
  EXPECT_TRUE(std::is_permutation(found.begin(), found.end(), want.begin()));
  EXPECT_EQ(found, Find([](auto& c) { c.OrderBy("expire_times", false), c.Limit(-1, -1); }));

  constexpr int kMost = std::numeric_limits<int>::max();
  const std::vector<std::tuple<int, int, std::size_t>> sizes = {
      {-1, 4, 4},    {20, -1, 3}, {0, 0, 0}, {kMost, kMost, 0}, {-kMost - 1, -kMost - 1, 23},
      {22, kMost, 1}};
  for (const auto& [offset, limit, size] : sizes) {
    const auto limited = [o = offset, l = limit](auto& c) { c.Limit(o, l); };
    EXPECT_EQ(Find(limited, 23).size(), size) << offset << " " << limit;
  }
}

// A map beside the store, and a thousand random calls.
TEST_P(ListTest, AgreesWithAModel) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&random](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  struct Model {
    Entry entry;
    int times;
    unsigned int owner;
  };
  std::map<std::int64_t, Model> model;
  for (int call = 0; call < 1000; ++call) {
    const int kind = model.empty() ? 0 : below(10);
    auto chosen = model.begin();
    if (!model.empty()) std::advance(chosen, below(static_cast<int>(model.size())));
    if (kind < 4) {
      const int times = below(5);
      const unsigned int owner = below(2) == 0 ? kAlice : kBob;
      const Entry made =
          Make([&](Entry& entry) { entry.set_owner_uid(owner), entry.set_expire_times(times); });
      ASSERT_TRUE(model.emplace(made.get_id(), Model{made, times, owner}).second);
    } else if (kind < 7) {
      chosen->second.times = below(5);
      ASSERT_TRUE(Change(chosen->second.entry, WithVisits(chosen->second.times)));
    } else if (kind < 9) {
      ASSERT_TRUE(links_.Delete(chosen->second.entry));
      model.erase(chosen);
    } else {
      std::vector<std::pair<int, std::int64_t>> want;
      for (const auto& [id, each] : model) {
        if (each.owner == kBob) want.emplace_back(each.times, id);
      }
      std::sort(want.begin(), want.end());
      const auto offset = static_cast<std::size_t>(below(20));
      std::vector<std::int64_t> page;
      for (std::size_t at = offset; at < want.size() && at < offset + 7; ++at)
        page.push_back(want[at].second);
      ASSERT_EQ(Find(
                    [&](auto& c) {
                      c.Where("owner_uid", "7002");
                      c.OrderBy("expire_times", true);
                      c.Limit(static_cast<int>(offset), 7);
                    },
                    static_cast<int>(want.size())),
                page);
    }
  }
  const auto all = Find([](auto&) {}, static_cast<int>(model.size()));
  EXPECT_TRUE(std::equal(all.begin(), all.end(), model.begin(),
                         [](auto id, const auto& each) { return id == each.first; }));
}

}  // namespace VELT::sharing
