# `./dev install PREFIX`: libraries, headers, Python modules, the programs and their manuals, the
# CMake packages Kel and KelPy with the targets Kel::kel and KelPy::KelPy, and the same for
# pkg-config. The components are the Debian packages of `./dev package`, see KelDebian.
if( NOT TARGET kelpy )
   return()
endif()

include( CMakePackageConfigHelpers )

set( package ${CMAKE_BINARY_DIR}/package )
set( modules lib/python2.7/\${KEL_MODULES} )
file( MAKE_DIRECTORY ${package} )

# The folder of modules is the one that the interpreter looks into by itself, if that lies in the
# prefix. A debug interpreter that is not installed needs the environment which its script sets.
execute_process( COMMAND ${CMAKE_COMMAND} -E env --unset=PYTHONPATH
      ${Python27_EXECUTABLE} -s -c "import sys; print ' '.join(sys.path)"
   OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY )
install( CODE "
   set( KEL_MODULES site-packages )
   if( \" ${path} \" MATCHES \" \${CMAKE_INSTALL_PREFIX}/lib/python2.7/dist-packages \" )
      set( KEL_MODULES dist-packages )
   endif()" ALL_COMPONENTS )

# Two CMake packages: who only declares types needs no Python.
function( kel_cmake_package name )
   configure_package_config_file( cmake/${name}Config.cmake.in ${package}/${name}Config.cmake
      INSTALL_DESTINATION lib/cmake/${name} )
   write_basic_package_version_file( ${package}/${name}ConfigVersion.cmake
      COMPATIBILITY SameMajorVersion )
   install( EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION lib/cmake/${name}
      COMPONENT development )
   install( FILES ${package}/${name}Config.cmake ${package}/${name}ConfigVersion.cmake
      DESTINATION lib/cmake/${name} COMPONENT development )
endfunction()

function( kel_pkg_config name )
   configure_file( cmake/${name}.pc.in ${package}/${name}.pc @ONLY )
   install( FILES ${package}/${name}.pc DESTINATION lib/pkgconfig COMPONENT development )
endfunction()

# For the linker by name where it looks anyway, so that the file is the same on machines of another
# sort.
set( pythonLibrary ${Python27_LIBRARY} )
cmake_path( GET Python27_LIBRARY PARENT_PATH folder )
if( folder IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES
      AND Python27_LIBRARY MATCHES "/lib([^/]+)\\.so$" )
   set( pythonLibrary -l${CMAKE_MATCH_1} )
endif()

# The runtime.
install( TARGETS kel EXPORT KelTargets
   LIBRARY DESTINATION lib COMPONENT runtime NAMELINK_COMPONENT development )
install( DIRECTORY kel/include/kel TYPE INCLUDE COMPONENT development FILES_MATCHING PATTERN "*.h" )
kel_cmake_package( Kel )
kel_pkg_config( kel )

# Where gdb looks for what belongs to a library, below its data folder; loaded with the library.
install( FILES tools/gdb/kel_printers.py
   DESTINATION share/gdb/auto-load/\${CMAKE_INSTALL_PREFIX}/lib
   COMPONENT development RENAME $<TARGET_FILE_NAME:kel>-gdb.py )

# The binding.
install( TARGETS kelpy EXPORT KelPyTargets LIBRARY DESTINATION lib COMPONENT python )
install( DIRECTORY kelpy TYPE INCLUDE COMPONENT development FILES_MATCHING PATTERN "*.h" )
kel_cmake_package( KelPy )
kel_pkg_config( kelpy )
install( FILES cmake/FindPython27.cmake cmake/python27_probe.py
   DESTINATION lib/cmake/KelPy COMPONENT development )

install( DIRECTORY python/ DESTINATION ${modules} COMPONENT python FILES_MATCHING PATTERN "*.py" )
file( CREATE_LINK ../../libKelPy.so ${package}/_Kel.so SYMBOLIC )
install( FILES ${package}/_Kel.so DESTINATION ${modules} COMPONENT python )

# The programs. Manuals lie packed where man looks for them.
install( TARGETS kel-agent kel-eval RUNTIME DESTINATION bin COMPONENT tools )
install( PROGRAMS ${CMAKE_BINARY_DIR}/bin/kel-browse ${CMAKE_BINARY_DIR}/bin/kel-schema
   DESTINATION bin COMPONENT tools )
kel_glob( manuals tools/man/*.1 )
foreach( manual IN LISTS manuals )
   cmake_path( GET manual FILENAME name )
   add_custom_command( OUTPUT ${package}/${name}.gz
      COMMAND gzip -9nc ${manual} > ${package}/${name}.gz DEPENDS ${manual} VERBATIM )
   list( APPEND packed ${package}/${name}.gz )
endforeach()
install( FILES ${packed} DESTINATION share/man/man1 COMPONENT tools )

# What has to be built for all this.
add_custom_target( installable ALL DEPENDS ${packed} )
add_dependencies( installable kel kelpy kel-agent kel-eval )

# A library of the system is found without a path of its own.
install( CODE "
   foreach( file lib/libkel.so.${PROJECT_VERSION} lib/libKelPy.so bin/kel-agent bin/kel-eval )
      set( file \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/\${file} )
      if( CMAKE_INSTALL_PREFIX STREQUAL /usr AND EXISTS \${file} )
         file( RPATH_REMOVE FILE \${file} )
      endif()
   endforeach()" ALL_COMPONENTS )

include( KelDebian )
