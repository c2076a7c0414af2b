#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "client/commands.h"
#include "client/shell/candidates.h"
#include "client/text.h"

namespace client {

namespace {

// Nobody waits longer for a tabulator, and the service may be loading a probe.
constexpr std::chrono::seconds kMaxWait{2};

// A name comes from a probe, and shells take some characters for commands.
bool IsPlain(const std::string& name) {
  return std::ranges::all_of(name, [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
           c == '_' || c == '.';
  });
}

// Nothing when the service does not answer in time. The thread that still asks for it is left
// alone then.
std::optional<std::vector<std::string>> ProbeNames(const Connector& connector) {
  std::promise<std::vector<std::string>> promise;
  auto answer = promise.get_future();
  std::thread([connector, promise = std::move(promise)]() mutable {
    HRESULT status = S_OK;
    std::vector<std::string> names;
    if (const auto service = connector("", status)) service->EnumerateWirefoxs(names);
    promise.set_value(std::move(names));
  }).detach();
  if (answer.wait_for(kMaxWait) != std::future_status::ready) return std::nullopt;
  return answer.get();
}

bool BeginsWith(const std::string& text, const std::string& begin) {
  return LowerCase(text).starts_with(LowerCase(begin));
}

}  // namespace

int Complete(std::span<const std::string> words, const Connector& connector, std::ostream& out) {
  if (words.empty() || words[0].empty()) return kExitUsage;
  const std::string word = words[0].substr(1);
  Candidates candidates = CandidatesFor(word, words.subspan(1));
  std::optional<std::vector<std::string>> probes;
  if (candidates.probes) {
    // Another machine is not asked: ssh may want a password first.
    const bool is_here = std::ranges::none_of(words.subspan(1), [](const std::string& option) {
      return option == "-H" || option.starts_with("--host");
    });
    probes = is_here ? ProbeNames(connector) : std::vector<std::string>();
    for (const std::string& name : probes.value_or(std::vector<std::string>())) {
      if (IsPlain(name)) candidates.words.push_back({name, "probe"});
    }
  }
  for (const Candidate& candidate : candidates.words) {
    if (!BeginsWith(candidate.word, word)) continue;
    out << candidate.word;
    if (!candidate.about.empty()) out << '\t' << candidate.about;
    out << '\n';
  }
  if (candidates.files) out << ":files\t" << candidates.before_path << '\n';
  out.flush();
  if (candidates.probes && !probes) std::_Exit(kExitSuccess);
  return kExitSuccess;
}

}  // namespace client
