// What owners are told of their links, when, and what becomes of what can't be sent.
#include <optional>
#include <string>
#include <vector>

#include "tests/store/Fixture.h"
#include "veltsharing/LinkEvents.h"
#include "veltsharing/Notices.h"
#include "veltsharing/Notify.h"
#include "veltsharing/RecordLinkEvents.h"

namespace VELT::sharing {

using notify::Message;
using notify::Notice;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class NotifyTest : public StoreTest {
 protected:
  static constexpr notify::Kinds kAll = 31;
  static constexpr std::int64_t kWait = 2 * kMinute;
  static constexpr const char* kHook = "https://hooks.example/a";

  void SetUp() override {
    StoreTest::SetUp();
    ASSERT_TRUE(notify::Save({kAlice, "alice", "ger"}, kAll, "", kHook));
  }

  static void Happens(const Entry& link, const std::string& kind, const std::string& file = "",
                      const std::string& result = "ok", int days = 90) {
    const LinkEvent event{link.get_hash(), now_, kind, file, result, "203.0.113.0", "Firefox", 1};
    ASSERT_TRUE(RecordLinkEvents({event}, days));
  }

  static std::optional<Message> Take() {
    std::optional<Message> message;
    EXPECT_TRUE(notify::TakeMessage(kWait, message));
    return message;
  }

  // What one message tells, as "KIND TITLE FILE"; the message counts as sent.
  static std::vector<std::string> Told() {
    std::vector<std::string> told;
    const auto message = Take();
    if (!message) return told;
    for (const Notice& notice : message->notices)
      told.push_back(notice.kind + " " + notice.title + " " + notice.file);
    EXPECT_TRUE(notify::ReportMessage(*message, ""));
    return told;
  }
  static std::vector<std::string> ToldLater() {
    now_ += kWait;
    return Told();
  }

  Entry Called(const std::string& title) { return Make(Set(&Entry::set_protect_title, title)); }
};
VELT_ON_EVERY_DATABASE(NotifyTest);

TEST_P(NotifyTest, TellsOfWhatHappensWithinSomeMinutesAtOnce) {
  const Entry link = Called("a");
  Happens(link, "visit");
  EXPECT_THAT(Told(), ElementsAre()) << "more may happen";
  now_ += kWait - 1;
  Happens(link, "download", "x");
  Happens(link, "archive", "y.zip", "ok", 0);  // no events are kept, and told all the same
  Happens(link, "upload", "z");
  Happens(link, "preview", "x");
  Happens(link, "login", "", "refused");
  Happens(link, "login", "", "braked");
  now_ += 1;
  const auto message = Take();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->owner.account + message->owner.language + message->address,
            std::string("alicegerhttps://hooks.example/a"));
  EXPECT_EQ(message->notices.front().link, link.get_hash().substr(0, 6));
  EXPECT_FALSE(message->is_mail);
  EXPECT_FALSE(Take()) << "somebody has it";
  ASSERT_TRUE(notify::ReportMessage(*message, "not now"));
  now_ += kMinute;
  EXPECT_THAT(Told(), ElementsAre("opened a ", "download a x", "download a y.zip", "upload a z",
                                  "guesses a "));
  Happens(link, "visit");
  EXPECT_THAT(ToldLater(), ElementsAre()) << "it was opened before";
}

