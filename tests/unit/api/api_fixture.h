// What tests of the client object share: a device table with probes of the test's own, an object,
// the log's lines, and automation values that clean up after themselves.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "api/module_lock.h"
#include "api/tz_wirefox_object.h"
#include "config/device_configure.h"
#include "tests/unit/api/recording_device.h"

using Calls = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

// The log, in a file of its own, while one lives.
class LogCapture {
 public:
  explicit LogCapture(std::int32_t level);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The lines since the last call, each from its source's bracket on.
  std::vector<std::string> Take();

 private:
  std::int32_t level_;
};

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
  SAFEARRAY** operator&() { return &array_; }  // NOLINT: the place for the call

  bool IsSet() const { return array_ != nullptr; }
  // The contents; none when no array was made.
  std::optional<Bytes> AsBytes() const;
  std::optional<std::vector<std::wstring>> AsStrings() const;  // a null string shows as "(null)"

 private:
  SAFEARRAY* array_ = nullptr;
};

// A probe family whose entries a test makes itself. Its passes change nothing.
class TestFamily : public CTzDeviceConfigure {
 public:
  ProbeEntry& Add(std::unique_ptr<CTzDevice> device, const wchar_t* name);

  std::uint32_t GetDeviceState(std::uint16_t, std::uint16_t) override { return kNotHandled; }
  std::vector<ProbeEntry*> GetConfiguredDevices() override;
  bool ConfigureNewDevices(CTzUSBDevice&) override;
  bool UpdateState(CTzUSBDevice&) override;

  int removal_passes = 0;
  int configuration_passes = 0;

 private:
  std::unique_ptr<CTzDevice> MakeDevice(std::uint8_t, bool) override { return nullptr; }
  std::uint32_t LoadFirmware(CTzDevice&) override { return 0; }
  bool PrepareConfigured(CTzDevice&) override { return true; }

  std::vector<std::unique_ptr<ProbeEntry>> entries_;
};

// One client object over an otherwise empty table. Logs client calls and failures.
class ApiTest : public testing::Test {
 protected:
  ApiTest();
  ~ApiTest() override;

  // A probe whose operations are recorded. `device_` is that of the last one added.
  ProbeEntry& AddProbe(const wchar_t* name);
  // Gives the probe free targets with these ids.
  static void SetTargets(ProbeEntry& probe, const std::vector<std::uint32_t>& ids);
  // A session of this process on a target of the probe.
  std::int64_t Acquire(ProbeEntry& probe, LONG target = 0);

  // What a failing method leaves in the log.
  static std::vector<std::string> Failure(const std::string& method, TzErrorCode error);

  TestFamily family_;
  CountingModule module_;
  CTzWirefox* object_ = nullptr;
  RecordingDevice* device_ = nullptr;
  LogCapture log_;
  TzErrorCode error_ = TzErrorCode::SUCCESS;  // of the last call
};

LONG OwnPid();

// For messages of failed expectations.
void PrintTo(TzErrorCode error, std::ostream* out);
