#include "sharing/StrayOutput.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cwchar>
#include <iostream>

#include "sharing/Log.h"
#include "sharing/LogPlaces.h"

namespace VELT::sharing {
namespace {

// The position of standard output after all buffered text was written; -1 when it has none.
off_t Position() {
  std::cout.flush();
  std::fflush(stdout);
  return lseek(STDOUT_FILENO, 0, SEEK_CUR);
}

}  // namespace

StrayOutput::StrayOutput(const std::string& library) : library_(library), begin_(Position()) {
  // The first use of a stream decides whether it takes bytes or wide characters. It must be bytes.
  std::fwide(stdout, -1);
}

StrayOutput::~StrayOutput() {
  if (begin_ < 0 || Position() == begin_) return;
  LOG_AT(log_place::kPluginPrinted, LOG_WARNING, "printed text was dropped: %s", library_.c_str());
  lseek(STDOUT_FILENO, begin_, SEEK_SET);
  // Fails where the file's size is sealed. Such a file is read up to its position, not to its end.
  static_cast<void>(ftruncate(STDOUT_FILENO, begin_) == 0);
  // Both are in an error state when the text did not fit into the file.
  std::clearerr(stdout);
  std::cout.clear();
}

}  // namespace VELT::sharing
