// What all methods of the interface share, method by method: whom they refuse, in which order and
// with which outcome, that a refused call leaves its outputs and the probe alone, and what they
// write into the log.
#include <algorithm>

#include "tests/unit/api/method_table.h"

namespace {

// An array as a client may describe it; it has no storage of its own.
struct Described {
  SAFEARRAY array = {};
  SAFEARRAYBOUND second = {};  // of two dimensions

  Described(void* bytes, std::size_t count, LONG lower = 0) {
    array.cDims = 1;
    array.fFeatures = FADF_AUTO | FADF_STATIC | FADF_FIXEDSIZE;
    array.cbElements = 1;
    array.pvData = bytes;
    array.rgsabound[0].cElements = static_cast<ULONG>(count);
    array.rgsabound[0].lLbound = lower;
  }
};

class EveryMethod : public ApiTest {
 protected:
  EveryMethod() : probe_(AddProbe(L"P1")) {
    device_->reply.assign(64, 1);
    // A probe that is known and cannot be used.
    gone_.targets.push_back({.targetId = 1, .sessionMutex = CreateMutexW(nullptr, 0, nullptr)});
  }

  // A fresh session of this process on the first target, and the mode that the method takes.
  void Ready(const Method& method, Call& call) {
    SetTargets(probe_, {0x11, 0x22});
    probe_.mode = method.modes.empty() ? 1 : method.modes[0];
    call.name = name_;
    if (method.by != By::kSession) return;
    TargetRecord& target = probe_.targets[0];
    target.sessionMutex = CreateMutexW(nullptr, FALSE, nullptr);
    target.ownerPID = static_cast<std::uint32_t>(OwnPid());
    call.handle = SessionHandleOf(target.sessionMutex);
  }

  // Calls the method and checks its outcome and its log: an entry line, and one for a failure.
  void Run(const Method& method, Call& call, TzErrorCode expected) {
    device_->TakeCalls();
    TakeLog();
    EXPECT_EQ(method.call(*object_, call), S_OK);
    EXPECT_EQ(call.error, expected);
    EXPECT_FALSE(HoldsTableLock());
    Lines lines = TakeLog();
    if (expected == TzErrorCode::WFX_ERROR) {
      std::erase_if(lines, [](const std::string& line) { return line.starts_with("[CTzDevice"); });
    }
    Lines expected_lines = Failure(method.name, expected);
    if (expected == TzErrorCode::SUCCESS) expected_lines.pop_back();
    EXPECT_EQ(lines, expected_lines);
  }

  void RunRefused(const Method& method, Call& call, TzErrorCode expected) {
    const std::uint32_t mode = probe_.mode;
    Run(method, call, expected);
    EXPECT_TRUE(call.OutputsAreUnwritten());
    EXPECT_EQ(device_->TakeCalls(), "");
    EXPECT_EQ(probe_.mode, mode);
  }

