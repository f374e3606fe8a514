#include "Session.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <kel/Exception.h>

#include "Failure.h"
#include "PythonText.h"

namespace {

// What the client's own checks let through.
constexpr std::size_t longestRequest = 4089;
constexpr std::size_t piece = 1000; // of a text, each byte of which may become four
constexpr char greetingByte = 'E';
constexpr char bufferTooSmall[] = "Buffer for PyClient result was too small.";

Kel::Ptr< Kel::PyClient > newClient( Target const& target ) {
   if( target.socket ) {
      return new Kel::PyClient( Kel::String( *target.socket ), greetingByte, nullptr );
   }
   if( target.port ) {
      return new Kel::PyClient( *target.port, greetingByte, nullptr );
   }
   AgentName const& agent = target.agent;
   return new Kel::PyClient( Kel::String( agent.group ), Kel::String( agent.name ), greetingByte,
      agent.subsystem ? agent.subsystem->c_str() : nullptr, nullptr );
}

Kel::Ptr< Kel::PyClient > connected( Target const& target ) {
   std::string const what = "cannot connect to " + target.display();
   try {
      auto client = newClient( target );
      // Process ids repeat where processes have name spaces of their own.
      if( client->sameProcess_ ) {
         throw Failure( Failure::unreachable, what + ": its agent file names this very process" );
      }
      client->noReconnect_ = true;
      return client;
   } catch( Kel::RpcConnectionException const& ) {
      throw Failure( Failure::unreachable, what + ": nobody is there" );
   } catch( Kel::Exception const& exception ) {
      throw Failure( Failure::unreachable, what + ": " + exception.message().stdString() );
   }
}

} // namespace

Session::Session( Target const& target, bool waits, std::size_t limit )
   : name_( target.display() ),
     limit_( static_cast< int >( limit ) ),
     buffer_( new char[limit + 1] ) {
   static constexpr unsigned once[] = { 0 };
   if( !waits ) {
      Kel::PyClient::retryProfileIs( once );
   }
   client_ = connected( target );
}

std::string_view Session::run( Kind kind, std::string const& text ) {
   if( text.find( '\0' ) != text.npos ) {
      throw Failure( Failure::raised, "TypeError: the text holds a NUL byte" );
   }
   return text.size() <= longestRequest ? send( kind, text ) : runPieces( kind, text );
}

// The pieces are collected in a variable of the agent's, which the last request takes away.
std::string_view Session::runPieces( Kind kind, std::string const& text ) {
   std::string const variable =
      "_kel_eval_" + std::to_string( getpid() ) + "_" + std::to_string( time( nullptr ) );
   send( Kind::statements, variable + " = []" );
   try {
      for( std::size_t at = 0; at < text.size(); at += piece ) {
         send( Kind::statements,
            variable + ".append(" + pythonLiteral( text.substr( at, piece ) ) + ")" );
      }
   } catch( Failure const& failure ) {
      if( failure.status == Failure::raised ) {
         send( Kind::statements, "del " + variable );
      }
      throw;
   }
   return send( kind, collectedText( variable, kind == Kind::expression ) );
}

std::string_view Session::send( Kind kind, std::string const& text ) {
   try {
      auto const operation =
         kind == Kind::expression ? &Kel::PyClient::eval : &Kel::PyClient::execute;
      int const length = ( client_.get()->*operation )( text.c_str(), buffer_.get(), limit_ + 1 );
      std::string_view const result( buffer_.get(), std::max( length, 0 ) );
      refuseTruncated( result );
      return result;
   } catch( Kel::RpcConnectionException const& exception ) {
      std::string const message = exception.message().stdString();
      if( message.find( bufferTooSmall ) != message.npos ) {
         throw Failure( Failure::undelivered,
            "the result has more than " + std::to_string( limit_ ) + " bytes; see --limit" );
      }
      throw Failure( Failure::unreachable, "lost the connection to " + name_ );
   } catch( Kel::RpcException const& exception ) {
      // A stream that ends within the head of an answer looks like a failure without words.
      if( exception.message().empty() && isAtEnd() ) {
         throw Failure( Failure::unreachable, "lost the connection to " + name_ );
      }
      throw Failure( Failure::raised, exception.message().stdString() );
   } catch( Kel::Exception const& exception ) {
      throw Failure( Failure::unreachable,
         "lost the connection to " + name_ + ": " + exception.message().stdString() );
   }
}

// The client takes the announced length for the length, also where the stream ends within the
// result: there it has put a NUL behind what came.
void Session::refuseTruncated( std::string_view result ) const {
   if( result.find( '\0' ) != result.npos && isAtEnd() ) {
      throw Failure( Failure::unreachable, "lost the connection to " + name_ + " in its answer" );
   }
}

bool Session::isAtEnd() const {
   char byte;
   return recv( client_->sock_, &byte, 1, MSG_PEEK | MSG_DONTWAIT ) == 0;
}
