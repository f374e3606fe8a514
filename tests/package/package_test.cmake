# Installs into a fresh prefix, builds the outside project against it, runs its programs and the
# installed Python modules. Variables: BUILD OUTSIDE PYTHON27 COMPILER.
cmake_minimum_required( VERSION 3.25 )

string( RANDOM name )
set( place $ENV{TMPDIR} )
if( NOT place )
   set( place /tmp )
endif()
set( place ${place}/kel-package-${name} )

# Runs a command and prints it; a failure ends the test and removes what was made.
function( step )
   execute_process( COMMAND ${ARGV} RESULT_VARIABLE status COMMAND_ECHO STDOUT )
   if( NOT status EQUAL 0 )
      file( REMOVE_RECURSE ${place} )
      message( FATAL_ERROR "status ${status}" )
   endif()
endfunction()

step( ${CMAKE_COMMAND} --install ${BUILD} --prefix ${place}/prefix )
step( ${CMAKE_COMMAND} -G Ninja -S ${OUTSIDE} -B ${place}/build
   -DCMAKE_PREFIX_PATH=${place}/prefix -DPYTHON27=${PYTHON27} -DCMAKE_CXX_COMPILER=${COMPILER} )
step( ${CMAKE_COMMAND} --build ${place}/build )

set( modules ${place}/prefix/lib/python2.7/site-packages )
set( ENV{LD_LIBRARY_PATH} "" )
set( ENV{PYTHONPATH} "" )
step( ${place}/build/runtime_only )
step( ${place}/build/embedded )
step( ${place}/prefix/bin/kel-schema --runtime --type Kel::Clock )
step( ${place}/build/client )
set( ENV{PYTHONPATH} ${modules} )
step( ${PYTHON27} -c "import _Kel; print _Kel.__file__; assert not _Kel.attributeAccessorCount()" )

set( ENV{PYTHONPATH} "" )
set( ENV{KELC_AGENTS_DIR} ${place}/agents )
step( ${place}/prefix/bin/kel-agent --group package --name test
   ${OUTSIDE}/agent.py ${place}/prefix/bin/kel-eval )

file( REMOVE_RECURSE ${place} )
