#include "tools/PluginLibrary.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <vector>

#include "tools/Finding.h"
#include "tools/PluginResult.h"
#include "veltsys/Descriptor.h"

namespace VELT::tools {
namespace {

// The interface's functions and the names that they have without the header's extern "C".
struct Function {
  const char* name;
  const char* mangled;
};
constexpr Function kFunctions[] = {
    {"CustomPageFunc", "_Z14CustomPageFuncRKN4VELT7sharing6record5EntryEPKcRKN4Json5ValueERS8_"},
    {"OpenGraphFunc", "_Z13OpenGraphFuncRKN4VELT7sharing6record5EntryEPKcRKN4Json5ValueERS8_"},
};

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
    Add(checks, "rights",
        {State::kWarning, "not everybody may read it, and the service's account must: chmod a+r"});
  } else if ((file.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    Add(checks, "rights",
        {State::kWarning, "others may change what runs inside the service: chmod go-w"});
  } else if ((folder.st_mode & S_IWOTH) != 0 && (folder.st_mode & S_ISVTX) == 0) {
    Add(checks, "rights", {State::kWarning, "others may replace it: chmod o-w its folder"});
  } else {
    Add(checks, "rights", {State::kOk, "readable, and its owner's alone to change"});
  }
}

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
      Add(checks, "libraries",
          {State::kFailed, "it holds a copy of " + ours + ": link that library, not statically"});
    } else if (theirs != needed.end() && *theirs != ours) {
      Add(checks, "libraries",
          {State::kFailed,
           "it is linked to " + *theirs + ", the service to " + ours + ": build it with that one"});
    }
  }
}

void CheckFunctions(void* library, Json::Value& checks) {
  bool has_any = false;
  for (const Function& function : kFunctions) {
    if (dlsym(library, function.name) != nullptr) {
      has_any = true;
      Add(checks, function.name, {State::kOk, "is exported"});
    } else if (dlsym(library, function.mangled) != nullptr) {
      has_any = true;
      Add(checks, function.name,
          {State::kFailed,
           "has its C++ name: include veltplugin/RenderPlugin.h, which gives it its plain one"});
    }
  }
  if (!has_any) {
    Add(checks, "functions",
        {State::kFailed,
         "it exports neither CustomPageFunc nor OpenGraphFunc: define one, with the arguments of "
         "veltplugin/RenderPlugin.h, and include that, which keeps it from being hidden"});
  }
}

}  // namespace

void CheckLibraryFile(const std::string& path, Json::Value& checks) {
  const std::string fault = FaultOfFile(path);
  if (fault.empty()) {
    Add(checks, "file", {State::kOk, path});
    CheckRights(path, checks);
  } else {
    Add(checks, "file", {State::kFailed, path + ": " + fault});
  }
}

Json::Value LoadLibrary(const std::string& path) {
  Json::Value checks(Json::arrayValue);
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    Add(checks, "library", {State::kFailed, FaultOfLoading(dlerror())});
    return checks;
  }
  Add(checks, "library", {State::kOk, "can be loaded"});
  CheckShared(path, library, checks);
  CheckFunctions(library, checks);
  return checks;
}

}  // namespace VELT::tools
