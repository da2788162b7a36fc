"""velt-sharing check-plugin over real libraries, each with one fault: the output says what is wrong and what to do."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest

BUILD = os.environ["VELT_BUILD"]
TOOL = os.path.join(BUILD, "bin", "velt-sharing")
LIBRARIES = os.path.join(BUILD, "tests", "plugins", "libs")
IS_SANITIZED = os.environ["VELT_SANITIZE"] != ""
PAGE, TAGS = "CustomPageFunc", "OpenGraphFunc"


def check(path, *options):
    """The exit status and {(subject, text): state} of a check."""
    done = subprocess.run([TOOL, "check-plugin", path, "--json", *options], capture_output=True, text=True, check=False,
                          timeout=100)
    found = json.loads(done.stdout)
    assert found["success"] == (done.returncode == 0), done
    return done.returncode, {(row["subject"], row["text"]): row["state"] for row in found["checks"]}


class CheckPlugin(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velt-plugin-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def patched(self, name, old, new):
        """A copy of the library in which some bytes are others."""
        path = os.path.join(self.folder, "patched.so")
        with open(os.path.join(LIBRARIES, name), "rb") as source, open(path, "wb") as copy:
            content = source.read()
            self.assertTrue(old in content, old)
            copy.write(content.replace(old, new))
        return path

    def assert_told(self, path, state, subject, text, *options):
        status, found = check(path, *options)
        self.assertEqual(int(state == "failed"), status, found)
        self.assertTrue(any(is_state == state and of == subject and text in is_text
                            for (of, is_text), is_state in found.items()), found)

    def test_faults(self):
        for fault, state, subject, text in (
                ("missing", "failed", "file", "No such file"),
                ("not_elf", "failed", "file", "is no library"),
                ("other_architecture", "failed", "file", "another kind of machine"),
                ("undefined", "failed", "library", "uses DevelopFilm()"),
                ("own_standard_library", "failed", "libraries", "it holds a copy of libstdc++.so.6"),
                ("no_symbol", "failed", "functions", "exports neither"),
                ("null_symbol", "failed", "functions", "exports neither"),
                ("cxx_name", "failed", PAGE, "include veltplugin/RenderPlugin.h"),
                ("crashes", "failed", PAGE, "crashes"),
                ("crashes", "failed", TAGS, "crashes"),
                ("throws", "failed", PAGE, "throws an exception: lens cap on"),
                ("hangs", "failed", PAGE, "has not returned after 10 seconds"),
                ("takes_all_memory", "failed", PAGE, "throws an exception: std::bad_alloc"),
                ("ten_mebibytes_of_tags", "failed", TAGS, "more than 1 MiB"),
                ("points_into_itself", "failed", PAGE, "points into the library"),
                ("leaves_a_thread", "failed", PAGE, "leaves a thread running"),
                ("returns_false", "warning", PAGE, "returns false"),
                ("wrong_type", "warning", PAGE, "gives no object"),
                ("wrong_type", "warning", TAGS + ", preview", "gives no array"),
                ("prints_to_stdout", "warning", PAGE, "prints to standard output")):
            # Sanitizers have memory, threads and a way to unload of their own.
            if IS_SANITIZED and fault in ("takes_all_memory", "leaves_a_thread", "points_into_itself"):
                continue
            with self.subTest(fault):
                self.assert_told(os.path.join(LIBRARIES, fault + ".so"), state, subject, text)

    def test_faults_of_the_file(self):
        own = os.path.join(self.folder, "own.so")
        shutil.copy(os.path.join(LIBRARIES, "returns_false.so"), own)
        for mode, text in ((0o600, "chmod a+r"), (0o666, "chmod go-w")):
            os.chmod(own, mode)
            with self.subTest(text):
                self.assert_told(own, "warning", "rights", text)
        self.assert_told(self.folder, "failed", "file", "is no regular file")
        self.assert_told(TOOL, "failed", "library", "")
        self.assert_told(self.patched("echo.so", b"libjsoncpp.so.25", b"libjsoncpp.so.99"), "failed", "library",
                         "needs the library libjsoncpp.so.99, which is not here")
        self.assert_told(self.patched("throws.so", b"\0CXXABI_1.3\0", b"\0CXXABI_9.9\0"), "failed", "library",
                         "than are here (CXXABI_9.9): build it")

    def test_a_sound_plugin(self):
        path = os.path.join(BUILD, "lib", "photo-album.so")
        status, found = check(path, "--project", "photo-album", "--app", '{"title": "x", "photos": ["harbour"]}')
        self.assertEqual((0, {"ok"}), (status, set(found.values())), found)
        self.assertIn((PAGE, "gives CSS JSFILE PRIVATE SESSION"), found)

    def test_wrong_usage(self):
        for options, status in ((("--app", "[]"), 1), (("--app",), 2)):
            done = subprocess.run([TOOL, "check-plugin", "x.so", *options], capture_output=True, check=False)
            self.assertEqual(status, done.returncode)


if __name__ == "__main__":
    unittest.main()
