#include "platform/store/sql/Statement.h"

namespace VELT::sharing::db {

void Prepare(soci::statement& statement, const std::string& text) {
  statement.alloc();
  statement.prepare(text);
  statement.define_and_bind();
}

bool RunToEnd(soci::statement& statement) {
  if (!statement.execute(true)) return false;
  while (statement.fetch()) {
  }
  return true;
}

}  // namespace VELT::sharing::db
