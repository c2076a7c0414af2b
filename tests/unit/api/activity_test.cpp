// What other programs see of the device table, as the client reads it.
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <thread>

#include "base/activity_view.h"
#include "client/activity.h"
#include "config/activity_file.h"
#include "tests/unit/api/api_fixture.h"

namespace {

class Activity : public ApiTest {
 protected:
  Activity() { Start(); }
  ~Activity() override {
    const DeviceTableGuard lock;
    EndActivityFile();
  }

  void Start() const {
    const DeviceTableGuard lock;
    StartActivityFile(std::filesystem::path(folder_.Path("wfx.log")).wstring().c_str());
  }

  // "A mode 1, 11, 2 calls: 1BA01477 own | ..." with the voltage's code; a target's session is own,
  // other (kOther's), nobody's or none.
  std::string Shown() const {
    const auto table = client::ReadActivity(activity::View(path_.wstring().c_str()));
    if (!table) return "nothing";
    std::ostringstream text;
    for (const client::ProbeActivity& probe : *table) {
      if (&probe != &table->front()) text << " | ";
      text << probe.name << " mode " << probe.mode << ", ";
      text << (probe.voltage ? std::to_string(*probe.voltage) : "-") << ", " << probe.calls
           << " calls:";
      for (const client::TargetActivity& target : probe.targets) {
        const std::map<std::uint32_t, std::string> names = {
            {0, "nobody"}, {OwnPid(), "own"}, {kOther, "other"}};
        text << ' ' << std::hex << target.id << std::dec << ' '
             << (target.held ? names.at(target.pid) : "free");
      }
    }
    return text.str();
  }

