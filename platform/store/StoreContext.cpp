#include "StoreContext.h"

#include <ctime>
#include <utility>

#include "Connection.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::sharing {
namespace {

struct Context {
  StoreOptions options;
  std::string address;
  bool has_visitor = false;
};

Context& TheContext() {
  static Context context;
  return context;
}

}  // namespace

void ConfigureStore(StoreOptions options) {
  db::Connection::Of(*db::SharingDB::Instance()).Close();
  TheContext().options = std::move(options);
}

void SetVisitorAddress(const std::string& address) { TheContext().address = address; }

void SetVisitor(const std::string& address) {
  TheContext().address = address;
  TheContext().has_visitor = true;
}

void SetNoVisitor() {
  TheContext().address.clear();
  TheContext().has_visitor = false;
}

bool HasVisitor() { return TheContext().has_visitor; }

const std::string& ConnectionText() { return TheContext().options.connection; }

std::int64_t Now() {
  const auto& clock = TheContext().options.clock;
  return clock ? clock() : std::time(nullptr);
}

const std::string& VisitorAddress() { return TheContext().address; }

std::chrono::milliseconds LoginTimeout() { return TheContext().options.login_timeout; }

}  // namespace VELT::sharing
