// Handles on the types of the runtime: small values on immutable schema rows. Everything here is
// read with no lock, unless said otherwise.
#pragma once

#include <boost/container/small_vector.hpp>
#include <functional>
#include <vector>

#include <kel/Export.h>
#include <kel/KelModule.h>
#include <kel/Ptr.h>

namespace Kel {

class GenericIf;
class GenericIfRef;
class KelAttr;
class KelType;

// What a generic operation does (GenericIf::AttributeOp). 0 to 10 are operations of an attribute,
// 11 to 22 of a value, the others of this runtime alone.
enum class AttributeOp : std::uint8_t {
   get = 0,
   set = 1,
   del = 2,
   members = 3,
   version = 4,
   exist = 5,
   add = 6,
   remove = 7,
   front = 8,
   back = 9,
   call = 10,
   operatorBool_ = 11,
   operatorEqual_ = 12,
   operatorLess_ = 13,
   operatorPlus_ = 14,
   operatorMinus_ = 15,
   operatorMult_ = 16,
   operatorDiv_ = 17,
   operatorMod_ = 18,
   operatorAnd_ = 19,
   operatorOr_ = 20,
   operatorXor_ = 21,
   operatorCompl_ = 22,
   iterate = 23,
   unionAlternative = 24,
   gnmiJsonString = 25,
};

// Arguments of a constructor or a function, in order; eight stay in place.
using ArgVector = boost::container::small_vector< Ptr< GenericIf const >, 8 >;

class KEL_API KelTypeBase {
 public:
   constexpr KelTypeBase() = default;
   constexpr KelTypeBase( KelModule const* module, std::uint16_t typeIndex )
      : module_( module ), typeIndex_( typeIndex ) {}
   constexpr explicit KelTypeBase( TypeRef const& ref )
      : module_( ref.module ), typeIndex_( ref.typeIndex ) {}

   constexpr explicit operator bool() const { return module_ != nullptr; }
   friend constexpr bool operator==( KelTypeBase const& a, KelTypeBase const& b ) {
      return a.module_ == b.module_ && a.typeIndex_ == b.typeIndex_;
   }
   constexpr KelModule const* module() const { return module_; }
   constexpr std::uint16_t typeIndex() const { return typeIndex_; }

   TypeRow const& row() const { return module_->typeRows[typeIndex_]; }
   TypeImpl const& impl() const;
   char const* fullTypeName() const { return module_->typeNamePool + row().nameOffset(); }
   std::uint32_t size() const { return row().size(); }   // bytes
   std::uint32_t align() const { return row().align(); } // bytes

   bool isValue() const { return row().flag( TypeFlag::isValue ); }
   bool isBuiltinType() const { return row().flag( TypeFlag::isBuiltinType ); }
   bool isEnumType() const { return row().flag( TypeFlag::isEnumType ); }
   bool isBitSetType() const { return isValue() && row().flag( TypeFlag::isBitSetOrConstrainer ); }
   bool isConstrainer() const {
      return !isValue() && row().flag( TypeFlag::isBitSetOrConstrainer );
   }
   bool hasOwnPtrInterface() const { return row().flag( TypeFlag::hasOwnPtrInterface ); }
   bool isUnionType() const { return row().flag( TypeFlag::isUnionType ); }
   bool flag( TypeFlag which ) const { return row().flag( which ); }

   // The declared base; null for an enum type and for a type that declares none.
   KelType baseType() const;
   // The type that the row's reference names: base or underlying type.
   KelType referencedType() const;

   // The attribute of that name or id, on the type or its bases, with the index of the type that
   // declares it; null if there is none.
   KelAttr attr( char const* name ) const;
   KelAttr attr( AttributeId id ) const;
   // Number of attributes, inherited ones included.
   std::uint32_t attributes() const;
   // Number of constructor arguments, and their rows up to one whose name offset is 0.
   std::uint32_t constructorArgNames() const;
   ArgRow const* constructorArgs() const { return module_->argRows + row().firstCtorArg; }

   // True if `type` stands in this type's chain, which starts with the type itself.
   bool isDerived( KelTypeBase type ) const { return *this == type || isDerivedFromOther( type ); }
   bool isEntity() const;
   bool isKelDir() const;

