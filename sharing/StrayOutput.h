// Keeps what plugin libraries print out of standard output, where the module writes its answers.
#pragma once

#include <sys/types.h>

#include <string>

namespace VELT::sharing {

// The destructor removes, and logs as dropped, what was printed to standard output since the
// constructor, including text that is still in the buffers of stdout and std::cout. It can't know
// of a buffer that belongs to the library itself. Standard output must be a file that this process
// alone writes; where it has no position, a pipe for instance, nothing is done.
class StrayOutput {
 public:
  // The log line names `library`, which is borrowed for the object's life.
  explicit StrayOutput(const std::string& library);
  ~StrayOutput();
  StrayOutput(const StrayOutput&) = delete;
  StrayOutput& operator=(const StrayOutput&) = delete;

 private:
  const std::string& library_;
  const off_t begin_;
};

}  // namespace VELT::sharing
