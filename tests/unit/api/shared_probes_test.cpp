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

class Client {
 public:
  Client(CTzWirefox& object, std::uint32_t index, std::uint32_t seed)
      : object_(object), index_(index), random_(seed) {}

  void Work() {
    // Modes change seldom, so that most calls find the one they need.
    static constexpr void (Client::*kSteps[])() = {
        &Client::Mode, &Client::List, &Client::Targets, &Client::Targets, &Client::Acquire,
        &Client::Jtag, &Client::Jtag, &Client::Jtag,    &Client::Jtag,    &Client::Release};
    for (int i = 0; i < kCalls; ++i) {
      on_board_ = Below(2) != 0;
      (this->*kSteps[Below(std::size(kSteps))])();
    }
  }

  std::array<int, 2> answered = {};  // of P1, of E1

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
    const auto mode = Below(4) == 0 ? TzTransferMode::IDLE : TzTransferMode::JTAG;
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
    if (!Succeeds(object_.SendJtagPacket(Array(packet), 1, handles_[on_board_], &result, &error_),
                  {TzErrorCode::NOT_ACQUIRED, TzErrorCode::INVALID_MODE})) {
      return;
    }
    const Bytes reply = result.AsBytes().value_or(Bytes{});
    ASSERT_EQ(reply.size(), packet.size() / 2);
    // The first two bytes come before the register is shifted. A handle's value may be that of
    // another client's session by now, once the targets of its own have been replaced: the ids tell
    // which.
    const bool from_board = reply[2] == 0x77;
    Bytes expected = HexBytes(from_board ? "00 00 77 14 A0 2B" : "00 00 7F 61 84 06 77 14 A0 1B");
    std::copy_n(reply.begin(), 2, expected.begin());
    for (std::size_t i = 4; expected.size() < reply.size(); i += 2) {
      expected.push_back(static_cast<std::uint8_t>(packet[i] | packet[i + 1] << 4));
    }
    expected.resize(reply.size());
    EXPECT_EQ(reply, expected);
    ++answered[from_board];
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

class SharedProbes : public BenchTest {
 protected:
  SharedProbes() : BenchTest(kTwoTaps) {
    bench_->Rearrange("E1", R"({"jtag": {"taps": [{"idcode": "0x2BA01477"}]}})");
  }
};

TEST_F(SharedProbes, EightClientsLoseAndMixNothing) {
  const std::uint32_t seed = unit::RandomSeed();
  std::vector<std::unique_ptr<Client>> clients;
  std::array<HANDLE, kClients> threads{};
  for (std::uint32_t i = 0; i < kClients; ++i) {
    clients.push_back(std::make_unique<Client>(*object_, i, seed + i));
    const auto work = [](void* client) -> DWORD {
      static_cast<Client*>(client)->Work();
      return 0;
    };
    threads[i] = CreateThread(nullptr, 0, work, clients[i].get(), 0, nullptr);
  }
  for (const HANDLE thread : threads) {
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(thread);
  }
  for (const std::size_t probe : {0u, 1u}) {
    int answered = 0;
    for (const auto& client : clients) answered += client->answered[probe];
    EXPECT_GT(answered, 50);
  }
}

}  // namespace
