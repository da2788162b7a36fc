#include "platform/store/StoreContext.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "platform/store/sql/Connection.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/Visit.h"

namespace VELT::sharing {
namespace {

struct Context {
  StoreOptions options;
  bool is_visitor = false;
  std::string address;
  std::vector<std::string> projects;
  std::int64_t login_wait = 0;
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
  SetNoVisitor();
  TheContext().is_visitor = true;
  TheContext().address = address.substr(0, address.find('%'));  // an IPv6 zone is ours, not his
}

void SetNoVisitor() {
  TheContext().is_visitor = false;
  TheContext().address.clear();
  TheContext().projects.clear();
  TheContext().login_wait = 0;
}

void SetProjects(std::vector<std::string> projects) { TheContext().projects = std::move(projects); }

const std::vector<std::string>& VisibleProjects() { return TheContext().projects; }

bool SeesProject(const std::string& project) {
  const auto& projects = VisibleProjects();
  return projects.empty() || std::find(projects.begin(), projects.end(), project) != projects.end();
}

const std::string& ConnectionText() { return TheContext().options.connection; }

std::int64_t Now() {
  const auto& clock = TheContext().options.clock;
  return clock ? clock() : std::time(nullptr);
}

bool IsVisitor() { return TheContext().is_visitor; }

const std::string& VisitorAddress() { return TheContext().address; }

std::chrono::milliseconds LoginTimeout() { return TheContext().options.login_timeout; }

std::int64_t LoginWait() { return TheContext().login_wait; }

void SetLoginWait(std::int64_t seconds) { TheContext().login_wait = seconds; }

}  // namespace VELT::sharing
