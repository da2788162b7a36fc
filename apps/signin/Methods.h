// The methods of VELT.Core.SignIn. For each: `request` and `response` are the host's.
#pragma once

#include <string>

#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/ErrorCodes.h"

namespace VELT::signin {

enum Code {
  kWrong = 3000,     // account, password or an answer
  kQuestion = 3001,  // one more answer is wanted; the detail is the question
  kBraked = 3002,    // too many attempts have failed; the detail says when to try again
  kNotByToken = 3003,
  kNotThere = 3004,  // no session or token of this id
  kTooMany = 3005,   // tokens
  kNotPossible = 3006,
};

void Login(APIRequest* request, APIResponse* response);
void Logout(APIRequest* request, APIResponse* response);
void Get(APIRequest* request, APIResponse* response);
void SessionList(APIRequest* request, APIResponse* response);
void SessionEnd(APIRequest* request, APIResponse* response);
void TokenCreate(APIRequest* request, APIResponse* response);
void TokenList(APIRequest* request, APIResponse* response);
void TokenDelete(APIRequest* request, APIResponse* response);

}  // namespace VELT::signin
