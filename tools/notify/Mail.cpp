#include "tools/notify/Mail.h"

#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <vector>

#include "veltsys/Base64.h"
#include "veltsys/ChildProcess.h"
#include "veltsys/Descriptor.h"
#include "veltsys/WriteAll.h"

namespace VELT::tools {
namespace {

constexpr std::chrono::minutes kTimeLimit{1};
// Bytes, of which base64 makes the 76 characters that a line may have.
constexpr std::size_t kLine = 57;
constexpr std::size_t kWord = 42;  // in an encoded word

std::string Base64(const std::string& bytes) {
  std::vector<char> text(bytes.size() / 3 * 4 + 5);
  const long length = VLIBCBase64SzEncodeFull(bytes.data(), bytes.size(), text.data(), text.size(),
                                              text.size(), 0, 0);
  return {text.data(), static_cast<std::size_t>(length)};
}

// A header's text as encoded words, none of which ends within a character.
std::string EncodedWords(const std::string& text) {
  std::string words;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = std::min(at + kWord, text.size());
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    words += (at == 0 ? "=?UTF-8?B?" : "\n =?UTF-8?B?") + Base64(text.substr(at, end - at)) + "?=";
    at = end;
  }
  return words;
}

std::string DateText() {
  const std::time_t now = std::time(nullptr);
  tm at{};
  std::array<char, 64> text{};
  gmtime_r(&now, &at);  // the C locale, in which the program runs, has the names that the RFC wants
  return {text.data(), std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S +0000", &at)};
}

// The program in a process group of its own, with a signal mask that lets it be ended.
pid_t Start(const std::string& program, const std::string& to, int input) {
  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t files{};
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_init(&files);
  sigset_t none{};
  sigemptyset(&none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
  // The address is no option, whatever it begins with; -i: a line with a dot alone does not end the
  // text.
  std::vector<std::string> words = {program, "-i", "--", to};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t pid = -1;
  const int error =
      posix_spawn(&pid, program.c_str(), &files, &attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  errno = error;
  return error == 0 ? pid : -1;
}

}  // namespace

std::string MessageOf(const Mail& mail) {
  std::string message;
  if (!mail.from.empty()) message += "From: " + mail.from + "\n";
  message += "To: " + mail.to + "\nSubject: " + EncodedWords(mail.subject) +
             "\nDate: " + DateText() + "\nMessage-ID: <" + mail.id + "@" + mail.site +
             ">\nAuto-Submitted: auto-generated\nMIME-Version: 1.0\n"
             "Content-Type: text/plain; charset=UTF-8\nContent-Transfer-Encoding: base64\n\n";
  for (std::size_t at = 0; at < mail.text.size(); at += kLine) {
    message += Base64(mail.text.substr(at, kLine)) + "\n";
  }
  return message;
}

std::string SendMail(const std::string& program, const Mail& mail) {
  const Descriptor file(memfd_create("mail", MFD_CLOEXEC));
  if (file.get() < 0 || !WriteAll(file.get(), MessageOf(mail)) ||
      lseek(file.get(), 0, SEEK_SET) != 0) {
    return std::strerror(errno);
  }
  const pid_t pid = Start(program, mail.to, file.get());
  if (pid < 0) return program + ": " + std::strerror(errno);
  ChildProcess child(pid, ChildProcess::Clock::now() + kTimeLimit);
  const bool ended = child.EndsInTime();
  const int status = child.End();
  if (!ended) return program + " did not end in time";
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  return program + (WIFEXITED(status) ? " ended with status " + std::to_string(WEXITSTATUS(status))
                                      : " was ended by a signal");
}

}  // namespace VELT::tools
