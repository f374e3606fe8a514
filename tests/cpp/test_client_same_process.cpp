// Commands of a client whose agent is this very process.
#include "RuntimeCaller.h"

#include "ClientTest.h"

#include <atomic>
#include <thread>

#include <kel/Lock.h>
#include <kelpy/notify/PyObjHandle.h>

namespace {

using Kel::RpcException;

// Runs Python statements in a namespace; a failure fails the test.
void run( PyObject* names, std::string const& source ) {
   PyRef const done = PyRef::steal( PyRun_String( source.c_str(), Py_file_input, names, names ) );
   if( !done ) {
      PyErr_Print();
      ADD_FAILURE() << source;
   }
}

// The module PyServer for the length of a scope: `source` is its body.
class ServerModule {
 public:
   explicit ServerModule( std::string const& source )
      : saved_( PyRef::borrow( PyDict_GetItemString( modules(), "PyServer" ) ) ),
        module_( PyRef::steal( PyModule_New( "PyServer" ) ) ) {
      PyDict_SetItemString( names(), "__builtins__", PyEval_GetBuiltins() );
      run( names(), source );
      PyDict_SetItemString( modules(), "PyServer", module_.get() );
   }
   ServerModule( ServerModule const& ) = delete;
   ServerModule& operator=( ServerModule const& ) = delete;
   ~ServerModule() {
      if( saved_ ) {
         PyDict_SetItemString( modules(), "PyServer", saved_.get() );
      } else {
         PyDict_DelItemString( modules(), "PyServer" );
      }
   }

   static PyObject* modules() { return PyImport_GetModuleDict(); }
   PyObject* names() const { return PyModule_GetDict( module_.get() ); }
   // The value of an expression in the module.
   long number( char const* expression ) const {
      PyRef const value =
         PyRef::steal( PyRun_String( expression, Py_eval_input, names(), names() ) );
      if( !value ) {
         PyErr_Print();
      }
      return value ? PyInt_AsLong( value.get() ) : -1;
   }

 private:
   PyRef const saved_;
   PyRef const module_;
};

// Gives back what it is asked, with a letter for each method before it.
constexpr char echo[] = R"(
made = 0
class _LocalServer(object):
    def __init__(self):
        global made
        made += 1
    def doEval(self, text):
        assert type(text) is str
        return 'v' + text
    def doExec(self, text):
        return 'x' + text
)";

// A server whose methods both have that body.
std::string doing( std::string const& body ) {
   return "import sys, weakref\n"
          "class _LocalServer(object):\n"
          "    def doEval(self, text):\n"
          "        " +
          body +
          "\n"
          "    doExec = doEval\n";
}

constexpr char locally[] = "1 Executing command locally (in same address space)";
constexpr char instantiating[] = "1 Instantiating a PyServer._LocalServer";

class ClientSameProcess : public ClientTest {
 protected:
   ClientSameProcess() : file_( folder_ / "group.name", agentText( getpid(), 0, "" ) ) {
      client_ = client( "group", "name", 'x', nullptr, nullptr );
      trace_ = TraceLog(); // from here on
   }
   // Every failure leaves the interpreter clean, and every way out the GIL as it was.
   ~ClientSameProcess() override {
      EXPECT_EQ( PyErr_Occurred(), nullptr );
      client_ = nullptr;
   }

   std::string eval( char const* text ) {
      int const count = client_->eval( text, result_, sizeof result_ );
      return { result_, static_cast< std::size_t >( count ) };
   }
   std::string failure( char const* text = "x" ) {
      return messageOf< RpcException >( [&] { eval( text ); } );
   }

   AgentFile const file_;
   Client client_;
   char result_[64] = {};
};

TEST_F( ClientSameProcess, evaluatesAndExecutesByTheMethodsOfAnInstance ) {
   ServerModule const module( echo );
   EXPECT_EQ( eval( "1+1" ), "v1+1" );
   EXPECT_EQ( client_->execute( "a = 1", result_, sizeof result_ ), 6 );
   EXPECT_EQ( std::string( result_, 6 ), "xa = 1" );
   EXPECT_EQ( client_->sock_, -1 );
   EXPECT_TRUE( client_->connected_ );
   EXPECT_EQ( trace_.lines(),
      ( Lines{ "9 -> eval '1+1'", locally, instantiating, "9 <- result (4 bytes) - v1+1",
         "9 -> execute 'a = 1'", locally, "9 <- result (6 bytes) - xa = 1" } ) );
}

