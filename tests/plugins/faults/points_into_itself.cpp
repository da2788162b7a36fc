#include "tests/plugins/faults/Fault.h"

FAULT(result[Json::StaticString("SESSION")] = Json::Value(Json::objectValue); return true;)