  const unit::ScratchFolder folder_;
  const std::filesystem::path path_ = folder_.Path("wfx.log.activity");
};

TEST_F(Activity, ShowsEachCallOfAClientWhenItHasEndedAndWhatItChanged) {
  EXPECT_EQ(Shown(), "");
  SetTargets(AddProbe(L"A\x00E9"), {0x1BA01477, 0x0684617F});
  AddProbe(L"B");
  const Text a(L"A\x00E9");
  const struct {
    std::function<TzErrorCode()> call;
    const char* shown;
  } kSteps[] = {
      {[&] { return Probes(), TzErrorCode::SUCCESS; },
       "A\xC3\xA9 mode 0, -, 0 calls: 1ba01477 free 684617f free | B mode 0, -, 0 calls:"},
      {[&] { return Outcome(object_->SetMode(a, TzTransferMode::JTAG, 0, OwnPid(), &error_)); },
       "A\xC3\xA9 mode 1, -, 1 calls: 1ba01477 free 684617f free | B mode 0, -, 0 calls:"},
      {[&] { return Acquire(a, 0, 0), Acquire(a, 1, kOther); },
       "A\xC3\xA9 mode 1, -, 3 calls: 1ba01477 nobody 684617f other | B mode 0, -, 0 calls:"},
      {[&] {
         const auto voltage = TzVTargVoltage::VTARG_3_3;
         EXPECT_EQ(Outcome(object_->SetVTarg(a, voltage, 0, OwnPid(), &error_)),
                   TzErrorCode::IN_USE);
         return Outcome(object_->SetVTarg(Text(L"B"), voltage, 0, OwnPid(), &error_));
       },
       "A\xC3\xA9 mode 1, -, 4 calls: 1ba01477 nobody 684617f other | B mode 0, 11, 1 calls:"},
      {[&] {
         EXPECT_EQ(Acquire(L"C", 0), TzErrorCode::INVALID_DEVICE);
         EXPECT_EQ(Acquire(a, 2), TzErrorCode::INVALID_DEVICE);
         return Acquire(a, 0);
       },
       "A\xC3\xA9 mode 1, -, 5 calls: 1ba01477 own 684617f other | B mode 0, 11, 1 calls:"},
      {[&] {
         const std::int64_t session = handle_;
         Outcome(object_->SendJtagPacket(Array({0}), 1, session, &result_, &error_));
         return Release(session);
       },
       "A\xC3\xA9 mode 1, -, 7 calls: 1ba01477 free 684617f other | B mode 0, 11, 1 calls:"},
      // Another probe's call frees what the ended process held.
      {[&] {
         running_processes->pop_back();
         return Acquire(L"B", 0) == TzErrorCode::INVALID_DEVICE ? TzErrorCode::SUCCESS : error_;
       },
       "A\xC3\xA9 mode 1, -, 7 calls: 1ba01477 free 684617f free | B mode 0, 11, 1 calls:"}};
  for (const auto& [call, shown] : kSteps) {
    EXPECT_EQ(call(), TzErrorCode::SUCCESS) << shown;
    EXPECT_EQ(Shown(), shown);
  }
}

TEST_F(Activity, OfMoreThanTheFileHasRoomForTheFirstAreShown) {
  const std::wstring name(200, L'N');
  for (std::size_t i = 0; i <= activity::kMaxProbes; ++i) {
    SetTargets(AddProbe(name.c_str()), std::vector<std::uint32_t>(200, 7));
  }
  Probes();
  const auto table = client::ReadActivity(activity::View(path_.wstring().c_str()));
  ASSERT_EQ(table.value().size(), activity::kMaxProbes);
  EXPECT_EQ(table->back().name, std::string(activity::kNameUnits - 1, 'N'));
  EXPECT_EQ(table->back().targets.size(), activity::kMaxTargets);
  EXPECT_EQ(table->back().targets.back().id, 7U);
  Targets(name.c_str());  // a call on one that has a record, and on the one that has none
  ShowProbe(*family_.GetConfiguredDevices().back());
}

// The reader's thread meets changes at every point: all ids of a state are the same.
TEST_F(Activity, AReaderNeverSeesHalfOfAChange) {
  ProbeEntry& probe = AddProbe(L"A");
  SetTargets(probe, std::vector<std::uint32_t>(activity::kMaxTargets, 0));
  Probes();
  std::atomic<bool> read_enough = false;
  std::atomic<bool> met_a_change = false;
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  std::thread reader([&] {
    const activity::View view(path_.wstring().c_str());
    const std::uint8_t* const sequence = view.bytes() + activity::kSequenceAt;
    while (!met_a_change && std::chrono::steady_clock::now() < end) {
      met_a_change = activity::Load<std::uint32_t>(sequence) % 2 != 0;
    }
    for (int i = 0; i < 2000; ++i) {
      const auto table = client::ReadActivity(view);
      if (!table) continue;  // the writer was kept from running in the middle of a change
      for (const auto& target : table->at(0).targets) {
        EXPECT_EQ(target.id, table->at(0).targets[0].id);
      }
    }
    read_enough = true;
  });
  for (std::uint32_t id = 1; !read_enough; ++id) {
    const DeviceTableGuard lock;
    for (TargetRecord& target : probe.targets) target.targetId = id;
    ShowProbe(probe);
  }
  reader.join();
  EXPECT_TRUE(met_a_change);
}

#ifndef _WIN32
// What stands at the place when the file is to be made. On Windows it goes when nobody maps it any
// more, at the latest with its process.
TEST_F(Activity, TheFileIsMadeThroughNoLinkAndInNoRunningServicesPlace) {
  const auto end = [] {
    const DeviceTableGuard lock;
    EndActivityFile();
  };
  const activity::View view(path_.wstring().c_str());
  EXPECT_TRUE(view.IsAlive());
  end();
  EXPECT_FALSE(view.IsAlive());
  EXPECT_FALSE(std::filesystem::exists(path_));
  const auto file_of = [&](std::uint64_t start, std::uint32_t sequence = 0) {
    std::string bytes(activity::kFileBytes, '\0');
    auto* const place = reinterpret_cast<std::uint8_t*>(bytes.data());
    activity::Store(place + activity::kMagicAt, activity::kMagic);
    activity::Store(place + activity::kSequenceAt, sequence);
    activity::Store(place + activity::kVersionAt, activity::kVersion);
    activity::Store(place + activity::kServicePidAt, std::uint32_t{GetCurrentProcessId()});
    activity::Store(place + activity::kServiceStartAt, start);
    return bytes;
  };
  const std::uint64_t own_start = StartOfProcess(GetCurrentProcessId()).value();
  // Its writer was ended in the middle of a change.
  folder_.Write("wfx.log.activity", file_of(own_start, 1));
  EXPECT_EQ(Shown(), "nothing");
  const std::string running = file_of(own_start);
  folder_.Write("wfx.log.activity", running);
  AddProbe(L"A");
  Start();
  EXPECT_EQ(folder_.Read("wfx.log.activity"), running);
  // It is tried for again.
  folder_.Write("wfx.log.activity", file_of(own_start + 1));
  Probes();
  EXPECT_EQ(Shown(), "A mode 0, -, 0 calls:");
  end();

  folder_.Write("victim", running);
  std::error_code refused;  // not every system lets every account make links
  std::filesystem::create_symlink(folder_.Path("victim"), path_, refused);
  Start();
  EXPECT_EQ(Shown(), "A mode 0, -, 0 calls:");
  EXPECT_EQ(folder_.Read("victim"), running);
  end();
  std::filesystem::create_directory(path_);
  Start();
  EXPECT_EQ(Shown(), "nothing");
  EXPECT_EQ(Probes(), Strings{L"A"});
}
#endif

}  // namespace
