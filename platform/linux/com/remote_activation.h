// How a client comes to a server on another machine: over that machine's system bus, to which ssh
// connects it. Keys, hosts and rights stay where ssh and that bus have them.
#pragma once

#include <comstatus.h>

#include "platform/linux/automation/interface_plan.h"
#include "platform/linux/dbus/dbus_link.h"
#include "platform/linux/dbus/dbus_marshal.h"

namespace linux_host {

// A connection to the bus of `host` ([USER@]HOST[:PORT]), and the way to the server there, which
// that bus starts when it does not run. Statuses as of CoCreateInstanceEx; E_INVALIDARG: that is no
// machine's name.
HRESULT ActivateRemotely(const wchar_t* host, const ClassPlan& plan, DBusHandle& connection,
                         CallRoute& route);

}  // namespace linux_host
