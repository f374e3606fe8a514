# Installs into a fresh prefix, builds projects from outside against it, runs their programs and the
# installed Python modules. Variables: BUILD OUTSIDE EXAMPLE PYTHON27 COMPILER.
cmake_minimum_required( VERSION 3.25 )

string( RANDOM name )
set( place $ENV{TMPDIR} )
if( NOT place )
   set( place /tmp )
endif()
set( place ${place}/kel-package-${name} )
set( prefix ${place}/prefix )

# Ends the test and removes what was made.
function( fail text )
   file( REMOVE_RECURSE ${place} )
   message( FATAL_ERROR "${text}" )
endfunction()

# Runs a command and prints it; it has to end well.
function( step )
   execute_process( COMMAND ${ARGV} RESULT_VARIABLE status COMMAND_ECHO STDOUT )
   if( NOT status EQUAL 0 )
      fail( "status ${status}" )
   endif()
endfunction()

# The same of one that has to print the text.
function( step_that_prints wanted )
   execute_process( COMMAND ${ARGN}
      RESULT_VARIABLE status OUTPUT_VARIABLE printed COMMAND_ECHO STDOUT )
   if( NOT status EQUAL 0 OR NOT printed STREQUAL wanted )
      fail( "status ${status}, printed: ${printed}" )
   endif()
endfunction()

# The agent of the example, with what it serves from the given build, and the program that asks it.
function( ask_agent build )
   set( ENV{PYTHONPATH} ${build} )
   step_that_prints( "the kitchen wants 18.0 degrees\n" ${prefix}/bin/kel-agent --group home
      --name heating -- ${CMAKE_CURRENT_LIST_DIR}/asked_agent.py ${EXAMPLE}/agent.py ${build}/ask )
   set( ENV{PYTHONPATH} "" )
endfunction()

set( ENV{LD_LIBRARY_PATH} "" )
set( ENV{PYTHONPATH} "" )
set( ENV{PYTHONDONTWRITEBYTECODE} 1 )
set( ENV{KELC_AGENTS_DIR} ${place}/agents )
set( configure ${CMAKE_COMMAND} -G Ninja -DCMAKE_PREFIX_PATH=${prefix} -DPYTHON27=${PYTHON27}
   -DCMAKE_CXX_COMPILER=${COMPILER} )

step( ${CMAKE_COMMAND} --install ${BUILD} --prefix ${place}/first )
# An installation may be moved.
file( RENAME ${place}/first ${prefix} )
step( ${configure} -S ${OUTSIDE} -B ${place}/build )
step( ${CMAKE_COMMAND} --build ${place}/build )
step( ${place}/build/runtime_only )
step( ${place}/build/embedded )
step( ${prefix}/bin/kel-schema --runtime --type Kel::Clock )
step( ${prefix}/bin/kel-browse --help )
step( ${place}/build/client )
set( ENV{PYTHONPATH} ${prefix}/lib/python2.7/site-packages )
step( ${PYTHON27} -c "import _Kel\nassert not _Kel.attributeAccessorCount()" )
set( ENV{PYTHONPATH} "" )
step( ${prefix}/bin/kel-agent --group package --name test
   ${OUTSIDE}/agent.py ${prefix}/bin/kel-eval )

# The example project by CMake, then by make.
step( ${configure} -S ${EXAMPLE} -B ${place}/home )
step( ${CMAKE_COMMAND} --build ${place}/home )
step( ${CMAKE_CTEST_COMMAND} --test-dir ${place}/home --output-on-failure --no-tests=error )
ask_agent( ${place}/home )

find_program( make make )
find_program( pkg_config pkg-config )
if( make AND pkg_config )
   set( ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig )
   step( ${make} -C ${EXAMPLE} BUILD=${place}/by-make CXX=${COMPILER} check )
   ask_agent( ${place}/by-make )
else()
   message( "without make and pkg-config the Makefile is not tried" )
endif()

file( REMOVE_RECURSE ${place} )
