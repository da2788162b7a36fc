#include <cstdio>

#include "Fault.h"

FAULT(std::puts("a stray line");
      result = Json::Value(is_page ? Json::objectValue : Json::arrayValue); return true;)
