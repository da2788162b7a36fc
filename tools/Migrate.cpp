// migrate: copies every table of the store from one database into another. The catalog names the
// tables, so that a change of the schema needs no change here.
#include <unistd.h>

#include <algorithm>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Statement.h"
#include "platform/store/sql/Transaction.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "tools/Progress.h"
#include "tools/SqliteFile.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::tools {
namespace {

struct Column {
  std::string name;
  bool is_text;
  bool operator==(const Column&) const = default;
};

struct Table {
  std::string name;
  std::vector<Column> columns;  // by name
  bool HasId() const {
    return std::any_of(columns.begin(), columns.end(),
                       [](const Column& column) { return column.name == "id"; });
  }
  bool operator==(const Table&) const = default;
};

bool IsSqlite(soci::session& sql) { return sql.get_backend_name() == "sqlite3"; }

// The tables but the version and the counts, which triggers keep. What has an id comes first, for
// the others refer to it.
std::vector<Table> TablesOf(soci::session& sql) {
  std::string table;
  std::string column;
  std::string type;
  soci::statement rows =
      (sql.prepare << (IsSqlite(sql)
                           ? "select t.name, c.name, lower(c.type) from sqlite_master t, "
                             "pragma_table_info(t.name) c where t.type = 'table' and t.name not "
                             "like 'sqlite%' order by 1, 2"
                           : "select table_name::text, column_name::text, data_type::text from "
                             "information_schema.columns where table_schema = current_schema() "
                             "order by table_name collate \"C\", column_name collate \"C\""),
       soci::into(table), soci::into(column), soci::into(type));
  rows.execute();
  std::vector<Table> tables;
  while (rows.fetch()) {
    if (table == "schema_version" || table == "link_count") continue;
    if (tables.empty() || tables.back().name != table) tables.push_back({table, {}});
    tables.back().columns.push_back({column, type == "text"});
  }
  std::stable_partition(tables.begin(), tables.end(),
                        [](const Table& each) { return each.HasId(); });
  return tables;
}

// The values of one row: one statement reads into them, another writes them.
class Row {
 public:
  explicit Row(const Table& table) : table_(table) {
    for (const Column& column : table.columns) {
      if (column.is_text) {
        texts_.emplace_back();
      } else {
        numbers_.push_back(0);
      }
    }
  }

  template <typename Bind>
  void ForEach(Bind bind) {
    auto text = texts_.begin();
    auto number = numbers_.begin();
    for (const Column& column : table_.columns) {
      if (column.is_text) {
        bind(column.name, *text++);
      } else {
        bind(column.name, *number++);
      }
    }
  }

