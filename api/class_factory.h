// The class object of TzWirefox: what clients create their objects from.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <atomic>

#include "api/module_lock.h"

namespace api {

// Lives as long as it is published or referenced, and does not itself keep the server alive: the
// objects that it creates and the locks that clients take through it do.
class TzWirefoxFactory final : public IClassFactory {
 public:
  // One reference, the caller's. `module` outlives the factory. Null when memory is short.
  static TzWirefoxFactory* Create(ModuleLock& module);

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

 private:
  explicit TzWirefoxFactory(ModuleLock& module) : module_(module) {}
  virtual ~TzWirefoxFactory() = default;

  ModuleLock& module_;
  std::atomic<ULONG> references_{1};
};

}  // namespace api
