// Handles on the attributes of runtime types, and the generic operations on them. Reading a row
// needs no lock; the generic operations need the activity lock.
#pragma once

#include <kel/GenericIf.h>
#include <kel/KelType.h>
#include <kel/String.h>

namespace Kel {

class KEL_API KelAttrBase {
 public:
   constexpr KelAttrBase() = default;
   constexpr KelAttrBase(
      KelModule const* module, std::uint16_t typeIndex, std::uint16_t attrIndex )
      : module_( module ), typeIndex_( typeIndex ), attrIndex_( attrIndex ) {}

   constexpr explicit operator bool() const { return module_ != nullptr; }
   // One row seen from two scopes is one attribute.
   friend constexpr bool operator==( KelAttrBase const& a, KelAttrBase const& b ) {
      return a.module_ == b.module_ && a.attrIndex_ == b.attrIndex_;
   }
   constexpr KelModule const* module() const { return module_; }
   constexpr std::uint16_t typeIndex() const { return typeIndex_; }
   constexpr std::uint16_t attrIndex() const { return attrIndex_; }

   AttrRow const& row() const { return module_->attrRows[attrIndex_]; }
   bool flag( AttrFlag which ) const { return row().flag( which ); }
   KelType scope() const { return KelType( module_, typeIndex_ ); }
   char const* name() const { return module_->attrNamePool + row().nameOffset(); }
   AttributeId attributeId() const { return row().id; }
   // The member type; for a function its result type. Null if the reference names no type.
   KelType memberType() const { return resolveTypeRef( module_, row().memberType ); }
   // Null for an enum constant.
   KelType indexType() const {
      return isEnumConst() ? KelType() : resolveTypeRef( module_, row().indexType() );
   }
   // The member type's attribute that is the key of a collection with an internal index; else null.
   KelAttr indexAttr() const;

   bool isEnumConst() const { return row().isEnumConst(); }
   bool isCollection() const { return row().isCollection(); }
   bool isVector() const { return row().isVector(); }
   bool isInvasiveFunction() const { return row().isInvasiveFunction(); }
   bool isFunction() const { return flag( AttrFlag::isFunction ); }
   bool isStatic() const { return flag( AttrFlag::isStatic ); }
   bool instantiating() const { return flag( AttrFlag::instantiating ); }
   bool isOptionalValue() const { return flag( AttrFlag::isOptionalValue ); }
   bool isSet() const { return flag( AttrFlag::isSet ); }
   bool isQueueCollection() const { return flag( AttrFlag::isQueueCollection ); }
   bool isStackCollection() const { return flag( AttrFlag::isStackCollection ); }
   bool readable() const { return flag( AttrFlag::readable ); }
   bool writable() const { return flag( AttrFlag::writable ); }

   // Number of arguments of a function or an instantiating attribute, and their rows up to one
   // whose name offset is 0. An enum constant has none.
   std::uint32_t instantiatingArgNames() const;
   ArgRow const* args() const { return module_->argRows + row().firstArg(); }

   // The value of an enum constant whose type has the underlying type T; throws through the next
   // two.
   template< class T >
   T enumValue() const;
   [[noreturn]] void throwNotEnumConstantException() const;
   [[noreturn]] void throwEnumValueWrongUnderlyingTypeException( KelTypeBase wanted ) const;

 protected:
   KelModule const* module_ = nullptr;
   std::uint16_t typeIndex_ = 0;
   std::uint16_t attrIndex_ = 0;
};

// The generic operations. `object` is the object or value whose attribute is meant, null for a
// static attribute; `key` the member of a collection, null for a plain attribute. They throw what
// the class behind throws and beside that:
//   Kel::TypeException              an object, key or value of another type
//   Kel::ConstException             a change through a const view, a const pointer for a non-const
//   one Kel::NoImplementationException  a write of an attribute that is not writable, a read of one
//   that
//                                   is not readable
//   Kel::OpNotSupportedException    an operation that the attribute's kind does not have
//   Kel::RangeException             an ordered collection that is empty, a position it does not
//   have
class KEL_API KelAttr : public KelAttrBase {
 public:
   using KelAttrBase::KelAttrBase;

   // The value, or the member under the key; null for a null pointer or an absent optional value.
   // Values come as const copies. An enum constant gives itself.
   Ptr< GenericIf > genericIfGet( GenericIfRef object, GenericIfRef key ) const;
   void genericIfSet( GenericIfRef object, GenericIfRef key, GenericIfRef value ) const;
   // Makes the object of an instantiating attribute, or a member of an instantiating collection.
   Ptr< GenericIf > genericIfSet( GenericIfRef object, ArgVector const& args ) const;
   // True if a member went. With a null key: unsets an instantiating attribute.
   bool genericIfDel( GenericIfRef object, GenericIfRef key ) const;
   bool genericIfExist( GenericIfRef object, GenericIfRef key ) const;
   // Ordered collections: add at the end that the kind says, take from the other, look at either.
   void genericIfAdd( GenericIfRef object, GenericIfRef value ) const;
   Ptr< GenericIf > genericIfRemove( GenericIfRef object ) const;
   Ptr< GenericIf > genericIfFront( GenericIfRef object ) const;
   Ptr< GenericIf > genericIfBack( GenericIfRef object ) const;
   GenericIf::Iterator genericIfIterator( GenericIfRef object ) const;
   std::uint32_t genericIfMembers( GenericIfRef object ) const;
   std::uint32_t genericIfVersion( GenericIfRef object ) const;
   // Null for a function without result.
   Ptr< GenericIf > genericIfCall( GenericIfRef object, ArgVector const& args ) const;
   // For an attribute of a union type: is it the live alternative?
   bool genericIfUnionAlternative( GenericIfRef object ) const;
   String genericIfGnmiJsonString( GenericIfRef object ) const;
};

// "Acme::Item.size", for texts.
KEL_API String fullAttrName( KelAttrBase attr );

// The built-in type of one of the eight integer types.
template< class T >
constexpr KelType integerType() {
   unsigned width = sizeof( T ) == 1 ? 0 : sizeof( T ) == 2 ? 1 : sizeof( T ) == 4 ? 2 : 3;
   return KelType( &_Kel_BuiltinType_kelModule,
      static_cast< std::uint16_t >( 1 + 2 * width + std::is_signed_v< T > ) );
}

template< class T >
T KelAttrBase::enumValue() const {
   if( !isEnumConst() ) {
      throwNotEnumConstantException();
   }
   if( !( scope().underlyingType() == integerType< T >() ) ) {
      throwEnumValueWrongUnderlyingTypeException( integerType< T >() );
   }
   return row().enumBits< T >();
}

template< class T >
requires std::is_integral_v< T > KelAttr KelType::attr( T value )
const {
   if( !isEnumType() ) {
      throwNotEnumTypeException();
   }
   if( !( underlyingType() == integerType< T >() ) ) {
      throwEnumAttrWrongTypeException( integerType< T >() );
   }
   for( AttributeQIterator it( *this ); it; ++it ) {
      KelAttr constant = *it;
      if( constant.enumValue< T >() == value ) {
         return constant;
      }
   }
   return KelAttr();
}

} // namespace Kel

template<>
struct std::hash< Kel::KelAttr > {
   std::size_t operator()( Kel::KelAttr const& attr ) const noexcept {
      return reinterpret_cast< std::size_t >( &attr.row() );
   }
};
