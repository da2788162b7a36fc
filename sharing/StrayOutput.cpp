#include "sharing/StrayOutput.h"

#include <unistd.h>

#include <cstdio>
#include <cwchar>
#include <iostream>

#include "sharing/Log.h"

namespace VELT::sharing {
namespace {

// Where standard output stands with all of its text written; -1 where it has no position.
off_t Position() {
  std::cout.flush();
  std::fflush(stdout);
  return lseek(STDOUT_FILENO, 0, SEEK_CUR);
}

}  // namespace

StrayOutput::StrayOutput(const std::string& library) : library_(library), begin_(Position()) {
  // A stream that was first used for wide characters would take no others from then on.
  std::fwide(stdout, -1);
}

StrayOutput::~StrayOutput() {
  if (begin_ < 0 || Position() == begin_) return;
  LOG_AT(log_place::kPluginPrinted, LOG_WARNING, "printed text was dropped: %s", library_.c_str());
  lseek(STDOUT_FILENO, begin_, SEEK_SET);
  // Who reads the file to its position and not to its end may have made its length unchangeable.
  static_cast<void>(ftruncate(STDOUT_FILENO, begin_) == 0);
  // Both are in a failed state when there was more text than the file takes.
  std::clearerr(stdout);
  std::cout.clear();
}

}  // namespace VELT::sharing
