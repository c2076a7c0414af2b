#include <windows.h>

#include <winsock2.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

int WSAStartup(WORD, WSADATA*) {
  signal(SIGPIPE, SIG_IGN);
  return 0;
}

int WSACleanup() { return 0; }

int WSAGetLastError() { return errno; }

int WSAPoll(WSAPOLLFD* sockets, ULONG count, int timeout_ms) {
  return poll(sockets, count, timeout_ms);
}

int closesocket(SOCKET socket) { return close(socket); }

int ioctlsocket(SOCKET socket, long command, u_long* argument) {
  if (command != FIONBIO) {
    errno = EINVAL;
    return SOCKET_ERROR;
  }
  const int flags = fcntl(socket, F_GETFL);
  if (flags < 0) return SOCKET_ERROR;
  return fcntl(socket, F_SETFL, *argument != 0 ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

int WSAIoctl(SOCKET socket, DWORD code, void* input, DWORD input_size, void*, DWORD,
             DWORD* returned, void*, void*) {
  const int one = 1;
  if (code != SIO_TCP_SET_ACK_FREQUENCY || input_size != sizeof(int) ||
      *static_cast<const int*>(input) != one) {
    errno = EINVAL;
    return SOCKET_ERROR;
  }
  *returned = 0;
  return setsockopt(socket, IPPROTO_TCP, TCP_QUICKACK, &one, sizeof one);
}
