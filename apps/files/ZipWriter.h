// A ZIP archive that is made while it is sent.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace VELT::files {

// Writes members as they are, without compression, in the format of PKWARE's APPNOTE.TXT 6.3.10. What
// doesn't fit into its first fields is written as Zip64. Each file's check sum follows the file, since it
// is known only then. One thread at a time.
class ZipWriter {
 public:
  // Is called with the archive's bytes in their order. False when nothing more can be sent.
  using Sender = std::function<bool(std::string_view bytes)>;

  explicit ZipWriter(Sender send);

  // Add one member. Names are UTF-8, shorter than kLongestName bytes, each given once; a folder's gets
  // its slash here. `file` is read from where it stands, as long as `status` says. False when nothing
  // more can be sent, or the file ends too early (which is logged): the archive is broken then.
  bool AddFolder(const std::string& name, const struct stat& status);
  bool AddFile(const std::string& name, const struct stat& status, int file);

  // Sends the archive's directory and its end. False as above.
  bool Finish();

  static constexpr std::size_t kLongestName = 65535;
  // Bytes that a member takes in memory until the end, besides its name.
  static constexpr std::size_t kMemberMemory = 128;

 private:
  struct Member {
    std::string name;
    std::time_t changed;
    std::uint64_t size;
    std::uint64_t offset;  // of its header in the archive
    std::uint32_t check_sum;
    bool is_folder;
  };

  void BeginMember(std::string name, const struct stat& status);
  bool CopyContent(int file, std::uint64_t size, std::uint32_t& check_sum);
  bool Put(std::string_view bytes);
  bool Flush();

  static std::string LocalHeader(const Member& member);
  static std::string Descriptor(const Member& member);
  static std::string DirectoryEntry(const Member& member);
  std::string End(std::uint64_t directory, std::uint64_t directory_size) const;

  Sender send_;
  std::vector<Member> members_;
  std::vector<char> buffer_;
  std::size_t filled_ = 0;  // bytes of the buffer
  std::uint64_t sent_ = 0;  // bytes before the buffer
};

}  // namespace VELT::files
