"""The pages' texts: every language has all of them, and none stands in the code."""

import glob
import json
import os
import re
import unittest
from html.parser import HTMLParser

from demo import REPOSITORY

WEB = os.path.join(REPOSITORY, "web")
# Forms that numbers take in a language.
PLURALS = {"enu": {"one", "other"}, "ger": {"one", "other"},
           "ara": {"zero", "one", "two", "few", "many", "other"}}
FOLDERS = ("shared", "owner", "signin", "link", "apps/files/web", "apps/files/web/owner")
# Keys that the code puts together.
MADE_UP = (r"(error|visitor)_\w+|files_(\d+|unreadable|cancelled|too_large)|event_\w+|tell_\w+|(state|protection)_\w+|"
           r"(edit|delete|copy|select|show)_of|clean_\w+_of_project|sort_\w+|"
           r"(unavailable|unknown|pending|expired|used_up)_title")
# Literals that nobody reads.
NO_TEXT = {"Content-Type", "Retry-After", "Enter", "Escape", "Login", "Range", "Files"}


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def place(folder):
    return f"{REPOSITORY}/{folder}" if folder.startswith(("apps/", "tools/")) else f"{WEB}/{folder}"


def table(folder, code):
    return json.loads(read(f"{place(folder)}/texts/{code}.json"))


def sources(folder, *endings):
    return [path for ending in endings for path in glob.glob(f"{place(folder)}/*.{ending}")]


def without_comments(code):
    return re.sub(r"^\s*//.*$|/\*(?s:.*?)\*/|(?<=[;,{]) //.*$", "", code, flags=re.M)


class Tables(unittest.TestCase):
    languages = json.loads(read(f"{WEB}/shared/texts/languages.json"))

    def test_every_language_has_every_text(self):
        self.assertEqual(set(PLURALS), {language["code"] for language in self.languages})
        for folder in (*FOLDERS, "tools/notify"):
            english = table(folder, "enu")
            for code, forms in PLURALS.items():
                texts = table(folder, code)
                with self.subTest(folder, code=code):
                    self.assertEqual(list(english), list(texts))
                for key, text in texts.items():
                    with self.subTest(folder, code=code, key=key):
                        variants = text if isinstance(text, dict) else {"": text}
                        self.assertEqual(isinstance(english[key], dict), isinstance(text, dict))
                        if isinstance(text, dict):
                            self.assertEqual(forms, set(text))
                        whole = variants.get("other", text)
                        original = english[key]["other"] if isinstance(english[key], dict) else english[key]
                        self.assertEqual(set(re.findall(r"\{\w+\}", original)), set(re.findall(r"\{\w+\}", whole)))
                        self.assertTrue(all(variant.strip() for variant in variants.values()))
                        if code == "ara":
                            letters = re.sub(r"\{\w+\}|[\W\d]", "", whole)
                            self.assertRegex(letters, r"^$|[\u0600-\u06ff]")

    def test_the_code_names_texts_that_there_are_and_no_other(self):
        for folder in FOLDERS:
            known = set(table(folder, "enu"))
            code = "".join(without_comments(read(path)) for path in sources(folder, "js", "html"))
            if folder == "owner":
                code += read(f"{WEB}/index.html")
            if folder == "link":
                code += read(os.path.join(REPOSITORY, "host/page/LinkPage.cpp"))
            calls = re.findall(r"\bt\(([^()]*)", code)
            named = {key for call in calls for key in re.findall(r"'(\w+)'", call)}
            named |= set(re.findall(r'data-text="(\w+)"', code))
            for pairs in re.findall(r'data-texts="([^"]*)"', code):
                named |= {pair.split(":")[1] for pair in pairs.split()}
            everywhere = known | set(table("shared", "enu"))
            with self.subTest(folder):
                self.assertEqual(set(), {key for key in named - everywhere if not key.endswith("_of_project")})
                words = set(re.findall(r"\w+", code))
                self.assertEqual(set(), {key for key in known - words if not re.fullmatch(MADE_UP, key)})

    def test_no_text_stands_in_the_code(self):
        for folder in FOLDERS:
            for path in sources(folder, "js"):
                code = without_comments(read(path))
                literals = [a or b for a, b in re.findall(r"'((?:[^'\\\n]|\\.)*)'|`([^`]*)`", code)]
                texts = [text for text in literals if text not in NO_TEXT and (
                    re.match(r"[A-Z][a-z]+( |$|…)", text) or re.search(r"[a-z]{2,}[.?!…]$|[’“”]", text))]
                self.assertEqual([], texts, path)

    def test_pages_hold_no_text_but_for_browsers_without_scripts(self):
        class Texts(HTMLParser):
            def __init__(self):
                super().__init__()
                self.found, self.path = [], []

            def handle_starttag(self, tag, attrs):
                attrs = dict(attrs)
                if tag not in ("meta", "link", "img", "input"):
                    self.path.append((tag, attrs))
                self.found += [attrs[name] for name in ("alt", "placeholder", "aria-label") if attrs.get(name)]

            def handle_endtag(self, tag):
                self.path.pop()

            def handle_data(self, data):
                if re.search(r"[^\W\d]", data):
                    self.found.append((*self.path[-1], data.strip()))

        parser = Texts()
        parser.feed(read(f"{WEB}/index.html"))
        no_script = {each["tag"]: table("link", each["code"])["no_script"] for each in self.languages}
        self.assertEqual(
            ["Share links"] + list(no_script.values()),
            [text for tag, attrs, text in parser.found if tag in ("title", "p")])
        self.assertEqual(list(no_script), [attrs["lang"] for tag, attrs, _ in parser.found if tag == "p"])
        self.assertEqual({"title", "p"}, {tag for tag, _, _ in parser.found})
        template = re.sub(r"\{\{!.*?\}\}|\{\{.*?\}\}|<[^>]*>", " ", read(f"{WEB}/link/page.html"), flags=re.S)
        self.assertEqual("", template.strip())


if __name__ == "__main__":
    unittest.main()
