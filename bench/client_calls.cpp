#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/baselines.h"
#include "bench/client_session.h"
#include "bench/rows.h"
#include "bench/table.h"

namespace bench {
namespace {

constexpr std::size_t kSentBytes = std::size_t{1} << 20;
constexpr int kSmallCallsPerRound = 400;
constexpr int kSmallRounds = 41;
constexpr int kLargeRounds = 61;
constexpr int kThroughRounds = 9;

class LargePacket {
 public:
  LargePacket() : array_(SafeArrayCreateVector(VT_UI1, 0, kSentBytes)) {
    void* data = nullptr;
    SafeArrayAccessData(array_, &data);
    std::memset(data, 0, kSentBytes);
    SafeArrayUnaccessData(array_);
  }
  ~LargePacket() { SafeArrayDestroy(array_); }
  LargePacket(const LargePacket&) = delete;
  LargePacket& operator=(const LargePacket&) = delete;
  SAFEARRAY* Get() const { return array_; }

 private:
  SAFEARRAY* array_;
};

double ResidentMiB(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6)) / 1024;
  }
  return 0;
}

// The process that runs `program`; 0 when there is none.
pid_t ProcessOf(const std::string& program) {
  namespace fs = std::filesystem;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const fs::path running = fs::read_symlink(entry.path() / "exe", error);
    if (!error && running == fs::canonical(program)) return std::stoi(entry.path().filename());
  }
  return 0;
}

}  // namespace

void InstantServiceRows() {
  BareBus bare;
  SocketEcho echo;
  ClientSession client(L"INSTANT", TzTransferMode::VSER);
  std::vector<std::uint8_t> word(4);
  std::vector<std::uint8_t> four(4);
  const auto repeat = [](const auto& call) {
    return [call] {
      for (int i = 0; i < kSmallCallsPerRound; ++i) call();
    };
  };
  const auto empty_call = repeat([&] { client.GetVersion(); });
  PrintRow("empty client call (GetVersion)", "a bare sd-bus method",
           MeasureInTurns(kSmallRounds, empty_call, repeat([&] { bare.GetNumber(); })).Value(),
           Target{Wanted::kAtMost, 1.25});
  PrintRow("empty client call (GetVersion)", "a bare Unix-socket echo",
           MeasureInTurns(kSmallRounds, empty_call, repeat([&] { echo.Call(word, four); })).Value(),
           Target{Wanted::kAtMost, 1.5});

  const LargePacket packet;
  const std::vector<std::uint8_t> sent(kSentBytes);
  std::vector<std::uint8_t> reply(kSentBytes / 2);
  const auto large_call = [&] { client.SendJtagPacket(packet.Get()); };
  PrintRow("SendJtagPacket, 1 MiB in, 0.5 MiB out", "a bare sd-bus method, same arrays",
           MeasureInTurns(kLargeRounds, large_call, [&] { bare.Half(sent, reply); }).Value(),
           Target{Wanted::kAtMost, 1.5});
  reply.resize(kSentBytes / 2);
  PrintRow("SendJtagPacket, 1 MiB in, 0.5 MiB out", "a bare Unix-socket echo of them",
           MeasureInTurns(kLargeRounds, large_call, [&] { echo.Call(sent, reply); }).Value(),
           std::nullopt);
}

void BenchServiceRows(const std::string& server) {
  BareBus bare;
  bare.GetNumber();
  ClientSession client(L"WFX0001", TzTransferMode::JTAG);
  client.GetVersion();
  PrintRow("resident memory of the idle service", "a bare sd-bus server, difference",
           ResidentMiB(ProcessOf(server)) - ResidentMiB(bare.ServerId()),
           Target{Wanted::kAtMost, 8}, "MiB");

  const LargePacket packet;
  const std::vector<std::uint8_t> sent(kSentBytes);
  std::vector<std::uint8_t> reply(kSentBytes / 2);
  PrintRow("SendJtagPacket, to the bench and back", "a bare sd-bus method, same arrays",
           MeasureInTurns(
               kThroughRounds, [&] { client.SendJtagPacket(packet.Get()); },
               [&] { bare.Half(sent, reply); })
               .Value(),
           std::nullopt);
}

}  // namespace bench
