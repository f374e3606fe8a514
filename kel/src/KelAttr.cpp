#include <kel/KelAttr.h>

#include <array>

#include <kel/Exception.h>
#include <kel/TypeImpl.h>
#include <kel/schema/CollectionBinding.h>

namespace Kel {

KelAttr KelAttrBase::indexAttr() const {
   if( isEnumConst() || !row().indexNameOffset() ) {
      return KelAttr();
   }
   KelType member = memberType();
   return member ? member.attr( module_->attrNamePool + row().indexNameOffset() ) : KelAttr();
}

String fullAttrName( KelAttrBase attr ) {
   return _fmt( "%s.%s", attr.scope().fullTypeName(), attr.name() );
}

void KelAttrBase::throwNotEnumConstantException() const {
   throw TypeException( _fmt( "%s::%s is not an enum constant", scope().fullTypeName(), name() ) );
}

void KelAttrBase::throwEnumValueWrongUnderlyingTypeException( KelTypeBase wanted ) const {
   throw TypeException( _fmt( "%s::%s is not a constant of underlying type %s",
      scope().fullTypeName(), name(), wanted.fullTypeName() ) );
}

namespace {

constexpr char const* opNames[] = { "read", "write", "delete", "members", "version", "exist", "add",
   "remove", "front", "back", "call", "", "", "", "", "", "", "", "", "", "", "", "", "iterate",
   "union alternative", "gNMI JSON text" };

[[noreturn]] void throwNotApplicable( KelAttr attr, AttributeOp op ) {
   throw OpNotSupportedException( _fmt( "%s does not support the operation '%s'",
      fullAttrName( attr ).charPtr(), opNames[static_cast< unsigned >( op )] ) );
}

// Whether the row stands in the type's own block.
bool holds( TypeRow const& row, KelAttr const& attr ) {
   return static_cast< unsigned >( attr.attrIndex() - row.firstAttr ) < row.attrCount;
}

// The type whose own block holds the row of a handle that was made for another type of the record.
[[gnu::noinline]] KelType findOwner( KelAttr attr ) {
   auto const* module = attr.module();
   for( std::uint16_t i = 0; i < module->types; ++i ) {
      if( holds( module->typeRows[i], attr ) ) {
         return KelType( module, i );
      }
   }
   throw InternalException( _fmt( "%s belongs to no type", fullAttrName( attr ).charPtr() ) );
}

[[noreturn]] void throwNoObject( KelAttr attr, KelType owner, GenericIfRef object ) {
   if( object && !object->type().isDerived( owner ) ) {
      throwWrongType( owner, object.get() );
   }
   throw TypeException( _fmt( "%s needs an object", fullAttrName( attr ).charPtr() ) );
}

// Where the part of a base stands in an object, kept for the pairs of types asked for last. Bases
// are not virtual, so a pair has one distance. Activity lock.
class RecentBases {
 public:
   // The object or value seen as `base`; null if that is no base of its type.
   void* address( GenericIf const* generic, KelType const& base ) {
      KelType const type = generic->type();
      auto* const own = const_cast< char* >( generic->attrValPtr< char >() );
      Recent& recent = recent_[place( type, base )];
      if( recent.type == type && recent.base == base ) [[likely]] {
         return own + recent.distance;
      }
      auto* const found = static_cast< char* >( generic->voidPtrIs( base ) );
      if( found ) {
         recent = { type, base, found - own };
      }
      return found;
   }

 private:
   struct Recent {
      KelType type;
      KelType base;
      std::ptrdiff_t distance = 0;
   };

   static constexpr std::size_t places = 256;

   static std::size_t place( KelType const& type, KelType const& base ) {
      auto const record = reinterpret_cast< std::uintptr_t >( type.module() );
      return ( ( record >> 5 ) + type.typeIndex() * 8u + base.typeIndex() ) % places;
   }

