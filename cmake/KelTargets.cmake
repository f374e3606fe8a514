# Every target of the project is made by one of the functions here, so that the language standard, the
# warnings, the visibility and the sanitizer are said once.

set( KEL_SANITIZE none CACHE STRING "Sanitizer of all targets: none, address (with undefined), thread, fuzzer" )
set_property( CACHE KEL_SANITIZE PROPERTY STRINGS none address thread fuzzer )

if( NOT CMAKE_BUILD_TYPE )
   set( CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Kind of build" FORCE )
endif()

# What the Python side needs, in one folder: PYTHONPATH=<it> suffices from any working directory.
set( KEL_PYTHON_DIR ${CMAKE_BINARY_DIR}/python )

set( CMAKE_EXPORT_COMPILE_COMMANDS ON )
set( CMAKE_BUILD_RPATH_USE_ORIGIN ON )

add_library( kel_options INTERFACE )
target_compile_features( kel_options INTERFACE cxx_std_20 )
target_compile_options( kel_options INTERFACE -Wall -Wextra -Werror )
if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
   # A type table names only the slots that it fills.
   target_compile_options( kel_options INTERFACE -Wno-missing-field-initializers )
endif()

if( KEL_SANITIZE STREQUAL "address" )
   set( flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer )
   if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
      # With these, g++ 12 refuses comparisons of addresses in constant expressions.
      list( APPEND flags -fno-sanitize=null,nonnull-attribute,returns-nonnull-attribute )
   endif()
elseif( KEL_SANITIZE STREQUAL "thread" )
   set( flags -fsanitize=thread -fno-omit-frame-pointer )
   if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
      # Fences of the standard library's shared pointers, which g++ 12 says it does not model.
      list( APPEND flags -Wno-tsan )
   endif()
elseif( KEL_SANITIZE STREQUAL "fuzzer" )
   # Of clang: address and undefined, and counters that guide the fuzzers.
   set( flags -fsanitize=address,undefined,fuzzer-no-link -fno-sanitize-recover=all
      -fno-omit-frame-pointer )
elseif( NOT KEL_SANITIZE STREQUAL "none" )
   message( FATAL_ERROR
      "KEL_SANITIZE is ${KEL_SANITIZE}; it must be none, address, thread or fuzzer." )
endif()
target_compile_options( kel_options INTERFACE ${flags} )
target_link_options( kel_options INTERFACE ${flags} )
unset( flags )

# The sources of one kind in a folder, sorted; the build looks again for new ones each time.
function( kel_glob result )
   file( GLOB found CONFIGURE_DEPENDS ${ARGN} )
   set( ${result} ${found} PARENT_SCOPE )
endfunction()

function( kel_glob_recursive result )
   file( GLOB_RECURSE found CONFIGURE_DEPENDS ${ARGN} )
   set( ${result} ${found} PARENT_SCOPE )
endfunction()

function( kel_target_defaults name )
   target_link_libraries( ${name} PRIVATE $<BUILD_INTERFACE:kel_options> )
   set_target_properties( ${name} PROPERTIES
      CXX_EXTENSIONS OFF
      CXX_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON
      POSITION_INDEPENDENT_CODE ON )
endfunction()

# All that Python imports, with nothing that only tests run.
add_custom_target( importable )

# A shared library; it lies beside the Python modules and finds its fellows there.
# Nobody replaces a function of ours by one of the same name, so calls within a library are direct.
function( kel_shared_library name )
   add_library( ${name} SHARED ${ARGN} )
   kel_target_defaults( ${name} )
   target_compile_options( ${name} PRIVATE -fno-semantic-interposition -fno-plt )
   target_link_options( ${name} PRIVATE LINKER:-Bsymbolic-functions )
   set_target_properties( ${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${KEL_PYTHON_DIR} )
   add_dependencies( importable ${name} )
endfunction()

# A static library that goes into shared ones.
function( kel_static_library name )
   add_library( ${name} STATIC ${ARGN} )
   kel_target_defaults( ${name} )
endfunction()

# A Python extension module of the given name, in the given folder. Its Python symbols stay undefined:
# the interpreter that loads it has them.
function( kel_python_extension name folder )
   add_library( ${name} MODULE ${ARGN} )
   kel_target_defaults( ${name} )
   target_link_libraries( ${name} PRIVATE Python27::Headers )
   target_link_options( ${name} PRIVATE LINKER:--as-needed )
   set_target_properties( ${name} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${folder} )
   if( folder STREQUAL KEL_PYTHON_DIR )
      add_dependencies( importable ${name} )
   endif()
endfunction()

# An executable; its functions have names in a backtrace. A library that it names is loaded though no
# symbol of it is used: a schema registers at load.
function( kel_executable name )
   add_executable( ${name} ${ARGN} )
   kel_target_defaults( ${name} )
   target_link_options( ${name} PRIVATE LINKER:--no-as-needed )
   set_target_properties( ${name} PROPERTIES
      ENABLE_EXPORTS ON
      RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin )
endfunction()

# Links the files into the folder of Python modules, so that an edit is live without a build.
function( kel_python_files )
   file( MAKE_DIRECTORY ${KEL_PYTHON_DIR} )
   foreach( file IN LISTS ARGN )
      cmake_path( GET file FILENAME name )
      file( CREATE_LINK ${file} ${KEL_PYTHON_DIR}/${name} SYMBOLIC )
   endforeach()
endfunction()

# A program that looks for an input that brings the function LLVMFuzzerTestOneInput of fuzz_<name>.cpp
# to its knees. In any build but that of the fuzzers it takes the inputs that it is given.
function( kel_fuzzer name )
   if( KEL_SANITIZE STREQUAL "fuzzer" )
      kel_executable( fuzz_${name} fuzz_${name}.cpp )
      target_link_options( fuzz_${name} PRIVATE -fsanitize=fuzzer )
   else()
      kel_executable( fuzz_${name} fuzz_${name}.cpp replay.cpp )
   endif()
   target_include_directories( fuzz_${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} )
   target_link_libraries( fuzz_${name} PRIVATE ${ARGN} )
endfunction()
