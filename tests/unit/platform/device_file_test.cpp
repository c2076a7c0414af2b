#include <gtest/gtest.h>
#include <windows.h>

#include <setupapi.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <semaphore>
#include <thread>
#include <utility>

#include "platform/linux/dispatcher.h"
#include "platform/probe_driver/driver_requests.h"
#include "platform/test_host.h"
#include "tests/unit/platform/fake_bus.h"

namespace {

using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;
using Bytes = std::vector<std::uint8_t>;

constexpr GUID kDriverClass = {
    0xcb74512d, 0x0292, 0x428d, {0x8d, 0xf8, 0x5b, 0x2e, 0xa1, 0xd3, 0x4a, 0xe7}};
constexpr char kPath[] = "\\\\?\\usb#vid_0f0f&pid_1002#wfx0001#1";

class DeviceFile : public testing::Test {
 protected:
  void SetUp() override {
    test_host::UseBus(&bus_);
    probe_ = bus_.Plug(kPath);
    device_ = Open(kPath);
    ASSERT_NE(INVALID_HANDLE_VALUE, device_);
    event_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    overlapped_.hEvent = event_;
  }
  void TearDown() override {
    if (device_) CloseHandle(device_);
    CloseHandle(event_);
    test_host::UseBus(nullptr);
  }

  static HANDLE Open(const std::string& path) {
    const std::wstring wide(path.begin(), path.end());
    return CreateFileW(wide.c_str(), GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
  }

  // Starts a direct IN transfer of four bytes on 0x84; the error of the start, 0 when it succeeded
  // at once.
  DWORD StartRead() {
    SetLastError(0);
    DWORD returned = 0xEEEEEEEE;
    const BOOL done = DeviceIoControl(device_, probe_driver::kDirectTransfer, record_, 38, reply_,
                                      sizeof(reply_), &returned, &overlapped_);
    EXPECT_EQ(done, GetLastError() == 0);
    return GetLastError();
  }

  // The error of the result, 0 for success; `bytes` as returned.
  DWORD Result(DWORD& bytes, BOOL wait = FALSE) {
    bytes = 0xEEEEEEEE;
    return GetOverlappedResult(device_, &overlapped_, &bytes, wait) ? 0 : GetLastError();
  }

  bool EventIsSet() const { return WaitForSingleObject(event_, 0) == WAIT_OBJECT_0; }

  unit::FakeBus bus_;
  std::shared_ptr<unit::FakeProbe> probe_;
  HANDLE device_ = nullptr;
  HANDLE event_ = nullptr;
  OVERLAPPED overlapped_ = {};
  std::uint8_t record_[38] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x84};
  std::uint8_t reply_[4] = {};
};

TEST_F(DeviceFile, AnswerAtOnceCompletesTheCallWithItsBytesAndSetsTheEvent) {
  probe_->answer = [](UsbTransfer& transfer) {
    transfer.data[0] = 7;
    transfer.actual = 1;
    return true;
  };
  EXPECT_EQ(0U, StartRead());
  EXPECT_TRUE(EventIsSet());
  DWORD bytes;
  EXPECT_EQ(0U, Result(bytes));
  EXPECT_EQ(1U, bytes);
  EXPECT_EQ(7, reply_[0]);
}

TEST_F(DeviceFile, PendingRequestIsCollectedAfterItsEvent) {
  SetEvent(event_);  // left over from before: the start resets it
  EXPECT_EQ(static_cast<DWORD>(ERROR_IO_PENDING), StartRead());
  EXPECT_FALSE(EventIsSet());
  DWORD bytes;
  EXPECT_EQ(static_cast<DWORD>(ERROR_IO_INCOMPLETE), Result(bytes));
  std::thread other([&] { probe_->CompleteAll(UsbStatus::kOk, {1, 2, 3}); });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, INFINITE));
  EXPECT_EQ(0U, Result(bytes));
  EXPECT_EQ(3U, bytes);
  other.join();
}

