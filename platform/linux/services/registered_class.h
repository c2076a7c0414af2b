// What the registry says about a class: how its server is started.
#pragma once

#include <windows.h>

#include <string>

namespace linux_host {

struct RegisteredClass {
  std::string command;  // of the plain server, in UTF-8; empty: not registered
  std::string service;  // the service that serves it instead; empty: none
};

RegisteredClass FindRegisteredClass(REFCLSID id);

}  // namespace linux_host
