// The texts of a link's page in the visitor's language, from the tables in web/link/texts/.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace VELT::host {

struct PageLanguage {
  std::string code;       // "ger"
  std::string tag;        // "de", for the attribute `lang`
  std::string direction;  // "ltr" or "rtl"
  std::string name;       // in the language itself
  std::map<std::string, std::string> texts;

  // Returns the key if the table has no such text.
  std::string Text(const std::string& key) const;
};

// The languages of web/shared/texts/languages.json, read once for each process. The first is the
// default. Never empty: if the file can't be read, that is logged, and keys are shown as texts.
const std::vector<PageLanguage>& PageLanguages();

// `chosen` is the visitor's choice, a code or any text, `header` the request's Accept-Language.
const PageLanguage& PageLanguageFor(const std::string& chosen, const std::string& header);

}  // namespace VELT::host
