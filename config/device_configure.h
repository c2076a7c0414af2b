// The configuration object of a probe family: it owns the family's entries of the device table and
// keeps them in step with what is attached.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "config/device_table.h"
#include "usb/usb_device.h"

// What GetDeviceState says of a device with given ids.
enum DeviceState : std::uint32_t {
  kNotHandled = 0,
  kUnconfigured = 1,  // a fresh probe: its controller needs the firmware
  kConfigured = 2,    // runs its firmware
};

// Everything here runs with the device-table lock held. Devices come and go during a pass all the
// same: a pass that did not meet those that are present at its end, or could not take one, is run
// again a few times before it decides.
class CTzDeviceConfigure {
 public:
  CTzDeviceConfigure();
  CTzDeviceConfigure(const CTzDeviceConfigure&) = delete;
  CTzDeviceConfigure& operator=(const CTzDeviceConfigure&) = delete;

  virtual std::uint32_t GetDeviceState(std::uint16_t vendor_id, std::uint16_t product_id) = 0;
  virtual ~CTzDeviceConfigure();

  // The family's own entries, in order.
  virtual std::vector<ProbeEntry*> GetConfiguredDevices();

  // The configuration pass: brings every attached device that the family handles one step further,
  // a fresh probe by its firmware, a configured one into the table. True when an entry was added.
  // `enumerator` is the caller's and is left on the last device.
  virtual bool ConfigureNewDevices(CTzUSBDevice& enumerator) = 0;

  // The removal pass: keeps the entries whose device is attached and has not `left`, in the order
  // in which it is enumerated, and disposes of the others. True when there was one.
  virtual bool UpdateState(CTzUSBDevice& enumerator);

  // Takes the device into the table under its serial number.
  void AddConfiguredDevice(std::unique_ptr<CTzDevice> device);

  // Disposes of an entry that the caller has taken out of the list: ends its sessions and destroys
  // the device. The handles of the session mutexes stay open, so that their values stay reserved.
  void CleanupRemovedDevice(ProbeEntry entry);

  // The settings' firmware file for the device, as written there; empty when there is none.
  std::string GetKX7FileName(CTzDevice& device);

 protected:
  // Where the families differ in a configuration pass.
  struct Family {
    const char* pass_label;      // source of the pass's log lines
    const char* firmware_label;  // source of the line about a failed firmware download
  };

  // The state that the setting of the kind `state_setting` gives to devices with these ids.
  static std::uint32_t LookUpState(const char* state_setting, std::uint16_t vendor_id,
                                   std::uint16_t product_id);

  // The configuration pass, common to the families.
  bool RunConfigurationPass(CTzUSBDevice& enumerator, const Family& family);

 private:
  // The family's device object for the device at `index`.
  virtual std::unique_ptr<CTzDevice> MakeDevice(std::uint8_t index, bool set_timeouts) = 0;
  // Loads the controller's firmware; 0 or a result to log.
  virtual std::uint32_t LoadFirmware(CTzDevice& device) = 0;
  // Makes a configured probe ready for clients; false, with the reason logged, when it failed.
  virtual bool PrepareConfigured(CTzDevice& device) = 0;

  // What a configuration pass made of a device.
  enum class Outcome : std::uint8_t {
    kDone,     // nothing to do, or what was to do has been tried
    kAdded,    // done, and it has an entry
    kDropped,  // not reached: another device is at its index by now
  };

  Outcome ConfigureAt(const CTzUSBDevice& enumerator, std::uint8_t index, const Family& family);
  Outcome LoadFirmwareAt(const CTzUSBDevice& enumerator, std::uint8_t index, const Family& family);
  Outcome AddAt(const CTzUSBDevice& enumerator, std::uint8_t index, const Family& family);
  std::unique_ptr<CTzDevice> MakeDeviceAt(const CTzUSBDevice& enumerator, std::uint8_t index,
                                          bool set_timeouts, const Family& family);
  bool KeepOnly(const std::vector<std::string>& paths);
  std::vector<ProbeEntry>::iterator FindPath(std::string_view path);

  std::vector<ProbeEntry> entries_;
};
