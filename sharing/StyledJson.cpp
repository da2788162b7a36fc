#include "sharing/StyledJson.h"

#include <json/writer.h>

#include <memory>
#include <sstream>

namespace VELT::sharing {

std::string StyledJson(const Json::Value& value) {
  thread_local const std::unique_ptr<Json::StreamWriter> writer(
      Json::StreamWriterBuilder().newStreamWriter());
  thread_local std::ostringstream stream;
  writer->write(value, &stream);
  stream << '\n';
  std::string text = stream.str();
  stream.str(std::string());
  return text;
}

}  // namespace VELT::sharing
