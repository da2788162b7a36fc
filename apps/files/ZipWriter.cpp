#include "apps/files/ZipWriter.h"

#include <libdeflate.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace VELT::files {
namespace {

constexpr std::size_t kBuffer = std::size_t{256} * 1024;
constexpr std::uint64_t kMost16 = 0xFFFF;      // this and more stand in the Zip64 fields
constexpr std::uint64_t kMost32 = 0xFFFFFFFF;  // likewise

// Flags (4.4.4).
constexpr unsigned kCheckSumFollows = 1U << 3;
constexpr unsigned kNamesAreUtf8 = 1U << 11;

constexpr unsigned kVersion = 20;       // with folders
constexpr unsigned kVersionZip64 = 45;  // (4.4.3)
constexpr unsigned kMadeOnUnix = 3U << 8;
constexpr std::uint64_t kDosFolder = 0x10;

// A record of the format: its numbers are little-endian.
class Record {
 public:
  explicit Record(std::uint32_t signature) { U32(signature); }
  Record() = default;
  Record& U16(std::uint64_t value) { return Number(value, 2); }
  Record& U32(std::uint64_t value) { return Number(value, 4); }
  Record& U64(std::uint64_t value) { return Number(value, 8); }
  Record& Text(std::string_view text) {
    text_ += text;
    return *this;
  }
  std::string Take() { return std::move(text_); }

 private:
  Record& Number(std::uint64_t value, int bytes) {
    for (; bytes > 0; --bytes, value >>= 8) text_ += static_cast<char>(value & 0xFF);
    return *this;
  }

  std::string text_;
};

unsigned Flags(bool is_folder) { return kNamesAreUtf8 | (is_folder ? 0 : kCheckSumFollows); }

std::uint64_t VersionFor(bool zip64) { return zip64 ? kVersionZip64 : kVersion; }

// Time and date in the format's local time, in steps of two seconds (4.4.6).
std::uint64_t DosTime(std::time_t time) {
  tm at{};
  if (localtime_r(&time, &at) == nullptr || at.tm_year < 80) return (1U << 5 | 1U) << 16;
  if (at.tm_year > 80 + 127) return 0xFF9FBF7D;  // the last second of 2107
  const auto bits = [](int value, int shift) { return static_cast<std::uint64_t>(value) << shift; };
  return bits(at.tm_year - 80, 25) | bits(at.tm_mon + 1, 21) | bits(at.tm_mday, 16) |
         bits(at.tm_hour, 11) | bits(at.tm_min, 5) | bits(std::min(at.tm_sec, 59) / 2, 0);
}

// The exact time in UTC, in the "extended timestamp" field that Info-ZIP defined: in its 32 bits.
std::string ExactTime(std::time_t time) {
  if (time < std::numeric_limits<std::int32_t>::min() ||
      time > std::numeric_limits<std::int32_t>::max())
    return {};
  constexpr std::string_view kOnlyLastChange = "\x01";
  Record field;
  field.U16(0x5455).U16(5).Text(kOnlyLastChange).U32(static_cast<std::uint64_t>(time));
  return field.Take();
}

}  // namespace

ZipWriter::ZipWriter(Sender send) : send_(std::move(send)), buffer_(kBuffer) {}

bool ZipWriter::AddFolder(const std::string& name, const struct stat& status) {
  BeginMember(name + "/", status);
  return Put(LocalHeader(members_.back()));
}

bool ZipWriter::AddFile(const std::string& name, const struct stat& status, int file) {
  BeginMember(name, status);
  Member& member = members_.back();
  return Put(LocalHeader(member)) && CopyContent(file, member.size, member.check_sum) &&
         Put(Descriptor(member));
}

bool ZipWriter::Finish() {
  const std::uint64_t directory = sent_ + filled_;
  for (const Member& member : members_) {
    if (!Put(DirectoryEntry(member))) return false;
  }
  return Put(End(directory, sent_ + filled_ - directory)) && Flush();
}

void ZipWriter::BeginMember(std::string name, const struct stat& status) {
  const bool is_folder = S_ISDIR(status.st_mode);
  members_.push_back({std::move(name), status.st_mtim.tv_sec,
                      is_folder ? 0 : static_cast<std::uint64_t>(status.st_size), sent_ + filled_,
                      0, is_folder});
}

