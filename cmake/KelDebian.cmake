# `./dev package`: a Debian package of each component of the installation, by CPack. They are for
# the Python 2.7 of Debian alone, as no other is there where they go.
find_program( KEL_DPKG_QUERY dpkg-query )
if( NOT KEL_DPKG_QUERY OR NOT KEL_SANITIZE STREQUAL "none" )
   return()
endif()

# The packages that the files are of, as the field Built-Using lists their sources; empty if one is
# of none.
function( kel_built_using result )
   set( sources )
   foreach( file IN LISTS ARGN )
      file( REAL_PATH "${file}" file )
      execute_process( COMMAND ${KEL_DPKG_QUERY} -S ${file}
         OUTPUT_VARIABLE package ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE )
      string( REGEX REPLACE ": [^\n]*$" "" package "${package}" )
      execute_process(
         COMMAND ${KEL_DPKG_QUERY} -W -f "\${source:Package} (= \${source:Version})" "${package}"
         OUTPUT_VARIABLE source ERROR_QUIET RESULT_VARIABLE status )
      if( NOT package OR NOT status EQUAL 0 )
         set( ${result} "" PARENT_SCOPE )
         return()
      endif()
      list( APPEND sources ${source} )
   endforeach()
   list( SORT sources )
   list( REMOVE_DUPLICATES sources )
   list( JOIN sources ", " sources )
   set( ${result} ${sources} PARENT_SCOPE )
endfunction()

execute_process( COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libgcc.a
   OUTPUT_VARIABLE compiler OUTPUT_STRIP_TRAILING_WHITESPACE )
find_file( KEL_BOOST_FILE boost/version.hpp )
find_file( KEL_CLI_FILE CLI/CLI.hpp )
set( common ${compiler} ${KEL_BOOST_FILE} )
set( python ${Python27_INCLUDE_DIR}/Python.h )
kel_built_using( usedByRuntime ${common} )
kel_built_using( usedByPython ${common} ${python} )
kel_built_using( usedByTools ${common} ${python} ${KEL_CLI_FILE} )
kel_built_using( interpreter ${Python27_EXECUTABLE} )
if( NOT usedByTools OR NOT interpreter )
   return()
endif()

set( debian ${CMAKE_SOURCE_DIR}/cmake/debian )
file( STRINGS ${debian}/changelog newest LIMIT_COUNT 1 )
if( NOT newest MATCHES "^kel \\(${PROJECT_VERSION}-([0-9]+)\\)" )
   message( FATAL_ERROR "cmake/debian/changelog does not begin with version ${PROJECT_VERSION}" )
endif()
set( CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_1} )
set( same "(= ${PROJECT_VERSION}-${CMAKE_MATCH_1})" )

set( CPACK_GENERATOR DEB )
set( CPACK_PACKAGE_NAME kel )
set( CPACK_PACKAGE_CONTACT "Kel for Python maintainers <maintainers@kel.example>" )
set( CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages )
set( CPACK_COMPONENTS_ALL runtime development python tools )
set( CPACK_DEB_COMPONENT_INSTALL ON )
# Staged below another folder, and not installed into another prefix: paths are of /usr.
set( CPACK_SET_DESTDIR ON )
set( CPACK_INSTALL_PREFIX /usr )
set( CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
   OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE )
set( CPACK_STRIP_FILES ON )
set( CPACK_POST_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/finish_packages.cmake )
set( CPACK_DEBIAN_FILE_NAME DEB-DEFAULT )
set( CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${KEL_PYTHON_DIR} )

# The package of a component. What it runs at its installation and removal, and overrides, lie in
# cmake/debian under its name.
function( kel_debian_package component name )
   cmake_parse_arguments( PARSE_ARGV 2 arg "" "DESCRIPTION;BUILT_USING" "FIELDS" )
   string( TOUPPER ${component} upper )
   set( CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE )
   set( CPACK_DEBIAN_${upper}_DESCRIPTION "${arg_DESCRIPTION}" PARENT_SCOPE )
   set( CPACK_KEL_BUILT_USING_${name} "${arg_BUILT_USING}" PARENT_SCOPE )
   while( arg_FIELDS )
      list( POP_FRONT arg_FIELDS field value )
      set( CPACK_DEBIAN_${upper}_PACKAGE_${field} "${value}" PARENT_SCOPE )
   endwhile()

   set( scripts )
   foreach( script shlibs postinst prerm )
      if( EXISTS ${debian}/${name}.${script} )
         configure_file( ${debian}/${name}.${script} ${package}/${name}/${script} COPYONLY )
         list( APPEND scripts ${package}/${name}/${script} )
      endif()
   endforeach()
   set( CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA "${scripts}" PARENT_SCOPE )

   # Part of the packages alone.
   set( only COMPONENT ${component} EXCLUDE_FROM_ALL )
   install( FILES ${debian}/copyright ${package}/changelog.Debian.gz
      DESTINATION share/doc/${name} ${only} )
   install( FILES ${debian}/${name}.lintian-overrides DESTINATION share/lintian/overrides
      RENAME ${name} ${only} )
endfunction()

execute_process( COMMAND gzip -9nc ${debian}/changelog
   OUTPUT_FILE ${package}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY )
set_property( DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${debian}/changelog )

kel_debian_package( runtime libkel1
   BUILT_USING ${usedByRuntime}
   FIELDS SECTION libs
   DESCRIPTION "reflective C++ runtime
Kel keeps objects of C++ classes whose types, attributes and functions are
known at run time. It brings named entities in directories, collections,
notification of changes, timers and an activity loop.

This package holds the shared library." )

kel_debian_package( development libkel-dev
   FIELDS
      SECTION libdevel
      DEPENDS "libkel1 ${same}, libboost-dev (>= 1.74)"
      RECOMMENDS "python2.7-kel ${same}, python2.7-dev"
      SUGGESTS "cmake (>= 3.25), pkg-config, gdb"
   DESCRIPTION "reflective C++ runtime - headers
Kel keeps objects of C++ classes whose types, attributes and functions are
known at run time.

This package holds the headers of the runtime with its language of
declarations, those of the client of agents, what CMake and pkg-config find
both by, the printers that show their objects in gdb, and examples. The client
links to the binding of Python, which python2.7-kel has." )

kel_debian_package( python python2.7-kel
   BUILT_USING ${usedByPython}
   FIELDS
      SECTION python
      DEPENDS "libkel1 ${same}, python2.7 (>= 2.7.18)"
      SUGGESTS "kel-tools"
   DESCRIPTION "live access to objects of the C++ runtime Kel from Python 2.7
Each type of the runtime becomes a class of Python on first use, each
attribute a descriptor on it; the data stays in the runtime.

This package holds the binding _Kel, the module Kel over it, and PyServer,
which makes an agent of a program: a process that is questioned from outside." )

kel_debian_package( tools kel-tools
   BUILT_USING ${usedByTools}
   FIELDS
      SECTION utils
      DEPENDS "libkel1 ${same}, python2.7-kel ${same}"
   DESCRIPTION "programs of agents that hold objects of the C++ runtime Kel
An agent is a process that holds objects of the runtime, lives long, reacts
to changes, and is questioned and commanded while it runs.

kel-agent makes an agent of a script of Python 2.7, kel-eval questions one,
and kel-schema prints what libraries of types declare." )

install( DIRECTORY examples/acme examples/outside DESTINATION share/doc/libkel-dev/examples
   COMPONENT development EXCLUDE_FROM_ALL
   REGEX "acme/CMakeLists|__pycache__|\\.pyc$|outside/build" EXCLUDE )

include( CPack )
