// A published class: the socket that our clients connect to, their connections, and the message bus
// when there is one, all served inside the publishing thread's message loop.
#pragma once

#include <unknwn.h>

#include <memory>
#include <vector>

#include "platform/linux/com/component_paths.h"
#include "platform/linux/dbus/message_bus.h"
#include "platform/linux/dbus/private_connection.h"
#include "platform/linux/window/message_loop.h"

namespace linux_host {

class ClassServer final : public MessageLoopSource {
 public:
  // On the thread that is to serve. Where another process serves the class already, this one takes
  // over when that one ends. Null, with errno, when the socket cannot be set up.
  static std::unique_ptr<ClassServer> Publish(const ClassPlan& plan, IClassFactory* factory);

  // On the same thread. Ends every connection; the clients' objects are released.
  ~ClassServer() override;

  void AppendDescriptors(std::vector<pollfd>& descriptors) override;
  int WaitLimitMs() override;
  // Serves at most one message, so that what has been posted to the thread, a quit above all, is
  // looked at between two calls.
  bool Dispatch(const pollfd* ready, std::size_t count) override;

 private:
  ClassServer(const ClassPlan& plan, IClassFactory* factory);

  bool TryListen();
  void Accept();
  std::size_t LinkCount() const { return connections_.size() + (bus_ ? 1 : 0); }
  DBusLink& LinkAt(std::size_t index) const;
  bool ProcessAt(std::size_t index);
  void DropAt(std::size_t index);
  bool IsReady(std::size_t index, short events) const;

  ExportedClass exported_;
  IClassFactory* factory_;
  ComponentDirectory directory_ = OwnComponentDirectory();
  FileDescriptor serve_lock_;
  FileDescriptor listener_;
  std::uint64_t listen_deadline_ = UINT64_MAX;  // when to try again, for the lock or for accepting
  bool is_listener_polled_ = false;             // whether it is the first of the descriptors
  std::unique_ptr<MessageBus> bus_;
  std::vector<std::unique_ptr<PrivateConnection>> connections_;
  std::size_t next_link_ = 0;  // who is first asked, so that no client keeps the others waiting
};

}  // namespace linux_host
