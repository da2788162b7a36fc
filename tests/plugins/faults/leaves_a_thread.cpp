#include <unistd.h>

#include <thread>

#include "Fault.h"

FAULT(std::thread([] { pause(); }).detach(); result = Json::Value(Json::objectValue);
      return is_page;)
