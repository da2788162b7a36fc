// Conversations with PAM, each in a process of its own.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace VELT::sharing {

struct PamRequest {
  enum class Kind {
    kVisitor,  // every hidden question is answered with the password
    kOwner,    // the questions are answered one after another, as root
    kAccount,  // asks only whether the account may be used, as root
  };

  Kind kind = Kind::kVisitor;
  std::string name;                  // the account's
  std::vector<std::string> answers;  // the password, and an owner's further answers
  std::string address;               // the client's
};

struct PamReply {
  enum class Verdict {
    kRight,
    kWrong,
    kAsks,    // for one more answer than there was, to `question`
    kFailed,  // PAM failed, which is in the log, or did not answer in time
  };

  Verdict verdict = Verdict::kFailed;
  std::string name;        // after kRight, the account's name as PAM has it
  std::string question;    // as PAM words it
  bool hidden = false;     // whether the answer must not be shown as it is typed
  std::string credential;  // after kRight but for a visitor, changes with the account's password
};

// PAM and its modules run in a process of their own, so they can't change this one. For a visitor it
// has the ids of this process. A wrong answer for an account without a password takes as long as for
// one that has one.
PamReply AskPam(const PamRequest& request, std::chrono::milliseconds limit);

}  // namespace VELT::sharing
