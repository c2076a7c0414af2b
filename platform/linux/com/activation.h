// How a client comes to its server: by the socket of a running one, else by starting one.
#pragma once

#include <comstatus.h>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/dbus/dbus_link.h"

namespace linux_host {

// A connection to a server of the class on which the server has created its object.
//
// REGDB_E_CLASSNOTREG: CLSID\{id}\LocalServer32 is not registered. CO_E_SERVER_EXEC_FAILURE: the
// program registered there does not run, ends without serving, or does not serve within two
// minutes. Other failures are the server's own.
HRESULT ActivateClass(REFCLSID id, const ClassPlan& plan, DBusHandle& connection);

}  // namespace linux_host
