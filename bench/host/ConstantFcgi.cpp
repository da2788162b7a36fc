// constant-fcgi SOCKET [WORKERS [HEADER]]: answers every FastCGI request with the same JSON, or with
// the header line HEADER and an empty body, in WORKERS processes (else one for each core), until
// SIGTERM ends it.
#include <fcgiapp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

std::vector<pid_t> workers;

void EndWorkers(int) {
  for (const pid_t worker : workers) kill(worker, SIGTERM);
}

constexpr const char* kJson =
    "Status: 200 OK\r\n"
    "Content-Type: application/json; charset=\"UTF-8\"\r\n"
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n\r\n"
    "{\"error\":{\"code\":120,\"errors\":{\"name\":\"sharing_id\",\"reason\":\"required\"}},"
    "\"success\":false}";

int Serve(int listener, const std::string& answer) {
  FCGX_Request request;
  if (FCGX_Init() != 0 || FCGX_InitRequest(&request, listener, 0) != 0) return 1;
  while (FCGX_Accept_r(&request) == 0) {
    FCGX_PutS(answer.c_str(), request.out);
    FCGX_Finish_r(&request);
  }
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: constant-fcgi SOCKET [WORKERS [HEADER]]\n");
    return 2;
  }
  const unsigned int count = argc > 2 ? static_cast<unsigned int>(std::atoi(argv[2]))
                                      : std::thread::hardware_concurrency();
  const std::string answer = argc > 3 ? std::string(argv[3]) + "\r\n\r\n" : std::string(kJson);
  const int listener = FCGX_OpenSocket(argv[1], 1024);
  if (listener < 0) {
    std::perror(argv[1]);
    return 1;
  }
  for (unsigned int index = 0; index < count; ++index) {
    const pid_t pid = fork();
    if (pid == 0) return Serve(listener, answer);
    if (pid > 0) workers.push_back(pid);
  }
  std::signal(SIGTERM, EndWorkers);
  std::signal(SIGINT, EndWorkers);
  while (wait(nullptr) > 0) {
  }
  unlink(argv[1]);
  return 0;
}
