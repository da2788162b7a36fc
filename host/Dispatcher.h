// From a web request to the text of its answer.
#pragma once

#include <memory>
#include <string>

#include "LinkPage.h"
#include "Options.h"
#include "OutputCapture.h"
#include "Registry.h"
#include "WebRequest.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

// One request at a time: handlers own standard output and the effective ids of the process
// meanwhile.
class Dispatcher {
 public:
  // All three must outlive it.
  Dispatcher(const Options& options, const Registry& registry, OutputCapture& output);

  // Whatever the request and its handler do, there is an answer; throws std::bad_alloc at most.
  std::string Answer(const WebRequest& request);

 private:
  // `link` is the id in a visitor's address, null in an owner's.
  std::string AnswerApi(const WebRequest& request, const std::string* link);
  std::string AnswerMethod(const WebRequest& request, std::unique_ptr<RequestContext> context);

  const Options& options_;
  const Registry& registry_;
  OutputCapture& output_;
  const LinkPage page_;
};

}  // namespace VELT::host
