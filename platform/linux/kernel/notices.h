// What the process has told its user or the system's journal: message boxes, events and lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace linux_host {

// Fields of a journal entry beside its text, as NAME and value in UTF-8.
using JournalFields = std::vector<std::pair<std::string, std::string>>;

// Writes an entry to the journal, without one to syslog, without either to standard error.
// `priority` is one of <syslog.h>. Any thread.
void WriteJournal(int priority, std::string_view source, std::string_view text,
                  const JournalFields& fields = {});

// The same for what a user is to see at once: on standard error, and in the journal or syslog,
// where the messages of a service and of a server that a client has started are read later.
void ShowMessage(int priority, std::string_view title, std::string_view text);

// Keeps `notice` for TakeNotices. A process that nobody asks keeps the latest 256 only.
void AddNotice(std::wstring notice);

// The notices since the last call, in order, in the form that platform/linux/test_host.h describes.
std::vector<std::wstring> TakeNotices();

}  // namespace linux_host