TEST_P(NotifyTest, TellsOwnersOfTheirOwnLinksWhatTheyWant) {
  const Entry loud = Called("loud");
  const Entry quiet = Called("quiet");
  const Entry theirs = Make([](Entry& entry) { entry.set_owner_uid(kBob); });
  const Entry visited = Called("visited");
  Visitor visitor;
  ASSERT_EQ(LogIn(visitor, visited), kLoggedIn);
  ASSERT_TRUE(notify::Save({kAlice, "alice", "enu"}, notify::kOpened, "", kHook));
  ASSERT_TRUE(notify::SaveOfLink(loud, notify::kUpload | notify::kDownload));
  ASSERT_TRUE(notify::SaveOfLink(quiet, 0));
  for (const Entry& link : {loud, quiet, theirs, visited}) {
    Happens(link, "visit");
    Happens(link, "download", "x");
  }
  EXPECT_THAT(ToldLater(), ElementsAre("download loud x"));
  std::optional<notify::Kinds> kinds;
  ASSERT_TRUE(notify::LoadOfLink(quiet, kinds));
  EXPECT_EQ(kinds, 0);
  ASSERT_TRUE(notify::SaveOfLink(quiet, std::nullopt));
  ASSERT_TRUE(notify::LoadOfLink(quiet, kinds));
  EXPECT_EQ(kinds, std::nullopt);
  Happens(quiet, "visit");
  EXPECT_THAT(ToldLater(), ElementsAre("opened quiet "));
  Happens(quiet, "download");
  Happens(loud, "upload", "for nobody");
  ASSERT_TRUE(notify::Save({kAlice, "alice", "enu"}, kAll, "", ""));
  EXPECT_THAT(ToldLater(), ElementsAre());
}

TEST_P(NotifyTest, TellsOnceThatALinkEndsSoon) {
  const auto ending = [this](std::int64_t in) { return Make(EndingAt(TimeText(now_ + in))); };
  ending(10 * kDay);
  const Entry day = ending(kDay);
  const auto at = [](std::int64_t time) { return "ending  " + TimeText(time); };
  const std::int64_t start = now_;
  ASSERT_TRUE(notify::NoticeEnds());
  EXPECT_THAT(ToldLater(), ElementsAre()) << "it was just made";
  now_ = start + kDay * 3 / 4;
  ASSERT_TRUE(notify::NoticeEnds());
  ASSERT_TRUE(notify::NoticeEnds());
  EXPECT_THAT(ToldLater(), ElementsAre(at(start + kDay)));
  ASSERT_TRUE(Change(day, EndingAt(TimeText(start + kDay + kMinute))));
  ASSERT_TRUE(notify::NoticeEnds());
  EXPECT_THAT(ToldLater(), ElementsAre(at(start + kDay + kMinute))) << "another end";
  now_ = start + 9 * kDay + kMinute;
  ASSERT_TRUE(notify::NoticeEnds());
  EXPECT_THAT(ToldLater(), ElementsAre(at(start + 10 * kDay)));
}

TEST_P(NotifyTest, SendsAgainWhatFailedOrWasLeft) {
  const Entry link = Make();
  Happens(link, "upload", "x");
  now_ += kWait;
  const auto left = Take();  // by a sender that ends before it reports
  ASSERT_TRUE(left);
  Happens(link, "upload", "later");
  now_ += notify::kSendingTime - 1;
  EXPECT_FALSE(Take());
  now_ += 1;
  std::int64_t pause = 0;
  for (int tries = 1; tries <= 9; ++tries) {
    const auto again = Take();
    ASSERT_TRUE(again) << tries;
    EXPECT_EQ(again->id, left->id);
    EXPECT_EQ(again->notices.size(), 1U);
    ASSERT_TRUE(notify::ReportMessage(*again, "no answer"));
    const std::int64_t before = pause;
    for (pause = 0; pause < 2 * 60 * kMinute && !Take(); pause += kMinute) now_ += kMinute;
    EXPECT_TRUE(pause > before || pause == 60 * kMinute) << pause;
    now_ += notify::kSendingTime;  // of the one that was taken in the loop
  }
  notify::Settings settings;
  ASSERT_TRUE(notify::Load(kAlice, settings));
  EXPECT_EQ(settings.webhook.error, "no answer");
  EXPECT_GT(settings.webhook.failing_since, 0);
  EXPECT_EQ(Told().size(), 1U);
  ASSERT_TRUE(notify::Load(kAlice, settings));
  EXPECT_EQ(settings.webhook.error, "");
  const auto next = ToldLater();
  EXPECT_THAT(next, ElementsAre("upload  later"));
}

