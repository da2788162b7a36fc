// Standard output of the process, caught while a handler runs.
#pragma once

#include <optional>
#include <string>

#include "veltsys/Descriptor.h"

namespace VELT::host {

// From its construction on, standard output is a memory file. One per process, on one thread.
class OutputCapture {
 public:
  OutputCapture();  // throws std::system_error
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;
  ~OutputCapture() = default;

  // Forgets what was printed so far.
  void Begin();
  // What was printed since; nothing when it was more than kLargestOutput bytes.
  std::optional<std::string> End();

 private:
  const Descriptor file_;
};

}  // namespace VELT::host