TEST_F( ClientSameProcess, choosesTheMethodByTheWholeHeader ) {
   ServerModule const module( echo );
   for( char const* header : { "?2", "?11", "?1 ", "?", "", "xy" } ) {
      EXPECT_EQ( client_->doCmd( "a", header, result_, sizeof result_ ), 2 );
      EXPECT_EQ( result_[0], 'x' ) << header;
   }
   EXPECT_EQ( client_->doCmd( "a", "?1", result_, sizeof result_ ), 2 );
   EXPECT_EQ( result_[0], 'v' );
}

TEST_F( ClientSameProcess, aResultThatFillsTheBufferHasNoTerminator ) {
   ServerModule const module( echo );
   std::string buffer( 6, '#' );
   EXPECT_EQ( client_->eval( "123", buffer.data(), 4 ), 4 );
   EXPECT_EQ( buffer, "v123##" );
   EXPECT_EQ( trace_.lines().back(), "9 <- result (4 bytes) - v123" );
}

TEST_F( ClientSameProcess, aLongerResultIsCut ) {
   ServerModule const module( echo );
   std::string buffer( 6, '#' );
   EXPECT_EQ( client_->eval( "12345", buffer.data(), 4 ), 4 );
   EXPECT_EQ( buffer, "v123##" );
   EXPECT_EQ( trace_.lines().back(), "9 <- result (4 bytes) - v123" );
}

TEST_F( ClientSameProcess, anEmptyResultLeavesTheBufferAsItIs ) {
   ServerModule const module( doing( "return ''" ) );
   std::string buffer( 4, '#' );
   EXPECT_EQ( client_->eval( "x", buffer.data(), 4 ), 0 );
   EXPECT_EQ( buffer, "####" );
}

TEST_F( ClientSameProcess, aBufferWithoutRoomIsNeverWritten ) {
   ServerModule const module( echo );
   std::string buffer( 4, '#' );
   EXPECT_EQ( client_->eval( "x", buffer.data(), 0 ), 0 );
   EXPECT_EQ( client_->eval( "x", buffer.data(), -1 ), 0 );
   EXPECT_EQ( client_->eval( "x", nullptr, 0 ), 0 );
   EXPECT_EQ( buffer, "####" );
}

TEST_F( ClientSameProcess, aResultKeepsItsNulBytes ) {
   ServerModule const module( doing( "return 'a\\0b'" ) );
   EXPECT_EQ( eval( "x" ), std::string( "a\0b", 3 ) );
}

TEST_F( ClientSameProcess, theInstanceIsMadeOnce ) {
   ServerModule const module( echo );
   EXPECT_FALSE( client_->localServer_ );
   eval( "1" );
   PyObject* const instance = client_->localServer_->pyObject();
   eval( "2" );
   EXPECT_EQ( client_->localServer_->pyObject(), instance );
   EXPECT_EQ( module.number( "made" ), 1 );
   // The client's handle holds it, and nothing else does.
   EXPECT_EQ( Py_REFCNT( instance ), 1 );
}

TEST_F( ClientSameProcess, theMethodIsLookedUpEachTime ) {
   ServerModule const module( echo );
   eval( "1" );
   run( module.names(), "_LocalServer.doEval = lambda self, text: 'other'" );
   EXPECT_EQ( eval( "1" ), "other" );
}

TEST_F( ClientSameProcess, keepsNoReferenceOnWhatPassesThrough ) {
   ServerModule const module( "kept = ['r' * 100, 't' * 10]\n" + doing( "return kept[0]" ) );
   run( module.names(), "def counts():\n"
                        "    return sum(sys.getrefcount(each) for each in kept)" );
   long const before = module.number( "counts()" );
   for( int i = 0; i < 3; ++i ) {
      eval( "1" );
   }
   EXPECT_EQ( module.number( "counts()" ), before );
   EXPECT_EQ( module.number( "sys.getrefcount(sys.modules['PyServer'])" ), 3 );
}

