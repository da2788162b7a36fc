#include <unistd.h>

#include <cstdio>
#include <cwchar>
#include <iostream>

#include "tests/plugins/faults/Fault.h"

namespace {

// A library can print until it is closed.
struct Closing {
  ~Closing() { std::printf("\r\n\r\nclosed"); }
} const closing;

}  // namespace

FAULT(std::fputws(L"in wide characters", stdout); std::printf("a stray line");
      std::cout << "another"; if (write(STDOUT_FILENO, "a third", 7) != 7) return false;
      std::printf("left in the buffer");
      result = Json::Value(is_page ? Json::objectValue : Json::arrayValue); return true;)
