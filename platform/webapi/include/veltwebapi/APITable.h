// The tables in which a module lists its methods and their pre-checks. A module exports two C
// functions. Each returns the first row of an array that ends with a row of zeros:
//
//   extern "C" const VELT::APITableEntry* GetAPITable();
//   extern "C" const VELT::APICheckTableEntry* GetAPICheckTable();
#pragma once

#include <cstdint>

namespace VELT {

class APIRequest;
class APIResponse;

using APIHandler = void (*)(APIRequest*, APIResponse*);
// True lets the handler run; false means that the error is already on the response.
using APICheck = bool (*)(APIRequest*, APIResponse*);

struct APITableEntry {
  const char* api;
  std::int32_t version;
  const char* method;
  APIHandler handler;
};

struct APICheckTableEntry {
  const char* api;
  std::int32_t version;
  const char* method;
  APICheck check;
  const void* unused_first;   // null in every row
  const void* unused_second;  // null in every row
};

}  // namespace VELT
