// The pre-checks of the methods. Each checks a request's parameters before the handler runs. When it
// returns false, it has set error 120 with the name of the first bad parameter and the reason.
#pragma once

namespace VELT {

class APIRequest;
class APIResponse;

bool CheckSharingSessionParams(APIRequest* request, APIResponse* response);
bool CheckSharingInitdataParams(APIRequest* request, APIResponse* response);
bool CheckSharingLoginParams(APIRequest* request, APIResponse* response);
bool CheckSharingSetParams(APIRequest* request, APIResponse* response);
bool CheckSharingGetParams(APIRequest* request, APIResponse* response);
bool CheckSharingListParams(APIRequest* request, APIResponse* response);
bool CheckSharingTriggerGCParams(APIRequest* request, APIResponse* response);
bool CheckSharingLogoutParams(APIRequest* request, APIResponse* response);
bool CheckSharingDeleteParams(APIRequest* request, APIResponse* response);

}  // namespace VELT
