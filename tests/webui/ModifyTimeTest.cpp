#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "Files.h"
#include "veltweb/WebUtils.h"

namespace {

namespace fs = std::filesystem;
using VELT::WebUtils;

const fs::path kWeb = "/usr/velt/web";

void WriteAt(const std::string& path, time_t seconds) {
  Write("web/" + path, "content");
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, (kWeb / path).c_str(), times, 0), 0);
}

std::string TimeOf(const std::string& path) {
  return WebUtils::GetModifyTime(("/" + path).c_str());
}

std::string Seconds(time_t seconds) { return std::to_string(seconds) + "000000000"; }

// A file is kept in mind when its last change is more than two seconds old.
void LetFilesSettle() { std::this_thread::sleep_for(std::chrono::milliseconds(2100)); }

TEST(ModifyTimeTest, ChangeOfAKnownFileIsSeen) {
  Clear();
  for (const char* path : {"a/edited.js", "a/replaced.js", "a/backed-up.js", "a/moved.js",
                           "a/linked.js", "removed/app.js", "exchanged/app.js"}) {
    WriteAt(path, 100);
  }
  WriteAt("older.js", 50);
  WriteAt("newer.js", 200);
  WriteAt("other/app.js", 300);
  LetFilesSettle();
  for (const auto& file : fs::recursive_directory_iterator(kWeb)) {
    if (file.is_regular_file()) TimeOf(fs::relative(file.path(), kWeb));
  }

  WriteAt("a/edited.js", 101);
  EXPECT_EQ(TimeOf("a/edited.js"), Seconds(101));
  fs::rename(kWeb / "older.js", kWeb / "a/replaced.js");
  EXPECT_EQ(TimeOf("a/replaced.js"), Seconds(50));
  fs::create_hard_link(kWeb / "a/backed-up.js", kWeb / "a/backed-up.js~");
  fs::rename(kWeb / "newer.js", kWeb / "a/backed-up.js");
  EXPECT_EQ(TimeOf("a/backed-up.js"), Seconds(200));
  fs::rename(kWeb / "a/moved.js", kWeb / "a/away.js");
  EXPECT_EQ(TimeOf("a/moved.js"), "0");
  fs::remove(kWeb / "a/linked.js");
  fs::create_symlink("edited.js", kWeb / "a/linked.js");
  EXPECT_EQ(TimeOf("a/linked.js"), Seconds(101));
  fs::remove_all(kWeb / "removed");
  EXPECT_EQ(TimeOf("removed/app.js"), "0");

  fs::rename(kWeb / "exchanged", kWeb / "away");
  fs::rename(kWeb / "other", kWeb / "exchanged");
  const auto start = std::chrono::steady_clock::now();
  while (TimeOf("exchanged/app.js") != Seconds(300)) {
    ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

TEST(ModifyTimeTest, ManyFilesKeepFewDescriptors) {
  constexpr int kFiles = 300;
  const auto open_files = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  Clear();
  for (int i = 0; i < kFiles; ++i) WriteAt(std::to_string(i), i + 1);
  LetFilesSettle();
  const auto before = open_files();
  for (int i = 0; i < kFiles; ++i) EXPECT_EQ(TimeOf(std::to_string(i)), Seconds(i + 1));
  EXPECT_GT(open_files(), before);
  EXPECT_LE(open_files(), before + 64);
  EXPECT_EQ(TimeOf("0"), Seconds(1));
}

}  // namespace
