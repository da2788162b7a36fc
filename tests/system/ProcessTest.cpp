#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

#include "veltsys/Descriptor.h"
#include "veltsys/Process.h"

namespace {

std::string ReadAll(FILE* stream) {
  std::string text;
  std::array<char, 8192> chunk{};
  for (;;) {
    const std::size_t got = fread(chunk.data(), 1, chunk.size(), stream);
    text.append(chunk.data(), got);
    if (got < chunk.size()) return text;
  }
}

TEST(Process, PassesArgumentsAsTheyAre) {
  FILE* stream = VLIBCPopen("/usr/bin/printf", "r", "[%s]", "a  b", "$(id);'\"*", "", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "[a  b][$(id);'\"*][]");
  EXPECT_EQ(VLIBCPclose(stream), 0);
}

TEST(Process, ChildGetsThreeDescriptorsAndAnEmptyStandardInput) {
  const VELT::Descriptor left_open(open("/dev/zero", O_RDONLY));
  ASSERT_GT(fcntl(left_open.get(), F_DUPFD, 100), 0);
  FILE* other = VLIBCPopen("/usr/bin/yes", "r", nullptr);
  ASSERT_NE(other, nullptr);
  // Of its own ls opens the folder, under the lowest free number.
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

TEST(Process, ChildStartsWithoutBlockedOrIgnoredSignals) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto old_action = std::signal(SIGPIPE, SIG_IGN);
  // Beyond the standard signals stand two of the C library's own, which nothing outside it may
  // touch.
  FILE* stream = VLIBCPopen("/bin/grep", "r", "-cE", "^Sig(Blk|Ign):.[0-9a-f]{9}0000000$",
                            "/proc/self/status", nullptr);
  std::signal(SIGPIPE, old_action);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "2\n");
  VLIBCPclose(stream);
}

TEST(Process, ReadsOutputOfWholeChunksToItsEnd) {
  FILE* stream = VLIBCPopen("/usr/bin/head", "r", "-c", "16384", "/dev/zero", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), std::string(16384, '\0'));
  EXPECT_EQ(VLIBCPclose(stream), 0);
}

TEST(Process, ClosingEndsAProgramThatStillWritesAndLeavesNoZombie) {
  FILE* first = VLIBCPopen("/usr/bin/yes", "r", nullptr);
  FILE* second = VLIBCPopen("/usr/bin/yes", "r", nullptr);
  ASSERT_TRUE(first != nullptr && second != nullptr);
  EXPECT_EQ(fgetc(first), 'y');
  for (FILE* stream : {first, second}) {  // the second must not hold the first one's pipe open
    const int status = VLIBCPclose(stream);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
  }
  FILE* failed = VLIBCPopen("/bin/false", "r", nullptr);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(ReadAll(failed), "");
  EXPECT_EQ(WEXITSTATUS(VLIBCPclose(failed)), 1);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(Process, WhatCannotStartSaysWhyAndLeavesNothing) {
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
  EXPECT_EQ(VLIBCPclose(nullptr), -1);
  EXPECT_EQ(VLIBCPclose(stdin), -1);
}

}  // namespace
