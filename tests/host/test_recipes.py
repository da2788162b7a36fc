"""The recipes of CONTRIBUTING.md are complete: a copy of the sources, changed in the places that they name and in no
others, has a method more and a field of a link more.
"""

import glob
import json
import os
import re
import shutil
import subprocess
import unittest
import urllib.parse

import webapid
from webapid import BUILD

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
COPY = os.path.join(BUILD, "recipes")  # kept, so that only what changes is built again
COPIED = ("CMakeLists.txt", "CMakePresets.json", "api", "docs/api.md", "host", "module", "platform", "sharing")
DECLARATION = "module/webapi.d/VELT.Core.Sharing.json"

# For each step of a recipe its additions: a file, the text before which it gets more, and that.
METHOD = (
    [(DECLARATION, '    {"api": "VELT.Core.Sharing", "version": 1, "method": "trigger_gc"', """\
    {"api": "VELT.Core.Sharing", "version": 1, "method": "count", "access": ["user"], "summary": "Counts all links.",
     "parameters": [
       {"name": "project_name", "type": "string", "required": true, "minLength": 1, "examples": ["demo"],
        "description": "of this application"}
     ],
     "result": {"properties": {"total": {"type": "integer"}}}, "codes": [117, 120]},
""")],
    [("module/SharingCount.cpp", None, """\
#include "module/SharingAPI.h"
#include "veltsharing/Keys.h"
#include "veltsharing/SharingDB.h"

namespace VELT {

int SharingCount::Execute() {
  sharing::db::EntryDB entries(*sharing::db::SharingDB::Instance());
  entries.GetCondition()->Where(sharing::SZK_PROJECT_NAME, Read(params::SharingCount::kProjectName));
  int total = 0;
  if (!entries.Count(total)) return Fail(kErrorStore, "db count fail");
  result_["total"] = total;
  return 0;
}

}  // namespace VELT
""")],
    [("module/SharingAPI.h", "// Has the store remove expired links", """\
class SharingCount : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  int Execute() override;
};

""")],
    [("module/CMakeLists.txt", "  SharingDelete.cpp\n", "  SharingCount.cpp\n")],
    [("module/SharingAPI.cpp", "    {nullptr, 0, nullptr, nullptr},\n",
      "    Entry<params::SharingCount>(SharingAPIHandler<SharingCount>),\n"),
     ("module/SharingAPI.cpp", "    CheckEntry<params::SharingDelete>()",
      "    CheckEntry<params::SharingCount>(),\n")],
)
FIELD = (
    [(DECLARATION, '       {"name": "enabled", "type": "boolean"',
      '       {"name": "note", "type": "string", "default": "", "description": "for the owner"},\n'),
     (DECLARATION, '        "status": {"enum"', '        "note": {"type": "string"},\n')],
    [("platform/store/sql/Schema.cpp", "const std::vector<std::string> kNone;", """\
const std::vector<std::string> kNote = {"alter table link add column note {text} not null default ''"};
"""),
     ("platform/store/sql/Schema.cpp", "});\n\nstd::string Translate", "    {kNote},\n")],
    [("platform/store/sql/EntryRow.h", "  unsigned int changed = 0;", "  std::string note;\n"),
     ("platform/store/sql/EntryRow.h", "    visit(Field::kPrivateData,",
      '    visit(Field::kNote, "note", &EntryRow::note, &Entry::note_);\n')],
    [("platform/store/include/veltsharing/Entry.h", "  // Makes `out` the link's JSON form",
      "  void set_note(const std::string& note) { Set(Field::kNote, note_, note); }\n"),
     ("platform/store/include/veltsharing/Entry.h", "  };\n\n  static constexpr unsigned int Bit", "    kNote,\n"),
     ("platform/store/include/veltsharing/Entry.h", "  std::int64_t created_at_ = 0;", "  std::string note_;\n")],
    [("platform/store/Entry.cpp", '  out["created_at"]', '  out["note"] = note_;\n')],
    [("module/SharingAPI.h", "  std::string url_;\n};", "  std::string note_;\n")],
    [("module/SharingSet.cpp", "  if (expire_times_ < 0)", "  note_ = Read(Params::kNote);\n"),
     ("module/SharingSet.cpp", "  if (Carries(Params::kApp,",
      "  if (Carries(Params::kNote, update)) entry.set_note(note_);\n")],
)


def steps_of(title):
    """The numbered steps of a recipe in CONTRIBUTING.md."""
    with open(os.path.join(REPOSITORY, "CONTRIBUTING.md"), encoding="utf-8") as file:
        recipe = file.read().split(f"### {title}\n")[1].split("\n## ")[0].split("\n### ")[0]
    return re.split(r"^\d\. ", recipe, flags=re.MULTILINE)[1:]


def sources():
    """The copy's files, before the recipes."""
    for name in COPIED:
        top = os.path.join(REPOSITORY, name)
        paths = [os.path.join(folder, file) for folder, _, files in os.walk(top) for file in files] or [top]
        for path in paths:
            with open(path, "rb") as file:
                yield os.path.relpath(path, REPOSITORY), file.read()


