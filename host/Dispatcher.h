// From a web request to the text of its answer.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "LinkPage.h"
#include "Options.h"
#include "OutputCapture.h"
#include "Pool.h"
#include "Registry.h"
#include "WebRequest.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

// One request at a time: handlers own standard output and the effective ids of the process
// meanwhile.
class Dispatcher {
 public:
  // What became of a request: the answer, or the pool whose workers must answer it.
  struct Outcome {
    Outcome(std::string text) : answer(std::move(text)) {}  // NOLINT(google-explicit-constructor)
    explicit Outcome(Pool other) : elsewhere(other) {}

    std::string answer;
    std::optional<Pool> elsewhere;
  };

  // `pool` is that of the worker. The others must outlive the object.
  Dispatcher(const Options& options, const Registry& registry, OutputCapture& output, Pool pool);

  // Whatever the request and its handler do, there is an outcome; throws std::bad_alloc at most.
  Outcome Answer(const WebRequest& request);

 private:
  // `link` is the id in a visitor's address, null in an owner's.
  Outcome AnswerApi(const WebRequest& request, const std::string* link);
  Outcome AnswerMethod(const WebRequest& request, std::unique_ptr<RequestContext> context);
  Outcome CallMethod(const Method& method, const std::string& label,
                     std::unique_ptr<RequestContext> context, bool secure);

  const Options& options_;
  const Registry& registry_;
  OutputCapture& output_;
  const Pool pool_;
  const LinkPage page_;
};

}  // namespace VELT::host
