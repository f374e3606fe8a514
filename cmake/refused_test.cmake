# Passes when the compiler refuses SOURCE and says TEXT. Variables: COMPILER SOURCE INCLUDES TEXT.
list( TRANSFORM INCLUDES PREPEND -I )
execute_process( COMMAND ${COMPILER} -std=c++20 -fsyntax-only ${INCLUDES} ${SOURCE}
   RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out )
string( FIND "${out}" "${TEXT}" position )
if( status EQUAL 0 )
   message( FATAL_ERROR "${SOURCE} compiles, and must not." )
elseif( position EQUAL -1 )
   message( FATAL_ERROR "${SOURCE} is refused without the text '${TEXT}':\n${out}" )
endif()
