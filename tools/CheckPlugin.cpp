// check-plugin: whether the service can use a plugin library.
#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iterator>
#include <new>
#include <string>

#include "tools/Command.h"
#include "tools/Finding.h"
#include "tools/PluginLibrary.h"
#include "tools/PluginResult.h"
#include "veltplugin/RenderPlugin.h"
#include "veltsys/Descriptor.h"
#include "veltsys/ForkedCall.h"
#include "veltsys/JsonText.h"

namespace VELT::tools {
namespace {

constexpr std::chrono::seconds kPatience{10};
#ifndef __SANITIZE_ADDRESS__  // which itself needs far more
constexpr rlim_t kMostMemory = rlim_t{1} << 30;
#endif

// What the child is doing, so that the parent can say where it hung or crashed.
enum class Step { kLoading, kCalling, kClosing, kReading };

sharing::record::Entry SampleLink(const PluginSample& sample) {
  sharing::record::Entry entry;
  entry.set_project_name(sample.project);
  entry.set_owner_uid(getuid());
  entry.set_protect_title("A title");
  entry.set_app(sample.app);
  return entry;
}

// The argument with which the service asks for the preview of a page, which has no link.
Json::Value PreviewOf(const PluginSample& sample) {
  Json::Value extra;
  extra["preview"] = true;
  extra["sharing_status"] = "password";
  extra["sharing_preview_params"] = Json::Value();
  extra["sharing_preview_project_name"] = sample.project;
  return extra;
}

// Replaces standard output by a file in memory.
class Printed {
 public:
  Printed() : file_(memfd_create("printed", MFD_CLOEXEC)) { dup2(file_.get(), STDOUT_FILENO); }
  bool Any() const {
    std::fflush(nullptr);
    return lseek(file_.get(), 0, SEEK_END) > 0;
  }

 private:
  Descriptor file_;
};

std::size_t Threads() {
  std::error_code error;
  const std::filesystem::directory_iterator tasks("/proc/self/task", error);
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

// Calls the function as the service does: the result is used after the library is closed.
Json::Value Call(const std::string& path, const char* name, const PluginSample& sample,
                 bool preview, Step& step) {
  const Printed printed;
  Json::Value checks(Json::arrayValue);
  const std::string subject = std::string(name) + (preview ? ", preview" : "");
  void* library = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
  const auto function =
      library == nullptr ? nullptr : reinterpret_cast<sharing::PluginLibFunc>(dlsym(library, name));
  if (function == nullptr) {
    Add(checks, subject, {State::kFailed, "can't be found a second time"});
    return checks;
  }
  sharing::record::Entry entry;
  if (!preview) entry = SampleLink(sample);
  if (preview) entry.set_project_name(sample.project);
  const Json::Value extra = preview ? PreviewOf(sample) : Json::Value();
  Json::Value result;
  bool used = false;
  step = Step::kCalling;
  try {
    used = function(entry, preview ? "" : "none", extra, result);
  } catch (const std::exception& error) {
    Add(checks, subject, {State::kFailed, "throws an exception: " + std::string(error.what())});
    return checks;
  } catch (...) {
    Add(checks, subject, {State::kFailed, "throws something that is no std::exception"});
    return checks;
  }
  if (Threads() > 1) {  // it would run code of the closed library
    Add(checks, subject, {State::kFailed, "leaves a thread running: join it before returning"});
    return checks;
  }
  step = Step::kClosing;
  dlclose(library);
  step = Step::kReading;
  const Finding finding = JudgeResult(name, used, result);
  Add(checks, subject, finding);
  if (printed.Any()) {
    Add(checks, subject,
        {State::kWarning, "prints to standard output: the service drops the text"});
  }
  return checks;
}

std::string FaultAt(Step step, bool hangs) {
  switch (step) {
    case Step::kLoading:
      return hangs ? "hangs while it is loaded: look at its static objects"
                   : "crashes while it is loaded: look at its static objects";
    case Step::kCalling:
      return hangs ? "has not returned after 10 seconds; the service would end its worker"
                   : "crashes, or ends the process";
    case Step::kClosing:
      return hangs ? "hangs while it is closed: look at its static objects"
                   : "crashes while it is closed: look at its static objects";
    case Step::kReading:
      return "gives a value that points into the library, which is closed before the value is "
             "used: copy texts (no Json::StaticString)";
  }
  return "";
}

// Adds the checks that `work` returns, or the reason why it gave none. It runs in a process of its
// own, because a plugin may hang or crash.
template <typename Work>
void Try(const std::string& subject, Work work, Json::Value& checks) {
  void* const shared =
      mmap(nullptr, sizeof(Step), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) throw Failure("no memory");
  Step& step = *new (shared) Step(Step::kLoading);
  std::string text;
  const ForkedCall end = CallInFork(
      [&] {
#ifndef __SANITIZE_ADDRESS__
        const rlimit memory{kMostMemory, kMostMemory};
        setrlimit(RLIMIT_AS, &memory);
#endif
        return OneLine(work(step));
      },
      kPatience, text);
  Json::Value found;
  if (end == ForkedCall::kReturned && ParseJsonText(text, found)) {
    for (const Json::Value& check : found) checks.append(check);
  } else if (end == ForkedCall::kNotStarted) {
    Add(checks, subject, {State::kFailed, "no process can be started"});
  } else {
    Add(checks, subject, {State::kFailed, FaultAt(step, end == ForkedCall::kTooLate)});
  }
  munmap(shared, sizeof(Step));
}

// One that fails is not called again: it may have taken long.
void CheckCalls(const std::string& path, const std::string& name, const PluginSample& sample,
                Json::Value& checks) {
  Json::Value calls(Json::arrayValue);
  for (const bool preview : {false, true}) {
    if (HasFailed(calls)) break;
    Try(
        name + (preview ? ", preview" : ""),
        [&](Step& step) { return Call(path, name.c_str(), sample, preview, step); }, calls);
  }
  for (const Json::Value& call : calls) checks.append(call);
}

}  // namespace

Json::Value CheckPlugin(const std::string& file, const PluginSample& sample) {
  const std::string path = std::filesystem::absolute(file);
  Json::Value checks(Json::arrayValue);
  CheckLibraryFile(path, checks);
  if (!HasFailed(checks)) {
    Try(
        "library", [&](Step& /*step*/) { return LoadLibrary(path); }, checks);
  }
  if (!HasFailed(checks)) {
    for (const Json::Value& check : Json::Value(checks)) {
      const std::string name = check["subject"].asString();
      if (name.ends_with("Func")) CheckCalls(path, name, sample, checks);
    }
  }
  Json::Value result;
  result["checks"] = checks;
  result["success"] = !HasFailed(checks);
  return result;
}

}  // namespace VELT::tools