TEST_P(NotifyTest, GivesUpAfterADayAndKeepsABoundedNumber) {
  const Entry link = Make();
  for (int at = 0; at < 1001; ++at) Happens(link, "upload", std::to_string(at));
  now_ += kWait;
  auto message = Take();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->notices.size(), 1000U);
  ASSERT_TRUE(notify::ReportMessage(*message, "no"));
  now_ += notify::kPatience;
  Happens(link, "upload", "new");  // there is no room for it
  message = Take();
  ASSERT_TRUE(message);
  ASSERT_TRUE(notify::ReportMessage(*message, "no"));
  Happens(link, "upload", "newer");
  now_ += 60 * kMinute;
  EXPECT_THAT(ToldLater(), ElementsAre("upload  newer"));
}

TEST_P(NotifyTest, MailsNothingButACodeBeforeItIsConfirmed) {
  const Entry link = Make();
  const auto save = [](const std::string& mail) {
    return notify::Save({kAlice, "alice", "enu"}, kAll, mail, "");
  };
  ASSERT_TRUE(save("wrong@example.com"));
  ASSERT_TRUE(save("alice@example.com"));
  Happens(link, "upload", "unconfirmed");
  auto message = Take();
  ASSERT_TRUE(message);
  ASSERT_TRUE(notify::ReportMessage(*message, "no mail server"));
  now_ += kMinute;
  message = Take();
  ASSERT_TRUE(message) << "a code is sent again too";
  EXPECT_EQ(message->address, "alice@example.com");
  ASSERT_EQ(message->notices.size(), 1U);
  EXPECT_EQ(message->notices[0].kind, "confirm");
  ASSERT_TRUE(notify::ReportMessage(*message, ""));
  bool confirmed = true;
  ASSERT_TRUE(notify::Confirm(kAlice, "wrong", confirmed));
  EXPECT_FALSE(confirmed);
  ASSERT_TRUE(notify::Confirm(kAlice, "", confirmed));
  EXPECT_FALSE(confirmed);
  ASSERT_TRUE(notify::Confirm(kBob, message->notices[0].file, confirmed));
  EXPECT_FALSE(confirmed);
  ASSERT_TRUE(notify::Confirm(kAlice, message->notices[0].file, confirmed));
  EXPECT_TRUE(confirmed);
  ASSERT_TRUE(save("alice@example.com")) << "the same address stays confirmed";
  Happens(link, "upload", "confirmed");
  EXPECT_THAT(ToldLater(), ElementsAre("upload  confirmed"));
  // Another address waits for its turn, so that nobody can be sent codes without end.
  ASSERT_TRUE(save("other@example.com"));
  EXPECT_FALSE(Take());
  now_ += kMinute;
  EXPECT_EQ(Told().size(), 1U);
}

TEST_P(NotifyTest, WhatWasSentToAnEarlierAddressSaysNothingOfTheNext) {
  const Entry link = Make();
  Happens(link, "upload", "old");
  now_ += kWait;
  const auto message = Take();
  ASSERT_TRUE(message);
  ASSERT_TRUE(notify::Save({kAlice, "alice", "enu"}, kAll, "", "https://other.example"));
  Happens(link, "upload", "new");
  ASSERT_TRUE(notify::ReportMessage(*message, ""));
  EXPECT_THAT(ToldLater(), ElementsAre("upload  new"));
}

TEST_P(NotifyTest, EachMessageIsTakenOnce) {
  ASSERT_TRUE(notify::Save({kBob, "bob", "enu"}, kAll, "", kHook));
  for (const unsigned int uid : {kAlice, kBob}) {
    Happens(Make([uid](Entry& entry) { entry.set_owner_uid(uid); }), "upload", "x");
  }
  now_ += kWait;
  const auto taken = InProcesses(4, [](int) { return Take() ? 1 : 0; });
  EXPECT_EQ(std::count(taken.begin(), taken.end(), 1), 2);
  now_ += notify::kSendingTime;
  EXPECT_THAT((std::vector{Told(), Told()}),
              UnorderedElementsAre(ElementsAre("upload  x"), ElementsAre("upload  x")));
}

}  // namespace VELT::sharing
