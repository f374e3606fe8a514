#include <kel/KelType.h>

#include <cstring>

#include <kel/Dir.h>
#include <kel/Entity.h>
#include <kel/Exception.h>
#include <kel/KelAttr.h>
#include <kel/TypeImpl.h>

namespace Kel {

namespace {

// The first own attribute of the type or of a base for which `matches` holds.
template< class Matches >
KelAttr findAttr( KelType type, Matches matches ) {
   for( ; type; type = type.baseType() ) {
      auto const& row = type.row();
      for( std::uint16_t i = 0; i < row.attrCount; ++i ) {
         auto index = static_cast< std::uint16_t >( row.firstAttr + i );
         KelAttr attr( type.module(), type.typeIndex(), index );
         if( matches( attr ) ) {
            return attr;
         }
      }
   }
   return KelAttr();
}

} // namespace

KelAttr KelTypeBase::attr( char const* name ) const {
   return findAttr(
      KelType( *this ), [name]( KelAttr attr ) { return std::strcmp( attr.name(), name ) == 0; } );
}

KelAttr KelTypeBase::attr( AttributeId id ) const {
   return findAttr( KelType( *this ), [id]( KelAttr attr ) { return attr.attributeId() == id; } );
}

std::uint32_t KelTypeBase::attributes() const {
   std::uint32_t count = 0;
   for( KelType type( *this ); type; type = type.baseType() ) {
      count += type.row().attrCount;
   }
   return count;
}

namespace {

std::uint32_t countArgs( ArgRow const* row ) {
   std::uint32_t count = 0;
   while( row[count].nameOffset() ) {
      ++count;
   }
   return count;
}

} // namespace

std::uint32_t KelTypeBase::constructorArgNames() const {
   return countArgs( constructorArgs() );
}

std::uint32_t KelAttrBase::instantiatingArgNames() const {
   return isEnumConst() ? 0 : countArgs( args() );
}

bool KelTypeBase::isDerivedFromOther( KelTypeBase type ) const {
   for( KelType base = baseType(); base; base = base.baseType() ) {
      if( base == type ) {
         return true;
      }
   }
   return false;
}

bool KelTypeBase::isEntity() const {
   return isDerived( kelType< Entity >() );
}

bool KelTypeBase::isKelDir() const {
   return isDerived( kelType< Dir >() );
}

KelAttr KelType::defaultCollection() const {
   if( !isKelDir() ) {
      return KelAttr();
   }
   return KelAttr( module_, typeIndex_, static_cast< std::uint16_t >( row().firstAttr + 2 ) );
}

KelAttr KelType::valAttr() const {
   if( !flag( TypeFlag::hasValAttr ) ) {
      return KelAttr();
   }
   KelType type = *this;
   while( !type.isEnumType() && type.baseType() ) {
      type = type.baseType();
   }
   TypeRow const& row = type.row();
   return row.attrCount ? KelAttr( type.module_, type.typeIndex_, row.firstAttr ) : KelAttr();
}

void KelTypeBase::throwNotEnumTypeException() const {
   throw TypeException( _fmt( "%s is not an enum type", fullTypeName() ) );
}

void KelTypeBase::throwEnumAttrWrongTypeException( KelTypeBase wanted ) const {
   throw TypeException( _fmt( "the underlying type of %s is %s, not %s", fullTypeName(),
      KelType( *this ).underlyingType().fullTypeName(), wanted.fullTypeName() ) );
}

KelTypeBase::AttributeQIterator::AttributeQIterator( KelTypeBase type ) {
   for( KelType at( type ); at; at = at.baseType() ) {
      frames_.push_back( { at.module(), at.typeIndex() } );
   }
   skipEmptyFrames();
}

KelTypeBase::AttributeQIterator& KelTypeBase::AttributeQIterator::operator++() {
   ++index_;
   skipEmptyFrames();
   return *this;
}

KelAttr KelTypeBase::AttributeQIterator::operator*() const {
   auto const& frame = frames_.back();
   auto first = frame.module->typeRows[frame.typeIndex].firstAttr;
   return KelAttr( frame.module, frame.typeIndex, static_cast< std::uint16_t >( first + index_ ) );
}

void KelTypeBase::AttributeQIterator::skipEmptyFrames() {
   while( !frames_.empty() ) {
      auto const& frame = frames_.back();
      if( index_ < frame.module->typeRows[frame.typeIndex].attrCount ) {
         return;
      }
      frames_.pop_back();
      index_ = 0;
   }
}

Ptr< GenericIf > KelType::genericIf( ArgVector const& args, bool isConst ) const {
   auto* construct = impl().construct;
   if( !construct ) {
      throw NoImplementationException( _fmt( "%s cannot be constructed", fullTypeName() ) );
   }
   return construct( args, isConst );
}

Ptr< GenericIf > KelType::genericIf( void const* address, bool isConst ) const {
   return impl().fromAddress( address, isConst );
}

namespace {

constexpr AttributeOp firstBoolean = AttributeOp::operatorBool_;
constexpr AttributeOp firstArithmetic = AttributeOp::operatorPlus_;
constexpr AttributeOp lastOperation = AttributeOp::operatorCompl_;

constexpr unsigned distance( AttributeOp from, AttributeOp to ) {
   return static_cast< unsigned >( to ) - static_cast< unsigned >( from );
}

[[noreturn]] void throwNoOperation( KelTypeBase type, AttributeOp op ) {
   static constexpr char const* names[] = { "truth", "==", "<", "+", "-", "*", "/", "%", "&", "|",
      "^", "~" };
   throw OpNotSupportedException( _fmt( "%s does not support the operation %s", type.fullTypeName(),
      op >= firstBoolean && op <= lastOperation ? names[distance( firstBoolean, op )]
                                                : "asked for" ) );
}

void const* operand( KelTypeBase type, GenericIfRef generic ) {
   if( !generic ) {
      return nullptr;
   }
   if( !generic->type().isDerived( type ) ) {
      throwWrongType( KelType( type ), generic.get() );
   }
   return generic->voidPtrIs( type );
}

} // namespace

Ptr< GenericIf > KelType::genericIfArithmeticOp(
   GenericIfRef lhs, AttributeOp op, GenericIfRef rhs ) const {
   auto const* ops = impl().value;
   auto* run = ops && op >= firstArithmetic && op <= lastOperation
                  ? ops->arithmetic[distance( firstArithmetic, op )]
                  : nullptr;
   bool isUnary = op == lastOperation;
   if( !run || !lhs || isUnary != !rhs ) {
      throwNoOperation( *this, op );
   }
   return run( operand( *this, lhs ), operand( *this, rhs ) );
}

bool KelType::genericIfBooleanOp( GenericIfRef lhs, AttributeOp op, GenericIfRef rhs ) const {
   auto const* ops = impl().value;
   auto* run = ops && op >= firstBoolean && op < firstArithmetic
                  ? ops->boolean[distance( firstBoolean, op )]
                  : nullptr;
   bool isUnary = op == firstBoolean;
   if( !run || !lhs || isUnary != !rhs ) {
      throwNoOperation( *this, op );
   }
   return run( operand( *this, lhs ), operand( *this, rhs ) );
}

} // namespace Kel