TEST_F(DeviceFile, FailureOnTheWireIsReportedInOneWayHoweverFastItComes) {
  for (const bool at_once : {true, false}) {
    probe_->answer = [=](UsbTransfer& transfer) {
      transfer.status = UsbStatus::kStall;
      return at_once;
    };
    EXPECT_EQ(static_cast<DWORD>(ERROR_IO_PENDING), StartRead());
    if (!at_once) probe_->CompleteAll(UsbStatus::kStall);
    EXPECT_TRUE(EventIsSet());
    DWORD bytes;
    EXPECT_EQ(static_cast<DWORD>(ERROR_GEN_FAILURE), Result(bytes));
    EXPECT_EQ(0U, bytes);
    EXPECT_EQ(0xC0000004, probe_driver::LoadU32(record_ + 18));
  }
}

TEST_F(DeviceFile, CancelledRequestsEndWithErrorAndWithoutBytes) {
  const auto abort_pipe = [&] {
    std::uint8_t endpoint = 0x84;
    DWORD returned;
    OVERLAPPED overlapped = {};
    return DeviceIoControl(device_, probe_driver::kAbortPipe, &endpoint, 1, nullptr, 0, &returned,
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
    ASSERT_EQ(static_cast<DWORD>(ERROR_IO_PENDING), StartRead());
    EXPECT_TRUE(way());
    EXPECT_TRUE(EventIsSet());
    DWORD bytes;
    EXPECT_EQ(static_cast<DWORD>(ERROR_OPERATION_ABORTED), Result(bytes));
    EXPECT_EQ(0U, bytes);
  }
}

TEST_F(DeviceFile, CancellingConcernsTheOwnRequestsOrTheOneThatIsNamed) {
  ASSERT_EQ(static_cast<DWORD>(ERROR_IO_PENDING), StartRead());
  OVERLAPPED other = {};
  EXPECT_FALSE(CancelIoEx(device_, &other));
  EXPECT_EQ(static_cast<DWORD>(ERROR_NOT_FOUND), GetLastError());
  std::thread([&] { EXPECT_TRUE(CancelIo(device_)); }).join();
  EXPECT_FALSE(EventIsSet());
  EXPECT_EQ(1U, probe_->InFlight());
}

TEST_F(DeviceFile, DeviceThatLeavesEndsPendingAndRefusesNewRequests) {
  ASSERT_EQ(static_cast<DWORD>(ERROR_IO_PENDING), StartRead());
  std::thread other([&] { bus_.Unplug(kPath); });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, INFINITE));
  DWORD bytes;
  EXPECT_EQ(static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED), Result(bytes));
  EXPECT_EQ(0U, bytes);
  other.join();
  EXPECT_EQ(static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED), StartRead());
  EXPECT_EQ(INVALID_HANDLE_VALUE, Open(kPath));
  EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());
  EXPECT_TRUE(CloseHandle(std::exchange(device_, nullptr)));
}

TEST_F(DeviceFile, DeviceThatLeftUnnoticedRefusesTheFirstRequest) {
  bus_.Unplug(kPath);
  EXPECT_EQ(static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED), StartRead());
}

TEST_F(DeviceFile, CallsThatCannotBeServedAreRefusedBeforeTheyStart) {
  DWORD returned;
  EXPECT_FALSE(DeviceIoControl(device_, probe_driver::kDirectTransfer, record_, 38, reply_, 4,
                               &returned, nullptr));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), GetLastError());
  OVERLAPPED bad_event = {};
  bad_event.hEvent = device_;
  EXPECT_FALSE(DeviceIoControl(device_, probe_driver::kDirectTransfer, record_, 38, reply_, 4,
                               &returned, &bad_event));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_HANDLE), GetLastError());
  record_[13] = 0;
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), StartRead());
  EXPECT_TRUE(probe_->TakeLog().empty());
}

TEST_F(DeviceFile, TimeOutOfAControlRecordRunsOnTheTestClock) {
  test_host::TestClock clock;
  std::uint8_t record[38] = {0x40, 1};
  record[8] = 2;  // seconds
  record[30] = 38;
  DWORD returned;
  EXPECT_FALSE(DeviceIoControl(device_, probe_driver::kControlTransfer, record, 38, record, 38,
                               &returned, &overlapped_));
  ASSERT_EQ(static_cast<DWORD>(ERROR_IO_PENDING), GetLastError());
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event_, INFINITE));
  EXPECT_EQ(1'003'000U, clock.NowMs());
  DWORD bytes;
  EXPECT_EQ(static_cast<DWORD>(ERROR_OPERATION_ABORTED), Result(bytes));
}

