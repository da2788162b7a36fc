// From a web request to the text of its answer.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
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
  // Sends a piece of an answer; false when nothing more is wanted.
  using Sink = std::function<bool(std::string_view)>;

  // What became of a request: the answer, or the pool whose workers must answer it. An answer that
  // was sent in pieces is empty.
  struct Outcome {
    Outcome(std::string text) : answer(std::move(text)) {}  // NOLINT(google-explicit-constructor)
    explicit Outcome(Pool other) : elsewhere(other) {}

    std::string answer;
    std::optional<Pool> elsewhere;
    bool broken_off = false;  // the pieces are not all
    std::function<void()> when_taken;
  };

  // `pool` is that of the worker. The others must outlive the object.
  Dispatcher(const Options& options, const Registry& registry, OutputCapture& output, Pool pool);

  // Whatever the request and its handler do, there is an outcome; throws std::bad_alloc at most.
  // `sink` is used only in the pool "stream".
  Outcome Answer(const WebRequest& request, const Sink& sink);

 private:
  // `link` is the id in a visitor's address, null in an owner's.
  Outcome AnswerApi(const WebRequest& request, const std::string* link, const Sink& sink);
  Outcome AnswerMethod(const WebRequest& request, std::unique_ptr<RequestContext> context,
                       const Sink& sink);
  struct Call;
  Outcome CallMethod(const Call& call, std::unique_ptr<RequestContext> context);

  const Options& options_;
  const Registry& registry_;
  OutputCapture& output_;
  const Pool pool_;
  const LinkPage page_;
};

}  // namespace VELT::host
