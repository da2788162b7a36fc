// The time that a request may take.
#pragma once

#include "FastCgi.h"
#include "Scoreboard.h"

namespace VELT::host {

// When the time is over the process ends itself by SIGALRM: the client is answered 504, and the
// seat shows the supervisor which library was open that had been closed when the request began. A
// handler can't be stopped in any other way. One per process, on one thread.
class Deadline {
 public:
  // The seat must outlive the process.
  Deadline(unsigned int seconds, Seat& seat);

  // A request begins. It has no client yet; `Tell` names one, or with null none any more.
  void Start() const;
  void Tell(const ReplyChannel* client);
  // The request has got on: its time begins anew.
  void Extend() const;
  void Stop();

 private:
  unsigned int seconds_;
};

}  // namespace VELT::host
