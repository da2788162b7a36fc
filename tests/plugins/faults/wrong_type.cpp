#include "tests/plugins/faults/Fault.h"

FAULT(result = Json::Value(is_page ? Json::arrayValue : Json::objectValue); return true;)
