#include "host/watch/MetricsText.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

namespace VELT::host {
namespace {

using Label = std::pair<std::string_view, std::string>;
using Labels = std::vector<Label>;

// No value needs escaping: Statistics::RowOf replaces special characters in names, and the others
// are constants and numbers.
std::string Text(const Labels& labels) {
  std::string text;
  for (const auto& [name, value] : labels) {
    text += text.empty() ? '{' : ',';
    text.append(name).append("=\"").append(value).append("\"");
  }
  return text.empty() ? text : text + '}';
}

// Microseconds as a decimal number of seconds, without zeros at its end.
std::string Seconds(std::uint64_t microseconds) {
  std::string text = std::to_string(microseconds);
  if (text.size() < 7) text.insert(0, 7 - text.size(), '0');
  text.insert(text.size() - 6, 1, '.');
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

class Writer {
 public:
  // Begins the metric of the samples that are added next.
  void Begin(std::string_view name, std::string_view type, std::string_view help) {
    name_ = name;
    text_.append("# HELP ").append(name).append(" ").append(help).append("\n");
    text_.append("# TYPE ").append(name).append(" ").append(type).append("\n");
  }
  void Add(const Labels& labels, std::uint64_t value) { Add("", labels, std::to_string(value)); }
  void Add(std::string_view suffix, const Labels& labels, const std::string& value) {
    text_.append(name_).append(suffix).append(Text(labels)).append(" ").append(value).append("\n");
  }

  const std::string& text() const { return text_; }

 private:
  std::string_view name_;
  std::string text_;
};

Labels LabelsOf(const MethodCounts& row) {
  return {{"api", row.api.data()},
          {"version", std::to_string(row.version)},
          {"method", row.method.data()}};
}

Labels With(Labels labels, std::initializer_list<Label> more) {
  labels.insert(labels.end(), more);
  return labels;
}

void AddRequests(Writer& writer, const Statistics& statistics) {
  writer.Begin("velt_requests_total", "counter",
               "Requests by HTTP status and the API's error code; 499: the client left, 500: the "
               "worker failed, 504: it took too long.");
  for (const MethodCounts& row : statistics.methods()) {
    if (!row.named) continue;
    for (const auto& answers : row.answers) {
      const std::uint64_t key = answers.key;
      if (key == 0) continue;
      const bool others = &answers == &row.answers.back();
      writer.Add(With(LabelsOf(row), {{"status", others ? "other" : std::to_string(StatusIn(key))},
                                      {"code", others ? "other" : std::to_string(CodeIn(key))}}),
                 answers.count);
    }
  }
}

void AddDurations(Writer& writer, const Statistics& statistics) {
  writer.Begin("velt_request_duration_seconds", "histogram",
               "Time from accepting a request to the end of its answer, queues included.");
  for (const MethodCounts& row : statistics.methods()) {
    if (!row.named) continue;
    const Labels labels = LabelsOf(row);
    std::uint64_t count = 0;
    for (std::size_t bucket = 0; bucket < row.durations.size(); ++bucket) {
      count += row.durations[bucket];
      const std::string bound = bucket < kDurationBounds.size()
                                    ? Seconds(static_cast<std::uint64_t>(kDurationBounds[bucket]))
                                    : "+Inf";
      writer.Add("_bucket", With(labels, {{"le", bound}}), std::to_string(count));
    }
    writer.Add("_sum", labels, Seconds(row.microseconds));
    writer.Add("_count", labels, std::to_string(count));
  }
}

void AddWorkers(Writer& writer, const Scoreboard& scoreboard) {
  writer.Begin("velt_workers", "gauge", "Worker processes by state.");
  for (std::size_t index = 0; index < kPoolCount; ++index) {
    const auto pool = static_cast<Pool>(index);
    for (const auto& [name, state] :
         {std::pair("starting", Slot::State::kStarting), std::pair("idle", Slot::State::kIdle),
          std::pair("busy", Slot::State::kBusy)}) {
      const auto count = std::ranges::count_if(
          scoreboard.slots(pool),
          [wanted = state](const Slot& slot) { return slot.state == wanted; });
      writer.Add({{"pool", NameOf(pool)}, {"state", name}}, static_cast<std::uint64_t>(count));
    }
  }
}

// One sample for each pool from `first` on.
void AddPools(Writer& writer, const std::function<std::uint64_t(Pool)>& value,
              Pool first = Pool::kFront) {
  for (std::size_t index = IndexOf(first); index < kPoolCount; ++index) {
    const auto pool = static_cast<Pool>(index);
    writer.Add({{"pool", NameOf(pool)}}, value(pool));
  }
}

void AddPools(Writer& writer, const MetricsSource& source) {
  const Statistics& statistics = source.statistics;
  AddWorkers(writer, source.scoreboard);
  writer.Begin("velt_workers_limit", "gauge",
               "Worker processes that the pool has when none is being replaced.");
  AddPools(writer, [&](Pool pool) { return source.sizes[IndexOf(pool)]; });
  writer.Begin("velt_worker_starts_total", "counter", "Worker processes that were started.");
  AddPools(writer, [&](Pool pool) { return statistics.pool(pool).starts.load(); });
  writer.Begin("velt_worker_deaths_total", "counter",
               "Worker processes that failed: a request took too long, another signal, an exit "
               "status other than 0.");
  for (std::size_t index = 0; index < kPoolCount; ++index) {
    const auto pool = static_cast<Pool>(index);
    const PoolCounts& counts = statistics.pool(pool);
    writer.Add({{"pool", NameOf(pool)}, {"cause", "timeout"}}, counts.ended);
    writer.Add({{"pool", NameOf(pool)}, {"cause", "signal"}}, counts.killed);
    writer.Add({{"pool", NameOf(pool)}, {"cause", "status"}}, counts.failed);
  }
  writer.Begin("velt_queue_length", "gauge", "Requests that wait for a worker of the pool.");
  AddPools(writer, source.queue_length, Pool::kLogin);
  writer.Begin("velt_queue_refusals_total", "counter", "Requests that found the queue full.");
  AddPools(
      writer, [&](Pool pool) { return statistics.pool(pool).refused.load(); }, Pool::kLogin);
}

void AddEvents(Writer& writer, const Statistics& statistics) {
  const auto count = [&](Event event) {
    return statistics.platform()[static_cast<std::size_t>(event)].load();
  };
  writer.Begin("velt_child_runs_total", "counter",
               "Child processes that requests waited for: programs, and PAM for visitors' logins.");
  writer.Add({{"kind", "program"}}, count(Event::kProgramRun));
  writer.Add({{"kind", "pam"}}, count(Event::kPamRun));
  writer.Begin("velt_child_timeouts_total", "counter",
               "Child processes that were ended because they took too long.");
  writer.Add({{"kind", "program"}}, count(Event::kProgramTimeout));
  writer.Add({{"kind", "pam"}}, count(Event::kPamTimeout));
  writer.Begin("velt_logins_locked_out_total", "counter",
               "Visitors' logins that were refused because too many had failed.");
  writer.Add({}, count(Event::kLoginLockedOut));
  writer.Begin("velt_store_failures_total", "counter", "Database operations that failed.");
  writer.Add({}, count(Event::kStoreFailure));
  writer.Begin("velt_request_lines_lost_total", "counter",
               "Lines that could not be written to the request log.");
  writer.Add({}, statistics.lost_lines());
}

}  // namespace

std::string MetricsText(const MetricsSource& source) {
  Writer writer;
  AddRequests(writer, source.statistics);
  AddDurations(writer, source.statistics);
  AddPools(writer, source);
  AddEvents(writer, source.statistics);
  return writer.text();
}

}  // namespace VELT::host
