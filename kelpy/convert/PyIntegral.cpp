#include <kelpy/convert/PyIntegral.h>

#include <string>

#include <kel/Exception.h>
#include <kelpy/core/PyRef.h>

namespace {

// "'red'=0, 'blue'=1"
std::string enumConstants( Kel::KelType const& type ) {
   return visitIntegral( type.underlyingType(), [type]< class T >( IntegralTag< T > ) {
      std::string text;
      for( Kel::KelType::AttributeQIterator i( type ); i; ++i ) {
         Kel::KelAttr const constant = *i;
         text += text.empty() ? "'" : ", '";
         text += constant.name();
         text += "'=";
         text += std::to_string( constant.enumValue< T >() );
      }
      return text;
   } );
}

// The object's repr, or a note in its place if there is none.
std::string reprText( PyObject* object ) {
   auto const repr = PyRef::steal( PyObject_Repr( object ) );
   if( !repr ) {
      PyErr_Clear();
      return "[error getting repr]";
   }
   return std::string( PyString_AS_STRING( repr.get() ), PyString_GET_SIZE( repr.get() ) );
}

} // namespace

void GenericIf_TypeExceptionThrow( PyObject* passed, Kel::KelType const& expected ) {
   KEL_ASSERT( passed );
   KEL_ASSERT( expected );
   KEL_ASSERT( !PyErr_Occurred() );
   std::string const repr = reprText( passed );
   std::string text = "expected ";
   text += expected.fullTypeName();
   if( expected.isEnumType() ) {
      text += " (" + enumConstants( expected ) + ")";
   }
   text += ", got ";
   text += Py_TYPE( passed )->tp_name;
   text += ": " + repr;
   throw Kel::TypeException( Kel::String( text ) );
}
