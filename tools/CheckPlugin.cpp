// check-plugin: whether the service can use a plugin library.
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "tools/CheckFiles.h"
#include "tools/Command.h"
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

// The interface's functions and the names that they have without the header's extern "C".
struct Function {
  const char* name;
  const char* mangled;
};
constexpr Function kFunctions[] = {
    {"CustomPageFunc", "_Z14CustomPageFuncRKN4VELT7sharing6record5EntryEPKcRKN4Json5ValueERS8_"},
    {"OpenGraphFunc", "_Z13OpenGraphFuncRKN4VELT7sharing6record5EntryEPKcRKN4Json5ValueERS8_"},
};

// What the child is doing, so that the parent can say where it hung or crashed.
enum class Step { kLoading, kCalling, kClosing, kReading };

void Add(Json::Value& checks, const std::string& subject, State state, const std::string& text) {
  Json::Value check;
  check["subject"] = subject;
  check["state"] = state == State::kOk ? "ok" : state == State::kWarning ? "warning" : "failed";
  check["text"] = text;
  checks.append(check);
}

bool HasFailed(const Json::Value& checks) {
  return std::ranges::any_of(checks,
                             [](const Json::Value& check) { return check["state"] == "failed"; });
}

// --- The file ---

bool ReadHeader(const char* path, Elf64_Ehdr& header) {
  const Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return read(file.get(), &header, sizeof header) == sizeof header &&
         std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0;
}

std::string FaultOfFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return "is no regular file: name the library itself";
  if (access(path.c_str(), R_OK) != 0) return "can't be read: " + std::string(std::strerror(errno));
  Elf64_Ehdr header{};
  Elf64_Ehdr own{};
  if (!ReadHeader(path.c_str(), header)) {
    return "is no library: build it with -shared, and name the .so file that comes of it";
  }
  if (!ReadHeader("/proc/self/exe", own)) return "can't be compared with this program";
  if (header.e_machine != own.e_machine || header.e_ident[EI_CLASS] != own.e_ident[EI_CLASS]) {
    return "is for another kind of machine: build it for this one";
  }
  if (header.e_type != ET_DYN) return "is an object file or a program: link it with -shared -fPIC";
  return "";
}

void CheckRights(const std::string& path, Json::Value& checks) {
  struct stat file {};
  struct stat folder {};
  if (stat(path.c_str(), &file) != 0 ||
      stat(std::filesystem::path(path).parent_path().c_str(), &folder) != 0) {
    return;
  }
  if ((file.st_mode & S_IROTH) == 0) {
    Add(checks, "rights", State::kWarning,
        "not everybody may read it, and the service's account must: chmod a+r");
  } else if ((file.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    Add(checks, "rights", State::kWarning,
        "others may change what runs inside the service: chmod go-w");
  } else if ((folder.st_mode & S_IWOTH) != 0 && (folder.st_mode & S_ISVTX) == 0) {
    Add(checks, "rights", State::kWarning, "others may replace it: chmod o-w its folder");
  } else {
    Add(checks, "rights", State::kOk, "readable, and its owner's alone to change");
  }
}

// --- Loading ---

// The word of `text` that follows `before`; empty without `before`.
std::string WordAfter(const std::string& text, std::string_view before) {
  const std::size_t at = text.find(before);
  if (at == std::string::npos) return "";
  const std::size_t begin = at + before.size();
  return text.substr(begin, text.find_first_of(" )'\n", begin) - begin);
}

std::string FaultOfLoading(const std::string& error) {
  if (const std::string symbol = WordAfter(error, "undefined symbol: "); !symbol.empty()) {
    return "uses " + Demangled(symbol) +
           ", which no library has that it is linked to: link the one that has it";
  }
  if (const std::string version = WordAfter(error, "version `"); !version.empty()) {
    return "was built for newer libraries than are here (" + version +
           "): build it on the release that it is for";
  }
  const std::size_t missing = error.find(": cannot open shared object file");
  if (missing != std::string::npos) {
    return "needs the library " + error.substr(0, missing) + ", which is not here: install it";
  }
  return error;
}

// The file in which `library`, by default this program, finds `symbol`.
std::filesystem::path HomeOf(const char* symbol, void* library = RTLD_DEFAULT) {
  Dl_info about{};
  void* address = dlsym(library, symbol);
  if (address == nullptr || dladdr(address, &about) == 0) return {};
  return about.dli_fname;
}

std::vector<std::string> NeededBy(void* library) {
  std::vector<std::string> names;
  link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) return names;
  // NOLINTBEGIN(performance-no-int-to-ptr,cppcoreguidelines-pro-type-union-access): see elf(5).
  const char* texts = nullptr;
  for (const ElfW(Dyn)* row = map->l_ld; row->d_tag != DT_NULL; ++row) {
    if (row->d_tag == DT_STRTAB) texts = reinterpret_cast<const char*>(row->d_un.d_ptr);
  }
  for (const ElfW(Dyn)* row = map->l_ld; texts != nullptr && row->d_tag != DT_NULL; ++row) {
    if (row->d_tag == DT_NEEDED) names.emplace_back(texts + row->d_un.d_val);
  }
  // NOLINTEND(performance-no-int-to-ptr,cppcoreguidelines-pro-type-union-access)
  return names;
}

