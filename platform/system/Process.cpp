#include "veltsys/Process.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/system/RequestPrograms.h"
#include "platform/system/Spawn.h"
#include "veltsys/ChildProcess.h"
#include "veltsys/Counters.h"
#include "veltsys/Descriptor.h"
#include "veltsys/ProgramRules.h"

namespace {

using VELT::ChildProcess;

constexpr std::size_t kLargestOutput = std::size_t{16} << 20;

// One run of a program, whose output a stream reads. If it is never started, the stream is empty.
class Program {
 public:
  explicit Program(const char* path) : path_(path) {}

  // False, with errno set, when the program could not be started; no child is left then.
  bool Start(char* const* argv);
  // The number of bytes, or -1 with errno set once the program had to be ended.
  ssize_t Read(char* buffer, std::size_t size);
  // The wait status, or -1 with errno set.
  int Close();

 private:
  void Gather();
  void EndLate();
  void EndEarly(const char* why);

  const std::string path_;  // for the log; arguments may be secret, so they are not kept
  std::optional<ChildProcess> child_;
  std::optional<VELT::Descriptor> pipe_;  // until its end has been read
  std::string output_;
  std::size_t position_ = 0;
  bool given_up_ = false;  // before all of its output was read
};

bool Program::Start(char* const* argv) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  pipe_.emplace(ends[0]);
  const VELT::Descriptor output(ends[1]);
  const VELT::ProgramRules rules = VELT::CurrentProgramRules();
  const bool settled = rules.uid != 0;
  const auto deadline = ChildProcess::Clock::now() + rules.time_limit;
  const pid_t pid = VELT::StartProgram(
      {path_.c_str(), argv, output.get(), settled ? rules.uid : geteuid(),
       settled ? rules.gid : getegid(),
       std::chrono::ceil<std::chrono::seconds>(rules.time_limit) + std::chrono::seconds(1)});
  if (pid < 0) return false;
  VELT::Count(VELT::Event::kProgramRun);
  child_.emplace(pid, deadline);
  if (!child_->IsWatched()) {
    const int error = errno;
    child_.reset();
    errno = error;
    return false;
  }
  return true;
}

ssize_t Program::Read(char* buffer, std::size_t size) {
  if (pipe_) Gather();
  if (given_up_) {
    errno = ECANCELED;
    return -1;
  }
  const std::size_t count = std::min(size, output_.size() - position_);
  std::memcpy(buffer, output_.data() + position_, count);
  position_ += count;
  return static_cast<ssize_t>(count);
}

void Program::Gather() {
  switch (child_->Read(pipe_->get(), kLargestOutput, output_)) {
    case ChildProcess::Output::kWhole:
      break;
    case ChildProcess::Output::kTooLate:
      EndLate();
      break;
    case ChildProcess::Output::kTooLarge:
      EndEarly("printed too much");
      break;
  }
  pipe_.reset();
}

void Program::EndLate() {
  VELT::Count(VELT::Event::kProgramTimeout);
  EndEarly("took too long");
}

void Program::EndEarly(const char* why) {
  given_up_ = true;
  VELT::GiveUpPrograms();
  child_->End();
  syslog(LOG_ERR, "program %s %s and was ended", path_.c_str(), why);
}

int Program::Close() {
  if (!child_) {
    errno = ECANCELED;
    return -1;
  }
  // First, so that a program that still writes gets SIGPIPE and ends.
  pipe_.reset();
  if (!child_->EndsInTime()) EndLate();
  return child_->End();
}

ssize_t ReadProgram(void* program, char* buffer, std::size_t size) {
  return static_cast<Program*>(program)->Read(buffer, size);
}

// The open streams and their programs. Never destroyed, since a stream may be closed during static
// destruction.
class Programs {
 public:
  static Programs& Instance() {
    // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
    static auto* programs = new Programs;
    return *programs;
  }
  void Add(FILE* stream, std::unique_ptr<Program> program) {
    const std::lock_guard lock(mutex_);
    programs_[stream] = std::move(program);
  }
  // Removes and returns the program of `stream`; null when there is none.
  std::unique_ptr<Program> Take(FILE* stream) {
    const std::lock_guard lock(mutex_);
    const auto found = programs_.find(stream);
    if (found == programs_.end()) return nullptr;
    auto program = std::move(found->second);
    programs_.erase(found);
    return program;
  }

 private:
  std::mutex mutex_;
  std::map<FILE*, std::unique_ptr<Program>> programs_;
};

struct CloseStream {
  void operator()(FILE* stream) const { std::fclose(stream); }
};

FILE* Open(const char* path, char* const* argv) {
  if (VELT::ProgramsAreGivenUp()) {
    errno = ECANCELED;
    return nullptr;
  }
  const bool wanted = VELT::ProgramsAreWanted();
  auto program = std::make_unique<Program>(path);
  // The program is started last, so that no other failure leaves one to be ended.
  std::unique_ptr<FILE, CloseStream> stream(
      fopencookie(program.get(), "r", {ReadProgram, nullptr, nullptr, nullptr}));
  if (!stream) return nullptr;
  Program& added = *program;
  Programs::Instance().Add(stream.get(), std::move(program));
  if (!wanted || added.Start(argv)) return stream.release();
  const int error = errno;
  Programs::Instance().Take(stream.get());
  stream.reset();
  errno = error;
  return nullptr;
}

}  // namespace

// NOLINTNEXTLINE(cert-dcl50-cpp): callers know this form.
FILE* VLIBCPopen(const char* path, const char* mode, ...) {
  if (path == nullptr || mode == nullptr || std::strcmp(mode, "r") != 0) {
    errno = EINVAL;
    return nullptr;
  }
  va_list rest;
  va_start(rest, mode);
  FILE* stream = nullptr;
  try {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): execve(2) only reads it.
    std::vector<char*> argv{const_cast<char*>(path)};
    do {
      // clang-tidy overlooks va_start when it checks several files in one run.
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
  const auto program = stream != nullptr ? Programs::Instance().Take(stream) : nullptr;
  if (!program) {
    errno = EINVAL;
    return -1;
  }
  std::fclose(stream);
  return program->Close();
}
