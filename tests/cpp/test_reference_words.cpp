// The end of a runtime object, with the flags of its reference word set and clear.
#include <kelpy/core/PyPython.h>

#include <gtest/gtest.h>

#include <kel/Lock.h>
#include <odd/Node.h>

namespace {

class ReferenceWord : public testing::TestWithParam< bool > {
 protected:
   ReferenceWord() { Kel::VFPtrInterface::threadSafePointersIs( GetParam() ); }
   ~ReferenceWord() override { Kel::VFPtrInterface::threadSafePointersIs( false ); }

   Kel::LockAnchor const lock_{ Kel::activityLock() };
};

// An object whose word is its count and nothing else.
Kel::Ptr< Odd::Node > madeQuietly() {
   return Kel::Ptr< Odd::Node >( new Odd::Node( 1 ) );
}

TEST_P( ReferenceWord, ofAZombieEndsTheObjectAtCountZero ) {
   auto node = madeQuietly();
   auto second = node;
   node->kelMarkedForDeletionIs( true );
   EXPECT_EQ( node->kelReferenceWord(), 0x80000002u );
   second = nullptr;
   EXPECT_EQ( Odd::Node::live(), 1u );
   EXPECT_EQ( node->kelReferenceWord(), 0x80000001u );
   node = nullptr;
   EXPECT_EQ( Odd::Node::live(), 0u );
}

TEST_P( ReferenceWord, ofAnObjectThatNotifiesEndsItAtCountZero ) {
   auto node = madeQuietly();
   node->kelReferenceWord() |= 0xa0000000u;
   node = nullptr;
   EXPECT_EQ( Odd::Node::live(), 0u );
}

TEST_P( ReferenceWord, countsInBit30 ) {
   auto node = madeQuietly();
   node->kelReferenceWord() += 0x40000000u;
   Odd::Node* const address = node.get();
   node = nullptr;
   EXPECT_EQ( Odd::Node::live(), 1u );
   EXPECT_EQ( address->kelReferenceWord(), 0x40000000u );
   address->kelReferenceWord() = 1;
   EXPECT_TRUE( Kel::Ptr< Odd::Node >::adopt( address ) );
   EXPECT_EQ( Odd::Node::live(), 0u );
}

TEST_P( ReferenceWord, isNotTouchedByAMove ) {
   auto node = madeQuietly();
   auto moved = std::move( node );
   EXPECT_FALSE( node );
   EXPECT_EQ( moved->kelReferenceWord() & 0x5fffffffu, 1u );
}

INSTANTIATE_TEST_SUITE_P( PlainAndAtomic, ReferenceWord, testing::Bool() );

} // namespace
