// A program that embeds Python and has _Kel as a built-in module.
#include <Python.h>

extern "C" void init_Kel();

namespace {

char const check[] = "import _Kel\n"
                     "assert _Kel.attributeAccessorCount() == 0\n"
                     "_Kel.enableThreadSafePointers()\n";

} // namespace

int main() {
   if( PyImport_AppendInittab( "_Kel", init_Kel ) != 0 ) {
      return 1;
   }
   Py_Initialize();
   return PyRun_SimpleString( check ) == 0 ? 0 : 2;
}
