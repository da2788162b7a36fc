// The floors of bench/http/files.py:
//
//   files-floors readdir FOLDER      reads all names once and prints the microseconds
//   files-floors cat SOCKET FILE...  answers every FastCGI request with the files' bytes
#include <dirent.h>
#include <fcgiapp.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <ratio>
#include <string>
#include <string_view>
#include <vector>

namespace {

int ReadFolder(const char* path) {
  const auto start = std::chrono::steady_clock::now();
  DIR* folder = opendir(path);
  if (folder == nullptr) return 1;
  long count = 0;
  while (readdir(folder) != nullptr) ++count;
  closedir(folder);
  const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
  std::printf("%.0f %ld\n", took.count(), count);
  return 0;
}

void Send(const char* path, FCGX_Stream* out, std::vector<char>& buffer) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  for (;;) {
    const ssize_t got = read(file, buffer.data(), buffer.size());
    if (got <= 0 || FCGX_PutStr(buffer.data(), static_cast<int>(got), out) < 0) break;
  }
  close(file);
}

int Cat(const char* socket, char** paths) {
  FCGX_Request request;
  const int listener = FCGX_OpenSocket(socket, 16);
  if (listener < 0 || FCGX_Init() != 0 || FCGX_InitRequest(&request, listener, 0) != 0) return 1;
  std::vector<char> buffer(std::size_t{256} * 1024);
  while (FCGX_Accept_r(&request) == 0) {
    FCGX_PutS("Content-Type: application/octet-stream\r\n\r\n", request.out);
    for (char** path = paths; *path != nullptr; ++path) Send(*path, request.out, buffer);
    FCGX_Finish_r(&request);
  }
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc > 2 ? argv[1] : "";
  if (what == "readdir") return ReadFolder(argv[2]);
  if (what == "cat") return Cat(argv[2], argv + 3);
  std::fprintf(stderr, "usage: files-floors readdir FOLDER | cat SOCKET FILE...\n");
  return 2;
}
