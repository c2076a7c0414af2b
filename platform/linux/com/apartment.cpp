#include "platform/linux/com/apartment.h"

#include <objbase.h>

#include <atomic>

namespace linux_host {
namespace {

struct ThreadState {
  unsigned count = 0;  // successful initialisations not yet undone
  DWORD model = 0;
};

thread_local ThreadState g_thread;
std::atomic<int> g_multithreaded_threads{0};  // and uses that belong to no thread
std::atomic<bool> g_is_security_settled{false};

}  // namespace

bool IsComponentLibraryUsable() { return g_thread.count > 0 || g_multithreaded_threads > 0; }

bool IsInSingleThreadedApartment() {
  return g_thread.count > 0 && g_thread.model == COINIT_APARTMENTTHREADED;
}

void SettleSecurity() { g_is_security_settled = true; }

}  // namespace linux_host

HRESULT CoInitialize(LPVOID reserved) { return CoInitializeEx(reserved, COINIT_APARTMENTTHREADED); }

HRESULT CoInitializeEx(LPVOID reserved, DWORD model) {
  using linux_host::g_thread;
  if (reserved || (model & ~DWORD{COINIT_APARTMENTTHREADED}) != 0) return E_INVALIDARG;
  if (g_thread.count > 0) {
    if (g_thread.model != model) return RPC_E_CHANGED_MODE;
    ++g_thread.count;
    return S_FALSE;
  }
  g_thread = {1, model};
  if (model == COINIT_MULTITHREADED) ++linux_host::g_multithreaded_threads;
  return S_OK;
}

void CoUninitialize() {
  using linux_host::g_thread;
  if (g_thread.count == 0 || --g_thread.count > 0) return;
  if (g_thread.model == COINIT_MULTITHREADED) --linux_host::g_multithreaded_threads;
}

HRESULT CoIncrementMTAUsage(CO_MTA_USAGE_COOKIE* cookie) {
  if (!cookie) return E_INVALIDARG;
  // One is like the other.
  *cookie = reinterpret_cast<CO_MTA_USAGE_COOKIE>(&linux_host::g_multithreaded_threads);
  ++linux_host::g_multithreaded_threads;
  return S_OK;
}

HRESULT CoDecrementMTAUsage(CO_MTA_USAGE_COOKIE cookie) {
  if (!cookie) return E_INVALIDARG;
  --linux_host::g_multithreaded_threads;
  return S_OK;
}

HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR descriptor, LONG service_count,
                             SOLE_AUTHENTICATION_SERVICE* services, void* reserved1,
                             DWORD authentication_level, DWORD impersonation_level,
                             void* authentication_list, DWORD capabilities, void* reserved3) {
  if (!linux_host::IsComponentLibraryUsable()) return CO_E_NOTINITIALIZED;
  if (reserved1 || reserved3 || descriptor || service_count > 0 || services ||
      authentication_list || authentication_level > RPC_C_AUTHN_LEVEL_NONE ||
      impersonation_level > RPC_C_IMP_LEVEL_IDENTIFY || capabilities != EOAC_NONE) {
    return E_INVALIDARG;
  }
  return linux_host::g_is_security_settled.exchange(true) ? RPC_E_TOO_LATE : S_OK;
}
