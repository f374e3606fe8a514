# `./dev install PREFIX`: the programs and their manuals, and the CMake package KelPy with the targets
# Kel::kel and KelPy::KelPy.
if( NOT TARGET kelpy )
   return()
endif()

include( CMakePackageConfigHelpers )

set( package lib/cmake/KelPy )
set( modules lib/python2.7/site-packages )

install( TARGETS kel EXPORT KelTargets LIBRARY DESTINATION lib )
install( TARGETS kelpy EXPORT KelPyTargets LIBRARY DESTINATION lib )
install( EXPORT KelTargets NAMESPACE Kel:: DESTINATION ${package} )
install( EXPORT KelPyTargets NAMESPACE KelPy:: DESTINATION ${package} )

install( DIRECTORY kel/include/kel TYPE INCLUDE FILES_MATCHING PATTERN "*.h" )
install( DIRECTORY kelpy TYPE INCLUDE FILES_MATCHING PATTERN "*.h" )

install( DIRECTORY python/ DESTINATION ${modules} FILES_MATCHING PATTERN "*.py" )
file( MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/package )
file( CREATE_LINK ../../libKelPy.so ${CMAKE_BINARY_DIR}/package/_Kel.so SYMBOLIC )
install( FILES ${CMAKE_BINARY_DIR}/package/_Kel.so DESTINATION ${modules} )

install( TARGETS kel-agent kel-eval RUNTIME DESTINATION bin )
install( PROGRAMS ${CMAKE_BINARY_DIR}/bin/kel-schema DESTINATION bin )
install( FILES tools/man/kel-agent.1 tools/man/kel-eval.1 tools/man/kel-schema.1 DESTINATION share/man/man1 )

# Where gdb looks for what belongs to a library, below its data folder; loaded with the library.
install( FILES tools/gdb/kel_printers.py DESTINATION share/gdb/auto-load/\${CMAKE_INSTALL_PREFIX}/lib
   RENAME $<TARGET_FILE_NAME:kel>-gdb.py )

configure_package_config_file( cmake/KelPyConfig.cmake.in ${CMAKE_BINARY_DIR}/package/KelPyConfig.cmake
   INSTALL_DESTINATION ${package} )
write_basic_package_version_file( ${CMAKE_BINARY_DIR}/package/KelPyConfigVersion.cmake
   COMPATIBILITY SameMajorVersion )
install( FILES
   ${CMAKE_BINARY_DIR}/package/KelPyConfig.cmake
   ${CMAKE_BINARY_DIR}/package/KelPyConfigVersion.cmake
   cmake/FindPython27.cmake
   cmake/python27_probe.py
   DESTINATION ${package} )
