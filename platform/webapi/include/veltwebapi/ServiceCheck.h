// What an API module adds to `velt-sharing check`: whether what it needs is there. A module may
// export one C function besides its tables:
//
//   extern "C" void CheckService(VELT::ServiceCheck& check);
//
// It is called in a process of its own, with ids as in a worker: effective ones of the service's
// account, real and saved ones of root. When the service runs and root checks, the process sees the
// files that the service sees. It should change nothing, and has a minute.
#pragma once

#include <string>

namespace VELT {

// Implemented by the program that checks; lives for the call.
class ServiceCheck {
 public:
  enum class State { kOk, kWarning, kFailed };

  // `subject` names what was checked, in a few words that begin with the application's name. `text`
  // says what was found, or what is wrong and what to do.
  virtual void Add(State state, const std::string& subject, const std::string& text) = 0;

 protected:
  ~ServiceCheck() = default;
};

using CheckServiceFunc = void (*)(ServiceCheck& check);

}  // namespace VELT
