# Passes when PROGRAM ends with 0 and prints what the file WANTED holds.
execute_process( COMMAND ${PROGRAM} RESULT_VARIABLE status OUTPUT_VARIABLE printed ERROR_VARIABLE errors )
file( READ ${WANTED} wanted )
if( NOT status EQUAL 0 OR NOT printed STREQUAL wanted )
   message( FATAL_ERROR "status ${status}\nprinted: ${printed}\nwanted: ${wanted}\n${errors}" )
endif()
