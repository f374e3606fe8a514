// The client of an agent: sends Python text to the PyServer of another process on this machine, or
// runs it in this very process where that is the agent. It uses no activity lock and, but for the
// agent in the same process, no Python. A client serves one thread at a time; it blocks without a
// time-out, and a caller that holds the GIL keeps it for that long, so that no other Python thread
// runs meanwhile. The process has to ignore SIGPIPE, as a Python interpreter does.
#pragma once

#include <kel/Ptr.h>
#include <kel/String.h>
#include <kelpy/core/KelPyExport.h>

namespace Kel {

class PyObjHandle;

// How a server can be reached.
struct PyServerContacts {
   int port = -1;     // on 127.0.0.1; -1 while unknown
   String socketName; // of a unix socket; empty while unknown
};

class KELPY_API PyClient : public PtrInterface {
 public:
   // Each connects before it returns, along the whole retry profile if need be, and then runs
   // `initCommand`, unless that is null or empty. `greetingByte` is the first byte that the server
   // gets. They throw what connect() throws.
   // The server of a unix socket; a name of more than 108 bytes is a fault that ends the process:
   PyClient( String socketName, char greetingByte, char const* initCommand );
   // The server of a TCP port on 127.0.0.1:
   PyClient( int port, char greetingByte, char const* initCommand );
   // The server of an agent, found through its agent file. A null `subsystemId` stands for the
   // environment variable SUBSYSTEMID; the text is not copied and has to outlive the client.
   PyClient( String agentGroup, String agentName, char greetingByte, char const* subsystemId,
      char const* initCommand );
   ~PyClient() override;

   // Runs a NUL-terminated Python text of at most 4089 bytes, as an expression or as statements.
   // The result goes into the caller's buffer of `resultSize` bytes, and its length is returned.
   //   A server elsewhere: at most resultSize - 1 bytes and a NUL. RpcException holds the text of
   //   an exception that the command raised. A lost connection, or a result that does not fit, is
   //   answered by one reconnect and a second run of the command, unless noReconnect_ is set; then
   //   RpcConnectionException. RangeException for a command that is too long; ErrnoException for
   //   any other failure of the socket.
   //   This process: the result is cut to the buffer and has no NUL; RpcException says only where
   //   the command failed. Takes the GIL for itself.
   int eval( char const* command, char* result, int resultSize );
   int execute( char const* command, char* result, int resultSize );
   // The same with a header of two bytes: "?1" evaluates, "?2" executes.
   int doCmd( char const* command, char const* header, char* result, int resultSize );
   int remoteCmd( char const* command, char const* header, char* result, int resultSize );
   int localCmd( char const* command, char const* header, char* result, int resultSize );
   // Reads one reply from the socket.
   int result( char* buffer, int size );

   // Connects anew, with the pauses of the retry profile, and runs initCommand_, after whose
   // success noReconnect_ is set. A descriptor that is open stays so, and so does the one of each
   // refused attempt. RpcConnectionException at the end of the profile; ErrnoException at once for
   // any failure but a refused connection; what execute() throws.
   void connect();
   // One attempt; returns the socket.
   int connect( PyServerContacts* contacts );
   // Reads an agent file, and removes a stale one. What it does not tell stays as it was.
   // ErrnoException for a file or directory that is there and cannot be opened.
   void serverContacts( String agentFile, PyServerContacts* contacts );
   // Makes the object that runs commands in this process. RpcException. GIL.
   void constructLocalServer();

   // The pauses between attempts in milliseconds, for all clients of the process. Zero ends the
   // list; it is not copied.
   static void retryProfileIs( unsigned int const* profile );

   String agentGroup_;
   String agentName_;
   char const* subsystemId_ = "";
   String serverName_;              // for messages
   Ptr< PyObjHandle > localServer_; // null until a command runs in this process
   int port_ = 0;                   // 0 for none
   String socketName_;              // empty for none
   String initCommand_;
   int sock_ = -1; // -1 for none
   bool connected_ = false;
   bool noReconnect_ = false;
   bool sameProcess_ = false; // stays set
   char greetingByte_;

   static unsigned int const* retryProfile_;
};

} // namespace Kel
