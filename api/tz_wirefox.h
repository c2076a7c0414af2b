// What a C++ client includes: the enumerations, the status record and the three versions of the
// interface of the class TzWirefox, for early-bound calls on both hosts.
//
// Create an object with CoCreateInstance(api::kClassId, nullptr, CLSCTX_LOCAL_SERVER,
// api::kInterfaceIdV3, …). Every method returns S_OK when the call itself went through; the outcome
// of the operation is in `error`. All output pointers are required. The caller frees what it
// receives (SysFreeString, SafeArrayDestroy); an array that a method did not create is left null.
// Strings are null-terminated at their first zero, a null string counts as an empty one.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

#include <cstdint>

#include "api/identifiers.h"
#include "api/wirefox_types.h"

using wirefox::TzErrorCode;
using wirefox::TzJtagClock;
using wirefox::TzLed;
using wirefox::TzLedIdentifyState;
using wirefox::TzLedState;
using wirefox::TzProgrammingMode;
using wirefox::TzTransferMode;
using wirefox::TzVTargVoltage;
using wirefox::TzWFXStatus;
using wirefox::TzWirefoxEndPoint;

// The order of the methods is the order of the table of virtual operations, which clients compiled
// long ago rely on: IUnknown takes slots 0 to 2, IDispatch 3 to 6.
struct ITzWirefox_v1 : public IDispatch {
  // Slots 7 to 28.
  virtual HRESULT STDMETHODCALLTYPE GetVersion(LONG* versionNum) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDevicesChangedLocation(BSTR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnumerateWirefoxs(SAFEARRAY** wirefoxs, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnumerateDevices(BSTR wirefox, SAFEARRAY** devices,
                                                     TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetLedState(BSTR wirefox, TzLed led, TzLedState state,
                                                TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE VisualIdentify(BSTR wirefox, TzLedIdentifyState state,
                                                   TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetWirefoxStatus(BSTR wirefox, TzWFXStatus* status,
                                                     TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetTimeOut(BSTR wirefox, TzWirefoxEndPoint endPoint,
                                               LONG timeout, LONG ownerPID, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetJtagClock(BSTR wirefox, TzJtagClock clock, LONG ownerPID,
                                                 TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetMode(BSTR wirefox, TzTransferMode mode, CHAR port10N5,
                                            LONG ownerPID, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetVTarg(BSTR wirefox, TzVTargVoltage voltage,
                                             CHAR supplyVoltage, LONG ownerPID,
                                             TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE AcquireDevice(BSTR wirefox, LONG deviceNum, LONG ownerPID,
                                                  std::int64_t* wfxHandle, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReleaseDevice(std::int64_t wfxHandle, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SendJtagPacket(SAFEARRAY* tdi_tms, CHAR read,
                                                   std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                                   TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SendSwdPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                                  SAFEARRAY** RESULT, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE RequestSwvPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                                      TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE BulkTransfer(TzWirefoxEndPoint endPoint, SAFEARRAY* data,
                                                 CHAR readNwrite, std::int64_t wfxHandle,
                                                 SAFEARRAY** RESULT, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE PortAcquire(BSTR wirefox, TzProgrammingMode mode,
                                                LONG portAcquireKey, CHAR writeTestKey,
                                                LONG testModeAddress, LONG testModeKey,
                                                LONG retryLimit, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPortAcquireStatus(BSTR wirefox, CHAR abort,
                                                         LONG* acquireStatus,
                                                         TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE ToggleXres(BSTR wirefox, CHAR active, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetupSWV(BSTR wirefox, LONG targetFreq, CHAR manchesterNuart,
                                             SHORT commitTime, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE RequestEtmPackets(std::int64_t wfxHandle, SAFEARRAY** RESULT,
                                                      TzErrorCode* error) = 0;
};

struct ITzWirefox_v2 : public ITzWirefox_v1 {
  // Slot 29.
  virtual HRESULT STDMETHODCALLTYPE SendI2CPacket(SAFEARRAY* data, std::int64_t wfxHandle,
                                                  LONG restartLocation, SAFEARRAY** RESULT,
                                                  TzErrorCode* error) = 0;
};

struct ITzWirefox_v3 : public ITzWirefox_v2 {
  // Both methods of this name stay visible: by probe name, and by session handle.
  using ITzWirefox_v2::PortAcquire;

  // Slots 30 and 31.
  virtual HRESULT STDMETHODCALLTYPE PortAcquire(TzProgrammingMode mode, LONG portAcquireKey,
                                                CHAR writeTestKey, LONG testModeAddress,
                                                LONG testModeKey, LONG retryLimit,
                                                std::int64_t wfxHandle, TzErrorCode* error) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHwRevID(BSTR wirefox, LONG* revID, TzErrorCode* error) = 0;
};
