// What a message to an owner says.
#pragma once

#include <json/value.h>

#include <string>

#include "veltsharing/Notices.h"

namespace VELT::tools {

struct NoticeText {
  std::string title;
  std::string text;
  Json::Value data;  // the notices, for programs
};

// In the owner's language, if there is a table of texts for it. Equal notices become one. `site` is
// what links' addresses begin with. Throws Failure when there are no texts.
NoticeText Compose(const sharing::notify::Message& message, const std::string& site);

}  // namespace VELT::tools
