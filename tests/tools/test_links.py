"""Links as an administrator lists, makes, changes and deletes them with velt-sharing."""

import contextlib
import os
import pty
import sqlite3
import subprocess
import unittest

from test_velt_sharing import REGISTRY, TOOL, ToolTest, run

SITE = "https://nas.example.com"


class Links(ToolTest):
    def test_list_stats_and_gc_on_both(self):
        self.make(5)
        self.tool("migrate", self.database, self.postgresql)
        for database in (self.database, self.postgresql):
            with self.subTest(database):
                def numbers(*filters, database=database):
                    return [int(link["sharing_id"]) for link in self.tool("list", *filters, database=database)["links"]]

                for filters, expected in {
                    (): [5, 4, 3, 2, 1], ("--owner", "root"): [5, 3, 1], ("--owner", "4242424"): [4, 2],
                    ("--project", "p2"): [5, 2], ("--project", "p2", "--owner", "0"): [5],
                    ("--status", "expired"): [2], ("--status", "active", "--limit", "2"): [5, 4],
                    ("--limit", "2"): [5, 4], ("--limit", "0"): [5, 4, 3, 2, 1],
                }.items():
                    self.assertEqual(expected, numbers(*filters), filters)
                self.refuse("list", "--owner", "nobody-knows", because="no account", database=database)
                stats = self.tool("stats", database=database)
                self.assertEqual({"active": 4, "expired": 1}, stats["status"])
                self.assertEqual([("root", 3), ("", 2)], [(o["owner"], o["links"]) for o in stats["owners"]])
                self.assertEqual([5, 1, 1, 1], [stats[name] for name in (
                    "links", "sessions", "tokens", "failed_logins")])
                self.assertGreater(stats["database_bytes"], 10000)
                self.assertEqual(0, self.tool("gc", "--owner", "root", database=database)["removed"])
                self.assertEqual(1, self.tool("gc", database=database)["removed"])
                self.assertEqual([5, 4, 3, 1], numbers())

    def test_text_output_has_no_whole_id_and_no_control_character(self):
        self.make(1)
        with contextlib.closing(sqlite3.connect(self.path)) as sql, sql:
            sql.execute("update link set project_name = 'a\x1b[2J\u009bb', hash = 'AbCdEfGhIjKlMnOpQrStUv'")
        shown = run("list", "--database", self.database).stdout
        self.assertIn("AbCdEf...  root   a?[2J?b  active  1", shown)
        self.assertIn("AbCdEfGhIjKlMnOpQrStUv", run("list", "--full-ids", "--database", self.database).stdout)
        self.assertNotIn("\x1b", run("stats", "--database", self.database).stdout)

    def test_links_are_made_changed_and_deleted_as_the_api_would(self):
        self.make()
        for database in (self.database, self.postgresql):
            with self.subTest(database):
                if database != self.database:
                    self.stop_host(self.start_host(database))
                self.check_life(database)

    def check_life(self, database):
        def link(*command, status=0):
            return self.tool("link", *command, "--registry", REGISTRY, "--external-url", SITE + "/x", status=status,
                             database=database)

        made = link("create", "demo", "--owner", "root", "protect_title=A=B \x1b[31m", 'app={"a": [1]}',
                    "expire_at=2030-01-31 12:00:00")
        self.assertEqual(("A=B \x1b[31m", {"a": [1]}, "active", "root", f"{SITE}/x/sharing/{made['sharing_id']}"),
                         tuple(made[name] for name in ("protect_title", "app", "status", "owner_user", "url")))
        beginning = made["sharing_id"][:6]
        changed = link("edit", beginning, "enabled=false", "expire_at=")
        self.assertEqual(("disabled", "", {"a": [1]}), tuple(changed[name] for name in ("status", "expire_at", "app")))
        listed, = link("list")["links"]
        self.assertEqual((changed["url"], "A=B \x1b[31m"), (listed["url"], listed["protect_title"]))
        for command, because in ((("edit", beginning, "expire_times=-1"), "error 120"),
                                 (("edit", beginning, "protect_type=user"), "error 1009"),
                                 (("edit", beginning, "enabled"), "NAME=VALUE is needed"),
                                 (("edit", beginning, "protect_password=x"), "--ask-password"),
                                 (("show", beginning[:5]), "at least 6"),
                                 (("show", "%" * 6), "no link's id begins"),
                                 (("create", "demo", "--owner", "nobody-of-this-name"), "no account")):
            with self.subTest(command[2:] or command[0]):
                self.assertIn(because, link(*command, status=1)["error"])
        self.assertEqual(changed, link("show", beginning))
        link("delete", beginning)
        link("show", beginning, status=1)

    def test_password_and_address_at_a_terminal(self):
        self.make()
        options = ("--database", self.database, "--registry", REGISTRY, "--external-url", SITE)
        made = subprocess.run(["setsid", "-w", TOOL, "link", "create", "demo", "--owner", "root", "--ask-password",
                               *options], input="open sesame\nopen sesame\n", capture_output=True, text=True,
                              check=True, timeout=60).stdout
        self.assertRegex(made, f"(?s)LINK +{SITE}/sharing/[A-Za-z0-9]{{22}}\n.*protect_type +password")
        sharing_id = made.split("/sharing/")[1].split("\n")[0]
        self.assertNotIn(sharing_id, run("link", "show", sharing_id, *options).stdout)
        ours, its = pty.openpty()
        with os.fdopen(ours, "rb") as screen, os.fdopen(its, "wb") as terminal:
            subprocess.run([TOOL, "link", "show", sharing_id[:8], "--show-address", *options], stdout=terminal,
                           check=True, timeout=60)
            lines = screen.read1(65536).decode()
        self.assertIn(f"{SITE}/sharing/{sharing_id}", lines)
        self.assertIn("█", lines)


if __name__ == "__main__":
    unittest.main()
