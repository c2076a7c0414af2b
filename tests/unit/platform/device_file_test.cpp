#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <semaphore>
#include <thread>
#include <utility>

#include "platform/linux/kernel/dispatcher.h"
#include "platform/linux/test_host.h"
#include "platform/probe_driver/driver_requests.h"
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

TEST_F(DeviceFile, PendingRequestIsCollectedAfterItsEventHoweverItEnds) {
  for (const UsbStatus status : {UsbStatus::kOk, UsbStatus::kStall, UsbStatus::kDisconnected}) {
    SetEvent(event_);  // left over from before: the start resets it
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
    EXPECT_FALSE(EventIsSet());
    EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result().first);
    std::thread other([&] { probe_.CompleteAll(status, {1, 2, 3}); });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, INFINITE));
    EXPECT_EQ(status == UsbStatus::kOk      ? Outcome(0, 3)
              : status == UsbStatus::kStall ? Outcome(ERROR_GEN_FAILURE, 3)
                                            : Outcome(ERROR_DEVICE_NOT_CONNECTED, 0),
              Result());
    other.join();
  }
  EXPECT_EQ(DWORD{ERROR_DEVICE_NOT_CONNECTED}, StartRead()) << "once it has left";
}

TEST_F(DeviceFile, CancelledRequestsEndWithErrorAndWithoutBytes) {
  OVERLAPPED other = {};
  EXPECT_FALSE(CancelIoEx(device_, &other));
  EXPECT_EQ(DWORD{ERROR_NOT_FOUND}, GetLastError());
  const std::function<BOOL()> ways[] = {
      [&] { return CancelIoEx(device_, nullptr); },
      [&] { return !CancelIoEx(device_, &other) && CancelIoEx(device_, &overlapped_); },
      [&] { return CloseHandle(std::exchange(device_, nullptr)); },
  };
  for (const auto& way : ways) {
    ASSERT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
    EXPECT_TRUE(way());
    EXPECT_TRUE(EventIsSet());
    EXPECT_EQ(Outcome(ERROR_OPERATION_ABORTED, 0), Result());
  }
}

// Its client has to treat it as one that no driver gives back: its memory is written to.
TEST_F(DeviceFile, RequestThatTheHostKeepsStaysInFlight) {
  probe_.answer = [](UsbTransfer& transfer) {
    transfer.kept = true;
    return false;
  };
  ASSERT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
  EXPECT_TRUE(CloseHandle(std::exchange(device_, nullptr)));
  EXPECT_FALSE(EventIsSet());
  EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result().first);
}

TEST_F(DeviceFile, WhoWaitsForARequestDoesTheBusesWorkMeanwhile) {
  class Work : public WaitingWork {
   public:
    explicit Work(FakeProbe& probe) : probe_(probe) {}
    void WorkUntil(const std::function<bool()>& has_ended,
                   std::chrono::steady_clock::time_point until) override {
      EXPECT_FALSE(has_ended());
      EXPECT_GT(until, std::chrono::steady_clock::now());
      if (++calls == 2) probe_.CompleteAll(UsbStatus::kOk, {1});
      EXPECT_EQ(calls == 2, has_ended());
    }
    int calls = 0;

   private:
    FakeProbe& probe_;
  } work(probe_);
  CloseHandle(device_);
  probe_.work = &work;
  device_ = Open();
  ASSERT_EQ(DWORD{ERROR_IO_PENDING}, StartRead());
  EXPECT_FALSE(EventIsSet());
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event_, 1));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, INFINITE));
  EXPECT_EQ(Outcome(0, 1), Result());
  EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event_, 1));
  EXPECT_EQ(2, work.calls) << "none for an event of nothing in flight";
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
