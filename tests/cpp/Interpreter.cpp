// The interpreter that every test of this program runs in. It starts once and is never taken down;
// the thread of the tests holds the GIL.
#include <kelpy/core/PyPython.h>

#include <gtest/gtest.h>

namespace {

class Interpreter : public testing::Environment {
 public:
   void SetUp() override {
      if( Py_IsInitialized() ) {
         return;
      }
      Py_InitializeEx( 0 );
      ASSERT_EQ( PyRun_SimpleString( "import _Kel" ), 0 );
   }
};

testing::Environment* const interpreter =
   testing::AddGlobalTestEnvironment( new Interpreter ); // gtest owns it

} // namespace
