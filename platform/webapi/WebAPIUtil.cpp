#include "veltwebapi/WebAPIUtil.h"

#include "veltsys/JsonText.h"

namespace VELT {

Json::Value WebAPIUtil::ParseJson(const std::string& text) {
  Json::Value value;
  ParseJsonText(text, value);
  return value;
}

}  // namespace VELT
