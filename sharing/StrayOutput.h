// Standard output, on which the module writes answers of its own, kept clean of what others print.
#pragma once

#include <sys/types.h>

#include <string>

namespace VELT::sharing {

// For its life, whatever is printed to standard output is taken back at the end and logged as
// dropped: text that a stream still holds in its buffer as well, unless the stream is the printing
// library's own. Needs standard output to be a file with a position that this process alone writes
// to; where it is something else, nothing is done.
class StrayOutput {
 public:
  // `library` is what the log line calls the culprit; borrowed for the object's life.
  explicit StrayOutput(const std::string& library);
  ~StrayOutput();
  StrayOutput(const StrayOutput&) = delete;
  StrayOutput& operator=(const StrayOutput&) = delete;

 private:
  const std::string& library_;
  const off_t begin_;
};

}  // namespace VELT::sharing
