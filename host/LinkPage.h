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
};

// The headers are complete but for Content-Length; names and values hold no control characters.
struct PageAnswer {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
};

// Reads the store and changes nothing in it: opening the page is no visit. Holds no state of a
// request; one thread at a time, for the store's connection is one per process.
class LinkPage {
 public:
  // `plugins` finds an application's plugins; null: there are none.
  explicit LinkPage(VisitPagePluginsFunc plugins);

  // The answer to a GET; that to a HEAD is the same, its body left unsent. The store must know of
  // the visitor (SetVisitor): a token may be bound to his address, and links that are off are to be
  // hidden from him. Throws only std::bad_alloc.
  PageAnswer Answer(const PageRequest& request) const;

 private:
  VisitPagePluginsFunc plugins_;
};

}  // namespace VELT::host
