// The pauses between a client's attempts, and what it tells the user who waits.
#include "ClientTest.h"
#include "SystemCalls.h"

#include <chrono>
#include <numeric>

namespace {

constexpr char warning[] = "[PyServer group.name not responding, still trying -- is it running?]\n";

class ClientRetry : public ClientTest {
 protected:
   // What standard error gets while a client looks for an agent that never appears.
   static std::string said() {
      testing::internal::CaptureStderr();
      EXPECT_EQ( messageOf< Kel::RpcConnectionException >(
                    [] { client( "group", "name", 'x', nullptr, nullptr ); } ),
         "Unable to connect to group.name" );
      return testing::internal::GetCapturedStderr();
   }
   std::size_t attempts() const { return trace_.lines( 0 ).size(); }

   SystemCalls calls_;
};

std::string times( int count, std::string const& text ) {
   std::string all;
   while( count-- > 0 ) {
      all += text;
   }
   return all;
}

TEST_F( ClientRetry, ofAProfileOfOnlyAZeroIsOneAttemptWithoutAWarning ) {
   calls_.sleepsAreNoted();
   EXPECT_EQ( said(), "" );
   EXPECT_EQ( attempts(), 1u );
   EXPECT_TRUE( calls_.sleeps.empty() );
}

TEST_F( ClientRetry, ofAProfileOfTwoPausesIsThreeAttempts ) {
   RetryProfile const profile( { 1, 1, 0 } );
   calls_.sleepsAreNoted();
   EXPECT_EQ( said(), "" );
   EXPECT_EQ( attempts(), 3u );
}

TEST_F( ClientRetry, sleepsAsLongAsTheProfileSays ) {
   RetryProfile const profile( { 1, 2, 999, 1000, 2345, 0 } );
   calls_.sleepsAreNoted();
   said();
   EXPECT_EQ( calls_.sleeps, ( std::vector< double >{ 1, 2, 999, 1000, 2345 } ) );
}

TEST_F( ClientRetry, sleepsTheRestOfAPauseThatIsInterrupted ) {
   RetryProfile const profile( { 3000, 10, 0 } );
   calls_.sleepsAreNoted();
   calls_.interruptedSleeps = 2;
   said();
   EXPECT_EQ( calls_.sleeps, ( std::vector< double >{ 3000, 1500, 750, 10 } ) );
}

TEST_F( ClientRetry, warnsAfterASecondAndAHalfAndThenOnceInFiveSeconds ) {
   calls_.sleepsAreNoted();
   auto const warnedAfter = []( std::vector< unsigned int > pauses ) {
      RetryProfile const profile( std::move( pauses ) );
      return said();
   };
   EXPECT_EQ( warnedAfter( { 1499, 1, 0 } ), "" );            // the last attempt only fails
   EXPECT_EQ( warnedAfter( { 1499, 2, 1, 0 } ), warning );    // at 1.501
   EXPECT_EQ( warnedAfter( { 1600, 4999, 1, 0 } ), warning ); // at 1.6, not at 6.599
   EXPECT_EQ( warnedAfter( { 1600, 5001, 1, 0 } ), times( 2, warning ) );
   EXPECT_EQ( warnedAfter( { 1600, 60000, 1, 0 } ), times( 2, warning ) );
}

TEST_F( ClientRetry, startsAnewEachTime ) {
   calls_.sleepsAreNoted();
   RetryProfile const profile( { 1600, 1, 0 } );
   EXPECT_EQ( said(), warning );
   EXPECT_EQ( said(), warning );
   EXPECT_EQ( attempts(), 6u );
}

TEST_F( ClientRetry, namesAServerWithoutANameAsItIs ) {
   calls_.sleepsAreNoted();
   RetryProfile const profile( { 1600, 1, 0 } );
   testing::internal::CaptureStderr();
   EXPECT_THROW( client( 0, 'x', nullptr ), Kel::RpcConnectionException );
   EXPECT_EQ( testing::internal::GetCapturedStderr(),
      "[PyServer  not responding, still trying -- is it running?]\n" );
}

class ClientDefaultProfile : public ClientRetry {
 protected:
   ClientDefaultProfile() { Kel::PyClient::retryProfileIs( initial ); }

   static unsigned int const* const initial;
};

unsigned int const* const ClientDefaultProfile::initial = Kel::PyClient::retryProfile_;

std::vector< double > defaultPauses() {
   return { 250, 250, 250, 250, 500, 500, 500, 500, 1000, 4000, 8000, 16000 };
}

TEST_F( ClientDefaultProfile, hasThirteenAttemptsAndThreeWarnings ) {
   calls_.sleepsAreNoted();
   EXPECT_EQ( said(), times( 3, warning ) );
   EXPECT_EQ( attempts(), 13u );
   EXPECT_EQ( calls_.sleeps, defaultPauses() );
}

TEST_F( ClientDefaultProfile, warnsAtItsAttempts ) {
   calls_.sleepsAreNoted();
   std::vector< double > warnedAt;
   double const start = calls_.now;
   calls_.onSleep = [&] {
      std::string const text = testing::internal::GetCapturedStderr();
      testing::internal::CaptureStderr();
      if( !text.empty() ) {
         EXPECT_EQ( text, warning );
         warnedAt.push_back( calls_.now - start );
      }
   };
   EXPECT_EQ( said(), "" );
   EXPECT_EQ( warnedAt, ( std::vector< double >{ 1.5, 8, 16 } ) );
}

// In real time: about 32 seconds.
TEST_F( ClientDefaultProfile, waitsForAServerThatNeverAppears ) {
   auto const start = std::chrono::steady_clock::now();
   EXPECT_EQ( said(), times( 3, warning ) );
   auto const took = std::chrono::steady_clock::now() - start;
   auto const pauses = defaultPauses();
   EXPECT_GE( took, std::chrono::milliseconds( static_cast< int >(
                       std::accumulate( pauses.begin(), pauses.end(), 0. ) ) ) );
   EXPECT_EQ( attempts(), 13u );
}

} // namespace
