#include "Schemas.h"

#include <dlfcn.h>
#include <unistd.h>

namespace {

std::string fileOf( std::string const& name, std::string const& modules ) {
   if( name.find( '/' ) != name.npos ) {
      return name;
   }
   std::string const file = name.find( ".so" ) == name.npos ? "lib" + name + ".so" : name;
   std::string const beside = modules + "/" + file;
   return !modules.empty() && access( beside.c_str(), R_OK ) == 0 ? beside : file;
}

} // namespace

std::string loadSchemas( std::vector< std::string > const& names, std::string const& modules ) {
   for( std::string const& name : names ) {
      if( !dlopen( fileOf( name, modules ).c_str(), RTLD_NOW | RTLD_GLOBAL ) ) {
         char const* const reason = dlerror();
         return "cannot load schema " + name + ": " + ( reason ? reason : "unknown reason" );
      }
   }
   return "";
}
