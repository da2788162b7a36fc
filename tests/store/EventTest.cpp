// What is kept of what visitors did.
#include <string>
#include <vector>

#include "tests/store/Fixture.h"
#include "veltsharing/LinkEvents.h"
#include "veltsharing/RecordLinkEvents.h"

namespace VELT::sharing {

class EventTest : public StoreTest {
 protected:
  static LinkEvent Of(const Entry& link, const std::string& kind, const std::string& file = "") {
    return {link.get_hash(), now_, kind, file, "ok", "203.0.113.0", "Firefox, Linux", 1};
  }

  static std::vector<std::string> Files(const Entry& link, LinkEventFilter filter, int want_total) {
    std::vector<LinkEvent> events;
    int total = -1;
    EXPECT_TRUE(ListLinkEvents(link, filter, events, total));
    EXPECT_EQ(total, want_total);
    std::vector<std::string> files;
    for (const LinkEvent& event : events) files.push_back(event.file);
    return files;
  }
};
VELT_ON_EVERY_DATABASE(EventTest);

TEST_P(EventTest, ListsTheNewestFirst) {
  const Entry link = Make();
  const Entry other = Make();
  LinkEvent gone = Of(link, "download", "x");
  gone.link = "none such";
  ASSERT_TRUE(RecordLinkEvents({Of(link, "download", "a"), Of(other, "download", "b"), gone}, 90));
  now_ += 10;
  ASSERT_TRUE(RecordLinkEvents({Of(link, "upload", "c'"), Of(link, "download", "d")}, 90));
  using Files_ = std::vector<std::string>;
  EXPECT_EQ(Files(link, {"", 0, 0, 50}, 3), (Files_{"d", "c'", "a"}));
  EXPECT_EQ(Files(link, {"download", 0, 1, 1}, 2), Files_{"a"});
  EXPECT_EQ(Files(link, {"", now_ - 10, 0, 50}, 2), (Files_{"d", "c'"}));
  EXPECT_EQ(Files(other, {"", 0, 0, 50}, 1), Files_{"b"});
  ASSERT_TRUE(links_.Delete(link));
  EXPECT_EQ(Select("select count(*) || '' from link_event"), "1");
}

TEST_P(EventTest, KeepsNeitherOldNorTooManyEvents) {
  const Entry link = Make();
  const Entry quiet = Make();
  ASSERT_TRUE(RecordLinkEvents({Of(quiet, "visit"), Of(link, "visit", "first")}, 90));
  for (int batch = 0; batch < 3; ++batch) {
    ASSERT_TRUE(RecordLinkEvents(std::vector(400, Of(link, "visit", std::to_string(batch))), 90));
  }
  EXPECT_EQ(Files(link, {"", 0, 999, 2}, 1000), std::vector<std::string>{"0"});
  now_ += 90 * kDay + 1;
  ASSERT_TRUE(RecordLinkEvents({Of(quiet, "visit", "new")}, 90));
  EXPECT_EQ(Files(quiet, {"", 0, 0, 50}, 1), std::vector<std::string>{"new"});
  ASSERT_TRUE(RecordLinkEvents({}, 90));
  EXPECT_EQ(Select("select count(*) || '' from link_event"), "1") << "a thousand at a time";
  now_ += 1;
  ASSERT_TRUE(RecordLinkEvents({}, 0));
  EXPECT_EQ(Select("select count(*) || '' from link_event"), "0");
}

}  // namespace VELT::sharing
