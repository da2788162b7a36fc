#include "host/page/PageTexts.h"

#include <json/value.h>
#include <syslog.h>

#include <algorithm>
#include <set>

#include "host/page/Language.h"
#include "veltsys/JsonFile.h"

namespace VELT::host {
namespace {

constexpr const char* kLanguages = "/usr/velt/web/shared/texts";
constexpr const char* kTexts = "/usr/velt/web/link/texts";

std::string TextOf(const Json::Value& object, const char* member) {
  return object.isObject() && object[member].isString() ? object[member].asString() : "";
}

std::map<std::string, std::string> ReadTexts(const std::string& code) {
  std::map<std::string, std::string> texts;
  const Json::Value table = ReadJsonFile(kTexts, code + ".json");
  if (!table.isObject()) {
    syslog(LOG_ERR, "link page: the texts %s/%s.json can't be read", kTexts, code.c_str());
    return texts;
  }
  for (const std::string& key : table.getMemberNames()) {
    if (table[key].isString()) texts[key] = table[key].asString();
  }
  return texts;
}

std::vector<PageLanguage> ReadLanguages() {
  std::vector<PageLanguage> languages;
  const Json::Value list = ReadJsonFile(kLanguages, "languages.json");
  if (list.isArray()) {
    for (const Json::Value& row : list) {
      PageLanguage language{TextOf(row, "code"),
                            TextOf(row, "tag"),
                            TextOf(row, "direction"),
                            TextOf(row, "name"),
                            {}};
      if (language.code.empty()) continue;
      language.texts = ReadTexts(language.code);
      languages.push_back(std::move(language));
    }
  }
  if (languages.empty()) {
    syslog(LOG_ERR, "link page: %s/languages.json can't be read", kLanguages);
    languages.push_back({"enu", "en", "ltr", "English", {}});
  }
  return languages;
}

}  // namespace

std::string PageLanguage::Text(const std::string& key) const {
  const auto found = texts.find(key);
  return found != texts.end() ? found->second : key;
}

const std::vector<PageLanguage>& PageLanguages() {
  static const std::vector<PageLanguage> languages = ReadLanguages();
  return languages;
}

const PageLanguage& PageLanguageFor(const std::string& chosen, const std::string& header) {
  const auto& languages = PageLanguages();
  const auto find = [&languages](const std::string& code) {
    return std::find_if(languages.begin(), languages.end(),
                        [&code](const PageLanguage& each) { return each.code == code; });
  };
  auto found = find(chosen);
  if (found == languages.end()) {
    std::set<std::string> codes;
    for (const PageLanguage& language : languages) codes.insert(language.code);
    found = find(UILanguage(header, &codes));
  }
  return found != languages.end() ? *found : languages.front();
}

}  // namespace VELT::host
