// The handlers of VELT.Notify (webapi.d/VELT.Visits.json).
#pragma once

#include "veltwebapi/APITable.h"

namespace VELT::visits {

void NotifyGet(APIRequest* request, APIResponse* response);
void NotifySet(APIRequest* request, APIResponse* response);
void NotifyLinkSet(APIRequest* request, APIResponse* response);
void NotifyConfirm(APIRequest* request, APIResponse* response);
void NotifySecret(APIRequest* request, APIResponse* response);
void NotifyTest(APIRequest* request, APIResponse* response);

}  // namespace VELT::visits
