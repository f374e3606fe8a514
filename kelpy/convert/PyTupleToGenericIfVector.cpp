#include <kelpy/convert/PyTupleToGenericIfVector.h>

#include <string>

#include <kel/Exception.h>
#include <kelpy/convert/PyObjectToGenericIf.h>
#include <kelpy/core/PyLock.h>

namespace {

ParameterList parameterList( Kel::KelModule const* module, Kel::ArgRow const* row ) {
   ParameterList params;
   for( ; row->nameOffset() != 0; ++row ) {
      params.emplace_back( module->attrNamePool + row->nameOffset(),
         module->typeNamePool + row->typeNameOffset(), row->isOptional() );
   }
   return params;
}

// "2 constructor parameters ('name', 'id')"
std::string expectedText( ParameterList const& params, bool constructor ) {
   std::string text = std::to_string( params.size() );
   text += constructor ? " constructor " : " ";
   text += params.size() == 1 ? "parameter" : "parameters";
   if( params.empty() ) {
      return text;
   }
   char const* separator = " ('";
   for( auto const& [name, typeName, optional] : params ) {
      text += separator;
      text += name;
      separator = "', '";
   }
   return text + "')";
}

void checkCount( PyObject* tuple, ParameterList const& params, bool constructor ) {
   auto const given = static_cast< std::size_t >( PyTuple_GET_SIZE( tuple ) );
   if( given != params.size() ) {
      throw Kel::TypeException( Kel::String(
         "expected " + expectedText( params, constructor ) + ", got " + std::to_string( given ) ) );
   }
}

Kel::Ptr< Kel::GenericIf const > argument(
   PyObject* element, Parameter const& param, std::size_t index, bool constructor ) {
   auto const& [name, typeName, optional] = param;
   Kel::KelType const type = Kel::typeNode( typeName );
   try {
      return PyObjectToGenericIf_unsafe( element, type, optional );
   } catch( Kel::TypeException const& e ) {
      throw Kel::TypeException( Kel::_fmt( "Error processing %sparameter %zu ('%s'): ",
                                   constructor ? "constructor " : "", index, name ) +
                                e.message() );
   }
}

} // namespace

Kel::ArgVector PyTupleToGenericIfVector_helper(
   PyObject* tuple, ParameterList const& params, bool constructor ) {
   Kel::GilAnchor const gil;
   if( !PyTuple_CheckExact( tuple ) ) {
      throw Kel::TypeException( Kel::_fmt( "expected tuple, got %s", Py_TYPE( tuple )->tp_name ) );
   }
   checkCount( tuple, params, constructor );
   Kel::ArgVector args;
   for( std::size_t i = 0; i < params.size(); ++i ) {
      args.push_back( argument( PyTuple_GET_ITEM( tuple, i ), params[i], i, constructor ) );
   }
   return args;
}

Kel::ArgVector PyTupleToGenericIfVector( PyObject* tuple, Kel::KelType const& type ) {
   return PyTupleToGenericIfVector_helper(
      tuple, parameterList( type.module(), type.constructorArgs() ), true );
}

Kel::ArgVector PyTupleToGenericIfVector( PyObject* tuple, Kel::KelAttr const& attr ) {
   return PyTupleToGenericIfVector_helper( tuple,
      attr.isEnumConst() ? ParameterList() : parameterList( attr.module(), attr.args() ), false );
}
