#include <kel/GenericIf.h>

#include <cstddef>
#include <cstring>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kel/KelAttr.h>
#include <kel/Notifiee.h>
#include <kel/TypeImpl.h>
#include <kel/schema/Convert.h>

namespace Kel {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
// The layout that users of the runtime read without a call.
struct GenericIfLayout {
   static_assert( offsetof( GenericIf, word_ ) == 8 );
   static_assert( offsetof( GenericIf, isConst_ ) == 12 );
   static_assert( offsetof( GenericIf, module_ ) == 16 );
   static_assert( offsetof( GenericIf, typeIndex_ ) == 24 );
   static_assert( sizeof( GenericIf ) == 40 );
};
#pragma GCC diagnostic pop

GenericIfRaw::IteratorImpl::~IteratorImpl() = default;

PtrInterface* GenericIf::ptrInterface() const noexcept {
   return nullptr;
}

std::uint32_t GenericIf::references() const noexcept {
   PtrInterface const* object = ptrInterface();
   return object ? object->references() : 0;
}

void* GenericIf::baseAddress( KelTypeBase type ) const noexcept {
   void* address = address_;
   for( KelType at = this->type(); address; at = at.baseType() ) {
      if( at == type ) {
         return address;
      }
      auto* toBase = at.impl().toBase;
      if( !toBase ) {
         // Every object is a PtrInterface, declared as its base or not.
         return type == kelType< PtrInterface >() ? ptrInterface() : nullptr;
      }
      address = toBase( address );
   }
   return nullptr;
}

namespace {

// A view of a counted object, as its dynamic type, on which it holds a reference. The object begins
// with its PtrInterface, so one address serves for both.
class ObjectGeneric final : public GenericIf {
 public:
   ObjectGeneric( KelType type, Ptr< PtrInterface > object, bool isConst )
      : GenericIf( type, object.release(), isConst, Kind::object ) {}
   ~ObjectGeneric() override { Ptr< PtrInterface >::adopt( ptrInterface() ); }

   PtrInterface* ptrInterface() const noexcept override {
      return const_cast< PtrInterface* >( attrValPtr< PtrInterface >() );
   }
};

} // namespace

Ptr< GenericIf > KelType::genericIf( PtrInterface* object, bool isConst ) {
   if( !object ) {
      return nullptr;
   }
   KelType const type = object->fwkType();
   KEL_ASSERT( type.impl().ptr->fromPtrInterface( object ) == object );
   return new ObjectGeneric( type, object, isConst );
}

namespace {

// Calls f( attr ) for the attributes that make up a value: its independent domain, of a union only
// the live one.
template< class F >
void forDomain( GenericIf const* value, F f ) {
   KelType type = value->type();
   for( KelTypeBase::AttributeQIterator it( type ); it; ++it ) {
      KelAttr attr = *it;
      if( attr.flag( AttrFlag::isIndependentDomainAttr ) &&
          ( !type.isUnionType() || attr.genericIfUnionAlternative( value ) ) ) {
         f( attr );
      }
   }
}

std::uint64_t combine( std::uint64_t seed, std::uint64_t hash ) {
   return seed ^ ( hash + 0x9e3779b97f4a7c15u + ( seed << 6 ) + ( seed >> 2 ) );
}

String enumText( GenericIf const* value ) {
   KelType type = value->type();
   for( KelTypeBase::AttributeQIterator it( type ); it; ++it ) {
      KelAttr attr = *it;
      Ptr< GenericIf > constant = attr.genericIfGet( nullptr, nullptr );
      if( std::memcmp( constant->attrValPtr< char >(), value->attrValPtr< char >(), type.size() ) ==
          0 ) {
         return attr.name();
      }
   }
   KelType underlying = type.underlyingType();
   auto number = underlying.genericIf( value->attrValPtr< void >(), true );
   return _fmt( "%s(%s)", type.fullTypeName(), number->strRep().charPtr() );
}

// "T(a=1, b=2)" of the attributes that make up the value.
String domainText( GenericIf const* value ) {
   String text = _fmt( "%s(", value->type().fullTypeName() );
   char const* separator = "";
   forDomain( value, [&]( KelAttr attr ) {
      auto member = attr.genericIfGet( value, nullptr );
      text += _fmt( "%s%s=", separator, attr.name() );
      text += member ? member->strRep() : String( "None" );
      separator = ", ";
   } );
   text += ")";
   return text;
}

} // namespace

std::uint64_t GenericIf::hash() const {
   if( kind_ != Kind::value ) {
      // Aligned addresses differ above their low bits.
      void const* object =
         kind_ == Kind::object ? static_cast< void* >( ptrInterface() ) : address_;
      return reinterpret_cast< std::uintptr_t >( object ) >> 4;
   }
   if( auto* hash = type().impl().value->hash ) {
      return hash( address_ );
   }
   std::uint64_t hash = typeIndex_;
   forDomain( this, [&]( KelAttr attr ) {
      auto member = attr.genericIfGet( this, nullptr );
      hash = combine( hash, member ? member->hash() : 0 );
   } );
   return hash;
}

String GenericIf::strRep() const {
   auto const& impl = type().impl();
   if( kind_ != Kind::value ) {
      if( address_ && impl.ptr->strRep ) {
         return impl.ptr->strRep( address_ );
      }
      return _fmt( "generic(0x%016lx)", reinterpret_cast< unsigned long >( address_ ) );
   }
   if( type().isEnumType() ) {
      return enumText( this );
   }
   return impl.value->strRep ? impl.value->strRep( address_ ) : domainText( this );
}

std::string GenericIf::gnmiStrRep() const {
   auto const* ops = type().impl().value;
   if( ops && ops->gnmiStrRep ) {
      return ops->gnmiStrRep( address_ );
   }
   return strRep().stdString();
}

std::vector< unsigned char > GenericIf::gnmiByterep() const {
   auto const* ops = type().impl().value;
   if( ops && ops->gnmiByterep ) {
      return ops->gnmiByterep( address_ );
   }
   std::string text = gnmiStrRep();
   return std::vector< unsigned char >( text.begin(), text.end() );
}

} // namespace Kel
