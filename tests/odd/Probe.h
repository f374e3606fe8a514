// Tells which locks the calling thread holds inside of a runtime call. Activity lock.
#pragma once

#include <odd/Scalars.h>

namespace Odd {

class Probe;

KEL_TYPES( _Odd_Probe_kelModule, Probe );

class KEL_API Probe : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Probe )

   // The interpreter is looked up at run time; false in a process without one.
   bool gilHeld() const;
   bool activityLockHeld() const;
   // The kernel's id of the thread.
   S64 thread() const;

   // 1 if the GIL was held at the last write of gilOnWrite, whatever was written.
   U32 gilAtWrite() const { return gilAtWrite_; }
   void gilOnWriteIs( U32 ) { gilAtWrite_ = gilHeld(); }

 private:
   U32 gilAtWrite_ = 0;
};

} // namespace Odd
