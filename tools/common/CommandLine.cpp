#include "CommandLine.h"

#include <algorithm>
#include <iostream>

std::optional< int > parseCommandLine( CLI::App& app, int argc, char** argv ) {
   try {
      app.parse( argc, argv );
   } catch( CLI::Success const& success ) {
      return app.exit( success );
   } catch( CLI::ParseError const& fault ) {
      std::string const program = app.get_name();
      return complain( program.c_str(),
         std::string( fault.what() ) + " (" + program + " --help tells more)", usageStatus );
   }
   return std::nullopt;
}

int complain( char const* program, std::string text, int status ) {
   std::replace( text.begin(), text.end(), '\n', ' ' );
   std::cerr << program << ": " << text << std::endl;
   return status;
}
