#include "veltsharing/Entry.h"

// What becomes of the function without the interface's header.
__attribute__((visibility("default"))) bool CustomPageFunc(
    const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
    const Json::Value& /*extra*/, Json::Value& /*result*/) {
  return true;
}
