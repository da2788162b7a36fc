#include "platform/store/sql/LinkCounts.h"

#include "platform/store/sql/EntryRow.h"
#include "platform/store/sql/Statement.h"

namespace VELT::sharing::db {
namespace {

// PostgreSQL can't index long texts, so there the table has the start of a project's name.
constexpr std::size_t kKeyLength = 255;

}  // namespace

// Each link counts twice: for its owner, and for 4294967295, which stands for every owner
// (kEveryOwner). No row has a count of 0.
//
// PostgreSQL locks a row that is changed until the transaction ends. So that links are made at once
// all the same, a count is divided by `slot`. Its statements take their rows in the order of the
// key and after the links: two that take several never wait for each other in a circle.
const std::vector<std::string> kLinkCountTable = {
    R"(create table link_count (
         owner_uid bigint not null, project {text} not null, slot bigint not null,
         links bigint not null, primary key (owner_uid, project, slot)){by_key})",
};

const std::vector<std::string> kSqliteLinkCounts = {
    R"(create trigger link_made after insert on link begin
         insert into link_count (owner_uid, project, slot, links)
           values (new.owner_uid, new.project_name, 0, 1), (4294967295, new.project_name, 0, 1)
           on conflict do update set links = links + 1;
       end)",
    R"(create trigger link_removed after delete on link begin
         update link_count set links = links - 1
           where owner_uid in (old.owner_uid, 4294967295) and project = old.project_name;
         delete from link_count where owner_uid in (old.owner_uid, 4294967295)
           and project = old.project_name and links = 0;
       end)",
    R"(create trigger link_moved after update of owner_uid, project_name on link
         when old.owner_uid <> new.owner_uid or old.project_name <> new.project_name begin
         update link_count set links = links - 1
           where owner_uid in (old.owner_uid, 4294967295) and project = old.project_name;
         delete from link_count where owner_uid in (old.owner_uid, 4294967295)
           and project = old.project_name and links = 0;
         insert into link_count (owner_uid, project, slot, links)
           values (new.owner_uid, new.project_name, 0, 1), (4294967295, new.project_name, 0, 1)
           on conflict do update set links = links + 1;
       end)",
    R"(insert into link_count (owner_uid, project, slot, links)
         select owner_uid, project_name, 0, count(*) from link group by owner_uid, project_name)",
    R"(insert into link_count (owner_uid, project, slot, links)
         select 4294967295, project, 0, sum(links) from link_count group by project)",
};

// The triggers come first: making them waits for those who write links, and then keeps them off.
const std::vector<std::string> kPostgresqlLinkCounts = {
    R"(create function count_links() returns trigger language plpgsql as $$
       begin
         insert into link_count (owner_uid, project, slot, links)
           select owner, substr(project_name, 1, 255), id % 16,
                  case tg_op when 'INSERT' then count(*) else -count(*) end
             from changed cross join lateral (values (owner_uid), (4294967295)) as owners (owner)
             group by 1, 2, 3 order by 1, 2, 3
           on conflict (owner_uid, project, slot)
             do update set links = link_count.links + excluded.links;
         if tg_op = 'DELETE' then
           delete from link_count using changed
             where link_count.owner_uid in (changed.owner_uid, 4294967295)
               and project = substr(project_name, 1, 255) and slot = id % 16 and links = 0;
         end if;
         return null;
       end $$)",
    R"(create function count_moved_link() returns trigger language plpgsql as $$
       begin
         insert into link_count (owner_uid, project, slot, links)
           select owner, substr(name, 1, 255), new.id % 16, sum(change)
             from (values (old.owner_uid, old.project_name, -1), (4294967295, old.project_name, -1),
                          (new.owner_uid, new.project_name, 1), (4294967295, new.project_name, 1))
               as changes (owner, name, change)
             group by 1, 2 having sum(change) <> 0 order by 1, 2
           on conflict (owner_uid, project, slot)
             do update set links = link_count.links + excluded.links;
         delete from link_count where owner_uid in (old.owner_uid, 4294967295)
           and project = substr(old.project_name, 1, 255) and slot = new.id % 16 and links = 0;
         return null;
       end $$)",
    R"(create trigger link_made after insert on link referencing new table as changed
         for each statement execute function count_links())",
    R"(create trigger link_removed after delete on link referencing old table as changed
         for each statement execute function count_links())",
    R"(create trigger link_moved after update of owner_uid, project_name on link for each row
         when (old.owner_uid <> new.owner_uid or old.project_name <> new.project_name)
         execute function count_moved_link())",
    R"(insert into link_count (owner_uid, project, slot, links)
         select owner, substr(project_name, 1, 255), id % 16, count(*)
           from link cross join lateral (values (owner_uid), (4294967295)) as owners (owner)
           group by 1, 2, 3)",
};

std::optional<long long> CountLinks(soci::session& sql, const std::optional<long long>& owner,
                                    const std::optional<std::string>& project) {
  const long long wanted = owner.value_or(kEveryOwner);
  if ((owner && *owner == kEveryOwner) || (project && project->size() >= kKeyLength)) {
    return std::nullopt;
  }
  long long count = 0;
  soci::statement statement(sql);
  statement.exchange(soci::into(count));
  statement.exchange(soci::use(wanted, "owner"));
  std::string text =
      "select cast(coalesce(sum(links), 0) as bigint) from link_count where owner_uid = :owner";
  if (project) {
    statement.exchange(soci::use(*project, "project"));
    text += " and project = :project";
  }
  Prepare(statement, text);
  statement.execute(true);
  return count;
}

}  // namespace VELT::sharing::db
