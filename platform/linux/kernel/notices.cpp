#include "platform/linux/kernel/notices.h"

#include <windows.h>

#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>

#include "platform/linux/kernel/text.h"

namespace linux_host {
namespace {

constexpr std::size_t kKeptNotices = 256;
constexpr char kJournalSocket[] = "/run/systemd/journal/socket";
constexpr char kSyslogSocket[] = "/dev/log";

// Never destroyed: other threads may still report while the process exits.
struct Notices {
  std::mutex mutex;
  std::deque<std::wstring> kept;
};

Notices& TheNotices() {
  static auto& notices = *new Notices;
  return notices;
}

bool SendToJournal(int priority, std::string_view source, std::string_view text,
                   const JournalFields& fields) {
  // The library drops entries without an error where no journal runs.
  if (access(kJournalSocket, W_OK) != 0) return false;
  std::vector<std::string> lines = {"MESSAGE=" + std::string(text),
                                    "PRIORITY=" + std::to_string(priority),
                                    "SYSLOG_IDENTIFIER=" + std::string(source)};
  for (const auto& [name, value] : fields) lines.push_back(name + "=" + value);
  std::vector<iovec> parts;
  for (auto& line : lines) parts.push_back({line.data(), line.size()});
  return sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) >= 0;
}

bool SendToSyslog(int priority, std::string_view source, std::string_view text) {
  if (access(kSyslogSocket, W_OK) != 0) return false;
  syslog(LOG_DAEMON | priority, "%.*s: %.*s", static_cast<int>(source.size()), source.data(),
         static_cast<int>(text.size()), text.data());
  return true;
}

bool SendToSystemLog(int priority, std::string_view source, std::string_view text,
                     const JournalFields& fields) {
  return SendToJournal(priority, source, text, fields) || SendToSyslog(priority, source, text);
}

void Print(std::string_view source, std::string_view text) {
  std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(source.size()), source.data(),
               static_cast<int>(text.size()), text.data());
}

}  // namespace

void WriteJournal(int priority, std::string_view source, std::string_view text,
                  const JournalFields& fields) {
  if (!SendToSystemLog(priority, source, text, fields)) Print(source, text);
}

void ShowMessage(int priority, std::string_view title, std::string_view text) {
  const bool is_logged = SendToSystemLog(priority, title, text, {});
  // systemd writes what its services print to the journal as well.
  if (!is_logged || !std::getenv("JOURNAL_STREAM")) Print(title, text);
}

void AddNotice(std::wstring notice) {
  Notices& notices = TheNotices();
  const std::lock_guard lock(notices.mutex);
  notices.kept.push_back(std::move(notice));
  if (notices.kept.size() > kKeptNotices) notices.kept.pop_front();
}

std::vector<std::wstring> TakeNotices() {
  Notices& notices = TheNotices();
  const std::lock_guard lock(notices.mutex);
  std::vector<std::wstring> taken(std::make_move_iterator(notices.kept.begin()),
                                  std::make_move_iterator(notices.kept.end()));
  notices.kept.clear();
  return taken;
}

}  // namespace linux_host

namespace {

// Event-log handles are numbers of their own, so that the kernel-object calls refuse them.
constexpr std::uintptr_t kFirstEventLog = 0x10000001;

struct EventLogs {
  std::mutex mutex;
  std::uintptr_t next = kFirstEventLog;
  std::map<std::uintptr_t, std::wstring> sources;
};

EventLogs& TheEventLogs() {
  static auto& logs = *new EventLogs;
  return logs;
}

std::optional<std::wstring> SourceOf(HANDLE log) {
  EventLogs& logs = TheEventLogs();
  const std::lock_guard lock(logs.mutex);
  const auto found = logs.sources.find(reinterpret_cast<std::uintptr_t>(log));
  if (found == logs.sources.end()) return std::nullopt;
  return found->second;
}

int PriorityOf(WORD type) {
  if (type == EVENTLOG_ERROR_TYPE) return LOG_ERR;
  return type == EVENTLOG_WARNING_TYPE ? LOG_WARNING : LOG_INFO;
}

}  // namespace

HANDLE RegisterEventSourceW(LPCWSTR server, LPCWSTR source) {
  if (server && *server) {
    SetLastError(RPC_S_SERVER_UNAVAILABLE);
    return nullptr;
  }
  if (!source || !*source) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  EventLogs& logs = TheEventLogs();
  const std::lock_guard lock(logs.mutex);
  logs.sources.emplace(logs.next, source);
  return reinterpret_cast<HANDLE>(logs.next++);
}

BOOL ReportEventW(HANDLE log, WORD type, WORD category, DWORD id, PSID, WORD string_count, DWORD,
                  LPCWSTR* strings, LPVOID) {
  const auto source = SourceOf(log);
  if (!source || (string_count > 0 && !strings)) {
    SetLastError(source ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE);
    return FALSE;
  }
  std::wstring text;
  for (WORD i = 0; i < string_count; ++i) {
    if (i > 0) text += L"\r\n";
    if (strings[i]) text += strings[i];
  }
  linux_host::AddNotice(L"event|" + *source + L"|" + std::to_wstring(type) + L"|" +
                        std::to_wstring(category) + L"|" + std::to_wstring(id) + L"|" + text);
  linux_host::WriteJournal(PriorityOf(type), linux_host::WideToUtf8(*source),
                           linux_host::WideToUtf8(text),
                           {{"WIREFOX_EVENT_TYPE", std::to_string(type)},
                            {"WIREFOX_EVENT_CATEGORY", std::to_string(category)},
                            {"WIREFOX_EVENT_ID", std::to_string(id)}});
  return TRUE;
}

BOOL DeregisterEventSource(HANDLE log) {
  EventLogs& logs = TheEventLogs();
  const std::lock_guard lock(logs.mutex);
  if (logs.sources.erase(reinterpret_cast<std::uintptr_t>(log)) == 1) return TRUE;
  SetLastError(ERROR_INVALID_HANDLE);
  return FALSE;
}

int MessageBoxW(HWND, LPCWSTR text, LPCWSTR title, UINT type) {
  constexpr UINT kIcons = 0xF0;
  if (type & ~kIcons) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  // Windows titles a box without a title so.
  const std::wstring shown_title = title ? title : L"Error";
  const std::wstring shown_text = text ? text : L"";
  linux_host::AddNotice(L"box|" + shown_title + L"|" + shown_text);
  std::string line = linux_host::WideToUtf8(shown_text);
  std::erase(line, '\r');
  linux_host::ShowMessage((type & kIcons) == MB_ICONERROR ? LOG_ERR : LOG_NOTICE,
                          linux_host::WideToUtf8(shown_title), line);
  return IDOK;
}
