#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <semaphore>
#include <thread>
#include <utility>

#include "platform/linux/kernel/dispatcher.h"
#include "platform/probe_driver/driver_requests.h"
#include "platform/test_host.h"
#include "tests/unit/platform/fake_probe.h"

namespace {

using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;
using unit::FakeProbe;

// Error and byte count of a result; ERROR_SUCCESS for none.
using Outcome = std::pair<DWORD, DWORD>;

class DeviceFile : public testing::Test {
 protected:
  void SetUp() override {
    test_host::UseBus(&probe_);
    device_ = Open();
    ASSERT_NE(INVALID_HANDLE_VALUE, device_);
    overlapped_.hEvent = event_;
  }
  void TearDown() override {
    if (device_) CloseHandle(device_);
    CloseHandle(event_);
    test_host::UseBus(nullptr);
  }

  static HANDLE Open() {
    const std::string path = FakeProbe::kPath;
    return CreateFileW(std::wstring(path.begin(), path.end()).c_str(), GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
  }

  // Starts a direct IN transfer of four bytes on 0x84; the error of the start, 0 when it succeeded
  // at once.
  DWORD StartRead(OVERLAPPED* overlapped) {
    SetLastError(0);
    DWORD returned = 0xEEEEEEEE;
    const BOOL done = DeviceIoControl(device_, probe_driver::kDirectTransfer, record_, 38, reply_,
                                      sizeof(reply_), &returned, overlapped);
    EXPECT_EQ(done, GetLastError() == 0);
    return GetLastError();
  }
  DWORD StartRead() { return StartRead(&overlapped_); }

  Outcome Result() {
    DWORD bytes = 0xEEEEEEEE;
    const BOOL succeeded = GetOverlappedResult(device_, &overlapped_, &bytes, FALSE);
    return {succeeded ? 0 : GetLastError(), bytes};
  }

  bool EventIsSet() const { return WaitForSingleObject(event_, 0) == WAIT_OBJECT_0; }

  FakeProbe probe_;
  HANDLE device_ = nullptr;
  HANDLE event_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  OVERLAPPED overlapped_ = {};
  std::uint8_t record_[38] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x84};
  std::uint8_t reply_[4] = {};
};

TEST_F(DeviceFile, PendingRequestIsCollectedAfterItsEvent) {
  SetEvent(event_);  // left over from before: the start resets it
  EXPECT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
  EXPECT_FALSE(EventIsSet());
  EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result().first);
  std::thread other([&] { probe_.CompleteAll(UsbStatus::kOk, {1, 2, 3}); });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, INFINITE));
  EXPECT_EQ(Outcome(0, 3), Result());
  other.join();
}

TEST_F(DeviceFile, FailureOnTheWireIsReportedInOneWayHoweverFastItComes) {
  for (const bool at_once : {true, false}) {
    probe_.answer = [=](UsbTransfer& transfer) {
      transfer.status = UsbStatus::kStall;
      return at_once;
    };
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
    if (!at_once) probe_.CompleteAll(UsbStatus::kStall);
    EXPECT_TRUE(EventIsSet());
    EXPECT_EQ(Outcome(ERROR_GEN_FAILURE, 0), Result());
    EXPECT_EQ(0xC0000004, probe_driver::LoadU32(record_ + 18));
  }
}

TEST_F(DeviceFile, CancelledRequestsEndWithErrorAndWithoutBytes) {
  const auto abort_pipe = [&] {
    std::uint8_t endpoint = 0x84;
    OVERLAPPED overlapped = {};
    return DeviceIoControl(device_, probe_driver::kAbortPipe, &endpoint, 1, nullptr, 0, nullptr,
                           &overlapped);
  };
  const std::function<BOOL()> ways[] = {
      [&] { return CancelIo(device_); },
      [&] { return CancelIoEx(device_, nullptr); },
      [&] { return CancelIoEx(device_, &overlapped_); },
      abort_pipe,
      [&] { return CloseHandle(std::exchange(device_, nullptr)); },
  };
  for (const auto& way : ways) {
    ASSERT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
    EXPECT_TRUE(way());
    EXPECT_TRUE(EventIsSet());
    EXPECT_EQ(Outcome(ERROR_OPERATION_ABORTED, 0), Result());
  }
}

