#include "client/no_probes.h"

#include <windows.h>

#include <objbase.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "api/identifiers.h"
#include "client/text.h"

namespace client {

namespace {

constexpr char kBusVariable[] = "WIREFOX_BUS";
constexpr std::string_view kBench = "sim:";
constexpr wchar_t kSettingsFile[] = L"wfxusb.ini";

std::wstring TextOf(const GUID& id) {
  std::array<wchar_t, 39> text{};
  StringFromGUID2(id, text.data(), static_cast<int>(text.size()));
  return text.data();
}

// A text of the classes root; empty when there is none.
std::wstring RegisteredText(const std::wstring& path, const wchar_t* name) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return {};
  std::array<wchar_t, 1024> text{};
  DWORD type = 0;
  DWORD size = sizeof(text) - sizeof(wchar_t);  // a zero stays behind the longest text
  const LONG read =
      RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size);
  RegCloseKey(key);
  return read == ERROR_SUCCESS && type == REG_SZ ? text.data() : std::wstring();
}

// The program of a command line, whose path may be in quotes.
std::filesystem::path ProgramOf(const std::wstring& command) {
  const bool quoted = command.starts_with(L'"');
  const std::wstring path = quoted ? command.substr(1, command.find(L'"', 1) - 1) : command;
  const std::string utf8 = Utf8FromWide(path);
  return std::u8string(utf8.begin(), utf8.end());
}

bool HasBench(std::string_view bus) { return bus.starts_with(kBench); }

std::string SocketOf(const ProbeSources& sources) { return sources.bus.substr(kBench.size()); }

}  // namespace

ProbeSources LookForProbes() {
  ProbeSources sources;
  const std::wstring command =
      RegisteredText(L"CLSID\\" + TextOf(api::kClassId) + L"\\LocalServer32", nullptr);
  if (!command.empty()) {
    const std::filesystem::path settings = ProgramOf(command).replace_filename(kSettingsFile);
    const std::u8string text = settings.u8string();
    sources.settings.assign(text.begin(), text.end());
    // What cannot be looked at may well be there.
    std::error_code unknown;
    const auto found = std::filesystem::status(settings, unknown).type();
    sources.settings_missing = found == std::filesystem::file_type::not_found;
  }
  sources.is_service = !RegisteredText(L"AppID\\" + TextOf(api::kAppId), L"LocalService").empty();
  if (const char* bus = std::getenv(kBusVariable)) sources.bus = Utf8FromArgument(bus);
  if (HasBench(sources.bus)) {
    sources.bench_listens = WaitNamedPipeW(WideFromUtf8(SocketOf(sources)).c_str(), 1) != FALSE;
  }
  return sources;
}

std::string NoProbesNote(const ProbeSources& sources) {
  const std::string settings = sources.settings.empty() ? "wfxusb.ini" : sources.settings;
  if (sources.settings_missing) {
    return "no probe: the service's settings file " + settings +
           " is missing; put it there, with the firmware and FPGA files that it names, and start "
           "the service again";
  }
  if (sources.is_service || sources.bus.empty()) {
    return "no probe is attached; plug one in (`wfx watch` tells when it is ready), and see that " +
           settings + " lists its USB ids" +
           (sources.bus.empty() ? ""
                                : "; the service was given its WIREFOX_BUS when it was registered, "
                                  "this shell's does not reach it");
  }
  if (!HasBench(sources.bus)) {
    return "no probe: WIREFOX_BUS is '" + sources.bus +
           "', which names no bus; set it to sim:SOCKET for a simulated bench, or unset it";
  }
  const std::string socket = SocketOf(sources);
  if (!sources.bench_listens) {
    return "no probe: no bench listens at " + socket +
           ", which WIREFOX_BUS names; start `wfxsim "
           "--socket " +
           socket + "`";
  }
  return "no probe of the bench at " + socket + " is ready; `wfxsim ctl --socket " + socket +
         " list` shows what is plugged in, " + settings +
         " must list its USB ids, and a service that other clients keep has the WIREFOX_BUS of "
         "the first";
}

}  // namespace client
