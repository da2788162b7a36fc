// Base64 as RFC 4648, section 4: the standard alphabet, with padding, without line breaks.
#pragma once

#include <cstddef>

// Writes the base64 text of the `size` bytes at `source` and a zero byte into `text`, of which
// `text_size` bytes may be written, at most `max_length` of them text. `line_length` and `flags`
// must be 0: no line breaks, the standard alphabet.
// Returns the number of characters written, without the zero byte, or -1 when they do not fit or
// an argument is refused; `text` is untouched then. Several threads may call it at once.
long VLIBCBase64SzEncodeFull(const void* source, std::size_t size, char* text,
                             std::size_t text_size, std::size_t max_length, int line_length,
                             int flags);
