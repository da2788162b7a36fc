#include "host/page/Language.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iterator>

namespace VELT::host {
namespace {

struct Language {
  std::string_view tag;  // matches itself and every tag that begins with it and a hyphen
  const char* code;
};

// Of several tags that match, the first counts.
constexpr Language kLanguages[] = {
    {"en", "enu"},    {"de", "ger"},    {"fr", "fre"},      {"it", "ita"}, {"es", "spn"},
    {"nl", "nld"},    {"da", "dan"},    {"sv", "sve"},      {"nb", "nor"}, {"no", "nor"},
    {"pl", "plk"},    {"cs", "csy"},    {"hu", "hun"},      {"ru", "rus"}, {"tr", "trk"},
    {"pt-br", "ptb"}, {"pt", "ptg"},    {"ja", "jpn"},      {"ko", "krn"}, {"th", "tha"},
    {"zh-tw", "cht"}, {"zh-hk", "cht"}, {"zh-hant", "cht"}, {"zh", "chs"}, {"ar", "ara"},
};

const char* CodeOf(const std::string& tag) {
  for (const Language& language : kLanguages) {
    if (tag == language.tag) return language.code;
    if (tag.starts_with(language.tag) && tag[language.tag.size()] == '-') return language.code;
  }
  return nullptr;
}

double WeightOf(const std::string& range) {
  const std::size_t weight = range.find(";q=");
  return weight == std::string::npos ? 1.0 : std::strtod(range.c_str() + weight + 3, nullptr);
}

}  // namespace

bool IsUILanguage(const std::string& code) {
  return std::any_of(std::begin(kLanguages), std::end(kLanguages),
                     [&code](const Language& language) { return language.code == code; });
}

std::string UILanguage(std::string_view header, const std::set<std::string>* among) {
  std::string best = "enu";
  double best_weight = 0;
  while (!header.empty()) {
    const std::size_t end = header.find(',');
    std::string range;
    for (const char c : header.substr(0, end)) {
      if (c != ' ') range += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    header.remove_prefix(end == std::string_view::npos ? header.size() : end + 1);
    const char* code = CodeOf(range.substr(0, range.find(';')));
    const double weight = WeightOf(range);
    const bool offered = code != nullptr && (among == nullptr || among->contains(code));
    if (offered && weight > best_weight) {
      best = code;
      best_weight = weight;
    }
  }
  return best;
}

}  // namespace VELT::host
