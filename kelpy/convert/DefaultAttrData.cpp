#include <kelpy/convert/DefaultAttrData.h>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kel/schema/Types.h>
#include <kelpy/core/TypeCache.h>

namespace {

TypeCache< DefaultAttrData > defaultAttrs_; // guarded by the GIL

// The value attribute of a type whose only attribute of its independent domain it is, else null.
Kel::KelAttr implicitDefaultAttr( Kel::KelType const& type ) {
   Kel::KelAttr valAttr = type.valAttr();
   if( !valAttr ) {
      if( !type.isDerived( Kel::kelType< Kel::String >() ) ) {
         return {};
      }
      KEL_ASSERT( type.isDerived( Kel::kelType< Kel::String >() ) );
      valAttr = type.attr( "value" );
      KEL_ASSERT( valAttr );
   }
   unsigned domainAttrs = 0;
   for( Kel::KelType::AttributeQIterator i( type ); i; ++i ) {
      if( ( *i ).flag( Kel::AttrFlag::isIndependentDomainAttr ) && ++domainAttrs > 1 ) {
         return {};
      }
   }
   bool const isOnlyOne =
      domainAttrs == 1 && valAttr.flag( Kel::AttrFlag::isIndependentDomainAttr );
   return isOnlyOne ? valAttr : Kel::KelAttr();
}

DefaultAttrData makeDefaultAttrData( Kel::KelType const& type ) {
   if( auto const attr = findDefaultAttr( type, "defaultAttribute", Kel::KelType() ) ) {
      return { attr, attr, false };
   }
   if( auto const attr =
          findDefaultAttr( type, "defaultReprAttribute", Kel::kelType< Kel::String >() ) ) {
      return { attr, attr, true };
   }
   auto const attr = implicitDefaultAttr( type );
   return { attr, attr, false };
}

} // namespace

Kel::KelAttr findDefaultAttr(
   Kel::KelType const& type, char const* declaration, Kel::KelType requiredType ) {
   Kel::KelAttr const declared = type.attr( declaration );
   if( !declared ) {
      return {};
   }
   if( !declared.isStatic() || declared.flag( Kel::AttrFlag::collectionForm ) ||
       declared.isFunction() || declared.memberType() != Kel::kelType< Kel::String >() ) {
      throw Kel::TypeException(
         Kel::_fmt( "illegal %s in type %s", declaration, type.fullTypeName() ) );
   }
   auto const generic = declared.genericIfGet( nullptr, nullptr );
   Kel::String const& name = *generic->attrValPtr< Kel::String >();
   Kel::KelAttr const attr = type.attr( name.charPtr() );
   if( !attr ) {
      throw Kel::TypeException( Kel::_fmt(
         "%s '%s' not found in type %s", declaration, name.charPtr(), type.fullTypeName() ) );
   }
   if( requiredType && attr.memberType() != requiredType ) {
      throw Kel::TypeException( Kel::_fmt( "%s '%s' in type %s not of required type %s",
         declaration, name.charPtr(), type.fullTypeName(), requiredType.fullTypeName() ) );
   }
   return attr;
}

DefaultAttrData const& defaultAttrData( Kel::KelType const& type ) {
   static constinit DefaultAttrData const none;
   if( !type.isValue() ) {
      return none;
   }
   auto const* const found = defaultAttrs_.find( type );
   return found ? *found : defaultAttrs_.add( type, makeDefaultAttrData( type ) );
}
