// Answers a web request with the page of a link.
#pragma once

#include <string>

#include "host/page/LinkPage.h"
#include "host/request/Registry.h"
#include "host/request/WebRequest.h"
#include "veltwebapi/PagePlugins.h"

namespace VELT::host {

// The function VisitPagePlugins of the first module in `registry` that exports it; null when none
// does. Valid as long as the registry.
VisitPagePluginsFunc FindPluginsIn(const Registry& registry);

// The whole answer to a GET or HEAD of the page of the link `id`.
std::string AnswerPage(const LinkPage& page, const WebRequest& request, const std::string& id);

}  // namespace VELT::host
