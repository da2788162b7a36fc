// An API module with one method for each way in which a handler can go right or wrong.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"

namespace {

using VELT::APIRequest;
using VELT::APIResponse;

void Echo(APIRequest* request, APIResponse* response) {
  Json::Value data;
  data["pid"] = getpid();
  data["uid"] = request->GetLoginUID();
  data["euid"] = geteuid();
  data["admin"] = request->IsAdmin();
  data["sharing"] = request->IsSharing();
  data["id"] = request->GetSharingID();
  data["sid"] = request->GetSharingSID();
  data["url"] = request->GetSharingURL("");
  data["language"] = request->GetUILanguage();
  data["value"] = request->GetParam("value", "");
  if (request->HasParam("cookie")) {
    const std::string value = request->GetParam("cookie", "").asString();
    data["added"] = response->AddCookie("/", "sid", value, 0, "", false, false);
  }
  response->SetSuccess(data);
}

void Raw(APIRequest*, APIResponse* response) {
  response->SetEnableOutput(false);
  std::printf("Content-Type: text/x-raw\r\n\r\n%d", getpid());
}

void Print(APIRequest* request, APIResponse* response) {
  std::puts("Content-Type: text/html\r\n\r\nnot to be seen");
  Echo(request, response);
}

void Crash(APIRequest*, APIResponse*) {
  std::signal(SIGTERM, SIG_DFL);
  std::raise(SIGKILL);
}

// Until somebody who reads the file connects, or the time limit is over.
void Hang(APIRequest* request, APIResponse* response) {
  const std::string path = request->GetParam("value", "").asString();
  FILE* file = std::fopen(path.c_str(), "re");
  if (file == nullptr) return;
  std::fgetc(file);
  std::fclose(file);
  response->SetSuccess("finished");
}

void Throw(APIRequest*, APIResponse* response) {
  response->SetSuccess("half done");
  throw std::runtime_error("planted secret");
}

void ThrowInt(APIRequest*, APIResponse*) { throw 1; }

void Silent(APIRequest*, APIResponse*) {}

void Flood(APIRequest*, APIResponse* response) {
  response->SetEnableOutput(false);
  const std::string line(1 << 16, 'x');
  for (int count = 0; count < 40; ++count) std::fputs(line.c_str(), stdout);
}

void Elevate(APIRequest* request, APIResponse* response) {
  if (seteuid(0) == 0) Echo(request, response);
}

bool Pass(APIRequest*, APIResponse*) { return true; }

bool RefuseWithoutValue(APIRequest* request, APIResponse* response) {
  if (request->HasParam("value")) return true;
  response->SetError(120, "value");
  return false;
}

constexpr const char* kApi = "Test.Host";

const VELT::APITableEntry kTable[] = {
    {kApi, 1, "echo", Echo},          {kApi, 1, "raw", Raw},        {kApi, 1, "print", Print},
    {kApi, 1, "crash", Crash},        {kApi, 1, "hang", Hang},      {kApi, 1, "throw", Throw},
    {kApi, 1, "throw_int", ThrowInt}, {kApi, 1, "silent", Silent},  {kApi, 1, "flood", Flood},
    {kApi, 1, "elevate", Elevate},    {kApi, 1, "user_post", Echo}, {kApi, 1, "for_token", Echo},
    {kApi, 1, "unlisted", Echo},      {kApi, 1, "unchecked", Echo}, {nullptr, 0, nullptr, nullptr},
};

const VELT::APICheckTableEntry kCheckTable[] = {
    {kApi, 1, "echo", Pass, nullptr, nullptr},
    {kApi, 1, "raw", Pass, nullptr, nullptr},
    {kApi, 1, "print", Pass, nullptr, nullptr},
    {kApi, 1, "crash", Pass, nullptr, nullptr},
    {kApi, 1, "hang", RefuseWithoutValue, nullptr, nullptr},
    {kApi, 1, "throw", Pass, nullptr, nullptr},
    {kApi, 1, "throw_int", Pass, nullptr, nullptr},
    {kApi, 1, "silent", Pass, nullptr, nullptr},
    {kApi, 1, "flood", Pass, nullptr, nullptr},
    {kApi, 1, "elevate", Pass, nullptr, nullptr},
    {kApi, 1, "user_post", Pass, nullptr, nullptr},
    {kApi, 1, "for_token", Pass, nullptr, nullptr},
    {kApi, 1, "unlisted", Pass, nullptr, nullptr},
    {nullptr, 0, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

extern "C" const VELT::APITableEntry* GetAPITable() { return kTable; }
extern "C" const VELT::APICheckTableEntry* GetAPICheckTable() { return kCheckTable; }
