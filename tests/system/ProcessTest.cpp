#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/Orphans.h"
#include "tests/support/SyslogCapture.h"
#include "veltsys/Descriptor.h"
#include "veltsys/ForkedCall.h"
#include "veltsys/Process.h"
#include "veltsys/ProgramRules.h"

namespace {

using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::HasSubstr;

class Process : public testing::Test {
 protected:
  void SetUp() override { VELT::Log().clear(); }
  void TearDown() override { VELT::SetProgramRules({}); }
};

std::string ReadAll(FILE* stream) {
  std::string text;
  std::array<char, 8192> chunk{};
  for (;;) {
    const std::size_t got = fread(chunk.data(), 1, chunk.size(), stream);
    text.append(chunk.data(), got);
    if (got < chunk.size()) return text;
  }
}

TEST_F(Process, PassesArgumentsAsTheyAre) {
  FILE* stream = VLIBCPopen("/usr/bin/printf", "r", "[%s]", "a  b", "$(id);'\"*", "", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "[a  b][$(id);'\"*][]");
  EXPECT_EQ(VLIBCPclose(stream), 0);
}

TEST_F(Process, ChildGetsThreeDescriptorsAndAnEmptyStandardInput) {
  const VELT::Descriptor left_open(open("/dev/zero", O_RDONLY));
  ASSERT_GT(fcntl(left_open.get(), F_DUPFD, 100), 0);
  FILE* other = VLIBCPopen("/usr/bin/yes", "r", nullptr);
  ASSERT_NE(other, nullptr);
  // ls itself opens the folder, under the lowest free number.
  FILE* stream = VLIBCPopen("/bin/ls", "r", "/proc/self/fd", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "0\n1\n2\n3\n");
  VLIBCPclose(stream);
  stream = VLIBCPopen("/bin/readlink", "r", "/proc/self/fd/0", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "/dev/null\n");
  VLIBCPclose(stream);
  VLIBCPclose(other);
}

// What a program reads about itself from a file of /proc.
std::string Own(const char* file) {
  FILE* stream = VLIBCPopen("/bin/cat", "r", file, nullptr);
  if (stream == nullptr) return "not started";
  std::string text = ReadAll(stream);
  VLIBCPclose(stream);
  return text;
}

TEST_F(Process, ChildStartsWithoutBlockedOrIgnoredSignals) {
  sigset_t blocked;
  sigset_t before;
  sigfillset(&blocked);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto old_action = std::signal(SIGPIPE, SIG_IGN);
  const std::string status = Own("/proc/self/status");
  std::signal(SIGPIPE, old_action);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_THAT(status, ContainsRegex("\nSigBlk:\t0+\nSigIgn:\t0+\n"));
}

// False for root of a user namespace that maps no other id.
bool MayTakeAnyId() { return setgroups(0, nullptr) == 0; }

TEST_F(Process, ChildHasTheServicesIdsAndNoWayToMore) {
  if (!MayTakeAnyId()) GTEST_SKIP() << "needs root";
  constexpr gid_t kExtra = 7100;
  const struct {
    const char* name;
    VELT::ProgramRules rules;
    uid_t effective;
    uid_t want;
  } rows[] = {{"rules, ordinary ids", {.uid = 7001, .gid = 7001}, 7001, 7001},
              {"rules, other ids", {.uid = 7001, .gid = 7001}, 7002, 7001},
              {"rules, root for a while", {.uid = 7001, .gid = 7001}, 0, 7001},
              {"no rules, ordinary ids", {}, 7002, 7002},
              {"no rules, root", {}, 0, 0}};
  ASSERT_EQ(setgroups(1, &kExtra), 0);
  const int dumpable = prctl(PR_GET_DUMPABLE);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    VELT::SetProgramRules(row.rules);
    ASSERT_TRUE(setegid(row.effective) == 0 && seteuid(row.effective) == 0);
    const std::string status = Own("/proc/self/status");
    EXPECT_TRUE(geteuid() == row.effective && getegid() == row.effective) << "ours have changed";
    ASSERT_TRUE(seteuid(0) == 0 && setegid(0) == 0);
    EXPECT_EQ(getgroups(0, nullptr), 1) << "ours have changed";
    std::string ids;  // real, effective, saved, file system
    for (int kind = 0; kind < 4; ++kind) ids += "\t" + std::to_string(row.want);
    EXPECT_THAT(status, HasSubstr("\nUid:" + ids + "\nGid:" + ids + "\n"));
    EXPECT_THAT(status, ContainsRegex("\nGroups:[ \t]*\n"));
    EXPECT_THAT(status, ContainsRegex("\nCapInh:\t0+\nCapPrm:\t0+\nCapEff:\t0+\nCapBnd:.*\n"
                                      "CapAmb:\t0+\nNoNewPrivs:\t1\n"));
  }
  setgroups(0, nullptr);
  // seteuid has cleared the flag of this process; starting a program must not change it.
  prctl(PR_SET_DUMPABLE, dumpable);
  VELT::SetProgramRules({.uid = 7001, .gid = 7001});
  Own("/proc/self/status");
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), dumpable);
}