// Reads into the buffer that is sent, so that a file's bytes are copied once.
bool ZipWriter::CopyContent(int file, std::uint64_t size, std::uint32_t& check_sum) {
  while (size > 0) {
    if (filled_ == buffer_.size() && !Flush()) return false;
    char* const place = buffer_.data() + filled_;
    const ssize_t got = read(file, place, std::min<std::uint64_t>(buffer_.size() - filled_, size));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      syslog(LOG_WARNING, "files: a file could not be read whole into an archive");
      return false;
    }
    const auto length = static_cast<std::size_t>(got);
    check_sum = libdeflate_crc32(check_sum, place, length);
    filled_ += length;
    size -= length;
  }
  return true;
}

bool ZipWriter::Put(std::string_view bytes) {
  while (!bytes.empty()) {
    if (filled_ == buffer_.size() && !Flush()) return false;
    const std::size_t length = std::min(bytes.size(), buffer_.size() - filled_);
    std::copy_n(bytes.data(), length, buffer_.data() + filled_);
    filled_ += length;
    bytes.remove_prefix(length);
  }
  return true;
}

bool ZipWriter::Flush() {
  const std::size_t length = std::exchange(filled_, 0);
  sent_ += length;
  return length == 0 || send_({buffer_.data(), length});
}

// 4.3.7. The size stands here too, so that the archive can be read from a pipe.
std::string ZipWriter::LocalHeader(const Member& member) {
  const bool zip64 = member.size >= kMost32;
  Record extra;
  if (zip64) extra.U16(1).U16(16).U64(member.size).U64(member.size);
  const std::string fields = extra.Take() + ExactTime(member.changed);
  Record header(0x04034b50);
  header.U16(VersionFor(zip64))
      .U16(Flags(member.is_folder))
      .U16(0)
      .U32(DosTime(member.changed))
      .U32(0);
  header.U32(std::min(member.size, kMost32)).U32(std::min(member.size, kMost32));
  header.U16(member.name.size()).U16(fields.size()).Text(member.name).Text(fields);
  return header.Take();
}

// 4.3.9
std::string ZipWriter::Descriptor(const Member& member) {
  Record record(0x08074b50);
  record.U32(member.check_sum);
  if (member.size >= kMost32) {
    record.U64(member.size).U64(member.size);
  } else {
    record.U32(member.size).U32(member.size);
  }
  return record.Take();
}

// 4.3.12
std::string ZipWriter::DirectoryEntry(const Member& member) {
  Record wide;  // the fields that are too small, in the order of 4.5.3
  if (member.size >= kMost32) wide.U64(member.size).U64(member.size);
  if (member.offset >= kMost32) wide.U64(member.offset);
  const std::string wide_fields = wide.Take();
  Record extra;
  if (!wide_fields.empty()) extra.U16(1).U16(wide_fields.size()).Text(wide_fields);
  const std::string fields = extra.Take() + ExactTime(member.changed);
  const std::uint64_t version = VersionFor(!wide_fields.empty());
  const std::uint64_t mode = member.is_folder ? S_IFDIR | 0755 : S_IFREG | 0644;
  Record entry(0x02014b50);
  entry.U16(kMadeOnUnix | version).U16(version).U16(Flags(member.is_folder)).U16(0);
  entry.U32(DosTime(member.changed)).U32(member.check_sum);
  entry.U32(std::min(member.size, kMost32)).U32(std::min(member.size, kMost32));
  entry.U16(member.name.size()).U16(fields.size()).U16(0).U16(0).U16(0);
  entry.U32(mode << 16 | (member.is_folder ? kDosFolder : 0)).U32(std::min(member.offset, kMost32));
  entry.Text(member.name).Text(fields);
  return entry.Take();
}

// 4.3.14 to 4.3.16
std::string ZipWriter::End(std::uint64_t directory, std::uint64_t directory_size) const {
  const std::uint64_t count = members_.size();
  Record end;
  if (count >= kMost16 || directory >= kMost32 || directory_size >= kMost32) {
    end.U32(0x06064b50).U64(44).U16(kMadeOnUnix | kVersionZip64).U16(kVersionZip64).U32(0).U32(0);
    end.U64(count).U64(count).U64(directory_size).U64(directory);
    end.U32(0x07064b50).U32(0).U64(directory + directory_size).U32(1);
  }
  end.U32(0x06054b50).U16(0).U16(0).U16(std::min(count, kMost16)).U16(std::min(count, kMost16));
  end.U32(std::min(directory_size, kMost32)).U32(std::min(directory, kMost32)).U16(0);
  return end.Take();
}

}  // namespace VELT::files
