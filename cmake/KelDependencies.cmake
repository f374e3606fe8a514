# What the project takes from elsewhere. Each missing piece is named in one line with what to do.

set( advice "Run ./dev setup, or on Debian 12: apt-get install" )

find_package( Threads REQUIRED )

find_package( Boost 1.74 QUIET )
if( NOT TARGET Boost::headers )
   message( FATAL_ERROR "Boost's headers are missing. ${advice} libboost-dev" )
endif()

find_package( GTest QUIET )
if( NOT GTest_FOUND )
   message( FATAL_ERROR "GoogleTest is missing. ${advice} libgtest-dev" )
endif()

find_package( CLI11 QUIET )
if( NOT CLI11_FOUND )
   message( FATAL_ERROR "CLI11 is missing. ${advice} libcli11-dev" )
endif()

# The line editor of kel-eval's prompt.
find_path( KEL_EDIT_INCLUDE_DIR histedit.h )
find_library( KEL_EDIT_LIBRARY edit )
if( NOT KEL_EDIT_INCLUDE_DIR OR NOT KEL_EDIT_LIBRARY )
   message( FATAL_ERROR "The line editor libedit is missing. ${advice} libedit-dev" )
endif()
add_library( Kel::edit UNKNOWN IMPORTED )
set_target_properties( Kel::edit PROPERTIES
   IMPORTED_LOCATION ${KEL_EDIT_LIBRARY}
   INTERFACE_INCLUDE_DIRECTORIES ${KEL_EDIT_INCLUDE_DIR} )

find_package( Python27 QUIET )
if( NOT Python27_FOUND )
   message( FATAL_ERROR "${Python27_NOT_FOUND_MESSAGE}" )
endif()
