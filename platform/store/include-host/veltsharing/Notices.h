// The queue of what owners are to be told, for the process that tells them.
//
// Several processes, on several hosts, may take messages at once. Each message is taken by one of
// them; when that one ends before it has told what became of it, another takes it after some
// minutes. So a message can be sent twice, and then has the same id.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltsharing/Notify.h"

namespace VELT::sharing::notify {

// How long the sender may take for one message.
inline constexpr int kSendingTime = 5 * 60;  // seconds
// After this a message is given up, and so are notices that wait because another one fails.
inline constexpr std::int64_t kPatience = std::int64_t{24} * 60 * 60;

struct Notice {
  std::int64_t time = 0;  // seconds since 1970; 0: none
  std::string kind;       // one of kKindNames, "test" or "confirm"
  std::string link;       // the beginning of the id in the link's address
  std::string title;      // the link's
  // What it was about, as visitors read it; with "ending" the end, with "confirm" the code; may be
  // empty.
  std::string file;
  std::int64_t times = 1;
};

struct Message {
  std::string id;
  long long channel = 0;
  bool is_mail = false;
  std::string address;
  std::string secret;  // of a webhook
  Owner owner;
  std::vector<Notice> notices;  // the oldest first
};

// Takes the message that is due first: one whose oldest notice has waited for `wait` seconds, so
// that what happens within that time is told at once, or one that failed some time ago. What is
// newly sent comes before what failed. False when the database can't be used; `message` is empty
// when none is due.
bool TakeMessage(std::int64_t wait, std::optional<Message>& message);
// What became of it: sent when `error` is empty. Else it is due again after a pause that grows from
// a minute to an hour, until its notices are older than kPatience.
bool ReportMessage(const Message& message, const std::string& error);

// The messages of a try for the owner's addresses, without queueing them.
bool TestMessages(unsigned int uid, std::vector<Message>& messages);

// Queues notices of links that are about to end, each time that a link has once.
bool NoticeEnds();

}  // namespace VELT::sharing::notify
