// The client's reader of agent files, against what each file has to come to. An input is the
// contents of a file that a live agent holds. At its start a "@" stands for the number of this
// process, a "^" for a number whose low 32 bits are that.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <climits>
#include <optional>

#include <kel/Exception.h>
#include <kelpy/PyClient.h>

#include "Fuzz.h"

namespace {

constexpr std::size_t maxFileBytes = 128;
constexpr std::size_t maxNameBytes = 107;

struct Outcome {
   bool own = false; // the file is this process's
   std::optional< std::int32_t > port;
   std::optional< std::string > socketName;
};

// An agent directory with one file, whose lock is held as by an agent.
class Agent {
 public:
   Agent()
      : folder_( makeFolder() ),
        path_( folder_ + "/acme.shop" ),
        descriptor_( open( path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600 ) ),
        directory_( open( folder_.c_str(), O_RDONLY | O_CLOEXEC ) ) {
      expect( descriptor_ >= 0 && directory_ >= 0, "no file can be made" );
      expect( flock( descriptor_, LOCK_EX | LOCK_NB ) == 0, "no lock can be had" );
      setenv( "KELC_AGENTS_DIR", folder_.c_str(), 1 );
   }
   Agent( Agent const& ) = delete;
   Agent& operator=( Agent const& ) = delete;
   ~Agent() {
      removeFolder();
      close( descriptor_ );
      close( directory_ );
   }

   std::string const& path() const { return path_; }

   void textIs( std::string const& text ) {
      expect( ftruncate( descriptor_, 0 ) == 0 &&
                 pwrite( descriptor_, text.data(), text.size(), 0 ) == ssize_t( text.size() ),
         "the file cannot be written" );
   }

   // The file stays, and nobody else has the directory's lock.
   void checkUntouched() {
      expect( access( path_.c_str(), F_OK ) == 0, "the file of a live agent was removed" );
      expect( flock( directory_, LOCK_EX | LOCK_NB ) == 0, "the directory stays locked" );
      flock( directory_, LOCK_UN );
   }

 private:
   std::string const folder_;
   std::string const path_;
   int const descriptor_;
   int const directory_;
};

// Has a file of this process's own as long as it is made, so that it needs no server.
Kel::Ptr< Kel::PyClient > newClient( Agent& agent ) {
   agent.textIs( std::to_string( getpid() ) + "\n0\n\n" );
   return new Kel::PyClient( "acme", "shop", 'K', "", nullptr );
}

// The low 32 bits of the decimal number at the start of the text.
std::int32_t numberAt( std::string_view text ) {
   std::size_t i = std::min( text.find_first_not_of( " \t\n\v\f\r" ), text.size() );
   bool const negative = i < text.size() && text[i] == '-';
   if( i < text.size() && ( text[i] == '-' || text[i] == '+' ) ) {
      ++i;
   }
   __int128 number = 0;
   __int128 const limit = __int128{ LONG_MAX } + ( negative ? 1 : 0 );
   for( ; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i ) {
      number = std::min( number * 10 + ( text[i] - '0' ), limit );
   }
   return static_cast< std::int32_t >( static_cast< long >( negative ? -number : number ) );
}

Outcome expected( std::string_view text ) {
   text = text.substr( 0, maxFileBytes );
   if( text.empty() ) {
      return {};
   }
   if( numberAt( text ) == getpid() ) {
      return { .own = true };
   }
   std::size_t const first = text.find( '\n' );
   if( first == text.npos ) {
      return {};
   }
   Outcome outcome{ .port = numberAt( text.substr( first + 1 ) ) };
   std::size_t const second = text.find( '\n', first + 1 );
   if( second == text.npos ) {
      return outcome;
   }
   std::size_t const third = text.find( '\n', second + 1 );
   if( third != text.npos && third - second - 1 <= maxNameBytes ) {
      outcome.socketName = text.substr( second + 1, third - second - 1 );
   }
   return outcome;
}

int lowestFreeDescriptor() {
   int const descriptor = dup( 0 );
   close( descriptor );
   return descriptor;
}

void check(
   Kel::PyClient const& client, Kel::PyServerContacts const& contacts, Outcome const& right ) {
   expect( contacts.socketName.length() <= maxNameBytes, "a name that no socket can have" );
   expect( contacts.socketName.view().find( '\n' ) == std::string_view::npos, "a name of lines" );
   expect( client.sameProcess_ == right.own, "another process" );
   expect( contacts.port == right.port.value_or( -7 ), "another port" );
   expect( contacts.socketName.view() == right.socketName.value_or( "before" ), "another name" );
}

// A reader that takes a name of one byte more.
void plantFault( std::string_view text, Kel::PyServerContacts& contacts ) {
   std::size_t const end = text.substr( 0, maxFileBytes ).rfind( '\n' );
   if( end != text.npos && end > maxNameBytes + 1 && text[end - maxNameBytes - 2] == '\n' ) {
      contacts.socketName = text.substr( end - maxNameBytes - 1, maxNameBytes + 1 );
   }
}

} // namespace

extern "C" int LLVMFuzzerInitialize( int*, char*** ) {
   startFuzzer();
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const* data, std::size_t size ) {
   static Agent agent;
   static Kel::Ptr< Kel::PyClient > const client = newClient( agent );
   std::string text( textOf( data, size ) );
   if( text.starts_with( '@' ) || text.starts_with( '^' ) ) {
      std::int64_t const high = text[0] == '^' ? std::int64_t{ 1 } << 32 : 0;
      text.replace( 0, 1, std::to_string( high + getpid() ) );
   }
   agent.textIs( text );
   int const free = lowestFreeDescriptor();
   client->sameProcess_ = false;
   Kel::PyServerContacts contacts{ -7, "before" };
   client->serverContacts( agent.path(), &contacts );
   if( planted() ) {
      plantFault( text, contacts );
   }
   check( *client, contacts, expected( text ) );
   expect( lowestFreeDescriptor() == free, "a descriptor stays open" );
   agent.checkUntouched();
   return 0;
}
