#include "bench/client_session.h"

#include <cstdio>
#include <cstdlib>

#include "api/identifiers.h"

namespace bench {
namespace {

void Check(HRESULT result, TzErrorCode error, const char* what) {
  if (result == S_OK && error == TzErrorCode::SUCCESS) return;
  std::fprintf(stderr, "bench: %s: status 0x%08X, error %d\n", what, static_cast<unsigned>(result),
               static_cast<int>(error));
  std::exit(1);
}

}  // namespace

ClientSession::ClientSession(const wchar_t* probe, TzTransferMode listing_mode) {
  CoInitialize(nullptr);
  TzErrorCode error = TzErrorCode::SUCCESS;
  Check(CoCreateInstance(api::kClassId, nullptr, CLSCTX_LOCAL_SERVER, api::kInterfaceIdV3,
                         reinterpret_cast<void**>(&server_)),
        error, "creating the object");
  const BSTR name = SysAllocString(probe);
  const auto owner = static_cast<LONG>(GetCurrentProcessId());
  HRESULT result = server_->SetMode(name, listing_mode, 0, owner, &error);
  Check(result, error, "setting the mode");
  SAFEARRAY* targets = nullptr;
  result = server_->EnumerateDevices(name, &targets, &error);
  Check(result, error, "listing the targets");
  SafeArrayDestroy(targets);
  result = server_->AcquireDevice(name, 0, owner, &handle_, &error);
  Check(result, error, "acquiring a target");
  if (listing_mode != TzTransferMode::JTAG) {
    result = server_->SetMode(name, TzTransferMode::JTAG, 0, owner, &error);
    Check(result, error, "setting JTAG mode");
  }
  SysFreeString(name);
}

ClientSession::~ClientSession() {
  TzErrorCode error = TzErrorCode::SUCCESS;
  server_->ReleaseDevice(handle_, &error);
  server_->Release();
  CoUninitialize();
}

void ClientSession::GetVersion() {
  LONG version = 0;
  Check(server_->GetVersion(&version), TzErrorCode::SUCCESS, "GetVersion");
}

void ClientSession::SendJtagPacket(SAFEARRAY* bytes) {
  TzErrorCode error = TzErrorCode::SUCCESS;
  SAFEARRAY* reply = nullptr;
  const HRESULT result = server_->SendJtagPacket(bytes, 1, handle_, &reply, &error);
  Check(result, error, "SendJtagPacket");
  LONG last_sent = 0;
  LONG last_received = 0;
  SafeArrayGetUBound(bytes, 1, &last_sent);
  SafeArrayGetUBound(reply, 1, &last_received);
  Check(last_received + 1 == (last_sent + 1) / 2 ? S_OK : E_FAIL, error, "length of the reply");
  SafeArrayDestroy(reply);
}

}  // namespace bench