TEST_F(DeviceFile, EnumerationListsThePresentDevicesSortedByPath) {
  bus_.Plug("\\\\?\\usb#b");
  bus_.Plug("\\\\?\\usb#a");
  const HDEVINFO set =
      SetupDiGetClassDevsW(&kDriverClass, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  bus_.Unplug("\\\\?\\usb#a");  // the set is as it was taken
  std::vector<std::string> paths;
  SP_DEVICE_INTERFACE_DATA data = {};
  data.cbSize = sizeof(data);
  for (DWORD i = 0; SetupDiEnumDeviceInterfaces(set, nullptr, &kDriverClass, i, &data); ++i) {
    DWORD size = 0;
    EXPECT_FALSE(SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, &size, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER), GetLastError());
    std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
    detail->cbSize = sizeof(*detail);
    EXPECT_FALSE(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, size - 1, nullptr, nullptr));
    EXPECT_TRUE(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, size, nullptr, nullptr));
    const std::wstring path = detail->DevicePath;
    paths.emplace_back(path.begin(), path.end());
  }
  EXPECT_EQ(static_cast<DWORD>(ERROR_NO_MORE_ITEMS), GetLastError());
  EXPECT_EQ((std::vector<std::string>{"\\\\?\\usb#a", "\\\\?\\usb#b", kPath}), paths);
  EXPECT_FALSE(CloseHandle(set));
  EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

// A set that comes after the result was collected would end the wait for the next request.
TEST_F(DeviceFile, ResultIsCollectedOnlyWhenTheEventIsSetAsWell) {
  CloseHandle(std::exchange(event_, CreateEventW(nullptr, TRUE, FALSE, nullptr)));
  overlapped_.hEvent = event_;
  ASSERT_EQ(static_cast<DWORD>(ERROR_IO_PENDING), StartRead());

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
    DWORD bytes;
    Result(bytes);
    set = EventIsSet();
    collected.release();
  });
  ready.acquire();
  std::thread completing;
  {
    const linux_host::DispatcherLock lock;
    completing = std::thread([&] { probe_->CompleteAll(UsbStatus::kOk, {1}); });
    const std::atomic_ref<ULONG_PTR> internal(overlapped_.Internal);
    while (internal == STATUS_PENDING) std::this_thread::yield();
    completed.release();
    // Time in which it could go wrong.
    static_cast<void>(collected.try_acquire_for(std::chrono::milliseconds(50)));
  }
  for (std::thread* thread : {&waiting, &collecting, &completing}) thread->join();
  EXPECT_TRUE(set);
}

// Requests complete on another thread while they are started, waited for, cancelled and collected,
// and the event serves one request after another.
TEST_F(DeviceFile, EventOfAnEarlierRequestNeverEndsALaterWait) {
  std::counting_semaphore<> submitted(0);
  probe_->answer = [&](auto&) {
    submitted.release();
    return false;
  };
  std::atomic<bool> stop = false;
  std::thread other([&] {
    while (submitted.acquire(), !stop) probe_->CompleteAll(UsbStatus::kOk, {1, 2, 3, 4});
  });
  for (int i = 0; i < 5000; ++i) {
    const DWORD start = StartRead();
    ASSERT_TRUE(start == 0 || start == ERROR_IO_PENDING);
    if (i % 3 == 0) CancelIo(device_);
    DWORD bytes;
    DWORD result;
    if (i % 2) {
      if (start != 0) WaitForSingleObject(event_, INFINITE);
      result = Result(bytes);
      ASSERT_NE(static_cast<DWORD>(ERROR_IO_INCOMPLETE), result);
    } else {
      while ((result = Result(bytes)) == ERROR_IO_INCOMPLETE) std::this_thread::yield();
    }
    ASSERT_TRUE(result == 0 ? bytes == 4 : result == ERROR_OPERATION_ABORTED);
  }
  stop = true;
  submitted.release();
  other.join();
}

}  // namespace
