#include "tests/plugins/faults/Fault.h"

FAULT(result[is_page ? "JSFILE" : "x"] = "/pkg/app.js"; return false;)