  ProbeEntry& probe_;
  ProbeEntry& gone_ = family_.Add(nullptr, L"NoDevice");
  Text name_{L"P1"};
  Bytes bytes_ = {1, 2, 3};
  Described data_{bytes_.data(), bytes_.size()};
};

TEST_F(EveryMethod, RefusesAProbeOrSessionThatItDoesNotKnowBeforeAllElse) {
  SetTargets(probe_, {0x11, 0x22});
  ASSERT_EQ(Acquire(L"P1", 1), TzErrorCode::SUCCESS);
  const std::int64_t released = handle_;
  ASSERT_EQ(Release(released), TzErrorCode::SUCCESS);
  ASSERT_EQ(Acquire(L"P1"), TzErrorCode::SUCCESS);
  const std::pair<const wchar_t*, std::int64_t> kWrong[] = {
      {L"p1", 0},
      {L"P", released},
      {L"P11", handle_ | std::int64_t{1} << 32},
      {L"", -handle_},
      {L"NoDevice", SessionHandleOf(gone_.targets[0].sessionMutex)},
      {nullptr, 0}};
  for (const Method& method : Methods()) {
    if (method.by == By::kNothing) continue;
    for (const auto& [name, handle] : kWrong) {
      SCOPED_TRACE(testing::Message() << method.name << " " << name << " " << handle);
      const Text text(name);
      Call call;
      call.name = text;
      call.handle = handle;
      RunRefused(method, call, method.unknown);
    }
  }
}

TEST_F(EveryMethod, TakesItsRecordedModesAndRefusesTheOthersBeforeItsArray) {
  const std::uint32_t kModes[] = {0, 1, 2, 4, 8, 12, 16, 32, 33, 0x101, 0x104, 272, 0x120};
  for (const Method& method : Methods()) {
    if (method.by != By::kSession) continue;
    for (const std::uint32_t mode : kModes) {
      SCOPED_TRACE(testing::Message() << method.name << " in mode " << mode);
      Call call;
      Ready(method, call);
      probe_.mode = mode;
      if (method.modes.empty() || std::ranges::count(method.modes, mode) > 0) {
        call.data = &data_.array;
        Run(method, call, method.done);
      } else {
        RunRefused(method, call, TzErrorCode::INVALID_MODE);
      }
    }
  }
}

// The check covers the probe and not one target: who owns a target itself is blocked all the same.
TEST_F(EveryMethod, IsBlockedByAnOwnerOnlyWhereItAsksForOne) {
  const auto own = static_cast<std::uint32_t>(OwnPid());
  const std::pair<std::uint32_t, std::uint32_t> kOwners[] = {
      {0, 0}, {own, 0}, {0, kOther}, {own, kOther}};
  for (const Method& method : Methods()) {
    for (const auto& [first, second] : kOwners) {
      SCOPED_TRACE(testing::Message() << method.name << ", owners " << first << " " << second);
      Call call;
      Ready(method, call);
      probe_.targets[0].ownerPID = first;
      probe_.targets[1].ownerPID = second;
      const bool blocked = (method.blocked == Blocked::kByAnotherOwner && second != 0) ||
                           (method.blocked == Blocked::kByAnyOwner && (first != 0 || second != 0));
      if (blocked) {
        RunRefused(method, call, TzErrorCode::IN_USE);
      } else {
        call.data = &data_.array;
        Run(method, call, method.done);
        EXPECT_EQ(device_->TakeCalls(), method.calls);
      }
    }
  }
}

TEST_F(EveryMethod, EndsWithTheFirstOperationThatFails) {
  for (const Method& method : Methods()) {
    // A scan that fails shows in the list alone.
    if (method.name == std::string("EnumerateDevices")) continue;
    for (std::size_t i = 0, end = 0; (end = method.calls.find("; ", end)) != std::string::npos;
         ++i) {
      end += 2;
      const std::string calls = method.calls.substr(0, end);
      // In port_acquire_test.cpp: a query of the status follows.
      if (calls.ends_with("BeginPortAcquire(); ")) continue;
      SCOPED_TRACE(testing::Message() << method.name << ", " << calls);
      Call call;
      Ready(method, call);
      call.data = &data_.array;
      device_->failing_call = static_cast<int>(i);
      Run(method, call, TzErrorCode::WFX_ERROR);
      EXPECT_EQ(call.number, kUnwritten);
      EXPECT_EQ(call.result.IsSet(), method.result_size != nullptr);
      EXPECT_EQ(device_->TakeCalls(), calls);
    }
  }
}

// What a hostile client may hand over instead of bytes.
TEST_F(EveryMethod, RefusesWhatIsNoByteArrayBeforeItReachesTheProbe) {
  Described two_dimensions = data_;
  two_dimensions.array.cDims = 2;
  two_dimensions.second.cElements = 2;
  Described long_elements = data_;
  long_elements.array.cbElements = 4;
  Described without_storage(nullptr, 3);
  Described locked_for_good = data_;
  locked_for_good.array.cLocks = 0xFFFF;
  // The result, where there is one, has the size that the array states, if it states one in bytes.
  const struct {
    const char* what;
    SAFEARRAY* array;
    std::size_t size;
  } kCases[] = {{"none", nullptr, 0},
                {"two dimensions", &two_dimensions.array, 0},
                {"long elements", &long_elements.array, 0},
                {"without storage", &without_storage.array, 3},
                {"locked for good", &locked_for_good.array, 3}};
  for (const Method& method : Methods()) {
    if (!method.result_size) continue;
    for (const auto& test : kCases) {
      SCOPED_TRACE(testing::Message() << method.name << ", " << test.what);
      Call call;
      Ready(method, call);
      call.data = test.array;
      Run(method, call, TzErrorCode::UNKNOWN);
      EXPECT_EQ(device_->TakeCalls(), "");
      EXPECT_EQ(call.result.AsBytes(), method.always_result
                                           ? std::optional(Bytes(method.result_size(test.size)))
                                           : std::nullopt);
    }
  }
}

TEST_F(EveryMethod, TakesByteArraysOfAnySizeAndLowerBoundAndOnlyReadsThem) {
  for (const std::size_t size : {0u, 1u, 2u, 6u, 513u, 16u << 20}) {
    const Bytes given(size, 0x80);  // for SWD: writes
    Bytes bytes = given;
    Described array(bytes.data(), size, -7);
    for (const Method& method : Methods()) {
      if (!method.result_size) continue;
      SCOPED_TRACE(testing::Message() << method.name << ", size " << size);
      Call call;
      Ready(method, call);
      call.data = &array.array;
      Run(method, call, method.done);
      ASSERT_TRUE(call.result.IsSet());
      EXPECT_EQ(call.result.AsBytes()->size(), method.result_size(size));
      EXPECT_TRUE(bytes == given) << "the client's array was written";
      EXPECT_EQ(array.array.cLocks, 0u) << "the client's array is still being accessed";
    }
  }
}

TEST_F(ApiTest, MethodsWithoutAnOutcomeAlwaysSucceed) {
  LONG version = 0;
  EXPECT_EQ(object_->GetVersion(&version), S_OK);
  EXPECT_EQ(version, 33554944);
  // Discovery has not been started in this process, so there is no file to tell of.
  wchar_t unwritten[] = L"unwritten";
  BSTR path = unwritten;
  EXPECT_EQ(object_->GetDevicesChangedLocation(&path), S_OK);
  EXPECT_EQ(path, nullptr);
  EXPECT_EQ(TakeLog(),
            (Lines{"[CTzWirefox::GetVersion]", "[CTzWirefox::GetDevicesChangedLocation]"}));
}

}  // namespace
