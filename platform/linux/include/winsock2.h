// Sockets under their names on Windows. What both hosts call and lay out alike (socket, bind,
// listen, recv, send, addresses, getaddrinfo, poll's record) is the system's own.
//
// Error codes are the system's own numbers under Windows' names.
#pragma once

#include <minwindef.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <cerrno>

using SOCKET = int;
inline constexpr SOCKET INVALID_SOCKET = -1;
inline constexpr int SOCKET_ERROR = -1;

#define SD_BOTH SHUT_RDWR
// An address that one socket listens on, and that connections which have ended do not block.
#define SO_EXCLUSIVEADDRUSE SO_REUSEADDR
#define WSAEWOULDBLOCK EWOULDBLOCK
#define WSAEINTR EINTR
#define WSAEADDRINUSE EADDRINUSE
#define WSAECONNREFUSED ECONNREFUSED
#define FIONBIO 0x8004667EL
#define SIO_TCP_SET_ACK_FREQUENCY 0x98000017U

struct WSADATA {};
using WSAPOLLFD = pollfd;

// From then on a connection that the other side has closed is an error of `send`, and no signal
// ends the process.
int WSAStartup(WORD version, WSADATA* data);
int WSACleanup();
int WSAGetLastError();
int WSAPoll(WSAPOLLFD* sockets, ULONG count, int timeout_ms);
int closesocket(SOCKET socket);

// FIONBIO only: whether calls on the socket wait.
int ioctlsocket(SOCKET socket, long command, u_long* argument);

// SIO_TCP_SET_ACK_FREQUENCY only, with 1: what has been received is acknowledged at once. It holds
// until the next call of `recv`.
int WSAIoctl(SOCKET socket, DWORD code, void* input, DWORD input_size, void* output,
             DWORD output_size, DWORD* returned, void* overlapped, void* completion);
