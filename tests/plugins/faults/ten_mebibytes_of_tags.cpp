#include <string>

#include "tests/plugins/faults/Fault.h"

FAULT(Json::Value tag; tag["content"] = std::string(1024, 'x');
      Json::Value& tags = is_page ? result["JSFILE"] : result;
      for (int i = 0; i < 10 * 1024; ++i) tags.append(is_page ? tag["content"] : tag); return true;)
