// The blocking calls of the agent client on stream sockets. A call that a signal interrupts is
// repeated; any other failure is a Kel::ErrnoException of the errno alone. No lock, no time-out.
#pragma once

#include <sys/socket.h>

#include <kel/Trace.h>
#include <kelpy/core/KelPyExport.h>

// Of all trace lines of the agent client: "PyClient".
KELPY_API Kel::TraceHandle& _defaultTraceHandle();

// One send; returns the bytes that were accepted, perhaps less than `length`.
KELPY_API int socketSend( int sock, void const* data, int length, int flags );
// Waits for the first bytes, or with `waitAll` for `length` of them. Returns the bytes stored: less
// than that, and even 0, at the end of the stream.
KELPY_API int socketRecv( int sock, char* buffer, int length, bool waitAll );
// Returns 0.
KELPY_API int socketConnect( int sock, sockaddr* address, unsigned int addressLength );
// The same for a sockaddr_in.
KELPY_API int socketConnect( int sock, sockaddr* address );
