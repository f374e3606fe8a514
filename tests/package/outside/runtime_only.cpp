// A program that uses the runtime and no Python.
#include <kel/RefCount.h>

int main() {
   if( Kel::VFPtrInterface::threadSafePointers() ) {
      return 1;
   }
   Kel::VFPtrInterface::threadSafePointersIs( true );
   return Kel::VFPtrInterface::threadSafePointers() ? 0 : 2;
}
