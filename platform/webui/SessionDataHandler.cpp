#include "veltweb/SessionDataHandler.h"

namespace VELT::TALD {

SessionDataHandler::SessionDataHandler(APIRequest* /*request*/) {}

void SessionDataHandler::GetLoginStyleParam(Json::Value& /*session*/) {}

void SessionDataHandler::GetFooterInfo(Json::Value& /*session*/) {}

}  // namespace VELT::TALD
