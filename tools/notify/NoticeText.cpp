#include "tools/notify/NoticeText.h"

#include <algorithm>
#include <map>
#include <vector>

#include "tools/Command.h"
#include "veltsharing/Owners.h"
#include "veltsys/JsonFile.h"

namespace VELT::tools {
namespace {

using sharing::notify::Message;
using sharing::notify::Notice;

constexpr const char* kTexts = "/usr/velt/share/notify";
constexpr const char* kDefault = "enu";
constexpr std::size_t kMostLines = 50;

using Values = std::map<std::string, std::string>;

class Texts {
 public:
  explicit Texts(const std::string& language) : table_(ReadJsonFile(kTexts, language + ".json")) {
    if (!table_.isObject()) table_ = ReadJsonFile(kTexts, std::string(kDefault) + ".json");
    if (!table_.isObject()) throw Failure(std::string(kTexts) + " has no texts");
  }

  // The text with the values in place of their names in braces.
  std::string Fill(const std::string& key, const Values& values) const {
    const std::string text = table_[key].asString();
    std::string filled;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t begin = text.find('{', at);
      const std::size_t end = text.find('}', begin);
      filled += text.substr(at, begin - at);
      if (end == std::string::npos) break;
      filled += values.at(text.substr(begin + 1, end - begin - 1));
      at = end + 1;
    }
    return filled;
  }

 private:
  Json::Value table_;
};

std::vector<Notice> Merged(const std::vector<Notice>& notices) {
  std::vector<Notice> merged;
  for (const Notice& notice : notices) {
    const auto same = std::find_if(merged.begin(), merged.end(), [&](const Notice& each) {
      return each.kind == notice.kind && each.link == notice.link && each.file == notice.file;
    });
    if (same == merged.end()) {
      merged.push_back(notice);
    } else {
      same->times += notice.times;
    }
  }
  return merged;
}

std::string Sentence(const Texts& texts, const Notice& notice) {
  const std::string title =
      notice.title.empty() ? texts.Fill("untitled", {{"link", notice.link}}) : notice.title;
  std::string text = texts.Fill(notice.kind, {{"title", title}, {"file", notice.file}});
  if (notice.times > 1)
    text += " " + texts.Fill("times", {{"count", std::to_string(notice.times)}});
  return text;
}

Json::Value DataOf(const std::vector<Notice>& notices) {
  Json::Value data(Json::arrayValue);
  for (const Notice& notice : notices) {
    Json::Value& row = data.append(Json::objectValue);
    row["kind"] = notice.kind;
    row["time"] = Json::Int64{notice.time};
    row["link"] = notice.link;
    row["title"] = notice.title;
    row["file"] = notice.file;
    row["times"] = Json::Int64{notice.times};
  }
  return data;
}

}  // namespace

NoticeText Compose(const Message& message, const std::string& site) {
  const Texts texts(message.owner.language);
  const std::vector<Notice> notices = Merged(message.notices);
  const std::size_t shown = std::min(notices.size(), kMostLines);
  NoticeText result;
  for (std::size_t at = 0; at < shown; ++at) {
    const Notice& notice = notices[at];
    if (notice.time != 0) result.text += sharing::owners::TimeText(notice.time) + "  ";
    result.text += Sentence(texts, notice) + "\n";
  }
  if (shown < notices.size()) {
    result.text += texts.Fill("more", {{"count", std::to_string(notices.size() - shown)}}) + "\n";
  }
  result.text +=
      "\n" + texts.Fill("end", {{"account", message.owner.account}, {"site", site}}) + "\n";
  result.title = notices.size() == 1
                     ? Sentence(texts, notices.front())
                     : texts.Fill("news", {{"count", std::to_string(notices.size())}});
  result.data = DataOf(notices);
  return result;
}

}  // namespace VELT::tools
