# What CPack leaves to do on each package: the field Built-Using, which it does not know, and a
# trigger where it writes scripts that call ldconfig.
foreach( deb IN LISTS CPACK_PACKAGE_FILES )
   cmake_path( GET deb FILENAME name )
   string( REGEX REPLACE "_.*" "" name ${name} )
   set( tree ${deb}.tree )
   file( REMOVE_RECURSE ${tree} )
   execute_process( COMMAND dpkg-deb -R ${deb} ${tree} COMMAND_ERROR_IS_FATAL ANY )

   file( READ ${tree}/DEBIAN/control control )
   string( STRIP "${control}" control )
   if( CPACK_KEL_BUILT_USING_${name} )
      string( APPEND control "\nBuilt-Using: ${CPACK_KEL_BUILT_USING_${name}}" )
   endif()
   file( WRITE ${tree}/DEBIAN/control "${control}\n" )
   foreach( script postinst postrm )
      if( EXISTS ${tree}/DEBIAN/${script} )
         file( STRINGS ${tree}/DEBIAN/${script} calls REGEX ldconfig )
         if( calls )
            file( REMOVE ${tree}/DEBIAN/${script} )
            file( WRITE ${tree}/DEBIAN/triggers "activate-noawait ldconfig\n" )
         endif()
      endif()
   endforeach()

   execute_process( COMMAND dpkg-deb --root-owner-group -Zxz -b ${tree} ${deb}
      OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY )
   file( REMOVE_RECURSE ${tree} )
endforeach()
