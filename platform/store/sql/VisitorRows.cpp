#include "platform/store/sql/VisitorRows.h"

namespace VELT::sharing::db {

bool TokenRow::Fits(const EntryRow& link, const std::string& visitor_address) const {
  return protection == link.protection && (link.enable_match_ip == 0 || address == visitor_address);
}

std::string RemoveDeadSessionsSql(const Dialect& dialect, int limit) {
  return std::string("delete from visitor_session where ") + dialect.if_alone +
         "id in (select id from visitor_session "
         "where last_used <= :time order by last_used limit " +
         std::to_string(limit) + ")";
}

}  // namespace VELT::sharing::db
