# How tests come to ctest. They run in parallel, in no order, each with a deadline of its own.

include( GoogleTest )

set( KEL_TEST_SECONDS 300 )

# What an uninstrumented interpreter has to load first when the module is built with a sanitizer.
function( kel_preload result )
   set( ${result} "" PARENT_SCOPE )
   if( KEL_SANITIZE STREQUAL "address" )
      set( names libasan.so libubsan.so libstdc++.so )
   elseif( KEL_SANITIZE STREQUAL "thread" )
      set( names libtsan.so libstdc++.so )
   else()
      return()
   endif()
   foreach( name IN LISTS names )
      execute_process( COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
         OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE )
      list( APPEND paths ${path} )
   endforeach()
   list( JOIN paths ":" paths )
   set( ${result} "LD_PRELOAD=${paths}" PARENT_SCOPE )
endfunction()

kel_preload( KEL_PRELOAD )

# A GoogleTest program; each of its tests is a test of ctest. Nothing is made of no sources.
function( kel_gtest name )
   cmake_parse_arguments( PARSE_ARGV 1 arg "" "LABEL" "SOURCES;LIBRARIES" )
   if( NOT arg_SOURCES )
      return()
   endif()
   foreach( library IN LISTS arg_LIBRARIES )
      if( NOT TARGET ${library} )
         return()
      endif()
   endforeach()
   kel_executable( ${name} ${arg_SOURCES} )
   target_include_directories( ${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} )
   target_link_libraries( ${name} PRIVATE ${arg_LIBRARIES} GTest::gtest GTest::gtest_main )
   gtest_discover_tests( ${name}
      TEST_PREFIX ${arg_LABEL}.
      DISCOVERY_TIMEOUT ${KEL_TEST_SECONDS}
      PROPERTIES
         TIMEOUT ${KEL_TEST_SECONDS}
         LABELS ${arg_LABEL}
         ENVIRONMENT PYTHONPATH=${KEL_PYTHON_DIR} )
endfunction()

# Sources that the compiler must refuse. The first line of each names what it must say:
#    // refused: <text>
function( kel_refused_tests )
   cmake_parse_arguments( PARSE_ARGV 0 arg "" "LABEL;LIBRARY" "SOURCES" )
   foreach( source IN LISTS arg_SOURCES )
      cmake_path( GET source STEM name )
      file( STRINGS ${source} first LIMIT_COUNT 1 )
      set_property( DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source} )
      if( NOT first MATCHES "^// refused: (.+)$" )
         message( FATAL_ERROR "${source}: its first line must be '// refused: <text>'" )
      endif()
      set( text "${CMAKE_MATCH_1}" )
      set( includes "$<TARGET_PROPERTY:${arg_LIBRARY},INTERFACE_INCLUDE_DIRECTORIES>" )
      add_test( NAME ${arg_LABEL}.refused.${name}
         COMMAND ${CMAKE_COMMAND} -DCOMPILER=${CMAKE_CXX_COMPILER} -DSOURCE=${source}
            "-DINCLUDES=${includes}" -DTEXT=${text} -P ${CMAKE_SOURCE_DIR}/cmake/refused_test.cmake )
      set_tests_properties( ${arg_LABEL}.refused.${name} PROPERTIES
         TIMEOUT ${KEL_TEST_SECONDS} LABELS ${arg_LABEL} )
   endforeach()
endfunction()

# The environment in which a Python test runs, as a list for the property ENVIRONMENT.
function( kel_python_environment result )
   set( path ${KEL_PYTHON_DIR}:${CMAKE_SOURCE_DIR}/tests/python )
   set( ${result} PYTHONPATH=${path} PYTHONDONTWRITEBYTECODE=1 ${KEL_PRELOAD} PARENT_SCOPE )
endfunction()

# Each unittest module is a test of ctest, named by its path.
function( kel_python_tests )
   cmake_parse_arguments( PARSE_ARGV 0 arg "" "LABEL" "OTHER_LABELS;MODULES" )
   kel_python_environment( environment )
   foreach( module IN LISTS arg_MODULES )
      cmake_path( RELATIVE_PATH module BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
         OUTPUT_VARIABLE name )
      string( REGEX REPLACE "\\.py$" "" name ${name} )
      string( REPLACE "/" "." name ${name} )
      set( name ${arg_LABEL}.${name} )
      add_test( NAME ${name} COMMAND ${Python27_EXECUTABLE} -u
         ${CMAKE_SOURCE_DIR}/cmake/run_python_test.py ${module} )
      set_tests_properties( ${name} PROPERTIES
         TIMEOUT ${KEL_TEST_SECONDS}
         LABELS "${arg_LABEL};${arg_OTHER_LABELS}"
         ENVIRONMENT "${environment}" )
   endforeach()
endfunction()
