#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <type_traits>

#include <kel/Exception.h>

namespace Kel {

namespace {

template< class E >
class RuntimeException : public testing::Test {};

using AllExceptions = testing::Types< Exception, NoTypeNodeException, TypeException,
   IllegalNameException, NameInUseException, ConstException, NondeletableAttrException,
   NoImplementationException, RpcException, RpcConnectionException, RangeException, MemoryException,
   InternalException, OpNotSupportedException >;
TYPED_TEST_SUITE( RuntimeException, AllExceptions );

TYPED_TEST( RuntimeException, carriesItsMessageAndNoBacktrace ) {
   for( TypeParam const& made : { TypeParam( "x" ), TypeParam( String( "x" ) ) } ) {
      try {
         throw made;
      } catch( Exception const& exception ) {
         EXPECT_EQ( typeid( exception ), typeid( TypeParam ) );
         EXPECT_EQ( exception.message(), "x" );
         EXPECT_FALSE( exception.backtrace() );
      }
   }
}

TYPED_TEST( RuntimeException, isNoStandardException ) {
   EXPECT_FALSE( (std::is_base_of_v< std::exception, TypeParam >));
}

TYPED_TEST( RuntimeException, keepsItsTypeWithABacktrace ) {
   try {
      throw withBacktrace( TypeParam( "x" ) );
   } catch( Exception const& exception ) {
      EXPECT_EQ( typeid( exception ), typeid( TypeParam ) );
      ASSERT_TRUE( exception.backtrace() );
      EXPECT_GT( exception.backtrace()->frames(), 0U );
   }
}

TEST( RpcConnectionException, isAnRpcException ) {
   EXPECT_THROW( throw RpcConnectionException( "x" ), RpcException );
}

TEST( ErrnoException, keepsTheNumberAndTheText ) {
   ErrnoException const exception( ENOENT, "/a" );
   EXPECT_EQ( exception.errnoValue(), ENOENT );
   EXPECT_EQ( exception.text(), "/a" );
   EXPECT_EQ( exception.message(), "/a: No such file or directory" );
   EXPECT_EQ( ErrnoException( ENOENT, String( "/b" ) ).text(), "/b" );
}

TEST( ErrnoException, hasTheSystemsTextAloneWithoutAnother ) {
   ErrnoException const exception( ENOENT );
   EXPECT_EQ( exception.text(), "" );
   EXPECT_EQ( exception.message(), "No such file or directory" );
}

TEST( Exception, capturesItsBacktraceWhileTheProcessAsksForIt ) {
   Exception::captureBacktracesIs( true );
   Exception const with( "x" );
   Exception::captureBacktracesIs( false );
   Exception const without( "x" );
   EXPECT_TRUE( with.backtrace() );
   EXPECT_FALSE( without.backtrace() );
}

TEST( OutOfMemory, isThrownWithAMessage ) {
   try {
      throwOutOfMemory();
   } catch( MemoryException const& exception ) {
      EXPECT_EQ( exception.message(), "out of memory" );
   }
}

[[gnu::noinline]] Ptr< Backtrace const > captureDeep( int depth ) {
   Ptr< Backtrace const > result = depth > 0 ? captureDeep( depth - 1 ) : Backtrace::capture();
   EXPECT_TRUE( result ); // keeps this from being a tail call
   return result;
}

TEST( Backtrace, growsWithTheDepthOfTheStack ) {
   unsigned const shallow = captureDeep( 1 )->frames();
   EXPECT_EQ( captureDeep( 6 )->frames(), shallow + 5 );
   EXPECT_EQ( captureDeep( 500 )->frames(), 64U );
}

TEST( Backtrace, keepsACopyOfGivenAddresses ) {
   int first = 0;
   int second = 0;
   void* addresses[] = { &first, &second };
   auto const backtrace = Backtrace::fromAddresses( addresses, 2 );
   addresses[0] = nullptr;
   EXPECT_EQ( backtrace->frames(), 2U );
   EXPECT_EQ( backtrace->addresses()[0], &first );
   EXPECT_EQ( backtrace->addresses()[1], &second );
}

TEST( Backtrace, mayBeEmpty ) {
   EXPECT_EQ( Backtrace::fromAddresses( nullptr, 0 )->frames(), 0U );
}

TEST( Backtrace, livesWithItsPointers ) {
   auto first = Backtrace::capture();
   auto second = first;
   EXPECT_EQ( first->kelReferenceWord(), 2U );
   first = nullptr;
   EXPECT_EQ( second->kelReferenceWord(), 1U );
}

} // namespace

} // namespace Kel
