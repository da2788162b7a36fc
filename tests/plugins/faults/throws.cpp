#include <exception>

#include "veltplugin/RenderPlugin.h"

namespace {

// Its code and text are gone once the library is closed.
class OwnError : public std::exception {
 public:
  const char* what() const noexcept override { return "lens cap on"; }
};

}  // namespace

bool CustomPageFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                    const Json::Value& /*extra*/, Json::Value& result) {
  result["SESSION"]["half"] = "done";
  throw OwnError();
}

bool OpenGraphFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                   const Json::Value& /*extra*/, Json::Value& /*result*/) {
  throw OwnError();
}
