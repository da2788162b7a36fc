#include "platform/store/VisitDays.h"

#include "platform/store/LocalTime.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing {

bool VisitsByDay(const record::Entry& entry, std::vector<std::int64_t>& days) {
  days.assign(kVisitDays, 0);
  const long long link = entry.get_id();
  const long long oldest = db::OldestVisitDay(LocalDay(Now()));
  return db::Connection::Of(*db::SharingDB::Instance())
      .Run("read a link's visits", [&](db::StoreSession& store) {
        long long day = 0;
        long long visits = 0;
        soci::statement statement =
            (store.sql().prepare
                 << "select day, visits from visit_day where link_id = :link and day >= :oldest",
             soci::use(link), soci::use(oldest), soci::into(day), soci::into(visits));
        statement.execute();
        while (statement.fetch()) {
          // If the clock was set back, there may be days after today. They are left out.
          const auto at = static_cast<std::size_t>(day - oldest);
          if (at < days.size()) days[at] = visits;
        }
        return true;
      });
}

}  // namespace VELT::sharing
