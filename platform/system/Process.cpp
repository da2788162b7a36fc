#include "veltsys/Process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <map>
#include <mutex>
#include <vector>

#include "veltsys/Descriptor.h"

namespace {

// The open streams and their programs. Never destroyed: a stream may outlive static destruction.
class Children {
 public:
  static Children& Instance() {
    static auto* children = new Children;
    return *children;
  }
  void Add(FILE* stream, pid_t pid) {
    const std::lock_guard lock(mutex_);
    pids_[stream] = pid;
  }
  // The program of `stream`, which is forgotten; -1 when there is none.
  pid_t Take(FILE* stream) {
    const std::lock_guard lock(mutex_);
    const auto found = pids_.find(stream);
    if (found == pids_.end()) return -1;
    const pid_t pid = found->second;
    pids_.erase(found);
    return pid;
  }

 private:
  std::mutex mutex_;
  std::map<FILE*, pid_t> pids_;
};

// What posix_spawn(3) needs to start a program with a clean slate.
class SpawnPlan {
 public:
  SpawnPlan() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
  }
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  // Both return an errno value, 0 on success. Standard output is set first: `output` may be the
  // descriptor 0 when the caller runs without standard input.
  int Prepare(int output) {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    int error = posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    if (error == 0) {
      error = posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    if (error == 0) {
      error = posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }
    return error;
  }
  int Start(const char* path, char* const* argv, pid_t& pid) const {
    return posix_spawn(&pid, path, &actions_, &attributes_, argv, environ);
  }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

int Wait(pid_t pid) {
  int status = -1;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

// Everything that can fail for want of memory happens before the program is started.
FILE* Open(const char* path, char* const* argv) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return nullptr;
  VELT::Descriptor input(ends[0]);
  const VELT::Descriptor output(ends[1]);
  SpawnPlan plan;
  int error = plan.Prepare(output.get());
  FILE* stream = error == 0 ? fdopen(input.get(), "r") : nullptr;
  if (stream == nullptr) {
    if (error != 0) errno = error;
    return nullptr;
  }
  input.Release();
  pid_t pid = -1;
  try {
    Children::Instance().Add(stream, pid);
    error = plan.Start(path, argv, pid);
  } catch (const std::exception&) {
    error = ENOMEM;
  }
  if (error != 0) {
    Children::Instance().Take(stream);
    std::fclose(stream);
    errno = error;
    return nullptr;
  }
  Children::Instance().Add(stream, pid);  // the node is there: nothing is allocated
  return stream;
}

}  // namespace

FILE* VLIBCPopen(const char* path, const char* mode, ...) {
  if (path == nullptr || mode == nullptr || std::strcmp(mode, "r") != 0) {
    errno = EINVAL;
    return nullptr;
  }
  va_list rest;
  va_start(rest, mode);
  FILE* stream = nullptr;
  try {
    std::vector<char*> argv{const_cast<char*>(path)};
    do {
      // The checker loses va_start when it is given several files in one run.
      argv.push_back(va_arg(rest, char*));  // NOLINT(clang-analyzer-valist.Uninitialized)
    } while (argv.back() != nullptr);
    stream = Open(path, argv.data());
  } catch (const std::exception&) {
    errno = ENOMEM;
  }
  va_end(rest);
  return stream;
}

int VLIBCPclose(FILE* stream) {
  const pid_t pid = stream != nullptr ? Children::Instance().Take(stream) : -1;
  if (pid < 0) {
    errno = EINVAL;
    return -1;
  }
  // Closed first, so that a program that still writes ends instead of being waited for in vain.
  std::fclose(stream);
  return Wait(pid);
}
