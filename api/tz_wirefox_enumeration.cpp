// CTzWirefox: the list of targets behind a probe.
#include <array>
#include <vector>

#include "api/method_frame.h"
#include "api/target_scan.h"
#include "api/tz_wirefox_object.h"

namespace {

// The id as 8 upper-case hexadecimal digits, then whether a client holds the target.
std::array<wchar_t, 10> TargetText(const TargetRecord& target) {
  std::array<wchar_t, 10> text = {};
  for (std::size_t digit = 0; digit < 8; ++digit) {
    text[digit] = L"0123456789ABCDEF"[target.targetId >> (28 - 4 * digit) & 0xF];
  }
  text[8] = target.sessionMutex ? L'1' : L'0';
  return text;
}

}  // namespace

// Any client may ask, also while others own targets of the probe: when the scan finds what it found
// before, they notice nothing but the traffic on their target.
HRESULT CTzWirefox::EnumerateDevices(BSTR wirefox, SAFEARRAY** devices, TzErrorCode* error) {
  if (api::AnyMissing(devices, error)) return E_POINTER;
  return api::RunOnProbe("CTzWirefox::EnumerateDevices", wirefox, error, [&](ProbeEntry& entry) {
    // A scan that fails is not reported: the client sees the list as the scan left it.
    static_cast<void>(api::ScanTargets(entry));
    api::OwnedArray list = api::CreateStringArray(entry.targets.size());
    TzErrorCode outcome = TzErrorCode::UNKNOWN;
    if (api::StringArrayAccess access(list.get()); access) {
      for (std::size_t i = 0; i < entry.targets.size(); ++i) {
        access.Set(i, TargetText(entry.targets[i]).data());
      }
      outcome = TzErrorCode::SUCCESS;
    }
    *devices = list.release();
    return outcome;
  });
}
