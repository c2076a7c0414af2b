// What tests of the client object share: a device table with probes of the test's own, an object,
// the log's lines, and automation values that clean up after themselves.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "api/module_lock.h"
#include "api/tz_wirefox_object.h"
#include "config/device_configure.h"
#include "support/log.h"
#include "tests/unit/api/recording_device.h"
#include "tests/unit/scratch_folder.h"

using Lines = std::vector<std::string>;
using Strings = std::vector<std::wstring>;
using unit::Bytes;
using unit::HexBytes;
using unit::HexText;

class CountingModule : public api::ModuleLock {
 public:
  LONG Lock() override { return ++count_; }
  LONG Unlock() override { return --count_; }
  LONG GetLockCount() const override { return count_; }

 private:
  LONG count_ = 0;
};

// A string argument of a call.
class Text {
 public:
  explicit Text(const wchar_t* text) : text_(SysAllocString(text)) {}
  ~Text() { SysFreeString(text_); }
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  operator BSTR() const { return text_; }  // NOLINT: stands for it in calls

 private:
  BSTR text_;
};

// A byte array argument of a call.
class Array {
 public:
  explicit Array(const Bytes& bytes);
  ~Array() { SafeArrayDestroy(array_); }
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  operator SAFEARRAY*() const { return array_; }  // NOLINT: stands for it in calls

 private:
  SAFEARRAY* array_;
};

// An array that a call hands out.
class Result {
 public:
  Result() = default;
  ~Result() { SafeArrayDestroy(array_); }
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;
  // The place for a call, empty again.
  SAFEARRAY** operator&() {  // NOLINT: stands for it in calls
    SafeArrayDestroy(std::exchange(array_, nullptr));
    return &array_;
  }

  bool IsSet() const { return array_ != nullptr; }
  // The contents; none when no array was made.
  std::optional<Bytes> AsBytes() const;
  std::optional<Strings> AsStrings() const;  // a null string shows as "(null)"

 private:
  SAFEARRAY* array_ = nullptr;
};

// A probe family whose entries a test makes itself. Its passes change nothing.
class TestFamily : public CTzDeviceConfigure {
 public:
  ProbeEntry& Add(std::unique_ptr<CTzDevice> device, const wchar_t* name);

  std::uint32_t GetDeviceState(std::uint16_t, std::uint16_t) override { return kNotHandled; }
  std::vector<ProbeEntry*> GetConfiguredDevices() override;
  bool ConfigureNewDevices(CTzUSBDevice&) override { return ++configuration_passes == 0; }
  bool UpdateState(CTzUSBDevice&) override { return ++removal_passes == 0; }

  int removal_passes = 0;
  int configuration_passes = 0;

 private:
  std::unique_ptr<CTzDevice> MakeDevice(std::uint8_t, bool) override { return nullptr; }
  std::uint32_t LoadFirmware(CTzDevice&) override { return 0; }
  bool PrepareConfigured(CTzDevice&) override { return true; }

  std::vector<std::unique_ptr<ProbeEntry>> entries_;
};

inline LONG OwnPid() { return static_cast<LONG>(GetCurrentProcessId()); }
// A client of a process of its own, which runs at a test's begin.
inline constexpr LONG kOther = 0x70000001;

// The processes that run, as the system lists them to this program; none: it cannot tell. Each test
// begins with its own, kOther and the idle process.
inline std::optional<std::vector<DWORD>> running_processes;

// One client object over an otherwise empty table.
class ApiTest : public testing::Test {
 protected:
  // Logs client calls and failures, or what else `log_level` says.
  explicit ApiTest(std::int32_t log_level = LOG_ERROR | LOG_API);
  ~ApiTest() override;

  // The log's lines since the last call.
  Lines TakeLog() { return log_.Take(); }
  // What a failing method leaves there.
  static Lines Failure(const std::string& method, TzErrorCode error);

  // A probe whose operations are recorded. `device_` is that of the last one added.
  ProbeEntry& AddProbe(const wchar_t* name);
  // Gives the probe free targets with these ids.
  static void SetTargets(ProbeEntry& probe, const std::vector<std::uint32_t>& ids);

  // The outcome of a call, which itself must go through.
  TzErrorCode Outcome(HRESULT called);

  // Calls one after another, and all that each did: "Identify(3); SUCCESS" is what it called on the
  // last probe added, and the outcome; then ", mode 4" where that is what is recorded for the first
  // probe now and was not before, and ": 01 02", the bytes of an array that it stored in result_.
  struct Told {
    std::function<HRESULT()> call;
    std::string told;
  };
  void ExpectTold(const std::vector<Told>& calls);

  // Calls of the object, with what they give.
  Strings Probes();
  Strings Targets(const wchar_t* probe);
  // A session on a target goes to handle_.
  TzErrorCode Acquire(const wchar_t* probe, LONG target = 0, LONG pid = OwnPid());
  TzErrorCode Release(std::int64_t handle) {
    return Outcome(object_->ReleaseDevice(handle, &error_));
  }

  TestFamily family_;
  CountingModule module_;
  CTzWirefox* object_ = nullptr;
  RecordingDevice* device_ = nullptr;
  std::int64_t handle_ = 0;
  Result result_;
  TzErrorCode error_ = TzErrorCode::SUCCESS;  // of the last call

 private:
  unit::LogFile log_;
};

std::string NameOf(TzErrorCode error);
// For messages of failed expectations.
inline void PrintTo(TzErrorCode error, std::ostream* out) { *out << NameOf(error); }
