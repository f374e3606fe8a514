// The implementation table of a unit: for each type how its instances are made, seen and operated
// on. The declaration language fills it; the generic operations call through it under the activity
// lock.
#pragma once

#include <string>
#include <vector>

#include <kel/GenericIf.h>
#include <kel/KelAttr.h>
#include <kel/KelType.h>

namespace Kel {

class Entity;

// One generic attribute operation: what is asked and where the answer goes.
struct AttrCall {
   KelAttr attr;
   GenericIf::AttributeOp op;
   void* object = nullptr; // seen as the attribute's scope type; null for a static attribute
   GenericIf const* view = nullptr; // the generic that `object` came from
   GenericIf const* key = nullptr;
   GenericIf const* value = nullptr;
   ArgVector const* args = nullptr;
   Ptr< GenericIf > result = nullptr;
   bool flag = false;                          // answer of del, exist and unionAlternative
   std::uint32_t count = 0;                    // answer of members and version
   GenericIfRaw::Iterator* iterator = nullptr; // where iterate puts its answer
   String* text = nullptr;                     // where gnmiJsonString puts its answer

   bool isConst() const { return view && view->isConst(); }
};

// What an attribute operation returns.
enum AttrOpResult : int { attrOpDone = 0, attrOpNotApplicable = 1, attrOpNotOwn = 2 };

// What the C++ type behind a value type can do; a null function is an operation that it lacks.
struct ValueOps {
   using BooleanFn = bool ( * )( void const*, void const* );
   using ArithmeticFn = Ptr< GenericIf > ( * )( void const*, void const* );

   BooleanFn boolean[3];       // truth, equal, less
   ArithmeticFn arithmetic[9]; // operations 14 to 22
   std::uint64_t ( *hash )( void const* );
   String ( *strRep )( void const* );
   std::string ( *gnmiStrRep )( void const* );
   std::vector< unsigned char > ( *gnmiByterep )( void const* );
};

// How an object of a pointer type is reached; the addresses are those of the type itself.
struct PtrOps {
   void* ( *fromPtrInterface )( PtrInterface* ); // null for a type with its own pointer interface
   PtrInterface* ( *toPtrInterface )( void* );   // likewise
   void ( *acquire )( void* );                   // for its own pointer interface only
   void ( *release )( void* );
   Ptr< Entity > ( *newEntity )( String const& name ); // for entity types that can be made so
   String ( *strRep )( void const* );
};

struct TypeImpl {
   using AttrOpFn = int ( * )( AttrCall& );

   AttrOpFn const* attrOps; // one an own attribute, in row order; null for a type without any
   Ptr< GenericIf > ( *construct )( ArgVector const& args, bool isConst ); // null: cannot be made
   Ptr< GenericIf > ( *fromAddress )( void const* address, bool isConst );
   void* ( *toBase )( void* ); // to the declared base; null if there is none
   ValueOps const* value;
   PtrOps const* ptr;
};

inline TypeImpl const& KelTypeBase::impl() const {
   return module_->impl[typeIndex_];
}

// The operation of an attribute's row for the type that declares it: returns an AttrOpResult, 2 if
// the id is not one of the type's own.
KEL_API int attributeOp( KelType type, AttributeId id, AttrCall& call );

} // namespace Kel
