#include <kelpy/diagnostics/PyProcTitle.h>

#include <kel/System.h>
#include <kelpy/core/ProcessArgs.h>
#include <kelpy/objects/PyStage.h>
#include <process/ProcTitle.h>

PyObject* setproctitle( PyObject*, PyObject* args ) {
   char const* a = nullptr;
   char const* b = nullptr;
   if( !PyArg_ParseTuple( args, "ss:setproctitle", &a, &b ) ) {
      return nullptr;
   }
   return underLocks(
      Kel::flags0, Stage( NoSubject(), "" ), noObject, [&]( Kel::PyLockAnchor& locks ) {
         procTitleIs( processArgs.argc, processArgs.argv, a, b );
         locks.gilHeldIs( true );
         Py_RETURN_NONE;
      } );
}

PyObject* proctitle( PyObject*, PyObject* ) {
   return underLocks( Kel::flags4, Stage( NoSubject(), "" ), noObject,
      []( Kel::PyLockAnchor& ) { return Py_BuildValue( "s", procTitle() ); } );
}

PyObject* kelNowToLinuxMonoTime( PyObject*, PyObject* args ) {
   double time = 0;
   if( !PyArg_ParseTuple( args, "d:kelNowToLinuxMonoTime", &time ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags4, Stage( NoSubject(), "" ), noObject, [&]( Kel::PyLockAnchor& ) {
      Kel::Seconds const mono = Kel::System::kelNowToLinuxMonoTime( Kel::Seconds( time ) );
      return PyFloat_FromDouble( mono.value() );
   } );
}