TEST_F( ClientSameProcess, theInitCommandRuns ) {
   ServerModule const module( "ran = []\n" + doing( "ran.append(text); return 'r' * 300" ) );
   auto const made = client( "group", "name", 'x', nullptr, "init" );
   EXPECT_EQ( module.number( "ran == ['init']" ), 1 );
   EXPECT_TRUE( made->noReconnect_ );
}

TEST_F( ClientSameProcess, aClassThatIsNoTypeIsAFailure ) {
   char const text[] = "PyServer._LocalServer is not a type";
   for( char const* source : { "_LocalServer = 7", "class _LocalServer: pass", "" } ) {
      ServerModule const module( source );
      TraceLog const trace;
      EXPECT_EQ( failure(), text );
      EXPECT_EQ( trace.lines( 0 ), Lines{ std::string( "0 " ) + text } );
      EXPECT_FALSE( client_->localServer_ );
   }
}

TEST_F( ClientSameProcess, aModuleThatCannotBeImportedIsAFailure ) {
   ServerModule const module( echo );
   PyDict_SetItemString( ServerModule::modules(), "PyServer", Py_None );
   EXPECT_EQ( failure(), "Error occurred importing PyServer" );
   ASSERT_EQ( trace_.lines( 0 ).size(), 1u );
   EXPECT_TRUE( trace_.lines( 0 )[0].starts_with( "0 Error occurred importing PyServer: "
                                                  "<type 'exceptions.ImportError'>, No module" ) );
}

TEST_F( ClientSameProcess, aPyServerThatIsNoModuleIsAFailure ) {
   ServerModule const module( echo );
   HeldObject const other( "object()" );
   PyDict_SetItemString( ServerModule::modules(), "PyServer", other.get() );
   EXPECT_EQ( failure(), "PyServer._LocalServer is not a type" );
}

TEST_F( ClientSameProcess, anInstanceThatCannotBeMadeIsAFailureAndIsTriedAnew ) {
   ServerModule const module( "fail = True\n"
                              "class _LocalServer(object):\n"
                              "    def __init__(self):\n"
                              "        if fail: raise ValueError('why')\n"
                              "    def doEval(self, text): return 'fine'\n" );
   for( int i = 0; i < 2; ++i ) {
      TraceLog const trace;
      EXPECT_EQ( failure(), "Error occurred instantiating _LocalServer" );
      ASSERT_EQ( trace.lines( 0 ).size(), 1u );
      EXPECT_TRUE(
         trace.lines( 0 )[0].starts_with( "0 Error occurred instantiating _LocalServer: "
                                          "<type 'exceptions.ValueError'>, why, <traceback" ) );
      ASSERT_TRUE( client_->localServer_ );
      EXPECT_EQ( client_->localServer_->pyObject(), nullptr );
   }
   run( module.names(), "fail = False" );
   EXPECT_EQ( eval( "x" ), "fine" );
}

TEST_F( ClientSameProcess, aMissingMethodIsAFailure ) {
   ServerModule const module( "class _LocalServer(object): pass" );
   EXPECT_EQ( failure(), "doEval attribute not found on _LocalServer instance" );
   EXPECT_EQ(
      messageOf< RpcException >( [this] { client_->execute( "x", result_, sizeof result_ ); } ),
      "doExec attribute not found on _LocalServer instance" );
   EXPECT_EQ( trace_.lines( 0 )[0],
      "0 doEval attribute not found on _LocalServer instance: "
      "<type 'exceptions.AttributeError'>, '_LocalServer' object has no attribute 'doEval', " );
}

