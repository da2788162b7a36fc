// Turns a web request into the text of its answer.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/Options.h"
#include "host/Party.h"
#include "host/Pool.h"
#include "host/page/LinkPage.h"
#include "host/request/Address.h"
#include "host/request/OutputCapture.h"
#include "host/request/Registry.h"
#include "host/request/WebRequest.h"
#include "host/watch/RequestNote.h"
#include "veltsharing/LinkEvents.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

// Serves one request at a time, since a handler uses the process's standard output and effective
// ids.
class Dispatcher {
 public:
  // Sends a piece of an answer; false when no more is to be sent.
  using Sink = std::function<bool(std::string_view)>;

  // The answer, or the pool whose workers must answer instead. An answer that was sent through the
  // sink is empty.
  struct Outcome {
    Outcome(std::string text) : answer(std::move(text)) {}  // NOLINT(google-explicit-constructor)
    Outcome(Pool other, Party caller) : other_pool(other), party(caller) {}

    std::string answer;
    int code = 0;  // the API's error code
    std::optional<Pool> other_pool;
    Party party = 0;                         // with `other_pool`, as the two that follow
    bool judged = false;                     // see WebRequest
    bool broken_off = false;                 // what was sent is not the whole answer
    std::function<void()> afterwards;        // see APIResponse::Afterwards; may be empty
    std::function<void()> at_once;           // to be called after the answer; may be empty
    std::vector<sharing::LinkEvent> events;  // of the visitor, with the whole address
    std::string judged_owner;  // with `other_pool`: what its worker finds in kJudgedOwner
  };

  // `pool` is that of this worker. The referenced objects must outlive this one.
  Dispatcher(const Options& options, const Registry& registry, OutputCapture& output, Pool pool);

  // Exceptions of handlers become answers; throws nothing but std::bad_alloc. `sink` is used only
  // in the pool "stream". The method and link of `note` are set as early as possible, and its
  // status before the first piece of an answer is sent.
  Outcome Answer(const WebRequest& request, const Sink& sink, RequestNote& note);

  // Tells the modules that a link may have changed (LinksChanged.h); null: any.
  void TellOfLinks(const char* sharing_id) const;

 private:
  Outcome AnswerApi(const WebRequest& request, const Address& address, const Sink& sink,
                    RequestNote& note);
  Outcome AnswerPut(const WebRequest& request, const Address& address, const Sink& sink,
                    RequestNote& note);
  std::unique_ptr<RequestContext> ContextOf(const WebRequest& request,
                                            const Address& address) const;
  Outcome AnswerMethod(const WebRequest& request, const Address& address,
                       std::unique_ptr<RequestContext> context, const Sink& sink,
                       RequestNote& note);
  struct Call;
  Outcome CallMethod(const Call& call, std::unique_ptr<RequestContext> context);

  const Options& options_;
  const Registry& registry_;
  OutputCapture& output_;
  const Pool pool_;
  const LinkPage page_;
  const std::vector<void*> told_of_links_;
};

}  // namespace VELT::host