// A plugin hands objects of these libraries to the service, so both must use the same.
void CheckShared(const std::string& path, void* library, Json::Value& checks) {
  const std::vector<std::string> needed = NeededBy(library);
  for (const char* symbol : {"_ZN4Json5ValueC1ENS_9ValueTypeE", "_ZNSt9exceptionD1Ev"}) {
    const std::string ours = HomeOf(symbol).filename();
    const std::string stem = ours.substr(0, ours.find(".so") + 3);
    const auto theirs = std::ranges::find_if(
        needed, [&stem](const std::string& name) { return name.starts_with(stem); });
    if (HomeOf(symbol, library) == path) {
      Add(checks, "libraries", State::kFailed,
          "it holds a copy of " + ours + ": link that library, not statically");
    } else if (theirs != needed.end() && *theirs != ours) {
      Add(checks, "libraries", State::kFailed,
          "it is linked to " + *theirs + ", the service to " + ours + ": build it with that one");
    }
  }
}

void CheckFunctions(void* library, Json::Value& checks) {
  bool has_any = false;
  for (const Function& function : kFunctions) {
    if (dlsym(library, function.name) != nullptr) {
      has_any = true;
      Add(checks, function.name, State::kOk, "is exported");
    } else if (dlsym(library, function.mangled) != nullptr) {
      has_any = true;
      Add(checks, function.name, State::kFailed,
          "has its C++ name: include veltplugin/RenderPlugin.h, which gives it its plain one");
    }
  }
  if (!has_any) {
    Add(checks, "functions", State::kFailed,
        "it exports neither CustomPageFunc nor OpenGraphFunc: define one, with the arguments of "
        "veltplugin/RenderPlugin.h, and include that, which keeps it from being hidden");
  }
}

Json::Value Load(const std::string& path) {
  Json::Value checks(Json::arrayValue);
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    Add(checks, "library", State::kFailed, FaultOfLoading(dlerror()));
    return checks;
  }
  Add(checks, "library", State::kOk, "can be loaded");
  CheckShared(path, library, checks);
  CheckFunctions(library, checks);
  return checks;
}

// --- Calling ---

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
    Add(checks, subject, State::kFailed, "can't be found a second time");
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
    Add(checks, subject, State::kFailed, "throws an exception: " + std::string(error.what()));
    return checks;
  } catch (...) {
    Add(checks, subject, State::kFailed, "throws something that is no std::exception");
    return checks;
  }
  if (Threads() > 1) {  // it would run code of the closed library
    Add(checks, subject, State::kFailed, "leaves a thread running: join it before returning");
    return checks;
  }
  step = Step::kClosing;
  dlclose(library);
  step = Step::kReading;
  const Finding finding = JudgeResult(name, used, result);
  Add(checks, subject, finding.state, finding.text);
  if (printed.Any()) {
    Add(checks, subject, State::kWarning, "prints to standard output: the service drops the text");
  }
  return checks;
}

// --- In a process of its own, because a plugin may hang or crash ---

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

// Adds the checks that `work` returns, or the reason why it gave none.
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
    Add(checks, subject, State::kFailed, "no process can be started");
  } else {
    Add(checks, subject, State::kFailed, FaultAt(step, end == ForkedCall::kTooLate));
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
  const std::string fault = FaultOfFile(path);
  Add(checks, "file", fault.empty() ? State::kOk : State::kFailed,
      path + (fault.empty() ? "" : ": " + fault));
  if (fault.empty()) {
    CheckRights(path, checks);
    Try(
        "library", [&](Step& /*step*/) { return Load(path); }, checks);
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