   std::array< Recent, places > recent_;
};

constinit RecentBases recentBases;

void* baseAddressAs( KelType const& owner, GenericIf const* generic ) {
   return generic->kind() == GenericIf::Kind::ownPtr ? generic->voidPtrIs( owner )
                                                     : recentBases.address( generic, owner );
}

// Handles go by reference here: a copy of one just made, as a whole, waits for its parts to arrive
// in memory.
[[gnu::always_inline]] inline void* addressAs( KelType const& owner, GenericIf const* generic ) {
   return generic->type() == owner ? const_cast< char* >( generic->attrValPtr< char >() )
                                   : baseAddressAs( owner, generic );
}

// Finds the object as the attribute's owner sees it, and runs the attribute's operation. Reads and
// writes, the common operations, have it in their own body.
[[gnu::always_inline]] inline void runHere(
   KelAttr const& attr, AttrCall& call, GenericIfRef object ) {
   KelType owner = attr.scope();
   if( !holds( owner.row(), attr ) ) [[unlikely]] {
      owner = findOwner( attr );
   }
   if( !attr.isStatic() ) {
      call.view = object.get();
      call.object = object ? addressAs( owner, object.get() ) : nullptr;
      if( !call.object ) [[unlikely]] {
         throwNoObject( attr, owner, object );
      }
   }
   auto const* ops = owner.impl().attrOps;
   auto* op = ops ? ops[attr.attrIndex() - owner.row().firstAttr] : nullptr;
   if( !op || op( call ) != attrOpDone ) {
      throwNotApplicable( attr, call.op );
   }
}

void run( KelAttr const& attr, AttrCall& call, GenericIfRef object ) {
   runHere( attr, call, object );
}

[[noreturn]] void throwNotReadable( KelAttr attr ) {
   throw NoImplementationException(
      _fmt( "attribute %s is not readable", fullAttrName( attr ).charPtr() ) );
}

// A change must be allowed by the attribute and by the view of the object. What a collection lets
// its members do is its container's affair.
void requireChange( KelAttr attr, GenericIfRef object ) {
   if( !attr.writable() && !attr.isCollection() ) {
      throw NoImplementationException(
         _fmt( "attribute %s is not writable", fullAttrName( attr ).charPtr() ) );
   }
   if( object && object->isConst() && !attr.isStatic() ) {
      throw ConstException(
         _fmt( "cannot change %s of a const object", fullAttrName( attr ).charPtr() ) );
   }
}

// An enum constant's own value: as wide as the underlying type, from the row.
Ptr< GenericIf > constantValue( KelAttr attr ) {
   auto bits = attr.row().enumBits< std::uint64_t >();
   return attr.scope().genericIf( &bits, true );
}

} // namespace

int attributeOp( KelType type, AttributeId id, AttrCall& call ) {
   auto const& row = type.row();
   for( std::uint16_t i = 0; i < row.attrCount; ++i ) {
      auto index = static_cast< std::uint16_t >( row.firstAttr + i );
      if( type.module()->attrRows[index].id == id ) {
         call.attr = KelAttr( type.module(), type.typeIndex(), index );
         auto const* ops = type.impl().attrOps;
         return ops && ops[i] ? ops[i]( call ) : attrOpNotApplicable;
      }
   }
   return attrOpNotOwn;
}

Ptr< GenericIf > KelAttr::genericIfGet( GenericIfRef object, GenericIfRef key ) const {
   if( flag( AttrFlag::constantForm ) && isEnumConst() ) [[unlikely]] {
      return constantValue( *this );
   }
   if( !readable() ) [[unlikely]] {
      throwNotReadable( *this );
   }
   AttrCall call{ .attr = *this, .op = AttributeOp::get, .key = key.get() };
   runHere( *this, call, object );
   return std::move( call.result );
}

void KelAttr::genericIfSet( GenericIfRef object, GenericIfRef key, GenericIfRef value ) const {
   requireChange( *this, object );
   AttrCall call{ .attr = *this, .op = AttributeOp::set, .key = key.get(), .value = value.get() };
   runHere( *this, call, object );
}

Ptr< GenericIf > KelAttr::genericIfSet( GenericIfRef object, ArgVector const& args ) const {
   requireChange( *this, object );
   AttrCall call{ .attr = *this, .op = AttributeOp::set, .args = &args };
   run( *this, call, object );
   return std::move( call.result );
}

bool KelAttr::genericIfDel( GenericIfRef object, GenericIfRef key ) const {
   requireChange( *this, object );
   AttrCall call{ .attr = *this, .op = AttributeOp::del, .key = key.get() };
   run( *this, call, object );
   return call.flag;
}

bool KelAttr::genericIfExist( GenericIfRef object, GenericIfRef key ) const {
   AttrCall call{ .attr = *this, .op = AttributeOp::exist, .key = key.get() };
   run( *this, call, object );
   return call.flag;
}

void KelAttr::genericIfAdd( GenericIfRef object, GenericIfRef value ) const {
   requireChange( *this, object );
   AttrCall call{ .attr = *this, .op = AttributeOp::add, .value = value.get() };
   run( *this, call, object );
}

Ptr< GenericIf > KelAttr::genericIfRemove( GenericIfRef object ) const {
   requireChange( *this, object );
   AttrCall call{ .attr = *this, .op = AttributeOp::remove };
   run( *this, call, object );
   return std::move( call.result );
}

Ptr< GenericIf > KelAttr::genericIfFront( GenericIfRef object ) const {
   AttrCall call{ .attr = *this, .op = AttributeOp::front };
   run( *this, call, object );
   return std::move( call.result );
}

Ptr< GenericIf > KelAttr::genericIfBack( GenericIfRef object ) const {
   AttrCall call{ .attr = *this, .op = AttributeOp::back };
   run( *this, call, object );
   return std::move( call.result );
}

GenericIf::Iterator KelAttr::genericIfIterator( GenericIfRef object ) const {
   GenericIfRaw::Iterator iterator;
   AttrCall call{ .attr = *this, .op = AttributeOp::iterate, .iterator = &iterator };
   run( *this, call, object );
   return GenericIf::Iterator( Ptr< GenericIf const >( object.get() ), std::move( iterator ) );
}

std::uint32_t KelAttr::genericIfMembers( GenericIfRef object ) const {
   AttrCall call{ .attr = *this, .op = AttributeOp::members };
   run( *this, call, object );
   return call.count;
}

std::uint32_t KelAttr::genericIfVersion( GenericIfRef object ) const {
   AttrCall call{ .attr = *this, .op = AttributeOp::version };
   run( *this, call, object );
   return call.count;
}

Ptr< GenericIf > KelAttr::genericIfCall( GenericIfRef object, ArgVector const& args ) const {
   AttrCall call{ .attr = *this, .op = AttributeOp::call, .args = &args };
   run( *this, call, object );
   return std::move( call.result );
}

bool KelAttr::genericIfUnionAlternative( GenericIfRef object ) const {
   AttrCall call{ .attr = *this, .op = AttributeOp::unionAlternative };
   run( *this, call, object );
   return call.flag;
}

String KelAttr::genericIfGnmiJsonString( GenericIfRef object ) const {
   String text;
   AttrCall call{ .attr = *this, .op = AttributeOp::gnmiJsonString, .text = &text };
   run( *this, call, object );
   return text;
}

void throwWrongType( KelType wanted, GenericIf const* got ) {
   throw TypeException(
      _fmt( "expected %s, got %s", wanted ? wanted.fullTypeName() : "a value of an unknown type",
         got ? got->type().fullTypeName() : "null" ) );
}

void throwConstPointer( KelType wanted ) {
   throw ConstException(
      _fmt( "expected a non-const %s, got a const one", wanted.fullTypeName() ) );
}

namespace Schema {

void throwConstCall( KelAttr attr ) {
   throw ConstException( _fmt(
      "cannot call the non-const function %s of a const object", fullAttrName( attr ).charPtr() ) );
}

void throwNoMember( KelAttr attr ) {
   throw RangeException( _fmt( "%s has no such member", fullAttrName( attr ).charPtr() ) );
}

void requireArgs( ArgVector const& args, std::size_t wanted ) {
   if( args.size() != wanted ) {
      throw TypeException( _fmt( "expected %zu arguments, got %zu", wanted, args.size() ) );
   }
}

} // namespace Schema

void throwEmptyCollection() {
   throw RangeException( "the collection is empty" );
}

void throwNoPosition( U32 position ) {
   throw RangeException( _fmt( "the collection has no member %u", position ) );
}

} // namespace Kel
