#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include <kel/Exception.h>
#include <kel/Seconds.h>
#include <kel/String.h>

namespace Kel {

namespace {

// The word behind the pointer, as the format of shared data has it.
std::uint32_t references( String const& text ) {
   void* data = nullptr;
   std::memcpy( &data, &text, sizeof data );
   std::uint32_t count = 0;
   std::memcpy( &count, data, sizeof count );
   return count;
}

bool isNull( String const& text ) {
   void* data = nullptr;
   std::memcpy( &data, &text, sizeof data );
   return !data;
}

TEST( String, isEmptyAndNullByDefault ) {
   String const text;
   EXPECT_TRUE( isNull( text ) );
   EXPECT_TRUE( text.empty() );
   EXPECT_EQ( text.length(), 0U );
   EXPECT_STREQ( text.charPtr(), "" );
   EXPECT_EQ( text.stdString(), "" );
}

TEST( String, isNullForEveryEmptySource ) {
   EXPECT_TRUE( isNull( String( "" ) ) );
   EXPECT_TRUE( isNull( String( static_cast< char const* >( nullptr ) ) ) );
   EXPECT_TRUE( isNull( String( "abc", 0 ) ) );
   EXPECT_TRUE( isNull( String( std::string() ) ) );
   EXPECT_TRUE( isNull( String( std::string_view() ) ) );
}

TEST( String, keepsTheCountAndTheLengthInFrontOfItsBytes ) {
   String const text( "abc" );
   EXPECT_EQ( references( text ), 1U );
   std::uint32_t length = 0;
   std::memcpy( &length, text.charPtr() - sizeof length, sizeof length );
   EXPECT_EQ( length, 3U );
}

TEST( String, sharesItsDataWithCopies ) {
   String const text( "abc" );
   {
      String const copy = text;
      EXPECT_EQ( copy.charPtr(), text.charPtr() );
      EXPECT_EQ( references( text ), 2U );
   }
   EXPECT_EQ( references( text ), 1U );
}

TEST( String, handsItsDataOverOnAMove ) {
   String text( "abc" );
   String const moved = std::move( text );
   EXPECT_EQ( references( moved ), 1U );
   EXPECT_TRUE( isNull( text ) );
}

TEST( String, survivesAssignmentToItself ) {
   String text( "abc" );
   String& same = text;
   text = same;
   EXPECT_EQ( text, "abc" );
   text = text.charPtr();
   EXPECT_EQ( text, "abc" );
}

TEST( String, keepsEmbeddedNulBytes ) {
   String const text( "a\0b", 3 );
   EXPECT_EQ( text.length(), 3U );
   EXPECT_EQ( text.stdString(), std::string( "a\0b", 3 ) );
   EXPECT_NE( text, "a" );
   EXPECT_EQ( text.charPtr()[3], '\0' );
}

TEST( String, leavesCopiesAloneWhenItGrows ) {
   String text( "abc" );
   String const copy = text;
   text += "def";
   EXPECT_EQ( text, "abcdef" );
   EXPECT_EQ( copy, "abc" );
   EXPECT_EQ( references( copy ), 1U );
}

TEST( String, appendsEveryKindOfText ) {
   String text;
   text += String( "a" );
   text += "b";
   text += std::string( "c" );
   text += std::string_view( "d" );
   text += 'e';
   text.merge( String( "f" ) ).merge( "gh", 1 );
   EXPECT_EQ( text, "abcdefg" );
   EXPECT_EQ( String( "x" ) + "y" + std::string( "z" ), "xyz" );
   EXPECT_EQ( "x" + String( "y" ), "xy" );
}

TEST( String, appendsItselfAndPartsOfItself ) {
   String text( "abc" );
   text += text;
   EXPECT_EQ( text, "abcabc" );
   text.merge( text.charPtr() + 4, 2 );
   EXPECT_EQ( text, "abcabcbc" );
   for( int i = 0; i < 8; ++i ) {
      text += text;
   }
   EXPECT_EQ( text.length(), 8U << 8 );
   EXPECT_EQ( text.view().substr( 1024, 8 ), "abcabcbc" );
}

// Blocks behind it keep the text from growing in its place, and what it leaves is written over.
TEST( String, appendsItselfWhereItHasToMove ) {
   for( std::size_t size = 1; size < 1000; size += 7 ) {
      std::string const source( size, 'x' );
      std::vector< String > texts;
      for( int i = 0; i < 20; ++i ) {
         texts.emplace_back( source.data(), size );
      }
      for( String& text : texts ) {
         text += text;
         ASSERT_EQ( std::string( text.charPtr(), text.length() ), source + source );
      }
   }
}

TEST( String, growsByteByByteAcrossAllSizes ) {
   String text;
   std::string expected;
   for( int i = 0; i < 1000; ++i ) {
      text += static_cast< char >( 'a' + i % 26 );
      expected += static_cast< char >( 'a' + i % 26 );
      ASSERT_EQ( text, expected );
   }
}

TEST( String, comparesBytesAsUnsigned ) {
   EXPECT_LT( String( "a" ), String( "b" ) );
   EXPECT_LT( String( "a" ), String( "ab" ) );
   EXPECT_LT( String(), String( "a" ) );
   EXPECT_GT( String( "\x80" ), String( "\x7f" ) );
   EXPECT_LE( String( "a" ), "a" );
   EXPECT_GE( String( "b" ), std::string( "a" ) );
   EXPECT_NE( String( "a" ), String( "b" ) );
   EXPECT_EQ( "a", String( "a" ) );
   EXPECT_LT( "a", String( "b" ) );
   EXPECT_EQ( String(), String( "" ) );
}

TEST( String, refusesALengthBeyond32Bits ) {
   std::size_t const tooLong = std::size_t{ 1 } << 32;
   EXPECT_THROW( String( "x", tooLong ), RangeException );
   EXPECT_THROW( String( "x", static_cast< std::size_t >( -1 ) ), RangeException );
   String text( "abc" );
   EXPECT_THROW( text.merge( "x", tooLong - 3 ), RangeException );
   EXPECT_EQ( text, "abc" );
}

TEST( String, hashesByItsBytes ) {
   std::unordered_map< String, int > map;
   map["a"] = 1;
   map[String( "aa", 1 )] += 1;
   EXPECT_EQ( map.size(), 1U );
   EXPECT_EQ( map["a"], 2 );
}

TEST( String, isWrittenWithAllItsBytes ) {
   std::ostringstream out;
   out << String( "a\0b", 3 );
   EXPECT_EQ( out.str(), std::string( "a\0b", 3 ) );
}

TEST( Bytes, holdsAndComparesAnyBytes ) {
   unsigned char const raw[] = { 0, 255, 1 };
   Bytes bytes( raw, 3 );
   Bytes const same( raw, 3 );
   EXPECT_EQ( bytes, same );
   EXPECT_EQ( bytes.bytes(), 3U );
   EXPECT_EQ( bytes.bytesPtr()[1], 255 );
   bytes += same;
   EXPECT_EQ( bytes.length(), 6U );
   EXPECT_LT( same, bytes );
   EXPECT_EQ( Bytes( raw, 0 ), Bytes() );
   EXPECT_NE( Bytes().bytesPtr(), nullptr );
   EXPECT_EQ( std::hash< Bytes >()( same ), std::hash< Bytes >()( Bytes( raw, 3 ) ) );
}

TEST( Fmt, formatsTextsOfAnyLength ) {
   EXPECT_EQ( _fmt( "%s: %d", "a", 5 ), "a: 5" );
   EXPECT_EQ( _fmt( "%s", "" ), "" );
   for( std::size_t const length : { 255U, 256U, 257U, 5000U } ) {
      std::string const text( length, 'x' );
      EXPECT_EQ( _fmt( "%s", text.c_str() ), text );
   }
}

TEST( Fmt, throwsForATextThatCannotBeEncoded ) {
   wchar_t const text[] = { 0x110000, 0 };
   try {
      static_cast< void >( _fmt( "%ls", text ) );
      FAIL();
   } catch( ErrnoException const& exception ) {
      EXPECT_EQ( exception.errnoValue(), EILSEQ );
      EXPECT_EQ( exception.text(), "cannot format a text" );
   }
}

TEST( String, hasAnOrderWithStandardTexts ) {
   EXPECT_TRUE( String( "a" ) < "b" );
   EXPECT_FALSE( String( "b" ) < "a" );
   EXPECT_FALSE( String( "a" ) < std::string( "a" ) );
   EXPECT_TRUE( String( "b" ) > std::string_view( "a" ) );
   EXPECT_TRUE( String( "a" ) < "ab" );
}

TEST( Demangle, givesTheNameOfAType ) {
   EXPECT_EQ( demangle( typeid( int ) ), "int" );
   EXPECT_EQ( demangle( typeid( String ) ), "Kel::String" );
   EXPECT_EQ( demangle( "N3Kel5BytesE" ), "Kel::Bytes" );
}

TEST( Demangle, givesBackATextThatIsNoMangledName ) {
   EXPECT_EQ( demangle( "no such name" ), "no such name" );
   EXPECT_EQ( demangle( "" ), "" );
}

TEST( Seconds, calculateAndCompareAsADouble ) {
   Seconds const time( 1.5 );
   EXPECT_EQ( Seconds().value(), 0 );
   EXPECT_EQ( ( time + Seconds( 1 ) ).value(), 2.5 );
   EXPECT_EQ( ( time - Seconds( 1 ) ).value(), 0.5 );
   EXPECT_EQ( ( time * 2 ).value(), 3 );
   EXPECT_EQ( ( 2 * time ).value(), 3 );
   EXPECT_EQ( ( time / 3 ).value(), 0.5 );
   EXPECT_EQ( time / Seconds( 0.5 ), 3 );
   EXPECT_EQ( ( -time ).value(), -1.5 );
   EXPECT_LT( Seconds( 1 ), time );
   EXPECT_EQ( time, Seconds( 1.5 ) );
   EXPECT_GT( time, Seconds( 1 ) );
   EXPECT_LE( time, Seconds( 1.5 ) );
   Seconds const unordered( std::nan( "" ) );
   EXPECT_FALSE( unordered < time || unordered > time || unordered == time );
   EXPECT_EQ( std::hash< Seconds >()( Seconds( 0.0 ) ), std::hash< Seconds >()( Seconds( -0.0 ) ) );
}

} // namespace

} // namespace Kel
