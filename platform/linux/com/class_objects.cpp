// Publication of classes and creation of objects.

#include <objbase.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

#include "platform/linux/automation/program_resources.h"
#include "platform/linux/com/activation.h"
#include "platform/linux/com/apartment.h"
#include "platform/linux/com/class_server.h"
#include "platform/linux/com/dbus_proxy.h"
#include "platform/linux/com/remote_activation.h"

namespace linux_host {
namespace {

struct Publication {
  std::thread::id thread;
  CLSID id;
  IClassFactory* factory;  // the server holds the reference
  std::unique_ptr<ClassServer> server;
};

struct Publications {
  std::mutex mutex;
  std::map<DWORD, Publication> by_cookie;
  DWORD last_cookie = 0;
};

// Never destroyed: a class that is still published when the process exits must not be revoked then,
// by whatever thread exits.
Publications& AllPublications() {
  static auto& publications = *new Publications;
  return publications;
}

// The class of this program's type library, when it is the one asked for.
const ClassPlan* PlanFor(REFCLSID id) {
  const interface_schema::Library* library = GetProgramResources().type_library;
  if (!library || !library->component || !IsEqualCLSID(*library->component->id, id)) {
    return nullptr;
  }
  return ClassPlan::For(*library);
}

// The factory of a class that the calling thread has published itself: going through the socket, it
// would wait for its own message loop.
IClassFactory* OwnFactory(REFCLSID id) {
  Publications& all = AllPublications();
  std::lock_guard lock(all.mutex);
  for (const auto& [cookie, publication] : all.by_cookie) {
    if (IsEqualCLSID(publication.id, id) && publication.thread == std::this_thread::get_id()) {
      publication.factory->AddRef();
      return publication.factory;
    }
  }
  return nullptr;
}

HRESULT Publish(REFCLSID id, IClassFactory* factory, DWORD* cookie) {
  const ClassPlan* plan = PlanFor(id);
  if (!plan) return E_INVALIDARG;
  SettleSecurity();
  auto server = ClassServer::Publish(*plan, factory);
  if (!server) return errno == EACCES ? E_ACCESSDENIED : E_FAIL;
  Publications& all = AllPublications();
  std::lock_guard lock(all.mutex);
  *cookie = ++all.last_cookie;
  all.by_cookie.emplace(*cookie,
                        Publication{std::this_thread::get_id(), id, factory, std::move(server)});
  return S_OK;
}

HRESULT CreateRemotely(REFCLSID id, LPUNKNOWN outer, DWORD context, const wchar_t* host, REFIID iid,
                       LPVOID* object) {
  if (!IsComponentLibraryUsable()) return CO_E_NOTINITIALIZED;
  const ClassPlan* plan = PlanFor(id);
  if (!plan || (context & CLSCTX_REMOTE_SERVER) == 0) return REGDB_E_CLASSNOTREG;
  if (outer) return CLASS_E_NOAGGREGATION;
  SettleSecurity();
  DBusHandle connection;
  CallRoute route;
  const HRESULT status = ActivateRemotely(host, *plan, connection, route);
  return FAILED(status) ? status : CreateProxy(std::move(connection), *plan, route, iid, object);
}

}  // namespace
}  // namespace linux_host

HRESULT CoRegisterClassObject(REFCLSID id, LPUNKNOWN object, DWORD context, DWORD flags,
                              LPDWORD cookie) {
  if (!cookie || !object) return E_INVALIDARG;
  *cookie = 0;
  if (!linux_host::IsInSingleThreadedApartment()) return CO_E_NOTINITIALIZED;
  if (context != CLSCTX_LOCAL_SERVER || flags != REGCLS_MULTIPLEUSE) return E_INVALIDARG;
  void* factory = nullptr;
  HRESULT status = object->QueryInterface(IID_IClassFactory, &factory);
  if (FAILED(status)) return status;
  status = linux_host::Publish(id, static_cast<IClassFactory*>(factory), cookie);
  static_cast<IClassFactory*>(factory)->Release();
  return status;
}

HRESULT CoRevokeClassObject(DWORD cookie) {
  linux_host::Publications& all = linux_host::AllPublications();
  std::unique_ptr<linux_host::ClassServer> server;
  {
    std::lock_guard lock(all.mutex);
    const auto found = all.by_cookie.find(cookie);
    if (found == all.by_cookie.end()) return E_INVALIDARG;
    if (found->second.thread != std::this_thread::get_id()) return RPC_E_WRONG_THREAD;
    server = std::move(found->second.server);
    all.by_cookie.erase(found);
  }
  // Released outside the lock: the clients' objects go with it.
  server.reset();
  return S_OK;
}

HRESULT CoCreateInstance(REFCLSID id, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID* object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (!linux_host::IsComponentLibraryUsable()) return CO_E_NOTINITIALIZED;
  if ((context & CLSCTX_LOCAL_SERVER) == 0) return REGDB_E_CLASSNOTREG;
  if (IClassFactory* factory = linux_host::OwnFactory(id)) {
    const HRESULT status = factory->CreateInstance(outer, iid, object);
    factory->Release();
    return status;
  }
  if (outer) return CLASS_E_NOAGGREGATION;
  const linux_host::ClassPlan* plan = linux_host::PlanFor(id);
  if (!plan) return REGDB_E_CLASSNOTREG;
  linux_host::SettleSecurity();
  linux_host::DBusHandle connection;
  const HRESULT status = linux_host::ActivateClass(id, *plan, connection);
  if (FAILED(status)) return status;
  return linux_host::CreateProxy(std::move(connection), *plan, {}, iid, object);
}

HRESULT CoCreateInstanceEx(REFCLSID id, LPUNKNOWN outer, DWORD context, COSERVERINFO* server,
                           DWORD count, MULTI_QI* results) {
  if (count != 1 || !results || !results->pIID) return E_INVALIDARG;
  void* object = nullptr;
  if (!server || !server->pwszName || *server->pwszName == 0) {
    results->hr = CoCreateInstance(id, outer, context, *results->pIID, &object);
  } else {
    results->hr =
        linux_host::CreateRemotely(id, outer, context, server->pwszName, *results->pIID, &object);
  }
  results->pItf = static_cast<IUnknown*>(object);
  return results->hr;
}
