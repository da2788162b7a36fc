#include <exception>

#include "tests/plugins/faults/Fault.h"

namespace {

// Its code and text are gone once the library is closed.
class OwnError : public std::exception {
 public:
  const char* what() const noexcept override { return "lens cap on"; }
};

}  // namespace

FAULT(result[is_page ? "SESSION" : "x"] = "half done"; throw OwnError();)
