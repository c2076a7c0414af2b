// CTzWirefox: the object that a client gets of the class TzWirefox.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

#include "api/module_lock.h"
#include "api/tz_wirefox.h"

// It holds no probe state: every method works on the device table, under its lock from first step
// to last, and sessions are keyed by process id, not by object. So any object may use any session,
// and the end of an object releases no target.
//
// Calls arrive on one thread, the one that published the class; the reference count relies on it.
class CTzWirefox : public ITzWirefox_v3 {
 public:
  // Creates an object with one reference and stores the interface `riid` of it. `outer` is null, or
  // the object that aggregates this one, and then `riid` is IUnknown: its owner gets the inner
  // IUnknown, the other interfaces refer to `outer`. `module` counts the object and outlives it.
  // E_OUTOFMEMORY, E_NOINTERFACE; `*object` is then null.
  static HRESULT Create(api::ModuleLock& module, IUnknown* outer, REFIID riid, void** object);

  CTzWirefox(const CTzWirefox&) = delete;
  CTzWirefox& operator=(const CTzWirefox&) = delete;

  // The order of all virtual operations is that of the interface, then the destructor and
  // VendorRequest.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // The four operations go by the registered type library.
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count, LCID locale,
                                          DISPID* ids) override;
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID reserved, LCID locale, WORD flags,
                                   DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                                   UINT* argument_error) override;

  HRESULT STDMETHODCALLTYPE GetVersion(LONG* versionNum) override;
  HRESULT STDMETHODCALLTYPE GetDevicesChangedLocation(BSTR* path) override;
  HRESULT STDMETHODCALLTYPE EnumerateWirefoxs(SAFEARRAY** wirefoxs, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE EnumerateDevices(BSTR wirefox, SAFEARRAY** devices,
                                             TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE SetLedState(BSTR wirefox, TzLed led, TzLedState state,
                                        TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE VisualIdentify(BSTR wirefox, TzLedIdentifyState state,
                                           TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE GetWirefoxStatus(BSTR wirefox, TzWFXStatus* status,
                                             TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE SetTimeOut(BSTR wirefox, TzWirefoxEndPoint endPoint, LONG timeout,
                                       LONG ownerPID, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE SetJtagClock(BSTR wirefox, TzJtagClock clock, LONG ownerPID,
                                         TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE SetMode(BSTR wirefox, TzTransferMode mode, CHAR port10N5, LONG ownerPID,
                                    TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE SetVTarg(BSTR wirefox, TzVTargVoltage voltage, CHAR supplyVoltage,
                                     LONG ownerPID, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE AcquireDevice(BSTR wirefox, LONG deviceNum, LONG ownerPID,
                                          std::int64_t* wfxHandle, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE ReleaseDevice(std::int64_t wfxHandle, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE SendJtagPacket(SAFEARRAY* tdi_tms, CHAR read, std::int64_t wfxHandle,
                                           SAFEARRAY** RESULT, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE SendSwdPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                          SAFEARRAY** RESULT, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE RequestSwvPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                              TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE BulkTransfer(TzWirefoxEndPoint endPoint, SAFEARRAY* data,
                                         CHAR readNwrite, std::int64_t wfxHandle,
                                         SAFEARRAY** RESULT, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE PortAcquire(BSTR wirefox, TzProgrammingMode mode, LONG portAcquireKey,
                                        CHAR writeTestKey, LONG testModeAddress, LONG testModeKey,
                                        LONG retryLimit, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE GetPortAcquireStatus(BSTR wirefox, CHAR abort, LONG* acquireStatus,
                                                 TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE ToggleXres(BSTR wirefox, CHAR active, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE SetupSWV(BSTR wirefox, LONG targetFreq, CHAR manchesterNuart,
                                     SHORT commitTime, TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE RequestEtmPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                              TzErrorCode* error) override;

  HRESULT STDMETHODCALLTYPE SendI2CPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                          LONG restartLocation, SAFEARRAY** RESULT,
                                          TzErrorCode* error) override;

  HRESULT STDMETHODCALLTYPE PortAcquire(TzProgrammingMode mode, LONG portAcquireKey,
                                        CHAR writeTestKey, LONG testModeAddress, LONG testModeKey,
                                        LONG retryLimit, std::int64_t wfxHandle,
                                        TzErrorCode* error) override;
  HRESULT STDMETHODCALLTYPE GetHwRevID(BSTR wirefox, LONG* revID, TzErrorCode* error) override;

 protected:
  explicit CTzWirefox(api::ModuleLock& module, IUnknown* outer);
  virtual ~CTzWirefox();

 public:
  // A raw vendor request, for maintenance work inside the server: no interface has it. `data` gives
  // the length in both directions, and `RESULT` always has that length: the bytes sent, or those
  // received over a copy of `data`. Low 8 bits of `request`, low 16 of `value` and `index`.
  virtual HRESULT STDMETHODCALLTYPE VendorRequest(BSTR wirefox, LONG request, LONG value,
                                                  LONG index, SAFEARRAY* data, CHAR write,
                                                  SAFEARRAY** RESULT, TzErrorCode* error);

 private:
  // The IUnknown by which the owner of an aggregated object holds it; it does not refer to `outer`.
  class InnerUnknown final : public IUnknown {
   public:
    explicit InnerUnknown(CTzWirefox& object) : object_(object) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

   private:
    CTzWirefox& object_;
  };

  HRESULT QueryOwnInterface(REFIID riid, void** object);
  ULONG ReleaseOwnReference();

  // Loads the type description on first use. It stays unloaded while the library is not registered,
  // so that a later call finds a library registered meanwhile.
  HRESULT LoadTypeInfo();

  api::ModuleLock& module_;
  InnerUnknown inner_;
  IUnknown* const outer_;  // not referenced: the aggregating object owns this one; or null
  ITypeInfo* type_info_ = nullptr;
  ULONG references_ = 1;
};
