#include <unistd.h>

#include <thread>

#include "tests/plugins/faults/Fault.h"

FAULT(std::thread([] { pause(); }).detach(); result = Json::Value(Json::objectValue);
      return is_page;)
