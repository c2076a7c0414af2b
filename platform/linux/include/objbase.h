// The component library: apartments, publication of classes and creation of objects.
//
// Between processes objects are reached through sockets of the message bus protocol; see
// platform/linux/class_server.h and platform/linux/activation.h.
#pragma once

#include <unknwn.h>
#include <wtypes.h>

enum COINIT { COINIT_MULTITHREADED = 0x0, COINIT_APARTMENTTHREADED = 0x2 };

enum REGCLS { REGCLS_SINGLEUSE = 0, REGCLS_MULTIPLEUSE = 1 };

#define RPC_C_AUTHN_LEVEL_DEFAULT 0
#define RPC_C_AUTHN_LEVEL_NONE 1
#define RPC_C_IMP_LEVEL_DEFAULT 0
#define RPC_C_IMP_LEVEL_IDENTIFY 2
#define EOAC_NONE 0

struct SOLE_AUTHENTICATION_SERVICE;

extern "C" {

// For the calling thread: S_FALSE when it is initialised already, RPC_E_CHANGED_MODE when that was
// in the other model. Each success is matched by one CoUninitialize.
HRESULT CoInitialize(LPVOID reserved);
HRESULT CoInitializeEx(LPVOID reserved, DWORD model);
void CoUninitialize();

// Keeps the multithreaded model in use, to which threads belong that have initialised nothing.
struct CO_MTA_USAGE_COOKIE__;
using CO_MTA_USAGE_COOKIE = CO_MTA_USAGE_COOKIE__*;
HRESULT CoIncrementMTAUsage(CO_MTA_USAGE_COOKIE* cookie);
HRESULT CoDecrementMTAUsage(CO_MTA_USAGE_COOKIE cookie);

// Once per process and before its first object or class: RPC_E_TOO_LATE afterwards. Who may connect
// is decided on this host by the permissions of the socket's folder, so only the settings that ask
// for no more are taken: no descriptor, no services, no capabilities, authentication level default
// or none. E_INVALIDARG otherwise.
HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR descriptor, LONG service_count,
                             SOLE_AUTHENTICATION_SERVICE* services, void* reserved1,
                             DWORD authentication_level, DWORD impersonation_level,
                             void* authentication_list, DWORD capabilities, void* reserved3);

// Publishes a class of this program's type library. `factory` is an IClassFactory; the registration
// holds a reference. Calls of clients are delivered by GetMessageW of the calling thread, which
// must be in a single-threaded apartment. Only local server and multiple use are modelled.
HRESULT CoRegisterClassObject(REFCLSID id, LPUNKNOWN factory, DWORD context, DWORD flags,
                              LPDWORD cookie);
// On the thread that published it. Ends all connections and releases their objects first.
HRESULT CoRevokeClassObject(DWORD cookie);

// Creates an object, in this process when the calling thread published the class, else through its
// server, which is started when it does not run. The reference may be used and released on any
// thread; calls on one object wait for each other.
HRESULT CoCreateInstance(REFCLSID id, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID* object);

struct COSERVERINFO {
  DWORD dwReserved1;
  LPWSTR pwszName;  // the machine; null or empty for this one
  struct COAUTHINFO* pAuthInfo;
  DWORD dwReserved2;
};

struct MULTI_QI {
  const IID* pIID;
  IUnknown* pItf;
  HRESULT hr;
};

// The same on another machine, whose system bus is reached through ssh: [USER@]HOST[:PORT], keys
// and hosts as ssh has them. There the process at that end of ssh stands for this one where a call
// names a process. One interface is asked for.
//
// 0x800706BA: ssh does not reach the machine, or has no bus there. REGDB_E_CLASSNOTREG: no service
// of the class is installed there. E_ACCESSDENIED: the account may not use it.
HRESULT CoCreateInstanceEx(REFCLSID id, LPUNKNOWN outer, DWORD context, COSERVERINFO* server,
                           DWORD count, MULTI_QI* results);

// Braces, upper case, 39 characters with the final zero: the count written, 0 when it does not fit.
int StringFromGUID2(REFGUID id, LPOLESTR text, int capacity);

}  // extern "C"
