// The page that a share link's address shows: GET and HEAD of /sharing/<id>.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "veltwebapi/PagePlugins.h"

namespace VELT::host {

struct PageRequest {
  std::string id;                                 // as in the address; may be anything
  std::map<std::string, std::string> parameters;  // of the query, decoded
  std::string sharing_sid;                        // the visitor's session cookie; empty: none
  std::string language;                           // the language cookie's value; empty: none
  std::string accept_language;                    // the header's value
};

// The headers are complete but for Content-Length; names and values hold no control characters.
struct PageAnswer {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
};

// Only reads the store: opening the page is not a visit. Keeps no state of a request. One thread at
// a time, since the process has one connection to the store.
class LinkPage {
 public:
  // `plugins` is the function that lists an application's plugins; null: there are none.
  // `server_name` is what visitors with an account read where they log in.
  LinkPage(VisitPagePluginsFunc plugins, std::string server_name);

  // The answer to a GET; the answer to a HEAD is the same without the body. The visitor's view
  // must be lent to the store. Throws only std::bad_alloc.
  PageAnswer Answer(const PageRequest& request) const;

 private:
  VisitPagePluginsFunc plugins_;
  std::string server_name_;
};

}  // namespace VELT::host
