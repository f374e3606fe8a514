#include <kelpy/core/PyPendingError.h>
#include <kelpy/core/PyPtr.h>
#include <kelpy/core/PyRef.h>

#include "Interpreter.h"

#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "PythonError.h"

namespace {

// Python keeps pointers into both.
std::string programName;
char embeddedModule[] = "_Kel";

std::string ownFolder() {
   char path[PATH_MAX];
   ssize_t const length = readlink( "/proc/self/exe", path, sizeof( path ) );
   std::string const file( path, length > 0 ? length : 0 );
   return file.substr( 0, file.rfind( '/' ) );
}

// The folder of the standard library, as it stands in sys.path; null if that cannot be told.
PyRef libraryFolder() {
   PyRef const os = PyRef::steal( PyImport_ImportModule( "os" ) );
   PyRef const file = PyRef::steal( os ? PyObject_GetAttrString( os.get(), "__file__" ) : nullptr );
   char const* const text = file ? PyString_AsString( file.get() ) : nullptr;
   char const* const slash = text ? std::strrchr( text, '/' ) : nullptr;
   return PyRef::steal( slash ? PyString_FromStringAndSize( text, slash - text ) : nullptr );
}

// What cannot be imported for want of this is told then.
void addToPath( std::string const& folder ) {
   PyObject* const path = PySys_GetObject( const_cast< char* >( "path" ) );
   PyRef const name = PyRef::steal( PyString_FromString( folder.c_str() ) );
   // Installed where Python looks anyway, it keeps its place.
   if( path && name && PyList_Check( path ) && PySequence_Contains( path, name.get() ) == 0 ) {
      PyRef const library = libraryFolder();
      Py_ssize_t const found = library ? PySequence_Index( path, library.get() ) : -1;
      PyList_Insert( path, found < 0 ? PyList_GET_SIZE( path ) : found, name.get() );
   }
   PyErr_Clear();
}

// The interpreter that the project was built with: sys.executable, and where the standard library
// is found from.
void setProgramName() {
   programName = access( KEL_PYTHON27, X_OK ) == 0 ? KEL_PYTHON27 : "python2.7";
   Py_SetProgramName( programName.data() );
}

// As the interpreter's own program does for this variable, which the library leaves to programs.
void obeyUnbuffered() {
   char const* const wanted = std::getenv( "PYTHONUNBUFFERED" );
   if( wanted && *wanted ) {
      std::setvbuf( stdin, nullptr, _IONBF, 0 );
      std::setvbuf( stdout, nullptr, _IONBF, 0 );
      std::setvbuf( stderr, nullptr, _IONBF, 0 );
   }
}

// The one that a `print` with a comma at its end has left open.
void endLine() {
   PendingErrorAnchor const pending;
   if( Py_FlushLine() != 0 ) {
      PyErr_Clear();
   }
}

} // namespace

std::string modulesFolder() {
   std::string const own = ownFolder();
   for( char const* place :
      { "/../lib/python2.7/site-packages", "/../lib/python2.7/dist-packages", "/../python" } ) {
      std::string const folder = own + place;
      if( access( ( folder + "/PyServer.py" ).c_str(), R_OK ) == 0 ) {
         char resolved[PATH_MAX];
         return realpath( folder.c_str(), resolved ) ? resolved : folder;
      }
   }
   return "";
}

Interpreter::Interpreter( std::string const& modules ) {
   // Shells start background jobs with the signal ignored; the agent ends by it all the same.
   std::signal( SIGINT, SIG_DFL );
   setProgramName();
   obeyUnbuffered();
   // The _Kel that this program is linked with, and never a second one.
   PyImport_AppendInittab( embeddedModule, init_Kel );
   Py_InitializeEx( 1 );
   if( !modules.empty() ) {
      addToPath( modules );
   }
}

Interpreter::~Interpreter() {
   Py_Finalize();
}

void Interpreter::scriptIs( std::vector< std::string > const& script ) {
   std::vector< std::string > texts = script;
   if( texts.empty() ) {
      texts.emplace_back();
   }
   std::vector< char* > argv;
   argv.reserve( texts.size() );
   for( std::string& text : texts ) {
      argv.push_back( text.data() );
   }
   PySys_SetArgvEx( static_cast< int >( argv.size() ), argv.data(), script.empty() ? 0 : 1 );
}

bool Interpreter::run( std::FILE* file, std::string const& path ) {
   PyObject* const main = PyImport_AddModule( "__main__" );
   PyObject* const names = main ? PyModule_GetDict( main ) : nullptr;
   PyRef const name = PyRef::steal( PyString_FromString( path.c_str() ) );
   if( !names || !name || PyDict_SetItemString( names, "__file__", name.get() ) < 0 ) {
      std::fclose( file );
      return false;
   }
   PyCompilerFlags flags = { 0 };
   PyRef const done = PyRef::steal(
      PyRun_FileExFlags( file, path.c_str(), Py_file_input, names, names, 1, &flags ) );
   endLine();
   flushOutput();
   return static_cast< bool >( done );
}
