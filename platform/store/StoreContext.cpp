#include "platform/store/StoreContext.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "platform/store/sql/Connection.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::sharing {
namespace {

StoreOptions& Options() {
  static StoreOptions options;
  return options;
}

// Null while no view is lent.
View* lent = nullptr;

}  // namespace

void ConfigureStore(StoreOptions options) {
  Options() = std::move(options);
  db::Connection::Of(*db::SharingDB::Instance()).Use(ConnectionText());
}

const std::string& ConnectionText() { return Options().connection; }

std::int64_t Now() { return Options().clock ? Options().clock() : std::time(nullptr); }

std::chrono::milliseconds LoginTimeout() { return Options().login_timeout; }

View VisitorView(const std::string& address) {
  return {View::Of::kVisitor, address.substr(0, address.find('%'))};
}

Viewing::Viewing(View& view) : before_(std::exchange(lent, &view)) {}
Viewing::~Viewing() { lent = before_; }

View& CurrentView() {
  static View nobodys;
  return lent != nullptr ? *lent : nobodys;
}

bool SeesProject(const std::string& project) {
  const View& view = CurrentView();
  const auto& projects = view.projects;
  return view.of != View::Of::kNobody &&
         (projects.empty() ||
          std::find(projects.begin(), projects.end(), project) != projects.end());
}

}  // namespace VELT::sharing
