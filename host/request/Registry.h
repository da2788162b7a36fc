// The API modules that this host has loaded, and who may call which of their methods.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "host/Pool.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/ErrorCodes.h"

namespace VELT::host {

// Who may call a method. Several of these may be true.
struct Access {
  bool anyone = false;   // whoever is at the owners' address, to sign in
  bool user = false;     // a logged-in user
  bool visitor = false;  // whoever knows a link's address, logged in or not
  bool token = false;    // a visitor whose session holds a legal token for the link
};

struct Method {
  APIHandler handler = nullptr;
  APICheck check = nullptr;
  Access access;
  bool post_only = false;    // for methods that change something
  Pool pool = Pool::kFront;  // whose workers run it
  std::size_t raw_body = 0;  // the largest raw body in bytes; 0: the body holds parameters
  // A token that is limited to projects opens it: the store, which shows it links of these projects
  // alone, is all that it tells of or changes.
  bool through_links = false;
  std::string put;        // the application whose links take files by it; empty: none
  std::string pool_when;  // the front runs it unless this parameter is true; empty: `pool` always
  std::size_t row = 0;    // see Number
};

// Constant after Load and Number; several threads may read it.
class Registry {
 public:
  // Reads every *.json file of `folder`, each of which names one module, and loads the modules,
  // which stay loaded until the process ends:
  //
  //   {"library": PATH, absolute or relative to the file's folder,
  //    "methods": [{"api": NAME, "version": N, "method": NAME,
  //                 "access": [any of "anyone", "user", "visitor", "token"],
  //                 "post_only": BOOL, false if absent,
  //                 "through_links": BOOL, false if absent,
  //                 "pool": "login", "program", "long", "stream", "bulk" or "upload"; absent: the
  //                   front,
  //                 "pool_when": NAME of a boolean parameter; absent: in "pool" always,
  //                 "raw_body": BYTES, only with "post_only": the method accepts a raw body of
  //                   the type application/octet-stream, with its parameters in the query,
  //                 "put": PROJECT, with the pool "upload" and never without: the method is called
  //                   by a PUT below the address of a link of this project, and its only parameter
  //                   is "name", what follows the link's address there}]}
  //
  // Throws std::runtime_error with the file and what is wrong with it. A method of a module that
  // its file does not list can't be called.
  static Registry Load(const std::string& folder);

  // Sets the row of each method to what `row_of` returns for it.
  using RowOf =
      std::function<std::size_t(const std::string& api, int version, const std::string& method)>;
  void Number(const RowOf& row_of);

  // Sets `*method`, or returns why there is none.
  std::optional<ErrorCode> Find(const std::string& api, int version, const std::string& name,
                                const Method** method) const;
  // The method by which links of `project` take files that are sent whole; null: by none.
  const Method* FindPut(const std::string& project) const;
  // The size of the largest body that any method accepts, at least kLargestBody.
  std::size_t LargestBody() const;
  // The addresses of `symbol` in the modules that export it.
  std::vector<void*> Symbols(const char* symbol) const;

 private:
  using Key = std::tuple<std::string, int, std::string>;  // API, version, method

  void AddModule(const std::string& folder, const std::string& file);

  std::map<Key, Method> methods_;
  std::vector<void*> modules_;
};

}  // namespace VELT::host
