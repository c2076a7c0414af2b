// An object of another process, as a client holds it.
#pragma once

#include <comstatus.h>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/dbus/dbus_link.h"
#include "platform/linux/dbus/dbus_marshal.h"

namespace linux_host {

// Makes an object that answers for every interface of the class with one pointer and sends the
// calls over the connection, on which the server has created its object. *object gets the interface
// asked for; E_NOINTERFACE otherwise. The connection ends with the last reference.
//
// Any thread may call and release it; calls wait for each other. A call waits for its reply without
// limit, since it may stand behind a firmware download. Statuses of calls: the server's own failure
// statuses, S_OK for every success; 0x800706BA once the server is lost; 0x800706F4 for a null
// pointer to an output; E_OUTOFMEMORY for what is larger than a message may be. After a failure
// all outputs are zero or null.
HRESULT CreateProxy(DBusHandle connection, const ClassPlan& plan, const CallRoute& route,
                    REFIID iid, void** object);

// The status that an error of a call to the server comes to.
HRESULT StatusOfError(int error_number, const sd_bus_error& error);

}  // namespace linux_host
