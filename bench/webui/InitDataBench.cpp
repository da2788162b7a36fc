// The cost of a visitor's start-up data with 2,000 UI modules, compared with reading and parsing the
// same files. It fills the web root, so run it in a namespace of its own:
//
//   scripts/in-namespace "$(mktemp -d)" build/release/bin/bench-webui
#include <json/reader.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ratio>
#include <string>
#include <vector>

#include "sharing/InitDataHandler.h"
#include "veltsharing/Entry.h"
#include "veltweb/WebMan.h"

namespace {

constexpr int kModules = 2000;
constexpr int kRounds = 11;
const std::filesystem::path kWebRoot = "/usr/velt/web";

void Write(const std::filesystem::path& file, const std::string& text) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

// Returns the JSON files that a page in German needs. Every other module is open to visitors.
std::vector<std::string> MakeModules() {
  std::vector<std::string> files;
  for (int i = 0; i < kModules; ++i) {
    const std::string name = "Module" + std::to_string(i);
    const std::filesystem::path folder = kWebRoot / "velt" / "modules" / name;
    const std::string texts = R"({"title": "The module", "open": "Open", "close": "Close",
      "explanation": "One or two sentences that explain the module."})";
    Json::Value config;
    Json::Value& description = config["velt.modules." + name];
    description["script"] = "main.js";
    description["title"] = "title";
    description["icon"] = "icon.svg";
    description["depend"].append("velt.modules.Utils");
    description["depend"].append("velt.modules.Widgets");
    description["allowSharing"] = i % 2 == 0;
    Write(folder / "config.json", config.toStyledString());
    Write(folder / "texts" / "enu.json", texts);
    Write(folder / "texts" / "ger.json", texts);
    Write(folder / "style.css", "");
    for (const char* file : {"config.json", "texts/enu.json", "texts/ger.json"}) {
      files.push_back(folder / file);
    }
  }
  return files;
}

std::size_t ParseAll(const std::vector<std::string>& files) {
  std::size_t members = 0;
  for (const std::string& name : files) {
    std::ifstream file(name);
    Json::Value value;
    Json::parseFromStream(Json::CharReaderBuilder(), file, &value, nullptr);
    members += value.size();
  }
  return members;
}

std::size_t Build() {
  WebMan page("ger", "");
  VELT::sharing::InitDataHandler handler(&page, VELT::sharing::record::Entry());
  Json::Value data;
  handler.InitDesktop(data, false);
  return data["JSConfig"].size();
}

template <typename Work>
double Milliseconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

double Median(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

}  // namespace

int main() {
  if (exists(kWebRoot)) {
    std::fprintf(stderr, "%s is in use\n", kWebRoot.c_str());
    return 1;
  }
  const std::vector<std::string> files = MakeModules();
  if (Build() != kModules / 2 || ParseAll(files) == 0) {
    std::fprintf(stderr, "The modules were not read\n");
    return 1;
  }
  std::vector<double> parse;
  std::vector<double> build;
  for (int round = 0; round < kRounds; ++round) {
    parse.push_back(Milliseconds([&] { ParseAll(files); }));
    build.push_back(Milliseconds([] { Build(); }));
  }
  std::printf("%zu files  read and parse %.1f ms  start-up data %.1f ms  ratio %.2f (at most 3)\n",
              files.size(), Median(parse), Median(build), Median(build) / Median(parse));
}
