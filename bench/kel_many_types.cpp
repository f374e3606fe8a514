// Registers runtime types by the hundred, so that making their classes can be timed: a class is
// made once a process. register( first, count ) adds pointer types "Many::T<first>" and on, each
// with 20 attributes of type U32, of which the first is static and can be read. The records live
// for ever, as the runtime asks.
#include <Python.h>

#include <array>
#include <string>
#include <vector>

#include <kel/KelModule.h>
#include <kel/Ptr.h>
#include <kel/Schema.h>
#include <kel/TypeImpl.h>

namespace {

constexpr int attrsOfType = 20;

struct Unit {
   std::vector< Kel::TypeRow > types;
   std::vector< Kel::AttrRow > attrs;
   std::string typeNames;
   std::string attrNames = std::string( 1, '\0' );
   std::vector< Kel::TypeImpl > impls;
   Kel::KelModule module{};
};

std::uint32_t add( std::string& pool, std::string const& name ) {
   auto at = static_cast< std::uint32_t >( pool.size() );
   pool += name;
   pool += '\0';
   return at;
}

int readOne( Kel::AttrCall& call ) {
   if( call.op != Kel::GenericIf::AttributeOp::get ) {
      return Kel::attrOpNotApplicable;
   }
   call.result = Kel::Schema::toGeneric< Kel::U32 >( Kel::U32( 1 ) );
   return Kel::attrOpDone;
}

constexpr auto attrOps = [] {
   std::array< Kel::TypeImpl::AttrOpFn, attrsOfType > ops{};
   ops.fill( readOne );
   return ops;
}();

void addType( Unit& unit, int number ) {
   constexpr std::int16_t u32 = ~static_cast< std::int16_t >( Kel::Impl::coreTypeOfBuiltin + 5 );
   constexpr auto flags =
      Kel::attrBit( Kel::AttrFlag::readable ) | Kel::attrBit( Kel::AttrFlag::writable );
   auto first = static_cast< std::uint16_t >( unit.attrs.size() );
   for( int i = 0; i < attrsOfType; ++i ) {
      std::string name = std::string( i < 10 ? "a" : "b" ) + std::to_string( i % 10 );
      unit.attrs.push_back( Kel::AttrRow::make( Kel::attrId( name.c_str() ),
         i == 0 ? flags | Kel::attrBit( Kel::AttrFlag::isStatic ) : flags,
         add( unit.attrNames, name ), u32, ~0, 0, 0 ) );
   }
   auto name = add( unit.typeNames, "Many::T" + std::to_string( number ) );
   unit.types.push_back( Kel::TypeRow::make( 0, name, 16, 8, ~0, 0, first, attrsOfType ) );
   Kel::TypeImpl impl{};
   impl.attrOps = attrOps.data();
   unit.impls.push_back( impl );
}

constexpr Kel::ArgRow noArgs[1] = {};

PyObject* registerTypes( PyObject*, PyObject* args ) {
   int first, count;
   if( !PyArg_ParseTuple( args, "ii:register", &first, &count ) ) {
      return nullptr;
   }
   auto* unit = new Unit();
   for( int i = 0; i < count; ++i ) {
      addType( *unit, first + i );
   }
   unit->module = { unit->types.data(), unit->attrs.data(), noArgs, unit->typeNames.c_str(),
      unit->attrNames.c_str(), nullptr, unit->impls.data(), unit->types.size() };
   Kel::kelModuleIs( &unit->module );
   Py_RETURN_NONE;
}

PyMethodDef functions[] = {
   { "register", registerTypes, METH_VARARGS, "register( first, count )" },
   { nullptr, nullptr, 0, nullptr },
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_many_types() {
   Py_InitModule( "kel_many_types", functions );
}
