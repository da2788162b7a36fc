"""Fills the store's own tables with many links, past the service: seconds instead of hours for a million."""

import contextlib
import sqlite3

OTHERS = 5000  # the first of the uids of owners without an account

_COLUMNS = ("hash, owner_uid, project_name, enabled, auto_gc, enable_match_ip, start_at, expire_at, expire_times, "
            "visits, protect_type, protect_title, password_hash, protect_users, protect_groups, redirect_type, "
            "redirect_uri, app, private_data, created_at, revision")

# Most links have no limits, as people make them; {random} gives a number from 0 on, {text} a random text.
_VALUES = ("{text}, case when i % 1000 < 1 then {owner} else " + str(OTHERS) + " + i % 997 end, "
           "'project' || {random} % 7, case when {random} % 50 > 0 then 1 else 0 end, {random} % 2, 0, 0, "
           "case when {random} % 4 = 0 then 2000000000 + {random} % 100000000 else 0 end, "
           "case when {random} % 10 = 0 then 50 else 0 end, {random} % 50, 0, 'Holiday ' || {random} % 500, '', '[]', "
           "'[]', 0, '', '{{}}', '{{\"path\":\"' || {text} || '\"}}', 1700000000 + i, 0")


def fill_sqlite(path, count, owner):
    """Adds `count` links, of which every thousandth is the owner's (a uid)."""
    with contextlib.closing(sqlite3.connect(path, isolation_level=None, timeout=60)) as sql:
        sql.execute("pragma cache_size = -200000")
        indexes = sql.execute("select name, sql from sqlite_master where type = 'index' and tbl_name = 'link' and "
                              "sql is not null").fetchall()
        values = _VALUES.format(owner=owner, random="abs(random())", text="substr(hex(randomblob(11)), 1, 22)")
        sql.execute("begin immediate")
        # Rebuilding them afterwards takes less time.
        for name, _ in indexes:
            sql.execute(f"drop index {name}")
        sql.execute(f"with recursive n(i) as (select 0 union all select i + 1 from n where i + 1 < {count}) "
                    f"insert into link ({_COLUMNS}) select {values} from n")
        for _, text in indexes:
            sql.execute(text)
        sql.execute("commit")
        sql.execute("pragma wal_checkpoint(truncate)")


def fill_postgresql(server, count, owner):
    values = _VALUES.format(owner=owner, random="floor(random() * 1000000000)::bigint",
                            text="substr(md5(random()::text), 1, 22)")
    server.sql(f"insert into link ({_COLUMNS}) select {values} from generate_series(0, {count} - 1) as i")
    server.sql("vacuum analyze")
