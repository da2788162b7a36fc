#include "sharing/StyledJson.h"

#include <json/writer.h>

#include <memory>
#include <new>
#include <sstream>
#include <utility>

namespace VELT::sharing {

std::string StyledJson(const Json::Value& value) {
  thread_local const std::unique_ptr<Json::StreamWriter> writer(
      Json::StreamWriterBuilder().newStreamWriter());
  thread_local std::ostringstream stream;
  stream.clear();  // an earlier call may have run out of memory
  stream.str(std::string());
  if (value.hasComment(Json::commentBefore)) stream << '\n';
  writer->write(value, &stream);
  stream << '\n';
  if (!stream) throw std::bad_alloc();
  return std::move(stream).str();  // moved out, so that no large buffer is kept
}

}  // namespace VELT::sharing
