// A server that does to its clients what a test tells it to, on a thread of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// The server's end of one connection. A failure, or a client that keeps silent, fails the test.
class Peer {
 public:
   explicit Peer( int descriptor );
   Peer( Peer const& ) = delete;
   Peer& operator=( Peer const& ) = delete;
   ~Peer() { close(); }

   // That many bytes, or fewer at the end of the stream.
   std::string read( std::size_t bytes );
   // The two bytes of the greeting; answered.
   std::string greet( std::string_view answer = "1234" );
   // A request frame, all of it.
   std::string request();
   void send( std::string_view bytes );
   void sendByteByByte( std::string_view bytes );
   // Waits until the client, which is the main thread, has read all that was sent and waits for
   // more; for unix sockets.
   void waitUntilRead() const;
   // Whether the client ends the stream here.
   bool atEnd() { return read( 1 ).empty(); }
   void close();
   // Closes so that the client's next call fails with ECONNRESET.
   void reset();

 private:
   int descriptor_;
};

// A reply frame: the length that it announces, then what follows.
std::string frame( std::uint32_t length, std::string_view rest );
// A reply with its right length.
std::string reply( std::string_view status, std::string_view payload );

// A unix socket or, for an empty path, a port of 127.0.0.1 that nobody listens on, so that
// connections are refused.
class DeafServer {
 public:
   explicit DeafServer( std::string const& path );
   DeafServer( DeafServer const& ) = delete;
   DeafServer& operator=( DeafServer const& ) = delete;
   ~DeafServer();

   int port() const { return port_; }

 private:
   int port_ = 0;
   int const socket_;
};

class ScriptedServer {
 public:
   using Session = std::function< void( Peer& ) >;

   // Listens on a unix socket, or for an empty path on a free port of 127.0.0.1. The connections
   // get one session each; once the last one has begun, any other is refused.
   ScriptedServer( std::string const& path, std::vector< Session > sessions );
   ScriptedServer( ScriptedServer const& ) = delete;
   ScriptedServer& operator=( ScriptedServer const& ) = delete;
   // Waits for the sessions of all who have connected; one that never begins fails the test.
   ~ScriptedServer();

   int port() const { return port_; }

 private:
   void serve( std::vector< Session > const& sessions );
   // The next connection, or -1 if there is none and this ends.
   int accepted() const;

   int port_ = 0;
   int const listener_;
   int const ending_; // an eventfd
   std::thread thread_;
};
