// What the doctor makes of an installation's files, of its bus, and of the service's log.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "client/doctor/checks.h"
#include "client/service_log.h"
#include "tests/unit/client/fake_wirefox.h"
#include "tests/unit/scratch_folder.h"

namespace client_test {
namespace {

namespace fs = std::filesystem;

// A line for each check: its weight, its name, and its text, in which the folder is "@".
std::string Shown(const client::Checks& checks, const unit::ScratchFolder& folder) {
  std::string shown;
  for (const client::Check& check : checks) {
    shown +=
        std::to_string(static_cast<int>(check.health)) + " " + check.name + " " + check.text + "\n";
  }
  const std::string here = client::Utf8FromPath(folder.directory());
  for (std::size_t at; (at = shown.find(here)) != shown.npos;) {
    shown = shown.substr(0, at) + "@" + shown.substr(at + here.size());
  }
  std::ranges::replace(shown, '\\', '/');
  return shown;
}

client::Installation InstalledIn(const unit::ScratchFolder& folder, const SettingsTable& values) {
  client::Installation installed;
  installed.program = client::Utf8FromPath(folder.directory() / "server");
  installed.settings = client::Utf8FromPath(folder.directory() / "wfxusb.ini");
  installed.values = values;
  return installed;
}

TEST(Doctor, JudgesTheInstallationsFiles) {
  const unit::ScratchFolder folder;
  const auto expect = [&](const client::Installation& installed, const std::string& expected) {
    client::Checks checks;
    CheckRegistration(installed, checks);
    CheckSettings(installed, checks);
    EXPECT_EQ(Shown(checks, folder), expected);
  };
  expect({},
         "3 registration the service is not registered on this computer; run `TzWirefoxService "
         "-RegServer` once (0x80040154)\n");
  client::Installation installed = InstalledIn(folder, {});
  const std::string plain = "0 registration a plain server, which its first client starts\n";
  const std::string gone =
      "3 program @/server is missing; run `TzWirefoxService -RegServer` again "
      "where it lies now\n";
  expect(installed, plain + gone +
                        "0 settings @/wfxusb.ini\n2 images @/wfxusb.ini calls no device "
                        "a probe; add their ids, as the file itself tells\n");
  folder.Write("server", "");
  const std::string program = "0 program @/server\n";
  installed.values.reset();
  installed.service = "S";
  expect(installed, "0 registration the service S of the system\n" + program +
                        "1 settings @/wfxusb.ini cannot be read by this account; the service's "
                        "account must be able to\n");
  installed.settings_missing = true;
  installed.service = "";
  expect(installed, plain + program +
                        "2 settings the service's settings file @/wfxusb.ini is missing; put it "
                        "there, with the firmware and FPGA files that it names, and start the "
                        "service again\n");
  const std::string begin = plain + program + "0 settings @/wfxusb.ini\n";
  expect(InstalledIn(folder, {{"0F0F_1001_WFXDEVICE", "UNCONFIGURED"},
                              {"0F0F_1001_KX7", "a.hex"},
                              {"0F0F_1002_WFXDEVICE", "CONFIGURED"},
                              {"0F0F_2001_EVKDEVICE", "UNCONFIGURED"},
                              {"0F0F_2002_EVKDEVICE", "CONFIGURED"},
                              {"0F0F_2003_EVKDEVICE", "configured"}}),
         begin +
             "2 images @/a.hex, the firmware that 0F0F_1001_KX7 names, is missing; put it there\n"
             "2 images the FPGA image of the probes 0F0F_1002 is not named; add 0F0F_1002_FPGA="
             "FILE to @/wfxusb.ini\n"
             "2 images the firmware of the probes 0F0F_2001 is not named; add 0F0F_2001_KX7=FILE "
             "to @/wfxusb.ini\n"
             "1 images 0F0F_2003_EVKDEVICE=configured means nothing; write CONFIGURED or "
             "UNCONFIGURED, in capitals\n");
  const std::string image = folder.Write("b.fpga", "");
  expect(InstalledIn(folder, {{"0F0F_1002_WFXDEVICE", "CONFIGURED"}, {"0F0F_1002_FPGA", "b.fpga"}}),
         begin + "0 images 1 file, as the settings name them\n");
  expect(InstalledIn(folder, {{"0F0F_1002_WFXDEVICE", "CONFIGURED"}, {"0F0F_1002_FPGA", image}}),
         begin + "0 images 1 file, as the settings name them\n");
}

TEST(Doctor, JudgesTheBus) {
  const unit::ScratchFolder folder;
  using Sources = client::ProbeSources;
  const client::AttachedDevices one = {{{"0F0F:1002", "/n", "A", false, false}}, true};
  const struct {
    Sources sources;
    client::AttachedDevices devices;
    const char* expected;
  } cases[] = {
      {{"", false, false, "x", false},
       {},
       "2 bus WIREFOX_BUS is 'x', which names no bus; set it to sim:SOCKET for a simulated bench, "
       "or unset it\n"},
      {{"", false, false, "sim:/b", false},
       {},
       "2 bus no bench listens at /b, which WIREFOX_BUS names; start `wfxsim --socket /b`\n"},
      {{"", false, false, "sim:/b", true}, {}, "0 bus the bench that WIREFOX_BUS names, sim:/b\n"},
      {{"", false, true, "sim:/b", false},
       {},
       "0 bus the one that the service was registered with; this shell's WIREFOX_BUS does not "
       "reach "
       "it\n"},
      {{},
       {{}, false},
       "0 bus this computer's USB\n1 bus there is no USB here (no /dev/bus/usb); give it to this "
       "container or guest machine\n"},
      {{},
       one,
       "0 bus this computer's USB\n2 bus /n, a probe by its ids 0F0F:1002, may not be opened by "
       "this account; a udev rule for its ids gives the right\n"},
      {{"", false, true, "", false},
       one,
       "0 bus this computer's USB, unless the service was registered with a WIREFOX_BUS\n0 bus /n, "
       "a probe by its ids 0F0F:1002\n"},
  };
  for (const auto& [sources, devices, expected] : cases) {
    client::Checks checks;
    CheckBus(sources, devices, checks);
    EXPECT_EQ(Shown(checks, folder), expected);
  }
}

TEST(Doctor, TellsWhatAttachedProbesWaitFor) {
  const unit::ScratchFolder folder;
  const auto attach = [&](const std::string& port, const std::string& vendor,
                          const std::string& product, const std::string& serial, bool has_node) {
    const fs::path device = folder.directory() / "sys/bus/usb/devices" / port;
    fs::create_directories(device);
    fs::create_directories(folder.directory() / "dev/bus/usb/001");
    const std::string here = "sys/bus/usb/devices/" + port + "/";
    const std::string number = port.substr(port.find('-') + 1);
    if (!vendor.empty()) folder.Write(here + "idVendor", vendor + "\n");
    folder.Write(here + "idProduct", product + "\n");
    folder.Write(here + "busnum", "1\n");
    folder.Write(here + "devnum", number + "\n");
    if (!serial.empty()) folder.Write(here + "serial", serial + "\n");
    if (has_node) folder.Write("dev/bus/usb/001/00" + number, "");
  };
  const SettingsTable settings = {{"0F0F_1001_KX7", "CONFIGURED"},
                                  {"0F0F_1001_WFXDEVICE", "UNCONFIGURED"},
                                  {"0F0F_1002_FPGA", "CONFIGURED"},
                                  {"0F0F_100A_WFXDEVICE", "CONFIGURED"}};
  EXPECT_FALSE(client::FindAttachedDevices(settings, folder.directory()).has_usb);
  attach("1-1", "0f0f", "1001", "", true);
  attach("1-2", "0f0f", "100a", "WFX0002", true);
  attach("1-3", "0f0f", "100a", "WFX0003", false);
  attach("1-4", "0f0f", "100a", "WFX0004", true);
  attach("1-5", "0f0f", "100a", "WFX0005", true);
  attach("1-6", "0f0f", "1002", "OTHER", true);
  attach("1-7", "", "1001", "INTERFACE", true);
  const auto devices = client::FindAttachedDevices(settings, folder.directory());
  EXPECT_TRUE(devices.has_usb);
  const std::string log =
      "Wed [CTzWfxConfigure::ProgramKX7]Error 2 programming device \\\\?\\usb#vid_0f0f&pid_1001#f"
      "#{g}, with file a.hex.\n"
      "Wed [CTzWfxConfigure::ProgramFPGA]Error 3 programming device \\\\?\\usb#vid_0f0f&pid_100a#"
      "wfx0005#6b07-6, with file wirefox.fpga.\n"
      "Wed [CTzWfxConfigure::UpdateState]Unable to open device \\\\?\\usb#vid_0f0f&pid_100a#wfx0002"
      "#{g}. Skipping\n"
      "Wed [CTzEvkConfigure::UpdateState]Unable to open device \\\\?\\usb#v#evk0001#{g}. "
      "Skipping\n";
  client::Checks checks;
  CheckMissingProbes(log, devices, {"WFX0002", "WFX0004"}, checks);
  const std::string again =
      "; see that the file is the right one, then unplug the probe and plug it in again\n";
  const std::string why = "; the service's log at LOGLEVEL=1, or its journal, tells why\n";
  EXPECT_EQ(
      Shown(checks, folder),
      "1 probes evk0001 is not ready: the service cannot open it, or it does not answer; "
      "unplug it, and see that nobody else uses it\n"
      "1 probes f is not ready: it waits for the firmware, file a.hex (error 2)" +
          again +
          "1 probes wfx0005 is not ready: it waits for the FPGA image, file wirefox.fpga (error "
          "3)" +
          again +
          "1 probes @/dev/bus/usb/001/001 (0F0F:1001) is not ready: it waits for its firmware" +
          why +
          "1 probes WFX0003 (0F0F:100A) is not ready: it may not be opened by this account, or "
          "waits for its FPGA image" +
          why);
}

TEST(Doctor, OfAnotherMachineAsksItsServiceAndNothingHere) {
  FakeService fake;
  fake.version = 0x01020304;
  fake.wirefoxs = {"P", "Q"};
  fake.status.ACTIVE_INTERFACE = 1;
  fake.outcomes["GetWirefoxStatus"] = {TzErrorCode::SUCCESS, TzErrorCode::INVALID_PARAM};
  const std::string begin = "> connect to lab\n> GetVersion\n> EnumerateWirefoxs\n";
  const std::string answers =
      "ok       service       answers\n"
      "ok       versions      wfx " WIREFOX_VERSION ", the service's interface 1.2.3.4\n";
  EXPECT_EQ(
      Transcript(fake, "-v -H lab doctor"),
      begin + "> GetWirefoxStatus P\n> GetWirefoxStatus Q\n" + answers +
          "ok       probes        P is ready, in mode JTAG\n"
          "warning  probes        Q does not answer: no probe of this name, or a value that is "
          "out of range; `wfx list` names the probes, letter case counts\n"
          "wfx: the service's log is on its own machine\n= 1\n");
  fake.wirefoxs = {"P"};
  fake.status = {1, 11, -2, 12, 1, 0x0102, 0x0304, 200, -32768, 3, 0, 1, 0, 1, 1, 1, 224};
  EXPECT_EQ(Transcript(fake, "-H lab doctor"),
            begin + "> GetWirefoxStatus P\n" + answers +
                "warning  probes        P is ready, in mode SWD_SWV, FPGA mailbox error, Vorn I2C "
                "error, status request answered 1, a fault of the target's supply; `wfx status P` "
                "tells more\n= 1\n");
  fake.wirefoxs = {};
  EXPECT_EQ(Transcript(fake, "-H lab doctor --json"),
            begin + R"({"error":"SUCCESS","state":"warning","checks":[)"
                    R"({"check":"service","state":"ok","text":"answers"},)"
                    R"({"check":"versions","state":"ok","text":"wfx )" WIREFOX_VERSION
                    R"(, the service's interface 1.2.3.4"},)"
                    R"({"check":"probes","state":"warning","text":"no probe is ready there"}]})"
                    "\n= 1\n");
  fake.call_failures["GetVersion"] = static_cast<HRESULT>(0x800706BA);
  EXPECT_TRUE(Transcript(fake, "-H lab doctor").ends_with("(0x800706ba)\n= 3\n"));
  fake.connection_failure = static_cast<HRESULT>(0x80070005);
  EXPECT_EQ(Transcript(fake, "-H lab doctor"),
            "> connect to lab\n"
            "problem  service       this account may not use the service (0x80070005)\n= 3\n");
}

