#include "host/request/WebRequest.h"

#include <charconv>
#include <system_error>

namespace VELT::host {

std::int64_t WebRequest::AnnouncedLength() const {
  const std::string text = Variable("CONTENT_LENGTH");
  std::int64_t length = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  return error == std::errc() && end == text.data() + text.size() ? length : -1;
}

}  // namespace VELT::host
