#include "tools/CheckFiles.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>
#include <vector>

#include "host/process/Privileges.h"
#include "tools/SqliteFile.h"
#include "veltsys/Process.h"

namespace VELT::tools {
namespace {

constexpr const char* kQRCodeProgram = "/usr/bin/qrencode";
constexpr std::string_view kPng = "\x89PNG\r\n\x1a\n";

struct EndProgram {
  void operator()(FILE* program) const { VLIBCPclose(program); }
};
using Program = std::unique_ptr<FILE, EndProgram>;

struct CloseStream {
  void operator()(FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

std::string ReadAll(FILE* stream) {
  std::string text;
  std::array<char, 4096> piece{};
  while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), stream)) {
    text.append(piece.data(), count);
  }
  return text;
}

bool IsOpenTo(const std::string& path, mode_t rights) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && (status.st_mode & rights) != 0;
}

// Runs the program and returns the first line of its errors; empty when it succeeds.
std::string ComplaintOf(std::vector<std::string> command) {
  const Stream errors(std::tmpfile());
  if (!errors) return "no temporary file can be made";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fileno(errors.get()), STDERR_FILENO);
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  pid_t program = -1;
  const int started =
      posix_spawn(&program, arguments.front(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (started != 0) return command.front() + ": " + std::strerror(started);
  int status = -1;
  if (waitpid(program, &status, 0) == program && status == 0) return "";
  std::rewind(errors.get());
  const std::string text = ReadAll(errors.get());
  return text.empty() ? command.front() + " failed" : text.substr(0, text.find('\n'));
}

}  // namespace

Finding CheckConfigFile(const HostOptions& options, const host::Ids& /*ids*/) {
  const std::string host =
      std::filesystem::read_symlink("/proc/self/exe").replace_filename("velt-webapid");
  const std::string complaint = ComplaintOf({host, "--check-config", "--config", options.config});
  if (!complaint.empty()) return {State::kFailed, complaint};
  if (options.database.find("password") != std::string::npos && IsOpenTo(options.config, 0044)) {
    return {State::kWarning, "holds the database's password and others may read it: chmod 600 " +
                                 options.config + ", or use a password file"};
  }
  return {State::kOk, options.config};
}

Finding CheckRights(const std::string& path, const host::Ids& ids) {
  const std::string folder = FolderOf(path);
  const std::string account = ids.user.empty() ? "uid " + std::to_string(ids.uid) : ids.user;
  const std::vector<std::string> files = {path, path + "-wal", path + "-shm"};
  try {
    host::LowerTo(ids);
  } catch (const std::exception&) {
    return {State::kWarning, "can't be checked for " + account + ": run this as root"};
  }
  std::vector<std::string> written = files;
  written.push_back(folder);
  const auto locked = std::find_if(written.begin(), written.end(), [](const std::string& place) {
    return faccessat(AT_FDCWD, place.c_str(), R_OK | W_OK, AT_EACCESS) != 0 && errno != ENOENT;
  });
  if (locked != written.end()) {
    return {State::kFailed, account + " can't write it: chown " + account + " " + *locked};
  }
  for (const std::string& file : files) {
    if (IsOpenTo(file, 0077)) return {State::kFailed, "others may use it: chmod 600 " + file};
  }
  if (IsOpenTo(folder, 0022)) {
    return {State::kFailed, "others may replace it: chmod go-w " + folder};
  }
  return {State::kOk, "for " + account + " alone"};
}

Finding CheckPam(const std::string& service) {
  const std::string path = "/etc/pam.d/" + service;
  std::ifstream file(path);
  if (!file) {
    return {State::kFailed, path +
                                " is missing: PAM uses the service \"other\" instead. Create it, "
                                "for example with the line \"@include common-auth\" and the line "
                                "\"@include common-account\""};
  }
  std::string text;
  bool has_auth = false;
  bool has_account = false;
  while (std::getline(file, text)) {
    std::istringstream words(text);
    std::string first;
    std::string second;
    words >> first >> second;
    const bool includes = first == "@include";
    has_auth = has_auth || first == "auth" || first == "-auth" || includes;
    has_account = has_account || first == "account" || first == "-account" || includes;
  }
  if (has_auth && has_account) return {State::kOk, path};
  return {State::kFailed, path + " has no line for " + (has_auth ? "\"account\"" : "\"auth\"") +
                              ": PAM uses that of the service \"other\" instead"};
}

Finding CheckQRCode() {
  const Program program(VLIBCPopen(kQRCodeProgram, "r", "-l", "H", "https://nas.example/sharing/0",
                                   "-o", "-", static_cast<const char*>(nullptr)));
  if (!program) {
    return {State::kFailed, std::string(kQRCodeProgram) + ": " + std::strerror(errno) +
                                "; install the package qrencode"};
  }
  const std::string image = ReadAll(program.get());
  if (image.starts_with(kPng)) return {State::kOk, kQRCodeProgram};
  return {State::kFailed,
          std::string(kQRCodeProgram) + " prints no PNG image: links get no QR code"};
}

}  // namespace VELT::tools
