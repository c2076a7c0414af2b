#include "client/several_hosts.h"

#include <algorithm>
#include <syncstream>
#include <thread>

namespace client {

int RunOnHosts(const std::vector<std::string>& hosts, const Action& action,
               const Connector& connector, const Streams& streams, bool json) {
  std::vector<int> statuses(hosts.size());
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    threads.emplace_back([&, i] {
      std::osyncstream out(streams.out);
      std::osyncstream err(streams.err);
      // A result ends with a flush.
      out << std::emit_on_flush;
      err << std::emit_on_flush;
      // Several lines of progress would be in each other's way.
      Output output(out, err, streams.out_terminal, {false, streams.err_terminal.colours});
      output.UseJson(json);
      output.SetHost(hosts[i]);
      Context context(output, nullptr, connector, hosts[i]);
      statuses[i] = action(context);
    });
  }
  threads.clear();
  return std::ranges::max(statuses);
}

}  // namespace client
