// An API module with one method for each way in which a handler can succeed or fail.
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <string>

#include "veltsys/Process.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/ErrorCodes.h"

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

void Raw(APIRequest* request, APIResponse* response) {
  response->SetEnableOutput(false);
  if (request->HasParam("value")) std::printf("%s\r\n", request->GetParam("value", "").asCString());
  std::printf("Content-Type: text/x-raw\r\n\r\n%d", getpid());
}

void Print(APIRequest* request, APIResponse* response) {
  std::puts("Content-Type: text/html\r\n\r\nnot to be seen");
  Echo(request, response);
}

void Crash(APIRequest*, APIResponse*) { std::raise(SIGKILL); }

// Waits until a writer has opened and closed the pipe.
bool Await(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "re");
  if (file == nullptr) return false;
  std::fgetc(file);
  std::fclose(file);
  return true;
}

void Hang(APIRequest* request, APIResponse* response) {
  if (Await(request->GetParam("value", "").asString())) response->SetSuccess("finished");
}

// Answers with what a shell script prints.
void Program(APIRequest* request, APIResponse* response) {
  if (request->HasParam("after")) Await(request->GetParam("after", "").asString());
  const std::string script = request->GetParam("value", "").asString();
  FILE* stream = VLIBCPopen("/bin/sh", "r", "-c", script.c_str(), nullptr);
  if (stream == nullptr) return;
  char text[4096];
  const std::size_t size = std::fread(text, 1, sizeof text, stream);
  VLIBCPclose(stream);
  syslog(LOG_INFO, "a program printed %zu bytes", size);
  response->SetSuccess(std::string(text, size));
}

void TouchFile(const std::string& path) {
  if (FILE* file = std::fopen(path.c_str(), "we"); file != nullptr) std::fclose(file);
}

// Waits as long as the file exists. Makes a file beside it, named after this process.
void Wait(APIRequest* request, APIResponse* response) {
  const std::string path = request->GetParam("value", "").asString();
  TouchFile(path + "." + std::to_string(getpid()));
  while (access(path.c_str(), F_OK) == 0) usleep(5000);
  response->SetSuccess(getpid());
}

void Touch(APIRequest* request, APIResponse* response) {
  const std::string path = request->GetParam("value", "").asString();
  TouchFile(path);
  response->SetSuccess(path);
}

void Throw(APIRequest*, APIResponse* response) {
  response->SetSuccess("half done");
  throw std::runtime_error("planted secret");
}

void ThrowInt(APIRequest*, APIResponse*) { throw 1; }

void Silent(APIRequest*, APIResponse*) {}

void Flood(APIRequest*, APIResponse* response) {
  response->SetEnableOutput(false);
  response->SetSuccess("all printed");
  const std::string line(1 << 16, 'x');
  for (int count = 0; count < 300; ++count) std::fputs(line.c_str(), stdout);
}

// Sends `value` pieces of 64 KiB and then ends as `end` says. Appends what happens to the file `log`.
void Stream(APIRequest* request, APIResponse* response) {
  response->AddCookie("/", "sid", "new", 0, "", false, false);
  const int count = request->GetParam("value", 0).asInt();
  const std::string end = request->GetParam("end", "").asString();
  const std::string log = request->GetParam("log", "/dev/null").asString();
  const auto note = [log](const char* text) {
    FILE* file = std::fopen(log.c_str(), "ae");
    std::fputs(text, file);
    std::fclose(file);
  };
  response->Afterwards([note] { note("after "); });
  bool wanted = response->Send("Content-Type: text/x-raw\r\n\r\n");
  for (int piece = 0; wanted && piece < count; ++piece) {
    wanted = response->Send(std::string(1 << 16, 'x'));
  }
  note(wanted ? "whole " : "left ");
  if (end == "throw") throw std::runtime_error("planted secret");
  if (end == "break") response->BreakOff();
  if (end == "hang") pause();
}

void RawBody(APIRequest* request, APIResponse* response) {
  Json::Value data;
  data["size"] = static_cast<Json::Int64>(request->GetRawBody().size());
  data["nuls"] = request->GetRawBody().find('\0') != std::string::npos;
  data["value"] = request->GetParam("value", "");
  response->SetSuccess(data);
}

void Elevate(APIRequest* request, APIResponse* response) {
  if (seteuid(0) == 0) Echo(request, response);
}

bool Pass(APIRequest*, APIResponse*) { return true; }

bool RefuseWithoutValue(APIRequest* request, APIResponse* response) {
  if (request->HasParam("value")) return true;
  response->SetError(VELT::kErrorCheck, "value");
  return false;
}

struct Row {
  const char* method;
  VELT::APIHandler handler;
  VELT::APICheck check;
};

constexpr Row kRows[] = {
    {"echo", Echo, Pass},
    {"raw", Raw, Pass},
    {"print", Print, Pass},
    {"crash", Crash, Pass},
    {"throw", Throw, Pass},
    {"throw_int", ThrowInt, Pass},
    {"silent", Silent, Pass},
    {"flood", Flood, Pass},
    {"elevate", Elevate, Pass},
    {"user_post", Echo, Pass},
    {"for_token", Echo, Pass},
    {"unlisted", Echo, Pass},
    {"wait", Wait, Pass},
    {"touch", Touch, Pass},
    {"hang", Hang, RefuseWithoutValue},
    {"program", Program, RefuseWithoutValue},
    {"stream", Stream, Pass},
    {"stuck", Stream, Pass},
    {"raw_body", RawBody, Pass},
    {"unchecked", Echo, nullptr},
};

VELT::APITableEntry table[std::size(kRows) + 1];
VELT::APICheckTableEntry check_table[std::size(kRows) + 1];

}  // namespace

extern "C" const VELT::APITableEntry* GetAPITable() {
  auto* entry = table;
  for (const Row& row : kRows) *entry++ = {"Test.Host", 1, row.method, row.handler};
  return table;
}

extern "C" const VELT::APICheckTableEntry* GetAPICheckTable() {
  auto* entry = check_table;
  for (const Row& row : kRows) *entry++ = {"Test.Host", 1, row.method, row.check, nullptr, nullptr};
  return check_table;
}
