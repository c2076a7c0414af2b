// Who keeps a probe's targets from others.
#pragma once

#include "client/output.h"
#include "client/service_client.h"

namespace client {

// Adds who holds what the service refused to the result of a call that was answered IN_USE, for
// people and as the output "holders". A service that does not tell leaves the result as it is, and
// so does a holder that has let go meanwhile.
void NameHolders(ServiceClient& service, Result& result);

}  // namespace client