def changed(files):
    for path, before, more in (addition for step in (*METHOD, *FIELD) for addition in step):
        text = files.get(path, b"").decode()
        assert before is None or text.count(before) == 1, (path, before)
        files[path] = (more if before is None else text.replace(before, more + before)).encode()
    return files


def write_copy(files):
    """Writes what differs, so that its time tells what must be built again."""
    for folder, _, names in os.walk(COPY):
        for name in names:
            path = os.path.relpath(os.path.join(folder, name), COPY)
            if not path.startswith("build/") and path not in files:
                os.remove(os.path.join(COPY, path))
    for path, content in files.items():
        target = os.path.join(COPY, path)
        if os.path.exists(target):
            with open(target, "rb") as file:
                if file.read() == content:
                    continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as file:
            file.write(content)


def run(*command):
    done = subprocess.run(command, cwd=COPY, stdin=subprocess.DEVNULL, text=True, errors="replace", check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert done.returncode == 0, done.stdout[-5000:]


class Service(webapid.Host):
    """The sharing module of a build folder, served, with the data of the folder `data` if one is given."""

    def __init__(self, build, data=None):
        webapid.HOST = os.path.join(build, "bin/velt-webapid")
        with open(os.path.join(build, "lib/webapi.d/VELT.Core.Sharing.json"), encoding="utf-8") as file:
            declaration = json.load(file) | {"library": os.path.join(build, "lib/VELT.Core.Sharing.so")}
        under = ("sh", "-c", 'cp -r "$0/." {}/data && exec "$@"', data) if data else ()
        super().__init__(modules={"sharing.json": declaration}, under=under)

    def sharing(self, method, **parameters):
        """The call's data, or what it was refused for."""
        form = {"api": "VELT.Core.Sharing", "version": 1, "method": method, **parameters}
        answer = self.ask({}, urllib.parse.urlencode(form).encode()).json
        return answer["data"] if answer["success"] else answer["error"]


class Recipes(unittest.TestCase):
    def test_name_each_place(self):
        for title, most, recipe in (("A new method", 5, METHOD), ("A new field of a link", 7, FIELD)):
            steps = steps_of(title)
            self.assertLessEqual(len(steps), most, title)
            self.assertEqual(len(recipe), len(steps), title)
            for step, additions in zip(steps, recipe):
                named = [re.sub("<.*?>", "[^/]+", name) for name in re.findall(r"`([\w/<>.]+\.\w+)`", step)]
                for path, before, _ in additions:
                    if before is not None:  # a new file's name is free
                        self.assertTrue(any(re.search(f"(^|/){name}$", path) for name in named), (path, step))

    def test_make_a_method_and_a_field(self):
        write_copy(changed(dict(sources())))
        run("cmake", "--preset", "dev", "-DCMAKE_BUILD_TYPE=None")
        run("cmake", "--build", "--preset", "dev", "--target", "velt-webapid", "VELT.Core.Sharing", "openapi")
        others = glob.glob(os.path.join(REPOSITORY, "apps/*/webapi.d/*.json"))
        run("python3", "-B", "api/reference.py", "docs/api.md", DECLARATION, *others)
        self.check_calls()
        self.check_texts()

    def check_calls(self):
        data = os.path.join(COPY, "build/data")
        shutil.rmtree(data, ignore_errors=True)
        with Service(BUILD) as before:
            old = before.sharing("set", project_name="album")["sharing_id"]
            shutil.copytree(os.path.dirname(before.database), data)
        with Service(os.path.join(COPY, "build/dev"), data) as service:
            self.assertEqual({"total": 1}, service.sharing("count", project_name="album"))
            self.assertEqual({"name": "project_name", "reason": "required"}, service.sharing("count")["errors"])
            self.assertEqual("", service.sharing("get", sharing_id=old)["note"])
            new = service.sharing("set", project_name="album", note="kept")["sharing_id"]
            service.sharing("set", project_name="album", sharing_id=new, protect_title="changed")
            service.sharing("set", project_name="album", sharing_id=old, note="added")
            for link, note in ((old, "added"), (new, "kept")):
                self.assertEqual(note, service.sharing("get", sharing_id=link)["note"])
            self.assertEqual({"total": 2}, service.sharing("count", project_name="album"))

    def check_texts(self):
        with open(os.path.join(COPY, "docs/api.md"), encoding="utf-8") as file:
            page = file.read()
        self.assertIn("<!-- declared: VELT.Core.Sharing count -->", page)
        self.assertIn("| `note` | text | `\"\"` | for the owner |", page)
        with open(os.path.join(COPY, "build/dev/web/webapi/openapi.json"), encoding="utf-8") as file:
            description = json.load(file)
        self.assertIn("/webapi/entry.cgi#VELT.Core.Sharing.count", description["paths"])
        self.assertIn("note", description["components"]["schemas"]["Link"]["properties"])


if __name__ == "__main__":
    unittest.main()