   [[noreturn]] void throwNotEnumTypeException() const;
   [[noreturn]] void throwEnumAttrWrongTypeException( KelTypeBase wanted ) const;

   // Walks all attributes of a type, those of its bases first. The present one is that of the last
   // frame, at the frame's first attribute plus the running index; no frame is the end.
   class KEL_API AttributeQIterator {
    public:
      struct Frame {
         KelModule const* module;
         std::uint16_t typeIndex;
      };
      explicit AttributeQIterator( KelTypeBase type );
      explicit operator bool() const { return !frames_.empty(); }
      AttributeQIterator& operator++();
      KelAttr operator*() const;
      boost::container::small_vector< Frame, 8 > const& frames() const { return frames_; }
      std::uint32_t index() const { return index_; }

    private:
      void skipEmptyFrames();

      boost::container::small_vector< Frame, 8 > frames_;
      std::uint32_t index_ = 0;
   };

 protected:
   KelModule const* module_ = nullptr;
   std::uint16_t typeIndex_ = 0;

 private:
   bool isDerivedFromOther( KelTypeBase type ) const;
};

class KEL_API KelType : public KelTypeBase {
 public:
   using KelTypeBase::attr;
   using KelTypeBase::KelTypeBase;
   constexpr explicit KelType( KelTypeBase const& base ) : KelTypeBase( base ) {}

   // Null unless this is an enum type.
   KelType underlyingType() const;
   // The third attribute of a directory type's own block; null for other types.
   KelAttr defaultCollection() const;
   // The first attribute of the last type in the chain that is flagged as having a value attribute.
   KelAttr valAttr() const;
   // The constant of that value in an enum type whose underlying type is T, the first in the
   // iterator's order; null if there is none. T is one of the eight integer types.
   template< class T >
   requires std::is_integral_v< T > KelAttr attr( T value )
   const;

   // All of these need the activity lock where they reach a runtime object. They throw what the
   // constructed class throws, Kel::NoImplementationException for a type that cannot be made so,
   // and Kel::TypeException for arguments that do not fit.

   // An instance made from constructor arguments.
   Ptr< GenericIf > genericIf( ArgVector const& args, bool isConst ) const;
   // For a value type a new value, copied from the address, default for null. For a pointer type a
   // view of the object at the address, seen as this type.
   Ptr< GenericIf > genericIf( void const* address, bool isConst ) const;
   // A view of an object by its dynamic type; null for null.
   static Ptr< GenericIf > genericIf( PtrInterface* object, bool isConst );

   // Arithmetic and comparison of two values of this type, or of one where `rhs` is null. Throws
   // Kel::OpNotSupportedException where the C++ type lacks the operation.
   Ptr< GenericIf > genericIfArithmeticOp(
      GenericIfRef lhs, AttributeOp op, GenericIfRef rhs ) const;
   bool genericIfBooleanOp( GenericIfRef lhs, AttributeOp op, GenericIfRef rhs ) const;
};

// The type of that full name. Throws Kel::NoTypeNodeException. Needs no lock.
KEL_API KelType typeNode( char const* name );
// The same without an exception: null if there is none.
KEL_API KelType typeNodeOrNull( char const* name );
// The full names of all registered types, in order of name.
KEL_API std::vector< char const* > typeNames();

constexpr KelType builtinType( BuiltinType index ) {
   return KelType( &_Kel_BuiltinType_kelModule, static_cast< std::uint16_t >( index ) );
}

// Resolves a signed type reference of a record's row; null if it names no type.
inline KelType resolveTypeRef( KelModule const* module, std::int16_t ref ) {
   return KelType( ref >= 0 ? module->referencedTypes[ref] : Impl::coreTypes_[~ref] );
}

inline KelType KelTypeBase::referencedType() const {
   return resolveTypeRef( module_, row().typeRef );
}

inline KelType KelTypeBase::baseType() const {
   return isEnumType() ? KelType() : referencedType();
}

inline KelType KelType::underlyingType() const {
   return isEnumType() ? referencedType() : KelType();
}

} // namespace Kel

template<>
struct std::hash< Kel::KelType > {
   std::size_t operator()( Kel::KelType const& type ) const noexcept {
      return reinterpret_cast< std::size_t >( &type.row() );
   }
};
