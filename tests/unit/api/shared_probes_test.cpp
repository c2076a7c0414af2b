// Eight clients at once on two probes, in whatever mode the others leave them: what each one is
// told, and that every reply is the one to its own packet.
#include <algorithm>
#include <array>
#include <memory>
#include <random>

#include "tests/unit/api/bench_fixture.h"
#include "tests/unit/random_seed.h"

namespace {

constexpr std::size_t kClients = 8;
constexpr int kCalls = 1000;

void AppendWord(Bytes& bytes, std::uint32_t word) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
}

class Client {
 public:
  // P1 has the chain and is in JTAG mode or idle, E1 has the SWD target: so a packet that is taken
  // has gone to the target that it is meant for, whoever has the session by now.
  Client(CTzWirefox& object, std::uint32_t index, std::uint32_t seed)
      : object_(object), index_(index), random_(seed) {}

  void Work() {
    // Modes change seldom, so that most calls find the one they need.
    static constexpr void (Client::*kSteps[])() = {
        &Client::Mode, &Client::List, &Client::Targets, &Client::Targets, &Client::Acquire,
        &Client::Jtag, &Client::Jtag, &Client::Swd,     &Client::Swd,     &Client::Release};
    for (int i = 0; i < kCalls; ++i) {
      on_board_ = Below(2) != 0;
      (this->*kSteps[Below(std::size(kSteps))])();
    }
  }

  int answered_jtag = 0;
  int answered_swd = 0;

 private:
  std::uint32_t Below(std::size_t end) { return static_cast<std::uint32_t>(random_() % end); }
  BSTR Name() const { return on_board_ ? board_ : probe_; }

  // Whether the call has succeeded; others may be in its way as `allowed` says.
  bool Succeeds(HRESULT result, std::initializer_list<TzErrorCode> allowed = {}) {
    EXPECT_EQ(result, S_OK);
    if (error_ == TzErrorCode::SUCCESS) return true;
    EXPECT_TRUE(std::ranges::count(allowed, error_) == 1)
        << "client " << index_ << ": " << testing::PrintToString(error_);
    return false;
  }

  void Mode() {
    TzTransferMode mode = on_board_ ? TzTransferMode::SWD : TzTransferMode::JTAG;
    if (Below(4) == 0) mode = TzTransferMode::IDLE;
    Succeeds(object_.SetMode(Name(), mode, 0, OwnPid(), &error_));
  }

  void List() {
    Result names;
    Succeeds(object_.EnumerateWirefoxs(&names, &error_));
    EXPECT_EQ(names.AsStrings(), (Strings{L"E1", L"P1"}));
  }

  void Targets() {
    Result devices;
    Succeeds(object_.EnumerateDevices(Name(), &devices, &error_));
    Strings strings = devices.AsStrings().value_or(Strings{L"no array"});
    for (std::wstring& target : strings) target.resize(8);  // without the mark of a session
    const Strings all = on_board_ ? Strings{L"2BA01477"} : Strings{L"1BA01477", L"0684617F"};
    EXPECT_TRUE(strings.empty() || strings == all) << testing::PrintToString(strings);
  }

  void Acquire() {
    std::int64_t handle = 0;
    if (Succeeds(object_.AcquireDevice(Name(), 0, OwnPid(), &handle, &error_),
                 {TzErrorCode::INVALID_DEVICE})) {
      handles_[on_board_] = handle;
    }
  }

  void Release() {
    Succeeds(object_.ReleaseDevice(handles_[on_board_], &error_), {TzErrorCode::NOT_ACQUIRED});
  }

