// The surroundings of a client in a test: an agent directory of its own, a retry profile without
// pauses, no SIGPIPE. A test that leaves a descriptor open fails, unless it says how many.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include <kel/Exception.h>
#include <kelpy/PyClient.h>

#include "ScriptedServer.h"
#include "TraceLog.h"

// An environment variable, or its absence for null, for the length of a scope.
class Environment {
 public:
   Environment( char const* name, char const* value ) : name_( name ) {
      if( char const* const present = std::getenv( name ) ) {
         before_ = present;
      }
      set( value );
   }
   Environment( Environment const& ) = delete;
   Environment& operator=( Environment const& ) = delete;
   ~Environment() { set( before_ ? before_->c_str() : nullptr ); }

 private:
   void set( char const* value ) {
      if( value ) {
         setenv( name_, value, 1 );
      } else {
         unsetenv( name_ );
      }
   }

   char const* const name_;
   std::optional< std::string > before_;
};

class Folder {
 public:
   Folder() { path_ = mkdtemp( path_.data() ); }
   Folder( Folder const& ) = delete;
   Folder& operator=( Folder const& ) = delete;
   ~Folder() { std::filesystem::remove_all( path_ ); }

   std::string const& path() const { return path_; }
   std::string operator/( std::string const& name ) const { return path_ + "/" + name; }

 private:
   std::string path_ = "/tmp/kel-client-XXXXXX";
};

class RetryProfile {
 public:
   explicit RetryProfile( std::vector< unsigned int > pauses ) : pauses_( std::move( pauses ) ) {
      Kel::PyClient::retryProfileIs( pauses_.data() );
   }
   RetryProfile( RetryProfile const& ) = delete;
   RetryProfile& operator=( RetryProfile const& ) = delete;
   ~RetryProfile() { Kel::PyClient::retryProfileIs( before_ ); }

 private:
   unsigned int const* const before_ = Kel::PyClient::retryProfile_;
   std::vector< unsigned int > pauses_;
};

// An agent file; while it is locked, which LOCK_UN spares it, its agent counts as alive.
class AgentFile {
 public:
   AgentFile( std::string const& path, std::string const& text, int lock = LOCK_EX )
      : path_( path ), descriptor_( open( path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600 ) ) {
      textIs( text );
      EXPECT_EQ( flock( descriptor_, lock | LOCK_NB ), 0 );
   }
   AgentFile( AgentFile const& ) = delete;
   AgentFile& operator=( AgentFile const& ) = delete;
   ~AgentFile() { close( descriptor_ ); }

   void textIs( std::string const& text ) {
      EXPECT_EQ( ftruncate( descriptor_, 0 ), 0 );
      EXPECT_EQ( pwrite( descriptor_, text.data(), text.size(), 0 ), ssize_t( text.size() ) );
   }
   bool exists() const { return std::filesystem::exists( path_ ); }

 private:
   std::string const path_;
   int const descriptor_;
};

// The text of an agent's file.
inline std::string agentText( int pid, int port, std::string const& socketName ) {
   return std::to_string( pid ) + "\n" + std::to_string( port ) + "\n" + socketName + "\n";
}

class ClientTest : public testing::Test {
 protected:
   using Client = Kel::Ptr< Kel::PyClient >;
   using Lines = TraceLog::Lines;
   using Sessions = std::vector< ScriptedServer::Session >;

   ClientTest() { signal( SIGPIPE, SIG_IGN ); }
   ~ClientTest() override { EXPECT_EQ( openDescriptors() - before_, leftOpen_ ); }

   template< class... Args >
   static Client client( Args... args ) {
      return new Kel::PyClient( args... );
   }

   static std::ptrdiff_t openDescriptors() {
      std::filesystem::directory_iterator const files( "/proc/self/fd" );
      return std::distance( begin( files ), end( files ) );
   }

   std::string socketPath() const { return folder_ / "socket"; }
   Kel::String socketName() const { return socketPath(); }

   TraceLog trace_;
   Folder folder_;
   Environment agentsDirectory_{ "KELC_AGENTS_DIR", folder_.path().c_str() };
   Environment subsystemId_{ "SUBSYSTEMID", nullptr };
   RetryProfile profile_{ { 0 } };
   std::ptrdiff_t leftOpen_ = 0;

 private:
   std::ptrdiff_t const before_ = openDescriptors();
};

// What the body throws as an E; nothing of another kind passes for it.
template< class E, class Body >
E thrown( Body body ) {
   try {
      body();
   } catch( E const& exception ) {
      EXPECT_EQ( typeid( exception ), typeid( E ) );
      return exception;
   }
   ADD_FAILURE() << "nothing was thrown";
   return E( 0 );
}

// The same for its message.
template< class E, class Body >
std::string messageOf( Body body ) {
   try {
      body();
   } catch( E const& exception ) {
      EXPECT_EQ( typeid( exception ), typeid( E ) );
      return exception.message().stdString();
   }
   return "nothing was thrown";
}
