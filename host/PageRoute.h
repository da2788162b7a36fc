// The way from a web request to the page of a link.
#pragma once

#include <string>

#include "LinkPage.h"
#include "Registry.h"
#include "WebRequest.h"

namespace VELT::host {

// The function of the first module of `registry` that knows plugins; null: none does. Valid as long
// as the registry.
VisitPagePluginsFunc FindPluginsIn(const Registry& registry);

// The whole answer to a GET or HEAD of the page of the link `id`.
std::string AnswerPage(const LinkPage& page, const WebRequest& request, const std::string& id);

}  // namespace VELT::host