TEST_F( ClientSameProcess, aMethodThatRaisesIsAFailureWhoseTextIsInTheTrace ) {
   ServerModule const module( doing( "raise KeyError(text)" ) );
   EXPECT_EQ( failure( "key" ), "Error calling doEval on _LocalServer instance" );
   EXPECT_EQ(
      messageOf< RpcException >( [this] { client_->execute( "x", result_, sizeof result_ ); } ),
      "Error calling doExec on _LocalServer instance" );
   EXPECT_TRUE( trace_.lines( 0 )[0].starts_with(
      "0 Error calling doEval on _LocalServer instance: "
      "<type 'exceptions.KeyError'>, 'key', <traceback object at 0x" ) );
}

TEST_F( ClientSameProcess, anExitThatTheTextAsksForIsAFailure ) {
   ServerModule const module( doing( "sys.exit(3)" ) );
   EXPECT_EQ( failure(), "Error calling doEval on _LocalServer instance" );
}

TEST_F( ClientSameProcess, anExceptionWithoutATextIsAFailure ) {
   ServerModule const module( "class Mute(Exception):\n"
                              "    def __str__(self): raise ValueError\n" +
                              doing( "raise Mute" ) );
   EXPECT_EQ( failure(), "Error calling doEval on _LocalServer instance" );
   EXPECT_NE(
      trace_.lines( 0 )[0].find( "<class 'PyServer.Mute'>, , <traceback" ), std::string::npos );
}

TEST_F( ClientSameProcess, theExceptionOfAFailureLivesOn ) {
   ServerModule const module( "class Own(Exception): pass\n"
                              "seen = []\n" +
                              doing( "own = Own(); seen.append(weakref.ref(own)); raise own" ) );
   failure();
   EXPECT_EQ( module.number( "seen[0]() is not None" ), 1 );
}

TEST_F( ClientSameProcess, aResultThatIsNoStrEndsTheProcess ) {
   for( char const* value : { "None", "7", "u'\\xe9'", "['a']" } ) {
      ServerModule const module( doing( std::string( "return " ) + value ) );
      EXPECT_DEATH( eval( "x" ), "assertion failed: r >= 0 " ) << value;
   }
}

TEST_F( ClientSameProcess, aThreadThatPythonNeverSawMayAsk ) {
   ServerModule const module( "import thread\n" + doing( "return str(thread.get_ident())" ) );
   std::string seen, own, message;
   {
      Kel::GilUnlockAnchor const unlocked;
      std::thread( [&] {
         seen = eval( "x" );
         own = std::to_string( pthread_self() );
         EXPECT_EQ( PyGILState_GetThisThreadState(), nullptr );
         client_->localServer_ = nullptr;
      } ).join();
   }
   EXPECT_EQ( seen, own ); // the caller's thread ran it
   run( module.names(), "_LocalServer.doEval = None" );
   {
      Kel::GilUnlockAnchor const unlocked;
      std::thread( [&] {
         message = failure();
         EXPECT_EQ( PyGILState_GetThisThreadState(), nullptr );
      } ).join();
   }
   EXPECT_EQ( message, "Error calling doEval on _LocalServer instance" );
}

TEST_F( ClientSameProcess, theActivityLockMayBeAnothers ) {
   ServerModule const module( echo );
   std::atomic< bool > held{ false }, done{ false };
   std::thread other( [&] {
      Kel::LockAnchor const lock( Kel::activityLock(), Kel::LockAnchor::noFlags );
      held = true;
      while( !done ) {
         std::this_thread::yield();
      }
   } );
   while( !held ) {
      std::this_thread::yield();
   }
   EXPECT_EQ( eval( "1" ), "v1" );
   done = true;
   other.join();
}

TEST_F( ClientSameProcess, theModuleIsImportedFromAFolder ) {
   Folder const folder;
   std::ofstream( folder / "PyServer.py" ) << echo;
   ServerModule const kept( echo ); // puts back what was there
   PyDict_DelItemString( ServerModule::modules(), "PyServer" );
   run( kept.names(), "import sys; sys.path.insert(0, '" + folder.path() + "')" );
   EXPECT_EQ( eval( "1" ), "v1" );
   run( kept.names(), "del sys.path[0]" );
   EXPECT_EQ( kept.number( "made" ), 0 ); // that of the folder was asked
}

} // namespace