TEST_F(Process, ChildHasLimits) {
  VELT::SetProgramRules({.time_limit = 3s});
  const std::string limits = Own("/proc/self/limits");
  for (const char* limit :
       {"cpu time +4 +4", "file size +16777216 +16777216", "core file size +0 +0",
        "open files +64 +64", "address space +1073741824 +1073741824"}) {
    EXPECT_THAT(limits, ContainsRegex(std::string("\nMax ") + limit)) << limit;
  }
}

TEST_F(Process, ReadsOutputOfWholeChunksToItsEnd) {
  FILE* stream = VLIBCPopen("/usr/bin/head", "r", "-c", "16384", "/dev/zero", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), std::string(16384, '\0'));
  EXPECT_EQ(VLIBCPclose(stream), 0);
}

TEST_F(Process, ClosingEndsAProgramThatStillWritesAndLeavesNoZombie) {
  const VELT::Orphans orphans;
  FILE* first = VLIBCPopen("/usr/bin/yes", "r", nullptr);
  FILE* second = VLIBCPopen("/usr/bin/yes", "r", nullptr);
  ASSERT_TRUE(first != nullptr && second != nullptr);
  for (FILE* stream : {first, second}) {  // the second must not hold the first one's pipe open
    const int status = VLIBCPclose(stream);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
  }
  FILE* failed = VLIBCPopen("/bin/false", "r", nullptr);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(ReadAll(failed), "");
  EXPECT_EQ(WEXITSTATUS(VLIBCPclose(failed)), 1);
  EXPECT_TRUE(orphans.AreGone());
}

FILE* Shell(const char* script) { return VLIBCPopen("/bin/sh", "r", "-c", script, nullptr); }

TEST_F(Process, ProgramThatHangsIsEndedWithItsGroup) {
  // Longer where the outcome needs the script to get that far.
  constexpr auto kShort = 200ms;
  constexpr auto kLong = 1000ms;
  constexpr auto kEnough = 30000ms;
  constexpr const char* kTooLate = "3 program /bin/sh took too long and was ended";
  const struct {
    const char* name;
    const char* script;
    std::chrono::milliseconds limit;
    std::string output;  // empty: an error
    int signal;
    std::vector<std::string> log;
  } rows[] = {
      {"prints nothing", "exec sleep 100", kShort, "", SIGTERM, {kTooLate}},
      {"prints, then hangs", "echo x; exec sleep 100", kShort, "", SIGTERM, {kTooLate}},
      {"ignores SIGTERM", "trap '' TERM; echo x; sleep 100", kLong, "", SIGKILL, {kTooLate}},
      {"leaves its output to another", "sleep 100 & echo x", kLong, "", 0, {kTooLate}},
      {"closes its output", "echo x; exec sleep 100 >&-", kLong, "x\n", SIGTERM, {kTooLate}},
      {"prints without end",
       "exec yes",
       kEnough,
       "",
       SIGTERM,
       {"3 program /bin/sh printed too much and was ended"}},
      {"leaves another behind", "echo x; sleep 100 >&- &", kEnough, "x\n", 0, {}},
  };
  const VELT::Orphans orphans;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    VELT::SetProgramRules({.time_limit = row.limit});
    VELT::Log().clear();
    FILE* stream = Shell(row.script);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(ReadAll(stream), row.output);
    EXPECT_EQ(std::ferror(stream) != 0, row.output.empty());
    const int status = VLIBCPclose(stream);
    EXPECT_EQ(WIFSIGNALED(status) ? WTERMSIG(status) : 0, row.signal) << status;
    EXPECT_EQ(VELT::Log(), row.log);
    EXPECT_TRUE(orphans.AreGone());
  }
}

