# Finds a Python 2.7 that runs and has headers, four-byte unicode and a shared library. In this order:
# PYTHON27 (a CMake variable, then the environment), each python2.7 on the path, those of pyenv.
#
# Sets Python27_FOUND, Python27_EXECUTABLE, Python27_INCLUDE_DIR, Python27_LIBRARY, else
# Python27_NOT_FOUND_MESSAGE; makes the targets
#    Python27::Headers   for extension modules, whose Python symbols stay undefined
#    Python27::Python    for programs that embed the interpreter

set( Python27_PROBE ${CMAKE_CURRENT_LIST_DIR}/python27_probe.py )

# Asks one interpreter; the answer is the list of its three paths, or a text in `whyNot`.
function( Python27_ask interpreter answer whyNot )
   execute_process( COMMAND ${interpreter} ${Python27_PROBE}
      RESULT_VARIABLE status OUTPUT_VARIABLE text ERROR_VARIABLE noise
      OUTPUT_STRIP_TRAILING_WHITESPACE )
   set( ${answer} "" PARENT_SCOPE )
   if( status EQUAL 0 )
      string( REPLACE "\n" ";" paths "${text}" )
      set( ${answer} "${paths}" PARENT_SCOPE )
   elseif( text )
      set( ${whyNot} "${interpreter} ${text}" PARENT_SCOPE )
   else()
      set( ${whyNot} "${interpreter} does not run" PARENT_SCOPE )
   endif()
endfunction()

function( Python27_candidates result )
   set( wanted ${PYTHON27} $ENV{PYTHON27} )
   if( wanted )
      list( GET wanted 0 first )
      set( ${result} ${first} PARENT_SCOPE )
      return()
   endif()
   string( REPLACE ":" ";" folders "$ENV{PATH}:/usr/local/bin:/usr/bin" )
   list( TRANSFORM folders APPEND /python2.7 )
   if( DEFINED ENV{PYENV_ROOT} )
      file( GLOB pyenv $ENV{PYENV_ROOT}/versions/2.7*/bin/python2.7 )
   else()
      file( GLOB pyenv $ENV{HOME}/.pyenv/versions/2.7*/bin/python2.7 )
   endif()
   set( found )
   foreach( candidate IN LISTS folders pyenv )
      if( EXISTS ${candidate} )
         list( APPEND found ${candidate} )
      endif()
   endforeach()
   list( REMOVE_DUPLICATES found )
   set( ${result} ${found} PARENT_SCOPE )
endfunction()

# Keeps the answer from one configuration to the next, unless another interpreter is asked for.
function( Python27_search )
   set( known )
   if( Python27_ANSWER )
      list( GET Python27_ANSWER 0 known )
   endif()
   if( EXISTS "${known}" AND "${Python27_ASKED}" STREQUAL "${PYTHON27}$ENV{PYTHON27}" )
      return()
   endif()
   Python27_candidates( candidates )
   set( reasons "" )
   foreach( candidate IN LISTS candidates )
      set( reason "" )
      Python27_ask( ${candidate} paths reason )
      if( paths )
         set( Python27_ANSWER "${paths}" CACHE INTERNAL "interpreter, include folder, library" )
         set( Python27_ASKED "${PYTHON27}$ENV{PYTHON27}" CACHE INTERNAL "what was asked for" )
         return()
      endif()
      list( APPEND reasons ${reason} )
   endforeach()
   unset( Python27_ANSWER CACHE )
   list( JOIN reasons "; " reasons )
   set( Python27_REASONS "${reasons}" PARENT_SCOPE )
endfunction()

Python27_search()
if( Python27_ANSWER )
   list( GET Python27_ANSWER 0 Python27_EXECUTABLE )
   list( GET Python27_ANSWER 1 Python27_INCLUDE_DIR )
   list( GET Python27_ANSWER 2 Python27_LIBRARY )
else()
   string( JOIN " " Python27_NOT_FOUND_MESSAGE
      "Python 2.7 with headers and a shared library is missing. Run ./dev setup, or set PYTHON27"
      "to the path of an interpreter. ${Python27_REASONS}" )
endif()

include( FindPackageHandleStandardArgs )
find_package_handle_standard_args( Python27
   REQUIRED_VARS Python27_EXECUTABLE Python27_INCLUDE_DIR Python27_LIBRARY
   REASON_FAILURE_MESSAGE "${Python27_NOT_FOUND_MESSAGE}" )

if( Python27_FOUND AND NOT TARGET Python27::Headers )
   add_library( Python27::Headers INTERFACE IMPORTED )
   # The headers use `register`: imported targets are system includes, where that is no error. The one
   # place that makes "s#" take a Py_ssize_t is here.
   set_target_properties( Python27::Headers PROPERTIES
      INTERFACE_INCLUDE_DIRECTORIES ${Python27_INCLUDE_DIR}
      INTERFACE_COMPILE_DEFINITIONS PY_SSIZE_T_CLEAN )

   add_library( Python27::Python SHARED IMPORTED )
   set_target_properties( Python27::Python PROPERTIES
      IMPORTED_LOCATION ${Python27_LIBRARY}
      INTERFACE_LINK_LIBRARIES Python27::Headers )
endif()
