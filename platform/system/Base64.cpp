#include "veltsys/Base64.h"

#include <sodium.h>

#include <climits>

long VLIBCBase64SzEncodeFull(const void* source, std::size_t size, char* text,
                             std::size_t text_size, std::size_t max_length, int line_length,
                             int flags) {
  if (line_length != 0 || flags != 0 || size > LONG_MAX / 2) return -1;
  const std::size_t length = (size + 2) / 3 * 4;
  // The text must fit together with its zero byte.
  if (source == nullptr || text == nullptr || length >= text_size || length > max_length) return -1;
  sodium_bin2base64(text, text_size, static_cast<const unsigned char*>(source), size,
                    sodium_base64_VARIANT_ORIGINAL);
  return static_cast<long>(length);
}
