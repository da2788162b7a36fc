#include "StoreContext.h"

#include <ctime>
#include <utility>

#include "sql/Connection.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::sharing {
namespace {

struct Context {
  StoreOptions options;
  bool is_visitor = false;
  std::string address;
};

Context& TheContext() {
  static Context context;
  return context;
}

}  // namespace

void ConfigureStore(StoreOptions options) {
  TheContext().options = std::move(options);
  db::Connection::Of(*db::SharingDB::Instance()).Use(ConnectionText());
}

void SetVisitor(const std::string& address) {
  TheContext().is_visitor = true;
  TheContext().address = address;
}

void SetNoVisitor() {
  TheContext().is_visitor = false;
  TheContext().address.clear();
}

const std::string& ConnectionText() { return TheContext().options.connection; }

std::int64_t Now() {
  const auto& clock = TheContext().options.clock;
  return clock ? clock() : std::time(nullptr);
}

bool IsVisitor() { return TheContext().is_visitor; }

const std::string& VisitorAddress() { return TheContext().address; }

std::chrono::milliseconds LoginTimeout() { return TheContext().options.login_timeout; }

}  // namespace VELT::sharing
