#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "platform/webui/ModifyTimes.h"
#include "tests/webui/Files.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using VELT::ModifyTimes;

const fs::path kWeb = "/usr/velt/web";
const fs::path kVolume = "/volume";  // of another file system, the namespace's own

std::string Seconds(time_t seconds) { return std::to_string(seconds) + "000000000"; }

void WriteAt(const std::string& path, time_t seconds) {
  Write("web/" + path, "content");
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, (kWeb / path).c_str(), times, 0), 0);
}

// Older kernels count a file's change time in ticks of some milliseconds.
void AwaitNextChangeTime() {
  const auto changed = [] {
    Write("probe", "");
    struct stat status;
    EXPECT_EQ(stat("/usr/velt/probe", &status), 0);
    return std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
  };
  const auto first = changed();
  while (changed() == first) {
  }
}

// How many of the tests' files are open. Each must be close-on-exec.
int OpenFiles() {
  int count = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::string file = fs::read_symlink(entry, error);
    if (!file.starts_with(kWeb.string()) && !file.starts_with(kVolume.string())) continue;
    ++count;
    EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD), FD_CLOEXEC);
  }
  return count;
}

class ModifyTimesTest : public testing::Test {
 protected:
  ModifyTimesTest() { Clear(); }

  std::string Of(const std::string& path) { return times_.Of("/" + path); }

  // Long after every change of a file, so that each file is kept open.
  ModifyTimes::TimePoint now_ = std::chrono::system_clock::now() + 1h;
  ModifyTimes times_{kWeb, [this] { return now_; }};
};

TEST_F(ModifyTimesTest, ChangeOfAnOpenFileIsSeen) {
  const std::vector<std::string> paths = {"a/edited.js", "a/replaced.js", "a/backed-up.js",
                                          "a/moved.js",  "a/linked.js",   "removed/app.js"};
  for (const std::string& path : paths) WriteAt(path, 100);
  WriteAt("older.js", 50);
  WriteAt("newer.js", 200);
  for (const std::string& path : paths) EXPECT_EQ(Of(path), Seconds(100));
  ASSERT_EQ(OpenFiles(), std::ssize(paths));
  AwaitNextChangeTime();

  WriteAt("a/edited.js", 101);
  EXPECT_EQ(Of("a/edited.js"), Seconds(101));
  fs::rename(kWeb / "older.js", kWeb / "a/replaced.js");
  EXPECT_EQ(Of("a/replaced.js"), Seconds(50));
  fs::create_hard_link(kWeb / "a/backed-up.js", kWeb / "a/backed-up.js~");
  fs::rename(kWeb / "newer.js", kWeb / "a/backed-up.js");
  EXPECT_EQ(Of("a/backed-up.js"), Seconds(200));
  fs::rename(kWeb / "a/moved.js", kWeb / "a/away.js");
  EXPECT_EQ(Of("a/moved.js"), "");
  fs::remove(kWeb / "a/linked.js");
  fs::create_symlink("edited.js", kWeb / "a/linked.js");
  EXPECT_EQ(Of("a/linked.js"), Seconds(101));
  fs::remove_all(kWeb / "removed");
  fs::create_directories(kWeb / "removed/app.js");
  EXPECT_EQ(Of("removed/app.js"), "");
}

TEST_F(ModifyTimesTest, ExchangedFolderIsSeenWithinASecond) {
  WriteAt("pkg/app.js", 100);
  WriteAt("new/app.js", 200);
  EXPECT_EQ(Of("pkg/app.js"), Seconds(100));
  now_ += 2s;
  EXPECT_EQ(Of("pkg/app.js"), Seconds(100));
  fs::rename(kWeb / "pkg", kWeb / "old");
  fs::rename(kWeb / "new", kWeb / "pkg");
  now_ += 999ms;
  EXPECT_EQ(Of("pkg/app.js"), Seconds(100)) << "looked up its path instead of its open file";
  now_ += 1ms;
  EXPECT_EQ(Of("pkg/app.js"), Seconds(200));

  fs::rename(kWeb / "pkg", kWeb / "new");
  fs::rename(kWeb / "old", kWeb / "pkg");
  now_ -= 10min;
  EXPECT_EQ(Of("pkg/app.js"), Seconds(100)) << "trusted although the clock was set back";
}

TEST_F(ModifyTimesTest, FewFilesAreOpen) {
  constexpr int kFiles = 300;
  for (int i = 0; i < kFiles; ++i) WriteAt(std::to_string(i), i + 1);
  for (int i = 0; i < kFiles; ++i) EXPECT_EQ(Of(std::to_string(i)), Seconds(i + 1));
  EXPECT_GT(OpenFiles(), 0);
  EXPECT_LE(OpenFiles(), 64);
  EXPECT_EQ(Of("0"), Seconds(1));
}

TEST_F(ModifyTimesTest, FileThatIsNotKeptOpenHasItsTimeToo) {
  WriteAt("new", 100);
  ModifyTimes times(kWeb);
  EXPECT_EQ(times.Of("/new"), Seconds(100)) << "may change again under the same change time";

  fs::create_directories(kVolume);
  fs::copy_file(kWeb / "new", kVolume / "app.js", fs::copy_options::overwrite_existing);
  fs::create_symlink(kVolume / "app.js", kWeb / "app.js");
  EXPECT_NE(Of("app.js"), "") << "on another file system";

  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(Of("new"), Seconds(100)) << "no descriptor left";
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);

  EXPECT_EQ(OpenFiles(), 0);
}

}  // namespace