 private:
  const Table& table_;
  std::list<std::string> texts_;
  std::list<long long> numbers_;
};

std::string SelectOf(const Table& table) {
  std::string names;
  for (const Column& column : table.columns) {
    names += (names.empty() ? "select " : ", ") + column.name;
  }
  return names + " from " + table.name;
}

std::string InsertOf(soci::session& to, const Table& table) {
  std::string names;
  std::string values;
  for (const Column& column : table.columns) {
    names += (names.empty() ? "" : ", ") + column.name;
    values += (values.empty() ? ":" : ", :") + column.name;
  }
  // PostgreSQL makes ids itself unless a statement overrides that.
  const bool own_ids = table.HasId() && !IsSqlite(to);
  return "insert into " + table.name + " (" + names + ")" +
         (own_ids ? " overriding system value" : "") + " values (" + values + ")";
}

// SOCI reads a whole answer of PostgreSQL into memory, so rows are read from there by a cursor.
void CopyRows(soci::session& from, soci::session& to, const Table& table, Progress& progress) {
  std::string select = SelectOf(table);
  if (!IsSqlite(from)) {
    from << "declare source_rows no scroll cursor for " << select;
    select = "fetch forward 1000 from source_rows";
  }
  Row row(table);
  soci::statement reading(from);
  soci::statement writing(to);
  row.ForEach([&](const std::string& name, auto& value) {
    reading.exchange(soci::into(value));
    writing.exchange(soci::use(value, name));
  });
  sharing::db::Prepare(reading, select);
  sharing::db::Prepare(writing, InsertOf(to, table));
  bool more = true;
  while (more) {
    more = false;
    reading.execute();
    while (reading.fetch()) {
      writing.execute(true);
      progress.Step();
      more = !IsSqlite(from);
    }
  }
  if (!IsSqlite(from)) from << "close source_rows";
}

// PostgreSQL's name of the sequence that makes the table's ids.
std::string SequenceOf(soci::session& sql, const Table& table) {
  std::string sequence;
  sql << "select pg_get_serial_sequence('" << table.name << "', 'id')", soci::into(sequence);
  return sequence;
}

// The last id that was given out, even if its row is gone.
long long LastId(soci::session& sql, const Table& table) {
  return Number(
      sql,
      IsSqlite(sql)
          ? "select coalesce(max(seq), 0) from sqlite_sequence where name = '" + table.name + "'"
          : "select case when is_called then last_value else 0 end from " + SequenceOf(sql, table));
}

void ContinueIdsAfter(soci::session& sql, const Table& table, long long last_id) {
  if (last_id == 0) return;
  if (!IsSqlite(sql)) {
    Number(sql, "select setval('" + SequenceOf(sql, table) + "', " + std::to_string(last_id) + ")");
    return;
  }
  sql << "delete from sqlite_sequence where name = '" << table.name << "'";
  sql << "insert into sqlite_sequence (name, seq) values ('" << table.name << "', " << last_id
      << ")";
}

long long RowsOf(soci::session& sql, const Table& table) {
  return Number(sql, "select count(*) from " + table.name);
}

long long CopyTable(soci::session& from, soci::session& to, const Table& table,
                    bool show_progress) {
  const long long rows = RowsOf(from, table);
  {
    Progress progress(table.name, rows, show_progress);
    CopyRows(from, to, table, progress);
  }
  const long long copied = RowsOf(to, table);
  if (copied != rows) {
    throw Failure(table.name + ": " + std::to_string(copied) + " rows of " + std::to_string(rows) +
                  " arrived");
  }
  if (table.HasId()) ContinueIdsAfter(to, table, LastId(from, table));
  return rows;
}

std::unique_ptr<soci::session> OpenOrMake(const std::string& connection) {
  const std::string path = sharing::db::SqlitePath(connection);
  const bool is_new = !path.empty() && access(path.c_str(), F_OK) != 0;
  sharing::ConfigureStore({connection, {}});
  if (!sharing::CreateStore()) throw Failure(NameOf(connection) + " can't be opened or made");
  if (is_new) GiveToFolderOwner(path);
  return OpenDatabase(connection);
}

// In PostgreSQL the locks keep everybody from adding rows meanwhile.
void CheckEmpty(soci::session& to, const std::vector<Table>& tables) {
  for (const Table& table : tables) {
    if (!IsSqlite(to)) to << "lock table " << table.name << " in access exclusive mode";
    if (RowsOf(to, table) != 0) {
      throw Failure("the target is not empty: " + table.name + " has rows");
    }
  }
}

}  // namespace

Json::Value Migrate(const std::string& from_text, const std::string& to_text, bool show_progress) {
  const auto from = OpenDatabase(from_text);
  const auto to = OpenOrMake(to_text);
  const std::vector<Table> tables = TablesOf(*from);
  if (tables != TablesOf(*to)) throw Failure("the tables of the two databases differ");
  // So that all tables are read as they are at one moment.
  *from << (IsSqlite(*from) ? "begin" : "begin isolation level repeatable read read only");
  sharing::db::Transaction transaction(*to);
  CheckEmpty(*to, tables);
  Json::Value result;
  for (const Table& table : tables) {
    result["tables"][table.name] = Json::Int64{CopyTable(*from, *to, table, show_progress)};
  }
  transaction.Commit();
  *from << "rollback";
  return result;
}

}  // namespace VELT::tools
