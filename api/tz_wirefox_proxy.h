// The object of the class TzWirefox as a client in another process holds it, on hosts whose
// component library has no proxies of its own.
#pragma once

#include "api/tz_wirefox.h"
#include "base/proxy.h"

namespace api {

class TzWirefoxProxy final : public interface_schema::Proxy<ITzWirefox_v3> {
 public:
  using Proxy::Proxy;

  HRESULT STDMETHODCALLTYPE GetVersion(LONG* versionNum) override {
    return Forward<&ITzWirefox_v1::GetVersion>(versionNum);
  }
  HRESULT STDMETHODCALLTYPE GetDevicesChangedLocation(BSTR* path) override {
    return Forward<&ITzWirefox_v1::GetDevicesChangedLocation>(path);
  }
  HRESULT STDMETHODCALLTYPE EnumerateWirefoxs(SAFEARRAY** wirefoxs, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::EnumerateWirefoxs>(wirefoxs, error);
  }
  HRESULT STDMETHODCALLTYPE EnumerateDevices(BSTR wirefox, SAFEARRAY** devices,
                                             TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::EnumerateDevices>(wirefox, devices, error);
  }
  HRESULT STDMETHODCALLTYPE SetLedState(BSTR wirefox, TzLed led, TzLedState state,
                                        TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::SetLedState>(wirefox, led, state, error);
  }
  HRESULT STDMETHODCALLTYPE VisualIdentify(BSTR wirefox, TzLedIdentifyState state,
                                           TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::VisualIdentify>(wirefox, state, error);
  }
  HRESULT STDMETHODCALLTYPE GetWirefoxStatus(BSTR wirefox, TzWFXStatus* status,
                                             TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::GetWirefoxStatus>(wirefox, status, error);
  }
  HRESULT STDMETHODCALLTYPE SetTimeOut(BSTR wirefox, TzWirefoxEndPoint endPoint, LONG timeout,
                                       LONG ownerPID, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::SetTimeOut>(wirefox, endPoint, timeout, ownerPID, error);
  }
  HRESULT STDMETHODCALLTYPE SetJtagClock(BSTR wirefox, TzJtagClock clock, LONG ownerPID,
                                         TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::SetJtagClock>(wirefox, clock, ownerPID, error);
  }
  HRESULT STDMETHODCALLTYPE SetMode(BSTR wirefox, TzTransferMode mode, CHAR port10N5, LONG ownerPID,
                                    TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::SetMode>(wirefox, mode, port10N5, ownerPID, error);
  }
  HRESULT STDMETHODCALLTYPE SetVTarg(BSTR wirefox, TzVTargVoltage voltage, CHAR supplyVoltage,
                                     LONG ownerPID, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::SetVTarg>(wirefox, voltage, supplyVoltage, ownerPID, error);
  }
  HRESULT STDMETHODCALLTYPE AcquireDevice(BSTR wirefox, LONG deviceNum, LONG ownerPID,
                                          std::int64_t* wfxHandle, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::AcquireDevice>(wirefox, deviceNum, ownerPID, wfxHandle, error);
  }
  HRESULT STDMETHODCALLTYPE ReleaseDevice(std::int64_t wfxHandle, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::ReleaseDevice>(wfxHandle, error);
  }
  HRESULT STDMETHODCALLTYPE SendJtagPacket(SAFEARRAY* tdi_tms, CHAR read, std::int64_t wfxHandle,
                                           SAFEARRAY** RESULT, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::SendJtagPacket>(tdi_tms, read, wfxHandle, RESULT, error);
  }
  HRESULT STDMETHODCALLTYPE SendSwdPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                          SAFEARRAY** RESULT, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::SendSwdPacket>(data, wfxHandle, RESULT, error);
  }
  HRESULT STDMETHODCALLTYPE RequestSwvPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                              TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::RequestSwvPackets>(wfxHandle, RESULT, error);
  }
  HRESULT STDMETHODCALLTYPE BulkTransfer(TzWirefoxEndPoint endPoint, SAFEARRAY* data,
                                         CHAR readNwrite, std::int64_t wfxHandle,
                                         SAFEARRAY** RESULT, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::BulkTransfer>(endPoint, data, readNwrite, wfxHandle, RESULT,
                                                 error);
  }
  HRESULT STDMETHODCALLTYPE PortAcquire(BSTR wirefox, TzProgrammingMode mode, LONG portAcquireKey,
                                        CHAR writeTestKey, LONG testModeAddress, LONG testModeKey,
                                        LONG retryLimit, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::PortAcquire>(wirefox, mode, portAcquireKey, writeTestKey,
                                                testModeAddress, testModeKey, retryLimit, error);
  }
  HRESULT STDMETHODCALLTYPE GetPortAcquireStatus(BSTR wirefox, CHAR abort, LONG* acquireStatus,
                                                 TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::GetPortAcquireStatus>(wirefox, abort, acquireStatus, error);
  }
  HRESULT STDMETHODCALLTYPE ToggleXres(BSTR wirefox, CHAR active, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::ToggleXres>(wirefox, active, error);
  }
  HRESULT STDMETHODCALLTYPE SetupSWV(BSTR wirefox, LONG targetFreq, CHAR manchesterNuart,
                                     SHORT commitTime, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::SetupSWV>(wirefox, targetFreq, manchesterNuart, commitTime,
                                             error);
  }
  HRESULT STDMETHODCALLTYPE RequestEtmPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                              TzErrorCode* error) override {
    return Forward<&ITzWirefox_v1::RequestEtmPackets>(wfxHandle, RESULT, error);
  }
  HRESULT STDMETHODCALLTYPE SendI2CPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                          LONG restartLocation, SAFEARRAY** RESULT,
                                          TzErrorCode* error) override {
    return Forward<&ITzWirefox_v2::SendI2CPacket>(data, wfxHandle, restartLocation, RESULT, error);
  }
  HRESULT STDMETHODCALLTYPE PortAcquire(TzProgrammingMode mode, LONG portAcquireKey,
                                        CHAR writeTestKey, LONG testModeAddress, LONG testModeKey,
                                        LONG retryLimit, std::int64_t wfxHandle,
                                        TzErrorCode* error) override {
    return Forward<interface_schema::OwnMember<ITzWirefox_v3>(&ITzWirefox_v3::PortAcquire)>(
        mode, portAcquireKey, writeTestKey, testModeAddress, testModeKey, retryLimit, wfxHandle,
        error);
  }
  HRESULT STDMETHODCALLTYPE GetHwRevID(BSTR wirefox, LONG* revID, TzErrorCode* error) override {
    return Forward<&ITzWirefox_v3::GetHwRevID>(wirefox, revID, error);
  }
};

}  // namespace api