TEST(ServiceLog, ShowsWhatWasWrittenMeanwhile) {
  const unit::ScratchFolder folder;
  const std::string path = folder.Write("log", "old\r\n");
  const auto settings = [&](const std::string& level, const std::string& file) {
    return InstalledIn(folder, {{"LOGLEVEL", level}, {"LOGFILE", file}});
  };
  const struct {
    const char* name;
    const char* level;
    bool runs;
    std::string after;
    const char* expected;
  } cases[] = {
      {"goes on", "1", true, "old\r\nnew\r\n", "new\n"},
      {"nothing", "1", true, "old\r\n", ""},
      {"emptied, shorter", "1", true, "n\r\n", "n\n"},
      {"emptied, longer", "1", true, "new\r\nmore\r\n", "new\nmore\n"},
      {"behind a gap", "1", true, {"old\r\n\0\0new\r\n", 12}, "new\n"},
      {"emptied by the start, and the same again", "1", false, "old\r\nnew\r\n", "old\nnew\n"},
      {"a start that empties nothing", "-1", false, "old\r\nnew\r\n", "new\n"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    folder.Write("log", "old\r\n");
    const client::ServiceLog log(settings(test.level, path), test.runs);
    folder.Write("log", test.after);
    EXPECT_EQ(log.Problem(), "");
    EXPECT_EQ(log.NewLines(), test.expected);
  }
  const auto problem = [&](const client::Installation& installed) {
    return client::ServiceLog(installed, true).Problem();
  };
  EXPECT_EQ(problem({}), "the service's log is not known: its settings cannot be read");
  EXPECT_EQ(problem(settings("0", path)),
            "the service writes no log: its settings have LOGLEVEL=0");
  EXPECT_EQ(problem(settings("1", "")), "the service writes no log: its settings have no LOGFILE");
  EXPECT_EQ(problem(settings("1", "no-such.log")),
            "the service's log no-such.log cannot be read here; it lies in the folder where the "
            "service was started");
  const std::string none = folder.Path("none");
  EXPECT_EQ(problem(settings("1", none)), "the service's log " + none + " cannot be read here");
}

}  // namespace
}  // namespace client_test
