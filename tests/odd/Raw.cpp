// The rows of a type that the declaration language refuses, written by hand, for tests of the
// handles on types and attributes alone: nothing can be made of it.
#include <kel/Exception.h>
#include <kel/TypeImpl.h>

namespace Odd {

extern "C" KEL_API Kel::KelModule const _Odd_Raw_kelModule;

namespace {

using namespace Kel;

constexpr char typeNames[] = "Odd::Raw";
constexpr char attrNames[] = "\0invasiveConst\0mystery\0constant";
constexpr std::uint32_t invasiveConstName = 1;
constexpr std::uint32_t mysteryName = invasiveConstName + sizeof( "invasiveConst" );
constexpr std::uint32_t constantName = mysteryName + sizeof( "mystery" );

constexpr std::int16_t noType = ~0;
constexpr std::int16_t u32 =
   ~( int( Impl::coreTypeOfBuiltin ) + static_cast< int >( BuiltinType::u32 ) );

constexpr TypeRow types[] = { TypeRow::make( 0, 0, 16, 8, noType, 0, 0, 3 ) };

constexpr AttrRow attrs[] = {
   AttrRow::makeConstant( attrId( "invasiveConst" ),
      attrBit( AttrFlag::collectionForm ) | attrBit( AttrFlag::isFunction ) |
         attrBit( AttrFlag::constantForm ),
      invasiveConstName, u32, 0 ),
   AttrRow::make(
      attrId( "mystery" ), attrBit( AttrFlag::readable ), mysteryName, noType, noType, 0, 0 ),
   AttrRow::makeConstant( attrId( "constant" ),
      attrBit( AttrFlag::constantForm ) | attrBit( AttrFlag::isStatic ), constantName, u32, 1 ),
};

constexpr ArgRow noArgs[1] = {};

constexpr PtrOps ptrOps = {};
constexpr TypeImpl impls[] = { { nullptr, nullptr,
   []( void const*, bool ) -> Ptr< GenericIf > {
      throw NoImplementationException( "there is no object of Odd::Raw" );
   },
   nullptr, nullptr, &ptrOps } };

} // namespace

constinit Kel::KelModule const _Odd_Raw_kelModule = { types, attrs, noArgs, typeNames, attrNames,
   nullptr, impls, 1 };

namespace {
[[maybe_unused]] bool const registered = ( kelModuleIs( &_Odd_Raw_kelModule ), true );
} // namespace

} // namespace Odd