TEST_F(DeviceFile, CancellingConcernsTheOwnRequestsOrTheOneThatIsNamed) {
  ASSERT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
  OVERLAPPED other = {};
  EXPECT_FALSE(CancelIoEx(device_, &other));
  EXPECT_EQ(DWORD{ERROR_NOT_FOUND}, GetLastError());
  std::thread([&] { EXPECT_TRUE(CancelIo(device_)); }).join();
  EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result().first);
}

TEST_F(DeviceFile, DeviceThatLeavesEndsPendingAndRefusesNewRequests) {
  ASSERT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
  std::thread other([&] { probe_.Leave(); });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, INFINITE));
  EXPECT_EQ(Outcome(ERROR_DEVICE_NOT_CONNECTED, 0), Result());
  other.join();
  EXPECT_EQ(DWORD{ERROR_DEVICE_NOT_CONNECTED}, StartRead());
  EXPECT_EQ(INVALID_HANDLE_VALUE, Open());
  EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
}

TEST_F(DeviceFile, CallsThatCannotBeServedAreRefusedBeforeTheyStart) {
  EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, StartRead(nullptr));
  OVERLAPPED bad_event = {};
  bad_event.hEvent = device_;
  EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, StartRead(&bad_event));
  record_[13] = 0;
  EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, StartRead());
  EXPECT_TRUE(probe_.TakeLog().empty());
}

TEST_F(DeviceFile, TimeOutOfAControlRecordRunsOnTheTestClock) {
  test_host::TestClock clock;
  std::uint8_t record[38] = {0x40, 1};
  record[8] = 2;  // seconds
  record[30] = 38;
  EXPECT_FALSE(DeviceIoControl(device_, probe_driver::kControlTransfer, record, 38, record, 38,
                               nullptr, &overlapped_));
  ASSERT_EQ(DWORD{ERROR_IO_PENDING}, GetLastError());
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, INFINITE));
  EXPECT_EQ(1'003'000U, clock.NowMs());
  EXPECT_EQ(DWORD{ERROR_OPERATION_ABORTED}, Result().first);
}

// A set that comes after the result was collected would end the wait for the next request.
TEST_F(DeviceFile, ResultIsCollectedOnlyWhenTheEventIsSetAsWell) {
  CloseHandle(std::exchange(event_, CreateEventW(nullptr, TRUE, FALSE, nullptr)));
  overlapped_.hEvent = event_;
  ASSERT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());

  // With a thread that waits, the event is set under the dispatcher's lock, which is held here
  // until the block shows the request completed and its result is asked for.
  std::atomic<linux_host::ThreadRecord*> record = nullptr;
  std::thread waiting([&] {
    record = &linux_host::CurrentThread();
    WaitForSingleObject(event_, INFINITE);
  });
  const auto waits = [&] {
    const linux_host::DispatcherLock lock;
    return record && record.load()->blocked;
  };
  while (!waits()) std::this_thread::yield();
  std::binary_semaphore ready(0), completed(0), collected(0);
  bool set = false;
  std::thread collecting([&] {
    linux_host::CurrentThread();  // makes its record, which takes the lock too
    ready.release();
    completed.acquire();
    Result();
    set = EventIsSet();
    collected.release();
  });
  ready.acquire();
  std::thread completing;
  {
    const linux_host::DispatcherLock lock;
    completing = std::thread([&] { probe_.CompleteAll(UsbStatus::kOk, {1}); });
    const std::atomic_ref<ULONG_PTR> internal(overlapped_.Internal);
    while (internal == STATUS_PENDING) std::this_thread::yield();
    completed.release();
    // Time in which it could go wrong.
    static_cast<void>(collected.try_acquire_for(std::chrono::milliseconds(50)));
  }
  for (std::thread* thread : {&waiting, &collecting, &completing}) thread->join();
  EXPECT_TRUE(set);
}

}  // namespace
