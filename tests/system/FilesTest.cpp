#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "veltsys/Accounts.h"
#include "veltsys/Base64.h"
#include "veltsys/JsonFile.h"
#include "veltsys/JsonText.h"
#include "veltsys/KeyFile.h"
#include "veltsys/Text.h"
#include "veltsys/User.h"

namespace {

using std::string;

class Files : public testing::Test {
 protected:
  Files() {
    char name[] = "/tmp/velt-files-XXXXXX";
    root_ = mkdtemp(name);
    std::filesystem::create_directory(root_ / "in");
  }
  ~Files() override { std::filesystem::remove_all(root_); }
  void Write(const string& name, const string& text) const { std::ofstream(root_ / name) << text; }

  std::filesystem::path root_;
};

string Nested(std::size_t levels) { return string(levels, '[') + string(levels, ']'); }

TEST_F(Files, JsonIsReadFromPlainFilesOfTheFolderOnly) {
  const string padding((1 << 20) - 2, ' ');
  Write("outside", "[1]");
  Write("in/good", "[1]");
  Write("in/largest", "[]" + padding);
  Write("in/larger", "[]" + padding + " ");
  Write("in/deepest", Nested(64));
  Write("in/deeper", Nested(65));
  Write("in/comment", "[1] // one");
  Write("in/marked", "\xef\xbb\xbf[1]");
  Write("in/comma", "[1,]");
  Write("in/twice", R"({"a": 1, "a": 2})");
  Write("in/empty", "");
  std::filesystem::create_directory(root_ / "in/folder");
  std::filesystem::create_symlink("good", root_ / "in/link");
  std::filesystem::create_symlink("../outside", root_ / "in/link out");
  ASSERT_EQ(mkfifo((root_ / "in/fifo").c_str(), 0600), 0);
  const auto is_read = [this](const string& name) {
    return VELT::ReadJsonFile(root_ / "in", name).isArray();
  };
  for (const string bad :
       {"larger", "deeper", "comment", "marked", "comma", "twice", "empty", "folder", "link",
        "link out", "fifo", "none", "", ".", "..", "../outside", "./good", "folder/../good"}) {
    EXPECT_FALSE(is_read(bad)) << bad;
  }
  EXPECT_FALSE(is_read(root_ / "outside"));
  EXPECT_FALSE(is_read(string("good\0x", 6)));
  for (const char* good : {"good", "largest", "deepest"}) EXPECT_TRUE(is_read(good)) << good;
  EXPECT_TRUE(VELT::ReadJsonFile(root_ / "none", "good").isNull());
}

TEST_F(Files, KeyFilesAreReadLineByLine) {
  Write("keys",
        "# a=\"comment\"\n a = \"with = and # \" \nb=bare\r\ntwice=\"1\"\ntwice=2\nhalf=\"x\nnone\n"
        "last=\"unended\"");
  const string path = root_ / "keys";
  const struct {
    const char* key;
    const char* value;
    int holds;
  } rows[] = {{"a", "with = and # ", 1}, {"a", "comment", 0}, {"b", "bare", 1},   {"b", "Bare", 0},
              {"twice", "1", 0},         {"twice", "2", 1},   {"half", "\"x", 1}, {"none", "", 0},
              {"last", "unended", 1},    {"", "", 0}};
  for (const auto& row : rows) {
    EXPECT_EQ(VLIBCFileCheckKeyValue(path.c_str(), row.key, row.value, 0), row.holds)
        << row.key << "=" << row.value;
  }
  EXPECT_EQ(VLIBCFileCheckKeyValue((path + "x").c_str(), "a", "", 0), 0);
}

TEST(JsonText, IsExactlyWhatTheStandardAllows) {
  for (const char* good :
       {"0", "-0", "10", "1.50", "-1.5e+10", "2E3", "1e-7", R"("-")", R"("\"01 // /* NaN")",
        R"({"a-1": [1, -2, "\\"], "e": true})", " 5 ", "\t[null,\r\nfalse]\n", R"({"": {}})",
        R"("\b\f\n\r\t\/\u00e9\uD83D\ude00")", "\"\xc3\xa4\x7f\""}) {
    Json::Value value;
    EXPECT_TRUE(VELT::ParseJsonText(good, value)) << good;
  }
  for (const string bad :
       {"-", "+1", "01", "-01", "1.", ".5", "1e", "1e+", "1.e5", "1-2", "--1", "0x1", "[1, -]",
        R"({"a": 01})", "\"a\nb\"", "\"\t\"", "\"open", R"("\)", "NaN", "Infinity", "-Infinity",
        // comments and a byte order mark
        "1 // one", "1/**/", "/**/1", "[1, /* two */ 2]", "[1 // one\n]", "{/**/}",
        R"({"a": /* one */ 1})", R"({"a" /**/: 1})", R"({"a": 1 // one
        })",
        "# one\n1",
        "\xef\xbb\xbf"
        "1",
        "[\xef\xbb\xbf"
        "1]",
        // punctuation, names and literals
        "", " ", "[1,]", "[,1]", "[1,,2]", R"({"a": 1,})", "{,}", "1 2", "[1 2]", "[1]]", "{a: 1}",
        "{1: 1}", "{'a': 1}", "'a'", R"({"a"})", R"({"a":})", R"({"a": 1, "\u0061": 2})", "nul",
        "True", "truefalse", "-true", "[1.null]", "undefined", "[1;2]",
        // white space and characters
        "[\f1]", "[\v1]",
        "[\xc2\xa0"
        "1]",
        "1\x1a", "\"\xff\"", "\"\xed\xa0\x80\"", "{\"\xc3\": 1}", R"("\x41")", R"("\'")",
        R"("\u12")", R"("\u00g0")", R"("\ud800")", R"("\udc00")", R"("\ud800\u0041")",
        R"("\ud800\ud800")", R"({"\ud800\n": 1})"}) {
    Json::Value value = "before";
    EXPECT_FALSE(VELT::ParseJsonText(bad, value)) << bad;
    EXPECT_TRUE(value.isNull()) << bad;
  }
  for (const char* with_nul : {"1 #", "1#x", "#1 ", "[#]", "\"#\""}) {
    string text = with_nul;
    std::replace(text.begin(), text.end(), '#', '\0');
    Json::Value value;
    EXPECT_FALSE(VELT::ParseJsonText(text, value)) << with_nul;
  }
}

