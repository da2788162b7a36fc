#include "veltsys/Base64.h"

#include <sodium.h>

#include <climits>
#include <cstring>

long VLIBCBase64SzEncodeFull(const void* source, std::size_t size, char* text,
                             std::size_t text_size, std::size_t max_length, int line_length,
                             int flags) {
  if (line_length != 0 || flags != 0 || size > LONG_MAX / 2) return -1;
  if (size == 0) {
    if (text != nullptr && text_size > 0) text[0] = '\0';
    return 0;
  }
  const std::size_t length = (size + 2) / 3 * 4;
  if (source == nullptr || text == nullptr || length > text_size || length > max_length) return -1;
  // libsodium always writes a zero byte after its text. The last group is made apart, so that this
  // one never stands beyond a buffer that just holds the text.
  const auto* bytes = static_cast<const unsigned char*>(source);
  const std::size_t head = (size - 1) / 3 * 3;
  const std::size_t head_length = head / 3 * 4;
  char last[5];
  sodium_bin2base64(text, head_length + 1, bytes, head, sodium_base64_VARIANT_ORIGINAL);
  sodium_bin2base64(last, sizeof last, bytes + head, size - head, sodium_base64_VARIANT_ORIGINAL);
  std::memcpy(text + head_length, last, text_size > length ? sizeof last : sizeof last - 1);
  return static_cast<long>(length);
}
