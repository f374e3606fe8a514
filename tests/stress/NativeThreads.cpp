#include "NativeThreads.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include <kel/Clock.h>
#include <kel/Exception.h>
#include <kel/Lock.h>
#include <kel/schema/Convert.h>
#include <odd/Node.h>

#include "Ledger.h"
#include "Stacks.h"
#include "Watchdog.h"

namespace Stress {

namespace {

using Kel::activityLock;
using Kel::GenericIf;
using Kel::LockAnchor;
using Kel::newObject;
using Kel::Ptr;
using Kel::PtrInterface;
using Kel::String;
using Kel::U32;

constexpr unsigned childSeconds = 30;

pid_t const process = getpid();

// Activity lock.
std::vector< Ptr< PtrInterface > > given;

std::atomic< int > forked;

std::mutex failuresMutex;
std::vector< std::string > failures;

void fail( std::string text ) {
   std::lock_guard const guard( failuresMutex );
   failures.push_back( std::move( text ) );
}

// A timer that arms itself anew so many times.
class Ticker : public Kel::Clock::NotifieeConst {
 public:
   explicit Ticker( int ticks ) : left_( ticks ) {
      notifierIs( Kel::Clock::instance() );
      timeMinIs( Kel::Clock::instance()->now() );
   }
   void onAttribute( Kel::AttributeId, void const* ) override {
      --left_;
      if( left_ > 0 ) {
         timeMinIs( Kel::Clock::instance()->now() );
      }
   }
   int left() const { return left_; }

 private:
   int left_;
};

class Worker {
 public:
   Worker( SharedObjects const& objects, int number, int steps, int forks )
      : objects_( objects ),
        name_( "n" + std::to_string( number ) ),
        participant_( newParticipant( name_.c_str() ) ),
        steps_( steps ),
        forks_( forks ),
        random_( static_cast< unsigned >( number ) ) {}

   void run();

 private:
   using Step = void ( Worker::* )();

   static Step const steps[];

   unsigned upTo( unsigned limit ) { return static_cast< unsigned >( random_() ) % limit; }
   std::string newKey() { return name_ + ":" + std::to_string( number_++ ); }
   void expect( bool holds, char const* what );

   void writeStrictly();
   void writeLoosely();
   void readAndIterate();
   void sharePointers();
   void callFunctions();
   void makeAndDrop();
   void dropGiven();
   void changeNotifiees();
   void tick();
   void failOnPurpose();
   void forkOnce();
   void lookAroundInChild();