TEST(Base64, EncodesIntoBuffersThatJustFit) {
  const struct {
    string source;
    string text;
  } rows[] = {{"", ""},
              {"f", "Zg=="},
              {"fo", "Zm8="},
              {"foo", "Zm9v"},
              {"foob", "Zm9vYg=="},
              {"fooba", "Zm9vYmE="},
              {"foobar", "Zm9vYmFy"},
              {"\xfb\xff\xfe", "+//+"}};
  for (const auto& [source, text] : rows) {
    string buffer(text.size() + 2, '#');
    const auto encode = [&, s = source](std::size_t text_size, std::size_t max_length) {
      return VLIBCBase64SzEncodeFull(s.data(), s.size(), buffer.data(), text_size, max_length, 0,
                                     0);
    };
    EXPECT_EQ(encode(text.size(), text.size()), -1) << "no room for the zero byte";
    if (!text.empty()) {
      EXPECT_EQ(encode(text.size() + 1, text.size() - 1), -1);
    }
    EXPECT_EQ(buffer, string(text.size() + 2, '#'));
    EXPECT_EQ(encode(text.size() + 1, text.size()), static_cast<long>(text.size()));
    EXPECT_EQ(buffer, text + '\0' + '#');
  }
  char buffer[8];
  EXPECT_EQ(VLIBCBase64SzEncodeFull("f", 1, buffer, 8, 8, 76, 0), -1);
  EXPECT_EQ(VLIBCBase64SzEncodeFull("f", 1, buffer, 8, 8, 0, 1), -1);
}

TEST(Text, IsCleanWhenItIsUtf8WithoutNul) {
  for (const char* good :
       {"", "a\x7f", "\xc2\x80", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(VELT::IsCleanText(good)) << good;
  }
  for (const char* bad :
       {"\x80", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80",
        "\xf5\x80\x80\x80", "\xe2\x82", "a\xc3", "\xc3(", "\xe2\x82(", "\xf0\x90\x80("}) {
    EXPECT_FALSE(VELT::IsCleanText(bad)) << bad;
  }
  EXPECT_FALSE(VELT::IsCleanText(std::string_view("a\0b", 3)));
}

TEST(Text, ComesBackFromItsPercentEscapes) {
  EXPECT_EQ(VELT::EncodePercent("aZ09-._~/ %\x7f\xc3\xa9?"), "aZ09-._~%2F%20%25%7F%C3%A9%3F");
  EXPECT_EQ(VELT::EncodePercent("/srv/a b", "/"), "/srv/a%20b");
  string decoded;
  EXPECT_TRUE(VELT::DecodePercent("%2F%c3%A9+%25", decoded));
  EXPECT_EQ(decoded, "/\xc3\xa9+%");
  for (const char* broken : {"%", "a%2", "%2g", "%g2", "%ff", "%00"}) {
    EXPECT_FALSE(VELT::DecodePercent(broken, decoded)) << broken;
  }
}

TEST(Accounts, KnowRootAndNoStrangers) {
  const auto root = VELT::accounts::FindUser("root");
  ASSERT_TRUE(root.has_value());
  EXPECT_EQ(root->uid, 0U);
  EXPECT_TRUE(VELT::accounts::IsAdministrator(*root));
  EXPECT_TRUE(VELT::accounts::GroupsOf(*root).contains(root->gid));
  EXPECT_FALSE(VELT::accounts::FindUser("no-such-user").has_value());
  EXPECT_FALSE(VELT::accounts::FindUser("").has_value());
  EXPECT_FALSE(VELT::accounts::FindGroup("no-such-group").has_value());
  VELTUSER* user = nullptr;
  EXPECT_EQ(VELTUserGetByUID(0, &user), 0);
  ASSERT_NE(user, nullptr);
  EXPECT_EQ(user->name, "root");
  VELTUserFree(user);
  EXPECT_EQ(VELTUserGetByUID(0xFFFFFFFD, &user), -1);
  EXPECT_EQ(user, nullptr);
}

}  // namespace
