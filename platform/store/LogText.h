// Untrusted texts in log lines.
#pragma once

#include <string>

namespace VELT::sharing {

// The first `length` characters of `text`, with '?' for all but printable ASCII, so that nobody can
// write log lines of their own.
inline std::string Printable(const std::string& text, std::size_t length) {
  std::string printable = text.substr(0, length);
  for (char& character : printable) {
    if (character < ' ' || character > '~') character = '?';
  }
  return printable;
}

}  // namespace VELT::sharing