   SharedObjects const& objects_; // activity lock
   std::string const name_;
   int const participant_;
   int const steps_;
   int const forks_;
   std::minstd_rand random_;
   U32 number_ = 0;      // of keys of its own in `strict` and `store`
   U32 looseNumber_ = 0; // of keys of its own in `loose`
   Ptr< Recorder > recorder_;
   Ptr< Ticker > ticker_;
};

void Worker::expect( bool holds, char const* what ) {
   if( !holds ) {
      fail( name_ + ": " + what );
   }
}

void Worker::writeStrictly() {
   LockAnchor const locked( activityLock() );
   auto& notes = *objects_.strict;
   auto& store = *objects_.store;
   std::string const key = newKey();
   notes.map.set( String( key ), number_ );
   note( &notes, "map", key );
   dawdle();
   if( upTo( 2 ) ) {
      notes.map.del( String( key ) );
      note( &notes, "map", key );
   } else {
      notes.bIs( notes.b() + 1 );
      note( &notes, "b" );
   }
   ++notes.quiet;
   usleep( 200 );
   ++objects_.loose->quiet;
   Kel::UnlockAnchor const unlocked( activityLock() );
   LockAnchor const again( activityLock() );
   store.price.set( String( key ), number_ );
   note( &store, "price", key );
   store.tag.add( String( key ) );
   note( &store, "tag", key );
   store.order.add( String( key ) );
   note( &store, "order" );
}

void Worker::writeLoosely() {
   std::string const key = name_ + ":" + std::to_string( looseNumber_++ );
   LockAnchor const locked( activityLock() );
   objects_.loose->map.set( String( key ), looseNumber_ );
   note( objects_.loose.get(), "map", key );
}

void Worker::readAndIterate() {
   LockAnchor const locked( activityLock() );
   auto const notes = Kel::KelType::genericIf( objects_.loose.get(), false );
   auto const map = notes->type().attr( "map" );
   auto it = map.genericIfIterator( notes );
   for( int i = 0; it && i < 20; ++i, ++it ) {
      String const key = it.key()->strRep();
      Ptr< GenericIf > const member = it.ptr();
      if( i % 8 == 0 ) {
         Kel::UnlockAnchor const unlocked( activityLock() );
         sched_yield();
      }
   }
   String const name = objects_.item->name();
   String const copy = name;
   expect( copy == "item", "the name of the item" );
   Ptr< Acme::Item > const parent = objects_.item->parent();
   expect( !parent || parent != objects_.item, "the parent of the item" );
   expect( objects_.strict->quiet == objects_.loose->quiet, "a change in the middle" );
}

// The counts of both objects go up and down in all threads.
void Worker::sharePointers() {
   for( int i = 0; i < 4000; ++i ) {
      LockAnchor const locked( activityLock() );
      Ptr< Acme::Item > const parent = objects_.item->parent();
      Ptr< Odd::Node > const node = objects_.args->kept();
   }
}

void Worker::callFunctions() {
   LockAnchor const locked( activityLock() );
   auto const item = Kel::KelType::genericIf( objects_.item.get(), false );
   auto const argument = []( Kel::S32 value ) {
      return Ptr< GenericIf const >( Kel::Schema::toGeneric< Kel::S32 >( value ) );
   };
   Kel::ArgVector args;
   args.push_back( argument( 2 ) );
   args.push_back( argument( 3 ) );
   auto const sum = item->type().attr( "add" ).genericIfCall( item, args );
   expect( *sum->attrValPtr< int >() == 5, "2 + 3" );
}

void Worker::makeAndDrop() {
   LockAnchor const locked( activityLock() );
   auto const node = newObject< Odd::Node >( number_ );
   node->next = newObject< Odd::Node >( number_ + 1 );
   auto const copy = node;
   auto const keeper = newObject< Odd::Keeper >();
   keeper->node = copy;
   expect( copy->references() == 3, "the references on a node" );
}

void Worker::dropGiven() {
   LockAnchor const locked( activityLock() );
   dawdle();
   // The end of a handle waits for the GIL in here.
   given.clear();
}

void Worker::changeNotifiees() {
   LockAnchor const locked( activityLock() );
   if( recorder_ ) {
      std::string const fault = recorder_->fault( false );
      expect( fault.empty(), fault.c_str() );
      recorder_ = nullptr;
   } else {
      recorder_ = newObject< Recorder >( objects_.strict.get() );
   }
}

void Worker::tick() {
   LockAnchor const locked( activityLock() );
   if( !ticker_ || ticker_->left() == 0 || upTo( 4 ) == 0 ) {
      ticker_ = newObject< Ticker >( 3 );
   }
}

void Worker::failOnPurpose() {
   LockAnchor const locked( activityLock() );
   auto const faults = newObject< Odd::Faults >();
   try {
      faults->fail( String( "Kel::RangeException" ), objects_.item->name() );
      expect( false, "nothing was thrown" );
   } catch( Kel::RangeException const& error ) {
      expect( error.message() == "item", "the text of an exception" );
   }
}

// The runtime works in the child, Python does not: another thread may have had the GIL.
void Worker::lookAroundInChild() {
   LockAnchor const locked( activityLock() );
   expect( objects_.strict->quiet == objects_.loose->quiet, "a change in the middle" );
   recorder_ = newObject< Recorder >( objects_.strict.get() );
   objects_.strict->aIs( objects_.strict->a() + 1 );
   objects_.loose->map.set( String( "child" ), 1 );
   recorder_ = nullptr;
   ticker_ = newObject< Ticker >( 1 );
   ticker_ = nullptr;
   makeAndDrop();
   callFunctions();
   failOnPurpose();
   readAndIterate();
}

void Worker::forkOnce() {
   auto const owns = [] { return activityLock()->ownerThread() == ::gettid(); };
   bool const hold = upTo( 2 );
   std::unique_ptr< LockAnchor > const held( hold ? new LockAnchor( activityLock() ) : nullptr );
   pid_t const child = fork();
   if( child == 0 ) {
      childDeadlineIs( childSeconds, childStatus );
      bool const right = owns() == hold && ( hold || activityLock()->ownerThread() == 0 );
      lookAroundInChild();
      _exit( right && failures.empty() ? 0 : 1 );
   }
   ++forked;
   expect( owns() == hold, "the owner of the lock behind a fork" );
   std::unique_ptr< Kel::UnlockAnchor > const unlocked(
      hold ? new Kel::UnlockAnchor( activityLock() ) : nullptr );
   int status = -1;
   while( child > 0 && waitpid( child, &status, 0 ) < 0 && errno == EINTR ) {
   }
   expect( status == 0, ( "the status of a child: " + std::to_string( status ) ).c_str() );
}

constexpr Worker::Step Worker::steps[] = { &Worker::writeStrictly, &Worker::writeLoosely,
   &Worker::readAndIterate, &Worker::sharePointers, &Worker::callFunctions, &Worker::makeAndDrop,
   &Worker::dropGiven, &Worker::changeNotifiees, &Worker::tick, &Worker::failOnPurpose };

void Worker::run() {
   threadNameIs( name_.c_str() );
   for( int i = 0; i < steps_; ++i ) {
      dawdle();
      ( this->*steps[upTo( std::size( steps ) )] )();
      if( upTo( static_cast< unsigned >( steps_ ) ) < static_cast< unsigned >( forks_ ) ) {
         forkOnce();
      }
      stepMade( participant_ );
   }
   {
      LockAnchor const locked( activityLock() );
      recorder_ = nullptr;
      ticker_ = nullptr;
   }
   participantDone( participant_ );
}

struct NativeThreads {
   SharedObjects objects;
   std::vector< std::unique_ptr< Worker > > workers;
   std::vector< std::thread > threads;
};

NativeThreads* running = nullptr; // activity lock

} // namespace

void startNativeThreads( SharedObjects objects, int threads, int steps, int forks ) {
   running = new NativeThreads{ std::move( objects ), {}, {} };
   for( int i = 0; i < threads; ++i ) {
      running->workers.push_back( std::make_unique< Worker >( running->objects, i, steps, forks ) );
      running->threads.emplace_back( &Worker::run, running->workers.back().get() );
   }
}

std::vector< std::string > joinNativeThreads() {
   for( std::thread& thread : running->threads ) {
      thread.join();
   }
   LockAnchor const locked( activityLock() );
   delete std::exchange( running, nullptr );
   given.clear();
   return std::move( failures );
}

int nativeForks() {
   return forked;
}

void dawdle() {
   if( getpid() != process ) {
      return;
   }
   static thread_local std::minstd_rand random( static_cast< unsigned >( ::gettid() ) );
   unsigned const number = static_cast< unsigned >( random() ) % 64;
   if( number < 20 ) {
      usleep( 10 * number );
   }
}

void give( Ptr< PtrInterface > object ) {
   given.push_back( std::move( object ) );
}

} // namespace Stress