  // Through reset into Shift-DR: whatever the packets before left, this one's reply is the chain's
  // ids and then its own TDI bits.
  void Jtag() {
    Bytes packet = {0xF0, 0xF0, 0xF0, 0x20};
    packet.resize(4 + 2 * (8 + Below(Below(8) == 0 ? 9000 : 200)));
    for (std::size_t i = 4; i < packet.size(); ++i) {
      packet[i] = static_cast<std::uint8_t>(random_() & 0x0F);
    }
    Result result;
    if (!Succeeds(object_.SendJtagPacket(Array(packet), 1, handles_[0], &result, &error_),
                  {TzErrorCode::NOT_ACQUIRED, TzErrorCode::INVALID_MODE})) {
      return;
    }
    const Bytes reply = result.AsBytes().value_or(Bytes{});
    ASSERT_EQ(reply.size(), packet.size() / 2);
    // The first two bytes come before the register is shifted.
    Bytes expected = {reply[0], reply[1], 0x7F, 0x61, 0x84, 0x06, 0x77, 0x14, 0xA0, 0x1B};
    for (std::size_t i = 4; expected.size() < reply.size(); i += 2) {
      expected.push_back(static_cast<std::uint8_t>(packet[i] | packet[i + 1] << 4));
    }
    expected.resize(reply.size());
    EXPECT_EQ(reply, expected);
    ++answered_jtag;
  }

  // Writes a word of memory that no other client touches, and reads it back.
  void Swd() {
    const auto value = static_cast<std::uint32_t>(random_());
    const std::pair<std::uint8_t, std::uint32_t> kWrites[] = {
        {0x81, 0x1E},                     // clear what is pending
        {0xB1, 0},                        // select the access port's first bank
        {0xA9, 0x50000000},               // power up
        {0xA3, 0x23000052},               // words
        {0x8B, 0x20000000 + 4 * index_},  // address
        {0xBB, value},                    // data
        {0x8B, 0x20000000 + 4 * index_},
    };
    Bytes packet = {0xA5};
    for (const auto& [header, word] : kWrites) {
      packet.push_back(header);
      AppendWord(packet, word);
    }
    packet.insert(packet.end(), {0x9F, 0xBD});  // data, and the buffer that has it
    Result result;
    if (!Succeeds(object_.SendSwdPacket(Array(packet), handles_[1], &result, &error_),
                  {TzErrorCode::NOT_ACQUIRED, TzErrorCode::INVALID_MODE})) {
      return;
    }
    const Bytes reply = result.AsBytes().value_or(Bytes{});
    ASSERT_EQ(reply.size(), 3 * 5 + 7);
    if ((reply[4] & 5) != 1) return;  // the line was not brought to serial wire since the mode
    Bytes expected = {0x77, 0x14, 0xA0, 0x2B};
    AppendWord(expected, value);
    Bytes received(reply.begin(), reply.begin() + 4);
    received.insert(received.end(), reply.end() - 5, reply.end() - 1);
    EXPECT_EQ(received, expected);
    ++answered_swd;
  }

  CTzWirefox& object_;
  const std::uint32_t index_;
  std::mt19937 random_;
  const Text probe_{L"P1"};
  const Text board_{L"E1"};
  std::array<std::int64_t, 2> handles_ = {1, 1};  // on P1, on E1
  bool on_board_ = false;
  TzErrorCode error_ = TzErrorCode::SUCCESS;
};

DWORD WINAPI RunClient(void* client) {
  static_cast<Client*>(client)->Work();
  return 0;
}

class SharedProbes : public BenchTest {
 protected:
  SharedProbes()
      : BenchTest(R"("jtag": {"taps": [{"idcode": "0x1BA01477"},
                                       {"idcode": "0x0684617F", "ir_length": 5}]})") {
    bench_->Rearrange("E1", R"({"swd": {"idcode": "0x2BA01477",
                                        "memory": {"address": "0x20000000", "size": 256}}})");
  }
};

TEST_F(SharedProbes, EightClientsLoseAndMixNothing) {
  const std::uint32_t seed = unit::RandomSeed();
  std::vector<std::unique_ptr<Client>> clients;
  std::array<HANDLE, kClients> threads{};
  for (std::uint32_t i = 0; i < kClients; ++i) {
    clients.push_back(std::make_unique<Client>(*object_, i, seed + i));
  }
  for (std::size_t i = 0; i < kClients; ++i) {
    threads[i] = CreateThread(nullptr, 0, RunClient, clients[i].get(), 0, nullptr);
  }
  for (const HANDLE thread : threads) {
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(thread);
  }
  int jtag = 0;
  int swd = 0;
  for (const auto& client : clients) {
    jtag += client->answered_jtag;
    swd += client->answered_swd;
  }
  EXPECT_GT(jtag, 50);
  EXPECT_GT(swd, 50);
}

}  // namespace
