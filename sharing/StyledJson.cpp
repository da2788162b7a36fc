#include "sharing/StyledJson.h"

#include <json/writer.h>

#include <memory>
#include <new>
#include <sstream>

namespace VELT::sharing {

std::string StyledJson(const Json::Value& value) {
  thread_local const std::unique_ptr<Json::StreamWriter> writer(
      Json::StreamWriterBuilder().newStreamWriter());
  thread_local std::ostringstream stream;
  // What an earlier call left when it ran out of memory.
  stream.str(std::string());
  stream.clear();
  if (value.hasComment(Json::commentBefore)) stream << '\n';
  writer->write(value, &stream);
  stream << '\n';
  if (!stream) throw std::bad_alloc();
  return stream.str();
}

}  // namespace VELT::sharing
