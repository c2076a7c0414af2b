#include "sim/server/control_session.h"

#include "sim/server/control_commands.h"

namespace sim {
namespace {

constexpr std::size_t kMaxRequestBytes = 1u << 20;

}  // namespace

void ServeControl(ControlStream& stream, Bench& bench, const std::function<void()>& stop) {
  std::string line;
  char c = 0;
  while (line.size() < kMaxRequestBytes && stream.Receive(&c, 1)) {
    if (c != '\n') {
      line += c;
      continue;
    }
    bool stopping = false;
    const std::string answer = RunCommand(bench, line, [&] { stopping = true; }) + "\n";
    line.clear();
    if (!stream.Send(answer.data(), answer.size())) return;
    if (stopping) stop();
  }
}

bool AskOnce(ControlStream& stream, const std::string& request, std::string& answer) {
  const std::string all = std::string(kControlGreeting) + request + "\n";
  answer.clear();
  if (!stream.Send(all.data(), all.size())) return false;
  for (char c = 0; stream.Receive(&c, 1); answer += c) {
    if (c == '\n') return true;
  }
  return false;
}

}  // namespace sim
