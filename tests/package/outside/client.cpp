// A program that talks to agents and has no Python code of its own: it serves one client, itself.
#include <kelpy/PyClient.h>

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <kel/Exception.h>

namespace {

constexpr char greetingReply[] = { 'h', 'e', 'y', '!' };
constexpr char reply[] = { 0, 0, 0, 3, 'O', 'K', '2' };

void serve( int listener ) {
   int const client = accept( listener, nullptr, nullptr );
   char request[11];
   recv( client, request, 2, MSG_WAITALL );
   send( client, greetingReply, sizeof greetingReply, 0 );
   recv( client, request, 9, MSG_WAITALL );
   send( client, reply, sizeof reply, 0 );
   close( client );
}

int listenOn( std::string const& path ) {
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   path.copy( address.sun_path, sizeof address.sun_path - 1 );
   int const listener = socket( AF_UNIX, SOCK_STREAM, 0 );
   bind( listener, reinterpret_cast< sockaddr* >( &address ), sizeof address );
   listen( listener, 1 );
   return listener;
}

bool evaluates( std::string const& path ) {
   std::thread server( serve, listenOn( path ) );
   Kel::Ptr< Kel::PyClient > client( new Kel::PyClient( path, 'x', nullptr ) );
   char result[16];
   bool const good = client->eval( "1+1", result, sizeof result ) == 1 &&
                     std::strcmp( result, "2" ) == 0 && client->connected_ &&
                     !client->localServer_ && client->localServer_ == nullptr;
   server.join();
   return good;
}

bool failsWithoutAnAgent() {
   static unsigned int const once[] = { 0 };
   Kel::PyClient::retryProfileIs( once );
   try {
      Kel::PyClient( "no", "agent", 'x', "", nullptr );
   } catch( Kel::RpcConnectionException const& failure ) {
      return failure.message() == "Unable to connect to no.agent";
   }
   return false;
}

} // namespace

int main() {
   signal( SIGPIPE, SIG_IGN );
   char folder[] = "/tmp/kel-outside-XXXXXX";
   if( !mkdtemp( folder ) ) {
      return 1;
   }
   std::string const path = std::string( folder ) + "/socket";
   setenv( "KELC_AGENTS_DIR", folder, 1 );
   bool const good = evaluates( path ) && failsWithoutAnAgent();
   unlink( path.c_str() );
   rmdir( folder );
   return good ? 0 : 2;
}
