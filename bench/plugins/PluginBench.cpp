// The cost of a plugin run compared with the loader and the library's own function alone. Run it
// with the example's files installed, so that the tags' versions are looked up as on the appliance:
//
//   cmake --install build/release --prefix DIR/usr/velt
//   scripts/in-namespace DIR build/release/bin/bench-plugins
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ratio>
#include <thread>
#include <vector>

#include "sharing/Plugins.h"
#include "veltplugin/RenderPlugin.h"
#include "veltsharing/Entry.h"

namespace {

using VELT::sharing::GetSharingPlugin;
using VELT::sharing::PluginLibFunc;
using VELT::sharing::PluginRunnerFunc;
using VELT::sharing::record::Entry;

constexpr int kRounds = 2000;

void BareRun(const char* symbol, const Entry& entry) {
  void* library = dlopen(VELT_PHOTO_ALBUM, RTLD_LAZY);
  const auto func = reinterpret_cast<PluginLibFunc>(dlsym(library, symbol));
  {
    Json::Value result;
    func(entry, "none", Json::Value(), result);
  }
  dlclose(library);
}

template <typename Work>
double Microseconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

double Median(std::vector<double>& times) {
  std::nth_element(times.begin(), times.begin() + kRounds / 2, times.end());
  return times[kRounds / 2];
}

// The two alternate, so that a busy machine slows both equally.
void Compare(const char* plugin, const char* symbol, const char* state) {
  // A link as the application makes it.
  Entry entry;
  Json::Value album;
  album["title"] = "On the coast";
  for (const char* photo : {"harbour", "hills", "lighthouse"}) album["photos"].append(photo);
  entry.set_owner_uid(65534);  // "nobody" comes after the system accounts in the file, as people do
  entry.set_app(album);
  Json::Value params;
  params["lib"] = VELT_PHOTO_ALBUM;
  const PluginRunnerFunc runner = GetSharingPlugin("render", plugin);
  std::vector<double> bare;
  std::vector<double> run;
  for (int round = 0; round < kRounds; ++round) {
    bare.push_back(Microseconds([&] { BareRun(symbol, entry); }));
    run.push_back(Microseconds([&] {
      Json::Value output(Json::objectValue);
      runner(params, entry, "none", Json::Value(), output);
    }));
  }
  const double floor = Median(bare);
  const double whole = Median(run);
  std::printf("%-11s  %-12s  bare %7.1f us  run %7.1f us  ratio %.2f (at most 1.15)\n", plugin,
              state, floor, whole, whole / floor);
}

}  // namespace

int main() {
  // The times of files that have just changed are looked up at every run.
  std::this_thread::sleep_for(std::chrono::seconds(3));
  for (const bool resident : {false, true}) {
    void* library = resident ? dlopen(VELT_PHOTO_ALBUM, RTLD_LAZY) : nullptr;
    const char* state = resident ? "resident" : "not resident";
    Compare("custom_page", "CustomPageFunc", state);
    Compare("open_graph", "OpenGraphFunc", state);
    if (library != nullptr) dlclose(library);
  }
}
