#include <kelpy/classes/PyDoc.h>

#include <kel/Assert.h>
#include <kel/KelAttr.h>
#include <kelpy/classes/PyGenericIfAttrDescriptor.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyMarshal.h>

namespace {

using Kel::AttrFlag;
using Kel::KelAttr;
using Kel::KelType;
using Kel::String;

// Appends, joined by ", ", what `text` makes of each row of a list of arguments.
template< class Text >
void appendArgs( String& doc, Kel::ArgRow const* row, Text text ) {
   char const* separator = "";
   for( ; row->nameOffset() != 0; ++row ) {
      doc += separator;
      doc += text( *row );
      separator = ", ";
   }
}

String constructorText( KelType type ) {
   String text( "Kel::Type(" );
   char const* const names = type.module()->attrNamePool;
   appendArgs( text, type.constructorArgs(),
      [names]( Kel::ArgRow const& row ) { return String( names + row.nameOffset() ); } );
   text += ")";
   return text;
}

// Only a declared base counts.
String baseText( KelType type ) {
   KelType const base = type.baseType();
   if( type.isConstrainer() && !( base && base.isConstrainer() ) ) {
      return " : Kel::Constrainer";
   }
   if( base ) {
      return Kel::_fmt( " : %s", base.fullTypeName() );
   }
   return type.isValue() ? " : Kel::Nominal" : "";
}

String classDoc( KelType type ) {
   String text = Kel::_fmt( "%s : ", type.fullTypeName() );
   if( type.isEnumType() ) {
      text += "Kel::Enum";
   } else if( type.isBitSetType() ) {
      text += "Kel::DenseEnumBoolSet";
   } else {
      text += constructorText( type );
      text += baseText( type );
   }
   return text;
}

// A pointer reads as what it points at and how; an instantiating attribute as its type.
String attrSignatureTypeName( KelType type, bool instantiating, bool constPtr, bool rawPtr ) {
   if( !type ) {
      return "<unknown>";
   }
   if( type.isValue() || instantiating ) {
      return type.fullTypeName();
   }
   return Kel::_fmt(
      "%s::%sPtr%s", type.fullTypeName(), rawPtr ? "Raw" : "", constPtr ? "Const" : "" );
}

char const* orderText( KelAttr attr ) {
   if( attr.isSet() ) {
      return "set ";
   }
   if( attr.isQueueCollection() ) {
      return "queue ";
   }
   if( attr.isStackCollection() ) {
      return "stack ";
   }
   return attr.isVector() ? "vector " : "";
}

String parameterText( KelAttr attr ) {
   String text( "(" );
   Kel::KelModule const& module = *attr.module();
   appendArgs( text, attr.args(), [&module]( Kel::ArgRow const& row ) {
      KelType const type = Kel::typeNode( module.typeNamePool + row.typeNameOffset() );
      return Kel::_fmt( "%s : %s", module.attrNamePool + row.nameOffset(),
         attrSignatureTypeName( type, false, false, false ).charPtr() );
   } );
   text += ")";
   return text;
}

String keyText( KelAttr attr ) {
   if( KelAttr const index = attr.indexAttr() ) {
      return Kel::_fmt( "[%s]", index.name() );
   }
   bool const constPtr = attr.flag( AttrFlag::hasConstPtrIndex );
   return Kel::_fmt(
      "[%s]", attrSignatureTypeName( attr.indexType(), false, constPtr, false ).charPtr() );
}

String signature( KelAttr attr ) {
   String text = Kel::_fmt( "%s : ", attr.name() );
   text += attr.isStatic() ? "static " : "";
   text += attr.flag( AttrFlag::isDynArray ) ? "array " : "";
   text += orderText( attr );
   text += attr.isInvasiveFunction() ? "invasive " : "";
   text += attrSignatureTypeName( attr.memberType(), attr.instantiating(),
      attr.flag( AttrFlag::isConstPtr ), attr.flag( AttrFlag::rawPtrInterface ) );
   if( attr.isFunction() ) {
      text += parameterText( attr );
   } else if( attr.flag( AttrFlag::collectionForm ) ) {
      text += keyText( attr );
   }
   return text;
}

} // namespace

PyObject* PyGenericIfMetaclass_doc_get( PyObject* cls, void* ) {
   KelType const type = kelTypeOfClass( reinterpret_cast< PyTypeObject* >( cls ) );
   if( !type ) {
      Py_RETURN_NONE;
   }
   try {
      return PyStr_FromKelString( classDoc( type ) );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( type, "" );
      return nullptr;
   }
}

PyObject* PyGenericIfAttrDescriptor_doc_get( PyObject* descriptor, void* ) {
   auto const* const self = reinterpret_cast< PyGenericIfAttrDescriptor* >( descriptor );
   KelAttr const attr = self->attr;
   if( attr.isEnumConst() ) {
      return PyString_FromFormat( "'%s' = %u", attr.name(), attr.attributeId() );
   }
   if( self->kind == PyGenericIfAttrDescriptor::Kind::NewMember ) {
      return PyString_FromFormat( "Instantiate a new member in the '%s' collection.", attr.name() );
   }
   if( self->kind == PyGenericIfAttrDescriptor::Kind::AddMember ) {
      return PyString_FromFormat( "Add a member to the '%s' collection.", attr.name() );
   }
   KEL_ASSERT( self->kind == PyGenericIfAttrDescriptor::Kind::Attribute );
   try {
      return PyStr_FromKelString( signature( attr ) );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( attr, "" );
      return nullptr;
   }
}
