// The archives' format where it has wider fields, read by others' programs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "apps/files/ZipWriter.h"
#include "veltsys/Descriptor.h"

namespace VELT::files {
namespace {

class ZipWriterTest : public testing::Test {
 protected:
  ZipWriterTest() {
    char pattern[] = "/var/tmp/zip-XXXXXX";
    folder_ = mkdtemp(pattern);
    archive_ = Descriptor(open((folder_ + "/a.zip").c_str(), O_CREAT | O_WRONLY, 0600));
  }
  ~ZipWriterTest() override { std::filesystem::remove_all(folder_); }

  Descriptor FileOf(std::string_view text, off_t size) const {
    Descriptor file(open((folder_ + "/file").c_str(), O_CREAT | O_TRUNC | O_RDWR, 0600));
    EXPECT_EQ(static_cast<ssize_t>(text.size()), pwrite(file.get(), text.data(), text.size(), 0));
    EXPECT_EQ(0, ftruncate(file.get(), size));
    return file;
  }

  // Leaves holes for zeros, so that a large archive takes no disk.
  ZipWriter::Sender ToArchive() {
    return [this](std::string_view bytes) {
      static const std::string kZeros(std::size_t{1} << 20, '\0');
      if (kZeros.starts_with(bytes)) {
        return lseek(archive_.get(), static_cast<off_t>(bytes.size()), SEEK_CUR) > 0;
      }
      return write(archive_.get(), bytes.data(), bytes.size()) ==
             static_cast<ssize_t>(bytes.size());
    };
  }

  void ExpectReadable(const std::string& python) const {
    for (const std::string& reader :
         {std::string("unzip -tq a.zip"), std::string("7zz t -bd a.zip"),
          std::string("bsdtar -tf a.zip"),
          "/usr/bin/python3 -c 'import zipfile; z = zipfile.ZipFile(\"a.zip\"); " + python + "'"}) {
      const std::string command =
          "cd " + folder_ + " && " + reader + " >out 2>&1 || { tail -n 5 out; false; }";
      EXPECT_EQ(0, std::system(command.c_str()))
          << reader;  // NOLINT(cert-env33-c): a test's own text
    }
  }

  static struct stat StatusOf(const Descriptor& file) {
    struct stat status {};
    EXPECT_EQ(0, fstat(file.get(), &status));
    return status;
  }

  std::string folder_;
  Descriptor archive_;
};

TEST_F(ZipWriterTest, FilesBeyondFourGigabytesAreReadByEverybody) {
  constexpr off_t kLarge = (off_t{4} << 30) + 1;
  ZipWriter zip(ToArchive());
  const Descriptor large = FileOf("begins", kLarge);
  ASSERT_TRUE(zip.AddFile("large", StatusOf(large), large.get()));
  const Descriptor small = FileOf("behind", 6);
  ASSERT_TRUE(zip.AddFile("small", StatusOf(small), small.get()));
  ASSERT_TRUE(zip.Finish());
  ExpectReadable(
      "assert z.getinfo(\"large\").file_size == 2**32 + 1; assert z.read(\"small\") == "
      "b\"behind\"");
}

TEST_F(ZipWriterTest, MoreThan65535MembersAreReadByEverybody) {
  ZipWriter zip(ToArchive());
  struct stat folder {};
  folder.st_mode = S_IFDIR;
  folder.st_mtim.tv_sec = 1'700'000'000;
  for (int number = 0; number < 66'000; ++number) {
    ASSERT_TRUE(zip.AddFolder(std::to_string(number), folder));
  }
  ASSERT_TRUE(zip.Finish());
  ExpectReadable("assert len(z.namelist()) == 66000; assert z.getinfo(\"65999/\").is_dir()");
}

TEST_F(ZipWriterTest, StopsWhereSendingOrReadingFails) {
  int calls = 0;
  ZipWriter unsent([&calls](std::string_view) { return ++calls < 2; });
  const Descriptor file = FileOf("", 1 << 20);
  EXPECT_FALSE(unsent.AddFile("name", StatusOf(file), file.get()));
  EXPECT_EQ(2, calls);

  ZipWriter unread([](std::string_view) { return true; });
  const struct stat before = StatusOf(file);
  const Descriptor shorter = FileOf("", 1000);
  EXPECT_FALSE(unread.AddFile("name", before, shorter.get()));
}

}  // namespace
}  // namespace VELT::files
