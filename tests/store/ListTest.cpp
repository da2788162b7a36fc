// What a condition finds, in which order.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/store/EntryQuery.h"
#include "platform/store/sql/Dialect.h"
#include "tests/store/Fixture.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing {

// Random numbers, other ones in each run unless VELT_TEST_SEED repeats one.
class Random {
 public:
  std::string Seed() const { return "VELT_TEST_SEED=" + std::to_string(seed_); }
  // From 0 to `limit` - 1.
  int operator()(int limit) { return static_cast<int>(engine_() % static_cast<unsigned>(limit)); }

 private:
  static unsigned int NewSeed() {
    const char* given = std::getenv("VELT_TEST_SEED");
    return given != nullptr ? static_cast<unsigned int>(std::stoul(given)) : std::random_device()();
  }

  const unsigned int seed_ = NewSeed();
  std::mt19937 engine_{seed_};
};

const std::vector<std::string> kFields = {
    "sharing_id", "project_name", "owner_uid",    "enabled",       "auto_gc",
    "start_at",   "expire_at",    "expire_times", "visits",        "enable_match_ip",
    "created_at", "protect_type", "redirect_uri", "protect_title", "redirect_type"};

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
  ASSERT_EQ(LogIn(visitor, high, kPassword), kLoggedIn);
  ASSERT_TRUE(Change(low, Set(&Entry::set_enabled, false)));
  const Json::Value shown = Shown(high);
  for (const std::string& field : kFields) {
    EXPECT_EQ(Find([&](auto& c) { c.Where(field, shown[field].asString()); }, 1),
              std::vector{high.get_id()})
        << field;
    const auto ascending = Find([&](auto& c) { c.OrderBy(field, true); });
    auto descending = Find([&](auto& c) { c.OrderBy(field, false); });
    std::reverse(descending.begin(), descending.end());
    EXPECT_EQ(ascending, descending) << field;
    EXPECT_TRUE(ascending.front() == low.get_id() || field == "sharing_id") << field;
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

TEST_P(ListTest, SearchesTitlesInEitherCaseAndTheBeginningOfIds) {
  const auto titled = [this](const char* title) {
    return Make(Set(&Entry::set_protect_title, std::string(title)));
  };
  const Entry autumn = titled("Übung im Herbst 100%");
  const Entry spring = titled("übung_ im \xD0\x9C\xD0\x90\xD0\x99, 100 links");
  const Entry other = titled("");
  const std::string id = other.get_hash();
  using Ids = std::vector<std::int64_t>;
  const std::vector<std::pair<std::string, Ids>> rows = {
      {"ÜBUNG", {autumn.get_id(), spring.get_id()}},
      {"\xD0\xBC\xD0\xB0\xD0\xB9", {spring.get_id()}},
      {"100%", {autumn.get_id()}},
      {"g_", {spring.get_id()}},
      {"' or 1=1 --", {}},
      {"\xFF", {}},
      {"", {autumn.get_id(), spring.get_id(), other.get_id()}},
      {id, {other.get_id()}},
      {id.substr(0, 6), {other.get_id()}},
      {id.substr(0, 5), {}},
      {id.substr(1, 6), {}}};
  for (const auto& [text, expected] : rows) {
    const int count = static_cast<int>(expected.size());
    const auto search = [&, t = text](auto& c) { c.Search(t), c.OrderBy("created_at", true); };
    EXPECT_EQ(Find(search, count), expected) << text;
    const auto page =
        Find([&](auto& c) { search(c), c.Limit(1, 1), c.Where("owner_uid", "7001"); }, count);
    EXPECT_EQ(page, count > 1 ? Ids{expected[1]} : Ids{}) << text;
  }
}

TEST_P(ListTest, FindsWhatIsShared) {
  const Entry entry = Make([](Entry& made) {
    Json::Value app;
    app["items"].append(
        "Fotos/\xC3\x9C"
        "bung \"1\"");
    made.set_app(app);
  });
  Make(Set(&Entry::set_protect_title, std::string("Fotos")));
  EXPECT_EQ(Find([](auto& c) { c.Search("fotos/\xC3\xBC"); }, 1), std::vector{entry.get_id()});
  EXPECT_EQ(Find([](auto& c) { c.Search("fotos"); }).size(), 2U);
}

TEST_P(ListTest, FindsLinksByTheStateThatTheyShow) {
  for (int kind = 0; kind < 2 * 3 * 3 * 3; ++kind) {
    const Entry entry = Make([kind](Entry& made) {
      constexpr const char* kTimes[] = {"", "2001-01-01 00:00:00", "2099-01-01 00:00:00"};
      StartingAt(kTimes[kind % 3])(made);
      EndingAt(kTimes[kind / 3 % 3])(made);
      made.set_expire_times(kind / 9 % 3);
    });
    Visitor visitor;
    LogIn(visitor, entry);  // refused by some
    if (kind >= 27) {
      ASSERT_TRUE(Change(entry, Set(&Entry::set_enabled, false)));
    }
  }
  std::map<LinkStatus, std::vector<std::int64_t>> expected;
  db::EntryDB links(db_);
  std::vector<Entry> entries;
  ASSERT_TRUE(links.Query(entries));
  for (const Entry& entry : entries) expected[entry.get_status()].push_back(entry.get_id());
  ASSERT_EQ(expected.size(), 5U);
  for (const auto& [status, ids] : expected) {
    const auto in_state = [kept = status](auto& c) {
      c.InState(kept), c.OrderBy("created_at", true);
    };
    EXPECT_EQ(Find(in_state, static_cast<int>(ids.size())), ids) << static_cast<int>(status);
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
  std::reverse(want.begin(), want.end());
  std::stable_partition(want.begin(), want.end(),
                        [first = want.back()](auto id) { return (id - first) % 2 == 1; });
  EXPECT_EQ(found, want) << "equal ones in the same direction";
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
  Random below;
  SCOPED_TRACE(below.Seed());
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

// Owners with so few links that theirs are sorted, and with so many that the others' are left out;
// links that change, move between owners and projects, and go; projects as long as no index takes.
TEST_P(ListTest, CountsAndPagesOfEveryOrderAgreeWithBruteForce) {
  Random below;
  SCOPED_TRACE(below.Seed());
  const std::string tail(3000, 'x');
  const std::vector<std::string> projects = {"",     "album",          "files",
                                             "many", "a" + tail + "1", "a" + tail + "2"};
  const std::vector<std::string> titles = {"", "Z", "a", "\u00e4", "b" + tail};
  const auto edit = [&](Entry& entry) {
    entry.set_owner_uid(below(12) == 0 ? kAlice : kBob);
    entry.set_project_name(projects.at(static_cast<std::size_t>(below(20) < 12 ? 3 : below(6))));
    entry.set_protect_title(titles.at(static_cast<std::size_t>(below(5))));
    entry.set_redirect_uri(titles.at(static_cast<std::size_t>(below(5))));
    entry.set_enabled(below(2) == 0);
    entry.set_auto_gc(below(2) == 0);
    entry.set_enable_match_ip(below(2) == 0);
    entry.set_expire_times(below(4));
    entry.set_start_at_str(below(2) == 0 ? "" : TimeText(now_ - below(3) * kDay), kFormat);
    entry.set_expire_at_str(below(2) == 0 ? "" : TimeText(now_ + below(3) * kDay), kFormat);
  };
  std::vector<Entry> made;
  for (int link = 0; link < 150; ++link) {
    now_ += below(2);
    made.push_back(Make(edit));
  }
  for (int change = 0; change < 60; ++change) {
    ASSERT_TRUE(Change(made.at(static_cast<std::size_t>(below(150))), edit));
  }
  for (std::size_t link = 0; link < made.size(); link += 9)
    ASSERT_TRUE(links_.Delete(made.at(link)));
  Execute("update link set visits = id % 7, protect_type = id % 3, redirect_type = id % 2");

  // Each link's fields as the database has them, compared by C++.
  const auto stored = [&](const std::string& column) {
    std::map<std::int64_t, std::string> values;
    std::string value;
    long long id = 0;
    const auto sql = db::OpenSession(connection_);
    soci::statement rows = (sql->prepare << "select id, " << column << " || '' from link",
                            soci::into(id), soci::into(value));
    rows.execute();
    while (rows.fetch()) values[id] = value;
    return values;
  };
  const auto owners = stored("owner_uid");
  const auto projects_of = stored("project_name");
  std::vector<std::string> orders = kFields;
  orders.emplace_back("");
  for (const std::string& field : orders) {
    const auto values = stored(field.empty() ? "id" : field == "sharing_id" ? "hash" : field);
    const bool is_text = field == "project_name" || field == "protect_title" ||
                         field == "redirect_uri" || field == "sharing_id";
    for (const std::string owner : {"", "7001", "7002", "7003"}) {
      for (std::size_t project = 0; project <= projects.size(); ++project) {
        const bool any_project = project == projects.size();
        std::vector<std::tuple<long long, std::string, std::int64_t>> want;
        for (const auto& [id, value] : values) {
          if (!owner.empty() && owners.at(id) != owner) continue;
          if (!any_project && projects_of.at(id) != projects.at(project)) continue;
          // Of a long text, PostgreSQL's order knows the start.
          want.emplace_back(is_text ? 0 : std::stoll(value),
                            is_text ? (IsSqlite() ? value : value.substr(0, 255)) : "", id);
        }
        std::sort(want.begin(), want.end());
        const bool ascending = field.empty() || below(2) == 0;
        if (!ascending) std::reverse(want.begin(), want.end());
        const int offset = below(static_cast<int>(want.size()) + 2);
        std::vector<std::int64_t> page;
        for (auto at = static_cast<std::size_t>(offset); at < want.size() && page.size() < 20;
             ++at) {
          page.push_back(std::get<std::int64_t>(want.at(at)));
        }
        ASSERT_EQ(Find(
                      [&](auto& c) {
                        if (!field.empty()) c.OrderBy(field, ascending);
                        if (!owner.empty()) c.Where("owner_uid", owner);
                        if (!any_project) c.Where("project_name", projects.at(project));
                        c.Limit(offset, 20);
                      },
                      static_cast<int>(want.size())),
                  page)
            << field << " " << ascending << " " << owner << " " << project << " " << offset;
      }
    }
  }
  EXPECT_TRUE(Find([](auto& c) { c.Where("owner_uid", "4294967295"); }, 0).empty());
  for (const Entry& entry : made) links_.Delete(entry);
  EXPECT_EQ(Select("select count(*) || '' from link_count"), "0");
}

// What the database would do for a page.
std::string PlanOf(soci::session& sql, const db::Condition& condition) {
  const db::Dialect& dialect = db::DialectOf(sql);
  std::string text = db::EntryQuery(condition).SelectPage(dialect);
  for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
           {":value0", "'7001'"}, {":value1", "'album'"}, {":limit", "50"}, {":offset", "9"}}) {
    for (std::size_t at = 0; (at = text.find(name)) != std::string::npos;) {
      text.replace(at, name.size(), value);
    }
  }
  const bool sqlite = *dialect.unindexed != '\0';
  const soci::rowset<soci::row> rows = sql.prepare
                                       << (sqlite ? "explain query plan " : "explain ") + text;
  std::string plan = text + "\n";
  for (const soci::row& row : rows) plan += row.get<std::string>(sqlite ? 3 : 0) + "\n";
  return plan;
}

// Everybody's, an owner's, a project's and an owner's of a project.
TEST_P(ListTest, PageIsReadInItsOrderFromAnIndex) {
  const auto sql = db::OpenSession(connection_);
  for (const char* what : {"sort", "incremental_sort", "seqscan", "bitmapscan"}) {
    if (!IsSqlite()) *sql << std::string("set enable_") + what + " = off";  // for a small table
  }
  for (const std::string& field : kFields) {
    for (const bool ascending : {true, false}) {
      for (const std::vector<const char*>& filters : std::vector<std::vector<const char*>>{
               {}, {"owner_uid"}, {"project_name"}, {"owner_uid", "project_name"}}) {
        db::Condition condition;
        for (const char* filter : filters) condition.Where(filter, "7001");
        condition.OrderBy(field, ascending);
        condition.Limit(9, 50);
        const std::string plan = PlanOf(*sql, condition);
        EXPECT_THAT(plan, testing::Not(testing::AnyOf(testing::HasSubstr("TEMP B-TREE"),
                                                      testing::HasSubstr("Sort"),
                                                      testing::HasSubstr("Seq Scan"))));
        if (!IsSqlite()) continue;
        EXPECT_THAT(plan, testing::HasSubstr("USING COVERING INDEX"));
        EXPECT_EQ(plan.find("SCAN link") == std::string::npos, !filters.empty()) << plan;
      }
    }
  }
}

}  // namespace VELT::sharing