TEST_F(Process, OutputOfAProgramThatHasEndedIsReadAfterItsTime) {
  VELT::SetProgramRules({.time_limit = 0ms});
  for (const char* script : {"echo x", "echo x; sleep 100 &"}) {
    FILE* stream = Shell(script);
    ASSERT_NE(stream, nullptr);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
    const bool whole = std::string(script) == "echo x";
    EXPECT_EQ(ReadAll(stream), whole ? "x\n" : "");
    EXPECT_EQ(VLIBCPclose(stream), 0);
    EXPECT_EQ(VELT::Log().empty(), whole);
  }
}

TEST_F(Process, OutputMayHaveSixteenMebibytesAtMost) {
  for (const std::size_t size : {std::size_t{16} << 20, (std::size_t{16} << 20) + 1}) {
    FILE* stream =
        VLIBCPopen("/usr/bin/head", "r", "-c", std::to_string(size).c_str(), "/dev/zero", nullptr);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(ReadAll(stream).size(), size == std::size_t{16} << 20 ? size : 0U);
    VLIBCPclose(stream);
  }
}

TEST_F(Process, RequestStartsNoneAfterOneThatHungOrWhenItsClientHasLeft) {
  const auto echo = [] {
    FILE* stream = VLIBCPopen("/bin/echo", "r", nullptr);
    if (stream == nullptr) return std::string("not started");
    const std::string text = ReadAll(stream);
    errno = 0;
    const bool started = VLIBCPclose(stream) == 0;
    EXPECT_TRUE(started || errno == ECANCELED);
    return text + (started ? "started" : "");
  };
  int asked = 0;
  bool stays = true;
  const auto begin = [&] { VELT::BeginProgramsOfRequest([&] { return ++asked, stays; }); };
  begin();
  EXPECT_EQ(echo(), "\nstarted");
  EXPECT_EQ(asked, 1);

  VELT::SetProgramRules({.time_limit = 200ms});
  FILE* stream = Shell("sleep 100");
  VELT::SetProgramRules({});
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(echo(), "\nstarted");
  EXPECT_EQ(ReadAll(stream), "");
  EXPECT_EQ(echo(), "not started");
  VLIBCPclose(stream);
  EXPECT_EQ(echo(), "not started");
  begin();
  EXPECT_EQ(echo(), "\nstarted");

  stays = false;
  EXPECT_EQ(echo(), "");
  asked = 0;
  stays = true;
  EXPECT_EQ(echo(), "") << "a client that has left is not looked for again";
  EXPECT_EQ(asked, 0);
  VELT::BeginProgramsOfRequest({});
  EXPECT_EQ(echo(), "\nstarted");
}

TEST_F(Process, ProgramIsKilledWhenItsParentDies) {
  const bool other = MayTakeAnyId();
  for (const bool is_other : {false, other}) {
    const VELT::Orphans orphans;
    const pid_t parent = fork();
    if (parent == 0) {
      if (is_other) VELT::SetProgramRules({.uid = 7001, .gid = 7001});
      VLIBCPopen("/bin/sleep", "r", "100", nullptr);
      raise(SIGKILL);
    }
    EXPECT_EQ(waitpid(parent, nullptr, 0), parent);
    int status = 0;
    EXPECT_TRUE(orphans.AreGone(&status));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
  }
}

TEST_F(Process, ProgramThatCannotStartGivesAnErrorAndLeavesNoChild) {
  const struct {
    const char* path;
    const char* mode;
    int error;
  } rows[] = {
      {"/no/such/program", "r", ENOENT}, {"/etc/passwd", "r", EACCES}, {"/bin/true", "w", EINVAL}};
  for (const auto& row : rows) {
    errno = 0;
    EXPECT_EQ(VLIBCPopen(row.path, row.mode, "x", nullptr), nullptr) << row.path;
    EXPECT_EQ(errno, row.error) << row.path;
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  EXPECT_EQ(VLIBCPclose(nullptr), -1);
  EXPECT_EQ(VLIBCPclose(stdin), -1);
}

TEST(ForkedCall, ReturnsWholeResultsOnly) {
  const struct {
    const char* name;
    std::function<std::string()> work;
    VELT::ForkedCall outcome;
  } rows[] = {
      {"the largest", [] { return std::string(65536, 'x'); }, VELT::ForkedCall::kReturned},
      {"too large", [] { return std::string(70000, 'x'); }, VELT::ForkedCall::kDied},
      {"an exception", []() -> std::string { throw 1; }, VELT::ForkedCall::kDied},
  };
  for (const auto& row : rows) {
    std::string result;
    EXPECT_EQ(VELT::CallInFork(row.work, 60s, result), row.outcome) << row.name;
    EXPECT_TRUE(row.outcome != VELT::ForkedCall::kReturned || result == row.work()) << row.name;
  }
}

}  // namespace
