// The pre-checks of the methods: each judges a request's parameters before its handler runs. False:
// error 120 with the first bad parameter's name and the reason is on the response.
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
