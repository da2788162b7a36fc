// The time limit of a request.
#pragma once

#include "host/request/FastCgi.h"
#include "host/watch/Scoreboard.h"

namespace VELT::host {

// A handler that hangs can't be stopped, so the process ends itself by SIGALRM when the time is
// over. Before, it answers the client with 504 and writes into its slot the path of the first
// library that was opened during the request, which is likely the one that hangs. One per process,
// on one thread.
class Deadline {
 public:
  // `slot` must live until the process ends.
  Deadline(unsigned int seconds, Slot& slot);

  // Starts the time of a request. It has no client until SetClient names one.
  void Start() const;
  // The client that gets the 504; null when none may get it any more.
  void SetClient(const Incoming* client);
  // Starts the time again, for a request that makes progress.
  void Extend() const;
  void Stop();

 private:
  unsigned int seconds_;
};

}  // namespace VELT::host
